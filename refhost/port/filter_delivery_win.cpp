// The delivery threads of a connection: they receive messages, call the module's handler, and reply to the driver.
#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstring>

#include "host/buf.h"
#include "kdi/driver_records.h"
#include "refhost/base/exception_text.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/port/filter_connection_win.h"

namespace fenlux::refhost {
namespace {

// The result of SendReply if the port is closed. The driver does not return it.
constexpr HRESULT kPortClosed = HRESULT_FROM_WIN32(ERROR_PIPE_NOT_CONNECTED);
// Posted to the completion queue once no more buffers will return.
constexpr ULONG_PTR kStopKey = 1;
constexpr std::chrono::milliseconds kCancelInterval{50};

// The reply for an operation that was not judged.
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

// The body of a delivery thread.
void FilterConnection::RunDelivery() {
  for (;;) {
    DWORD size = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* operation = nullptr;
    const BOOL done = ::GetQueuedCompletionStatus(queue.Get(), &size, &key, &operation, INFINITE);
    const DWORD error = done ? ERROR_SUCCESS : ::GetLastError();
    if (operation == nullptr) {
      if (!done) End("messages cannot be received: " + SystemErrorText(error));
      ::PostQueuedCompletionStatus(queue.Get(), 0, kStopKey, nullptr);  // for the next thread
      CancelUntilClosed();
      return;
    }
    {
      const MutexLock lock(mutex);
      --outstanding;
    }
    Slot& slot = *reinterpret_cast<Slot*>(operation);
    if (done) {
      try {
        HandleMessage(slot, size);
      } catch (const std::exception&) {  // no memory for the reply or for a log line
        End("a message could not be handled: " + CurrentExceptionText());
      }
      PostReceive(slot);
    } else {
      // The driver closed the port, or a message did not fit. Closing our end releases all waiting operations.
      End("receiving from the driver failed: " + SystemErrorText(error));
      StopThreadsIfIdle();
    }
  }
}

// Repeats the cancellation: requests that had not reached the driver when the connection ended were not cancelled.
void FilterConnection::CancelUntilClosed() {
  MutexLock lock(mutex);
  while (port.Valid()) {
    ::CancelIoEx(port.Get(), nullptr);
    lock.WaitUntil(changed, std::chrono::steady_clock::now() + kCancelInterval);
  }
}

// Passes a buffer to the Filter Manager for the next message.
void FilterConnection::PostReceive(Slot& slot) {
  {
    const Use use(*this, 1);
    if (use) {
      slot.operation = {};
      const HRESULT result =
          state->Functions().getMessage(use.Get(), reinterpret_cast<FILTER_MESSAGE_HEADER*>(slot.message.data()),
                                        static_cast<DWORD>(slot.message.size()), &slot.operation);
      // A message that was already available arrives through the queue as well.
      if (SUCCEEDED(result) || result == HRESULT_FROM_WIN32(ERROR_IO_PENDING)) return;
      {
        const MutexLock lock(mutex);
        --outstanding;
      }
      End("no more messages can be received: " + SystemErrorText(result));
    }
  }
  StopThreadsIfIdle();
}

// Stops the delivery threads once the connection has ended and no buffer is outstanding.
void FilterConnection::StopThreadsIfIdle() {
  {
    const MutexLock lock(mutex);
    if (!ended || outstanding > 0) return;
  }
  ::PostQueuedCompletionStatus(queue.Get(), 0, kStopKey, nullptr);
}

FilterConnection::HandlerResult FilterConnection::CallHandler(const void* message, std::uint32_t size) const {
  try {
    return {request.handler(message, size), {}};
  } catch (const std::exception&) {
    return {nullptr, "the module's handler failed: " + CurrentExceptionText()};
  } catch (...) {
    return {nullptr, "the module's handler failed"};
  }
}

void FilterConnection::HandleMessage(Slot& slot, std::size_t size) {
  if (size < sizeof(FILTER_MESSAGE_HEADER) || size > slot.message.size()) {
    // Without a header, there is no message id to reply to.
    state->Log(Severity::kProblem, fmt::format("Ignored a message of {} bytes, which has no header.", size));
    return;
  }
  state->CountReceived();
  FILTER_MESSAGE_HEADER header{};
  std::memcpy(&header, slot.message.data(), sizeof(header));
  HandlerResult handled =
      CallHandler(slot.message.data() + sizeof(header), static_cast<std::uint32_t>(size - sizeof(header)));
  if (header.ReplyLength == 0) {
    if (!handled.failure.empty()) state->Log(Severity::kProblem, handled.failure + ".");
    state->CountOutcome(&FilterPortTotals::noAnswerDue);
    return;
  }
  if (handled.reply == nullptr) {
    if (handled.failure.empty()) handled.failure = "the module returned no reply to a message that requires one";
    SendUnjudgedReply(slot, header.MessageId, handled.failure);
    return;
  }
  const HRESULT result = SendReply(slot, header.MessageId, handled.reply->GetData(), handled.reply->GetSize());
  if (SUCCEEDED(result)) {
    state->CountOutcome(&FilterPortTotals::answered);
  } else if (result == ERROR_FLT_NO_WAITER_FOR_REPLY) {
    state->CountOutcome(&FilterPortTotals::late);
    state->Log(Severity::kWarning, "A reply arrived too late: the driver was no longer waiting for it.");
  } else if (result == kPortClosed) {
    state->CountOutcome(&FilterPortTotals::lost);
    state->Log(Severity::kWarning, "A reply arrived after the end of the connection.");
  } else {
    SendUnjudgedReply(slot, header.MessageId, "the module's reply was not accepted: " + SystemErrorText(result));
  }
}

void FilterConnection::SendUnjudgedReply(Slot& slot, std::uint64_t messageId, const std::string& failure) {
  const auto reply = UnjudgedReply();
  const HRESULT result = SendReply(slot, messageId, reply.data(), reply.size());
  if (SUCCEEDED(result)) {
    state->CountOutcome(&FilterPortTotals::answeredInstead);
    state->Log(Severity::kProblem, fmt::format("An operation was not judged: {}.", failure));
    return;
  }
  const bool late = result == ERROR_FLT_NO_WAITER_FOR_REPLY;
  state->CountOutcome(late ? &FilterPortTotals::late : &FilterPortTotals::lost);
  state->Log(Severity::kProblem, fmt::format("An operation was not judged: {}; the reply saying so failed too: {}.",
                                             failure, SystemErrorText(result)));
}

HRESULT FilterConnection::SendReply(Slot& slot, std::uint64_t messageId, const std::uint8_t* bytes, std::size_t size) {
  const Use use(*this);
  if (!use) return kPortClosed;
  FILTER_REPLY_HEADER header{};
  header.MessageId = messageId;
  slot.reply.resize(sizeof(header) + size);
  std::memcpy(slot.reply.data(), &header, sizeof(header));
  if (size > 0) std::memcpy(slot.reply.data() + sizeof(header), bytes, size);
  return state->Functions().replyMessage(use.Get(), reinterpret_cast<FILTER_REPLY_HEADER*>(slot.reply.data()),
                                         static_cast<DWORD>(slot.reply.size()));
}

}  // namespace fenlux::refhost
