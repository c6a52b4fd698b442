// The program fenlux-host.exe as an operator runs it: it loads the module by name, serves it, is controlled and
// stopped. Its files lie in a directory whose name is not ASCII.
#include "tests/windows/host_program.h"

#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, which it needs.
#include <tlhelp32.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <regex>

namespace fenlux::testing {
namespace {

std::string Utf8(const boost::filesystem::path& path) {
  const std::wstring& wide = path.native();
  std::string text(wide.size() * 3, '\0');
  text.resize(
      static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()),
                                                     text.data(), static_cast<int>(text.size()), nullptr, nullptr)));
  return text;
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string ConfigText(const Room& room, const std::string& more) {
  return more + "\n[control]\nsocket = '" + room.Pipe() + "'\n";
}

ProgramOutcome Control(const Room& room, std::vector<std::string> words) {
  std::vector<std::string> arguments{"ctl", "--socket", room.Pipe()};
  arguments.insert(arguments.end(), words.begin(), words.end());
  return RunHostProgram(room, arguments);
}

TEST(HostProgram, RunsTheScriptedExampleToASummaryThatAddsUp) {
  const Room room;
  const ProgramOutcome outcome = RunHostProgram(room, {"run", "--config", FENLUX_EXAMPLES "/scripted.toml"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 yes\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  adds_up               yes\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "protocol_violations  0\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  system_processes    2\n")) << outcome.out;
  EXPECT_FALSE(Contains(outcome.out, "  delivered             0\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.err, "[Add Monitor OK!][obj path]=")) << outcome.err;
}

// Processes whose image lies in the system's directory and that this user may look at.
struct SystemProcesses {
  explicit SystemProcesses(const std::wstring& name) {
    std::wstring image(MAX_PATH, L'\0');
    image.resize(::GetSystemDirectoryW(image.data(), MAX_PATH));
    image += L"\\" + name;
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = ::Process32FirstW(snapshot, &entry); more; more = ::Process32NextW(snapshot, &entry)) {
      const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, entry.th32ProcessID);
      std::wstring own(MAX_PATH, L'\0');
      DWORD length = MAX_PATH;
      DWORD session = 0;
      if (process != nullptr && ::QueryFullProcessImageNameW(process, 0, own.data(), &length) &&
          ::CompareStringOrdinal(own.data(), static_cast<int>(length), image.data(), static_cast<int>(image.size()),
                                 TRUE) == CSTR_EQUAL &&
          ::ProcessIdToSessionId(entry.th32ProcessID, &session)) {
        path = own.substr(0, length);
        sessions[entry.th32ProcessID] = session;
      }
      ::CloseHandle(process);
    }
    ::CloseHandle(snapshot);
  }
  bool AnyInSession0() const {
    return std::ranges::any_of(sessions, [](const auto& each) { return each.second == 0; });
  }

  std::wstring path;
  std::map<DWORD, DWORD> sessions;  // by process id
};

// The id under which the driver knows a kind of system process; 0 where it was told of none.
DWORD RegisteredProcess(const std::string& driver, int kind) {
  const std::regex pattern(R"("system_processes":\{[^}]*")" + std::to_string(kind) + R"(":(\d+))");
  std::smatch found;
  return std::regex_search(driver, found, pattern) ? static_cast<DWORD>(std::stoul(found[1])) : 0;
}

TEST(HostProgram, RegistersTheSystemsOwnProcessesWhereTheyRun) {
  const SystemProcesses before(L"services.exe");
  if (before.sessions.empty()) GTEST_SKIP() << "no service controller runs here that this user may look at";
  const int told = SystemProcesses(L"csrss.exe").AnyInSession0() ? 2 : 1;
  const Room room;
  // The line of the notification's measurement says that the registrations before it are through.
  room.Write("scenario.toml", "name = 'told'\nsteps = [{ await_request = 20, times = " + std::to_string(told) +
                                  " }, { notify = 4098 }]\n");
  std::string settings = "[emulator]\nscenario = 'scenario.toml'\n[module]\nmeasure = true\n";
  // Session 0 is the system's own, and only there does the module look. Wine has one session for all; there the
  // configuration says that the image is one of the system's.
  if (!before.AnyInSession0()) settings += "[system_images]\n'system32\\services.exe' = '" + Utf8(before.path) + "'\n";
  const auto config = room.Write("host.toml", ConfigText(room, settings + "[log]\nconsole = 'detail'\n"));
  HostProgram host(room, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("[PFM final]="));
  const ProgramOutcome driver = Control(room, {"--json", "driver"});
  EXPECT_EQ(driver.code, 0) << driver.err;
  EXPECT_TRUE(Contains(driver.out, "\"20\":" + std::to_string(told))) << driver.out;
  const DWORD controller = RegisteredProcess(driver.out, 3);
  const SystemProcesses after(L"services.exe");  // Wine runs two of them for a moment
  EXPECT_TRUE(before.sessions.contains(controller) || after.sessions.contains(controller)) << driver.out;
  EXPECT_EQ(RegisteredProcess(driver.out, 2) != 0, told == 2) << driver.out;
}

TEST(HostProgram, IsControlledThroughItsPipe) {
  const Room room;
  const auto config = room.Write("host.toml", ConfigText(room, "[policy]\ndirectories = ['.']\n"));
  HostProgram host(room, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("[Add Monitor OK!][obj path]="));
  const ProgramOutcome status = Control(room, {"status"});
  EXPECT_EQ(status.code, 0) << status.err;
  EXPECT_TRUE(Contains(status.out, "ready                  yes\n")) << status.out;
  EXPECT_TRUE(Contains(status.out, Utf8(config))) << status.out;
  EXPECT_TRUE(Contains(status.out, Utf8(ProgramDirectory() / "fenlux.dll"))) << status.out;

  const ProgramOutcome version = Control(room, {"--json", "version"});
  EXPECT_EQ(version.out, "{\"driver_version\":19072701}\n") << version.err;
  const ProgramOutcome refused = Control(room, {"grsp", "2"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.err, "");

  // A directory that the policy gets while the host runs, by its whole name with a drive letter.
  boost::filesystem::create_directory(room.Path() / "further");
  room.Write("host.toml", ConfigText(room, "[policy]\ndirectories = ['.', '" + Utf8(room.Path() / "further") + "']\n"));
  EXPECT_EQ(Control(room, {"reload"}).code, 0);
  EXPECT_TRUE(host.AwaitLog("[Add Monitor OK!][obj path]=" + Utf8(room.Path() / "further")));
  room.Write("host.toml", ConfigText(room, "[policy]\ndirectories = 5\n"));
  const ProgramOutcome bad = Control(room, {"reload"});
  EXPECT_EQ(bad.code, 1);
  EXPECT_TRUE(Contains(bad.err, "host.toml:2:15: policy.directories: ")) << bad.err;
  EXPECT_TRUE(Contains(Control(room, {"summary"}).out, "adds_up"));

  ASSERT_TRUE(host.PressCtrlC());
  const ProgramOutcome outcome = host.End();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 yes\n")) << outcome.out;
  const ProgramOutcome gone = Control(room, {"status"});
  EXPECT_EQ(gone.code, 3);
  EXPECT_TRUE(Contains(gone.err, "fenlux-host: no host can be reached on the control pipe ")) << gone.err;
}

TEST(HostProgram, CtrlBreakEndsTheRunAsCtrlCDoes) {
  const Room room;
  const auto config = room.Write("host.toml", ConfigText(room, ""));
  HostProgram host(room, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("Driver Interact Ready."));
  ASSERT_TRUE(host.PressCtrlBreak());
  const ProgramOutcome outcome = host.End();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 yes\n")) << outcome.out;
}

TEST(HostProgram, RefusesAPipeWhereAnotherHostListens) {
  const Room room;
  const auto config = room.Write("host.toml", ConfigText(room, ""));
  HostProgram host(room, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("Driver Interact Ready."));
  const ProgramOutcome second = RunHostProgram(room, {"run", "--config", Utf8(config), "--duration", "5"});
  EXPECT_EQ(second.code, 2);
  EXPECT_TRUE(Contains(second.err, "another host listens on the control pipe " + room.Pipe())) << second.err;
  EXPECT_TRUE(host.Running());
}

TEST(HostProgram, ChecksFilesAndTellsEveryError) {
  const Room room;
  const auto good = room.Write("good-\u00E4.toml", "[log]\nconsole = 'off'\n");
  const ProgramOutcome fine = RunHostProgram(room, {"check", Utf8(good)});
  EXPECT_EQ(fine.code, 0) << fine.err;
  EXPECT_EQ(fine.out, Utf8(good) + ": no errors\n");
  const auto bad = room.Write("bad.toml", "[log]\nconsole = 'loud'\n[module]\nport_value = -1\nx = 1\n");
  const ProgramOutcome outcome = RunHostProgram(room, {"check", Utf8(bad)});
  EXPECT_EQ(outcome.code, 2);
  for (const char* place : {":2:11: log.console: ", ":4:14: module.port_value: ", ":5:1: module.x: "}) {
    EXPECT_TRUE(Contains(outcome.err, Utf8(bad) + place)) << outcome.err;
  }
  EXPECT_EQ(RunHostProgram(room, {"check", "nothing.toml"}).code, 2);
  EXPECT_EQ(RunHostProgram(room, {"check"}).code, 2);
  EXPECT_EQ(RunHostProgram(room, {}).code, 2);
}

TEST(HostProgram, HelpTellsWhatEndsARun) {
  const Room room;
  const ProgramOutcome help = RunHostProgram(room, {"run", "--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_TRUE(Contains(help.out, "Ctrl+C and Ctrl+Break end the run")) << help.out;
}

TEST(HostProgram, RefusesKernelEventsThatThisSystemDoesNotHave) {
  const Room room;
  const auto config = room.Write("host.toml", ConfigText(room, "[emulator]\nsource = 'fanotify'\n"));
  const ProgramOutcome outcome = RunHostProgram(room, {"run", "--config", Utf8(config)});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "kernel events need fanotify, which this system does not have")) << outcome.err;
}

TEST(HostProgram, SaysWhyAModuleCannotBeUsed) {
  const Room room;
  const auto config = room.Write("host.toml", ConfigText(room, ""));
  const ProgramOutcome missing = RunHostProgram(
      room, {"run", "--config", Utf8(config), "--module", Utf8(room.Path() / "no-such.dll"), "--duration", "5"});
  EXPECT_EQ(missing.code, 3);
  EXPECT_TRUE(Contains(missing.err, "the module " + Utf8(room.Path() / "no-such.dll") + " cannot be loaded: "))
      << missing.err;
  const auto text = room.Write("text.dll", "this is text\n");
  EXPECT_EQ(RunHostProgram(room, {"run", "--config", Utf8(config), "--module", Utf8(text), "--duration", "5"}).code, 3);
  const ProgramOutcome other =
      RunHostProgram(room, {"run", "--config", Utf8(config), "--module",
                            Utf8(ProgramDirectory() / "libwinpthread-1.dll"), "--duration", "5"});
  EXPECT_EQ(other.code, 3);
  EXPECT_TRUE(Contains(other.err, "libwinpthread-1.dll has no init")) << other.err;
}

TEST(HostProgram, EndsWithFourWhereTheDriverCountsAViolation) {
  const Room room;
  room.Write(
      "scenario.toml",
      "name = 'wrong'\nsteps = [{ await_request = 13 }, { notify = 4098, path = 'C:\\x', expect_verdict = 5 }]\n");
  const auto config =
      room.Write("host.toml", ConfigText(room, "stop_at_end = true\n[emulator]\nscenario = 'scenario.toml'\n"));
  const ProgramOutcome outcome = RunHostProgram(room, {"run", "--config", Utf8(config)});
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 no\n")) << outcome.out;
}

TEST(HostProgram, WritesItsLogFileWhereItIsTold) {
  const Room room;
  room.Write("scenario.toml", "name = 'short'\nsteps = [{ await_request = 13 }]\n");
  const auto config =
      room.Write("host.toml", ConfigText(room,
                                         "stop_at_end = true\n[emulator]\nscenario = 'scenario.toml'\n"
                                         "[log]\nconsole = 'off'\nfile = '${FENLUX_PLACE}/log-\u00FC.txt'\n"));
  const ProgramOutcome outcome =
      RunHostProgram(room, {"run", "--config", Utf8(config)}, {L"FENLUX_PLACE=" + room.Path().native()});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_FALSE(Contains(outcome.err, "Driver Interact Ready.")) << outcome.err;
  const std::string log = FileText(room.Path() / L"log-\u00FC.txt");
  const std::regex line(R"((^|\n)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} info     Driver Interact Ready\.\n)");
  EXPECT_TRUE(std::regex_search(log, line)) << log;
}

TEST(HostProgram, ServesADriverThroughTheFilterManagersFunctions) {
  const Room room;
  const auto config = room.Write(
      "host.toml", ConfigText(room, "[driver]\nport = 'filter-manager'\nfilter_library = '" +
                                        Utf8(ProgramDirectory() / "fenlux-filter-stand-in.dll") + "'\nthreads = 2\n"));
  HostProgram host(room, {"run", "--config", Utf8(config)}, {L"FENLUX_STAND_IN_MESSAGES=500"});
  // The stand-in delivers its messages and goes away.
  ASSERT_TRUE(host.AwaitLog("[driver port] Connection ended: ")) << host.End().err;
  ASSERT_TRUE(host.PressCtrlC());
  const ProgramOutcome outcome = host.End();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "  received          500\n  answered          500\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  answered_instead  0\n  late              0\n  lost              0\n"))
      << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  2  500\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  driver_version         19072701\n")) << outcome.out;
}

TEST(HostProgram, SaysThatTheFilterManagersLibraryIsMissing) {
  const Room room;
  const auto config =
      room.Write("host.toml", ConfigText(room, "[driver]\nport = 'filter-manager'\nfilter_library = 'none.dll'\n"));
  const ProgramOutcome outcome = RunHostProgram(room, {"run", "--config", Utf8(config)});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "none.dll cannot be loaded: ")) << outcome.err;
}

TEST(HostProgram, ChecksTheDriversSettings) {
  const Room room;
  const auto config = room.Write(
      "host.toml", "[driver]\nport = 'filter-manager'\nthreads = 4\nbuffers = 2\n[emulator]\nsource = 'scripted'\n");
  const ProgramOutcome outcome = RunHostProgram(room, {"check", Utf8(config)});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, ":4:11: driver.buffers: must not be less than threads, which is 4\n"))
      << outcome.err;
  EXPECT_TRUE(Contains(outcome.err, ":5:1: emulator: belongs to [driver] port = \"emulator\"\n")) << outcome.err;
  const auto other = room.Write("other.toml", "[driver]\nfilter_library = 'x.dll'\n");
  EXPECT_TRUE(Contains(RunHostProgram(room, {"check", Utf8(other)}).err,
                       ":2:18: driver.filter_library: belongs to port = \"filter-manager\"\n"));
}

}  // namespace
}  // namespace fenlux::testing
