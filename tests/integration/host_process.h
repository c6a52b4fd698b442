// A program run in a process of its own, with its outputs in files of a temporary directory.
#pragma once

#include <sys/types.h>

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace fenlux::testing {

// How long anything that should happen may take; waits end as soon as it has happened.
inline constexpr std::chrono::seconds kPatience{60};

using Arguments = std::vector<std::string>;

// What came of a program that ended.
struct Outcome {
  int code = -1;  // 128 and the signal's number where a signal ended it
  std::string out;
  std::string err;
};

// A temporary directory with the files that a host needs, and the means to run programs against them.
class Scene {
 public:
  Scene();
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  const boost::filesystem::path& Path() const { return path; }
  std::string Write(const std::string& name, const std::string& text) const;
  // Adds to the environment of the programs that the scene runs.
  void SetVariable(const std::string& name, const std::string& value) { variables[name] = value; }
  const std::map<std::string, std::string>& Variables() const { return variables; }
  // Makes a directory and gives its path.
  std::string Directory(const std::string& name) const;
  // Writes host.toml with a control socket in the scene, and scenario.toml.
  void WriteHost(const std::string& text, const std::string& scenario) const;
  void WriteHost(const std::string& text) const;

  // Runs fenlux-host to its end.
  Outcome Run(const Arguments& arguments) const;
  // Runs `fenlux-host ctl` against the scene's host.
  Outcome Control(const Arguments& arguments) const;
  // The JSON that a `ctl` operation gives; a failed one fails the test and gives an empty text.
  std::string ControlJson(const Arguments& arguments) const;

 private:
  boost::filesystem::path path;
  std::map<std::string, std::string> variables;
};

// A program that runs; ended by force where a test leaves it running.
class HostProcess {
 public:
  // Runs fenlux-host.
  HostProcess(const Scene& scene, const Arguments& arguments);
  // Runs another program, found in the search path.
  HostProcess(const Scene& scene, const std::string& program, const Arguments& arguments);
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  void Signal(int signal) const;
  // Waits for the end; a program that does not end in time is ended by force, with the code -1.
  Outcome Wait();
  // SIGTERM and its end.
  Outcome Stop();
  // Waits until the output holds the text `times` times; false where it did not in time or the program ended before.
  bool WaitForError(const std::string& text, std::size_t times = 1);
  bool WaitForOutput(const std::string& text, std::size_t times = 1);

  std::string Out() const;
  std::string Err() const;

 private:
  bool WaitFor(const boost::filesystem::path& file, const std::string& text, std::size_t times);
  // Whether it has ended, after which its code is known.
  bool Ended();

  boost::filesystem::path out;
  boost::filesystem::path err;
  pid_t process = -1;
  bool ended = false;
  int code = -1;
};

// The host with the scene's configuration.
Arguments RunArguments(const Scene& scene, const Arguments& more = {});

std::size_t CountOf(const std::string& text, const std::string& part);
bool Contains(const std::string& text, const std::string& part);

// Polls until the condition holds; false where it did not in time.
template <typename Condition>
bool Eventually(const Condition& condition);

// The value at a dotted path of a JSON object, as text ("driver_was_told.monitored_type2"); "(none)" where there is
// none.
std::string JsonValue(const std::string& json, const std::string& path);

}  // namespace fenlux::testing

#include <thread>

template <typename Condition>
bool fenlux::testing::Eventually(const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}
