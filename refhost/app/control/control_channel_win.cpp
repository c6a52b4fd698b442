// A named pipe whose access list has one entry, the host's own user, and that no other machine can open. The name is
// taken by making its first instance, so a second host, or somebody who was there before, is noticed; the operator's
// end in turn looks at who owns the pipe before it says a word.
#include "refhost/app/control/control_channel.h"

#include <windows.h>
// After windows.h, which they need.
#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <string_view>
#include <vector>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/handle_win.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestLine = std::size_t{64} << 20;
// A client that connects and says nothing must not keep others waiting.
constexpr std::chrono::seconds kClientPatience{5};
constexpr std::wstring_view kPipes = L"\\\\.\\pipe\\";
constexpr DWORD kPipeBuffer = 65536;

// What the system allocates with its local functions.
template <typename Value>
struct LocalFreer {
  void operator()(Value* value) const { ::LocalFree(value); }
};
template <typename Value>
using Local = std::unique_ptr<Value, LocalFreer<Value>>;

std::string NarrowText(const fs::path& place) { return NarrowFromWide(place.native()); }

// The security identifier of the user whom this process belongs to, in the block that it came in.
std::vector<std::uint8_t> OwnUser() {
  HANDLE opened = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened)) {
    throw ControlChannelError("the system does not tell who runs this program: " + LastErrorText());
  }
  const Handle token(opened);
  DWORD size = 0;
  ::GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &size);
  std::vector<std::uint8_t> block(size);
  if (!::GetTokenInformation(token.Get(), TokenUser, block.data(), size, &size)) {
    throw ControlChannelError("the system does not tell who runs this program: " + LastErrorText());
  }
  return block;
}

PSID UserOf(std::vector<std::uint8_t>& block) { return reinterpret_cast<TOKEN_USER*>(block.data())->User.Sid; }

std::wstring OwnUserText() {
  std::vector<std::uint8_t> user = OwnUser();
  wchar_t* text = nullptr;
  if (!::ConvertSidToStringSidW(UserOf(user), &text)) {
    throw ControlChannelError("the system does not tell who runs this program: " + LastErrorText());
  }
  return Local<wchar_t>(text).get();
}

// Owned by the user, and open to that user alone.
Local<void> OwnerOnly() {
  const std::wstring user = OwnUserText();
  const std::wstring words = L"O:" + user + L"D:P(A;;GA;;;" + user + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(words.c_str(), SDDL_REVISION_1, &descriptor, nullptr)) {
    throw ControlChannelError("the control pipe cannot be protected: " + LastErrorText());
  }
  return Local<void>(descriptor);
}

// The pipe's name as the system wants it.
std::wstring PipeName(const fs::path& place) {
  const std::wstring name = fs::path(place).make_preferred().native();
  if (!boost::algorithm::istarts_with(name, kPipes) || name.size() == kPipes.size() ||
      name.find(L'\\', kPipes.size()) != std::wstring::npos || name.size() > 256) {
    throw ControlChannelError("the control channel is a named pipe here; " + NarrowText(place) +
                              " must be of the form \\\\.\\pipe\\NAME");
  }
  return name;
}

bool IsOwnUsers(HANDLE pipe) {
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

// One operation on a pipe at a time, with an end to the waiting.
class PipeTurn {
 public:
  // `stopEvent` may be none; once it is set, every wait ends.
  PipeTurn(HANDLE opened, HANDLE stopEvent) : pipe(opened), stop(stopEvent), done(NewEvent(true)) {}

  // Each gives whether it was done until `until`. Read adds to `text`.
  bool Accept(Clock::time_point until) {
    Begin();
    const BOOL now = ::ConnectNamedPipe(pipe, &operation);
    const DWORD error = ::GetLastError();
    DWORD count = 0;
    return now || error == ERROR_PIPE_CONNECTED || (error == ERROR_IO_PENDING && Finish(until, count));
  }
  bool Read(std::string& text, Clock::time_point until) {
    Begin();
    std::array<char, 4096> chunk{};
    DWORD count = 0;
    const BOOL now = ::ReadFile(pipe, chunk.data(), static_cast<DWORD>(chunk.size()), nullptr, &operation);
    if (!now && ::GetLastError() != ERROR_IO_PENDING) return false;
    if (!Finish(until, count) || count == 0) return false;
    text.append(chunk.data(), count);
    return true;
  }
  bool Write(std::string_view text, Clock::time_point until) {
    while (!text.empty()) {
      Begin();
      DWORD count = 0;
      const auto part = static_cast<DWORD>(std::min<std::size_t>(text.size(), kPipeBuffer));
      const BOOL now = ::WriteFile(pipe, text.data(), part, nullptr, &operation);
      if (!now && ::GetLastError() != ERROR_IO_PENDING) return false;
      if (!Finish(until, count) || count == 0) return false;
      text.remove_prefix(count);
    }
    return true;
  }

  bool ReadLine(std::string& line, Clock::time_point until) {
    while (line.size() < kLongestLine) {
      if (!Read(line, until)) return false;
      if (line.back() == '\n') {
        line.pop_back();
        return true;
      }
    }
    return false;
  }
  // Until the other end has closed; what it still says is not heard.
  void AwaitEnd(Clock::time_point until) {
    std::string unheard;
    while (Read(unheard, until)) unheard.clear();
  }

 private:
  void Begin() {
    operation = {};
    operation.hEvent = done.Get();
    ::ResetEvent(done.Get());
  }

  // The operation uses memory of the caller: it has ended, done or cancelled, when this returns.
  bool Finish(Clock::time_point until, DWORD& count) {
    const HANDLE waited[] = {done.Get(), stop};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    const DWORD limit = left <= 0 ? 0 : static_cast<DWORD>(std::min<decltype(left)>(left, INFINITE - 1));
    if (::WaitForMultipleObjects(stop == nullptr ? 1 : 2, waited, FALSE, limit) != WAIT_OBJECT_0) {
      ::CancelIoEx(pipe, &operation);
    }
    return ::GetOverlappedResult(pipe, &operation, &count, TRUE);
  }

  const HANDLE pipe;
  const HANDLE stop;
  const Handle done;
  OVERLAPPED operation{};
};

// The pipe's one instance serves one client after the other, so a client may have to wait for its turn.
Handle OpenPipe(const fs::path& place, const std::wstring& name, Clock::time_point until) {
  for (;;) {
    // A server that is an impostor's may learn who we are, but may not act in our name.
    Handle pipe(::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE | READ_CONTROL, 0, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (pipe.Valid()) return pipe;
    const DWORD error = ::GetLastError();
    if (error != ERROR_PIPE_BUSY || Clock::now() >= until) {
      throw ControlChannelError("no host can be reached on the control pipe " + NarrowText(place) + ": " +
                                SystemErrorText(error));
    }
    ::WaitNamedPipeW(name.c_str(), 100);
  }
}

}  // namespace

fs::path DefaultControlPlace() { return std::wstring(kPipes) + L"fenlux-host-" + OwnUserText(); }

class ControlListener::Body {
 public:
  explicit Body(const fs::path& place) : stop(NewEvent(true)) {
    const std::wstring name = PipeName(place);
    const Local<void> descriptor = OwnerOnly();
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
    pipe = Handle(::CreateNamedPipeW(name.c_str(),
                                     PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE | FILE_FLAG_OVERLAPPED,
                                     PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1,
                                     kPipeBuffer, kPipeBuffer, 0, &attributes));
    if (pipe.Valid() && stop.Valid()) return;
    const DWORD error = ::GetLastError();
    if (error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY) {
      throw ControlChannelError("another host listens on the control pipe " + NarrowText(place) +
                                "; end it, or name another pipe under [control]");
    }
    throw ControlChannelError("the control pipe " + NarrowText(place) + " cannot be opened: " + SystemErrorText(error));
  }

  ~Body() { Stop(); }

  void Serve(const std::function<std::string(const std::string&)>& answer) {
    PipeTurn turn(pipe.Get(), stop.Get());
    while (!Stopped()) {
      if (turn.Accept(Clock::time_point::max())) {
        std::string request;
        if (turn.ReadLine(request, Clock::now() + kClientPatience) &&
            turn.Write(answer(request) + "\n", Clock::now() + kClientPatience)) {
          // Ending the connection throws away what the client has not read yet.
          turn.AwaitEnd(Clock::now() + kClientPatience);
        }
      } else if (!Stopped()) {
        ::WaitForSingleObject(stop.Get(), 100);  // not to spin on a pipe that does not work
      }
      ::DisconnectNamedPipe(pipe.Get());
    }
  }

  void Stop() { ::SetEvent(stop.Get()); }

 private:
  bool Stopped() const { return ::WaitForSingleObject(stop.Get(), 0) == WAIT_OBJECT_0; }

  const Handle stop;
  Handle pipe;  // the name goes with it
};

ControlListener::ControlListener(const fs::path& place) : body(std::make_unique<Body>(place)) {}
ControlListener::~ControlListener() { Stop(); }
void ControlListener::Serve(const std::function<std::string(const std::string&)>& answer) { body->Serve(answer); }
void ControlListener::Stop() { body->Stop(); }

std::string ControlExchange(const fs::path& place, const std::string& request, std::chrono::seconds limit) {
  const Clock::time_point until = Clock::now() + limit;
  const Handle pipe = OpenPipe(place, PipeName(place), until);
  if (!IsOwnUsers(pipe.Get())) {
    throw ControlChannelError("the control pipe " + NarrowText(place) + " belongs to another user's process");
  }
  PipeTurn turn(pipe.Get(), nullptr);
  std::string answer;
  if (!turn.Write(request + "\n", until) || !turn.ReadLine(answer, until)) {
    throw ControlChannelError("the host at the control pipe " + NarrowText(place) + " gave no answer");
  }
  return answer;
}

}  // namespace fenlux::refhost
