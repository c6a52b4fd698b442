// `fenlux-host report` on the command line.
#include <CLI/CLI.hpp>
#include <memory>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {

void AddReport(CLI::App& app, int& code) {
  struct Values {
    std::string file, html, title;
  };
  auto values = std::make_shared<Values>();
  CLI::App* const report = app.add_subcommand("report", "Show a capture as an HTML page");
  report->add_option("file", values->file, "Capture (pcapng)")->required()->type_name("FILE");
  report->add_option("--html", values->html, "The page to write")->required()->type_name("FILE");
  report->add_option("--title", values->title, "The page's title; default: the capture's name")->type_name("TEXT");
  report->footer(
      "The page is one file that needs neither the network nor scripts.\n"
      "Exit codes: 0 the page was written; 2 bad usage, no capture, or a damaged one, whose page was still written.");
  report->callback(
      [values, &code] { code = ReportCapture({.file = values->file, .html = values->html, .title = values->title}); });
}

}  // namespace fenlux::refhost
