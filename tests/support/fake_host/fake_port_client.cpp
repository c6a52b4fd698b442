// Records requests, answers them as the settings say, and delivers notifications.
#include "tests/support/fake_host/fake_port_client.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "tests/support/fake_host/fake_buf.h"

namespace fenlux::testing {

namespace {

std::uint32_t ReadU32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void WriteU32(std::uint8_t* bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t CommandOf(const std::shared_ptr<CBuf>& request) {
  const auto* const fake = dynamic_cast<const FakeBuf*>(request.get());
  return fake != nullptr && fake->size() >= 12 ? ReadU32(fake->data() + 8) : 0;
}

}  // namespace

FakePortClient::FakePortClient(std::shared_ptr<HostCore> hostCore, NotificationHandler notificationHandler)
    : core(std::move(hostCore)), handler(std::move(notificationHandler)) {}

void FakePortClient::Connect() { core->gate.Pass("CPortClient::Connect"); }

void FakePortClient::Start() { core->gate.Pass("CPortClient::Start"); }

void FakePortClient::Wait() {
  core->gate.Pass("CPortClient::Wait");
  if (!core->settings.waitBlocks) return;
  std::unique_lock lock(mutex);
  closing.wait(lock, [this] { return closed; });
}

void FakePortClient::Close() {
  {
    const std::lock_guard lock(mutex);
    closed = true;
    closing.notify_all();
  }
  core->gate.Pass("CPortClient::Close");
}

void FakePortClient::Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) {
  const std::uint32_t command = CommandOf(request);
  const std::size_t kept = core->settings.recordedRequestBytes;
  if (kept != 0) {
    Bytes bytes = BytesOf(request);
    if (bytes.size() > kept) bytes.resize(kept);
    const std::lock_guard lock(core->mutex);
    core->requests.push_back({command, std::move(bytes), reply != nullptr});
  }
  core->gate.Pass("CPortClient::Send", command, reply ? "reply" : "no reply", flag);
  if (core->settings.answer) {
    core->settings.answer(request, reply);
  } else if (command == 13 && reply) {
    WriteU32(static_cast<FakeBuf&>(*reply).data() + 12, core->settings.driverVersion);
  }
}

std::shared_ptr<CBuf> FakePortClient::Deliver(const Bytes& message) const {
  // A copy of exactly the message's size, so that the address sanitizer sees reads beyond it.
  const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[message.size()]);
  std::copy(message.begin(), message.end(), copy.get());
  return handler(copy.get(), static_cast<std::uint32_t>(message.size()));
}

bool FakePortClient::IsClosed() const {
  const std::lock_guard lock(mutex);
  return closed;
}

}  // namespace fenlux::testing
