// fenlux-host.exe in a process of its own, with its outputs in files of a temporary directory.
#pragma once

#include <windows.h>

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace fenlux::testing {

// How long anything that should happen may take; waits end as soon as it has happened.
inline constexpr std::chrono::seconds kPatience{90};

// What came of a program that ended. Line ends are single characters.
struct ProgramOutcome {
  int code = -1;
  std::string out;
  std::string err;
};

// A file's text; line ends are single characters.
std::string FileText(const boost::filesystem::path& path);

// The directory of this program, where all the others lie.
boost::filesystem::path ProgramDirectory();

// A temporary directory with the files that a host needs; removed at the end.
class Room {
 public:
  Room();
  ~Room();
  Room(const Room&) = delete;
  Room& operator=(const Room&) = delete;

  const boost::filesystem::path& Path() const { return path; }
  boost::filesystem::path Write(const std::string& name, const std::string& text) const;
  // A control pipe of this room's own.
  std::string Pipe() const;

 private:
  boost::filesystem::path path;
};

// A console that no window shows, for a program to run in.
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

// A run of fenlux-host in a console of its own; ended by force where a test leaves it running.
class HostProgram {
 public:
  // `arguments` are UTF-8. `environment`: "NAME=value" beside what this process has.
  HostProgram(const Room& room, const std::vector<std::string>& arguments,
              const std::vector<std::wstring>& environment = {});
  ~HostProgram();
  HostProgram(const HostProgram&) = delete;
  HostProgram& operator=(const HostProgram&) = delete;

  DWORD Id() const { return id; }
  bool Running() const;
  // Until the standard error output has the text; false where the program ended before, or it took too long.
  bool AwaitLog(const std::string& text) const;
  // Ctrl+C and Ctrl+Break, as they reach every program of the console.
  bool PressCtrlC() const { return Press(CTRL_C_EVENT); }
  bool PressCtrlBreak() const { return Press(CTRL_BREAK_EVENT); }
  // Waits for the end.
  ProgramOutcome End();

 private:
  bool Press(DWORD event) const;

  boost::filesystem::path out;
  boost::filesystem::path err;
  HiddenConsole console;
  HANDLE process = nullptr;
  DWORD id = 0;
};

inline ProgramOutcome RunHostProgram(const Room& room, const std::vector<std::string>& arguments,
                                     const std::vector<std::wstring>& environment = {}) {
  return HostProgram(room, arguments, environment).End();
}

}  // namespace fenlux::testing
