// The driver's state and its ends of the pipes. One thread per port watches for the other end to be closed.
#include "tests/support/filter_stand_in/filter_stand_in.h"

#include <fltuser.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include "common/detached_thread.h"
#include "kdi/driver_records.h"

namespace fenlux::testing {
namespace {

constexpr HRESULT kNoWaiter = static_cast<HRESULT>(0x801F0020);
constexpr DWORD kPipeBuffer = 1 << 20;

// One open port.
struct Port {
  ~Port() {
    if (server != INVALID_HANDLE_VALUE) ::CloseHandle(server);
  }

  HANDLE client = nullptr;               // owned by the caller; used only to recognize the port
  HANDLE server = INVALID_HANDLE_VALUE;  // the driver's end
  std::mutex writing;                    // one message at a time
  std::atomic<bool> ended{false};
};

// A message waiting for its answer.
struct Waiter {
  bool replied = false;
  StandInAnswer answer;
};

bool IsModulesContext(const std::vector<std::uint8_t>& bytes) {
  records::ConnectContext context{};
  if (bytes.size() != sizeof(context)) return false;
  std::memcpy(&context, bytes.data(), sizeof(context));
  const std::uint32_t type = context.clientType.value();
  return context.magic.value() == records::kConnectMagic && context.version.value() == records::kConnectVersion &&
         (type == 1 || type == 2);
}

}  // namespace

class FilterStandIn::Body : public std::enable_shared_from_this<Body> {
 public:
  void Reset() {
    const std::lock_guard lock(mutex);
    connectResult = replyResult = sendResult = S_OK;
    failingReplies = 0;
    holdConnects = holdSends = holdSendsInPort = false;
    receptions.clear();
    version = records::kModuleVersion;
    answerSize = records::kRequestSize;
    connects = badConnects = replies = strayReplies = 0;
    requestedName.clear();
    connectContext.clear();
    requests.clear();
    changed.notify_all();
  }

  template <typename Change>
  void Set(Change change) {
    const std::lock_guard lock(mutex);
    change(*this);
    changed.notify_all();
  }
  template <typename Look>
  auto Get(Look look) {
    const std::lock_guard lock(mutex);
    return look(*this);
  }
  template <typename Condition>
  bool Await(Condition condition, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [&] { return condition(*this); });
  }

  HRESULT Connect(const wchar_t* name, const void* context, std::uint16_t contextSize, HANDLE* handle);
  HRESULT Receive(HANDLE handle, void* message, std::uint32_t size, OVERLAPPED* operation);
  HRESULT Reply(HANDLE handle, const void* reply, std::uint32_t size);
  HRESULT Send(HANDLE handle, const void* request, std::uint32_t size, void* answer, std::uint32_t room,
               std::uint32_t* returned);
  StandInAnswer Deliver(const std::vector<std::uint8_t>& message, std::uint32_t replyRoom,
                        std::chrono::milliseconds limit);
  bool Write(const std::shared_ptr<Port>& port, const std::vector<std::uint8_t>& bytes);
  void EndPort(const std::shared_ptr<Port>& port);

  // The port that receives messages; null if none is open. Call with the lock held.
  std::shared_ptr<Port> Newest() const { return newestPort != nullptr && !newestPort->ended ? newestPort : nullptr; }

  // All guarded by the lock.
  HRESULT connectResult = S_OK, replyResult = S_OK, sendResult = S_OK;
  std::uint64_t failingReplies = 0;
  bool holdConnects = false, holdSends = false, holdSendsInPort = false;
  std::map<OVERLAPPED*, std::uint32_t> receptions;      // of the newest port, and their sizes
  std::vector<std::pair<HANDLE, OVERLAPPED*>> blocked;  // the operations in which sends wait
  std::uint64_t held = 0;
  std::uint32_t version = records::kModuleVersion, answerSize = records::kRequestSize;
  std::uint64_t connects = 0, badConnects = 0, replies = 0, strayReplies = 0;
  std::wstring requestedName;
  std::vector<std::uint8_t> connectContext;
  std::vector<std::vector<std::uint8_t>> requests;
  std::shared_ptr<Port> newestPort;
  std::uint64_t pipes = 0, messages = 0;
  std::map<std::uint64_t, std::pair<std::shared_ptr<Port>, Waiter>> waiters;

  void Release();

 private:
  void Watch(const std::shared_ptr<Port>& port);
  bool WaitInPort(HANDLE handle, std::unique_lock<std::mutex>& lock);

  std::mutex mutex;
  std::condition_variable changed;
};

HRESULT FilterStandIn::Body::Connect(const wchar_t* name, const void* context, std::uint16_t contextSize,
                                     HANDLE* handle) {
  auto port = std::make_shared<Port>();
  std::wstring pipeName;
  {
    std::unique_lock lock(mutex);
    requestedName = name;
    const auto* bytes = static_cast<const std::uint8_t*>(context);
    connectContext.assign(bytes, bytes + contextSize);
    ++held;
    changed.notify_all();
    changed.wait(lock, [this] { return !holdConnects; });
    --held;
    if (FAILED(connectResult)) return connectResult;
    if (requestedName != records::kPortName) {
      ++badConnects;
      return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
    if (!IsModulesContext(connectContext)) {
      ++badConnects;
      return E_ACCESSDENIED;
    }
    pipeName = L"\\\\.\\pipe\\fenlux-filter-stand-in-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
               std::to_wstring(++pipes);
  }
  port->server = ::CreateNamedPipeW(
      pipeName.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
      PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_REJECT_REMOTE_CLIENTS, 1, kPipeBuffer, kPipeBuffer, 0, nullptr);
  if (port->server == INVALID_HANDLE_VALUE) return HRESULT_FROM_WIN32(::GetLastError());
  const HANDLE client = ::CreateFileW(pipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OVERLAPPED, nullptr);
  if (client == INVALID_HANDLE_VALUE) return HRESULT_FROM_WIN32(::GetLastError());
  DWORD mode = PIPE_READMODE_MESSAGE;
  if (!::SetNamedPipeHandleState(client, &mode, nullptr, nullptr)) {
    const HRESULT result = HRESULT_FROM_WIN32(::GetLastError());
    ::CloseHandle(client);
    return result;
  }
  port->client = client;
  StartDetachedThread([self = shared_from_this(), port] { self->Watch(port); });
  const std::lock_guard lock(mutex);
  ++connects;
  newestPort = port;
  receptions.clear();
  changed.notify_all();
  *handle = client;
  return S_OK;
}

// The other end never writes, so this read ends when either end is closed.
void FilterStandIn::Body::Watch(const std::shared_ptr<Port>& port) {
  const HANDLE done = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  OVERLAPPED operation{};
  operation.hEvent = done;
  std::uint8_t byte = 0;
  DWORD count = 0;
  if (::ReadFile(port->server, &byte, 1, nullptr, &operation) || ::GetLastError() == ERROR_IO_PENDING) {
    ::GetOverlappedResult(port->server, &operation, &count, TRUE);
  }
  ::CloseHandle(done);
  EndPort(port);
}

void FilterStandIn::Body::EndPort(const std::shared_ptr<Port>& port) {
  port->ended = true;
  ::CancelIoEx(port->server, nullptr);
  ::DisconnectNamedPipe(port->server);
  const std::lock_guard lock(mutex);
  if (newestPort == port) newestPort.reset();
  changed.notify_all();
}

bool FilterStandIn::Body::Write(const std::shared_ptr<Port>& port, const std::vector<std::uint8_t>& bytes) {
  const std::lock_guard writing(port->writing);
  const HANDLE done = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  OVERLAPPED operation{};
  operation.hEvent = done;
  DWORD count = 0;
  const BOOL now = ::WriteFile(port->server, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &operation);
  const bool written = (now || ::GetLastError() == ERROR_IO_PENDING) &&
                       ::GetOverlappedResult(port->server, &operation, &count, TRUE) && count == bytes.size();
  ::CloseHandle(done);
  return written;
}

StandInAnswer FilterStandIn::Body::Deliver(const std::vector<std::uint8_t>& message, std::uint32_t replyRoom,
                                           std::chrono::milliseconds limit) {
  FILTER_MESSAGE_HEADER header{};
  std::shared_ptr<Port> port;
  {
    const std::lock_guard lock(mutex);
    port = Newest();
    if (port == nullptr) return {};
    header.MessageId = ++messages;
    if (replyRoom > 0) {
      header.ReplyLength = static_cast<ULONG>(sizeof(FILTER_REPLY_HEADER)) + replyRoom;
      waiters[header.MessageId] = {port, {}};
    }
  }
  std::vector<std::uint8_t> bytes(sizeof(header) + message.size());
  std::memcpy(bytes.data(), &header, sizeof(header));
  if (!message.empty()) std::memcpy(bytes.data() + sizeof(header), message.data(), message.size());
  const bool written = Write(port, bytes);
  StandInAnswer answer;
  if (replyRoom == 0) {
    answer.outcome = written ? StandInAnswer::Outcome::kNotDue : StandInAnswer::Outcome::kDisconnected;
    return answer;
  }
  std::unique_lock lock(mutex);
  Waiter& waiter = waiters.at(header.MessageId).second;
  const bool ended = changed.wait_for(lock, limit, [&] { return waiter.replied || port->ended.load() || !written; });
  if (waiter.replied) {
    answer = std::move(waiter.answer);
  } else {
    answer.outcome = ended ? StandInAnswer::Outcome::kDisconnected : StandInAnswer::Outcome::kTimedOut;
  }
  waiters.erase(header.MessageId);
  return answer;
}

HRESULT FilterStandIn::Body::Receive(HANDLE handle, void* message, std::uint32_t size, OVERLAPPED* operation) {
  // Under the lock, because a message that is already there may complete the operation before this call returns.
  const std::lock_guard lock(mutex);
  const DWORD error = ::ReadFile(handle, message, size, nullptr, operation) ? ERROR_SUCCESS : ::GetLastError();
  if (newestPort != nullptr && newestPort->client == handle && (error == ERROR_SUCCESS || error == ERROR_IO_PENDING)) {
    receptions[operation] = size;
  }
  return HRESULT_FROM_WIN32(error);
}

HRESULT FilterStandIn::Body::Reply(HANDLE handle, const void* reply, std::uint32_t size) {
  FILTER_REPLY_HEADER header{};
  if (size < sizeof(header)) return E_INVALIDARG;
  std::memcpy(&header, reply, sizeof(header));
  const std::lock_guard lock(mutex);
  if (failingReplies > 0) {
    --failingReplies;
    return replyResult;
  }
  const auto found = waiters.find(header.MessageId);
  if (found == waiters.end() || found->second.first->client != handle || found->second.second.replied) {
    ++strayReplies;
    return kNoWaiter;
  }
  Waiter& waiter = found->second.second;
  waiter.replied = true;
  waiter.answer.outcome = StandInAnswer::Outcome::kReplied;
  waiter.answer.status = header.Status;
  const auto* bytes = static_cast<const std::uint8_t*>(reply);
  waiter.answer.bytes.assign(bytes + sizeof(header), bytes + size);
  ++replies;
  changed.notify_all();
  return S_OK;
}

// False: the caller cancelled the wait, or the port was closed.
bool FilterStandIn::Body::WaitInPort(HANDLE handle, std::unique_lock<std::mutex>& lock) {
  const HANDLE done = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  OVERLAPPED operation{};
  // The lowest bit keeps the operation out of the completion port that the caller associated with the handle.
  operation.hEvent = reinterpret_cast<HANDLE>(reinterpret_cast<std::uintptr_t>(done) | 1);
  std::uint8_t byte = 0;
  if (!::ReadFile(handle, &byte, 1, nullptr, &operation) && ::GetLastError() == ERROR_IO_PENDING) {
    blocked.emplace_back(handle, &operation);
    ++held;
    changed.notify_all();
    lock.unlock();
    ::WaitForSingleObject(done, INFINITE);
    lock.lock();
    --held;
    std::erase(blocked, std::pair(handle, &operation));
  }
  ::CloseHandle(done);
  return !holdSendsInPort;
}

void FilterStandIn::Body::Release() {
  const std::lock_guard lock(mutex);
  holdConnects = holdSends = holdSendsInPort = false;
  for (const auto& [handle, operation] : blocked) ::CancelIoEx(handle, operation);
  changed.notify_all();
}

HRESULT FilterStandIn::Body::Send(HANDLE handle, const void* request, std::uint32_t size, void* answer,
                                  std::uint32_t room, std::uint32_t* returned) {
  std::unique_lock lock(mutex);
  *returned = 0;
  const std::shared_ptr<Port> port = Newest();
  if (port == nullptr || port->client != handle) return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
  ++held;
  changed.notify_all();
  changed.wait(lock, [this] { return !holdSends; });
  --held;
  if (holdSendsInPort && !WaitInPort(handle, lock)) return HRESULT_FROM_WIN32(ERROR_OPERATION_ABORTED);
  if (FAILED(sendResult)) return sendResult;
  const auto* bytes = static_cast<const std::uint8_t*>(request);
  requests.emplace_back(bytes, bytes + size);
  changed.notify_all();
  records::VersionReply reply{};
  if (size < sizeof(reply.header)) return E_INVALIDARG;
  std::memcpy(&reply.header, request, sizeof(reply.header));
  if (reply.header.command.value() != static_cast<std::uint32_t>(records::Command::kDriverVersion) || room == 0) {
    return S_OK;
  }
  reply.version = version;
  std::vector<std::uint8_t> whole(answerSize);
  std::memcpy(whole.data(), &reply, std::min<std::size_t>(sizeof(reply), whole.size()));
  if (whole.size() > room) return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(answer, whole.data(), whole.size());
  *returned = static_cast<std::uint32_t>(whole.size());
  return S_OK;
}

FilterStandIn& FilterStandIn::Instance() {
  // Never destroyed: the watching threads may outlive everything else.
  static FilterStandIn* const instance = new FilterStandIn;
  return *instance;
}

FilterStandIn::FilterStandIn() : body(std::make_shared<Body>()) {}
FilterStandIn::~FilterStandIn() = default;

void FilterStandIn::Reset() { body->Reset(); }
void FilterStandIn::FailConnects(HRESULT result) {
  body->Set([&](Body& state) { state.connectResult = result; });
}
void FilterStandIn::FailReplies(HRESULT result, std::uint64_t count) {
  body->Set([&](Body& state) {
    state.replyResult = result;
    state.failingReplies = count;
  });
}
void FilterStandIn::FailSends(HRESULT result) {
  body->Set([&](Body& state) { state.sendResult = result; });
}
void FilterStandIn::HoldConnects() {
  body->Set([](Body& state) { state.holdConnects = true; });
}
void FilterStandIn::HoldSends() {
  body->Set([](Body& state) { state.holdSends = true; });
}
void FilterStandIn::HoldSendsUntilCancelled() {
  body->Set([](Body& state) {
    state.holdSends = false;
    state.holdSendsInPort = true;
  });
}
void FilterStandIn::Release() { body->Release(); }
bool FilterStandIn::AwaitHeld(std::uint64_t count, std::chrono::milliseconds limit) {
  return body->Await([&](Body& state) { return state.held >= count; }, limit);
}
void FilterStandIn::SetVersion(std::uint32_t version, std::uint32_t answerSize) {
  body->Set([&](Body& state) {
    state.version = version;
    state.answerSize = answerSize;
  });
}
bool FilterStandIn::AwaitPort(std::chrono::milliseconds limit) {
  return body->Await([](Body& state) { return state.Newest() != nullptr; }, limit);
}
bool FilterStandIn::PortOpen() {
  return body->Get([](Body& state) { return state.Newest() != nullptr; });
}
StandInAnswer FilterStandIn::Deliver(const std::vector<std::uint8_t>& message, std::uint32_t replyRoom,
                                     std::chrono::milliseconds limit) {
  return body->Deliver(message, replyRoom, limit);
}
bool FilterStandIn::DeliverRaw(const std::vector<std::uint8_t>& bytes) {
  const auto port = body->Get([](Body& state) { return state.Newest(); });
  return port != nullptr && body->Write(port, bytes);
}
void FilterStandIn::Drop() {
  const auto port = body->Get([](Body& state) { return state.Newest(); });
  if (port != nullptr) body->EndPort(port);
}
std::vector<std::uint32_t> FilterStandIn::PendingReceptions() {
  return body->Get([](Body& state) {
    std::vector<std::uint32_t> sizes;
    for (const auto& [operation, size] : state.receptions) {
      if (!HasOverlappedIoCompleted(operation)) sizes.push_back(size);
    }
    return sizes;
  });
}
std::uint64_t FilterStandIn::Connects() {
  return body->Get([](Body& state) { return state.connects; });
}
std::uint64_t FilterStandIn::BadConnects() {
  return body->Get([](Body& state) { return state.badConnects; });
}
std::wstring FilterStandIn::PortName() {
  return body->Get([](Body& state) { return state.requestedName; });
}
std::vector<std::uint8_t> FilterStandIn::ConnectContext() {
  return body->Get([](Body& state) { return state.connectContext; });
}
std::vector<std::vector<std::uint8_t>> FilterStandIn::Requests() {
  return body->Get([](Body& state) { return state.requests; });
}
std::uint64_t FilterStandIn::Replies() {
  return body->Get([](Body& state) { return state.replies; });
}
std::uint64_t FilterStandIn::RepliesWithoutWaiter() {
  return body->Get([](Body& state) { return state.strayReplies; });
}
HRESULT FilterStandIn::Connect(const wchar_t* name, const void* context, std::uint16_t contextSize, HANDLE* port) {
  return body->Connect(name, context, contextSize, port);
}
HRESULT FilterStandIn::Receive(HANDLE port, void* message, std::uint32_t size, OVERLAPPED* operation) {
  return body->Receive(port, message, size, operation);
}
HRESULT FilterStandIn::Reply(HANDLE port, const void* reply, std::uint32_t size) {
  return body->Reply(port, reply, size);
}
HRESULT FilterStandIn::Send(HANDLE port, const void* request, std::uint32_t size, void* answer, std::uint32_t room,
                            std::uint32_t* returned) {
  return body->Send(port, request, size, answer, room, returned);
}

}  // namespace fenlux::testing
