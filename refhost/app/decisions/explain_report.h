// The answer to "what would happen to this file?", for the command `explain` and the operation of that name.
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>
#include <stdexcept>
#include <string>

#include "refhost/base/report.h"
#include "refhost/services/events/judge.h"

namespace fenlux::refhost {

// The question, as on the command line. The program is given by its path, by a process that runs it, or not at all.
struct ExplainQuestion {
  std::string path;
  std::optional<std::string> process;
  std::optional<std::string> processId;
  std::optional<std::string> code;
  std::optional<std::string> event;  // a name that rules use
};

// The question makes no sense; the text says why.
class ExplainError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// `refusing` are the decisions that refuse an operation. Throws ExplainError.
Report ExplainReport(const Rules& rules, const DecisionFlags& refusing, const ExplainQuestion& question);
// The report as text for people.
std::string ExplainText(const Report& report);

}  // namespace fenlux::refhost
