// Windows uses UTF-16. The narrow forms it offers are in the system's code page, which cannot represent every
// character.
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
  wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (wide == nullptr) return arguments;
  for (int index = 1; index < count; ++index) arguments.push_back(NarrowFromWide(wide[index]));
  ::LocalFree(wide);
  return arguments;
}

}  // namespace fenlux::refhost
