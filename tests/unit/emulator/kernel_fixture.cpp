// A child process that opens, reads and executes files on command and reports the result.
#include "tests/unit/emulator/kernel_fixture.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/filesystem/directory.hpp>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/test_timeout.h"

namespace fenlux::testing {
namespace {

bool WriteAll(int file, const void* bytes, std::size_t size) {
  return ::write(file, bytes, size) == static_cast<ssize_t>(size);
}

// Commands and results are short enough to be written in one piece.
struct Command {
  char operation;
  char path[PATH_MAX - 1];
};
static_assert(sizeof(Command) <= PIPE_BUF);

int Open(const char* path, bool read) {
  const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return errno;
  char byte = 0;
  const int error = read && ::read(file, &byte, 1) < 0 ? errno : 0;
  ::close(file);
  return error;
}

// Executes the program in a child process. Returns the errno of execve, or 0.
int Execute(const char* path) {
  const pid_t child = ::fork();
  if (child == 0) {
    char* const arguments[] = {const_cast<char*>(path), nullptr};
    char* const environment[] = {nullptr};
    ::execve(path, arguments, environment);
    ::_exit(errno);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
}

int RunShell(const char* command) {
  // This process has only one thread.
  const int status = std::system(command);  // NOLINT(concurrency-mt-unsafe)
  return WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
}

}  // namespace

PrivateMounts::PrivateMounts() {
  if (::unshare(CLONE_NEWNS) == 0) ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
}

FewerDescriptors::FewerDescriptors(rlim_t count) {
  ::getrlimit(RLIMIT_NOFILE, &old);
  rlimit fewer = old;
  fewer.rlim_cur = count;
  ::setrlimit(RLIMIT_NOFILE, &fewer);
}

FewerDescriptors::~FewerDescriptors() { ::setrlimit(RLIMIT_NOFILE, &old); }

NoDescriptorsLeft::NoDescriptorsLeft() : fewer(256) {
  for (;;) {
    refhost::Descriptor next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!next.Valid()) break;
    taken.push_back(std::move(next));
  }
  if (errno != EMFILE) throw std::runtime_error("cannot use up the descriptors");
}

std::size_t OpenDescriptors() {
  const boost::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(entries, boost::filesystem::directory_iterator()));
}

OtherProcess::OtherProcess() {
  int commands[2];
  int results[2];
  if (::pipe2(commands, O_CLOEXEC) != 0 || ::pipe2(results, O_CLOEXEC) != 0)
    throw std::runtime_error("cannot create a pipe");
  process = ::fork();
  if (process < 0) throw std::runtime_error("cannot create a process");
  if (process == 0) {
    ::close(commands[1]);
    ::close(results[0]);
    Serve(commands[0], results[1]);
  }
  ::close(commands[0]);
  ::close(results[1]);
  output = commands[1];
  input = results[0];
}

OtherProcess::~OtherProcess() {
  ::close(output);
  ::close(input);
  ::waitpid(process, nullptr, 0);
}

void OtherProcess::Serve(int input, int output) {
  Command command;
  while (::read(input, &command, sizeof(command)) == static_cast<ssize_t>(sizeof(command))) {
    int result = 0;
    switch (static_cast<Operation>(command.operation)) {
      case Operation::kOpen:
        result = Open(command.path, false);
        break;
      case Operation::kOpenAndRead:
        result = Open(command.path, true);
        break;
      case Operation::kExecute:
        result = Execute(command.path);
        break;
      case Operation::kShell:
        result = RunShell(command.path);
        break;
    }
    if (!WriteAll(output, &result, sizeof(result))) break;
  }
  ::_exit(0);
}

void OtherProcess::Begin(const std::string& path, Operation operation) {
  Command command{};
  command.operation = static_cast<char>(operation);
  std::strncpy(command.path, path.c_str(), sizeof(command.path) - 1);
  if (!WriteAll(output, &command, sizeof(command))) throw std::runtime_error("the other process is gone");
}

OpenLoop::OpenLoop() {
  int commands[2];
  if (::pipe2(commands, O_CLOEXEC) != 0) throw std::runtime_error("cannot create a pipe");
  process = ::fork();
  if (process < 0) throw std::runtime_error("cannot create a process");
  if (process == 0) {
    ::close(commands[1]);
    Serve(commands[0]);
  }
  ::close(commands[0]);
  output = commands[1];
}

OpenLoop::~OpenLoop() {
  ::close(output);
  ::kill(process, SIGKILL);
  ::waitpid(process, nullptr, 0);
}

void OpenLoop::Begin(const std::string& path) {
  Command command{};
  std::strncpy(command.path, path.c_str(), sizeof(command.path) - 1);
  if (!WriteAll(output, &command, sizeof(command))) throw std::runtime_error("the other process is gone");
}

void OpenLoop::Serve(int input) {
  Command command{};
  if (::read(input, &command, sizeof(command)) != static_cast<ssize_t>(sizeof(command))) ::_exit(0);
  const auto loop = [&command] {
    for (;;) Open(command.path, false);
  };
  for (int count = 1; count < kThreads; ++count) std::thread(loop).detach();
  loop();
  ::_exit(0);
}

int OtherProcess::Result() {
  int result = -1;
  if (::read(input, &result, sizeof(result)) != static_cast<ssize_t>(sizeof(result))) {
    throw std::runtime_error("the other process is gone");
  }
  return result;
}

void OtherProcess::AwaitBlockedOpen() const {
  const std::string file = "/proc/" + std::to_string(process) + "/syscall";
  const auto deadline = std::chrono::steady_clock::now() + kTestTimeout;
  while (std::chrono::steady_clock::now() < deadline) {
    std::ifstream stream(file);
    std::string call;  // the number of the system call in which the process is blocked, or "running"
    if (!(stream >> call)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      return;
    }
    if (call == std::to_string(SYS_openat)) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace fenlux::testing
