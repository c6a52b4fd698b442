// Opens and closes the port, sends requests, and counts the uses of the port's handle.
#include "refhost/port/filter_connection_win.h"

#include <fmt/format.h>

#include <limits>
#include <stdexcept>

#include "host/buf.h"
#include "kdi/driver_records.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/start_thread.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {

void FilterConnection::Connect() {
  {
    const MutexLock lock(mutex);
    if (connecting) throw std::logic_error("a port client connects only once");
    connecting = true;
    if (ended) throw std::runtime_error("the driver's port was closed before it was opened");
  }
  if (state->Stopped()) throw std::runtime_error("the host is stopping and opens no more driver ports");
  const std::size_t contextSize = request.connectContext == nullptr ? 0 : request.connectContext->GetSize();
  if (contextSize > std::numeric_limits<WORD>::max()) throw std::runtime_error("the connect context is too large");
  HANDLE opened = nullptr;
  const HRESULT result = state->Functions().connect(WideFromNarrow(request.portName).c_str(), 0,
                                                    contextSize == 0 ? nullptr : request.connectContext->GetData(),
                                                    static_cast<WORD>(contextSize), nullptr, &opened);
  Handle newPort(opened);
  if (FAILED(result) || !newPort.Valid()) {
    state->Count(&FilterPortTotals::refusedConnects);
    throw std::runtime_error(
        fmt::format("the driver's port {} cannot be opened: {}", request.portName, SystemErrorText(result)));
  }
  state->Count(&FilterPortTotals::connects);
  const MutexLock lock(mutex);
  if (ended) throw std::runtime_error("the driver's port was closed while it was being opened");
  port = std::move(newPort);
}

void FilterConnection::Start() {
  {
    const MutexLock lock(mutex);
    if (ended) return;
    if (!port.Valid() || started) throw std::logic_error("delivery starts once, on an open port");
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
  const FilterPortSettings& settings = state->Settings();
  for (std::uint32_t index = 0; index < settings.buffers; ++index) {
    auto slot = std::make_unique<Slot>();
    slot->message.resize(sizeof(FILTER_MESSAGE_HEADER) + request.maxMessageSize);
    slot->reply.reserve(sizeof(FILTER_REPLY_HEADER) + records::kReplyFixedSize);
    slots.push_back(std::move(slot));
  }
  try {
    for (std::uint32_t index = 0; index < settings.threads; ++index) {
      StartDetachedThread("the driver port's messages", [self = shared_from_this()] { self->RunDelivery(); });
    }
  } catch (const std::exception& error) {
    End(error.what());
    StopThreadsIfIdle();
    throw;
  }
  for (const auto& slot : slots) PostReceive(*slot);
}

void FilterConnection::Send(CBuf& message, CBuf* reply) {
  const Use use(*this);
  if (!use) throw std::runtime_error("the driver's port is not open");
  const std::size_t size = message.GetSize();
  const std::size_t room = reply == nullptr ? 0 : reply->GetSize();
  if (size > std::numeric_limits<DWORD>::max() || room > std::numeric_limits<DWORD>::max()) {
    throw std::runtime_error("the request is too large for the driver's port");
  }
  // Any part of the reply buffer that the driver does not fill keeps its content.
  DWORD returned = 0;
  const HRESULT result =
      state->Functions().sendMessage(use.Get(), message.GetData(), static_cast<DWORD>(size),
                                     room == 0 ? nullptr : reply->GetData(), static_cast<DWORD>(room), &returned);
  if (FAILED(result)) {
    state->Count(&FilterPortTotals::failedRequests);
    throw std::runtime_error("the driver rejected a request: " + SystemErrorText(result));
  }
  state->Count(&FilterPortTotals::requests);
}

void FilterConnection::WaitEnded() {
  MutexLock lock(mutex);
  while (!ended) lock.Wait(changed);
}

void FilterConnection::End(const std::string& reason) {
  bool opened = false;
  {
    const MutexLock lock(mutex);
    if (ended) return;
    ended = true;
    opened = port.Valid();
    // Cancels calls that are blocked in the driver.
    if (opened) ::CancelIoEx(port.Get(), nullptr);
    CloseIfUnused();
  }
  changed.notify_all();
  if (opened) state->Log(Severity::kEvent, fmt::format("Connection ended: {}.", reason));
}

HANDLE FilterConnection::BeginUse(std::size_t receptions) {
  const MutexLock lock(mutex);
  if (ended || !port.Valid()) return nullptr;
  ++uses;
  outstanding += receptions;
  return port.Get();
}

void FilterConnection::EndUse() {
  const MutexLock lock(mutex);
  --uses;
  CloseIfUnused();
}

void FilterConnection::CloseIfUnused() {
  if (!ended || uses > 0 || !port.Valid()) return;
  ::CancelIoEx(port.Get(), nullptr);
  port.Reset();
  changed.notify_all();
}

}  // namespace fenlux::refhost
