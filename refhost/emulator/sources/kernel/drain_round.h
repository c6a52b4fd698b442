// One round of responding to queued events without a verdict while all readers are blocked.
#pragma once

#include <cstddef>

namespace fenlux::refhost {

// At most this many events per round, so that deadlines are checked again within milliseconds.
inline constexpr std::size_t kDrainRound = 64;

// Calls `letOneThrough` until it returns false (nothing is queued), `heldUp` returns false, or the round is full. Tests
// `heldUp` before each event, so that readers that are free again judge the rest. Returns true if the round was full.
template <typename HeldUp, typename LetOneThrough>
bool RunDrainRound(const HeldUp& heldUp, const LetOneThrough& letOneThrough) {
  for (std::size_t count = 0; count < kDrainRound; ++count) {
    if (!heldUp() || !letOneThrough()) return false;
  }
  return true;
}

}  // namespace fenlux::refhost
