// What counts as a problem of a host, and how its health is shown.
#include "refhost/app/status/health.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "refhost/app/exit_codes.h"

namespace fenlux::refhost {
namespace {

StatusFacts Healthy() {
  StatusFacts facts;
  facts.ready = true;
  facts.hasPolicy = true;
  facts.policy = {{"/srv", ""}};
  facts.summary.driver.connected = true;
  facts.summary.driver.connects = 1;
  return facts;
}

// The line for the facts, checked against the exit code.
std::string Line(const StatusFacts& facts) {
  const Report report = HealthReport(facts);
  const std::string line = HealthText(report);
  EXPECT_EQ(HealthExitCode(report), line == "healthy\n" ? kExitSuccess : kExitDegraded);
  return line;
}

TEST(Health, IsGoodWithAConnectionAndAWatchedPolicy) { EXPECT_EQ(Line(Healthy()), "healthy\n"); }

TEST(Health, SaysWhyThereIsNoConnection) {
  StatusFacts facts = Healthy();
  facts.ready = facts.summary.driver.connected = false;
  facts.summary.driver.endReason = "the driver dropped it";
  EXPECT_EQ(Line(facts), "degraded: no connection: the driver dropped it\n");
  facts.summary.driver.connects = 0;
  EXPECT_EQ(Line(facts), "degraded: the driver never connected\n");
  facts.summary.driver.refusalReason = "not today";
  EXPECT_EQ(Line(facts), "degraded: the driver never connected; the last attempt was refused: not today\n");
  facts.summary.moduleEnabled = false;
  EXPECT_EQ(Line(facts), "healthy\n");
}

TEST(Health, NamesADirectoryThatIsNotWatchedOnOneLine) {
  StatusFacts facts = Healthy();
  facts.policy.push_back({"/a\nb", "it does not exist"});
  EXPECT_EQ(Line(facts), "degraded: /a\\nb is not watched: it does not exist\n");
  facts.policy.pop_back();
  facts.otherDirectories = {{"/kept", "it is gone"}};
  EXPECT_EQ(Line(facts), "degraded: /kept is not watched: it is gone\n");
}

TEST(Health, CountsOnlyLossesOfTheLastTenMinutes) {
  StatusFacts facts = Healthy();
  facts.summary.log.dropped = 7;
  facts.summary.totals.unjudged[static_cast<std::size_t>(UnjudgedCause::kLate)] = 7;
  facts.summary.totals.late = facts.summary.totals.delivered = 7;
  facts.summary.totals.byCode[4098] = 7;
  EXPECT_EQ(Line(facts), "healthy\n");
  facts.history.back().lostLines = 2;
  facts.history.back().unjudgedByLoad = 3;
  EXPECT_EQ(Line(facts),
            "degraded: 2 log lines lost in the last 10 minutes; 3 operations not judged in the last 10 minutes\n");
}

TEST(Health, IsDegradedByARefusedReloadAFailingRecordingAndWrongTotals) {
  StatusFacts facts = Healthy();
  facts.lastReloadRefused = true;
  facts.summary.recording.active = true;
  facts.summary.recording.error = "disk full";
  facts.summary.driver.protocolViolations = 2;
  facts.summary.totals.delivered = 1;
  EXPECT_EQ(Line(facts),
            "degraded: the last reload was refused; the recording fails: disk full; 2 protocol violations; "
            "the totals do not add up\n");
  EXPECT_EQ(HealthReport(facts).at("problems").size(), 4u);
}

TEST(Health, HasItsOwnExitCodeForAHostThatDoesNotAnswer) {
  const Report report = UnreachableReport("no host");
  EXPECT_EQ(HealthText(report), "not reachable: no host\n");
  EXPECT_EQ(HealthExitCode(report), kExitNotReachable);
}

}  // namespace
}  // namespace fenlux::refhost
