// fenlux-host.exe as an operator runs it: it loads the module by name, serves it, and is controlled and stopped. Its
// files are in a directory whose name is not ASCII.
#include "tests/windows/host_program.h"

#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, which it needs.
#include <tlhelp32.h>

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <map>
#include <regex>

namespace fenlux::testing {
namespace {

// A text as the program shows it: with every backslash doubled.
std::string Shown(const std::string& text) { return boost::algorithm::replace_all_copy(text, "\\", "\\\\"); }

std::string Utf8(const boost::filesystem::path& path) {
  const std::wstring& wide = path.native();
  std::string text(wide.size() * 3, '\0');
  text.resize(
      static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()),
                                                     text.data(), static_cast<int>(text.size()), nullptr, nullptr)));
  return text;
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string ConfigText(const HostSetup& setup, const std::string& text) {
  return "stop_timeout_ms = 60000\n" + text + "\n[control]\nsocket = '" + setup.Pipe() + "'\n";
}

ProgramOutcome Control(const HostSetup& setup, const std::vector<std::string>& operation) {
  std::vector<std::string> arguments{"ctl", "--socket", setup.Pipe()};
  arguments.insert(arguments.end(), operation.begin(), operation.end());
  return RunHostProgram(setup, arguments);
}

TEST(HostProgram, RunsTheScriptedExample) {
  const HostSetup setup;
  const ProgramOutcome outcome =
      RunHostProgram(setup, {"run", "--config", FENLUX_EXAMPLES "/scripted.toml", "--socket", setup.Pipe()});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 yes\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  adds_up               yes\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "protocol_violations  0\n")) << outcome.out;
  // The number depends on what the system has started so far; RegistersTheSystemProcesses checks it exactly.
  EXPECT_TRUE(Contains(outcome.out, "  system_processes    ")) << outcome.out;
  EXPECT_FALSE(Contains(outcome.out, "  system_processes    0\n")) << outcome.out;
  EXPECT_FALSE(Contains(outcome.out, "  delivered             0\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.err, "[Add Monitor OK!][obj path]=")) << outcome.err;
}

// Processes with an image in the system directory that this user may query.
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
    return std::ranges::any_of(sessions, [](const auto& session) { return session.second == 0; });
  }

  std::wstring path;
  std::map<DWORD, DWORD> sessions;  // by process id
};

// The process id that the driver has for a kind of system process; 0 if it has none.
DWORD RegisteredProcess(const std::string& driver, int kind) {
  const std::regex pattern(R"("system_processes":\{[^}]*")" + std::to_string(kind) + R"(":(\d+))");
  std::smatch found;
  return std::regex_search(driver, found, pattern) ? static_cast<DWORD>(std::stoul(found[1])) : 0;
}

TEST(HostProgram, RegistersTheSystemProcesses) {
  const SystemProcesses before(L"services.exe");
  if (before.sessions.empty()) GTEST_SKIP() << "this user can query no service controller";
  const int registrations = SystemProcesses(L"csrss.exe").AnyInSession0() ? 2 : 1;
  const HostSetup setup;
  // The measurement line of the notification shows that the registrations before it are complete.
  setup.Write("scenario.toml", "name = 'registrations'\nsteps = [{ await_request = 20, times = " +
                                   std::to_string(registrations) + " }, { notify = 4098 }]\n");
  std::string settings = "[emulator]\nscenario = 'scenario.toml'\n[module]\nmeasure = true\n";
  // The module looks only in session 0, the system's session. Wine has a single session; there the configuration
  // declares that the image belongs to a system process.
  if (!before.AnyInSession0()) settings += "[system_images]\n'system32\\services.exe' = '" + Utf8(before.path) + "'\n";
  const auto config = setup.Write("host.toml", ConfigText(setup, settings + "[log]\nconsole = 'detail'\n"));
  HostProgram host(setup, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("[PFM final]="));
  const ProgramOutcome driver = Control(setup, {"--json", "driver"});
  EXPECT_EQ(driver.code, 0) << driver.err;
  EXPECT_TRUE(Contains(driver.out, "\"20\":" + std::to_string(registrations))) << driver.out;
  const DWORD controller = RegisteredProcess(driver.out, 3);
  const SystemProcesses after(L"services.exe");  // Wine briefly runs two of them
  EXPECT_TRUE(before.sessions.contains(controller) || after.sessions.contains(controller)) << driver.out;
  EXPECT_EQ(RegisteredProcess(driver.out, 2) != 0, registrations == 2) << driver.out;
}

TEST(HostProgram, AcceptsOperationsThroughItsPipe) {
  const HostSetup setup;
  const auto config = setup.Write("host.toml", ConfigText(setup, "[policy]\ndirectories = ['.']\n"));
  HostProgram host(setup, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("[Add Monitor OK!][obj path]="));
  const ProgramOutcome status = Control(setup, {"status"});
  EXPECT_EQ(status.code, 0) << status.err;
  EXPECT_TRUE(Contains(status.out, "ready                  yes\n")) << status.out;
  EXPECT_TRUE(Contains(status.out, Shown(Utf8(config)))) << status.out;
  EXPECT_TRUE(Contains(status.out, Shown(Utf8(ProgramDirectory() / "fenlux.dll")))) << status.out;

  const ProgramOutcome version = Control(setup, {"--json", "version"});
  EXPECT_EQ(version.out, "{\"driver_version\":19072701}\n") << version.err;
  const ProgramOutcome refused = Control(setup, {"grsp", "2"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.err, "");

  // Adds a directory to the policy while the host runs, by its absolute path with a drive letter.
  boost::filesystem::create_directory(setup.Path() / "further");
  setup.Write("host.toml",
              ConfigText(setup, "[policy]\ndirectories = ['.', '" + Utf8(setup.Path() / "further") + "']\n"));
  EXPECT_EQ(Control(setup, {"reload"}).code, 0);
  EXPECT_TRUE(host.AwaitLog("[Add Monitor OK!][obj path]=" + Shown(Utf8(setup.Path() / "further"))));
  setup.Write("host.toml", ConfigText(setup, "[policy]\ndirectories = 5\n"));
  const ProgramOutcome bad = Control(setup, {"reload"});
  EXPECT_EQ(bad.code, 1);
  EXPECT_TRUE(Contains(bad.err, "host.toml:3:15: policy.directories: ")) << bad.err;
  EXPECT_TRUE(Contains(Control(setup, {"summary"}).out, "adds_up"));

  ASSERT_TRUE(host.PressCtrlC());
  const ProgramOutcome outcome = host.End();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 yes\n")) << outcome.out;
  const ProgramOutcome gone = Control(setup, {"status"});
  EXPECT_EQ(gone.code, 3);
  EXPECT_TRUE(Contains(gone.err, "fenlux-host: no host reachable on the control pipe ")) << gone.err;
}

TEST(HostProgram, CtrlBreakStopsTheHost) {
  const HostSetup setup;
  const auto config = setup.Write("host.toml", ConfigText(setup, ""));
  HostProgram host(setup, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("Driver Interact Ready."));
  ASSERT_TRUE(host.PressCtrlBreak());
  const ProgramOutcome outcome = host.End();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 yes\n")) << outcome.out;
}

TEST(HostProgram, RefusesThePipeOfAnotherHost) {
  const HostSetup setup;
  const auto config = setup.Write("host.toml", ConfigText(setup, ""));
  HostProgram host(setup, {"run", "--config", Utf8(config)});
  ASSERT_TRUE(host.AwaitLog("Driver Interact Ready."));
  const ProgramOutcome second = RunHostProgram(setup, {"run", "--config", Utf8(config), "--duration", "5"});
  EXPECT_EQ(second.code, 2);
  EXPECT_TRUE(Contains(second.err, "another host is listening on the control pipe " + Shown(setup.Pipe())))
      << second.err;
  EXPECT_TRUE(host.Running());
}

TEST(HostProgram, ChecksFilesAndReportsEveryError) {
  const HostSetup setup;
  const auto good = setup.Write("good-\u00E4.toml", "[log]\nconsole = 'off'\n");
  const ProgramOutcome fine = RunHostProgram(setup, {"check", Utf8(good)});
  EXPECT_EQ(fine.code, 0) << fine.err;
  EXPECT_EQ(fine.out, Shown(Utf8(good)) + ": no errors\n");
  const auto bad = setup.Write("bad.toml", "[log]\nconsole = 'loud'\n[module]\nport_value = -1\nx = 1\n");
  const ProgramOutcome outcome = RunHostProgram(setup, {"check", Utf8(bad)});
  EXPECT_EQ(outcome.code, 2);
  for (const char* place : {":2:11: log.console: ", ":4:14: module.port_value: ", ":5:1: module.x: "}) {
    EXPECT_TRUE(Contains(outcome.err, Shown(Utf8(bad)) + place)) << outcome.err;
  }
  EXPECT_EQ(RunHostProgram(setup, {"check", "nothing.toml"}).code, 2);
  EXPECT_EQ(RunHostProgram(setup, {"check"}).code, 2);
  EXPECT_EQ(RunHostProgram(setup, {}).code, 2);
}

TEST(HostProgram, HelpNamesTheKeysThatStopAHost) {
  const HostSetup setup;
  const ProgramOutcome help = RunHostProgram(setup, {"run", "--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_TRUE(Contains(help.out, "Ctrl+C and Ctrl+Break stop the host")) << help.out;
}

TEST(HostProgram, RefusesKernelEventsBecauseWindowsHasNone) {
  const HostSetup setup;
  const auto config = setup.Write("host.toml", ConfigText(setup, "[emulator]\nsource = 'fanotify'\n"));
  const ProgramOutcome outcome = RunHostProgram(setup, {"run", "--config", Utf8(config)});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "kernel events need fanotify, which this system does not have")) << outcome.err;
}

TEST(HostProgram, SaysWhyAModuleIsUnusable) {
  const HostSetup setup;
  const auto config = setup.Write("host.toml", ConfigText(setup, ""));
  const ProgramOutcome missing = RunHostProgram(
      setup, {"run", "--config", Utf8(config), "--module", Utf8(setup.Path() / "no-such.dll"), "--duration", "5"});
  EXPECT_EQ(missing.code, 3);
  EXPECT_TRUE(Contains(missing.err, "cannot load the module " + Shown(Utf8(setup.Path() / "no-such.dll")) + ": "))
      << missing.err;
  const auto text = setup.Write("text.dll", "this is text\n");
  EXPECT_EQ(RunHostProgram(setup, {"run", "--config", Utf8(config), "--module", Utf8(text), "--duration", "5"}).code,
            3);
  const ProgramOutcome other =
      RunHostProgram(setup, {"run", "--config", Utf8(config), "--module",
                             Utf8(ProgramDirectory() / "libwinpthread-1.dll"), "--duration", "5"});
  EXPECT_EQ(other.code, 3);
  EXPECT_TRUE(Contains(other.err, "libwinpthread-1.dll has no init")) << other.err;
}

TEST(HostProgram, ExitsWithFourAfterAProtocolViolation) {
  const HostSetup setup;
  setup.Write(
      "scenario.toml",
      "name = 'wrong'\nsteps = [{ await_request = 13 }, { notify = 4098, path = 'C:\\x', expect_verdict = 5 }]\n");
  const auto config =
      setup.Write("host.toml", ConfigText(setup, "stop_at_end = true\n[emulator]\nscenario = 'scenario.toml'\n"));
  const ProgramOutcome outcome = RunHostProgram(setup, {"run", "--config", Utf8(config)});
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "\nfine                 no\n")) << outcome.out;
}

TEST(HostProgram, WritesItsLogFileWhereConfigured) {
  const HostSetup setup;
  setup.Write("scenario.toml", "name = 'short'\nsteps = [{ await_request = 13 }]\n");
  const auto config =
      setup.Write("host.toml", ConfigText(setup,
                                          "stop_at_end = true\n[emulator]\nscenario = 'scenario.toml'\n"
                                          "[log]\nconsole = 'off'\nfile = '${FENLUX_LOG_DIRECTORY}/log-\u00FC.txt'\n"));
  const ProgramOutcome outcome =
      RunHostProgram(setup, {"run", "--config", Utf8(config)}, {L"FENLUX_LOG_DIRECTORY=" + setup.Path().native()});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_FALSE(Contains(outcome.err, "Driver Interact Ready.")) << outcome.err;
  const std::string log = FileText(setup.Path() / L"log-\u00FC.txt");
  const std::regex line(R"((^|\n)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} event   Driver Interact Ready\.\n)");
  EXPECT_TRUE(std::regex_search(log, line)) << log;
}

TEST(HostProgram, ServesADriverThroughTheFilterManagersFunctions) {
  const HostSetup setup;
  const auto config = setup.Write(
      "host.toml", ConfigText(setup, "[driver]\nport = 'filter-manager'\nfilter_library = '" +
                                         Utf8(ProgramDirectory() / "fenlux-filter-stand-in.dll") + "'\nthreads = 2\n"));
  HostProgram host(setup, {"run", "--config", Utf8(config)}, {L"FENLUX_STAND_IN_MESSAGES=500"});
  // The stand-in delivers its messages and closes the connection.
  ASSERT_TRUE(host.AwaitLog("[driver port] Connection ended: ")) << host.End().err;
  // The last reply is counted after it was sent, and another thread asks for the version.
  const auto counted = [&setup] {
    const std::string summary = Control(setup, {"--json", "summary"}).out;
    return Contains(summary, "\"answered\":500") && Contains(summary, "\"driver_version\":19072701");
  };
  bool complete = counted();
  for (const auto begin = std::chrono::steady_clock::now(); !complete; complete = counted()) {
    ASSERT_LT(std::chrono::steady_clock::now() - begin, kTimeout) << host.End().err;
  }
  ASSERT_TRUE(host.PressCtrlC());
  const ProgramOutcome outcome = host.End();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "  received          500\n  answered          500\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  answered_instead  0\n  late              0\n  lost              0\n"))
      << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  2  500\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  driver_version         19072701\n")) << outcome.out;
}

TEST(HostProgram, DrivesADriverThroughTheFilterManagersFunctions) {
  const HostSetup setup;
  const auto config =
      setup.Write("host.toml", "[driver]\nport = 'filter-manager'\nfilter_library = '" +
                                   Utf8(ProgramDirectory() / "fenlux-filter-stand-in.dll") + "'\nthreads = 2\n");
  const std::vector<std::string> arguments{"drive",   "--config", Utf8(config), "--duration", "1s",
                                           "--limit", "60s",      "--timeout",  "60s"};
  const ProgramOutcome clean = RunHostProgram(setup, arguments);
  EXPECT_EQ(clean.code, 0) << clean.out << clean.err;
  EXPECT_TRUE(Contains(clean.out, "  ok        reconnect  ")) << clean.out;
  EXPECT_TRUE(Contains(clean.out, "\nclean\n")) << clean.out;
  // The stand-in delivers its messages and closes the connection.
  const ProgramOutcome dropped = RunHostProgram(setup, arguments, {L"FENLUX_STAND_IN_MESSAGES=3"});
  EXPECT_EQ(dropped.code, 4) << dropped.out << dropped.err;
  EXPECT_TRUE(Contains(dropped.out, "\nWRONG connection: connection: ended by the driver\n")) << dropped.out;
  EXPECT_TRUE(Contains(dropped.out, "  ok        notification-code ")) << dropped.out;
}

TEST(HostProgram, ReplaysTheScriptedExampleAsItWasRecorded) {
  const HostSetup setup;
  const std::string capture = Utf8(setup.Path() / L"port-\u00FC.pcapng");
  const ProgramOutcome recorded = RunHostProgram(
      setup, {"run", "--config", FENLUX_EXAMPLES "/scripted.toml", "--socket", setup.Pipe(), "--record", capture});
  ASSERT_EQ(recorded.code, 0) << recorded.err;
  const ProgramOutcome outcome = RunHostProgram(setup, {"replay", "--json", capture});
  EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "{\"replay\":{\"identical\":true,\"connections\":2,")) << outcome.out;
}

TEST(HostProgram, ReplaysACaptureOfALinuxHost) {
  const HostSetup setup;
  const ProgramOutcome outcome = RunHostProgram(setup, {"replay", "--json", FENLUX_GOLDEN_RUN});
  EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "{\"replay\":{\"identical\":true,\"connections\":1,\"requests\":8,"))
      << outcome.out;
  const auto page = setup.Path() / L"page-\u00FC.html";
  EXPECT_EQ(RunHostProgram(setup, {"report", FENLUX_GOLDEN_RUN, "--html", Utf8(page)}).code, 0);
  EXPECT_TRUE(Contains(FileText(page), "id=\"notifications\">26<"));
}

TEST(HostProgram, SaysThatTheFilterManagersLibraryIsMissing) {
  const HostSetup setup;
  const auto config =
      setup.Write("host.toml", ConfigText(setup, "[driver]\nport = 'filter-manager'\nfilter_library = 'none.dll'\n"));
  const ProgramOutcome outcome = RunHostProgram(setup, {"run", "--config", Utf8(config)});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "none.dll cannot be loaded: ")) << outcome.err;
}

TEST(HostProgram, ChecksTheDriversSettings) {
  const HostSetup setup;
  const auto config = setup.Write(
      "host.toml", "[driver]\nport = 'filter-manager'\nthreads = 4\nbuffers = 2\n[emulator]\nsource = 'scripted'\n");
  const ProgramOutcome outcome = RunHostProgram(setup, {"check", Utf8(config)});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, ":4:11: driver.buffers: must be at least threads, which is 4\n")) << outcome.err;
  EXPECT_TRUE(Contains(outcome.err, ":5:1: emulator: requires [driver] port = \"emulator\"\n")) << outcome.err;
  const auto other = setup.Write("other.toml", "[driver]\nfilter_library = 'x.dll'\n");
  EXPECT_TRUE(Contains(RunHostProgram(setup, {"check", Utf8(other)}).err,
                       ":2:18: driver.filter_library: requires port = \"filter-manager\"\n"));
}

}  // namespace
}  // namespace fenlux::testing
