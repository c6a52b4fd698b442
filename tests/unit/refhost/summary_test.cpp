// The reports show the counts and whether the run was fine.
#include "refhost/app/summary.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace fenlux::refhost {
namespace {

SummaryFacts Facts() {
  SummaryFacts facts;
  facts.totals.delivered = 10;
  facts.totals.answered = 6;
  facts.totals.unansweredByDesign = 1;
  facts.totals.late = 1;
  facts.totals.lost = 2;
  facts.totals.byCode = {{4097, 9}, {4113, 1}};
  facts.totals.byVerdict = {{3, 5}, {4, 1}};
  facts.totals.unjudged[static_cast<std::size_t>(UnjudgedCause::kLate)] = 1;
  facts.totals.unjudged[static_cast<std::size_t>(UnjudgedCause::kConnectionEnded)] = 2;
  facts.totals.latency.count = 7;
  facts.totals.latency.p50 = std::chrono::nanoseconds(1500);
  facts.decisions[2] = 5;
  facts.driver.connects = 2;
  return facts;
}

bool Shows(const Report& report, const std::string& line) {
  return AlignedText(report).find(line + "\n") != std::string::npos;
}

TEST(Summary, ShowsTheSumOfNotifications) {
  const SummaryFacts facts = Facts();
  ASSERT_TRUE(facts.totals.AddsUp());
  const Report report = SummaryReport(facts);
  EXPECT_TRUE(Shows(report, "  sum                   10 = 6 + 1 + 1 + 2")) << AlignedText(report);
  EXPECT_TRUE(Shows(report, "  adds_up               yes"));
  EXPECT_TRUE(Shows(report, "  4097  9"));
  EXPECT_TRUE(Shows(report, "  p50_us  1.5"));
  EXPECT_NE(JsonText(report).find(R"("decisions":{"2":5},"verdicts":{"3":5,"4":1})"), std::string::npos);
  EXPECT_NE(JsonText(report).find(R"("unjudged":{"late":1,)"), std::string::npos) << JsonText(report);
}

TEST(Summary, ShowsHowUnjudgedOperationsEnded) {
  SummaryFacts facts = Facts();
  facts.totals.kernelEvents = facts.totals.kernelRefused = 3;
  facts.totals.kernelRefusedUnjudged = 2;
  facts.unjudgedPolicy = UnjudgedPolicy::kRefuse;
  EXPECT_TRUE(facts.totals.AddsUp());
  const Report report = SummaryReport(facts);
  EXPECT_TRUE(Shows(report, "unjudged_refused     2")) << AlignedText(report);
  EXPECT_TRUE(Shows(report, "unjudged_setting     refuse"));
  EXPECT_NE(JsonText(report).find(R"("unjudged_refused":2,"unjudged_setting":"refuse")"), std::string::npos);
}

TEST(Summary, IsFineOnlyWithoutViolationsAndIfTheTotalsAddUp) {
  SummaryFacts facts = Facts();
  EXPECT_TRUE(IsFine(facts));
  facts.driver.protocolViolations = 1;
  EXPECT_FALSE(IsFine(facts));
  facts = Facts();
  facts.totals.lost = 1;
  EXPECT_FALSE(IsFine(facts));
  EXPECT_TRUE(Shows(SummaryReport(facts), "  adds_up               no"));
}

TEST(Summary, IsNotFineIfTheDriverNeverConnected) {
  SummaryFacts facts = Facts();
  facts.driver.connects = 0;
  EXPECT_TRUE(NeverConnected(facts));
  EXPECT_FALSE(IsFine(facts));
  EXPECT_TRUE(Shows(SummaryReport(facts), "  the driver never connected"));
  facts.filterPort = FilterPortTotals();
  facts.filterPort->connects = 1;
  EXPECT_FALSE(NeverConnected(facts));
  facts.filterPort.reset();
  facts.moduleEnabled = false;  // it should not connect
  EXPECT_TRUE(IsFine(facts));
}

TEST(Summary, ListsViolations) {
  SummaryFacts facts = Facts();
  facts.driver.protocolViolations = 1;
  facts.driver.violationTexts = {"request 99: unknown"};
  EXPECT_TRUE(Shows(SummaryReport(facts), "  request 99: unknown"));
}

TEST(Summary, ShowsKernelEventsOnlyIfThereAreAny) {
  SummaryFacts facts = Facts();
  EXPECT_EQ(JsonText(SummaryReport(facts)).find("kernel"), std::string::npos);
  facts.totals.kernelEvents = 3;
  facts.totals.kernelRefused = 1;
  facts.totals.kernelAllowed = 2;
  EXPECT_NE(JsonText(SummaryReport(facts)).find(R"("kernel":{"events":3,"allowed":2,"refused":1})"), std::string::npos);
}

TEST(DriverReport, ShowsWhatTheDriverWasTold) {
  EmulatorState driver;
  driver.connected = true;
  driver.monitored[1].committed = {{"/a", "", true}};
  driver.monitored[1].pending = {{"/b", "", true}};
  driver.netControlMode = 3;
  NetControlItem item{};
  item.opaque[0] = 0xAB;
  item.value = 9;
  driver.netControlItems[2] = {item};
  driver.grspSwitch = true;
  driver.systemProcesses = {{2, 77}};
  driver.configBlock = std::vector<std::uint8_t>{0x01, 0xFF};
  const std::string json = JsonText(DriverReport(driver));
  EXPECT_NE(json.find(R"("monitored_type2":{"commits":0,"committed":["/a"],"pending":["/b"]})"), std::string::npos);
  EXPECT_NE(json.find(R"("net_control_mode":3)"), std::string::npos);
  EXPECT_NE(json.find(R"("net_control_list3":["ab)" + std::string(94, '0') + R"( 9"])"), std::string::npos) << json;
  EXPECT_NE(json.find(R"("grsp_switch":true)"), std::string::npos);
  EXPECT_EQ(json.find("grpm_switch"), std::string::npos);
  EXPECT_NE(json.find(R"("system_processes":{"2":77})"), std::string::npos);
  EXPECT_NE(json.find(R"("config_block":"01ff")"), std::string::npos);
}

}  // namespace
}  // namespace fenlux::refhost
