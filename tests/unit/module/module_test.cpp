// Files and directories of a test.
#include "tests/unit/module/module_test.h"

#include <fstream>

namespace fenlux::testing {

boost::filesystem::path TemporaryDirectory::MakeDirectory(const std::string& name) const {
  const auto made = path / name;
  boost::filesystem::create_directories(made);
  return made;
}

boost::filesystem::path TemporaryDirectory::MakeFile(const std::string& name) const {
  const auto made = path / name;
  std::ofstream(made.string()) << "content\n";
  return made;
}

}  // namespace fenlux::testing
