// The names of a recording's files, and which files it moves and replaces.
#include "refhost/capture/recording/file_rotation.h"

#include <gmock/gmock.h>

#include "tests/support/temporary_directory.h"

namespace fenlux::testing {
namespace {

using capture::FileRotation;
using ::testing::HasSubstr;

constexpr std::string_view kCapture{"\x0A\x0D\x0D\x0A one", 8};

class FileRotationTest : public ::testing::Test {
 protected:
  std::string Content(const std::string& name) const { return FileText(directory.Path() / name); }
  bool Exists(const std::string& name) const { return boost::filesystem::exists(directory.Path() / name); }
  void WriteCapture(const std::string& name, const std::string& text) const {
    directory.Write(name, std::string(kCapture.substr(0, 4)) + text);
  }
  boost::filesystem::path Current() const { return directory.Path() / "port.pcapng"; }

  TemporaryDirectory directory;
};

TEST_F(FileRotationTest, OlderFilesHaveTheirNumberBeforeTheExtension) {
  const FileRotation rotation(Current(), 3);
  EXPECT_EQ(rotation.NameOf(0), Current());
  EXPECT_EQ(rotation.NameOf(1), directory.Path() / "port.1.pcapng");
  EXPECT_EQ(rotation.NameOf(12), directory.Path() / "port.12.pcapng");
  EXPECT_EQ(FileRotation("plain", 2).NameOf(1), "plain.1");
}

TEST_F(FileRotationTest, EveryFileGetsTheNextNumberAndTheOldestIsRemoved) {
  const FileRotation rotation(Current(), 3);
  WriteCapture("port.pcapng", "current");
  WriteCapture("port.1.pcapng", "older");
  WriteCapture("port.2.pcapng", "oldest");
  EXPECT_EQ(rotation.FindObstacle(), "");
  EXPECT_EQ(rotation.Shift(), "");
  EXPECT_FALSE(Exists("port.pcapng"));
  EXPECT_THAT(Content("port.1.pcapng"), HasSubstr("current"));
  EXPECT_THAT(Content("port.2.pcapng"), HasSubstr("older"));
  EXPECT_FALSE(Exists("port.3.pcapng"));
}

TEST_F(FileRotationTest, FilesAfterAGapAreNotMoved) {
  const FileRotation rotation(Current(), 3);
  WriteCapture("port.pcapng", "current");
  WriteCapture("port.2.pcapng", "oldest");
  EXPECT_EQ(rotation.Shift(), "");
  EXPECT_THAT(Content("port.1.pcapng"), HasSubstr("current"));
  EXPECT_THAT(Content("port.2.pcapng"), HasSubstr("oldest"));
}

TEST_F(FileRotationTest, ASingleFileIsRemoved) {
  WriteCapture("port.pcapng", "current");
  EXPECT_EQ(FileRotation(Current(), 1).Shift(), "");
  EXPECT_FALSE(Exists("port.pcapng"));
  EXPECT_FALSE(Exists("port.1.pcapng"));
}

TEST_F(FileRotationTest, OnlyCapturesAreReplaced) {
  directory.Write("port.pcapng", "a letter");
  EXPECT_THAT(FileRotation(Current(), 1).FindObstacle(), HasSubstr("port.pcapng exists and is not a capture"));
  directory.Write("port.pcapng", "");
  EXPECT_EQ(FileRotation(Current(), 1).FindObstacle(), "");
  directory.Write("port.1.pcapng", "a letter");
  EXPECT_THAT(FileRotation(Current(), 2).FindObstacle(), HasSubstr("port.1.pcapng exists and is not a capture"));
}

TEST_F(FileRotationTest, ADirectoryIsNotReplaced) {
  directory.MakeDirectory("port.pcapng");
  EXPECT_THAT(FileRotation(Current(), 1).FindObstacle(), HasSubstr("not a regular file"));
}

}  // namespace
}  // namespace fenlux::testing
