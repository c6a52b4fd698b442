// A directory of a test's own, removed with everything in it.
#pragma once

#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace fenlux::testing {

class TemporaryDirectory {
 public:
  TemporaryDirectory()
      : path(boost::filesystem::canonical(boost::filesystem::temp_directory_path()) /
             boost::filesystem::unique_path("fenlux-test-%%%%%%%%")) {
    boost::filesystem::create_directory(path);
    boost::filesystem::permissions(path, boost::filesystem::owner_all);
  }
  ~TemporaryDirectory() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const boost::filesystem::path& Path() const { return path; }

  // Writes a file and gives its path.
  boost::filesystem::path Write(const std::string& name, std::string_view text) const {
    const boost::filesystem::path file = path / name;
    std::ofstream(file.string(), std::ios::binary) << text;
    return file;
  }

 private:
  boost::filesystem::path path;
};

// A path that begins at the root, as it reads where paths name the drive too: the current one.
inline boost::filesystem::path Rooted(const std::string& path) {
  return boost::filesystem::current_path().root_name() / path;
}

// The whole of a file; empty where it cannot be read.
inline std::string FileText(const boost::filesystem::path& file) {
  std::ifstream stream(file.string());  // as text: with the line ends of the language, not of the system
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace fenlux::testing
