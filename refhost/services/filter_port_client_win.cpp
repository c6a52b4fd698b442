// A port client over the Filter Manager's user-mode functions, which are looked up by name when they are wanted.
//
// A connection is one object, shared by the port client that the module holds and by the delivery threads. It owns the
// port's handle, the queue where finished receptions arrive, and the message buffers. The handle is never closed under
// a call that uses it, and Close never waits for one: every use is counted, and whoever ends last, Close or the last
// use, closes it. A handler that runs is no use: it can take as long as it likes, and its reply then finds the port
// closed.
//
// A buffer is always in one of three places: with the Filter Manager (counted as outstanding), with a delivery thread,
// or at rest because the connection has ended. The Filter Manager gives back every outstanding one when the port is
// closed, so the threads end when none is left.
#include "refhost/services/filter_port_client.h"

#include <windows.h>
// After windows.h, which it needs.
#include <fltuser.h>

#include <array>
#include <condition_variable>
#include <cstring>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "host/buf.h"
#include "kdi/driver_records.h"
#include "refhost/services/error_text_win.h"
#include "refhost/services/handle_win.h"
#include "refhost/services/utf_text.h"

namespace fenlux::refhost {
namespace {

// Of FilterReplyMessage: nobody waits for the reply any more.
constexpr HRESULT kNoWaiter = static_cast<HRESULT>(0x801F0020);
// Our own word for a reply that finds no port.
constexpr HRESULT kPortEnded = static_cast<HRESULT>(0x800700E9);  // of ERROR_PIPE_NOT_CONNECTED
// The queue's word to the delivery threads that no buffer will come any more.
constexpr ULONG_PTR kNothingMore = 1;

std::string ResultText(HRESULT result) { return SystemErrorText(static_cast<unsigned long>(result)); }

// The functions that are used, from the library that the configuration names.
struct FilterFunctions {
  decltype(&::FilterConnectCommunicationPort) connect = nullptr;
  decltype(&::FilterGetMessage) getMessage = nullptr;
  decltype(&::FilterReplyMessage) replyMessage = nullptr;
  decltype(&::FilterSendMessage) sendMessage = nullptr;
};

template <typename Function>
void Find(HMODULE library, const std::string& libraryName, const char* name, Function& function) {
  const FARPROC found = ::GetProcAddress(library, name);
  if (found == nullptr) throw std::runtime_error("the Filter Manager's library " + libraryName + " has no " + name);
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

// The library stays loaded: its code may be at work on a thread of ours at any time.
FilterFunctions LoadFunctions(const boost::filesystem::path& file) {
  const bool standard = file.empty();
  const boost::filesystem::path path = standard ? boost::filesystem::path(L"fltlib.dll") : file;
  const std::string name = NarrowFromWide(path.native());
  // By its name alone the system's own is found, and no other.
  const DWORD where =
      standard ? LOAD_LIBRARY_SEARCH_SYSTEM32
               : LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | (path.is_absolute() ? LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR : 0);
  const HMODULE library = ::LoadLibraryExW(path.c_str(), nullptr, where);
  if (library == nullptr) {
    throw std::runtime_error("the Filter Manager's library " + name + " cannot be loaded: " + LastErrorText());
  }
  FilterFunctions functions;
  Find(library, name, "FilterConnectCommunicationPort", functions.connect);
  Find(library, name, "FilterGetMessage", functions.getMessage);
  Find(library, name, "FilterReplyMessage", functions.replyMessage);
  Find(library, name, "FilterSendMessage", functions.sendMessage);
  return functions;
}

// The reply that says that the operation was not judged.
std::array<std::uint8_t, records::kReplyFixedSize> UnjudgedReply() {
  records::Reply reply{};
  reply.magic = records::kReplyMagic;
  reply.fixedSize = records::kReplyFixedSize;
  reply.verdict = static_cast<std::uint32_t>(records::Verdict::kUnjudged);
  std::array<std::uint8_t, records::kReplyFixedSize> bytes{};
  std::memcpy(bytes.data(), &reply, sizeof(reply));
  return bytes;
}

// What all connections share.
class Board {
 public:
  Board(FilterFunctions functions, FilterPortSettings settings, FilterPort::LogHook log)
      : functions_(functions), settings_(std::move(settings)), log_(std::move(log)) {}

  const FilterFunctions& Functions() const { return functions_; }
  const FilterPortSettings& Settings() const { return settings_; }
  void Log(Severity severity, const std::string& line) const {
    if (log_) log_(severity, "[driver port] " + line);
  }

  void Count(std::uint64_t FilterPortTotals::*count) {
    const std::lock_guard lock(mutex_);
    ++(totals_.*count);
  }
  void CountReceived() {
    const std::lock_guard lock(mutex_);
    ++totals_.received;
    ++totals_.inFlight;
  }
  // What became of a received message.
  void CountOutcome(std::uint64_t FilterPortTotals::*count) {
    const std::lock_guard lock(mutex_);
    ++(totals_.*count);
    --totals_.inFlight;
  }
  FilterPortTotals Totals() const {
    const std::lock_guard lock(mutex_);
    return totals_;
  }

  void Stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  bool Stopped() const {
    const std::lock_guard lock(mutex_);
    return stopped_;
  }

 private:
  const FilterFunctions functions_;
  const FilterPortSettings settings_;
  const FilterPort::LogHook log_;
  mutable std::mutex mutex_;  // over everything below
  FilterPortTotals totals_;
  bool stopped_ = false;
};

// What the module asked for when it had the port client made.
struct PortWish {
  std::string portName;
  std::shared_ptr<CBuf> connectContext;
  std::uint32_t maxMessageSize = 0;
  NotificationHandler handler;
};

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(std::shared_ptr<Board> board, PortWish wish) : board_(std::move(board)), wish_(std::move(wish)) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void Connect();
  void Start();
  void Send(CBuf& request, CBuf* reply);
  void WaitEnded() {
    std::unique_lock lock(mutex_);
    endedChanged_.wait(lock, [this] { return ended_; });
  }
  // The first reason is the one that is logged.
  void End(const std::string& reason);

 private:
  // One message buffer: the operation that fills it, the message behind its header, and room for the reply.
  struct Slot {
    OVERLAPPED operation{};  // first: the queue gives back its address
    std::vector<std::uint8_t> message;
    std::vector<std::uint8_t> reply;
  };
  static_assert(offsetof(Slot, operation) == 0);

  // The right to use the port's handle; without it the port is not open.
  class Use {
   public:
    // `receptions` is how many buffers are handed over by it.
    explicit Use(Connection& connection, std::size_t receptions = 0)
        : connection_(connection), handle_(connection.BeginUse(receptions)) {}
    ~Use() {
      if (handle_ != nullptr) connection_.EndUse();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    explicit operator bool() const { return handle_ != nullptr; }
    HANDLE Get() const { return handle_; }

   private:
    Connection& connection_;
    const HANDLE handle_;
  };

  HANDLE BeginUse(std::size_t receptions) {
    const std::lock_guard lock(mutex_);
    if (ended_ || !port_.Valid()) return nullptr;
    ++uses_;
    outstanding_ += receptions;
    return port_.Get();
  }
  void EndUse() {
    const std::lock_guard lock(mutex_);
    --uses_;
    CloseIfUnused();
  }
  // With the lock held.
  void CloseIfUnused() {
    if (!ended_ || uses_ > 0 || !port_.Valid()) return;
    ::CancelIoEx(port_.Get(), nullptr);
    port_.Reset();
  }

  void Deliver();
  void Receive(Slot& slot);
  void Retire();
  void Judge(Slot& slot, std::size_t size);
  std::shared_ptr<CBuf> Ask(const void* message, std::uint32_t size, std::string& failure) const;
  HRESULT Answer(Slot& slot, std::uint64_t messageId, const std::uint8_t* bytes, std::size_t size);

  const std::shared_ptr<Board> board_;
  const PortWish wish_;
  std::vector<std::unique_ptr<Slot>> slots_;  // fixed before the threads are started
  Handle queue_;                              // likewise

  std::mutex mutex_;  // over everything below
  std::condition_variable endedChanged_;
  Handle port_;
  std::size_t uses_ = 0;
  std::size_t outstanding_ = 0;
  bool connecting_ = false;
  bool started_ = false;
  bool ended_ = false;
};

void Connection::Connect() {
  {
    const std::lock_guard lock(mutex_);
    if (connecting_) throw std::logic_error("the driver's port is opened once for each port client");
    connecting_ = true;
    if (ended_) throw std::runtime_error("the driver's port was closed before it was opened");
  }
  if (board_->Stopped()) throw std::runtime_error("the host is stopping: the driver's port is not opened any more");
  const std::size_t contextSize = wish_.connectContext == nullptr ? 0 : wish_.connectContext->GetSize();
  if (contextSize > std::numeric_limits<WORD>::max()) throw std::runtime_error("the connect context is too large");
  HANDLE opened = nullptr;
  const HRESULT result = board_->Functions().connect(WideFromNarrow(wish_.portName).c_str(), 0,
                                                     contextSize == 0 ? nullptr : wish_.connectContext->GetData(),
                                                     static_cast<WORD>(contextSize), nullptr, &opened);
  Handle port(opened);
  if (FAILED(result) || !port.Valid()) {
    board_->Count(&FilterPortTotals::refusedConnects);
    throw std::runtime_error("the driver's port " + wish_.portName + " cannot be opened: " + ResultText(result));
  }
  board_->Count(&FilterPortTotals::connects);
  const std::lock_guard lock(mutex_);
  if (ended_) throw std::runtime_error("the driver's port was closed while it was being opened");
  port_ = std::move(port);
}

void Connection::Start() {
  {
    const std::lock_guard lock(mutex_);
    if (ended_) return;
    if (!port_.Valid() || started_) throw std::logic_error("delivery begins once, on a port that is open");
    started_ = true;
  }
  {
    const Use use(*this);
    if (!use) return;
    queue_ = Handle(::CreateIoCompletionPort(use.Get(), nullptr, 0, 0));
    if (!queue_.Valid()) {
      const std::string reason = "messages cannot be received: " + LastErrorText();
      End(reason);
      throw std::runtime_error(reason);
    }
  }
  const FilterPortSettings& settings = board_->Settings();
  for (std::uint32_t index = 0; index < settings.buffers; ++index) {
    auto slot = std::make_unique<Slot>();
    slot->message.resize(sizeof(FILTER_MESSAGE_HEADER) + wish_.maxMessageSize);
    slot->reply.reserve(sizeof(FILTER_REPLY_HEADER) + records::kReplyFixedSize);
    slots_.push_back(std::move(slot));
  }
  try {
    for (std::uint32_t index = 0; index < settings.threads; ++index) {
      std::thread([self = shared_from_this()] { self->Deliver(); }).detach();
    }
  } catch (const std::system_error& error) {
    End(std::string("no delivery thread can be made: ") + error.what());
    Retire();
    throw;
  }
  for (const auto& slot : slots_) Receive(*slot);
}

void Connection::Send(CBuf& request, CBuf* reply) {
  const Use use(*this);
  if (!use) throw std::runtime_error("the driver's port is not open");
  const std::size_t size = request.GetSize();
  const std::size_t room = reply == nullptr ? 0 : reply->GetSize();
  if (size > std::numeric_limits<DWORD>::max() || room > std::numeric_limits<DWORD>::max()) {
    throw std::runtime_error("the request is too large for the driver's port");
  }
  // What the driver does not fill of the reply's buffer stays as it is.
  DWORD returned = 0;
  const HRESULT result =
      board_->Functions().sendMessage(use.Get(), request.GetData(), static_cast<DWORD>(size),
                                      room == 0 ? nullptr : reply->GetData(), static_cast<DWORD>(room), &returned);
  if (FAILED(result)) {
    board_->Count(&FilterPortTotals::failedRequests);
    throw std::runtime_error("the driver did not take a request: " + ResultText(result));
  }
  board_->Count(&FilterPortTotals::requests);
}

void Connection::End(const std::string& reason) {
  bool opened = false;
  {
    const std::lock_guard lock(mutex_);
    if (ended_) return;
    ended_ = true;
    opened = port_.Valid();
    // Calls that are held up in the driver come back.
    if (port_.Valid()) ::CancelIoEx(port_.Get(), nullptr);
    CloseIfUnused();
  }
  endedChanged_.notify_all();
  if (opened) board_->Log(Severity::kEvent, "Connection ended: " + reason + ".");
}

// A delivery thread.
void Connection::Deliver() {
  for (;;) {
    DWORD size = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* operation = nullptr;
    const BOOL done = ::GetQueuedCompletionStatus(queue_.Get(), &size, &key, &operation, INFINITE);
    const DWORD error = done ? ERROR_SUCCESS : ::GetLastError();
    if (operation == nullptr) {
      if (!done) End("its messages cannot be received: " + SystemErrorText(error));
      ::PostQueuedCompletionStatus(queue_.Get(), 0, kNothingMore, nullptr);  // to the next thread
      return;
    }
    {
      const std::lock_guard lock(mutex_);
      --outstanding_;
    }
    Slot& slot = *reinterpret_cast<Slot*>(operation);
    if (done) {
      try {
        Judge(slot, size);
      } catch (const std::exception& thrown) {  // no memory for the reply or for a line of the log
        End(std::string("a message could not be served: ") + thrown.what());
      }
      Receive(slot);
    } else {
      // Whether the driver has gone or a message did not fit: ending the port is what releases everyone who waits.
      End("the driver's messages ended: " + SystemErrorText(error));
      Retire();
    }
  }
}

// Hands a buffer to the Filter Manager.
void Connection::Receive(Slot& slot) {
  {
    const Use use(*this, 1);
    if (use) {
      slot.operation = {};
      const HRESULT result =
          board_->Functions().getMessage(use.Get(), reinterpret_cast<FILTER_MESSAGE_HEADER*>(slot.message.data()),
                                         static_cast<DWORD>(slot.message.size()), &slot.operation);
      // A message that was there at once arrives by the queue as well.
      if (SUCCEEDED(result) || result == HRESULT_FROM_WIN32(ERROR_IO_PENDING)) return;
      {
        const std::lock_guard lock(mutex_);
        --outstanding_;
      }
      End("the driver sends no more messages: " + ResultText(result));
    }
  }
  Retire();
}

// Tells the threads when no buffer is left that could come back.
void Connection::Retire() {
  {
    const std::lock_guard lock(mutex_);
    if (!ended_ || outstanding_ > 0) return;
  }
  ::PostQueuedCompletionStatus(queue_.Get(), 0, kNothingMore, nullptr);
}

// The module's reply; empty where it gives none, with the reason where that was a failure.
std::shared_ptr<CBuf> Connection::Ask(const void* message, std::uint32_t size, std::string& failure) const {
  try {
    return wish_.handler(message, size);
  } catch (const std::exception& error) {
    failure = std::string("the module's handler failed: ") + error.what();
  } catch (...) {
    failure = "the module's handler failed";
  }
  return nullptr;
}

void Connection::Judge(Slot& slot, std::size_t size) {
  if (size < sizeof(FILTER_MESSAGE_HEADER) || size > slot.message.size()) {
    board_->Log(Severity::kProblem, "A message of " + std::to_string(size) + " bytes has no header.");
    return;  // nobody can be answered
  }
  board_->CountReceived();
  FILTER_MESSAGE_HEADER header{};
  std::memcpy(&header, slot.message.data(), sizeof(header));
  std::string failure;
  const std::shared_ptr<CBuf> reply =
      Ask(slot.message.data() + sizeof(header), static_cast<std::uint32_t>(size - sizeof(header)), failure);
  if (header.ReplyLength == 0) {
    if (!failure.empty()) board_->Log(Severity::kProblem, failure + ".");
    board_->CountOutcome(&FilterPortTotals::noAnswerDue);
    return;
  }
  if (reply != nullptr) {
    const HRESULT result = Answer(slot, header.MessageId, reply->GetData(), reply->GetSize());
    if (SUCCEEDED(result)) {
      board_->CountOutcome(&FilterPortTotals::answered);
      return;
    }
    if (result == kNoWaiter || result == kPortEnded) {
      const bool late = result == kNoWaiter;
      board_->CountOutcome(late ? &FilterPortTotals::late : &FilterPortTotals::lost);
      board_->Log(Severity::kWarning, late ? "A reply came too late: the driver had given up waiting."
                                           : "A reply came after the end of the connection.");
      return;
    }
    failure = "the module's reply was not taken: " + ResultText(result);
  } else if (failure.empty()) {
    failure = "the module has no reply for a message that demands one";
  }
  const auto unjudged = UnjudgedReply();
  const HRESULT result = Answer(slot, header.MessageId, unjudged.data(), unjudged.size());
  board_->CountOutcome(SUCCEEDED(result)     ? &FilterPortTotals::answeredInstead
                       : result == kNoWaiter ? &FilterPortTotals::late
                                             : &FilterPortTotals::lost);
  board_->Log(Severity::kProblem, "An operation was not judged, as " + failure +
                                      (SUCCEEDED(result) ? "." : "; nor could that be told: " + ResultText(result)));
}

HRESULT Connection::Answer(Slot& slot, std::uint64_t messageId, const std::uint8_t* bytes, std::size_t size) {
  const Use use(*this);
  if (!use) return kPortEnded;
  FILTER_REPLY_HEADER header{};
  header.MessageId = messageId;
  slot.reply.resize(sizeof(header) + size);
  std::memcpy(slot.reply.data(), &header, sizeof(header));
  if (size > 0) std::memcpy(slot.reply.data() + sizeof(header), bytes, size);
  return board_->Functions().replyMessage(use.Get(), reinterpret_cast<FILTER_REPLY_HEADER*>(slot.reply.data()),
                                          static_cast<DWORD>(slot.reply.size()));
}

// What the module holds. Letting go of it ends the connection.
class FilterPortClient final : public CPortClient {
 public:
  explicit FilterPortClient(std::shared_ptr<Connection> connection) : connection_(std::move(connection)) {}
  ~FilterPortClient() { connection_->End("the module let go of it"); }
  FilterPortClient(const FilterPortClient&) = delete;
  FilterPortClient& operator=(const FilterPortClient&) = delete;

  void Connect() override { connection_->Connect(); }
  void Start() override { connection_->Start(); }
  void Wait() override { connection_->WaitEnded(); }
  void Close() override { connection_->End("the module closed it"); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool /*flag*/) override {
    if (request == nullptr) throw std::invalid_argument("there is no request to send to the driver");
    connection_->Send(*request, reply.get());
  }

 private:
  const std::shared_ptr<Connection> connection_;
};

}  // namespace

class FilterPort::Impl : public Board {
 public:
  using Board::Board;
};

bool FilterPortExists() { return true; }

FilterPort::FilterPort(const FilterPortSettings& settings, LogHook log)
    : impl_(std::make_shared<Impl>(LoadFunctions(settings.filterLibrary), settings, std::move(log))) {}

FilterPort::~FilterPort() { Stop(); }

std::shared_ptr<CPortClient> FilterPort::MakePortClient(const std::string& portName,
                                                        const std::shared_ptr<CBuf>& connectContext,
                                                        std::uint32_t maxMessageSize, NotificationHandler handler,
                                                        std::uint32_t /*portValue*/) {
  return std::make_shared<FilterPortClient>(
      std::make_shared<Connection>(impl_, PortWish{portName, connectContext, maxMessageSize, std::move(handler)}));
}

void FilterPort::Stop() { impl_->Stop(); }

FilterPortTotals FilterPort::Totals() const { return impl_->Totals(); }

}  // namespace fenlux::refhost
