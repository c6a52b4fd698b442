// Passes bytes through unchanged; current systems use UTF-8.
#include "refhost/app/platform/program_text.h"

namespace fenlux::refhost {

void PrepareProgramText() {}

std::vector<std::string> ProgramArguments(int argc, char** argv) {
  if (argc < 1) return {};
  return {argv + 1, argv + argc};
}

}  // namespace fenlux::refhost
