// A host whose n-th allocation fails, for a sample of all n of a run: it ends with an exit code that says so, or it
// runs as usual. It never crashes and never hangs.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

constexpr std::size_t kSamples = 60;

const std::string kFailingHost = FENLUX_PROGRAM_DIRECTORY "/fenlux_failing_host";

constexpr char kScenario[] =
    "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n"
    "[[steps]]\nnotify = 4098\npath = '/a/x.secret'\ncount = 20\n"
    "[[steps]]\nnotify = 4113\n";

void Prepare(HostSetup& setup, std::size_t failing) {
  setup.WriteHost(
      "stop_at_end = true\nstop_timeout_ms = 15000\n[log]\nfile = 'log'\n[policy]\ndirectories = ['.']\n"
      "[[judging.rules]]\npath = '*.secret'\ndecision = 3\n",
      kScenario);
  setup.SetVariable("FENLUX_FAILING_ALLOCATION", std::to_string(failing));
  setup.SetVariable("FENLUX_ALLOCATION_COUNT", (setup.Path() / "count").string());
}

TEST(FailingStart, TheHostEndsWithAReasonOrRunsAsUsual) {
  std::size_t allocations = 0;
  {
    HostSetup setup;
    Prepare(setup, 0);
    const Outcome outcome = HostProcess(setup, kFailingHost, RunArguments(setup)).Wait();
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    allocations = static_cast<std::size_t>(std::stoull(setup.Read("count")));
  }
  ASSERT_GT(allocations, kSamples);

  std::map<int, std::size_t> endings;
  constexpr std::size_t kAtOnce = 6;  // a host that has to reconnect takes five seconds
  for (std::size_t first = 0; first < kSamples && !HasFailure(); first += kAtOnce) {
    std::vector<std::size_t> chosen;
    std::vector<std::unique_ptr<HostSetup>> setups;
    std::vector<std::unique_ptr<HostProcess>> hosts;
    for (std::size_t sample = first; sample < std::min(first + kAtOnce, kSamples); ++sample) {
      chosen.push_back(1 + sample * (allocations - 1) / (kSamples - 1));
      setups.push_back(std::make_unique<HostSetup>());
      Prepare(*setups.back(), chosen.back());
      hosts.push_back(std::make_unique<HostProcess>(*setups.back(), kFailingHost, RunArguments(*setups.back())));
    }
    for (std::size_t index = 0; index < hosts.size(); ++index) {
      const Outcome outcome = hosts[index]->Wait();
      ++endings[outcome.code];
      const bool inOrder = outcome.code == 0 || outcome.code == 2 || outcome.code == 3 || outcome.code == 5;
      EXPECT_TRUE(inOrder) << "allocation " << chosen[index] << ", exit code " << outcome.code << "\n" << outcome.err;
      EXPECT_TRUE(outcome.code == 0 || !outcome.err.empty()) << "allocation " << chosen[index];
    }
  }
  std::cout << "a host's run: " << kSamples << " of " << allocations << " allocations failed; exit codes";
  for (const auto& [code, times] : endings) std::cout << " " << code << " (" << times << " times)";
  std::cout << "\n";
}

}  // namespace
}  // namespace fenlux::testing
