// The module's settings: CCfg and CCfgEx with values from the configuration file.
//
// The module reads fixed settings once; they do not change during the host's lifetime. Live settings, including the
// policy, can be replaced while the module runs.
#pragma once

#include <array>
#include <atomic>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "common/mutex.h"
#include "host/cfg.h"
#include "host/cfg_ex.h"

namespace fenlux::refhost {

class ConfigTable;

struct FixedSettings {
  bool enabled = true;
  std::uint32_t portValue = 1;
  std::uint32_t recordValue1 = 0;
  std::uint32_t recordValue2 = 0;
  bool driverInterfaceFlag = false;
  bool clientTypeFlag = false;     // true: client type 2
  bool monitorObjectFlag = false;  // true: type 1, false: type 2
  bool versionFlag = false;

  bool operator==(const FixedSettings&) const = default;
};

struct LiveSettings {
  std::optional<bool> cacheBypassed;  // nullopt: no, unless the host decides otherwise
  bool identityTextAdded = true;
  bool measuring = false;
  std::uint32_t refreshMilliseconds = 1000;
  std::vector<std::uint8_t> configBlock;                                 // empty: none
  boost::filesystem::path configBlockFile;                               // the file it was read from, if any
  std::array<std::uint8_t, 4> spspFlags{};                               // flags 1 to 4
  std::optional<std::vector<boost::filesystem::path>> monitoredObjects;  // nullopt: no policy
};

// Both read the tables of the file's root: [module], [spsp] and [policy].
FixedSettings ReadFixedSettings(const ConfigTable& root);
LiveSettings ReadLiveSettings(const ConfigTable& root);

// The driver versions that the module reported.
struct DriverVersionReport {
  std::uint64_t reports = 0;
  std::uint32_t version = 0;
};

class Configuration final : public CCfg, public CCfgEx {
 public:
  using Clock = std::chrono::steady_clock;

  // `factory` creates the registration records of driver interfaces.
  Configuration(const FixedSettings& fixedSettings, LiveSettings live, std::shared_ptr<CRecordFactory> factory);

  // Replaces the live settings. The module learns of a new policy only through CFenlux::NotifyPolicyChanged. Any
  // thread.
  void Replace(LiveSettings live);

  DriverVersionReport LastDriverVersion() const;
  // When the module last read the policy; the clock's minimum if it has not.
  Clock::time_point LastPolicyRead() const { return Clock::time_point(Clock::duration(lastPolicyRead.load())); }
  // When the live settings were last replaced. A policy read after that is the current one.
  Clock::time_point LastReplaced() const { return Clock::time_point(Clock::duration(lastReplaced.load())); }
  // The policy that the module gets; nullopt if there is none. Does not count as a read.
  std::optional<std::vector<boost::filesystem::path>> MonitoredDirectories() const;
  std::uint64_t PolicyReads() const { return policyReads.load(); }

  // CCfg
  const std::shared_ptr<CRecordFactory>& GetRecordFactory() override { return recordFactory; }
  const std::shared_ptr<CSpspSettings>& GetSpspSettings() override { return spsp; }
  void ReportDriverVersion(std::uint32_t kind, bool current, std::uint32_t version) override;
  bool IsMeasuringEnabled(std::uint32_t first, std::uint32_t second) override;

  // CCfgEx
  std::uint32_t GetRecordValue1() override { return fixed.recordValue1; }
  std::uint32_t GetRecordValue2() override { return fixed.recordValue2; }
  std::uint32_t GetPortValue() override { return fixed.portValue; }
  bool IsEnabled() override { return fixed.enabled; }
  bool GetDriverInterfaceFlag() override { return fixed.driverInterfaceFlag; }
  std::shared_ptr<MonitorPolicy>& GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) override;
  bool IsCacheBypassed() override { return cacheBypassed.load(std::memory_order_relaxed); }
  bool IsIdentityTextAdded() override { return identityTextAdded.load(std::memory_order_relaxed); }
  std::uint32_t GetRefreshInterval() override { return refreshMilliseconds.load(std::memory_order_relaxed); }
  const std::shared_ptr<CBuf>& GetDriverConfigBlock() override;
  bool GetClientTypeFlag() override { return fixed.clientTypeFlag; }
  bool GetMonitorObjectFlag() override { return fixed.monitorObjectFlag; }

 private:
  class Spsp;
  // A configuration block and its predecessors. The module holds references to the handles, so none is freed.
  struct Block {
    std::vector<std::uint8_t> bytes;
    std::shared_ptr<CBuf> handle;
    std::unique_ptr<Block> older;
  };

  const FixedSettings fixed;
  const std::shared_ptr<CRecordFactory> recordFactory;
  const std::shared_ptr<Spsp> spspFlags;
  const std::shared_ptr<CSpspSettings> spsp;
  // Atomic because they are read for every notification.
  std::atomic<bool> cacheBypassed{false};
  std::atomic<bool> identityTextAdded{false};
  std::atomic<bool> measuring{false};
  std::atomic<std::uint32_t> refreshMilliseconds{0};
  std::atomic<Clock::rep> lastPolicyRead{Clock::duration::min().count()};
  std::atomic<Clock::rep> lastReplaced{Clock::duration::min().count()};
  std::atomic<std::uint64_t> policyReads{0};

  mutable Mutex mutex;
  std::shared_ptr<MonitorPolicy> policy FENLUX_GUARDED_BY(mutex);
  std::unique_ptr<Block> block FENLUX_GUARDED_BY(mutex);
  DriverVersionReport driverVersion FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
