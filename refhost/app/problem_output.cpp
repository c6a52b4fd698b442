// The two forms of a problem.
#include "refhost/app/problem_output.h"

#include <nlohmann/json.hpp>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/report.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {
namespace {

Report Problem(Severity severity, const std::string& text) {
  Report object = Report::object();
  object["severity"] = SeverityName(severity);
  object["text"] = text;
  return object;
}

}  // namespace

std::string ProblemLines(const std::string& text, bool json) {
  return json ? JsonText(Problem(Severity::kProblem, text)) + "\n" : PrintableLines(text) + "\n";
}

std::string ProblemLines(const ConfigErrors& errors, bool json) {
  if (!json) return PrintableLines(errors.Text());
  std::string lines;
  for (const ConfigError& error : errors.Sorted()) {
    Report object = Problem(error.isWarning ? Severity::kWarning : Severity::kProblem, error.Text());
    object["file"] = error.file;
    object["line"] = error.line;
    object["column"] = error.column;
    object["key"] = error.key;
    object["reason"] = error.reason;
    lines += JsonText(object) + "\n";
  }
  return lines;
}

std::string OutputFailure() { return "standard output cannot be written: " + LastErrorText(); }

}  // namespace fenlux::refhost
