// Writes the manual pages and the completion into a directory. Part of the build; not installed.
#include <cstdio>
#include <fstream>
#include <string>

#include "refhost/app/command_line/command_line.h"
#include "refhost/app/command_line/command_tree.h"
#include "refhost/app/pages/bash_completion.h"
#include "refhost/app/pages/manual_page.h"

namespace {

bool Write(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text << std::flush;
  if (!stream) std::fprintf(stderr, "fenlux_host_pages: cannot write %s\n", file.c_str());
  return static_cast<bool>(stream);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace fenlux::refhost;
  if (argc != 2) {
    std::fputs("usage: fenlux_host_pages DIRECTORY\n", stderr);
    return 2;
  }
  const std::string folder = std::string(argv[1]) + "/";
  int code = 0;
  const auto program = MakeCommandLine(code);
  bool written = Write(folder + "fenlux-host.bash", BashCompletion(*program));
  written = Write(folder + PageName(*program) + ".1", ManualPage(*program)) && written;
  for (const CLI::App* command : Subcommands(*program)) {
    written = Write(folder + PageName(*command) + ".1", ManualPage(*command)) && written;
  }
  return written ? 0 : 1;
}
