// Reads any text as a configuration and as a scenario. Every reader must return, report every problem with its place,
// and accept only values in the ranges that the rest of the host relies on.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/support/fuzzing.h"
#include "kdi/driver_records.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/emulator/emulator_settings.h"
#include "refhost/emulator/sources/scenario.h"
#include "refhost/port/driver_settings.h"
#include "refhost/services/configuration.h"
#include "refhost/services/events/judge.h"
#include "refhost/services/locale_service.h"
#include "refhost/services/log/log_service.h"
#include "refhost/services/processes/work_service.h"

namespace fenlux::refhost {
namespace {

using testing::Require;

constexpr char kFile[] = "/nowhere/fuzzed.toml";
constexpr std::uint32_t kMaxThreads = 64;

bool IsDecision(Decision decision) { return decision >= Decision::kVerdict2 && decision <= Decision::kUndecided; }

bool IsVerdict(std::uint32_t verdict) { return verdict >= records::kMinVerdict && verdict <= records::kMaxVerdict; }

void CheckErrors(const ConfigErrors& errors, std::string_view text, bool parsed) {
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  const auto sorted = errors.Sorted();
  Require(parsed || sorted.size() == 1, "a file that is not TOML gives one error");
  Require(sorted.empty() == errors.Empty(), "no error is lost");
  for (const ConfigError& error : sorted) {
    Require(error.file == kFile, "an error names its file");
    Require(error.line >= 1 && error.line <= lines, "an error's line is in the file");
    Require(error.column >= 1, "an error's column counts from 1");
    Require(!error.key.empty() && !error.reason.empty(), "an error names its key and its reason");
  }
}

// Must hold for any file: a refused value is replaced by a usable one.
void CheckEmulator(const EmulatorSettings& settings) {
  Require(settings.kernel.threads >= 1 && settings.kernel.threads <= kMaxThreads, "1 to 64 threads read events");
  Require(settings.deadline.count() >= 1, "the deadline is at least a millisecond");
  Require(std::all_of(settings.kernel.refusingVerdicts.begin(), settings.kernel.refusingVerdicts.end(), IsVerdict),
          "refusing verdicts are verdicts");
}

void CheckRules(const Rules& rules, bool accepted) {
  Require(IsDecision(rules.defaultDecision), "decisions are 1 to 7");
  for (const Rule& rule : rules.ordered) {
    Require(IsDecision(rule.decision), "decisions are 1 to 7");
    if (accepted)
      Require((rule.context != nullptr) == (rule.decision == Decision::kContext),
              "decision 5, and no other, has a context");
  }
}

void ReadAsConfiguration(std::string_view text) {
  ConfigErrors errors;
  const ConfigDocument document(text, kFile, errors);
  const ConfigTable root = document.Root();
  root.Boolean("stop_at_end", false);
  root.Unsigned("stop_timeout_ms", 3000, 1000, 600'000);
  const FixedSettings fixed = ReadFixedSettings(root);
  const LiveSettings live = ReadLiveSettings(root);
  const Rules rules = ReadRules(root.Table("judging"));
  const LogSettings log = ReadLogSettings(root.Table("log"));
  const SystemImages images = ReadSystemImages(root.Table("system_images"));
  const Translations translations = ReadTranslations(root.Table("translations"));
  const EmulatorSettings emulator = ReadEmulatorSettings(root.Table("emulator"));
  const DriverSettings driver = ReadDriverSettings(root.Table("driver"));
  root.Finish();
  CheckErrors(errors, text, document.Parsed());

  Require(ReadFixedSettings(root) == fixed, "reading twice gives the same result");
  Require(live.configBlock.size() <= records::kMaxPayloadSize, "the configuration block fits in its request");
  Require(log.queueLines >= 1, "the log's queue has room for a line");
  CheckRules(rules, errors.Empty());
  CheckEmulator(emulator);
  Require(driver.filter.threads >= 1 && driver.filter.threads <= kMaxThreads, "1 to 64 threads deliver");
  if (!errors.Empty()) return;
  Require(driver.filter.buffers >= driver.filter.threads, "every thread has a buffer");
  for (const auto& [name, path] : images) Require(path.is_absolute(), "accepted paths are absolute");
  for (const auto& [source, target] : translations) Require(!target.empty(), "accepted translations are not empty");
  if (!live.monitoredObjects) return;
  for (const auto& path : *live.monitoredObjects) Require(path.is_absolute(), "accepted paths are absolute");
}

void CheckNotify(const NotifyStep& step, const Scenario& scenario) {
  Require(step.message.size() <= records::kMaxMessageSize, "a notification fits in the port client's buffer");
  Require(step.count >= 1, "a step delivers something");
  Require(step.threads >= 1 && step.threads <= scenario.threads, "a step uses at most the threads of its scenario");
  Require(step.ratePerSecond >= 0, "a rate is not negative");
}

void ReadAsScenario(std::string_view text) {
  ConfigErrors errors;
  const ConfigDocument document(text, kFile, errors);
  const Scenario scenario = ReadScenario(document.Root());
  CheckErrors(errors, text, document.Parsed());
  Require(scenario.threads >= 1 && scenario.threads <= kMaxThreads, "1 to 64 threads deliver");
  if (!errors.Empty()) return;
  std::uint32_t number = 0;
  for (const ScenarioStep& step : scenario.steps) {
    Require(step.number == number || step.number == number + 1, "steps keep their order");
    number = step.number;
    if (const auto* notify = std::get_if<NotifyStep>(&step.action)) CheckNotify(*notify, scenario);
  }
}

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::refhost;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  // This key opens the file that it names, and a fuzzed name could be any file.
  if (text.find("config_block_file") != std::string_view::npos) return 0;
  ReadAsConfiguration(text);
  ReadAsScenario(text);
  return 0;
}
