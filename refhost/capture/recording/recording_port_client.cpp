// The wrapper of a port client and of its handler. Messages that cannot be recorded are left out; the port's results
// and exceptions pass through unchanged.
#include "refhost/capture/recording_port_client.h"

#include <atomic>
#include <exception>
#include <utility>

#include "host/buf.h"
#include "refhost/capture/format/close_reasons.h"
#include "refhost/capture/recording/handled_notification.h"
#include "refhost/capture/recording/recorder_state.h"

namespace fenlux::capture {
namespace {

thread_local const void* handlingRecorder = nullptr;
thread_local HandledNotification handling;

using State = std::shared_ptr<Recorder::State>;

std::span<const std::uint8_t> BytesOf(const std::shared_ptr<CBuf>& buffer) {
  if (buffer == nullptr) return {};
  const std::uint8_t* const bytes = buffer->GetData();
  return {bytes, bytes == nullptr ? 0 : buffer->GetSize()};
}

// A buffer that throws is recorded as an empty message.
void PutBuffer(Recorder::State& state, const PacketHeader& header, const std::shared_ptr<CBuf>& buffer) noexcept {
  Packet packet;
  packet.header = header;
  try {
    packet.message = BytesOf(buffer);
  } catch (...) {
    packet.comment = "the buffer cannot be read";
  }
  const bool isRequest = header.kind == Kind::kRequest || header.kind == Kind::kRequestReply;
  packet.originalSize = packet.message.size();
  if (isRequest) CutZeros(packet);
  state.Put(packet);
}

// Records the current exception. Call it in a catch clause.
void PutFailure(Recorder::State& state, const PacketHeader& header) noexcept {
  Packet packet;
  packet.header = header;
  try {
    throw;
  } catch (const std::exception& error) {
    const char* const text = error.what();
    packet.comment = text == nullptr || *text == '\0' ? "failed" : text;
    state.Put(packet);
  } catch (...) {
    packet.comment = "failed: not a standard exception";
    state.Put(packet);
  }
}

// Records one connection, which is opened and closed at most once.
class Link {
 public:
  Link(State recorderState, const std::shared_ptr<CBuf>& connectContext)
      : state(std::move(recorderState)), connection(state->NextConnection()) {
    const std::span<const std::uint8_t> bytes = BytesOf(connectContext);
    context.assign(bytes.begin(), bytes.end());
  }

  void Open() noexcept {
    Phase expected = Phase::kNew;
    if (phase.compare_exchange_strong(expected, Phase::kOpen)) state->Open(connection, context);
  }
  void Close(std::string_view reason) noexcept {
    Phase expected = Phase::kOpen;
    if (phase.compare_exchange_strong(expected, Phase::kClosed)) state->Close(connection, reason);
  }

  std::shared_ptr<CBuf> Handle(const NotificationHandler& handler, const void* message, std::uint32_t size) const {
    if (!state->IsActive()) return handler(message, size);
    const std::uint64_t exchange = state->NextExchange();
    Packet packet;
    packet.header = {Kind::kNotification, connection, exchange};
    packet.message = {static_cast<const std::uint8_t*>(message), message == nullptr ? 0 : size};
    packet.originalSize = size;
    state->Put(packet);
    const PacketHeader answer{Kind::kNotificationReply, connection, exchange};
    const HandlingScope scope(state.get(), {connection, exchange});
    try {
      std::shared_ptr<CBuf> reply = handler(message, size);
      PutBuffer(*state, answer, reply);
      return reply;
    } catch (...) {
      PutFailure(*state, answer);
      throw;
    }
  }

  void Send(CPortClient& client, const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) const {
    if (!state->IsActive()) {
      client.Send(request, reply, flag);
      return;
    }
    const std::uint64_t exchange = state->NextExchange();
    PutBuffer(*state, {Kind::kRequest, connection, exchange}, request);
    const PacketHeader answer{Kind::kRequestReply, connection, exchange};
    const bool expected = reply != nullptr;
    try {
      client.Send(request, reply, flag);
    } catch (...) {
      PutFailure(*state, answer);
      throw;
    }
    PutBuffer(*state, answer, expected ? reply : nullptr);
  }

 private:
  enum class Phase { kNew, kOpen, kClosed };

  const State state;
  const std::uint32_t connection;
  Bytes context;
  std::atomic<Phase> phase{Phase::kNew};
};

class RecordingPortClient final : public CPortClient {
 public:
  explicit RecordingPortClient(std::shared_ptr<Link> recordedLink) : link(std::move(recordedLink)) {}
  ~RecordingPortClient() { link->Close(kModuleReleased); }
  RecordingPortClient(const RecordingPortClient&) = delete;
  RecordingPortClient& operator=(const RecordingPortClient&) = delete;

  // Call it before the client is returned to the module.
  void SetClient(std::shared_ptr<CPortClient> wrapped) { client = std::move(wrapped); }

  void Connect() override {
    link->Open();
    try {
      client->Connect();
    } catch (const std::exception& error) {
      link->Close(error.what() == nullptr ? "connecting failed" : error.what());
      throw;
    } catch (...) {
      link->Close("connecting failed");
      throw;
    }
  }
  void Start() override { client->Start(); }
  void Wait() override {
    client->Wait();
    link->Close(kDriverEnded);
  }
  void Close() override {
    link->Close(kModuleClosed);
    client->Close();
  }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override {
    link->Send(*client, request, reply, flag);
  }

 private:
  const std::shared_ptr<Link> link;
  std::shared_ptr<CPortClient> client;
};

}  // namespace

HandledNotification HandledBy(const void* recorder) {
  return handlingRecorder == recorder ? handling : HandledNotification();
}

HandlingScope::HandlingScope(const void* recorder, HandledNotification notification)
    : previousRecorder(std::exchange(handlingRecorder, recorder)), previous(std::exchange(handling, notification)) {}

HandlingScope::~HandlingScope() {
  handlingRecorder = previousRecorder;
  handling = previous;
}

std::shared_ptr<CPortClient> RecordPort(const std::shared_ptr<Recorder>& recorder,
                                        const std::shared_ptr<CBuf>& connectContext, const NotificationHandler& handler,
                                        const RecordedClientMaker& make) {
  std::shared_ptr<Link> link;
  std::shared_ptr<RecordingPortClient> wrapper;
  NotificationHandler recorded;
  try {
    if (recorder != nullptr) {
      link = std::make_shared<Link>(recorder->SharedState(), connectContext);
      wrapper = std::make_shared<RecordingPortClient>(link);
      recorded = [link, handler](const void* message, std::uint32_t size) {
        return link->Handle(handler, message, size);
      };
    }
  } catch (...) {  // no memory to record the connection
    wrapper.reset();
  }
  if (wrapper == nullptr) return make(handler);
  std::shared_ptr<CPortClient> client = make(recorded);
  if (client == nullptr) return nullptr;
  wrapper->SetClient(std::move(client));
  return wrapper;
}

}  // namespace fenlux::capture
