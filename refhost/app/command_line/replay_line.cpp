// `fenlux-host replay` on the command line.
#include <CLI/CLI.hpp>
#include <memory>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/command_line/value_checks.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {
namespace {

constexpr char kSpeeds[] = "1|max";

}  // namespace

void AddReplay(CLI::App& app, int& code) {
  struct Values {
    ReplayOptions options;
    std::string file, module, speed;
  };
  auto values = std::make_shared<Values>();
  ReplayOptions& options = values->options;
  CLI::App* const replay = app.add_subcommand("replay", "Play a capture to a module and compare what it does");
  replay->add_option("file", values->file, "Capture (pcapng)")->required()->type_name("FILE");
  replay->add_option("--module", values->module, "The module's library")->type_name("FILE");
  replay->add_option("--speed", values->speed, "1: as recorded; max: as fast as the module answers, the default")
      ->type_name(kSpeeds)
      ->check(OneOf(kSpeeds));
  replay->add_flag("--json", options.json, "Write differences and totals as JSON, one object per line");
  replay->add_flag("--insecure-permissions", options.insecurePermissions,
                   "As root, use a module that other users may change");
  replay->footer(
      "The module's own pauses remain: it reconnects five seconds after a connection ends.\n"
      "Exit codes: 0 identical; 1 the result could not be written; 2 bad usage, or not a complete capture; 3 "
      "the module could not be loaded, or its init failed; 4 different.");
  replay->callback([values, &code] {
    ReplayOptions& chosen = values->options;
    chosen.file = values->file;
    chosen.module = values->module;
    chosen.recordedPace = values->speed == "1";
    code = ReplayCapture(chosen);
  });
}

}  // namespace fenlux::refhost
