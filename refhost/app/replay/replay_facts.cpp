// Reads the facts. Every key is optional.
#include "refhost/app/replay/replay_facts.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "kdi/driver_records.h"
#include "refhost/app/recording/host_facts.h"
#include "refhost/base/report.h"
#include "refhost/base/text/hex.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/capture/decode/json_text.h"

namespace fenlux::refhost {
namespace {

using Type = StandInPaths::Type;

[[noreturn]] void Malformed(std::string_view key) {
  throw std::runtime_error(fmt::format("the facts are malformed: {}", key));
}

const Report* Find(const Report& facts, const char* key) {
  const auto found = facts.find(key);
  return found == facts.end() ? nullptr : &*found;
}

void Read(const Report& facts, const char* key, bool& value) {
  const Report* const found = Find(facts, key);
  if (found == nullptr) return;
  if (!found->is_boolean()) Malformed(key);
  value = found->get<bool>();
}

void Read(const Report& facts, const char* key, std::uint32_t& value) {
  const Report* const found = Find(facts, key);
  if (found == nullptr) return;
  if (!found->is_number_unsigned() || found->get<std::uint64_t>() > 0xffffffff) Malformed(key);
  value = found->get<std::uint32_t>();
}

std::string TextOf(const Report& object, const char* key) {
  const Report* const found = object.is_object() ? Find(object, key) : nullptr;
  if (found == nullptr || !found->is_string()) Malformed(key);
  return found->get<std::string>();
}

Type TypeOf(const std::string& name) {
  if (name == "directory") return Type::kDirectory;
  if (name == "other") return Type::kOther;
  if (name != "missing") Malformed("policy: type");
  return Type::kMissing;
}

// False if the facts do not state the policy.
bool ReadPolicy(const Report& facts, ReplayFacts& result) {
  const Report* const policy = Find(facts, "policy");
  if (policy == nullptr) return false;
  if (policy->is_null()) return true;
  if (!policy->is_array()) Malformed("policy");
  auto& paths = result.live.monitoredObjects.emplace();
  for (const Report& object : *policy) {
    paths.push_back(result.paths.Add(TextOf(object, "path"), TypeOf(TextOf(object, "type"))));
  }
  return true;
}

bool ReadConfigBlock(const Report& facts, LiveSettings& live) {
  if (Find(facts, "config_block") == nullptr) return false;
  std::optional<std::vector<std::uint8_t>> block = BytesFromHex(TextOf(facts, "config_block"));
  if (!block || block->size() > records::kMaxPayloadSize) Malformed("config_block");
  live.configBlock = std::move(*block);
  return true;
}

bool ReadSpsp(const Report& facts, LiveSettings& live) {
  const Report* const flags = Find(facts, "spsp");
  if (flags == nullptr) return false;
  if (!flags->is_array() || flags->size() != live.spspFlags.size()) Malformed("spsp");
  for (std::size_t i = 0; i < live.spspFlags.size(); ++i) {
    const Report& flag = (*flags)[i];
    if (!flag.is_number_unsigned() || flag.get<std::uint64_t>() > 255) Malformed("spsp");
    live.spspFlags[i] = flag.get<std::uint8_t>();
  }
  return true;
}

void ReadFixed(const Report& facts, FixedSettings& fixed) {
  Read(facts, "enabled", fixed.enabled);
  Read(facts, "port_value", fixed.portValue);
  Read(facts, "record_value1", fixed.recordValue1);
  Read(facts, "record_value2", fixed.recordValue2);
  Read(facts, "driver_interface_flag", fixed.driverInterfaceFlag);
  Read(facts, "version_flag", fixed.versionFlag);
  std::uint32_t clientType = records::ClientType(fixed.clientTypeFlag);
  Read(facts, "client_type", clientType);
  fixed.clientTypeFlag = clientType == records::kClientType2;
  std::uint32_t objectType = fixed.monitorObjectFlag ? records::kObjectType1 : records::kObjectType2;
  Read(facts, "monitor_object_type", objectType);
  fixed.monitorObjectFlag = objectType == records::kObjectType1;
}

void ReadLive(const Report& facts, LiveSettings& live) {
  bool bypassed = live.cacheBypassed.value_or(false);
  Read(facts, "cache_bypassed", bypassed);
  live.cacheBypassed = bypassed;
  Read(facts, "identity_text", live.identityTextAdded);
  Read(facts, "measure", live.measuring);
  Read(facts, "refresh_interval_ms", live.refreshMilliseconds);
}

// Applies everything that the module's opening requests reveal.
void ApplyObserved(const capture::ObservedSettings& observed, ReplayFacts& result) {
  result.fixed.monitorObjectFlag = observed.objectType == static_cast<std::uint32_t>(records::kObjectType1);
  result.live.configBlock = observed.configBlock;
  std::copy_n(observed.spsp.begin(), std::min(observed.spsp.size(), result.live.spspFlags.size()),
              result.live.spspFlags.begin());
}

void ApplyObservedPolicy(const capture::ObservedSettings& observed, ReplayFacts& result) {
  if (observed.objectType == 0) return;
  auto& paths = result.live.monitoredObjects.emplace();
  for (const std::string& path : observed.paths) paths.push_back(result.paths.Add(path, Type::kDirectory));
}

}  // namespace

boost::filesystem::path StandInPaths::Add(const std::string& recorded, Type type) {
  // The current directory, or a missing entry in it, in a unique spelling: "." and repeated separators change only the
  // text, not the path.
  std::string text = type == Type::kMissing ? "./no object of a replay has this name" : ".";
  for (std::size_t number = entries.size() + 1; number != 0; number /= 2) text += number % 2 == 0 ? "/." : "//.";
  boost::filesystem::path path(text);
  entries[path.wstring()] = {recorded, type};
  return path;
}

const std::string* StandInPaths::RecordedOf(const std::wstring& standIn) const {
  const auto found = entries.find(standIn);
  return found == entries.end() ? nullptr : &found->second.recorded;
}

bool StandInPaths::IsDirectory(const boost::filesystem::path& path) const {
  const auto found = entries.find(path.wstring());
  return found == entries.end() || found->second.type == Type::kDirectory;
}

ReplayFacts ReadReplayFacts(const std::string& text, const capture::ObservedSettings& observed) {
  ReplayFacts result;
  ApplyObserved(observed, result);
  Report facts = Report::object();
  if (!text.empty()) {
    std::optional<Report> parsed = capture::ParseJsonObject(text);
    if (!parsed) Malformed("not a JSON object");
    facts = std::move(*parsed);
  }
  ReadFixed(facts, result.fixed);
  ReadLive(facts, result.live);
  const bool policy = ReadPolicy(facts, result);
  if (!policy) ApplyObservedPolicy(observed, result);
  const bool block = ReadConfigBlock(facts, result.live);
  const bool spsp = ReadSpsp(facts, result.live);
  result.complete = policy && block && spsp;
  result.samePlatform = Find(facts, "platform") != nullptr && TextOf(facts, "platform") == PathPlatform();
  return result;
}

}  // namespace fenlux::refhost
