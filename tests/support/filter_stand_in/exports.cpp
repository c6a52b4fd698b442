// The Filter Manager's functions under their real names; each forwards to the stand-in.
//
// For a program that is not a test and cannot control the stand-in, the environment can make the driver act on its own:
// FENLUX_STAND_IN_MESSAGES is the number of notifications it delivers after the version request.
#include <windows.h>
// After windows.h, which it needs.
#include <fltuser.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "common/detached_thread.h"
#include "kdi/driver_records.h"
#include "tests/support/filter_stand_in/filter_stand_in.h"

namespace {

using fenlux::testing::FilterStandIn;
namespace records = fenlux::records;

constexpr std::chrono::seconds kReplyTimeout{30};

// Delivers notifications of code 4097 one after the other, then ends the driver.
void Play(std::uint64_t count) {
  records::Notification notification{};
  notification.processId = ::GetCurrentProcessId();
  notification.code = 4097;
  std::vector<std::uint8_t> message(sizeof(notification));
  std::memcpy(message.data(), &notification, sizeof(notification));
  for (std::uint64_t index = 0; index < count; ++index) {
    FilterStandIn::Instance().Deliver(message, records::kReplyFixedSize, kReplyTimeout);
  }
  FilterStandIn::Instance().Drop();
}

// Starts the driver's own notifications, once per process.
void PlayByItself(const void* request, DWORD size) {
  static std::atomic<bool> played{false};
  const char* const words = std::getenv("FENLUX_STAND_IN_MESSAGES");
  records::RequestHeader header{};
  if (words == nullptr || size < sizeof(header)) return;
  std::memcpy(&header, request, sizeof(header));
  if (header.command.value() != static_cast<std::uint32_t>(records::Command::kDriverVersion)) return;
  if (!played.exchange(true)) fenlux::StartDetachedThread([count = std::strtoull(words, nullptr, 10)] { Play(count); });
}

}  // namespace

extern "C" {

HRESULT WINAPI FilterConnectCommunicationPort(LPCWSTR name, DWORD options, LPCVOID context, WORD contextSize,
                                              LPSECURITY_ATTRIBUTES /*security*/, HANDLE* port) {
  if (name == nullptr || port == nullptr || options != 0) return E_INVALIDARG;
  *port = INVALID_HANDLE_VALUE;
  return FilterStandIn::Instance().Connect(name, context, contextSize, port);
}

HRESULT WINAPI FilterGetMessage(HANDLE port, PFILTER_MESSAGE_HEADER message, DWORD size, LPOVERLAPPED operation) {
  if (operation == nullptr || size < sizeof(FILTER_MESSAGE_HEADER)) return E_INVALIDARG;
  return FilterStandIn::Instance().Receive(port, message, size, operation);
}

HRESULT WINAPI FilterReplyMessage(HANDLE port, PFILTER_REPLY_HEADER reply, DWORD size) {
  return FilterStandIn::Instance().Reply(port, reply, size);
}

HRESULT WINAPI FilterSendMessage(HANDLE port, LPVOID request, DWORD size, LPVOID answer, DWORD room, LPDWORD returned) {
  std::uint32_t count = 0;
  const HRESULT result = FilterStandIn::Instance().Send(port, request, size, answer, room, &count);
  *returned = count;
  if (SUCCEEDED(result)) PlayByItself(request, size);
  return result;
}

}  // extern "C"
