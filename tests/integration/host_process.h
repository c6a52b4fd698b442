// Runs fenlux-host and other programs as child processes, with their output in files of a temporary directory.
#pragma once

#include <sys/types.h>

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace fenlux::testing {

// The time limit of every wait: several times what the slowest test needs with a sanitizer on a busy machine.
inline constexpr std::chrono::seconds kTimeout{240};

using Arguments = std::vector<std::string>;

// Steps that wait for the last requests of the two threads that open the connection: the system process and the
// configuration block. The host must have kSystemImage.
inline constexpr char kAwaitOpening[] =
    "[[steps]]\nawait_request = 20\nlimit_ms = 240000\n[[steps]]\nawait_request = 24\nlimit_ms = 240000\n";
inline constexpr char kSystemImage[] = "[system_images]\n'system32\\csrss.exe' = '${FENLUX_HOST_PROGRAM}'\n";
inline constexpr char kSecretsRule[] = "[[judging.rules]]\nname = 'secrets'\npath = '*.secret'\ndecision = 3\n";
// A scenario with a refused event (if the host has a rule like kSecretsRule), an allowed one and one without an answer.
// The host must have kSystemImage.
inline const std::string kThreeEvents = std::string(kAwaitOpening) +
                                        "[[steps]]\nnotify = 4098\npath = '/a/x.secret'\nexpect_verdict = 4\n"
                                        "[[steps]]\nnotify = 4099\npath = '/a/plain'\nexpect_verdict = 3\n"
                                        "[[steps]]\nnotify = 4113\nexpect_verdict = 0\n";
// For runs that need no driver.
inline constexpr char kNoConnection[] = "[module]\nenabled = false\n";

// The result of a program that ended.
struct Outcome {
  int code = -1;  // 128 plus the signal's number if a signal ended it
  std::string out;
  std::string err;
};

// The setup of one host: a temporary directory with its files and its control socket. Shares nothing with other tests
// or hosts.
class HostSetup {
 public:
  HostSetup();

  const boost::filesystem::path& Path() const { return directory.Path(); }
  std::string Write(const std::string& name, const std::string& text) const;
  // The content of a file; empty if it cannot be read.
  std::string Read(const std::string& name) const;
  // Sets an environment variable for the programs that this setup runs.
  void SetVariable(const std::string& name, const std::string& value) { variables[name] = value; }
  const std::map<std::string, std::string>& Variables() const { return variables; }
  // Creates a directory and returns its path.
  std::string Directory(const std::string& name) const;
  // Writes host.toml, with a control socket in this directory, and scenario.toml. The first line is a long
  // stop_timeout_ms, for busy machines, unless the text sets one.
  void WriteHost(const std::string& text, const std::string& scenario) const;
  void WriteHost(const std::string& text) const;

  // Runs fenlux-host and waits for it to end.
  Outcome Run(const Arguments& arguments) const;
  // Runs `fenlux-host ctl` against this setup's host.
  Outcome Control(const Arguments& arguments) const;
  // Returns the JSON result of a `ctl` operation. If the operation fails, fails the test and returns an empty text.
  std::string ControlJson(const Arguments& arguments) const;

 private:
  const TemporaryDirectory directory;
  std::map<std::string, std::string> variables;
};

// A running program. The destructor kills it if it still runs.
class HostProcess {
 public:
  // Runs fenlux-host.
  HostProcess(const HostSetup& setup, const Arguments& arguments);
  // Runs another program, found on PATH.
  HostProcess(const HostSetup& setup, const std::string& program, const Arguments& arguments);
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  pid_t Id() const { return process; }
  void Signal(int signal) const;
  // Waits for the program to end. Kills it on timeout and returns code -1.
  Outcome Wait();
  // Sends SIGTERM and waits.
  Outcome Stop();
  // Waits until the output contains the text `times` times. Returns false on timeout or if the program ends before.
  bool WaitForError(const std::string& text, std::size_t times = 1);
  bool WaitForOutput(const std::string& text, std::size_t times = 1);

  std::string Out() const;
  std::string Err() const;

 private:
  bool WaitFor(const boost::filesystem::path& file, const std::string& text, std::size_t times);
  // Whether the program has ended; if so, `code` is set.
  bool Ended();

  boost::filesystem::path out;
  boost::filesystem::path err;
  pid_t process = -1;
  bool ended = false;
  int code = -1;
};

// The path of fenlux-host.
std::string HostProgram();
// The arguments that run a host with the setup's configuration.
Arguments RunArguments(const HostSetup& setup, const Arguments& more = {});

std::size_t CountOf(const std::string& text, const std::string& part);
bool Contains(const std::string& text, const std::string& part);

// Polls until the condition holds. Returns false on timeout.
template <typename Condition>
bool Eventually(const Condition& condition, std::chrono::seconds timeout = kTimeout);
// Notifies the module of its policy until the condition holds: it misses a notification that arrives while it applies
// the policy.
template <typename Condition>
bool NotifyPolicyUntil(const HostSetup& setup, const Condition& condition);

// The value at a dotted path of a JSON object ("driver_was_told.monitored_type2"), as text; "(none)" if absent.
// Elements of arrays have numbers from 0.
std::string JsonValue(const std::string& json, const std::string& path);

}  // namespace fenlux::testing

#include <thread>

template <typename Condition>
bool fenlux::testing::Eventually(const Condition& condition, std::chrono::seconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

template <typename Condition>
bool fenlux::testing::NotifyPolicyUntil(const HostSetup& setup, const Condition& condition) {
  for (int attempt = 0; attempt < 12; ++attempt) {
    if (setup.Control({"policy-changed"}).code != 0) return false;
    if (Eventually(condition, kTimeout / 12)) return true;
  }
  return false;
}
