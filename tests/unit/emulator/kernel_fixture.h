// What kernel-event tests need of the system: other processes that open files in it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace fenlux::testing {

// Another process that opens files on command. Create it before any thread is started.
class OtherProcess {
 public:
  enum class Operation : char { kOpen = 'o', kOpenAndRead = 'r', kExecute = 'x' };

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

 private:
  [[noreturn]] static void Serve(int input, int output);

  pid_t process = -1;
  int input = -1;   // where results come from
  int output = -1;  // where commands go
};

}  // namespace fenlux::testing
