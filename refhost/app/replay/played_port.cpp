// Blocks the module's calls, and hands over requests and replies.
#include "refhost/app/replay/played_port.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "kdi/driver_records.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;
using records::Command;

constexpr char kClosed[] = "the port is closed";
// How often a condition that depends on the time is checked again.
constexpr std::chrono::milliseconds kPollInterval{20};

std::vector<std::uint8_t> BytesOf(const std::shared_ptr<CBuf>& buffer) {
  if (buffer == nullptr || buffer->GetData() == nullptr) return {};
  return {buffer->GetData(), buffer->GetData() + buffer->GetSize()};
}

Command CommandOf(const PlayedRequest& request) {
  if (request.bytes.size() < sizeof(records::RequestHeader)) return Command{};
  records::RequestHeader header{};
  std::memcpy(&header, request.bytes.data(), sizeof(header));
  return static_cast<Command>(header.command.value());
}

PlayedReply ReplyToVersionRequest() {
  records::VersionReply version{};
  version.header.magic = records::kRequestMagic;
  version.header.command = static_cast<std::uint32_t>(Command::kDriverVersion);
  version.version = records::kModuleVersion;
  PlayedReply reply;
  reply.bytes.resize(records::kRequestSize);
  std::memcpy(reply.bytes.data(), &version, sizeof(version));
  return reply;
}

class PlayedPortClient final : public CPortClient {
 public:
  explicit PlayedPortClient(std::shared_ptr<PlayedPort> playedPort) : port(std::move(playedPort)) {}
  ~PlayedPortClient() { port->Close(); }
  PlayedPortClient(const PlayedPortClient&) = delete;
  PlayedPortClient& operator=(const PlayedPortClient&) = delete;

  void Connect() override { port->Connect(); }
  void Start() override { port->Start(); }
  void Wait() override { port->Wait(); }
  void Close() override { port->Close(); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool /*flag*/) override {
    port->Send(request, reply);
  }

 private:
  const std::shared_ptr<PlayedPort> port;
};

}  // namespace

PlayedPort::PlayedPort(const std::shared_ptr<CBuf>& connectContext, NotificationHandler notificationHandler)
    : context(BytesOf(connectContext)), handler(std::move(notificationHandler)) {}

void PlayedPort::Connect() {
  MutexLock lock(mutex);
  if (phase == Phase::kNew) phase = Phase::kConnecting;
  changed.notify_all();
  while (phase == Phase::kConnecting && !ended) lock.Wait(changed);
  if (phase == Phase::kRefused) throw std::runtime_error(refusal);
  if (ended) throw std::runtime_error(kClosed);
}

void PlayedPort::Start() {
  const MutexLock lock(mutex);
  started = true;
  changed.notify_all();
}

void PlayedPort::Wait() {
  MutexLock lock(mutex);
  while (!ended) lock.Wait(changed);
}

void PlayedPort::Close() {
  const MutexLock lock(mutex);
  ended = true;
  changed.notify_all();
}

void PlayedPort::Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply) {
  const auto sent = std::make_shared<PlayedRequest>();
  sent->thread = std::this_thread::get_id();
  sent->bytes = BytesOf(request);
  sent->arrival = Clock::now();
  PlayedReply answer;
  {
    MutexLock lock(mutex);
    if (AnswersItself(*sent, answer)) {
      changed.notify_all();
    } else {
      requests.push_back(sent);
      changed.notify_all();
      while (!sent->answered && !released) lock.Wait(changed);
      requests.remove(sent);
      if (!sent->answered) throw std::runtime_error(kClosed);
      answer = std::move(sent->reply);
    }
  }
  if (!answer.failure.empty()) throw std::runtime_error(answer.failure);
  if (reply != nullptr) reply = answer.bytes.empty() ? nullptr : std::make_shared<HeapBuffer>(std::move(answer.bytes));
}

bool PlayedPort::AnswersItself(const PlayedRequest& request, PlayedReply& reply) {
  if (released || answering == Answering::kPlayer) return false;
  const Command command = CommandOf(request);
  if (command == Command::kDriverVersion) reply = ReplyToVersionRequest();
  if (answering == Answering::kOpening) {
    if (command == Command::kDriverVersion) versionAsked = true;
    if (command == Command::kDriverConfig) policyApplied = true;
    if (versionAsked && policyApplied) answering = Answering::kPlayer;
  }
  return true;
}

bool PlayedPort::IsConnecting() const {
  const MutexLock lock(mutex);
  return phase == Phase::kConnecting && !ended;
}

void PlayedPort::Accept(Answering mode) {
  const MutexLock lock(mutex);
  phase = Phase::kOpen;
  answering = mode;
  changed.notify_all();
}

void PlayedPort::Refuse(std::string reason) {
  const MutexLock lock(mutex);
  phase = Phase::kRefused;
  refusal = std::move(reason);
  changed.notify_all();
}

void PlayedPort::Release() {
  const MutexLock lock(mutex);
  released = true;
  changed.notify_all();
}

bool PlayedPort::AwaitStart(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  MutexLock lock(mutex);
  while (!started && !ended && lock.WaitUntil(changed, deadline)) {
  }
  return started;
}

bool PlayedPort::AwaitOpening(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  MutexLock lock(mutex);
  while (answering == Answering::kOpening && lock.WaitUntil(changed, deadline)) {
  }
  return answering != Answering::kOpening;
}

void PlayedPort::UnlessPolicyApplied(const std::function<void()>& action) {
  const MutexLock lock(mutex);
  if (answering == Answering::kOpening && !policyApplied) action();
}

void PlayedPort::EndOpening() {
  const MutexLock lock(mutex);
  if (answering == Answering::kOpening) answering = Answering::kPlayer;
}

bool PlayedPort::AwaitEnd(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  MutexLock lock(mutex);
  while (!ended && lock.WaitUntil(changed, deadline)) {
  }
  return ended;
}

std::shared_ptr<PlayedRequest> PlayedPort::Take(const Accepts& accepts, std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  MutexLock lock(mutex);
  for (;;) {
    for (const auto& request : requests) {
      if (request->taken || !accepts(*request)) continue;
      request->taken = true;
      return request;
    }
    const auto now = Clock::now();
    if (now >= deadline) return nullptr;
    lock.WaitUntil(changed, std::min(deadline, now + kPollInterval));
  }
}

void PlayedPort::Answer(PlayedRequest& request, PlayedReply reply) {
  const MutexLock lock(mutex);
  request.reply = std::move(reply);
  request.answered = true;
  changed.notify_all();
}

std::vector<std::shared_ptr<PlayedRequest>> PlayedPort::Waiting() const {
  const MutexLock lock(mutex);
  std::vector<std::shared_ptr<PlayedRequest>> waiting;
  for (const auto& request : requests) {
    if (!request->taken) waiting.push_back(request);
  }
  return waiting;
}

bool PlayedPort::IsWaiting(std::thread::id thread) const {
  const MutexLock lock(mutex);
  return std::ranges::any_of(requests, [&](const auto& request) { return request->thread == thread; });
}

bool PlayedPort::HasRequests() const {
  const MutexLock lock(mutex);
  return !requests.empty();
}

std::shared_ptr<CPortClient> PlayedDriver::MakePortClient(const std::shared_ptr<CBuf>& connectContext,
                                                          const NotificationHandler& handler) {
  auto port = std::make_shared<PlayedPort>(connectContext, handler);
  auto client = std::make_shared<PlayedPortClient>(port);
  const MutexLock lock(mutex);
  latest = std::move(port);
  return client;
}

std::shared_ptr<PlayedPort> PlayedDriver::AwaitConnect(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    std::shared_ptr<PlayedPort> port;
    {
      const MutexLock lock(mutex);
      port = latest;
    }
    if (port != nullptr && port->IsConnecting()) return port;
    if (Clock::now() >= deadline) return nullptr;
    std::this_thread::sleep_for(kPollInterval);
  }
}

}  // namespace fenlux::refhost
