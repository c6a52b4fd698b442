// Runs fenlux-host.exe as a child process, with its output in files of a temporary directory.
#pragma once

#include <windows.h>

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace fenlux::testing {

// The time limit of every wait.
inline constexpr std::chrono::seconds kTimeout{90};

// The result of a program that ended. Lines end with a line feed only.
struct ProgramOutcome {
  int code = -1;
  std::string out;
  std::string err;
};

// A file's text. Lines end with a line feed only.
std::string FileText(const boost::filesystem::path& path);

// The directory of this program, which contains all the others.
boost::filesystem::path ProgramDirectory();

// The setup of one host: a temporary directory with its files, and the name of its control pipe. Shares nothing with
// other hosts.
class HostSetup {
 public:
  HostSetup();
  ~HostSetup();
  HostSetup(const HostSetup&) = delete;
  HostSetup& operator=(const HostSetup&) = delete;

  const boost::filesystem::path& Path() const { return path; }
  boost::filesystem::path Write(const std::string& name, const std::string& text) const;
  // The name of this directory's control pipe.
  std::string Pipe() const;

 private:
  boost::filesystem::path path;
};

// A console without a window, for a program to run in.
class HiddenConsole {
 public:
  HiddenConsole();
  ~HiddenConsole();
  HiddenConsole(const HiddenConsole&) = delete;
  HiddenConsole& operator=(const HiddenConsole&) = delete;

  HPCON Get() const { return console; }

 private:
  HANDLE pipes[4]{};
  HPCON console = nullptr;
};

// A running fenlux-host with its own console. The destructor terminates it if it still runs.
class HostProgram {
 public:
  // `arguments` are UTF-8. `environment` adds "NAME=value" entries to this process's environment.
  HostProgram(const HostSetup& setup, const std::vector<std::string>& arguments,
              const std::vector<std::wstring>& environment = {});
  ~HostProgram();
  HostProgram(const HostProgram&) = delete;
  HostProgram& operator=(const HostProgram&) = delete;

  DWORD Id() const { return id; }
  bool Running() const;
  // Waits until standard error contains the text. Returns false on timeout or if the program ends before.
  bool AwaitLog(const std::string& text) const;
  // Send Ctrl+C or Ctrl+Break to every program of the console.
  bool PressCtrlC() const { return Press(CTRL_C_EVENT); }
  bool PressCtrlBreak() const { return Press(CTRL_BREAK_EVENT); }
  // Waits for the program to end.
  ProgramOutcome End();

 private:
  bool Press(DWORD event) const;

  boost::filesystem::path out;
  boost::filesystem::path err;
  HiddenConsole console;
  HANDLE process = nullptr;
  DWORD id = 0;
};

inline ProgramOutcome RunHostProgram(const HostSetup& setup, const std::vector<std::string>& arguments,
                                     const std::vector<std::wstring>& environment = {}) {
  return HostProgram(setup, arguments, environment).End();
}

}  // namespace fenlux::testing
