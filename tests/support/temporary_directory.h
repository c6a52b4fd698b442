// A temporary directory of one test, removed with everything in it.
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

  // Writes a file and returns its path.
  boost::filesystem::path Write(const std::string& name, std::string_view text) const {
    const boost::filesystem::path file = path / name;
    std::ofstream(file.string(), std::ios::binary) << text;
    return file;
  }
  // Creates a file of a few bytes and returns its path.
  boost::filesystem::path MakeFile(const std::string& name) const { return Write(name, "text\n"); }
  // Creates a directory, with its parent directories, and returns its path.
  boost::filesystem::path MakeDirectory(const std::string& name) const {
    const boost::filesystem::path directory = path / name;
    boost::filesystem::create_directories(directory);
    return directory;
  }

 private:
  boost::filesystem::path path;
};

// A path that starts at the root, with the current drive where paths have drives.
inline boost::filesystem::path Rooted(const std::string& path) {
  return boost::filesystem::current_path().root_name() / path;
}

// The content of a file, read as text; empty if it cannot be read.
inline std::string FileText(const boost::filesystem::path& file) {
  std::ifstream stream(file.string());
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace fenlux::testing
