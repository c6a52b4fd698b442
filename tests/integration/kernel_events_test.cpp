// The kernel's permission events, if the machine allows a test to receive them, in the test's own directories only.
#include <gtest/gtest.h>
#include <signal.h>

#include <boost/filesystem/operations.hpp>
#include <optional>
#include <string>

#include "tests/integration/host_process.h"
#include "tests/integration/kernel_events_missing.h"

namespace fenlux::testing {
namespace {

Outcome Read(const HostSetup& setup, const std::string& program, const std::string& file) {
  return HostProcess(setup, program, {file}).Wait();
}

std::string Rules(const std::string& directories) {
  return "[emulator]\nsource = 'fanotify'\ndeadline_ms = 300000\n"
         "[policy]\ndirectories = [" +
         directories + "]\n[[judging.rules]]\npath = '*.secret'\nprocess = 'cat'\ndecision = 3\n";
}

TEST(KernelEvents, RefuseOneNameToOneProgramEvenInADirectoryAddedLater) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  const HostSetup setup;
  const std::string first = setup.Directory("first");
  const std::string second = setup.Directory("second");
  for (const char* name : {"first/diary.secret", "first/plain.txt", "second/diary.secret"})
    setup.Write(name, "words\n");
  setup.WriteHost(Rules("'" + first + "'"));
  HostProcess host(setup, RunArguments(setup, {"--json"}));
  ASSERT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + first)) << host.Err();

  // The watch starts when the module has committed the directory; from then on reads are refused.
  EXPECT_TRUE(Eventually([&] { return Read(setup, "cat", first + "/diary.secret").code != 0; }));
  const Outcome refused = Read(setup, "cat", first + "/diary.secret");
  EXPECT_TRUE(Contains(refused.err, "Operation not permitted")) << refused.err;
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(Read(setup, "head", first + "/diary.secret").out, "words\n");
  EXPECT_EQ(Read(setup, "cat", first + "/plain.txt").out, "words\n");

  EXPECT_EQ(Read(setup, "cat", second + "/diary.secret").out, "words\n");
  setup.WriteHost(Rules("'" + first + "', '" + second + "'"));
  host.Signal(SIGHUP);
  EXPECT_TRUE(Eventually([&] { return Read(setup, "cat", second + "/diary.secret").code != 0; }));
  EXPECT_EQ(Read(setup, "head", second + "/diary.secret").out, "words\n");

  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.notifications.adds_up"), "true");
  EXPECT_GE(std::stoi(JsonValue(outcome.out, "summary.kernel.refused")), 3);
  // After the host stopped, nothing is refused.
  EXPECT_EQ(Read(setup, "cat", first + "/diary.secret").out, "words\n");
}

// A host that refuses "*.secret" to cat, in one directory.
class GuardedDirectory {
 public:
  GuardedDirectory() : directory(setup.Directory("first")) {
    for (const char* name : {"first/diary.secret", "first/plain.txt"}) setup.Write(name, "words\n");
    setup.WriteHost(Rules("'" + directory + "'"));
    host.emplace(setup, RunArguments(setup, {"--json"}));
  }

  // Waits until the directory is watched.
  bool Ready() {
    return host->WaitForError("[Add Monitor OK!][obj path]=" + directory) &&
           Eventually([&] { return Read(setup, "cat", directory + "/diary.secret").code != 0; });
  }
  Outcome Shell(const std::string& command) const { return HostProcess(setup, "sh", {"-c", command}).Wait(); }
  std::string Secret() const { return directory + "/diary.secret"; }
  std::string Plain() const { return directory + "/plain.txt"; }
  Outcome Stop() { return host->Stop(); }

 private:
  HostSetup setup;
  const std::string directory;
  std::optional<HostProcess> host;
};

TEST(KernelEvents, RefuseAProgramMountedOverAnotherIfARuleDependsOnTheProgram) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  GuardedDirectory guarded;
  ASSERT_TRUE(guarded.Ready());
  const std::string spoof = "exec unshare -Urm sh -c 'mount --bind $(command -v cat) $(command -v head) && exec head ";
  if (guarded.Shell(spoof + "/dev/null'").code != 0) GTEST_SKIP() << "this process may not mount in its own namespace";
  EXPECT_EQ(guarded.Shell("head " + guarded.Secret()).out, "words\n");
  EXPECT_EQ(guarded.Shell(spoof + guarded.Plain() + "'").out, "words\n");
  const Outcome refused = guarded.Shell(spoof + guarded.Secret() + "'");
  EXPECT_TRUE(Contains(refused.err, "Operation not permitted")) << refused.err;
  EXPECT_EQ(refused.out, "");
  const Outcome outcome = guarded.Stop();
  EXPECT_EQ(JsonValue(outcome.out, "summary.unjudged.program not established"), "1") << outcome.out;
}

TEST(KernelEvents, RefuseAProgramImmediatelyAfterItsExec) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  GuardedDirectory guarded;
  ASSERT_TRUE(guarded.Ready());
  const Outcome refused = guarded.Shell(": <" + guarded.Plain() + "; exec cat " + guarded.Secret());
  EXPECT_TRUE(Contains(refused.err, "Operation not permitted")) << refused.err;
  EXPECT_EQ(refused.out, "");
}

TEST(KernelEvents, AreReportedAsLostWhileTheirDirectoryIsDeleted) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  const HostSetup setup;
  const std::string policy = setup.Directory("policy");
  const std::string kept = setup.Directory("kept");
  const auto writeSecrets = [&setup] {
    for (const char* name : {"policy/diary.secret", "kept/diary.secret"}) setup.Write(name, "words\n");
  };
  const auto refused = [&](const std::string& directory) {
    return Contains(Read(setup, "cat", directory + "/diary.secret").err, "Operation not permitted");
  };
  const auto status = [&setup](const std::string& key) { return JsonValue(setup.ControlJson({"status"}), key); };
  writeSecrets();
  setup.WriteHost(Rules("'" + policy + "'") + "[emulator.kernel]\ndirectories = ['" + kept + "']\n");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(Eventually([&] { return refused(policy) && refused(kept); })) << host.Err();
  EXPECT_EQ(status("policy"), "[\"" + policy + ": watched\"]");
  EXPECT_EQ(status("other_directories"), "[\"" + kept + ": watched\"]");

  boost::filesystem::remove_all(policy);
  boost::filesystem::remove_all(kept);
  const std::string gone = "No such file or directory";
  for (const std::string& directory : {policy, kept}) {
    EXPECT_TRUE(host.WaitForError("[emulator] Watch lost: " + directory + ": " + gone + "\n"));
  }
  EXPECT_EQ(status("policy"), "[\"" + policy + ": not watched: " + gone + "\"]");
  EXPECT_EQ(status("other_directories"), "[\"" + kept + ": not watched: " + gone + "\"]");
  const Outcome health = setup.Control({"health"});
  EXPECT_EQ(health.code, 6);
  for (const std::string& directory : {policy, kept}) {
    EXPECT_TRUE(Contains(health.out, directory + " is not watched: " + gone)) << health.out;
  }

  setup.Directory("policy");
  setup.Directory("kept");
  writeSecrets();
  for (const std::string& directory : {policy, kept}) {
    EXPECT_TRUE(host.WaitForError("[emulator] Watched from now on: " + directory + "\n"));
    EXPECT_TRUE(refused(directory));
  }
  EXPECT_EQ(status("policy"), "[\"" + policy + ": watched\"]");
  EXPECT_EQ(status("other_directories"), "[\"" + kept + ": watched\"]");
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(KernelEvents, CannotBeConfiguredForTheRootDirectory) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  const HostSetup setup;
  setup.WriteHost("[emulator]\nsource = 'fanotify'\n[emulator.kernel]\ndirectories = ['/']\n");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--duration", "5"}));
  EXPECT_EQ(outcome.code, 2) << outcome.out;
  EXPECT_TRUE(Contains(outcome.err, "fenlux-host: ")) << outcome.err;
}

}  // namespace
}  // namespace fenlux::testing
