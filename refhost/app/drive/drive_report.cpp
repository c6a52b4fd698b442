// Formats the same checks and findings as text and as JSON.
#include "refhost/app/drive/drive_report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <iterator>
#include <nlohmann/json.hpp>

#include "fenlux/driver_protocol.h"
#include "refhost/base/report.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

constexpr FenluxCommand kCommands[] = {
    FENLUX_COMMAND_ADD_MONITOR_OBJECT, FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS,
    FENLUX_COMMAND_GRPM_SWITCH,        FENLUX_COMMAND_GRSP_SWITCH,
    FENLUX_COMMAND_GRDTO_VALUE,        FENLUX_COMMAND_GRHARA_SWITCH,
    FENLUX_COMMAND_DUMP_DEBUG_INFO,    FENLUX_COMMAND_SPSP_STATE,
    FENLUX_COMMAND_DRIVER_VERSION,     FENLUX_COMMAND_NET_CONTROL_MODE,
    FENLUX_COMMAND_SYSTEM_PROCESS,     FENLUX_COMMAND_NET_ITEM_LIST_BEGIN,
    FENLUX_COMMAND_NET_ITEM,           FENLUX_COMMAND_NET_ITEM_LIST_END,
    FENLUX_COMMAND_DRIVER_CONFIG,
};

const char* ResultOf(const DriveFindings& findings, DriveCheck check) {
  if (findings.Wrong(check) != 0) return "wrong";
  return findings.Seen(check) == 0 ? "not seen" : "ok";
}

std::vector<std::uint32_t> MissingCommands(const DriverExamination& examination) {
  std::vector<std::uint32_t> missing;
  for (const FenluxCommand command : kCommands) {
    if (!examination.Commands().contains(command)) missing.push_back(command);
  }
  return missing;
}

// "41 requests, all 15 commands"
std::string SeenText(const DriverExamination& examination, DriveCheck check) {
  const DriveCheckText& text = TextOf(check);
  const std::uint64_t seen = examination.Findings().Seen(check);
  if (seen == 0) return std::string(text.notSeen);
  std::string shown = fmt::format("{} {}", seen, seen == 1 ? text.unitOfOne : text.unit);
  if (check != DriveCheck::kRequests) return shown;
  const std::vector<std::uint32_t> missing = MissingCommands(examination);
  if (missing.empty()) return fmt::format("{}, all {} commands", shown, std::size(kCommands));
  return fmt::format("{}; not sent: {}", shown, fmt::join(missing, ", "));
}

std::string PlaceText(const DriveFinding& finding, bool recorded) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (finding.first.connection != 0) add(fmt::format("connection {}", finding.first.connection));
  if (finding.first.exchange != 0) add(fmt::format("exchange {}", finding.first.exchange));
  if (recorded && finding.first.connection != 0) add(fmt::format("offset {} of the capture", finding.first.offset));
  if (!finding.circumstance.empty()) add(Printable(finding.circumstance));
  if (finding.count > 1) add(fmt::format("{} times", finding.count));
  return text;
}

// "WRONG version-reply: version reply, size: 65560 bytes"
std::string FindingText(const DriveFinding& finding, bool recorded) {
  const DriveRuleText& rule = TextOf(finding.rule);
  std::string text = fmt::format("\nWRONG {}: {}{}{}: {}\n", TextOf(rule.check).name, finding.record,
                                 finding.field.empty() ? "" : ", ", finding.field, Printable(finding.wrong));
  if (const std::string place = PlaceText(finding, recorded); !place.empty()) text += "  seen      " + place + "\n";
  text += fmt::format("  protocol  {} (docs/protocol.md, \"{}\")\n", rule.protocol, rule.section);
  text += fmt::format("  do        {}\n", rule.advice);
  return text;
}

std::uint64_t FindingCount(const DriveFindings& findings) { return findings.All().size() + findings.NotKept(); }

// What was not tried or not seen.
std::vector<std::string> Gaps(const DriverExamination& examination, const DriveOutcome& outcome) {
  std::vector<std::string> gaps;
  if (!outcome.stopped.empty()) gaps.push_back("not everything was tried: " + outcome.stopped);
  if (examination.Missing() != 0) {
    gaps.push_back(fmt::format("{} messages were not recorded and not checked", examination.Missing()));
  }
  if (const std::uint64_t more = examination.Findings().NotKept(); more != 0) {
    gaps.push_back(fmt::format("{} further findings are only counted", more));
  }
  return gaps;
}

Report FindingReport(const DriveFinding& finding) {
  const DriveRuleText& rule = TextOf(finding.rule);
  Report report = Report::object();
  report["check"] = TextOf(rule.check).name;
  report["record"] = finding.record;
  if (!finding.field.empty()) report["field"] = finding.field;
  report["wrong"] = finding.wrong;
  if (!finding.circumstance.empty()) report["circumstance"] = finding.circumstance;
  if (finding.first.connection != 0) {
    report["connection"] = finding.first.connection;
    if (finding.first.exchange != 0) report["exchange"] = finding.first.exchange;
    report["offset"] = finding.first.offset;
  }
  report["count"] = finding.count;
  report["protocol"] = rule.protocol;
  report["section"] = rule.section;
  report["do"] = rule.advice;
  return report;
}

}  // namespace

std::string DriveText(const DriverExamination& examination, const DriveOutcome& outcome, bool recorded) {
  const DriveFindings& findings = examination.Findings();
  std::string text = "The driver\n";
  for (std::size_t i = 0; i < kDriveChecks; ++i) {
    const auto check = static_cast<DriveCheck>(i);
    fmt::format_to(std::back_inserter(text), "  {:<8}  {:<18}  {} ({})\n", ResultOf(findings, check),
                   TextOf(check).name, TextOf(check).duty, SeenText(examination, check));
  }
  for (const DriveFinding& finding : findings.All()) text += FindingText(finding, recorded);
  text += '\n';
  for (const std::string& gap : Gaps(examination, outcome)) text += gap + "\n";
  const std::uint64_t count = FindingCount(findings);
  text += count == 0 ? "clean\n" : fmt::format("{} finding{}\n", count, count == 1 ? "" : "s");
  return text;
}

std::string DriveJson(const DriverExamination& examination, const DriveOutcome& outcome) {
  const DriveFindings& findings = examination.Findings();
  std::string lines;
  const auto add = [&lines](const char* name, Report report) {
    Report object = Report::object();
    object[name] = std::move(report);
    lines += JsonText(object) + "\n";
  };
  for (std::size_t i = 0; i < kDriveChecks; ++i) {
    const auto check = static_cast<DriveCheck>(i);
    Report report = Report::object();
    report["name"] = TextOf(check).name;
    report["result"] = ResultOf(findings, check);
    report["seen"] = findings.Seen(check);
    report["wrong"] = findings.Wrong(check);
    add("check", std::move(report));
  }
  for (const DriveFinding& finding : findings.All()) add("finding", FindingReport(finding));
  Report total = Report::object();
  total["clean"] = findings.Clean();
  total["findings"] = FindingCount(findings);
  total["commands_not_sent"] = MissingCommands(examination);
  total["gaps"] = Gaps(examination, outcome);
  add("drive", std::move(total));
  return lines;
}

}  // namespace fenlux::refhost
