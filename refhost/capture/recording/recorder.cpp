// The recorder's operations and the state behind them.
#include <nlohmann/json.hpp>

#include "refhost/capture/recording/handled_notification.h"
#include "refhost/capture/recording/recorder_state.h"

namespace fenlux::capture {
namespace {

Packet TextPacket(PacketHeader header, std::string_view text) {
  Packet packet;
  packet.header = header;
  packet.message = {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
  packet.originalSize = text.size();
  return packet;
}

Packet ContextPacket(std::uint32_t connection, const Bytes& context) {
  Packet packet;
  packet.header = {Kind::kConnectContext, connection, 0};
  packet.message = context;
  packet.originalSize = context.size();
  return packet;
}

std::string JudgementText(const Judgement& judgement) {
  const nlohmann::json rule(judgement.rule);
  return "{\"decision\":" + std::to_string(judgement.decision) +
         ",\"rule\":" + rule.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
         ",\"microseconds\":" + std::to_string(judgement.duration.count()) + "}";
}

}  // namespace

void Recorder::State::Start(const RecordingSettings& settings) {
  {
    const MutexLock lock(mutex);
    if (starting || IsActive()) throw RecordingError("a recording is already active");
    starting = true;
  }
  std::shared_ptr<RecordingSession> begun;
  try {
    begun = RecordingSession::Begin(settings);
  } catch (...) {
    const MutexLock lock(mutex);
    starting = false;
    throw;
  }
  const MutexLock lock(mutex);
  starting = false;
  session = std::move(begun);
  if (!facts.empty()) session->Put(TextPacket({Kind::kFacts, 0, 0}, facts));
  for (const auto& [connection, context] : opens) session->Put(ContextPacket(connection, context));
  active = true;
}

void Recorder::State::Stop() {
  std::shared_ptr<RecordingSession> ended;
  {
    const MutexLock lock(mutex);
    if (!active.exchange(false)) return;
    ended = session;
  }
  ended->Stop();
}

RecordingStatus Recorder::State::Status() const {
  const std::shared_ptr<RecordingSession> current = Session();
  if (current == nullptr) return {};
  RecordingStatus status = current->Status();
  status.active = IsActive();
  return status;
}

void Recorder::State::SetFacts(const std::string& json) noexcept {
  const MutexLock lock(mutex);
  try {
    facts = json;
  } catch (...) {  // no memory: the next files begin without facts
    facts.clear();
  }
  if (IsActive() && !json.empty()) session->Put(TextPacket({Kind::kFacts, 0, 0}, json));
}

std::shared_ptr<RecordingSession> Recorder::State::Session() const {
  const MutexLock lock(mutex);
  return session;
}

void Recorder::State::Put(const Packet& packet) noexcept {
  if (const std::shared_ptr<RecordingSession> current = Session(); current != nullptr) current->Put(packet);
}

void Recorder::State::PutText(PacketHeader header, std::string_view text) noexcept { Put(TextPacket(header, text)); }

void Recorder::State::Open(std::uint32_t connection, const Bytes& context) noexcept {
  const MutexLock lock(mutex);
  try {
    opens[connection] = context;
  } catch (...) {  // no memory: a recording that starts later begins without this connection
  }
  if (IsActive()) session->Put(ContextPacket(connection, context));
}

void Recorder::State::Close(std::uint32_t connection, std::string_view reason) noexcept {
  const MutexLock lock(mutex);
  opens.erase(connection);
  if (IsActive()) session->Put(TextPacket({Kind::kClosed, connection, 0}, reason));
}

Recorder::Recorder() : state(std::make_shared<State>()) {}

Recorder::Recorder(const RecordingSettings& settings) : Recorder() { Start(settings); }

Recorder::~Recorder() { Stop(); }

void Recorder::Start(const RecordingSettings& settings) { state->Start(settings); }

void Recorder::Stop() { state->Stop(); }

RecordingStatus Recorder::Status() const { return state->Status(); }

void Recorder::SetFacts(const std::string& json) noexcept { state->SetFacts(json); }

void Recorder::AddJudgement(const Judgement& judgement) noexcept {
  if (!state->IsActive()) return;
  const HandledNotification handled = HandledBy(state.get());
  const PacketHeader header{Kind::kJudgement, handled.connection, handled.exchange};
  try {
    state->PutText(header, JudgementText(judgement));
  } catch (...) {  // no memory for the text
    state->PutText(header, "{}");
  }
}

void Recorder::AddCall(const std::string& json) noexcept {
  if (!state->IsActive()) return;
  state->PutText({Kind::kCall, 0, state->NextExchange()}, json);
}

}  // namespace fenlux::capture
