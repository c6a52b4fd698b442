// The fixture of the tests with real permission events, on temporary directories. If the machine does not allow them,
// the tests are skipped with the reason.
#pragma once

#include <cerrno>
#include <chrono>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/text/utf_text.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/emulator/emulator_test.h"
#include "tests/unit/emulator/kernel_fixture.h"

namespace fenlux::testing {

class KernelEvents : public EmulatorTest {
 protected:
  using Operation = OtherProcess::Operation;

  KernelEvents() {
    settings.source = refhost::EventSourceKind::kFanotify;
    settings.deadline = std::chrono::hours(1);
    settings.kernel.directories = {directory.Path().string()};
  }

  void SetUp() override {
    try {
      const DriverEmulator probe(settings);
    } catch (const std::exception& error) {
      GTEST_SKIP() << error.what();
    }
  }

  // Opens the port with a handler that gives this verdict to everything.
  std::shared_ptr<CPortClient> OpenedWithVerdict(std::uint32_t verdict) {
    handler = [verdict](const Bytes&) { return Buffer(Reply(verdict, {1})); };
    return Opened();
  }

  // Commits these directories for a type, as the module does.
  void Commit(CPortClient& port, const std::vector<std::string>& directories, std::uint32_t type = 1) {
    for (const std::string& path : directories) Send(port, AddRequest(type, refhost::Utf16FromNarrow(path)));
    Send(port, Request(3, "0" + std::to_string(type) + " 00 00 00"));
  }

  // Handles one event, and reads the text of an error. The undefined-behavior sanitizer needs a descriptor when it sees
  // a type for the first time, so call this before a test uses up the descriptors.
  void WarmUpSanitizer() {
    EXPECT_EQ(other.Perform(file), 0);
    EXPECT_FALSE(refhost::SystemErrorText(EMFILE).empty());
  }

  bool OwnOpenSucceeds(const std::string& path) { return std::ifstream(path).good(); }

  PrivateMounts mounts;  // before the other processes, which share them
  OtherProcess other;    // made before any thread
  OtherProcess another;
  TemporaryDirectory directory;
  const std::string file = directory.MakeFile("ordinary.txt").string();
};

}  // namespace fenlux::testing
