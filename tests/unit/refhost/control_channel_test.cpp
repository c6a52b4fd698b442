// The control channel on every platform: requests get their answers.
#include "refhost/app/control/control_channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "tests/unit/refhost/control_channel_support.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::ConnectAndSend;
using fenlux::testing::ControlErrorOf;
using fenlux::testing::ControlServing;
using fenlux::testing::kChannelName;
using fenlux::testing::kRequestTimeout;
using fenlux::testing::NewControlPath;
using fenlux::testing::PieceClient;
using fenlux::testing::TemporaryDirectory;

class ControlChannel : public ::testing::Test {
 protected:
  // Repeats the attempt until it succeeds. Returns false on timeout.
  static bool EventuallyTrue(const std::function<bool()>& attempt) {
    const auto deadline = std::chrono::steady_clock::now() + kRequestTimeout;
    while (!attempt()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
    }
    return true;
  }

  TemporaryDirectory directory;
  boost::filesystem::path path = NewControlPath(directory);
};

TEST_F(ControlChannel, AnswersEachRequestAndDisappearsWhenStopped) {
  {
    const ControlServing serving(path);
    EXPECT_EQ(SendControlRequest(path, "one", kRequestTimeout), "re: one");
    EXPECT_EQ(SendControlRequest(path, "two", kRequestTimeout), "re: two");
    const std::string large(300'000, 'x');
    EXPECT_EQ(SendControlRequest(path, large, kRequestTimeout), "re: " + large);
  }
  EXPECT_FALSE(ConnectAndSend(path, ""));
}

TEST_F(ControlChannel, ServesConcurrentClientsInTurn) {
  const ControlServing serving(path);
  std::vector<std::thread> clients;
  std::atomic<int> answered{0};
  for (int index = 0; index < 6; ++index) {
    clients.emplace_back([&, index] {
      const std::string request = std::to_string(index);
      if (SendControlRequest(path, request, kRequestTimeout) == "re: " + request) ++answered;
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(answered, 6);
}

TEST_F(ControlChannel, ServesOthersWhileAClientSendsItsRequestInPieces) {
  const ControlServing serving(path, {.requestTime = std::chrono::minutes(2)});
  PieceClient slow(path);
  ASSERT_TRUE(slow.Send("ha"));
  EXPECT_EQ(SendControlRequest(path, "quick", kRequestTimeout), "re: quick");
  ASSERT_TRUE(slow.Send("lf\n"));
  EXPECT_EQ(slow.Receive(), "re: half");
}

TEST_F(ControlChannel, EndsARequestThatTakesTooLongEvenIfBytesKeepArriving) {
  const ControlServing serving(path, {.requestTime = std::chrono::milliseconds(200)});
  PieceClient dripping(path);
  // Until the host closes the connection. Each byte arrives well within the time limit.
  while (dripping.Send("x")) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(EventuallyTrue([this] {  // on a busy machine, this client can be too slow as well
    std::string answer;
    ControlErrorOf([&] { answer = SendControlRequest(path, "next", kRequestTimeout); });
    return answer == "re: next";
  }));
}

TEST_F(ControlChannel, SaysThatARequestDidNotArriveInTime) {
  const ControlServing serving(path, {.requestTime = std::chrono::milliseconds(200)});
  EXPECT_TRUE(EventuallyTrue([this] {  // Windows discards an answer that a slow client has not read
    PieceClient silent(path);
    silent.Send("half");
    return silent.Receive() == "no: the request did not arrive within 200 ms";
  }));
}

TEST_F(ControlChannel, RefusesALongRequestWithoutReadingAllOfIt) {
  const ControlServing serving(path, {.requestBytes = 1000, .requestTime = std::chrono::minutes(2)});
  EXPECT_EQ(SendControlRequest(path, std::string(1000, 'x'), kRequestTimeout), "re: " + std::string(1000, 'x'));
  EXPECT_EQ(SendControlRequest(path, std::string(1001, 'x'), kRequestTimeout),
            "no: the request is longer than 1000 bytes");
  EXPECT_EQ(SendControlRequest(path, std::string(8'000'000, 'x'), kRequestTimeout),
            "no: the request is longer than 1000 bytes");
}

TEST_F(ControlChannel, AcceptsRequestsOfOneMebibyteByDefault) {
  const ControlServing serving(path);
  const std::string largest(std::size_t{1} << 20, 'x');
  EXPECT_EQ(SendControlRequest(path, largest, kRequestTimeout), "re: " + largest);
  EXPECT_EQ(SendControlRequest(path, largest + "x", kRequestTimeout), "no: the request is longer than 1048576 bytes");
}

TEST_F(ControlChannel, ClientsBeyondTheLimitWaitForTheirTurn) {
  const ControlServing serving(path, {.requestTime = std::chrono::minutes(2), .clients = 2});
  auto first = std::make_unique<PieceClient>(path);
  auto second = std::make_unique<PieceClient>(path);
  ASSERT_TRUE(first->Send("a"));
  ASSERT_TRUE(second->Send("b"));
  std::thread third([&] { EXPECT_EQ(SendControlRequest(path, "c", kRequestTimeout), "re: c"); });
  ASSERT_TRUE(second->Send("\n"));
  EXPECT_EQ(second->Receive(), "re: b");
  second.reset();
  third.join();
  ASSERT_TRUE(first->Send("\n"));
  EXPECT_EQ(first->Receive(), "re: a");
}

TEST_F(ControlChannel, RefusesAPathWhereAnotherHostListens) {
  const ControlServing serving(path);
  const std::string error = ControlErrorOf([&] { ControlListener{path}; });
  EXPECT_EQ(error.find("another host is listening on the " + std::string(kChannelName) + " " + path.string() + "; "),
            0U)
      << error;
  EXPECT_EQ(SendControlRequest(path, "again", kRequestTimeout), "re: again");
}

TEST_F(ControlChannel, ReportsThatNoHostListens) {
  const std::string error = ControlErrorOf([&] { SendControlRequest(path, "", std::chrono::seconds(1)); });
  EXPECT_EQ(error.find("no host reachable on the " + std::string(kChannelName) + " " + path.string() + ": "), 0U)
      << error;
}

TEST_F(ControlChannel, SurvivesAClientThatDisconnectsInTheMiddleOfALine) {
  const ControlServing serving(path);
  ASSERT_TRUE(ConnectAndSend(path, "half"));
  EXPECT_EQ(SendControlRequest(path, "next", kRequestTimeout), "re: next");
}

}  // namespace
}  // namespace fenlux::refhost
