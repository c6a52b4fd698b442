// One round of letting queued events through while nobody can judge them.
#pragma once

#include <cstddef>

namespace fenlux::refhost {

// At most this many events per round, so that deadlines are checked again within milliseconds.
inline constexpr std::size_t kDrainRound = 64;

// Calls `letOneThrough` until it returns false (nothing is queued), `heldUp` returns false, or the round is full.
// Tests `heldUp` before each event: readers that are back judge what is left. Returns true if the round was full.
template <typename HeldUp, typename LetOneThrough>
bool RunDrainRound(const HeldUp& heldUp, const LetOneThrough& letOneThrough) {
  for (std::size_t count = 0; count < kDrainRound; ++count) {
    if (!heldUp() || !letOneThrough()) return false;
  }
  return true;
}

}  // namespace fenlux::refhost
