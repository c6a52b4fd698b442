// The rules of the house, read from the includes: which room may use which.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <fstream>
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
  std::string name;  // from the root of the tree it was read from, with '/'
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

std::string RoomOf(const std::string& name) { return name.substr(0, name.find('/')); }

bool BeginsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// What each room of src may include besides itself.
const std::map<std::string, std::set<std::string>> kRooms{
    {"common", {}},
    {"host", {"common"}},
    {"procinfo", {"common", "host"}},
    {"kdi", {"common", "host", "procinfo", "connection"}},
    {"connection", {"common", "host", "procinfo", "kdi"}},
    {"core", {"common", "host", "procinfo", "kdi", "connection"}},
    {"shell", {"common", "host", "procinfo", "kdi", "connection", "core"}},
};

}  // namespace

TEST(Layout, EveryRoomOfTheModuleIsKnown) {
  for (const SourceFile& file : Read("src")) EXPECT_TRUE(kRooms.count(RoomOf(file.name))) << file.name;
}

TEST(Layout, DependenciesRunOneWay) {
  std::size_t checked = 0;
  for (const SourceFile& file : Read("src")) {
    const std::string room = RoomOf(file.name);
    ASSERT_TRUE(kRooms.count(room)) << file.name;
    for (const std::string& include : file.includes) {
      const std::string used = RoomOf(include);
      if (kRooms.count(used) == 0 || used == room) continue;
      ++checked;
      EXPECT_TRUE(kRooms.at(room).count(used)) << file.name << " includes " << include;
    }
  }
  EXPECT_GT(checked, 50u) << "the includes were not read";
}

TEST(Layout, TheModuleKnowsNothingOfItsReferenceHostAndItsTests) {
  for (const SourceFile& file : Read("src")) {
    for (const std::string& include : file.includes) {
      for (const char* foreign : {"refhost/", "tests/", "bench/", "fuzz/", "../", "gtest/"}) {
        EXPECT_FALSE(BeginsWith(include, foreign)) << file.name << " includes " << include;
      }
    }
  }
}

TEST(Layout, OfTheModulesOwnFilesItsIncludesExist) {
  for (const SourceFile& file : Read("src")) {
    for (const std::string& include : file.includes) {
      if (kRooms.count(RoomOf(include)) == 0) continue;
      EXPECT_TRUE(fs::exists(kRoot / "src" / include)) << file.name << " includes " << include;
    }
  }
}

TEST(Layout, TheReferenceHostSeesOnlyTheContract) {
  const std::set<std::string> contract{"core/fenlux.h", "kdi/drvx_control.h", "kdi/kdi_base.h", "kdi/driver_records.h"};
  std::size_t checked = 0;
  for (const SourceFile& file : Read("refhost")) {
    for (const std::string& include : file.includes) {
      EXPECT_FALSE(BeginsWith(include, "tests/") || BeginsWith(include, "src/") || BeginsWith(include, "../"))
          << file.name << " includes " << include;
      if (kRooms.count(RoomOf(include)) == 0 || !fs::exists(kRoot / "src" / include)) continue;
      ++checked;
      EXPECT_TRUE(RoomOf(include) == "host" || contract.count(include)) << file.name << " includes " << include;
    }
  }
  EXPECT_GT(checked, 0u);
}

TEST(Layout, TheDriverRecordsNeedNothingOfTheHost) {
  bool found = false;
  for (const SourceFile& file : Read("src")) {
    if (file.name != "kdi/driver_records.h") continue;
    found = true;
    for (const std::string& include : file.includes) {
      EXPECT_EQ(kRooms.count(RoomOf(include)), 0u) << include;
    }
  }
  EXPECT_TRUE(found);
}

TEST(Layout, TheHostContractIsHeadersAlone) {
  for (const SourceFile& file : Read("src")) {
    if (RoomOf(file.name) != "host") continue;
    EXPECT_EQ(fs::path(file.name).extension().string(), ".h") << file.name;
    EXPECT_TRUE(BeginsWith(file.name, "host/"));
    for (const std::string& include : file.includes) {
      EXPECT_NE(RoomOf(include), "common") << "a host needs nothing but the contract: " << file.name;
    }
  }
}

TEST(Layout, HostHIncludesTheWholeContract) {
  std::set<std::string> headers, included;
  for (const SourceFile& file : Read("src")) {
    if (RoomOf(file.name) != "host") continue;
    if (file.name == "host/host.h") {
      included.insert(file.includes.begin(), file.includes.end());
    } else {
      headers.insert(file.name);
    }
  }
  EXPECT_EQ(included, headers);
}

TEST(Layout, EveryFileBeginsWithWhatItIsAndHeadersAreReadOnce) {
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
