// A child process that opens, reads and executes files on order and says how it went.
#include "tests/unit/emulator/kernel_fixture.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>

namespace fenlux::testing {
namespace {

bool WriteAll(int file, const void* bytes, std::size_t size) {
  return ::write(file, bytes, size) == static_cast<ssize_t>(size);
}

// Orders and results are short enough to arrive whole.
struct Order {
  char operation;
  char path[PATH_MAX - 1];
};
static_assert(sizeof(Order) <= PIPE_BUF);

int Open(const char* path, bool read) {
  const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return errno;
  char byte = 0;
  const int error = read && ::read(file, &byte, 1) < 0 ? errno : 0;
  ::close(file);
  return error;
}

// In a process of its own, which gives back the errno of execve, or 0 where it succeeded.
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

}  // namespace

OtherProcess::OtherProcess() {
  int orders[2];
  int results[2];
  if (::pipe2(orders, O_CLOEXEC) != 0 || ::pipe2(results, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  process = ::fork();
  if (process < 0) throw std::runtime_error("no process can be made");
  if (process == 0) {
    ::close(orders[1]);
    ::close(results[0]);
    Serve(orders[0], results[1]);
  }
  ::close(orders[0]);
  ::close(results[1]);
  output = orders[1];
  input = results[0];
}

OtherProcess::~OtherProcess() {
  ::close(output);
  ::close(input);
  ::waitpid(process, nullptr, 0);
}

void OtherProcess::Serve(int input, int output) {
  Order order;
  while (::read(input, &order, sizeof(order)) == static_cast<ssize_t>(sizeof(order))) {
    int result = 0;
    switch (static_cast<Operation>(order.operation)) {
      case Operation::kOpen:
        result = Open(order.path, false);
        break;
      case Operation::kOpenAndRead:
        result = Open(order.path, true);
        break;
      case Operation::kExecute:
        result = Execute(order.path);
        break;
    }
    if (!WriteAll(output, &result, sizeof(result))) break;
  }
  ::_exit(0);
}

void OtherProcess::Begin(const std::string& path, Operation operation) {
  Order order{};
  order.operation = static_cast<char>(operation);
  std::strncpy(order.path, path.c_str(), sizeof(order.path) - 1);
  if (!WriteAll(output, &order, sizeof(order))) throw std::runtime_error("the other process is gone");
}

int OtherProcess::Result() {
  int result = -1;
  if (::read(input, &result, sizeof(result)) != static_cast<ssize_t>(sizeof(result))) {
    throw std::runtime_error("the other process is gone");
  }
  return result;
}

}  // namespace fenlux::testing
