// `fenlux-host decode` on the command line.
#include <CLI/CLI.hpp>
#include <limits>
#include <memory>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/command_line/value_checks.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {

void AddDecode(CLI::App& app, int& code) {
  struct Values {
    DecodeOptions options;
    std::string file;
  };
  const CLI::Validator number = IntegerBetween(0, std::numeric_limits<std::uint32_t>::max());
  auto values = std::make_shared<Values>();
  DecodeOptions& options = values->options;
  CLI::App* const decode = app.add_subcommand("decode", "Show the exchanges of a capture");
  decode->add_option("file", values->file, "Capture (pcapng)")->required()->type_name("FILE");
  decode->add_flag("--json", options.json, "One JSON object per exchange");
  decode->add_flag("--follow", options.follow, "Keep reading as the file grows, until a signal arrives");
  decode->add_flag("--hex", options.hex, "Show the bytes of messages too");
  decode->add_option("--code", options.code, "Only notifications with this code")->type_name("N")->check(number);
  decode->add_option("--verdict", options.verdict, "Only notifications that got this verdict")
      ->type_name("N")
      ->check(number);
  decode->add_option("--path", options.path, "Only exchanges with a path that matches this pattern")->type_name("GLOB");
  decode->add_option("--slow", options.slowMicroseconds, "Only exchanges that took at least this many microseconds")
      ->type_name("MICROSECONDS")
      ->check(NotNegative());
  decode->footer(
      "Damage is reported with its offset, and the rest is read as far as possible.\n"
      "Exit codes: 0 the capture was read; 1 the output could not be written; 2 bad usage, no capture, or a damaged "
      "one.");
  decode->callback([values, &code] {
    values->options.file = values->file;
    code = DecodeCapture(values->options);
  });
}

}  // namespace fenlux::refhost
