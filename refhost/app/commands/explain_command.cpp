// The `explain` command: how the rules of a configuration would judge an event.
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/host_config.h"
#include "refhost/app/problem_output.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {

int ExplainDecision(const ExplainOptions& options) {
  ConfigErrors errors;
  const ConfigDocument document(options.config, errors);
  // The rest of the file may be for another machine, or need variables that are not set here.
  const ConfigTable judging = document.Root().Table("judging");
  const Rules rules = ReadRules(judging);
  judging.Finish();
  if (!errors.Empty()) {
    std::cerr << ProblemLines(errors, options.json);
    return kExitUsage;
  }
  try {
    const Report report = ExplainReport(rules, RefusingDecisions({}), options.question);
    std::cout << (options.json ? JsonText(report) + "\n" : ExplainText(report)) << std::flush;
    if (std::cout) return kExitSuccess;
    std::cerr << ProblemLines("fenlux-host: " + OutputFailure(), options.json);
    return kExitOutput;
  } catch (const ExplainError& error) {
    std::cerr << ProblemLines(std::string("fenlux-host: ") + error.what(), options.json);
    return kExitUsage;
  }
}

}  // namespace fenlux::refhost
