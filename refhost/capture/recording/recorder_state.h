// The state that a recorder shares with the port clients it wrapped: the current session, the open connections, and
// the counters of connections and exchanges.
//
// Locks: mutex is held to copy or replace the session's handle, and while a connection opens or closes or a recording
// starts, so that each connection's context is in the file exactly once. The queue's lock is taken under it. Other
// messages copy the handle and queue their packet outside it.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "common/mutex.h"
#include "refhost/capture/format/packet.h"
#include "refhost/capture/recording/recording_session.h"
#include "refhost/capture/recording_port_client.h"

namespace fenlux::capture {

// Any thread.
class Recorder::State {
 public:
  // See Recorder.
  void Start(const RecordingSettings& settings);
  void Stop();
  RecordingStatus Status() const;
  void SetFacts(const std::string& json) noexcept;

  std::uint32_t NextConnection() { return ++connections; }
  std::uint64_t NextExchange() { return ++exchanges; }

  // Whether a recording is active, so that messages are worth preparing.
  bool IsActive() const { return active.load(std::memory_order_relaxed); }
  void Put(const Packet& packet) noexcept;
  // Puts a packet whose message is `text`.
  void PutText(PacketHeader header, std::string_view text) noexcept;

  void Open(std::uint32_t connection, const Bytes& context) noexcept;
  void Close(std::uint32_t connection, std::string_view reason) noexcept;

 private:
  std::shared_ptr<RecordingSession> Session() const;

  std::atomic<std::uint32_t> connections{0};
  std::atomic<std::uint64_t> exchanges{0};
  std::atomic<bool> active{false};

  mutable Mutex mutex;
  bool starting FENLUX_GUARDED_BY(mutex) = false;
  std::shared_ptr<RecordingSession> session FENLUX_GUARDED_BY(mutex);  // the current one, or the last one
  std::map<std::uint32_t, Bytes> opens FENLUX_GUARDED_BY(mutex);       // connect contexts
  std::string facts FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::capture
