// The calls of the Filter Manager, and what the delivery threads do with a message.
#include "refhost/port/filter_connection_win.h"

#include <array>
#include <chrono>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <thread>

#include "host/buf.h"
#include "kdi/driver_records.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

// Of FilterReplyMessage: nobody waits for the reply any more.
constexpr HRESULT kNoWaiter = static_cast<HRESULT>(0x801F0020);
// Our own word for a reply that finds no port.
constexpr HRESULT kPortEnded = static_cast<HRESULT>(0x800700E9);  // of ERROR_PIPE_NOT_CONNECTED
// The queue's word to the delivery threads that no buffer will come any more.
constexpr ULONG_PTR kNothingMore = 1;
constexpr std::chrono::milliseconds kCancelInterval{50};

std::string ResultText(HRESULT result) { return SystemErrorText(static_cast<unsigned long>(result)); }

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

}  // namespace

void FilterConnection::Connect() {
  {
    const std::lock_guard lock(mutex);
    if (connecting) throw std::logic_error("the driver's port is opened once for each port client");
    connecting = true;
    if (ended) throw std::runtime_error("the driver's port was closed before it was opened");
  }
  if (board->Stopped()) throw std::runtime_error("the host is stopping: the driver's port is not opened any more");
  const std::size_t contextSize = request.connectContext == nullptr ? 0 : request.connectContext->GetSize();
  if (contextSize > std::numeric_limits<WORD>::max()) throw std::runtime_error("the connect context is too large");
  HANDLE opened = nullptr;
  const HRESULT result = board->Functions().connect(WideFromNarrow(request.portName).c_str(), 0,
                                                    contextSize == 0 ? nullptr : request.connectContext->GetData(),
                                                    static_cast<WORD>(contextSize), nullptr, &opened);
  Handle newPort(opened);
  if (FAILED(result) || !newPort.Valid()) {
    board->Count(&FilterPortTotals::refusedConnects);
    throw std::runtime_error("the driver's port " + request.portName + " cannot be opened: " + ResultText(result));
  }
  board->Count(&FilterPortTotals::connects);
  const std::lock_guard lock(mutex);
  if (ended) throw std::runtime_error("the driver's port was closed while it was being opened");
  port = std::move(newPort);
}

void FilterConnection::Start() {
  {
    const std::lock_guard lock(mutex);
    if (ended) return;
    if (!port.Valid() || started) throw std::logic_error("delivery begins once, on a port that is open");
    started = true;
  }
  {
    const Use use(*this);
    if (!use) return;
    queue = Handle(::CreateIoCompletionPort(use.Get(), nullptr, 0, 0));
    if (!queue.Valid()) {
      const std::string reason = "messages cannot be received: " + LastErrorText();
      End(reason);
      throw std::runtime_error(reason);
    }
  }
  const FilterPortSettings& settings = board->Settings();
  for (std::uint32_t index = 0; index < settings.buffers; ++index) {
    auto slot = std::make_unique<Slot>();
    slot->message.resize(sizeof(FILTER_MESSAGE_HEADER) + request.maxMessageSize);
    slot->reply.reserve(sizeof(FILTER_REPLY_HEADER) + records::kReplyFixedSize);
    slots.push_back(std::move(slot));
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
  for (const auto& slot : slots) Receive(*slot);
}

void FilterConnection::Send(CBuf& message, CBuf* reply) {
  const Use use(*this);
  if (!use) throw std::runtime_error("the driver's port is not open");
  const std::size_t size = message.GetSize();
  const std::size_t room = reply == nullptr ? 0 : reply->GetSize();
  if (size > std::numeric_limits<DWORD>::max() || room > std::numeric_limits<DWORD>::max()) {
    throw std::runtime_error("the request is too large for the driver's port");
  }
  // What the driver does not fill of the reply's buffer stays as it is.
  DWORD returned = 0;
  const HRESULT result =
      board->Functions().sendMessage(use.Get(), message.GetData(), static_cast<DWORD>(size),
                                     room == 0 ? nullptr : reply->GetData(), static_cast<DWORD>(room), &returned);
  if (FAILED(result)) {
    board->Count(&FilterPortTotals::failedRequests);
    throw std::runtime_error("the driver did not take a request: " + ResultText(result));
  }
  board->Count(&FilterPortTotals::requests);
}

void FilterConnection::End(const std::string& reason) {
  bool opened = false;
  {
    const std::lock_guard lock(mutex);
    if (ended) return;
    ended = true;
    opened = port.Valid();
    // Calls that are held up in the driver come back.
    if (port.Valid()) ::CancelIoEx(port.Get(), nullptr);
    CloseIfUnused();
  }
  changed.notify_all();
  if (opened) board->Log(Severity::kEvent, "Connection ended: " + reason + ".");
}

// A delivery thread.
void FilterConnection::Deliver() {
  for (;;) {
    DWORD size = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* operation = nullptr;
    const BOOL done = ::GetQueuedCompletionStatus(queue.Get(), &size, &key, &operation, INFINITE);
    const DWORD error = done ? ERROR_SUCCESS : ::GetLastError();
    if (operation == nullptr) {
      if (!done) End("its messages cannot be received: " + SystemErrorText(error));
      ::PostQueuedCompletionStatus(queue.Get(), 0, kNothingMore, nullptr);  // to the next thread
      CancelUntilUnused();
      return;
    }
    {
      const std::lock_guard lock(mutex);
      --outstanding;
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

// A request that was on its way to the driver when the port ended came too late to be cancelled with the others.
void FilterConnection::CancelUntilUnused() {
  std::unique_lock lock(mutex);
  while (port.Valid()) {
    ::CancelIoEx(port.Get(), nullptr);
    changed.wait_for(lock, kCancelInterval);
  }
}

// Hands a buffer to the Filter Manager.
void FilterConnection::Receive(Slot& slot) {
  {
    const Use use(*this, 1);
    if (use) {
      slot.operation = {};
      const HRESULT result =
          board->Functions().getMessage(use.Get(), reinterpret_cast<FILTER_MESSAGE_HEADER*>(slot.message.data()),
                                        static_cast<DWORD>(slot.message.size()), &slot.operation);
      // A message that was there at once arrives by the queue as well.
      if (SUCCEEDED(result) || result == HRESULT_FROM_WIN32(ERROR_IO_PENDING)) return;
      {
        const std::lock_guard lock(mutex);
        --outstanding;
      }
      End("the driver sends no more messages: " + ResultText(result));
    }
  }
  Retire();
}

// Tells the threads when no buffer is left that could come back.
void FilterConnection::Retire() {
  {
    const std::lock_guard lock(mutex);
    if (!ended || outstanding > 0) return;
  }
  ::PostQueuedCompletionStatus(queue.Get(), 0, kNothingMore, nullptr);
}

// The module's reply; empty where it gives none, with the reason where that was a failure.
std::shared_ptr<CBuf> FilterConnection::Ask(const void* message, std::uint32_t size, std::string& failure) const {
  try {
    return request.handler(message, size);
  } catch (const std::exception& error) {
    failure = std::string("the module's handler failed: ") + error.what();
  } catch (...) {
    failure = "the module's handler failed";
  }
  return nullptr;
}

void FilterConnection::Judge(Slot& slot, std::size_t size) {
  if (size < sizeof(FILTER_MESSAGE_HEADER) || size > slot.message.size()) {
    board->Log(Severity::kProblem, "A message of " + std::to_string(size) + " bytes has no header.");
    return;  // nobody can be answered
  }
  board->CountReceived();
  FILTER_MESSAGE_HEADER header{};
  std::memcpy(&header, slot.message.data(), sizeof(header));
  std::string failure;
  const std::shared_ptr<CBuf> reply =
      Ask(slot.message.data() + sizeof(header), static_cast<std::uint32_t>(size - sizeof(header)), failure);
  if (header.ReplyLength == 0) {
    if (!failure.empty()) board->Log(Severity::kProblem, failure + ".");
    board->CountOutcome(&FilterPortTotals::noAnswerDue);
    return;
  }
  if (reply != nullptr) {
    const HRESULT result = Answer(slot, header.MessageId, reply->GetData(), reply->GetSize());
    if (SUCCEEDED(result)) {
      board->CountOutcome(&FilterPortTotals::answered);
      return;
    }
    if (result == kNoWaiter || result == kPortEnded) {
      const bool late = result == kNoWaiter;
      board->CountOutcome(late ? &FilterPortTotals::late : &FilterPortTotals::lost);
      board->Log(Severity::kWarning, late ? "A reply came too late: the driver had given up waiting."
                                          : "A reply came after the end of the connection.");
      return;
    }
    failure = "the module's reply was not taken: " + ResultText(result);
  } else if (failure.empty()) {
    failure = "the module has no reply for a message that demands one";
  }
  const auto unjudged = UnjudgedReply();
  const HRESULT result = Answer(slot, header.MessageId, unjudged.data(), unjudged.size());
  board->CountOutcome(SUCCEEDED(result)     ? &FilterPortTotals::answeredInstead
                      : result == kNoWaiter ? &FilterPortTotals::late
                                            : &FilterPortTotals::lost);
  board->Log(Severity::kProblem, "An operation was not judged, as " + failure +
                                     (SUCCEEDED(result) ? "." : "; nor could that be told: " + ResultText(result)));
}

HRESULT FilterConnection::Answer(Slot& slot, std::uint64_t messageId, const std::uint8_t* bytes, std::size_t size) {
  const Use use(*this);
  if (!use) return kPortEnded;
  FILTER_REPLY_HEADER header{};
  header.MessageId = messageId;
  slot.reply.resize(sizeof(header) + size);
  std::memcpy(slot.reply.data(), &header, sizeof(header));
  if (size > 0) std::memcpy(slot.reply.data() + sizeof(header), bytes, size);
  return board->Functions().replyMessage(use.Get(), reinterpret_cast<FILTER_REPLY_HEADER*>(slot.reply.data()),
                                         static_cast<DWORD>(slot.reply.size()));
}

}  // namespace fenlux::refhost
