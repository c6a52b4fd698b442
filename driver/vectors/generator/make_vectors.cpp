// Writes the test vectors into a folder, or checks that a folder contains exactly them.
//   make_vectors FOLDER            writes every vector and the index
//   make_vectors --check FOLDER    exits with 1 and names the files that differ, are missing, or belong to no vector
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "driver/vectors/generator/vector_file.h"

namespace fenlux::vectors {
namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::string>;  // contents by path relative to the folder

void Add(Files& files, std::string path, std::string content) {
  if (!files.emplace(path, std::move(content)).second) throw std::logic_error("two vectors named " + path);
}

Files AllFiles() {
  Files files;
  std::string index;
  for (const auto& vectors : {ConnectVectors(), RequestVectors(), VersionReplyVectors(), NotificationVectors(),
                              ReplyVectors(), MalformedVectors()}) {
    for (const VectorFile& vector : vectors) {
      Add(files, vector.Path() + ".bin", std::string(vector.Binary().begin(), vector.Binary().end()));
      Add(files, vector.Path() + ".hex", vector.HexDump());
      Add(files, vector.Path() + ".json", vector.Json());
      index += vector.Record() + " " + vector.Path() + "\n";
    }
  }
  Add(files, "index.txt", index);
  return files;
}

std::string Read(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Write(const fs::path& folder, const Files& files) {
  for (const auto& [name, content] : files) {
    const fs::path path = folder / name;
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path.string());
  }
  std::printf("%zu files written\n", files.size());
}

// Whether the folder may contain the file in addition to the vectors.
bool IsOther(const std::string& name) { return name.starts_with("generator/") || name == ".gitattributes"; }

int Check(const fs::path& folder, const Files& files) {
  int findings = 0;
  const auto report = [&findings](const std::string& name, const char* what) {
    std::printf("%s %s\n", name.c_str(), what);
    ++findings;
  };
  for (const auto& [name, content] : files) {
    if (!fs::exists(folder / name)) {
      report(name, "is missing");
    } else if (Read(folder / name) != content) {
      report(name, "differs from what the generator writes");
    }
  }
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = fs::relative(entry.path(), folder).generic_string();
    if (entry.is_regular_file() && !IsOther(name) && files.count(name) == 0) report(name, "belongs to no vector");
  }
  std::printf("%zu files checked, %d findings\n", files.size(), findings);
  return findings == 0 ? 0 : 1;
}

int Run(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--check") return Check(argv[2], AllFiles());
  if (argc != 2 || argv[1][0] == '-') {
    std::fprintf(stderr, "usage: make_vectors [--check] FOLDER\n");
    return 2;
  }
  Write(argv[1], AllFiles());
  return 0;
}

}  // namespace
}  // namespace fenlux::vectors

int main(int argc, char** argv) {
  try {
    return fenlux::vectors::Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_vectors: %s\n", error.what());
    return 2;
  }
}
