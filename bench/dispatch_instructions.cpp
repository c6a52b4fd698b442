// Dispatches notifications, or makes the host calls of their floor, a given number of times, so that a tool can count
// the instructions. Links the manual clock: the refresh thread, which would add instructions at random, never runs.
//   fenlux_dispatch_instructions floor|module path-less|two-paths COUNT
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/dispatch_cases.h"

namespace fenlux::bench {
namespace {

// As many as on a busy machine.
constexpr std::uint32_t kCachedProcesses = 1000;

void Run(bool module, bool twoPaths, long count) {
  ConnectedInteract connected;
  const auto dispatch = [&](const testing::Bytes& message) {
    benchmark::DoNotOptimize(
        connected.interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size())));
  };
  for (std::uint32_t process = 0; process < kCachedProcesses; ++process) {
    dispatch(testing::NotificationBuilder(kCode).ProcessId(kProcess - kCachedProcesses / 2 + process).Build());
  }
  Floor floor(connected.host.Context());
  if (twoPaths) floor.UseTwoPaths();
  const testing::Bytes message = twoPaths ? TwoPaths() : PathLess();
  for (long index = 0; index < count; ++index) {
    if (module) {
      dispatch(message);
    } else {
      benchmark::DoNotOptimize(floor.Run());
    }
  }
}

}  // namespace
}  // namespace fenlux::bench

int main(int argc, char** argv) {
  const std::string variant = argc > 1 ? argv[1] : "";
  const std::string notification = argc > 2 ? argv[2] : "";
  const long count = argc == 4 ? std::strtol(argv[3], nullptr, 10) : 0;
  if ((variant != "floor" && variant != "module") || (notification != "path-less" && notification != "two-paths") ||
      count <= 0) {
    std::fprintf(stderr, "usage: %s floor|module path-less|two-paths COUNT\n", argv[0]);
    return 2;
  }
  fenlux::bench::Run(variant == "module", notification == "two-paths", count);
  return 0;
}
