// What kernel-event tests need of the system: other processes that open files in it, and mounts of their own.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "refhost/base/platform/descriptor_posix.h"

namespace fenlux::testing {

// From here on, mounts that this thread and its children make are seen by them only. Does nothing without root.
class PrivateMounts {
 public:
  PrivateMounts();
};

// Lowers the number of descriptors that the process may have, until it is destroyed.
class FewerDescriptors {
 public:
  explicit FewerDescriptors(rlim_t count);
  ~FewerDescriptors();
  FewerDescriptors(const FewerDescriptors&) = delete;
  FewerDescriptors& operator=(const FewerDescriptors&) = delete;

 private:
  rlimit old{};
};

// Leaves the process no descriptor that it could open, until it is destroyed.
class NoDescriptorsLeft {
 public:
  NoDescriptorsLeft();

 private:
  const FewerDescriptors fewer;
  std::vector<refhost::Descriptor> taken;
};

// How many descriptors the process has.
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
  // Begins the operation. Result blocks until it is over and returns its errno, or 0.
  void Begin(const std::string& path, Operation operation = Operation::kOpen);
  int Result();
  int Perform(const std::string& path, Operation operation = Operation::kOpen) {
    Begin(path, operation);
    return Result();
  }
  int Shell(const std::string& command) { return Perform(command, Operation::kShell); }

 private:
  [[noreturn]] static void Serve(int input, int output);

  pid_t process = -1;
  int input = -1;   // where results come from
  int output = -1;  // where commands go
};

// Another process whose threads open a file again and again. Create it before any thread is started.
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
