// One recording: the queue, the writer, and the thread between them, which shares ownership so that the process can
// continue while a disk is stuck.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>

#include "common/mutex.h"
#include "refhost/capture/recording/capture_writer.h"
#include "refhost/capture/recording/packet_queue.h"
#include "refhost/capture/recording_port_client.h"

namespace fenlux::capture {

// Any thread.
class RecordingSession {
 public:
  // Creates the first file and starts the writer. Throws RecordingError.
  static std::shared_ptr<RecordingSession> Begin(const RecordingSettings& settings);
  explicit RecordingSession(const RecordingSettings& recordingSettings);
  RecordingSession(const RecordingSession&) = delete;
  RecordingSession& operator=(const RecordingSession&) = delete;

  // Queues the packet if its kind is recorded.
  void Put(const Packet& packet) noexcept;
  // Lets the writer finish and waits for it; false if the settings' `stopTimeout` passes first.
  bool Stop();
  // Sets everything but `active`.
  RecordingStatus Status() const;

 private:
  bool IsRecorded(Kind kind) const;
  void RunWriter();

  const RecordingSettings settings;
  PacketQueue queue;
  CaptureWriter writer;  // the thread's
  Mutex mutex;
  std::condition_variable finishedChanged;
  bool finished FENLUX_GUARDED_BY(mutex) = false;
};

}  // namespace fenlux::capture
