// The bounded queue between the port and the writer. It holds packets as the file will: encoded, one after another.
//
// The lock is held to append one packet or to take all of them, never while one is written. Nothing is allocated for a
// packet once the queue has grown to what the traffic needs.
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

  // Appends a packet with the current time, or counts it as dropped. The next packet that fits says how many were
  // dropped before it. Any thread.
  void Put(const Packet& packet) noexcept;

  // Waits for packets and swaps them with the content of `taken`, which it clears. False if the queue was stopped and
  // is empty. The writer.
  bool Take(Bytes& taken);
  // Lets the writer finish. Packets that come later are neither kept nor counted. Any thread.
  void Stop();

  // Packets put, and those of them that did not fit.
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
