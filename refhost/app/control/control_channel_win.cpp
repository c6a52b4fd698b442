// A named pipe that only the host's own user may open, and only on this machine. The host creates the pipe's first
// instance, so it notices if the name is already taken. The operator's end checks who owns the pipe before it sends.
#include "refhost/app/control/control_channel.h"

#include <windows.h>
// After windows.h, which they need.
#include <aclapi.h>
#include <sddl.h>

#include <fmt/format.h>

#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/handle_win.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::wstring_view kPipePrefix = L"\\\\.\\pipe\\";
constexpr DWORD kPipeBuffer = 65536;

// Memory that the system allocates with LocalAlloc.
template <typename Value>
struct LocalFreer {
  void operator()(Value* value) const { ::LocalFree(value); }
};
template <typename Value>
using Local = std::unique_ptr<Value, LocalFreer<Value>>;

std::string NarrowText(const fs::path& path) { return NarrowFromWide(path.native()); }

// The TOKEN_USER block with the security identifier of this process's user.
std::vector<std::uint8_t> OwnUser() {
  HANDLE opened = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened)) {
    throw ControlChannelError("cannot determine the user of this process: " + LastErrorText());
  }
  const Handle token(opened);
  DWORD size = 0;
  ::GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &size);
  std::vector<std::uint8_t> block(size);
  if (!::GetTokenInformation(token.Get(), TokenUser, block.data(), size, &size)) {
    throw ControlChannelError("cannot determine the user of this process: " + LastErrorText());
  }
  return block;
}

PSID UserOf(std::vector<std::uint8_t>& block) { return reinterpret_cast<TOKEN_USER*>(block.data())->User.Sid; }

std::wstring OwnUserText() {
  std::vector<std::uint8_t> user = OwnUser();
  wchar_t* text = nullptr;
  if (!::ConvertSidToStringSidW(UserOf(user), &text)) {
    throw ControlChannelError("cannot determine the user of this process: " + LastErrorText());
  }
  return Local<wchar_t>(text).get();
}

// A security descriptor: owned by the user, and accessible to that user only.
Local<void> OwnerOnly() {
  const std::wstring user = OwnUserText();
  const std::wstring definition = L"O:" + user + L"D:P(A;;GA;;;" + user + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(definition.c_str(), SDDL_REVISION_1, &descriptor,
                                                              nullptr)) {
    throw ControlChannelError("cannot protect the control pipe: " + LastErrorText());
  }
  return Local<void>(descriptor);
}

// The pipe's name with backslashes.
std::wstring PipeName(const fs::path& path) {
  const std::wstring name = fs::path(path).make_preferred().native();
  if (!boost::algorithm::istarts_with(name, kPipePrefix) || name.size() == kPipePrefix.size() ||
      name.find(L'\\', kPipePrefix.size()) != std::wstring::npos || name.size() > 256) {
    throw ControlChannelError("the control channel is a named pipe; " + NarrowText(path) +
                              " must have the form \\\\.\\pipe\\NAME");
  }
  return name;
}

bool IsOwnPipe(HANDLE pipe) {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (::GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  const Local<void> held(descriptor);
  std::vector<std::uint8_t> user = OwnUser();
  return owner != nullptr && ::EqualSid(owner, UserOf(user));
}

Handle NewEvent(bool manualReset) { return Handle(::CreateEventW(nullptr, manualReset, FALSE, nullptr)); }

// Runs one operation on a pipe at a time, with a deadline.
class PipeOperation {
 public:
  // Setting `stopEvent`, which may be null, ends every wait.
  PipeOperation(HANDLE opened, HANDLE stopEvent) : pipe(opened), stop(stopEvent), done(NewEvent(true)) {}

  // Each returns whether it succeeded before the deadline.
  bool Accept(Clock::time_point deadline) {
    Begin();
    const BOOL now = ::ConnectNamedPipe(pipe, &operation);
    const DWORD error = ::GetLastError();
    return now || error == ERROR_PIPE_CONNECTED || (error == ERROR_IO_PENDING && Finish(deadline));
  }
  // Appends what it read to `text`.
  bool Read(std::string& text, Clock::time_point deadline) {
    Begin();
    std::array<char, 4096> chunk{};
    const BOOL now = ::ReadFile(pipe, chunk.data(), static_cast<DWORD>(chunk.size()), nullptr, &operation);
    if (!now && ::GetLastError() != ERROR_IO_PENDING) return false;
    const std::optional<DWORD> count = Finish(deadline);
    if (!count || *count == 0) return false;
    text.append(chunk.data(), *count);
    return true;
  }
  bool Write(std::string_view text, Clock::time_point deadline) {
    while (!text.empty()) {
      Begin();
      const auto part = static_cast<DWORD>(std::min<std::size_t>(text.size(), kPipeBuffer));
      const BOOL now = ::WriteFile(pipe, text.data(), part, nullptr, &operation);
      if (!now && ::GetLastError() != ERROR_IO_PENDING) return false;
      const std::optional<DWORD> count = Finish(deadline);
      if (!count || *count == 0) return false;
      text.remove_prefix(*count);
    }
    return true;
  }

  // Reads one line and strips its end. Returns nothing if the peer did not send a whole line.
  std::optional<std::string> ReadLine(Clock::time_point deadline) {
    std::string line;
    while (line.size() < kMaxControlLine) {
      if (!Read(line, deadline)) return std::nullopt;
      if (line.back() == '\n') {
        line.pop_back();
        return line;
      }
    }
    return std::nullopt;
  }
  // Waits until the peer closes and ignores what it still sends.
  void AwaitClose(Clock::time_point deadline) {
    std::string ignored;
    while (Read(ignored, deadline)) ignored.clear();
  }

 private:
  void Begin() {
    operation = {};
    operation.hEvent = done.Get();
    ::ResetEvent(done.Get());
  }

  // Waits for the operation and returns the number of bytes moved; nothing if it failed or was cancelled. It is over
  // when this returns, because it uses the caller's memory.
  std::optional<DWORD> Finish(Clock::time_point deadline) {
    const HANDLE waited[] = {done.Get(), stop};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const DWORD limit = left <= 0 ? 0 : static_cast<DWORD>(std::min<decltype(left)>(left, INFINITE - 1));
    if (::WaitForMultipleObjects(stop == nullptr ? 1 : 2, waited, FALSE, limit) != WAIT_OBJECT_0) {
      ::CancelIoEx(pipe, &operation);
    }
    DWORD count = 0;
    if (!::GetOverlappedResult(pipe, &operation, &count, TRUE)) return std::nullopt;
    return count;
  }

  const HANDLE pipe;
  const HANDLE stop;
  const Handle done;
  OVERLAPPED operation{};
};

// The pipe has one instance, which serves one client after the other, so a client may have to wait.
Handle OpenPipe(const fs::path& path, const std::wstring& name, Clock::time_point deadline) {
  for (;;) {
    // An impostor's server may identify us, but not impersonate us.
    Handle pipe(::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE | READ_CONTROL, 0, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (pipe.Valid()) return pipe;
    const DWORD error = ::GetLastError();
    if (error != ERROR_PIPE_BUSY || Clock::now() >= deadline) {
      throw ControlChannelError(
          fmt::format("no host reachable on the control pipe {}: {}", NarrowText(path), SystemErrorText(error)));
    }
    ::WaitNamedPipeW(name.c_str(), 100);
  }
}

}  // namespace

fs::path DefaultControlPath() { return std::wstring(kPipePrefix) + L"fenlux-host-" + OwnUserText(); }

class ControlListener::Body {
 public:
  explicit Body(const fs::path& path) : stop(NewEvent(true)) {
    const std::wstring name = PipeName(path);
    const Local<void> descriptor = OwnerOnly();
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
    pipe = Handle(::CreateNamedPipeW(name.c_str(),
                                     PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE | FILE_FLAG_OVERLAPPED,
                                     PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1,
                                     kPipeBuffer, kPipeBuffer, 0, &attributes));
    if (pipe.Valid() && stop.Valid()) return;
    const DWORD error = ::GetLastError();
    if (error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY) {
      throw ControlChannelError("another host is listening on the control pipe " + NarrowText(path) +
                                "; stop it, or choose another pipe with --socket or [control]");
    }
    throw ControlChannelError(
        fmt::format("cannot open the control pipe {}: {}", NarrowText(path), SystemErrorText(error)));
  }

  ~Body() { Stop(); }

  void Serve(const std::function<std::string(const std::string&)>& answer) {
    PipeOperation operation(pipe.Get(), stop.Get());
    while (!Stopped()) {
      if (operation.Accept(Clock::time_point::max())) {
        const auto request = operation.ReadLine(Clock::now() + kControlClientTimeout);
        if (request && operation.Write(answer(*request) + "\n", Clock::now() + kControlClientTimeout)) {
          // Disconnecting discards what the client has not read yet.
          operation.AwaitClose(Clock::now() + kControlClientTimeout);
        }
      } else if (!Stopped()) {
        ::WaitForSingleObject(stop.Get(), 100);  // do not spin on a broken pipe
      }
      ::DisconnectNamedPipe(pipe.Get());
    }
  }

  void Stop() { ::SetEvent(stop.Get()); }

 private:
  bool Stopped() const { return ::WaitForSingleObject(stop.Get(), 0) == WAIT_OBJECT_0; }

  const Handle stop;
  Handle pipe;  // closing it frees the name
};

ControlListener::ControlListener(const fs::path& path) : body(std::make_unique<Body>(path)) {}
ControlListener::~ControlListener() { Stop(); }
void ControlListener::Serve(const std::function<std::string(const std::string&)>& answer) { body->Serve(answer); }
void ControlListener::Stop() { body->Stop(); }

std::string SendControlRequest(const fs::path& path, const std::string& request, std::chrono::seconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  const Handle pipe = OpenPipe(path, PipeName(path), deadline);
  if (!IsOwnPipe(pipe.Get())) {
    throw ControlChannelError("the control pipe " + NarrowText(path) + " belongs to another user's process");
  }
  PipeOperation operation(pipe.Get(), nullptr);
  std::optional<std::string> answer;
  if (operation.Write(request + "\n", deadline)) answer = operation.ReadLine(deadline);
  if (!answer) throw ControlChannelError("no answer from the host on the control pipe " + NarrowText(path));
  return *std::move(answer);
}

}  // namespace fenlux::refhost
