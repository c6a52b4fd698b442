// The rules of the source tree: which folder may include which, and how large folders and files may grow.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace fenlux::testing {
namespace {

namespace fs = boost::filesystem;

const fs::path kRoot = FENLUX_SOURCE_DIR;

struct SourceFile {
  std::string name;  // relative to the tree it was read from, with '/'
  std::vector<std::string> includes;
};

std::vector<SourceFile> Read(const std::string& tree) {
  static const std::regex kInclude("^\\s*#\\s*include\\s*[\"<]([^\">]+)[\">]");
  std::vector<SourceFile> files;
  const fs::path root = kRoot / tree;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".h" && extension != ".cpp") continue;
    SourceFile file{fs::relative(entry.path(), root).generic_string(), {}};
    std::ifstream in(entry.path().string());
    std::smatch match;
    for (std::string line; std::getline(in, line);) {
      if (std::regex_search(line, match, kInclude)) file.includes.push_back(match[1]);
    }
    files.push_back(std::move(file));
  }
  return files;
}

std::string TopFolderOf(const std::string& name) { return name.substr(0, name.find('/')); }

bool BeginsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// What each folder may include besides itself. A rule that no file needs is an error too.
using Rules = std::map<std::string, std::set<std::string>>;

const Rules kModule{
    {"common", {}},
    {"host", {}},
    {"procinfo", {"common", "host"}},
    {"kdi", {"common", "host", "procinfo"}},
    {"connection", {"common", "host", "kdi"}},
    {"core", {"common", "host", "kdi"}},
    {"shell", {}},
};

const Rules kReferenceHost{
    {"base", {}},
    {"services", {"base"}},
    {"port", {"base"}},
    {"capture", {"base"}},
    {"emulator", {"base", "emulator/driver", "emulator/sources"}},
    {"emulator/driver", {"base", "services", "port", "emulator"}},
    {"emulator/sources", {"base", "capture", "emulator", "emulator/driver"}},
    {"app", {"base", "services", "port", "capture", "emulator", "emulator/sources"}},
};

// The longest of the rules' folders that holds the file; empty if there is none.
std::string FolderOf(const Rules& rules, const std::string& name) {
  std::string folder;
  for (const auto& [candidate, allowed] : rules) {
    if (BeginsWith(name, candidate + "/") && candidate.size() > folder.size()) folder = candidate;
  }
  return folder;
}

// Checks the includes that begin with `prefix` and name a folder of the rules.
void CheckRules(const std::string& tree, const std::string& prefix, const Rules& rules) {
  Rules unneeded = rules;
  for (const SourceFile& file : Read(tree)) {
    const std::string folder = FolderOf(rules, file.name);
    ASSERT_FALSE(folder.empty()) << tree << '/' << file.name << " is in no folder of the rules";
    for (const std::string& include : file.includes) {
      if (!BeginsWith(include, prefix)) continue;
      const std::string used = FolderOf(rules, include.substr(prefix.size()));
      if (used.empty() || used == folder) continue;
      EXPECT_TRUE(rules.at(folder).count(used)) << tree << '/' << file.name << " includes " << include;
      unneeded[folder].erase(used);
    }
  }
  for (const auto& [folder, allowed] : unneeded) {
    for (const std::string& used : allowed) ADD_FAILURE() << "no file of " << folder << " includes " << used;
  }
}

std::size_t LineCount(const fs::path& path) {
  std::ifstream in(path.string());
  return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(in), {}, '\n'));
}

}  // namespace

TEST(Layout, DependenciesOfTheModuleRunOneWay) { CheckRules("src", "", kModule); }

TEST(Layout, DependenciesOfTheReferenceHostRunOneWay) { CheckRules("refhost", "refhost/", kReferenceHost); }

TEST(Layout, NoFolderOfTheReferenceHostIsCrowded) {
  std::map<std::string, std::size_t> files;
  for (const auto& entry : fs::recursive_directory_iterator(kRoot / "refhost")) {
    if (fs::is_regular_file(entry.path())) ++files[entry.path().parent_path().string()];
  }
  for (const auto& [folder, count] : files) EXPECT_LE(count, 20u) << folder;
}

TEST(Layout, NoFileIsLong) {
  const std::map<std::string, std::size_t> limits{{"src", 300}, {"refhost", 300}, {"tests", 500}};
  for (const auto& [tree, limit] : limits) {
    for (const SourceFile& file : Read(tree)) {
      EXPECT_LE(LineCount(kRoot / tree / file.name), limit) << tree << '/' << file.name;
    }
  }
}

// The facade includes the parts, never the other way round.
TEST(Layout, ThePartsOfTheEmulatorDoNotIncludeTheirFacade) {
  for (const std::string part : {"refhost/emulator/driver", "refhost/emulator/sources"}) {
    for (const SourceFile& file : Read(part)) {
      for (const std::string& include : file.includes) {
        EXPECT_NE(include, "refhost/emulator/driver_emulator.h") << part << '/' << file.name;
      }
    }
  }
}

TEST(Layout, TheModuleIncludesNothingOfTheReferenceHostOrTheTests) {
  for (const SourceFile& file : Read("src")) {
    for (const std::string& include : file.includes) {
      for (const char* foreign : {"refhost/", "tests/", "bench/", "fuzz/", "../", "gtest/"}) {
        EXPECT_FALSE(BeginsWith(include, foreign)) << file.name << " includes " << include;
      }
    }
  }
}

TEST(Layout, EveryIncludeOfTheModuleExists) {
  for (const SourceFile& file : Read("src")) {
    for (const std::string& include : file.includes) {
      if (kModule.count(TopFolderOf(include)) == 0) continue;
      EXPECT_TRUE(fs::exists(kRoot / "src" / include)) << file.name << " includes " << include;
    }
  }
}

TEST(Layout, TheReferenceHostIncludesOnlyTheContract) {
  std::set<std::string> contract{"core/fenlux.h",
                                 "kdi/drvx_control.h",
                                 "kdi/kdi_base.h",
                                 "kdi/driver_records.h",
                                 "common/detached_thread.h",
                                 "common/mutex.h",
                                 "common/thread_annotations.h"};
  const std::set<std::string> permitted = contract;
  for (const SourceFile& file : Read("refhost")) {
    for (const std::string& include : file.includes) {
      EXPECT_FALSE(BeginsWith(include, "tests/") || BeginsWith(include, "src/") || BeginsWith(include, "../"))
          << file.name << " includes " << include;
      if (kModule.count(TopFolderOf(include)) == 0 || !fs::exists(kRoot / "src" / include)) continue;
      EXPECT_TRUE(TopFolderOf(include) == "host" || permitted.count(include)) << file.name << " includes " << include;
      contract.erase(include);
    }
  }
  for (const std::string& header : contract) ADD_FAILURE() << "no file of the reference host includes " << header;
}

// common/detached_thread.h says why.
TEST(Layout, ThreadsAreDetachedOnlyWhereAllowed) {
  // The second file detaches only threads that do not end in time when the host stops.
  std::set<std::string> expected{"src/common/detached_thread.h", "refhost/emulator/sources/thread_crew.cpp"};
  for (const char* const tree : {"src", "refhost"}) {
    for (const SourceFile& file : Read(tree)) {
      const std::string name = std::string(tree) + "/" + file.name;
      std::ifstream in((kRoot / name).string());
      const std::string text{std::istreambuf_iterator<char>(in), {}};
      EXPECT_EQ(text.find("detach()") != std::string::npos, expected.erase(name) == 1) << name;
    }
  }
  EXPECT_TRUE(expected.empty()) << *expected.begin();
}

TEST(Layout, TheBaseOfTheReferenceHostIncludesNoHostInterface) {
  for (const SourceFile& file : Read("refhost")) {
    if (FolderOf(kReferenceHost, file.name) != "base") continue;
    for (const std::string& include : file.includes) {
      EXPECT_NE(TopFolderOf(include), "host") << file.name << " includes " << include;
    }
  }
}

// Hosts link the recording library without the reference host's other libraries.
TEST(Layout, TheRecordingLibraryIncludesOnlyItself) {
  const std::set<std::string> readingFolders{"decode", "replay", "report"};
  for (const SourceFile& file : Read("refhost/capture")) {
    if (readingFolders.contains(TopFolderOf(file.name))) continue;
    for (const std::string& include : file.includes) {
      if (!BeginsWith(include, "refhost/")) continue;
      EXPECT_TRUE(BeginsWith(include, "refhost/capture/")) << file.name << " includes " << include;
      EXPECT_FALSE(BeginsWith(include, "refhost/capture/decode/")) << file.name << " includes " << include;
    }
  }
}

TEST(Layout, TheDriverRecordsIncludeNothingOfTheHost) {
  bool found = false;
  for (const SourceFile& file : Read("src")) {
    if (file.name != "kdi/driver_records.h") continue;
    found = true;
    for (const std::string& include : file.includes) {
      EXPECT_EQ(kModule.count(TopFolderOf(include)), 0u) << include;
    }
  }
  EXPECT_TRUE(found);
}

TEST(Layout, TheHostContractIsHeadersOnly) {
  for (const SourceFile& file : Read("src")) {
    if (TopFolderOf(file.name) != "host") continue;
    EXPECT_EQ(fs::path(file.name).extension().string(), ".h") << file.name;
    EXPECT_TRUE(BeginsWith(file.name, "host/"));
    for (const std::string& include : file.includes) {
      EXPECT_NE(TopFolderOf(include), "common") << file.name << " includes " << include;
    }
  }
}

TEST(Layout, HostHIncludesTheWholeContract) {
  std::set<std::string> headers, included;
  for (const SourceFile& file : Read("src")) {
    if (TopFolderOf(file.name) != "host") continue;
    if (file.name == "host/host.h") {
      included.insert(file.includes.begin(), file.includes.end());
    } else {
      headers.insert(file.name);
    }
  }
  EXPECT_EQ(included, headers);
}

TEST(Layout, EveryFileBeginsWithItsPurposeAndHeadersHaveAGuard) {
  for (const std::string tree : {"src", "refhost", "tests", "bench", "fuzz", "examples"}) {
    for (const SourceFile& file : Read(tree)) {
      std::ifstream in((kRoot / tree / file.name).string());
      std::string line;
      std::getline(in, line);
      EXPECT_TRUE(std::regex_search(line, std::regex("^// [^ ]"))) << tree << '/' << file.name << " begins: " << line;
      std::size_t guards = 0;
      while (std::getline(in, line)) guards += line == "#pragma once" ? 1 : 0;
      EXPECT_EQ(guards, fs::path(file.name).extension() == ".h" ? 1u : 0u) << tree << '/' << file.name;
    }
  }
}

}  // namespace fenlux::testing
