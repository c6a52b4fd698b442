// Appends packets under the lock, and makes the writer wait for them.
#include "refhost/capture/recording/packet_queue.h"

#include <algorithm>
#include <chrono>

namespace fenlux::capture {
namespace {

// The writer lets packets accumulate for this long before it takes them, so that the port's threads rarely wake it.
constexpr std::chrono::milliseconds kCollecting{20};

// Extra room, in bytes, for packets that later ones depend on.
constexpr std::size_t kReserve = std::size_t{1} << 20;

bool IsContext(Kind kind) { return kind == Kind::kConnectContext || kind == Kind::kClosed || kind == Kind::kFacts; }

}  // namespace

std::uint64_t CurrentTime() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

void PacketQueue::Put(const Packet& packet) noexcept {
  const std::size_t size = PacketBlockSize(packet);
  const std::size_t room = limit + (IsContext(packet.header.kind) ? kReserve : 0);
  bool wake = false;
  {
    const MutexLock lock(mutex);
    if (stopping) return;
    received.fetch_add(1, std::memory_order_relaxed);
    const std::size_t before = bytes.size();
    try {
      if (size > room || before > room - size) throw std::bad_alloc();
      if (bytes.capacity() < before + size) {
        bytes.reserve(std::min(std::max(2 * bytes.capacity(), before + size), limit + kReserve));
      }
      Packet timed = packet;
      timed.time = CurrentTime();
      timed.dropped = droppedBefore;
      AppendPacket(bytes, timed);
      droppedBefore = 0;
    } catch (...) {  // no room, or no memory
      bytes.resize(before);
      ++droppedBefore;
      dropped.fetch_add(1, std::memory_order_relaxed);
    }
    wake = sleeping || (before <= limit / 2 && bytes.size() > limit / 2);
    sleeping = false;
  }
  if (wake) changed.notify_one();
}

bool PacketQueue::Take(Bytes& taken) {
  taken.clear();
  MutexLock lock(mutex);
  sleeping = bytes.empty();
  while (bytes.empty() && !stopping) lock.Wait(changed);
  sleeping = false;
  const auto deadline = std::chrono::steady_clock::now() + kCollecting;
  while (!stopping && bytes.size() <= limit / 2 && lock.WaitUntil(changed, deadline)) {
  }
  bytes.swap(taken);
  return !taken.empty();
}

void PacketQueue::Stop() {
  const MutexLock lock(mutex);
  stopping = true;
  changed.notify_one();
}

}  // namespace fenlux::capture
