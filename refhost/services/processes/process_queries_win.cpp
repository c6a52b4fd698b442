// Process queries on Windows. The list of processes is a snapshot of the system; everything else is queried per process
// with the least access that suffices, so that a host without privileges can query other users' processes too.
#include "refhost/services/processes/process_queries.h"

#include <windows.h>
// Need windows.h before them.
#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

#include "refhost/base/platform/handle_win.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kMaxCommandLine = 4096;
constexpr std::size_t kMaxPathLength = 32768;

// Opens a running process by its exact id: the system ignores the two lowest bits of an id. A process that has ended
// exists as long as a handle to it is open; it counts as not running.
Handle OpenRunning(std::uint32_t processId, DWORD access) {
  Handle process(::OpenProcess(access | SYNCHRONIZE, FALSE, processId));
  if (!process.Valid()) return process;
  const bool runs =
      ::GetProcessId(process.Get()) == processId && ::WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT;
  if (!runs) {
    process.Reset();
    ::SetLastError(ERROR_INVALID_PARAMETER);  // as for an id that does not exist
  }
  return process;
}

void ForEachProcess(const std::function<void(const PROCESSENTRY32W&)>& visit) {
  const Handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot.Valid()) return;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = ::Process32FirstW(snapshot.Get(), &entry); more; more = ::Process32NextW(snapshot.Get(), &entry)) {
    visit(entry);
  }
}

bool SameText(std::wstring_view left, std::wstring_view right) {
  return ::CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

// Truncates between characters.
std::string TruncatedLine(std::string line) {
  if (line.size() <= kMaxCommandLine) return line;
  std::size_t length = kMaxCommandLine;
  while (length > 0 && (static_cast<unsigned char>(line[length]) & 0xC0) == 0x80) --length;
  line.resize(length);
  return line;
}

template <typename Value>
std::optional<Value> ReadValue(HANDLE process, const void* address) {
  Value value{};
  SIZE_T count = 0;
  const bool read = ::ReadProcessMemory(process, address, &value, sizeof(value), &count) && count == sizeof(value);
  return read ? std::optional<Value>(value) : std::nullopt;
}

using QueryProcess = NTSTATUS(NTAPI*)(HANDLE, PROCESSINFOCLASS, PVOID, ULONG, PULONG);

// Looked up by name, as its documentation recommends.
QueryProcess FindQueryProcess() {
  const HMODULE library = ::GetModuleHandleW(L"ntdll.dll");
  const FARPROC found = library == nullptr ? nullptr : ::GetProcAddress(library, "NtQueryInformationProcess");
  return reinterpret_cast<QueryProcess>(reinterpret_cast<void*>(found));
}

// Reads the command line from the process's own parameters.
std::wstring ReadCommandLine(HANDLE process) {
  static const QueryProcess query = FindQueryProcess();
  PROCESS_BASIC_INFORMATION basic{};
  if (query == nullptr || query(process, ProcessBasicInformation, &basic, sizeof(basic), nullptr) < 0) return {};
  const auto* const block = reinterpret_cast<const std::byte*>(basic.PebBaseAddress);
  if (block == nullptr) return {};
  const auto parameters = ReadValue<const std::byte*>(process, block + offsetof(PEB, ProcessParameters));
  if (!parameters || *parameters == nullptr) return {};
  const auto line =
      ReadValue<UNICODE_STRING>(process, *parameters + offsetof(RTL_USER_PROCESS_PARAMETERS, CommandLine));
  if (!line) return {};
  std::wstring text(line->Length / sizeof(wchar_t), L'\0');
  SIZE_T count = 0;
  if (!::ReadProcessMemory(process, line->Buffer, text.data(), line->Length, &count)) return {};
  text.resize(count / sizeof(wchar_t));
  return text;
}

std::wstring DirectoryOf(UINT(WINAPI* ask)(LPWSTR, UINT)) {
  std::wstring path(MAX_PATH, L'\0');
  const UINT length = ask(path.data(), static_cast<UINT>(path.size()));
  if (length > path.size()) {
    path.resize(length);
    path.resize(ask(path.data(), length));
  } else {
    path.resize(length);
  }
  return path;
}

}  // namespace

bool ProcessRuns(std::uint32_t processId) {
  if (processId == 0) return true;  // the system's idle process, which cannot be opened
  if (OpenRunning(processId, PROCESS_QUERY_LIMITED_INFORMATION).Valid()) return true;
  if (::GetLastError() != ERROR_ACCESS_DENIED) return false;
  // A process exists that may not be queried, but its id may differ in the two lowest bits.
  return RunningProcesses().contains(processId);
}

std::uint32_t ProcessSession(std::uint32_t processId) {
  // Session 0 is the system's session: services run in it, and no user logs in to it.
  DWORD session = 0;
  return ::ProcessIdToSessionId(processId, &session) ? session : 0;
}

std::wstring ProcessImagePath(std::uint32_t processId) {
  const Handle process = OpenRunning(processId, PROCESS_QUERY_LIMITED_INFORMATION);
  if (!process.Valid()) return {};
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    auto length = static_cast<DWORD>(path.size());
    if (::QueryFullProcessImageNameW(process.Get(), 0, path.data(), &length)) {
      path.resize(length);
      return path;
    }
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER || path.size() >= kMaxPathLength) return {};
    path.resize(kMaxPathLength);
  }
}

std::string ProcessCommandLine(std::uint32_t processId) {
  const Handle process = OpenRunning(processId, PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_VM_READ);
  if (!process.Valid()) return {};
  return TruncatedLine(NarrowFromWide(ReadCommandLine(process.Get())));
}

std::set<std::uint64_t> RunningProcesses() {
  std::set<std::uint64_t> processes;
  ForEachProcess([&](const PROCESSENTRY32W& entry) { processes.insert(entry.th32ProcessID); });
  return processes;
}

std::vector<std::uint32_t> ProcessesOfImage(const boost::filesystem::path& image) {
  std::vector<std::uint32_t> found;
  boost::system::error_code error;
  const boost::filesystem::path real = boost::filesystem::canonical(image, error).make_preferred();
  if (error) return found;
  const std::wstring name = real.filename().native();
  ForEachProcess([&](const PROCESSENTRY32W& entry) {
    // The snapshot has only file names. Comparing those first avoids opening most processes.
    if (SameText(entry.szExeFile, name) && SameText(ProcessImagePath(entry.th32ProcessID), real.native())) {
      found.push_back(entry.th32ProcessID);
    }
  });
  std::ranges::sort(found);
  return found;
}

boost::filesystem::path SystemImagePath(const std::string& imageName) {
  return boost::filesystem::path(DirectoryOf(&::GetSystemWindowsDirectoryW)) / WideFromNarrow(imageName);
}

}  // namespace fenlux::refhost
