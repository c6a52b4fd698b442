// Each program has its own console, so that a key reaches no other program, and its own output files.
#include "tests/windows/host_program.h"

#include <boost/filesystem/operations.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace fenlux::testing {
namespace {

namespace fs = boost::filesystem;

std::wstring Wide(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  wide.resize(static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                             wide.data(), static_cast<int>(wide.size()))));
  return wide;
}

// The tests' arguments contain no quotes and do not end with a backslash.
std::wstring Quoted(const std::wstring& argument) { return L"\"" + argument + L"\""; }

HANDLE OutputFile(const fs::path& path) {
  SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
  return ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, &inherited, CREATE_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

// This process's environment with additional entries.
std::wstring EnvironmentWith(const std::vector<std::wstring>& additional) {
  std::wstring block;
  wchar_t* const own = ::GetEnvironmentStringsW();
  for (const wchar_t* at = own; *at != L'\0'; at += std::wcslen(at) + 1) block.append(at).push_back(L'\0');
  ::FreeEnvironmentStringsW(own);
  for (const std::wstring& entry : additional) block.append(entry).push_back(L'\0');
  block.push_back(L'\0');
  return block;
}

// Ignores key events, so that they do not end this process.
BOOL WINAPI IgnoreKeys(DWORD /*event*/) { return TRUE; }

// Does what the system does when a key is pressed: starts a thread in the program that calls its handlers. Wine does
// not do it for Ctrl+Break.
bool StartKeyThread(HANDLE process, DWORD event) {
  // System libraries have the same address in every process.
  const FARPROC routine = ::GetProcAddress(::GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine");
  if (routine == nullptr) return false;
  const HANDLE thread = ::CreateRemoteThread(process, nullptr, 0,
                                             reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine)),
                                             reinterpret_cast<void*>(static_cast<std::uintptr_t>(event)), 0, nullptr);
  if (thread == nullptr) return false;
  ::CloseHandle(thread);
  return true;
}

}  // namespace

std::string FileText(const fs::path& path) {
  std::ifstream stream(std::filesystem::path(path.native()), std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  std::erase(text, '\r');
  return text;
}

fs::path ProgramDirectory() {
  std::wstring path(MAX_PATH, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
  return fs::path(path).parent_path();
}

HostSetup::HostSetup()
    : path(fs::temp_directory_path() / (L"fenlux-setup-\u00E4\u00DF-" + fs::unique_path("%%%%%%%%").native())) {
  fs::create_directory(path);
}

HostSetup::~HostSetup() {
  boost::system::error_code ignored;
  fs::remove_all(path, ignored);
}

fs::path HostSetup::Write(const std::string& name, const std::string& text) const {
  const fs::path file = path / name;
  std::ofstream(std::filesystem::path(file.native()), std::ios::binary) << text;
  return file;
}

std::string HostSetup::Pipe() const {
  const std::wstring name = path.filename().native();
  return "\\\\.\\pipe\\fenlux-setup-" + std::string(name.end() - 8, name.end());
}

HiddenConsole::HiddenConsole() {
  if (!::CreatePipe(&pipes[0], &pipes[1], nullptr, 0) || !::CreatePipe(&pipes[2], &pipes[3], nullptr, 0) ||
      FAILED(::CreatePseudoConsole(COORD{80, 25}, pipes[0], pipes[3], 0, &console))) {
    throw std::runtime_error("cannot create a console");
  }
}

HiddenConsole::~HiddenConsole() {
  ::CloseHandle(pipes[2]);  // nothing reads the console's output
  ::ClosePseudoConsole(console);
  for (const HANDLE pipe : {pipes[0], pipes[1], pipes[3]}) ::CloseHandle(pipe);
}

HostProgram::HostProgram(const HostSetup& setup, const std::vector<std::string>& arguments,
                         const std::vector<std::wstring>& environment)
    : out(setup.Path() / fs::unique_path("out-%%%%%%")), err(setup.Path() / fs::unique_path("err-%%%%%%")) {
  std::wstring line = Quoted((ProgramDirectory() / "fenlux-host.exe").native());
  for (const std::string& argument : arguments) line += L" " + Quoted(Wide(argument));
  std::wstring block = EnvironmentWith(environment);
  SIZE_T size = 0;
  ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  std::vector<std::uint8_t> attributes(size);
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof(startup);
  startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributes.data());
  ::InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size);
  ::UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_PSEUDOCONSOLE, console.Get(),
                              sizeof(HPCON), nullptr, nullptr);
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdOutput = OutputFile(out);
  startup.StartupInfo.hStdError = OutputFile(err);
  PROCESS_INFORMATION information{};
  const BOOL made = ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                                     EXTENDED_STARTUPINFO_PRESENT | CREATE_UNICODE_ENVIRONMENT, block.data(),
                                     setup.Path().c_str(), &startup.StartupInfo, &information);
  ::DeleteProcThreadAttributeList(startup.lpAttributeList);
  ::CloseHandle(startup.StartupInfo.hStdOutput);
  ::CloseHandle(startup.StartupInfo.hStdError);
  if (!made) throw std::runtime_error("cannot run fenlux-host.exe");
  ::CloseHandle(information.hThread);
  process = information.hProcess;
  id = information.dwProcessId;
}

HostProgram::~HostProgram() {
  if (Running()) {
    ::TerminateProcess(process, 99);
    ::WaitForSingleObject(process, INFINITE);
  }
  ::CloseHandle(process);
}

bool HostProgram::Running() const { return ::WaitForSingleObject(process, 0) == WAIT_TIMEOUT; }

bool HostProgram::AwaitLog(const std::string& text) const {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  for (;;) {
    const bool running = Running();  // checked before reading, so that the last output is seen
    if (FileText(err).find(text) != std::string::npos) return true;
    if (!running || std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

bool HostProgram::Press(DWORD event) const {
  // The event goes to all programs of the caller's console. Attach to the program's console and ignore the event here.
  ::FreeConsole();
  if (!::AttachConsole(id)) return false;
  ::SetConsoleCtrlHandler(&IgnoreKeys, TRUE);
  const bool pressed =
      ::GenerateConsoleCtrlEvent(event, 0) || (event == CTRL_BREAK_EVENT && StartKeyThread(process, event));
  if (pressed) ::WaitForSingleObject(process, 60000);  // only then has it certainly arrived
  ::FreeConsole();
  ::SetConsoleCtrlHandler(&IgnoreKeys, FALSE);
  return pressed;
}

ProgramOutcome HostProgram::End() {
  ProgramOutcome outcome;
  const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(kTimeout).count();
  if (::WaitForSingleObject(process, static_cast<DWORD>(limit)) == WAIT_OBJECT_0) {
    DWORD code = 0;
    ::GetExitCodeProcess(process, &code);
    outcome.code = static_cast<int>(code);
  }
  outcome.out = FileText(out);
  outcome.err = FileText(err);
  return outcome;
}

}  // namespace fenlux::testing
