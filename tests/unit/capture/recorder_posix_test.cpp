// Recording files on POSIX: their permissions, and full disks.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "refhost/capture/recording/capture_file.h"
#include "refhost/capture/recording/capture_writer.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Limits the size of every file that this process writes, as a full disk would.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) {
    ::getrlimit(RLIMIT_FSIZE, &before);
    previous = std::signal(SIGXFSZ, SIG_IGN);  // so that the write fails instead
    Set(size);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  void Set(rlim_t size) const {
    rlimit limit = before;
    limit.rlim_cur = size;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  void Lift() const { Set(before.rlim_cur); }

 private:
  rlimit before{};
  void (*previous)(int) = SIG_DFL;
};

Bytes Blocks(std::uint64_t exchange, std::size_t size) {
  Packet packet;
  packet.header = {Kind::kNotification, 1, exchange};
  const std::vector<std::uint8_t> message(size, 0x5A);
  packet.message = message;
  packet.originalSize = size;
  Bytes bytes;
  AppendPacket(bytes, packet);
  return bytes;
}

RecordingSettings SettingsFor(const boost::filesystem::path& file) {
  RecordingSettings settings;
  settings.file = file;
  return settings;
}

TEST(CaptureFilePosix, OnlyItsOwnerMayReadIt) {
  const TemporaryDirectory directory;
  const boost::filesystem::path name = directory.Path() / "port.pcapng";
  CaptureFile file;
  const mode_t mask = ::umask(0);
  EXPECT_FALSE(file.Create(name));
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(name.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST(CaptureFilePosix, AnExistingFileIsNeverOpened) {
  const TemporaryDirectory directory;
  const boost::filesystem::path victim = directory.Write("victim", "text");
  const boost::filesystem::path link = directory.Path() / "link.pcapng";
  boost::filesystem::create_symlink(victim, link);
  boost::filesystem::create_symlink(directory.Path() / "missing", directory.Path() / "dangling");
  CaptureFile file;
  EXPECT_TRUE(file.Create(victim));
  EXPECT_TRUE(file.Create(link));
  EXPECT_TRUE(file.Create(directory.Path() / "dangling"));
  EXPECT_EQ(FileText(victim), "text");
  EXPECT_FALSE(boost::filesystem::exists(directory.Path() / "missing"));
  EXPECT_THROW(CaptureWriter writer(SettingsFor(link)), RecordingError);
}

TEST(CaptureWriterPosix, AFullDiskLosesOnlyWholeMessagesAndTheFileSaysHowMany) {
  const TemporaryDirectory directory;
  const boost::filesystem::path name = directory.Path() / "port.pcapng";
  CaptureWriter writer(SettingsFor(name));
  {
    const FileSizeLimit limit(1000);
    Bytes blocks = Blocks(1, 300);
    writer.Write(blocks);
    Bytes more = Blocks(2, 600);
    const Bytes third = Blocks(3, 100);
    more.insert(more.end(), third.begin(), third.end());
    writer.Write(more);  // part of the first one would fit
    limit.Lift();
  }
  Bytes last = Blocks(4, 100);
  writer.Write(last);
  writer.Finish(4, 0);
  EXPECT_EQ(writer.Written(), 2u);
  EXPECT_EQ(writer.Lost(), 2u);
  EXPECT_THAT(writer.Error(), HasSubstr("port.pcapng cannot be written: "));
  std::ifstream stream(name.string(), std::ios::binary);
  const ReadCapture read = ReadAll({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()});
  EXPECT_EQ(read.problems.size(), 0u);
  EXPECT_FALSE(read.cutOff);
  EXPECT_THAT(read.Exchanges(), ElementsAre(1, 4));
  EXPECT_EQ(read.packets[1].packet.dropped, 2u);
}

// On Windows, another program that has the file open has the same effect.
TEST(CaptureWriterPosix, AFileThatCannotBeMovedGrowsInsteadOfLosingMessages) {
  const TemporaryDirectory directory;
  RecordingSettings settings = SettingsFor(directory.Path() / "port.pcapng");
  settings.maxFileSize = 500;
  settings.maxFiles = 2;
  CaptureWriter writer(settings);
  const boost::filesystem::path obstacle = directory.MakeDirectory("port.1.pcapng/inside").parent_path();
  for (std::uint64_t exchange = 1; exchange <= 3; ++exchange) {
    Bytes blocks = Blocks(exchange, 300);
    writer.Write(blocks);
  }
  EXPECT_EQ(writer.Files(), 1u);
  EXPECT_THAT(writer.Error(), HasSubstr("port.1.pcapng cannot be removed: "));
  boost::filesystem::remove_all(obstacle);
  Bytes blocks = Blocks(4, 300);
  writer.Write(blocks);
  writer.Finish(4, 0);
  EXPECT_EQ(writer.Lost(), 0u);
  EXPECT_EQ(writer.Files(), 2u);
  std::ifstream stream((directory.Path() / "port.1.pcapng").string(), std::ios::binary);
  EXPECT_THAT(ReadAll({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()}).Exchanges(),
              ElementsAre(1, 2, 3));
}

TEST(CaptureWriterPosix, AFileThatCannotBeStartedIsTriedAgain) {
  const TemporaryDirectory directory;
  RecordingSettings settings = SettingsFor(directory.Path() / "port.pcapng");
  settings.maxFileSize = 500;
  CaptureWriter writer(settings);
  Bytes first = Blocks(1, 300);
  writer.Write(first);
  {
    const FileSizeLimit limit(20);  // less than a file's first blocks
    Bytes blocks = Blocks(2, 300);
    writer.Write(blocks);
    EXPECT_THAT(writer.Error(), HasSubstr("cannot be written"));
  }
  Bytes last = Blocks(3, 300);
  writer.Write(last);
  writer.Finish(3, 0);
  EXPECT_EQ(writer.Lost(), 1u);
  EXPECT_EQ(writer.Files(), 2u);
  std::ifstream stream(settings.file.string(), std::ios::binary);
  const ReadCapture read = ReadAll({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()});
  EXPECT_THAT(read.Exchanges(), ElementsAre(3));
  EXPECT_EQ(read.packets[0].packet.dropped, 1u);
}

}  // namespace
}  // namespace fenlux::testing
