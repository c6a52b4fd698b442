// Windows keeps its texts in UTF-16 and would give a program narrow ones in the system's code page, which loses what it
// has no characters for.
#include "refhost/app/platform/program_text.h"

#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <boost/filesystem/detail/utf8_codecvt_facet.hpp>
#include <boost/filesystem/path.hpp>
#include <locale>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {

void PrepareProgramText() {
  boost::filesystem::path::imbue(
      std::locale(std::locale::classic(), new boost::filesystem::detail::utf8_codecvt_facet));
  ::SetConsoleOutputCP(CP_UTF8);
}

std::vector<std::string> ProgramArguments(int /*argc*/, char** /*argv*/) {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** const words = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (words == nullptr) return arguments;
  for (int index = 1; index < count; ++index) arguments.push_back(NarrowFromWide(words[index]));
  ::LocalFree(words);
  return arguments;
}

}  // namespace fenlux::refhost
