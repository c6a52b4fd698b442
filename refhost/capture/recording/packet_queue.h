// The bounded queue between the port and the writer. Packets are stored encoded, one after another, as in the file.
//
// The lock is held to append one packet or to take all of them, never during a write. Once the queue has grown to the
// size that the traffic needs, adding a packet allocates nothing.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>

#include "common/mutex.h"
#include "refhost/capture/format/block_writer.h"
#include "refhost/capture/format/packet.h"

namespace fenlux::capture {

class PacketQueue {
 public:
  explicit PacketQueue(std::size_t maxBytes) : limit(maxBytes) {}
  PacketQueue(const PacketQueue&) = delete;
  PacketQueue& operator=(const PacketQueue&) = delete;

  // Appends a packet with the current time, or counts it as dropped. The next packet that fits states how many were
  // dropped before it. Any thread.
  void Put(const Packet& packet) noexcept;

  // Waits for packets and moves them to `taken`, whose old content is discarded. False if the queue was stopped and is
  // empty. Writer only.
  bool Take(Bytes& taken);
  // Lets the writer finish. Packets added later are neither kept nor counted. Any thread.
  void Stop();

  // The number of packets put, and how many of them did not fit.
  std::uint64_t Received() const { return received; }
  std::uint64_t Dropped() const { return dropped; }

 private:
  const std::size_t limit;
  std::atomic<std::uint64_t> received{0};
  std::atomic<std::uint64_t> dropped{0};

  Mutex mutex;
  std::condition_variable changed;
  Bytes bytes FENLUX_GUARDED_BY(mutex);
  std::uint64_t droppedBefore FENLUX_GUARDED_BY(mutex) = 0;  // since the last packet that fit
  bool sleeping FENLUX_GUARDED_BY(mutex) = false;            // the writer waits for the first packet
  bool stopping FENLUX_GUARDED_BY(mutex) = false;
};

// Nanoseconds since 1970, UTC.
std::uint64_t CurrentTime();

}  // namespace fenlux::capture
