// The `replay` command: plays a capture to a module and shows what the module does differently.
#include <fmt/format.h>

#include <boost/filesystem/path.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/module_loader.h"
#include "refhost/app/platform/process_end.h"
#include "refhost/app/problem_output.h"
#include "refhost/app/replay/replay_player.h"
#include "refhost/app/security/file_trust.h"
#include "refhost/app/security/privileges.h"
#include "refhost/base/exception_text.h"
#include "refhost/base/file_bytes.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/progress_bar.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/capture/replay/capture_outline.h"

namespace fenlux::refhost {
namespace {

constexpr std::uint64_t kMaxShown = 100;

int Fail(int code, const std::string& text) {
  std::cerr << ProblemLines("fenlux-host: " + text, false) << std::flush;
  return code;
}

std::string DifferenceText(const ReplayDifference& difference) {
  std::string text = fmt::format("offset {}, {}:{}: {}\n", difference.offset, difference.connection,
                                 difference.exchange, Printable(difference.what));
  if (!difference.message) return text;
  for (const capture::FieldDifference& field : difference.message->fields) {
    text += fmt::format("  {:<12} recorded {}, replayed {}\n", field.name, field.recorded, field.replayed);
  }
  for (const capture::ByteDifference& bytes : difference.message->bytes) {
    text += fmt::format("  {:06x}  recorded {:<32}  replayed {}\n", bytes.offset, bytes.recorded, bytes.replayed);
  }
  return text;
}

Report DifferenceReport(const ReplayDifference& difference) {
  Report report = Report::object();
  report["offset"] = difference.offset;
  report["connection"] = difference.connection;
  report["exchange"] = difference.exchange;
  report["difference"] = difference.what;
  if (!difference.message) return report;
  Report fields = Report::array();
  for (const capture::FieldDifference& field : difference.message->fields) {
    fields.push_back({{"field", field.name}, {"recorded", field.recorded}, {"replayed", field.replayed}});
  }
  report["fields"] = std::move(fields);
  Report rows = Report::array();
  for (const capture::ByteDifference& bytes : difference.message->bytes) {
    rows.push_back({{"offset", bytes.offset}, {"recorded", bytes.recorded}, {"replayed", bytes.replayed}});
  }
  report["bytes"] = std::move(rows);
  return report;
}

Report TotalsReport(const ReplayTotals& totals, const ReplayFacts& facts) {
  Report report = Report::object();
  report["identical"] = totals.differences == 0;
  report["connections"] = totals.connections;
  report["requests"] = totals.requests;
  report["request_contents_compared"] = facts.complete;
  report["notifications"] = totals.notifications;
  report["calls"] = totals.calls;
  report["differences"] = totals.differences;
  return report;
}

// Shows differences as they are found, and the totals.
class ReplayOutput {
 public:
  explicit ReplayOutput(bool asJson) : json(asJson) {}

  void Show(const ReplayDifference& difference) {
    if (json) {
      std::cout << JsonText(DifferenceReport(difference)) + "\n" << std::flush;
    } else if (++shown <= kMaxShown) {
      std::cout << DifferenceText(difference) << std::flush;
    } else if (shown == kMaxShown + 1) {
      std::cout << "further differences are only counted; --json shows them all\n" << std::flush;
    }
  }
  void ShowTotals(const ReplayTotals& totals, const ReplayFacts& facts) const {
    const Report report = TotalsReport(totals, facts);
    if (json) {
      Report object = Report::object();
      object["replay"] = report;
      std::cout << JsonText(object) + "\n" << std::flush;
      return;
    }
    std::cout << AlignedText(report) << std::flush;
  }

 private:
  const bool json;
  std::uint64_t shown = 0;
};

// Settings that the facts may lack, as the module's first connection shows them.
capture::ObservedSettings ObservedSettingsOf(const capture::CaptureOutline& outline) {
  for (const auto& [number, connection] : outline.connections) {
    if (connection.opening) return connection.settings;
  }
  return {};
}

capture::CaptureOutline OutlineOf(std::ifstream& stream, std::uint64_t size) {
  ProgressBar progress(size);
  return capture::ReadOutline(stream, [&](std::uint64_t offset) { progress.Show(offset); });
}

void LoadModule(const boost::filesystem::path& library, const HostContext& context,
                const std::shared_ptr<CGlobalContext>& handle) {
  ModuleLibrary(library).Init(handle);
  if (context.Module() == nullptr) throw ModuleLoadError("the module's init did not register a module");
}

}  // namespace

int ReplayCapture(const ReplayOptions& options) {
  const std::string name = options.file.string();
  std::ifstream stream(std::filesystem::path(options.file.native()), std::ios::binary);
  if (!stream) return Fail(kExitUsage, fmt::format("{} cannot be opened: {}", name, LastErrorText()));
  const std::uint64_t size = FileSizeOrZero(options.file);
  const capture::CaptureOutline outline = OutlineOf(stream, size);
  if (stream.bad()) return Fail(kExitUsage, fmt::format("{} cannot be read: {}", name, LastErrorText()));
  if (const std::string obstacle = outline.Obstacle(); !obstacle.empty()) {
    return Fail(kExitUsage, fmt::format("{} cannot be replayed: {}", name, obstacle));
  }
  const boost::filesystem::path library = options.module.empty() ? DefaultModuleLibrary() : options.module;
  const std::string untrusted = options.insecurePermissions ? std::string() : WhyUntrusted(library);
  if (!untrusted.empty()) return Fail(kExitUsage, untrusted);

  // From here on the process ends without destructors, because the module's threads are never joined.
  const auto driver = std::make_shared<PlayedDriver>();
  std::optional<ReplayFacts> facts;
  std::optional<ReplayHost> host;
  try {
    LimitPrivileges(false);
    facts = ReadReplayFacts(outline.facts, ObservedSettingsOf(outline));
    host.emplace(*facts, driver);
  } catch (const std::runtime_error& error) {
    return Fail(kExitUsage, fmt::format("{} cannot be replayed: {}", name, error.what()));
  }
  try {
    LoadModule(library, *host->Context(), host->Context());
  } catch (...) {
    EndProcess(Fail(kExitModule, CurrentExceptionText()));
  }
  ReplayOutput output(options.json);
  ReplaySettings settings;
  settings.recordedPace = options.recordedPace;
  settings.difference = [&](const ReplayDifference& difference) { output.Show(difference); };
  int code = kExitSuccess;
  try {
    ProgressBar progress(size);
    settings.progress = [&](std::uint64_t offset) { progress.Show(offset); };
    stream.clear();
    stream.seekg(0);
    capture::CaptureReader reader(stream);
    ReplayPlayer player(outline, *facts, *host, *driver, settings);
    player.Play(reader);
    output.ShowTotals(player.Totals(), *facts);
    if (player.Totals().differences != 0) code = kExitDifferent;
    if (!std::cout) code = Fail(kExitOutput, OutputFailure());
  } catch (const std::runtime_error& error) {
    code = Fail(kExitUsage, fmt::format("{} cannot be replayed: {}", name, error.what()));
  }
  EndProcess(code);
}

}  // namespace fenlux::refhost
