// Reads the settings, and implements CCfg and CCfgEx.
#include "refhost/services/configuration.h"

#include <fmt/format.h>

#include <utility>

#include "kdi/driver_records.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/file_bytes.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

class PolicyObject final : public CPolicyObject {
 public:
  explicit PolicyObject(boost::filesystem::path monitorPath) : path(std::move(monitorPath)) {}
  boost::filesystem::path GetMonitorPath() override { return path; }

 private:
  boost::filesystem::path path;
};

void ReadConfigBlock(const ConfigTable& module, LiveSettings& settings) {
  std::vector<std::uint8_t>& block = settings.configBlock;
  std::string_view key = "config_block";
  if (module.Has("config_block_file")) {
    if (module.Has(key)) module.Report("config_block_file", "cannot be combined with config_block");
    key = "config_block_file";
    const boost::filesystem::path path = settings.configBlockFile = module.Path(key);
    const FileBytes content = path.empty() ? FileBytes() : ReadFileBytes(path);
    block.assign(content.bytes.begin(), content.bytes.end());
    if (!content.failure.empty()) module.Report(key, fmt::format("{} {}", path.string(), content.failure));
  } else {
    const std::string text = module.Text(key, "");
    block.assign(text.begin(), text.end());
  }
  if (block.size() > records::kMaxPayloadSize) {
    module.Report(key,
                  fmt::format("has {} bytes; the driver accepts at most {}", block.size(), records::kMaxPayloadSize));
    block.clear();
  }
}

std::shared_ptr<MonitorPolicy> MakePolicy(const LiveSettings& live) {
  if (!live.monitoredObjects) return nullptr;
  auto policy = std::make_shared<MonitorPolicy>();
  policy->reserve(live.monitoredObjects->size());
  for (const auto& path : *live.monitoredObjects) policy->push_back(std::make_shared<PolicyObject>(path));
  return policy;
}

}  // namespace

FixedSettings ReadFixedSettings(const ConfigTable& root) {
  const ConfigTable module = root.Table("module");
  FixedSettings settings;
  settings.enabled = module.Boolean("enabled", settings.enabled);
  settings.portValue = module.Unsigned("port_value", settings.portValue);
  settings.recordValue1 = module.Unsigned("record_value1", settings.recordValue1);
  settings.recordValue2 = module.Unsigned("record_value2", settings.recordValue2);
  settings.driverInterfaceFlag = module.Boolean("driver_interface_flag", settings.driverInterfaceFlag);
  settings.clientTypeFlag = module.Unsigned("client_type", records::kClientType1, records::kClientType1,
                                            records::kClientType2) == records::kClientType2;
  settings.monitorObjectFlag = module.Unsigned("monitor_object_type", records::kObjectType2, records::kObjectType1,
                                               records::kObjectType2) == records::kObjectType1;
  settings.versionFlag = module.Boolean("version_flag", settings.versionFlag);
  return settings;
}

LiveSettings ReadLiveSettings(const ConfigTable& root) {
  const ConfigTable module = root.Table("module");
  LiveSettings settings;
  if (module.Has("bypass_process_cache")) settings.cacheBypassed = module.Boolean("bypass_process_cache", false);
  settings.identityTextAdded = module.Boolean("identity_text", settings.identityTextAdded);
  settings.measuring = module.Boolean("measure", settings.measuring);
  settings.refreshMilliseconds = module.Unsigned("refresh_interval_ms", settings.refreshMilliseconds);
  ReadConfigBlock(module, settings);

  const ConfigTable spsp = root.Table("spsp");
  constexpr std::array<std::string_view, 4> kFlags{"flag1", "flag2", "flag3", "flag4"};
  for (std::size_t index = 0; index < kFlags.size(); ++index) {
    settings.spspFlags[index] = static_cast<std::uint8_t>(spsp.Unsigned(kFlags[index], 0, 0, 255));
  }

  const ConfigTable policy = root.Table("policy");
  if (policy.Present()) settings.monitoredObjects = policy.Paths("directories");
  return settings;
}

class Configuration::Spsp final : public CSpspSettings {
 public:
  std::uint8_t GetSpspFlag1() override { return flags[0].load(); }
  std::uint8_t GetReservedFlag() override { return 0; }
  std::uint8_t GetSpspFlag2() override { return flags[1].load(); }
  std::uint8_t GetSpspFlag3() override { return flags[2].load(); }
  std::uint8_t GetSpspFlag4() override { return flags[3].load(); }

  void Replace(const std::array<std::uint8_t, 4>& values) {
    for (std::size_t index = 0; index < flags.size(); ++index) flags[index].store(values[index]);
  }

 private:
  std::array<std::atomic<std::uint8_t>, 4> flags{};
};

Configuration::Configuration(const FixedSettings& fixedSettings, LiveSettings live,
                             std::shared_ptr<CRecordFactory> factory)
    : fixed(fixedSettings), recordFactory(std::move(factory)), spspFlags(std::make_shared<Spsp>()), spsp(spspFlags) {
  Replace(std::move(live));
}

void Configuration::Replace(LiveSettings live) {
  std::shared_ptr<MonitorPolicy> newPolicy = MakePolicy(live);
  std::unique_ptr<Block> newBlock = std::make_unique<Block>();
  if (!live.configBlock.empty()) newBlock->handle = std::make_shared<HeapBuffer>(live.configBlock);
  newBlock->bytes = std::move(live.configBlock);

  spspFlags->Replace(live.spspFlags);
  cacheBypassed.store(live.cacheBypassed.value_or(false));
  identityTextAdded.store(live.identityTextAdded);
  measuring.store(live.measuring);
  refreshMilliseconds.store(live.refreshMilliseconds);
  const MutexLock lock(mutex);
  policy.swap(newPolicy);
  lastReplaced.store(Clock::now().time_since_epoch().count());
  if (block == nullptr || block->bytes != newBlock->bytes) {
    newBlock->older = std::move(block);
    block = std::move(newBlock);
  }
}

DriverVersionReport Configuration::LastDriverVersion() const {
  const MutexLock lock(mutex);
  return driverVersion;
}

std::optional<std::vector<boost::filesystem::path>> Configuration::MonitoredDirectories() const {
  std::shared_ptr<MonitorPolicy> current;
  {
    const MutexLock lock(mutex);
    current = policy;
  }
  if (current == nullptr) return std::nullopt;
  std::vector<boost::filesystem::path> directories;
  for (const auto& object : *current) directories.push_back(object->GetMonitorPath());
  return directories;
}

void Configuration::ReportDriverVersion(std::uint32_t /*kind*/, bool /*current*/, std::uint32_t version) {
  const MutexLock lock(mutex);
  ++driverVersion.reports;
  driverVersion.version = version;
}

bool Configuration::IsMeasuringEnabled(std::uint32_t /*first*/, std::uint32_t /*second*/) {
  return measuring.load(std::memory_order_relaxed);
}

std::shared_ptr<MonitorPolicy>& Configuration::GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) {
  lastPolicyRead.store(Clock::now().time_since_epoch().count());
  policyReads.fetch_add(1);
  const MutexLock lock(mutex);
  return out = policy;
}

const std::shared_ptr<CBuf>& Configuration::GetDriverConfigBlock() {
  const MutexLock lock(mutex);
  return block->handle;
}

}  // namespace fenlux::refhost
