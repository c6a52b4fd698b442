// A process that opens files and measures how long each open takes.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace fenlux::bench {

// Create it before any thread is started.
class Opener {
 public:
  Opener() {
    int commands[2];
    int results[2];
    if (::pipe2(commands, O_CLOEXEC) != 0 || ::pipe2(results, O_CLOEXEC) != 0) {
      throw std::runtime_error("cannot create a pipe");
    }
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
  ~Opener() {
    ::close(output);
    ::close(input);
    ::kill(process, SIGKILL);  // later processes have inherited the pipes, so it may not see their end
    ::waitpid(process, nullptr, 0);
  }
  Opener(const Opener&) = delete;
  Opener& operator=(const Opener&) = delete;

  // Opens and closes the file kOpens times. Returns the nanoseconds of each open; 0 for one that failed.
  std::vector<std::uint64_t> Open(const std::string& path) {
    Begin(path);
    return End();
  }

  // The two parts of Open, for several openers at the same time.
  void Begin(const std::string& path) {
    Command command{};
    path.copy(command.path, sizeof(command.path) - 1);
    if (::write(output, &command, sizeof(command)) != static_cast<ssize_t>(sizeof(command))) {
      throw std::runtime_error("the opener has ended");
    }
  }
  std::vector<std::uint64_t> End() {
    std::vector<std::uint64_t> times(kOpens);
    if (::read(input, times.data(), kOpens * sizeof(times[0])) != static_cast<ssize_t>(kOpens * sizeof(times[0]))) {
      throw std::runtime_error("the opener has ended");
    }
    return times;
  }

 private:
  // As many results as one write to a pipe transfers without being split.
  static constexpr std::size_t kOpens = 500;
  struct Command {
    char path[1024];
  };

  [[noreturn]] static void Serve(int input, int output) {
    Command command;
    while (::read(input, &command, sizeof(command)) == static_cast<ssize_t>(sizeof(command))) {
      std::uint64_t times[kOpens];
      for (std::uint64_t& time : times) {
        const auto start = std::chrono::steady_clock::now();
        const int file = ::open(command.path, O_RDONLY | O_CLOEXEC);
        const auto end = std::chrono::steady_clock::now();
        time = file < 0 ? 0 : static_cast<std::uint64_t>(std::chrono::nanoseconds(end - start).count());
        if (file >= 0) ::close(file);
      }
      if (::write(output, times, sizeof(times)) != static_cast<ssize_t>(sizeof(times))) break;
    }
    ::_exit(0);
  }

  pid_t process = -1;
  int input = -1;   // for results
  int output = -1;  // for commands
};

}  // namespace fenlux::bench
