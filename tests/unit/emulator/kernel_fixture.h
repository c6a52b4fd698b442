// Helpers of the kernel-event tests: processes that open files, private mounts, and limits on descriptors.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "refhost/base/platform/descriptor_posix.h"

namespace fenlux::testing {

// Makes later mounts of this thread and its children visible only to them. Does nothing without root.
class PrivateMounts {
 public:
  PrivateMounts();
};

// Lowers the process's limit on descriptors until the object is destroyed.
class FewerDescriptors {
 public:
  explicit FewerDescriptors(rlim_t count);
  ~FewerDescriptors();
  FewerDescriptors(const FewerDescriptors&) = delete;
  FewerDescriptors& operator=(const FewerDescriptors&) = delete;

 private:
  rlimit old{};
};

// While an instance exists, the process cannot open another descriptor.
class NoDescriptorsLeft {
 public:
  NoDescriptorsLeft();

 private:
  const FewerDescriptors fewer;
  std::vector<refhost::Descriptor> taken;
};

// The number of descriptors that the process has open.
std::size_t OpenDescriptors();

// Another process that opens files on command. Create it before any thread is started.
class OtherProcess {
 public:
  // kShell runs a command of the shell instead of opening a path; its result is the exit status.
  enum class Operation : char { kOpen = 'o', kOpenAndRead = 'r', kExecute = 'x', kShell = 's' };

  OtherProcess();
  ~OtherProcess();
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  pid_t Id() const { return process; }
  // Begins the operation. Result blocks until it has ended and returns its errno, or 0.
  void Begin(const std::string& path, Operation operation = Operation::kOpen);
  int Result();
  int Perform(const std::string& path, Operation operation = Operation::kOpen) {
    Begin(path, operation);
    return Result();
  }
  int Shell(const std::string& command) { return Perform(command, Operation::kShell); }
  // Waits until the process is blocked while it opens a file: its event is then queued. If the kernel does not show
  // what the process does, waits a moment instead.
  void AwaitBlockedOpen() const;

 private:
  [[noreturn]] static void Serve(int input, int output);

  pid_t process = -1;
  int input = -1;   // for results
  int output = -1;  // for commands
};

// Another process whose threads open a file repeatedly. Create it before any thread is started.
class OpenLoop {
 public:
  static constexpr int kThreads = 30;

  OpenLoop();
  // Kills the process.
  ~OpenLoop();
  OpenLoop(const OpenLoop&) = delete;
  OpenLoop& operator=(const OpenLoop&) = delete;

  // Begins to open the file. Call once.
  void Begin(const std::string& path);

 private:
  [[noreturn]] static void Serve(int input);

  pid_t process = -1;
  int output = -1;
};

}  // namespace fenlux::testing
