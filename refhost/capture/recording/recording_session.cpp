// Runs the writer's thread, and selects the packets to queue.
#include "refhost/capture/recording/recording_session.h"

#include <exception>
#include <system_error>

#include "common/detached_thread.h"

namespace fenlux::capture {
namespace {

constexpr std::size_t kMinQueueSize = std::size_t{64} << 10;

const RecordingSettings& Checked(const RecordingSettings& settings) {
  if (settings.file.empty()) throw RecordingError("a recording needs the name of a file");
  if (settings.maxFiles == 0) throw RecordingError("a recording keeps at least one file");
  if (settings.queueSize < kMinQueueSize) {
    throw RecordingError("the queue of a recording needs at least " + std::to_string(kMinQueueSize) + " bytes");
  }
  return settings;
}

}  // namespace

RecordingSession::RecordingSession(const RecordingSettings& recordingSettings)
    : settings(Checked(recordingSettings)), queue(settings.queueSize), writer(settings) {}

std::shared_ptr<RecordingSession> RecordingSession::Begin(const RecordingSettings& settings) {
  auto session = std::make_shared<RecordingSession>(settings);
  try {
    StartDetachedThread([session] { session->RunWriter(); });
  } catch (const std::system_error& error) {
    throw RecordingError(std::string("the writer's thread cannot be started: ") + error.what());
  }
  return session;
}

void RecordingSession::Put(const Packet& packet) noexcept {
  if (IsRecorded(packet.header.kind)) queue.Put(packet);
}

bool RecordingSession::IsRecorded(Kind kind) const {
  switch (kind) {
    case Kind::kRequest:
    case Kind::kRequestReply:
      return settings.kinds.requests;
    case Kind::kNotification:
    case Kind::kNotificationReply:
      return settings.kinds.notifications;
    case Kind::kJudgement:
      return settings.kinds.judgements;
    case Kind::kFacts:
      return settings.kinds.facts;
    case Kind::kCall:
      return settings.kinds.calls;
    case Kind::kConnectContext:
    case Kind::kClosed:
      break;
  }
  return true;
}

void RecordingSession::RunWriter() {
  Bytes taken;
  while (queue.Take(taken)) {
    try {
      writer.Write(taken);
    } catch (const std::exception& error) {  // no memory
      writer.CountLost(taken, error.what());
    }
  }
  writer.Finish(queue.Received(), queue.Dropped());
  const MutexLock lock(mutex);
  finished = true;
  finishedChanged.notify_all();
}

bool RecordingSession::Stop() {
  queue.Stop();
  const auto deadline = std::chrono::steady_clock::now() + settings.stopTimeout;
  MutexLock lock(mutex);
  while (!finished) {
    if (!lock.WaitUntil(finishedChanged, deadline)) return finished;
  }
  return true;
}

RecordingStatus RecordingSession::Status() const {
  RecordingStatus status;
  status.file = settings.file;
  status.written = writer.Written();
  status.dropped = queue.Dropped() + writer.Lost();
  status.messages = queue.Received();
  status.bytes = writer.WrittenBytes();
  status.files = writer.Files();
  status.error = writer.Error();
  return status;
}

}  // namespace fenlux::capture
