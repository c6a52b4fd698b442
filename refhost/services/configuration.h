// The module's settings: what the host answers on CCfg and CCfgEx, read from the configuration file.
//
// Some settings are read once by the module and stay for the host's life; the live ones, among them the policy, can be
// replaced while the module runs.
#pragma once

#include <array>
#include <atomic>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "host/cfg.h"
#include "host/cfg_ex.h"
#include "refhost/base/live_value.h"

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
  bool cacheBypassed = false;
  bool identityTextAdded = true;
  bool measuring = false;
  std::uint32_t refreshMilliseconds = 1000;
  std::vector<std::uint8_t> configBlock;                                 // empty: none
  std::array<std::uint8_t, 4> spspFlags{};                               // flags 1 to 4
  std::optional<std::vector<boost::filesystem::path>> monitoredObjects;  // nothing: there is no policy
};

// Both read the tables of the file's root: [module], [spsp] and [policy].
FixedSettings ReadFixedSettings(const ConfigTable& root);
LiveSettings ReadLiveSettings(const ConfigTable& root);

// The host's part of the driver's version report.
struct DriverVersionReport {
  std::uint64_t reports = 0;
  std::uint32_t version = 0;
};

class Configuration final : public CCfg, public CCfgEx {
 public:
  using Clock = std::chrono::steady_clock;

  // `factory` makes the registration records of driver interfaces.
  Configuration(const FixedSettings& fixedSettings, LiveSettings live, std::shared_ptr<CRecordFactory> factory);

  // Puts new live settings in place of the old ones, all at once. The module hears of a new policy only through
  // CFenlux::NotifyPolicyChanged. Any thread.
  void Replace(LiveSettings live);

  DriverVersionReport LastDriverVersion() const;
  // When the module last asked for the policy; the clock's beginning where it never did.
  Clock::time_point LastPolicyRead() const { return Clock::time_point(Clock::duration(lastPolicyRead.load())); }
  // When the live settings were last replaced; a policy read after it is the new one.
  Clock::time_point LastReplaced() const { return Clock::time_point(Clock::duration(lastReplaced.load())); }
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
  // A configuration block that was in force once. The module is handed references to the handles, so they stay.
  struct Block {
    std::vector<std::uint8_t> bytes;
    std::shared_ptr<CBuf> handle;
    std::unique_ptr<Block> older;
  };

  const FixedSettings fixed;
  const std::shared_ptr<CRecordFactory> recordFactory;
  const std::shared_ptr<Spsp> spspFlags;
  const std::shared_ptr<CSpspSettings> spsp;
  // Asked for once per notification, so they are kept where no lock is needed.
  std::atomic<bool> cacheBypassed{false};
  std::atomic<bool> identityTextAdded{false};
  std::atomic<bool> measuring{false};
  std::atomic<std::uint32_t> refreshMilliseconds{0};
  std::atomic<Clock::rep> lastPolicyRead{Clock::duration::min().count()};
  std::atomic<Clock::rep> lastReplaced{Clock::duration::min().count()};
  std::atomic<std::uint64_t> policyReads{0};

  mutable std::mutex mutex;  // over everything below
  std::shared_ptr<MonitorPolicy> policy;
  std::unique_ptr<Block> block;
  DriverVersionReport driverVersion;
};

}  // namespace fenlux::refhost
