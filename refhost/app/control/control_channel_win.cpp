// The two ends of the channel on a named pipe. The host creates the pipe's first instance, so it notices if the name is
// already taken. Each instance serves one client at a time, on its own thread. The operator's end checks who owns the
// pipe before it sends.
#include "refhost/app/control/control_channel.h"

#include <windows.h>

#include <fmt/format.h>

#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "common/mutex.h"
#include "refhost/app/control/control_pipe_win.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/handle_win.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;
using Clock = std::chrono::steady_clock;

// How long to wait for a busy pipe to find out who has taken its name.
constexpr std::chrono::milliseconds kProbeTimeout{1000};

// Opens the operator's end. All instances of the pipe may be in use, so the client may have to wait.
std::optional<Handle> OpenPipe(const std::wstring& name, Clock::time_point deadline) {
  for (;;) {
    // An impostor's server may identify us, but not impersonate us.
    Handle pipe(::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE | READ_CONTROL, 0, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (pipe.Valid()) return pipe;
    if (::GetLastError() != ERROR_PIPE_BUSY) return std::nullopt;
    if (Clock::now() >= deadline) {
      ::SetLastError(ERROR_PIPE_BUSY);
      return std::nullopt;
    }
    ::WaitNamedPipeW(name.c_str(), 100);
  }
}

// Reports that the name is taken: by this user's own host, or by someone else, who may want to block the host.
[[noreturn]] void RefuseTakenName(const fs::path& path, const std::wstring& name) {
  constexpr std::string_view kRemedy = "choose another pipe with --socket or [control]";
  const std::optional<Handle> pipe = OpenPipe(name, Clock::now() + kProbeTimeout);
  if (pipe && IsOwnPipe(pipe->Get())) {
    throw ControlChannelBusy(
        fmt::format("another host is listening on the control pipe {}; stop it, or {}", NarrowText(path), kRemedy));
  }
  throw ControlChannelError(fmt::format("cannot open the control pipe {}: another program has taken its name; {}",
                                        NarrowText(path), kRemedy));
}

}  // namespace

fs::path DefaultControlPath() { return DefaultPipeName(); }
std::vector<fs::path> DefaultControlPaths() { return {DefaultControlPath()}; }
std::string WhyNoListener(const fs::path& /*path*/) { return {}; }

class ControlListener::Body {
 public:
  Body(const fs::path& path, const ControlLimits& clientLimits)
      : limits(clientLimits), stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    const std::wstring name = PipeName(path);
    const SecurityDescriptor descriptor = OwnerOnly();
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
    DWORD first = FILE_FLAG_FIRST_PIPE_INSTANCE;
    while (pipes.size() < limits.clients) {
      Handle pipe(::CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | first,
                                     PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
                                     static_cast<DWORD>(limits.clients), kPipeBuffer, kPipeBuffer, 0, &attributes));
      if (!pipe.Valid() || !stop.Valid()) {
        const DWORD error = ::GetLastError();
        const bool isTaken = error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY;
        if (pipes.empty() && isTaken) RefuseTakenName(path, name);
        throw ControlChannelError(
            fmt::format("cannot open the control pipe {}: {}", NarrowText(path), SystemErrorText(error)));
      }
      pipes.push_back(std::move(pipe));
      first = 0;
    }
  }

  ~Body() { Stop(); }

  void Serve(const ControlReplies& replies) {
    std::vector<std::thread> others;
    try {
      others.reserve(pipes.size() - 1);  // so that no started thread is lost if memory runs out
      for (std::size_t index = 1; index < pipes.size(); ++index) {
        others.emplace_back([this, &replies, index] { ServeInstance(pipes[index].Get(), replies); });
      }
    } catch (const std::exception&) {  // no memory or no thread: serve fewer clients at once
    }
    ServeInstance(pipes.front().Get(), replies);
    for (std::thread& other : others) other.join();
  }

  void Stop() { ::SetEvent(stop.Get()); }

 private:
  bool Stopped() const { return ::WaitForSingleObject(stop.Get(), 0) == WAIT_OBJECT_0; }
  Clock::time_point Deadline() const { return Clock::now() + limits.requestTime; }

  void ServeInstance(HANDLE pipe, const ControlReplies& replies) {
    PipeOperation operation(pipe, stop.Get());
    while (!Stopped()) {
      if (operation.Accept(Clock::time_point::max())) {
        try {
          Answer(operation, replies);
        } catch (const std::bad_alloc&) {  // the client gets no answer
        }
      } else if (!Stopped()) {
        ::WaitForSingleObject(stop.Get(), 100);  // do not spin on a broken pipe
      }
      ::DisconnectNamedPipe(pipe);
    }
  }

  void Answer(PipeOperation& operation, const ControlReplies& replies) {
    const std::string reply = ReplyTo(operation, replies);
    if (reply.empty() || !operation.Write(reply + "\n", Deadline())) return;
    // Disconnecting discards what the client has not read yet.
    operation.AwaitClose(Deadline());
  }

  // The reply; empty if the client gets none.
  std::string ReplyTo(PipeOperation& operation, const ControlReplies& replies) {
    std::string request;
    switch (operation.ReadLine(request, limits.requestBytes, Deadline())) {
      case LineEnd::kComplete: {
        const MutexLock lock(answering);
        return replies.answer(request);
      }
      case LineEnd::kTooLong:
        return replies.refuse(fmt::format("the request is longer than {} bytes", limits.requestBytes));
      case LineEnd::kLate:
        return replies.refuse(fmt::format("the request did not arrive within {} ms", limits.requestTime.count()));
      case LineEnd::kClosed:
        break;
    }
    return {};
  }

  const ControlLimits limits;
  const Handle stop;
  Mutex answering;            // one request at a time; nothing is guarded by it alone
  std::vector<Handle> pipes;  // the instances; closing them frees the name
};

ControlListener::ControlListener(const fs::path& path, const ControlLimits& limits)
    : body(std::make_unique<Body>(path, limits)) {}
ControlListener::~ControlListener() { Stop(); }
void ControlListener::Serve(const ControlReplies& replies) { body->Serve(replies); }
void ControlListener::Stop() { body->Stop(); }

std::string SendControlRequest(const fs::path& path, const std::string& request, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  const std::optional<Handle> pipe = OpenPipe(PipeName(path), deadline);
  if (!pipe) {
    const std::string reason = LastErrorText();
    throw ControlChannelError(fmt::format("no host reachable on the control pipe {}: {}", NarrowText(path), reason));
  }
  if (!IsOwnPipe(pipe->Get())) {
    throw ControlChannelError("the control pipe " + NarrowText(path) + " belongs to another user's process");
  }
  PipeOperation operation(pipe->Get(), nullptr);
  // A host that refuses a request early answers before it has read all of it.
  operation.Write(request + "\n", deadline);
  std::string answer;
  if (operation.ReadLine(answer, kMaxControlAnswer, deadline) != LineEnd::kComplete) {
    throw ControlChannelError("no answer from the host on the control pipe " + NarrowText(path));
  }
  return answer;
}

}  // namespace fenlux::refhost
