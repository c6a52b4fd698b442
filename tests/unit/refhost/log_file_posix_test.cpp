// How the log file is opened: accessible only to its user, never through a symbolic link, and without blocking.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <stdexcept>

#include "refhost/services/log/log_file.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::FileText;
using fenlux::testing::TemporaryDirectory;

std::string ErrorOf(const boost::filesystem::path& file) {
  try {
    OpenLogFile(file);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

TEST(LogFile, IsAccessibleOnlyToItsUser) {
  const TemporaryDirectory directory;
  const auto file = directory.Path() / "l.log";
  const mode_t before = ::umask(0);
  OpenLogFile(file);
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST(LogFile, MustNotBeASymbolicLink) {
  const TemporaryDirectory directory;
  const auto target = directory.MakeFile("target");
  const auto link = directory.Path() / "link";
  boost::filesystem::create_symlink(target, link);
  EXPECT_EQ(ErrorOf(link), "the log file " + link.string() +
                               " cannot be opened for writing: it is a symbolic link; name the file itself");
  boost::filesystem::remove(target);
  EXPECT_NE(ErrorOf(link), "");
  EXPECT_FALSE(boost::filesystem::exists(target));
}

TEST(LogFile, DoesNotWaitForTheReaderOfAPipe) {
  const TemporaryDirectory directory;
  const auto pipe = directory.Path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(ErrorOf(pipe),
            "the log file " + pipe.string() + " cannot be opened for writing: No such device or address");
}

}  // namespace
}  // namespace fenlux::refhost
