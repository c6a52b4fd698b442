// The program fenlux-host. The command line is in command_line/, the commands are in commands/.
#include <new>

#include "refhost/app/command_line/command_line.h"
#include "refhost/app/platform/out_of_memory.h"
#include "refhost/app/platform/program_text.h"

// The commands handle their errors. Any other exception is a bug and ends the program.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  using namespace fenlux::refhost;
  HandleOutOfMemory();
  try {
    PrepareProgramText();
    return RunCommandLine(ProgramArguments(argc, argv));
  } catch (const std::bad_alloc&) {
    return ReportOutOfMemory();
  }
}
