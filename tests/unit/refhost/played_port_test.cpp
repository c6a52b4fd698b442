// The port of a replay: which requests of a connection's opening it answers itself.
#include "refhost/app/replay/played_port.h"

#include <gtest/gtest.h>

#include <cstring>

#include "kdi/driver_records.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::testing {
namespace {

using namespace refhost;
using records::Command;
using std::chrono::milliseconds;

std::shared_ptr<CBuf> Request(Command command) {
  records::RequestHeader header{};
  header.magic = records::kRequestMagic;
  header.command = static_cast<std::uint32_t>(command);
  std::vector<std::uint8_t> bytes(records::kRequestSize);
  std::memcpy(bytes.data(), &header, sizeof(header));
  return std::make_shared<HeapBuffer>(std::move(bytes));
}

class PlayedPortTest : public ::testing::Test {
 protected:
  // Returns at once only if the port answers the request itself.
  void Send(Command command) {
    std::shared_ptr<CBuf> reply;
    port.Send(Request(command), reply);
  }
  bool Notifies() {
    bool notified = false;
    port.UnlessPolicyApplied([&] { notified = true; });
    return notified;
  }
  bool Opened() { return port.AwaitOpening(milliseconds(0)); }

  PlayedPort port{nullptr, nullptr};
};

TEST_F(PlayedPortTest, AnswersTheOpeningUntilBothThreadsHaveSentTheirLastRequest) {
  port.Accept(Answering::kOpening);
  Send(Command::kSpspState);
  Send(Command::kCommitMonitorObjects);
  Send(Command::kDriverConfig);
  EXPECT_FALSE(Opened());
  Send(Command::kSpspState);
  EXPECT_FALSE(Opened());
  Send(Command::kDriverVersion);
  EXPECT_TRUE(Opened());
}

TEST_F(PlayedPortTest, AnswersThePolicyAlsoAfterTheVersion) {
  port.Accept(Answering::kOpening);
  Send(Command::kDriverVersion);
  EXPECT_FALSE(Opened());
  Send(Command::kAddMonitorObject);
  EXPECT_FALSE(Opened());
  Send(Command::kDriverConfig);
  EXPECT_TRUE(Opened());
}

TEST_F(PlayedPortTest, NotifiesOfThePolicyOnlyUntilTheModuleHasAppliedIt) {
  port.Accept(Answering::kOpening);
  EXPECT_TRUE(Notifies());
  Send(Command::kDriverVersion);
  EXPECT_TRUE(Notifies());
  Send(Command::kDriverConfig);
  EXPECT_FALSE(Notifies());
}

TEST_F(PlayedPortTest, DoesNotNotifyOfAnAppliedPolicyWhileTheOpeningContinues) {
  port.Accept(Answering::kOpening);
  Send(Command::kDriverConfig);
  EXPECT_FALSE(Opened());
  EXPECT_FALSE(Notifies());
}

TEST_F(PlayedPortTest, GivesTheModulesVersionToTheModule) {
  port.Accept(Answering::kOpening);
  std::shared_ptr<CBuf> reply = std::make_shared<HeapBuffer>(std::vector<std::uint8_t>());
  port.Send(Request(Command::kDriverVersion), reply);
  ASSERT_NE(reply, nullptr);
  ASSERT_EQ(reply->GetSize(), records::kRequestSize);
  records::VersionReply version{};
  std::memcpy(&version, reply->GetData(), sizeof(version));
  EXPECT_EQ(version.version.value(), records::kModuleVersion);
}

}  // namespace
}  // namespace fenlux::testing
