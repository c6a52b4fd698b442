// Real permission events of the kernel, on temporary directories. If the machine does not allow them, the tests are
// skipped with the reason.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/text/utf_text.h"
#include "tests/unit/emulator/kernel_events_test.h"

namespace fenlux::testing {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST_F(KernelEvents, OrdinaryOpensSucceed) {
  OpenedWithVerdict(2);
  EXPECT_EQ(other.Perform(file), 0);
  Emulator().Stop();
  const EmulatorTotals totals = Totals();
  EXPECT_EQ(totals.kernelEvents, 1u);
  EXPECT_EQ(totals.kernelAllowed, 1u);
  EXPECT_EQ(totals.answered, 1u);
  EXPECT_EQ(totals.byCode, (std::map<std::uint32_t, std::uint64_t>{{4097, 1}}));
}

TEST_F(KernelEvents, RefusedOpensGetOperationNotPermitted) {
  for (const std::uint32_t verdict : {4u, 5u}) {
    const auto port = OpenedWithVerdict(verdict);
    EXPECT_EQ(other.Perform(file), EPERM) << verdict;
    port->Close();
  }
  for (const std::uint32_t verdict : {2u, 3u, 6u, 7u, 8u}) {  // 8: not judged, which passes by default
    const auto port = OpenedWithVerdict(verdict);
    EXPECT_EQ(other.Perform(file), 0) << verdict;
    port->Close();
  }
  Emulator().Stop();
  EXPECT_EQ(Totals().kernelRefused, 2u);
  EXPECT_EQ(Totals().kernelAllowed, 5u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNotJudged), 1u);
}

TEST_F(KernelEvents, ASettingSelectsTheVerdictsThatRefuse) {
  settings.kernel.refusingVerdicts = {8};
  OpenedWithVerdict(8);
  EXPECT_EQ(other.Perform(file), EPERM);
}

TEST_F(KernelEvents, ReportProcessAndPathToTheModule) {
  const std::string strange = directory.MakeFile("\xc3\xa9\xf0\x9f\x90\xa7.txt").string();
  Bytes seen;
  handler = [&seen](const Bytes& message) {
    seen = message;
    return Buffer(Reply(2));
  };
  Opened();
  EXPECT_EQ(other.Perform(strange), 0);
  Emulator().Stop();
  EXPECT_TRUE(SameBytes(refhost::BuildNotification({.code = 4097,
                                                    .processId = static_cast<std::uint64_t>(other.Id()),
                                                    .path = refhost::Utf16FromNarrow(strange),
                                                    .accessValueA = 0x10000}),
                        seen));
}

TEST_F(KernelEvents, DistinguishReadsAndExecutionsIfSelected) {
  settings.kernel.onAccess = settings.kernel.onExec = true;
  const std::string program = directory.Path().string() + "/program";
  {
    std::ifstream from("/bin/true", std::ios::binary);
    std::ofstream(program, std::ios::binary) << from.rdbuf();
  }
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  std::mutex mutex;
  std::vector<std::pair<std::uint32_t, int>> seen;  // code, condition flag A
  handler = [&](const Bytes& message) {
    const std::lock_guard lock(mutex);
    seen.emplace_back(refhost::NotificationView(message).Code(), message[25]);
    return Buffer(Reply(2));
  };
  Opened();
  EXPECT_EQ(other.Perform(file, Operation::kOpenAndRead), 0);
  EXPECT_EQ(other.Perform(program, Operation::kExecute), 0);
  Emulator().Stop();
  EXPECT_THAT(seen, AllOf(Contains(std::pair(4097u, 0)), Contains(std::pair(4098u, 0)), Contains(std::pair(4097u, 1))));
}

TEST_F(KernelEvents, CanBeLimitedToExecutions) {
  settings.kernel.onOpen = false;
  settings.kernel.onExec = true;
  const std::string program = directory.MakeFile("program").string();
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  OpenedWithVerdict(4);
  EXPECT_EQ(other.Perform(program, Operation::kExecute), EPERM);
  EXPECT_EQ(other.Perform(program), 0);
}

TEST_F(KernelEvents, OfTheHostItselfAreNeverJudged) {
  OpenedWithVerdict(4);
  EXPECT_TRUE(OwnOpenSucceeds(file));
  Emulator().Stop();
  EXPECT_EQ(Totals().delivered, 0u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kOwnProcess), 1u);
}

TEST_F(KernelEvents, PassWhileNoModuleIsConnected) {
  Emulator();
  EXPECT_EQ(other.Perform(file), 0);
  const auto port = OpenedWithVerdict(4);
  EXPECT_EQ(other.Perform(file), EPERM);
  port->Close();
  EXPECT_EQ(other.Perform(file), 0);
  Emulator().Stop();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNoConnection), 2u);
}

TEST_F(KernelEvents, ANamedPipeDoesNotBlockItsReader) {
  const std::string pipe = directory.Path().string() + "/pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  settings.kernel.threads = 1;
  OpenedWithVerdict(4);
  other.Perform(pipe);  // not every kernel reports named pipes
  EXPECT_EQ(other.Perform(file), EPERM);
}

TEST_F(KernelEvents, AreJudgedEvenIfTheHostHasNoDescriptorLeft) {
  settings.kernel.threads = 1;  // another reader could keep the last descriptor while the event is read
  const auto port = OpenedWithVerdict(2);
  WarmUpSanitizer();
  const NoDescriptorsLeft none;
  for (int i = 0; i < 20; ++i) EXPECT_EQ(other.Perform(file), 0);
  EXPECT_EQ(Totals().answered, 21u);
  EXPECT_EQ(Totals().kernelRefused, 0u);
}

enum OpenResult : int { kOpened, kErrorOfKernelEvents, kOtherEnd };

// How opening the emulator ends in a process that may open only this many more descriptors, and cannot raise its limit.
int OpenWithDescriptorsLeft(rlim_t left, const refhost::EmulatorSettings& settings) {
  const pid_t child = ::fork();
  if (child == 0) {
    const auto next = static_cast<rlim_t>(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const rlimit fewer{next + left + 1, next + left + 1};
    if (::setrlimit(RLIMIT_NOFILE, &fewer) != 0) ::_exit(kOtherEnd);
    try {
      const DriverEmulator probe(settings);
    } catch (const std::runtime_error& error) {  // what hosts catch
      ::_exit(std::string_view(error.what()).starts_with("kernel events cannot be opened: ") ? kErrorOfKernelEvents
                                                                                             : kOtherEnd);
    }
    ::_exit(kOpened);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : kOtherEnd;
}

TEST_F(KernelEvents, CannotBeOpenedWithTooFewDescriptors) {
  WarmUpSanitizer();
  std::vector<int> ends;
  for (rlim_t left = 0; left < 5; ++left) ends.push_back(OpenWithDescriptorsLeft(left, settings));
  EXPECT_THAT(ends, Each(kErrorOfKernelEvents));
}

TEST_F(KernelEvents, AreCountedIfTheKernelRefusesThemForLackOfDescriptors) {
  const auto port = OpenedWithVerdict(2);
  WarmUpSanitizer();
  {
    const FewerDescriptors fewer(3);
    EXPECT_EQ(other.Perform(file), EPERM);
  }
  EXPECT_EQ(other.Perform(file), 0);
  Emulator().Stop();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNoDescriptors), 1u);
  EXPECT_EQ(Totals().kernelRefusedUnjudged, 1u);
  EXPECT_EQ(Totals().answered, 2u);
}

TEST_F(KernelEvents, OfAFileWithAWriteLeaseAreRefusedByTheKernelAndCounted) {
  ::signal(SIGIO, SIG_IGN);  // notifies the owner of the lease that another process opens the file
  refhost::Descriptor leased(::open(file.c_str(), O_RDWR | O_CLOEXEC));
  if (::fcntl(leased.Get(), F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here: " << std::strerror(errno);
  OpenedWithVerdict(2);
  EXPECT_EQ(other.Perform(file), EPERM);
  leased.Reset();
  EXPECT_EQ(other.Perform(file), 0);
  Emulator().Stop();
  EXPECT_EQ(Totals().answered, 1u);
  if (Totals().kernelEvents == 1) GTEST_SKIP() << "before Linux 6.13, the kernel does not report these operations";
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNotOpened), 1u);
}

TEST_F(KernelEvents, StopLeavesNothingWatched) {
  OpenedWithVerdict(4);
  EXPECT_EQ(other.Perform(file), EPERM);
  Emulator().Stop();
  EXPECT_EQ(other.Perform(file), 0);
  EXPECT_EQ(Totals().kernelEvents, 1u);
}

// Events in the directories that the module commits.
class PolicyEvents : public KernelEvents {
 protected:
  PolicyEvents() { settings.kernel.directories.clear(); }

  // Polls until the condition holds; false on timeout.
  template <typename Condition>
  bool Eventually(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kTestTimeout;
    while (!condition()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }
  bool Logged(const std::string& line) {
    const std::vector<std::string> lines = LogLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }

  const std::string first = directory.MakeDirectory("first").string();
  const std::string second = directory.MakeDirectory("second").string();
  const std::string inFirst = directory.MakeFile("first/file").string();
  const std::string inSecond = directory.MakeFile("second/file").string();
};

TEST_F(PolicyEvents, FollowCommitsWithoutARestart) {
  const auto port = OpenedWithVerdict(4);
  EXPECT_EQ(other.Perform(inFirst), 0);
  Send(*port, AddRequest(1, refhost::Utf16FromNarrow(first)));
  EXPECT_EQ(other.Perform(inFirst), 0);  // added, not committed
  Send(*port, Request(3, "01 00 00 00"));
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  EXPECT_EQ(other.Perform(inSecond), 0);
  Commit(*port, {first, second});
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  EXPECT_EQ(other.Perform(inSecond), EPERM);
  Commit(*port, {second});
  EXPECT_EQ(other.Perform(inFirst), 0);
  EXPECT_EQ(other.Perform(inSecond), EPERM);
  Commit(*port, {});
  EXPECT_EQ(other.Perform(inSecond), 0);
  EXPECT_THAT(LogLines(), AllOf(Contains("Watched: " + first), Contains("No longer watched: " + first)));
}

TEST_F(PolicyEvents, CoverTypesOneAndTwoButNotThree) {
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first}, 1);
  Commit(*port, {second}, 2);
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  EXPECT_EQ(other.Perform(inSecond), EPERM);
  Commit(*port, {}, 2);
  Commit(*port, {second}, 3);
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  EXPECT_EQ(other.Perform(inSecond), 0);
}

TEST_F(PolicyEvents, ContinueAfterTheConnectionEndsUntilTheNextOneCommits) {
  auto port = OpenedWithVerdict(4);
  Commit(*port, {first});
  port->Close();
  EXPECT_EQ(other.Perform(inFirst), 0);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNoConnection), 1u);
  port = OpenedWithVerdict(4);
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  Commit(*port, {second});
  EXPECT_EQ(other.Perform(inFirst), 0);
  EXPECT_EQ(other.Perform(inSecond), EPERM);
  Emulator().Stop();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNoConnection), 1u);
}

TEST_F(PolicyEvents, FollowTheSettingWhileTheConnectionIsDown) {
  settings.unjudged = UnjudgedPolicy::kRefuse;
  const auto port = OpenedWithVerdict(2);
  Commit(*port, {first});
  EXPECT_EQ(other.Perform(inFirst), 0);
  port->Close();
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  EXPECT_EQ(other.Perform(inSecond), 0);  // never watched
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNoConnection), 1u);
}

TEST_F(PolicyEvents, AreIgnoredIfTheSettingsSaySo) {
  settings.kernel.followPolicy = false;
  settings.kernel.directories = {second};
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first});
  EXPECT_EQ(other.Perform(inFirst), 0);
  EXPECT_EQ(other.Perform(inSecond), EPERM);
}

TEST_F(PolicyEvents, SkipPathsThatCannotBeWatched) {
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {"/", "/tmp", "relative", directory.Path().string() + "/missing", inFirst, second});
  EXPECT_EQ(other.Perform(inSecond), EPERM);
  EXPECT_EQ(other.Perform(inFirst), 0);
  const std::vector<std::string> lines = LogLines();
  for (const std::string reason : {"Not watched: /: is / itself, which is never watched",
                                   "Not watched: /tmp: is /tmp itself, which is never watched",
                                   "Not watched: relative: is not an absolute path"}) {
    EXPECT_THAT(lines, Contains(reason));
  }
  EXPECT_THAT(lines, Contains("Not watched: " + directory.Path().string() + "/missing: No such file or directory"));
  EXPECT_THAT(lines, Contains("Not watched: " + inFirst + ": is not a directory"));
  EXPECT_EQ(State().protocolViolations, 0u);
}

TEST_F(PolicyEvents, IdentifyADirectoryRegardlessOfItsName) {
  const std::string link = directory.Path().string() + "/link";
  ASSERT_EQ(::symlink(first.c_str(), link.c_str()), 0);
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first, link});
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  Commit(*port, {link});
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  Commit(*port, {});
  EXPECT_EQ(other.Perform(inFirst), 0);
}

TEST_F(PolicyEvents, FollowADirectoryThatIsCreatedAgain) {
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first});
  ASSERT_EQ(::unlink(inFirst.c_str()), 0);
  ASSERT_EQ(::rmdir(first.c_str()), 0);
  directory.MakeDirectory("first");
  directory.MakeFile("first/file");
  Commit(*port, {first});
  EXPECT_EQ(other.Perform(inFirst), EPERM);
}

TEST_F(PolicyEvents, ResumeWhenADeletedDirectoryIsCreatedAgain) {
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first, second});
  EXPECT_EQ(Emulator().Watches(), (std::vector<refhost::WatchState>{{first, true, {}}, {second, true, {}}}));
  ASSERT_EQ(::unlink(inFirst.c_str()), 0);
  ASSERT_EQ(::rmdir(first.c_str()), 0);
  const std::vector<refhost::WatchState> lost{{first, false, "No such file or directory"}, {second, true, {}}};
  ASSERT_TRUE(Eventually([&] { return Emulator().Watches() == lost; }));
  EXPECT_TRUE(Eventually([&] { return Logged("Watch lost: " + first + ": No such file or directory"); }));
  directory.MakeDirectory("first");
  directory.MakeFile("first/file");
  EXPECT_TRUE(Eventually([&] { return other.Perform(inFirst) == EPERM; }));
  EXPECT_TRUE(Eventually([&] { return Emulator().Watches()[0].watched; }));
  EXPECT_TRUE(Eventually([&] { return Logged("Watched from now on: " + first); }));
  EXPECT_EQ(other.Perform(inSecond), EPERM);
}

// A new directory may immediately get the inode number of the old one.
TEST_F(PolicyEvents, ResumeWhenADeletedDirectoryIsReplacedAtOnce) {
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first});
  ASSERT_EQ(::unlink(inFirst.c_str()), 0);
  ASSERT_EQ(::rmdir(first.c_str()), 0);
  directory.MakeDirectory("first");
  directory.MakeFile("first/file");
  EXPECT_TRUE(Eventually([&] { return other.Perform(inFirst) == EPERM; }));
}

TEST_F(PolicyEvents, StartWhenAMissingDirectoryIsCreated) {
  const std::string later = directory.Path().string() + "/later";
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {later});
  EXPECT_EQ(Emulator().Watches(), (std::vector<refhost::WatchState>{{later, false, "No such file or directory"}}));
  directory.MakeDirectory("later");
  directory.MakeFile("later/file");
  EXPECT_TRUE(Eventually([&] { return other.Perform(later + "/file") == EPERM; }));
}

TEST_F(PolicyEvents, IncludeNewSubdirectoriesIfTheSettingsSaySo) {
  settings.kernel.recursive = true;
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first});
  directory.MakeDirectory("first/new");
  directory.MakeDirectory("first/new/below");
  directory.MakeFile("first/new/below/file");
  EXPECT_TRUE(Eventually([&] { return other.Perform(first + "/new/below/file") == EPERM; }));
  EXPECT_EQ(Emulator().Watches(), (std::vector<refhost::WatchState>{{first, true, {}}}));
}

TEST_F(PolicyEvents, StopWatchingARenamedDirectory) {
  const auto port = OpenedWithVerdict(4);
  Commit(*port, {first, second});
  const std::string renamed = directory.Path().string() + "/renamed";
  ASSERT_EQ(std::rename(first.c_str(), renamed.c_str()), 0);
  EXPECT_EQ(other.Perform(renamed + "/file"), EPERM);
  Commit(*port, {second});
  EXPECT_EQ(other.Perform(renamed + "/file"), 0);
  EXPECT_EQ(other.Perform(inSecond), EPERM);
}

TEST_F(PolicyEvents, IncludeSubdirectoriesIfSelected) {
  const std::string deep = directory.MakeDirectory("first/a/b").string();
  const std::string inDeep = directory.MakeFile("first/a/b/file").string();
  {
    const auto port = OpenedWithVerdict(4);
    Commit(*port, {first});
    EXPECT_EQ(other.Perform(inDeep), 0);
    Emulator().Stop();
  }
  settings.kernel.recursive = true;
  DriverEmulator recursive(settings);
  const auto port = recursive.MakePortClient(
      kPortNameText, Buffer(ConnectContext()), 196764, [](const void*, std::uint32_t) { return Buffer(Reply(4)); }, 1);
  port->Connect();
  port->Start();
  Commit(*port, {first});
  EXPECT_EQ(other.Perform(inDeep), EPERM);
  EXPECT_EQ(other.Perform(inFirst), EPERM);
  EXPECT_EQ(other.Perform(inSecond), 0);
}

TEST_F(PolicyEvents, FollowThousandsOfDirectories) {
  constexpr int kCount = 2000;
  std::vector<std::string> many;
  for (int i = 0; i < kCount; ++i) many.push_back(directory.MakeDirectory("many/" + std::to_string(i)).string());
  const std::string inLast = directory.MakeFile("many/" + std::to_string(kCount - 1) + "/file").string();
  const auto port = OpenedWithVerdict(4);
  Commit(*port, many);
  EXPECT_EQ(other.Perform(inLast), EPERM);
  EXPECT_THAT(LogLines(), Contains("Watched: 1980 more"));
  Commit(*port, {});
  EXPECT_EQ(other.Perform(inLast), 0);
}

TEST_F(KernelEvents, CannotBeWatchedInForbiddenDirectories) {
  const std::string link = directory.Path().string() + "/link";
  ASSERT_EQ(::symlink("/tmp", link.c_str()), 0);
  const auto failure = [this](const std::string& path) {
    settings.kernel.directories = {path};
    return FailureOf([this] { const DriverEmulator refused(settings); });
  };
  EXPECT_EQ(failure("/"), "directory /: is / itself, which is never watched");
  EXPECT_EQ(failure("/tmp"), "directory /tmp: is /tmp itself, which is never watched");
  EXPECT_EQ(failure("/tmp/../tmp/"), "directory /tmp/../tmp/: is /tmp itself, which is never watched");
  EXPECT_EQ(failure(link), "directory " + link + ": is /tmp itself, which is never watched");
  EXPECT_EQ(failure("here"), "directory here: is not an absolute path");
  EXPECT_EQ(failure(file), "directory " + file + ": is not a directory");
  EXPECT_EQ(failure(directory.Path().string() + "/no"),
            "directory " + directory.Path().string() + "/no: No such file or directory");
  settings.kernel.directories = {};
  settings.kernel.onOpen = false;
  EXPECT_EQ(FailureOf([this] { const DriverEmulator refused(settings); }), "no kind of kernel event is selected");
}

}  // namespace
}  // namespace fenlux::testing
