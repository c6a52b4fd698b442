// Recording: what a wrapped port client writes to the file, and what happens if it cannot be written.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "host/buf.h"
#include "refhost/capture/recording_port_client.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_timeout.h"
#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Buffer final : public CBuf {
 public:
  explicit Buffer(std::string text) : content(std::move(text)) {}
  std::uint8_t* GetData() override { return reinterpret_cast<std::uint8_t*>(content.data()); }
  std::size_t GetSize() override { return content.size(); }

 private:
  std::string content;
};

std::shared_ptr<CBuf> Buf(const std::string& text) { return std::make_shared<Buffer>(text); }

std::string TextOf(const std::shared_ptr<CBuf>& buffer) {
  return buffer == nullptr ? "none" : std::string(reinterpret_cast<char*>(buffer->GetData()), buffer->GetSize());
}

// A port client without a driver. It answers every request with "answer".
class StandInClient final : public CPortClient {
 public:
  void Connect() override {
    if (refuses) throw std::runtime_error("refused");
  }
  void Start() override { ++starts; }
  void Wait() override {}
  void Close() override { ++closes; }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override {
    EXPECT_TRUE(flag);
    if (TextOf(request) == "fail") throw std::runtime_error("no such request");
    if (reply != nullptr) reply = Buf("answer");
  }

  bool refuses = false;
  int starts = 0;
  int closes = 0;
};

// The module's handler: replies with the message, unless the message names another reaction.
std::shared_ptr<CBuf> Handle(const void* message, std::uint32_t size) {
  const std::string text(static_cast<const char*>(message), size);
  if (text == "throw") throw std::runtime_error("no buffer");
  if (text == "nothing") return nullptr;
  return Buf("reply to " + text);
}

class RecorderTest : public ::testing::Test {
 protected:
  RecordingSettings Settings() const {
    RecordingSettings settings;
    settings.file = file;
    settings.stopTimeout = kTestTimeout;
    return settings;
  }
  // A wrapped client; its handler stays in `handler`.
  std::shared_ptr<CPortClient> Wrap(const std::shared_ptr<Recorder>& recorder) {
    return RecordPort(recorder, Buf("context"), Handle, [this](const NotificationHandler& recorded) {
      handler = recorded;
      return client;
    });
  }
  std::shared_ptr<CBuf> Notify(const std::string& message) const {
    return handler(message.data(), static_cast<std::uint32_t>(message.size()));
  }
  static std::shared_ptr<CBuf> Send(CPortClient& port, const std::string& request, bool wantsReply) {
    std::shared_ptr<CBuf> reply = wantsReply ? Buf("buffer") : nullptr;
    port.Send(Buf(request), reply, true);
    return reply;
  }
  // "kind connection:exchange message" for every packet, with a comment in parentheses.
  static std::vector<std::string> Lines(const ReadCapture& read) {
    std::vector<std::string> lines;
    for (const ReadPacket& each : read.packets) {
      const PacketHeader& header = each.packet.header;
      std::string line = std::string(KindName(header.kind)) + " " + std::to_string(header.connection) + ":" +
                         std::to_string(header.exchange) + " " + each.message;
      if (!each.comment.empty()) line += "(" + each.comment + ")";
      lines.push_back(line);
    }
    return lines;
  }
  ReadCapture Read(const std::string& name = "port.pcapng") const {
    std::ifstream stream((directory.Path() / name).string(), std::ios::binary);
    ReadCapture read = ReadAll({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()});
    for (const Problem& problem : read.problems) ADD_FAILURE() << problem.offset << ": " << problem.text;
    EXPECT_FALSE(read.cutOff);
    return read;
  }

  TemporaryDirectory directory;
  boost::filesystem::path file = directory.Path() / "port.pcapng";
  std::shared_ptr<StandInClient> client = std::make_shared<StandInClient>();
  NotificationHandler handler;
};

TEST_F(RecorderTest, EveryMessageOfAPortIsRecordedInOrder) {
  const auto recorder = std::make_shared<Recorder>(Settings());
  const auto port = Wrap(recorder);
  port->Connect();
  port->Start();
  EXPECT_EQ(TextOf(Send(*port, "ask", true)), "answer");
  Send(*port, "tell", false);
  EXPECT_EQ(TextOf(Notify("event")), "reply to event");
  EXPECT_EQ(Notify("nothing"), nullptr);
  port->Close();
  recorder->Stop();
  EXPECT_EQ(client->starts, 1);
  EXPECT_EQ(client->closes, 1);
  EXPECT_THAT(Lines(Read()), ElementsAre("connect_context 1:0 context", "request 1:1 ask", "request_reply 1:1 answer",
                                         "request 1:2 tell", "request_reply 1:2 ", "notification 1:3 event",
                                         "notification_reply 1:3 reply to event", "notification 1:4 nothing",
                                         "notification_reply 1:4 ", "closed 1:0 the module closed the connection"));
  const RecordingStatus status = recorder->Status();
  EXPECT_FALSE(status.active);
  EXPECT_EQ(status.messages, 10u);
  EXPECT_EQ(status.written, 10u);
  EXPECT_EQ(status.dropped, 0u);
  EXPECT_EQ(status.files, 1u);
}

TEST_F(RecorderTest, FailuresPassThroughAndAreRecorded) {
  const auto recorder = std::make_shared<Recorder>(Settings());
  auto port = Wrap(recorder);
  port->Connect();
  EXPECT_THROW(Send(*port, "fail", true), std::runtime_error);
  EXPECT_THROW(Notify("throw"), std::runtime_error);
  port.reset();
  client->refuses = true;
  EXPECT_THROW(Wrap(recorder)->Connect(), std::runtime_error);
  recorder->Stop();
  EXPECT_THAT(Lines(Read()),
              ElementsAre("connect_context 1:0 context", "request 1:1 fail", "request_reply 1:1 (no such request)",
                          "notification 1:2 throw", "notification_reply 1:2 (no buffer)",
                          "closed 1:0 the module released the port client", "connect_context 2:0 context",
                          "closed 2:0 refused"));
}

TEST_F(RecorderTest, AJudgementBelongsToTheNotificationOnItsThread) {
  const auto recorder = std::make_shared<Recorder>(Settings());
  const auto port = RecordPort(
      recorder, Buf("context"),
      [&](const void* message, std::uint32_t size) {
        recorder->AddJudgement({3, "rule \"x\"", std::chrono::microseconds(12)});
        return Handle(message, size);
      },
      [this](const NotificationHandler& recorded) {
        handler = recorded;
        return client;
      });
  Notify("event");
  recorder->AddJudgement({2, "", std::chrono::microseconds(0)});
  recorder->Stop();
  EXPECT_THAT(Lines(Read()), ElementsAre("notification 1:1 event",
                                         R"(judgement 1:1 {"decision":3,"rule":"rule \"x\"","microseconds":12})",
                                         "notification_reply 1:1 reply to event",
                                         R"(judgement 0:0 {"decision":2,"rule":"","microseconds":0})"));
}

TEST_F(RecorderTest, ARecordingThatStartsLaterBeginsWithFactsAndOpenConnections) {
  const auto recorder = std::make_shared<Recorder>();
  recorder->SetFacts(R"({"policy":[]})");
  const auto port = Wrap(recorder);
  port->Connect();
  Notify("unrecorded");
  EXPECT_FALSE(boost::filesystem::exists(file));
  recorder->Start(Settings());
  EXPECT_TRUE(recorder->Status().active);
  EXPECT_THROW(recorder->Start(Settings()), RecordingError);
  recorder->AddCall(R"({"operation":"stop"})");
  recorder->Stop();
  Notify("unrecorded");
  EXPECT_THAT(Lines(Read()), ElementsAre(R"(facts 0:0 {"policy":[]})", "connect_context 1:0 context",
                                         R"(call 0:1 {"operation":"stop"})"));
}

TEST_F(RecorderTest, KindsOfMessagesCanBeExcluded) {
  RecordingSettings settings = Settings();
  settings.kinds = {.requests = false, .notifications = true, .judgements = false, .facts = false, .calls = false};
  const auto recorder = std::make_shared<Recorder>(settings);
  recorder->SetFacts("{}");
  const auto port = Wrap(recorder);
  port->Connect();
  Send(*port, "tell", false);
  Notify("event");
  recorder->AddJudgement({});
  recorder->AddCall("{}");
  recorder->Stop();
  EXPECT_THAT(Lines(Read()), ElementsAre("connect_context 1:0 context", "notification 1:2 event",
                                         "notification_reply 1:2 reply to event"));
}

TEST_F(RecorderTest, EveryFileOfARotationCanBeReadOnItsOwn) {
  RecordingSettings settings = Settings();
  settings.maxFileSize = 1000;
  settings.maxFiles = 3;
  const auto recorder = std::make_shared<Recorder>(settings);
  recorder->SetFacts("{\"first\":1}");
  recorder->SetFacts("{\"last\":1}");
  const auto closed = Wrap(recorder);
  closed->Connect();
  closed->Close();
  const auto port = Wrap(recorder);
  port->Connect();
  const std::string event(300, 'e');
  for (int i = 0; i < 10; ++i) Notify(event);
  recorder->Stop();
  EXPECT_GT(recorder->Status().files, 3u);
  EXPECT_EQ(recorder->Status().dropped, 0u);

  std::vector<std::uint64_t> exchanges;
  for (const char* name : {"port.2.pcapng", "port.1.pcapng", "port.pcapng"}) {
    const ReadCapture read = Read(name);
    EXPECT_LE(boost::filesystem::file_size(directory.Path() / name), 1000u);
    const std::vector<std::string> lines = Lines(read);
    ASSERT_GE(lines.size(), 3u) << name;
    EXPECT_EQ(lines[0], "facts 0:0 {\"last\":1}");
    EXPECT_EQ(lines[1], "connect_context 2:0 context");
    for (const ReadPacket& each : read.packets) {
      if (each.packet.header.exchange != 0) exchanges.push_back(each.packet.header.exchange);
    }
  }
  EXPECT_TRUE(std::is_sorted(exchanges.begin(), exchanges.end()));
  EXPECT_EQ(exchanges.back(), 10u);
  EXPECT_FALSE(boost::filesystem::exists(directory.Path() / "port.3.pcapng"));
}

TEST_F(RecorderTest, AnOlderCaptureIsKeptIfThereIsRoom) {
  RecordingSettings settings = Settings();
  settings.maxFiles = 2;
  for (const std::string facts : {"{\"run\":1}", "{\"run\":2}"}) {
    Recorder recorder(settings);
    recorder.SetFacts(facts);
  }
  EXPECT_THAT(Lines(Read()), ElementsAre("facts 0:0 {\"run\":2}"));
  EXPECT_THAT(Lines(Read("port.1.pcapng")), ElementsAre("facts 0:0 {\"run\":1}"));
}

TEST_F(RecorderTest, ARecordingThatCannotStartSaysWhy) {
  const auto reason = [](const RecordingSettings& settings) -> std::string {
    try {
      Recorder recorder(settings);
    } catch (const RecordingError& error) {
      return error.what();
    }
    return "none";
  };
  RecordingSettings settings = Settings();
  directory.Write("port.pcapng", "a letter");
  EXPECT_THAT(reason(settings), HasSubstr("port.pcapng exists and is not a capture"));
  EXPECT_EQ(FileText(file), "a letter");
  settings.file = directory.Path() / "missing" / "port.pcapng";
  EXPECT_THAT(reason(settings), HasSubstr("port.pcapng cannot be created: "));
  settings.file.clear();
  EXPECT_THAT(reason(settings), HasSubstr("name of a file"));
  settings = Settings();
  settings.maxFiles = 0;
  EXPECT_THAT(reason(settings), HasSubstr("at least one file"));
}

// Messages that do not fit are dropped at once, and the next one says how many.
TEST_F(RecorderTest, MessagesThatDoNotFitInTheQueueAreCountedAndMarked) {
  RecordingSettings settings = Settings();
  settings.queueSize = 65536;
  const auto recorder = std::make_shared<Recorder>(settings);
  const auto port = Wrap(recorder);
  port->Connect();
  const std::string large(100'000, 'x');
  Notify(large);
  Notify("small");
  port->Close();
  recorder->Stop();
  const ReadCapture read = Read();
  EXPECT_THAT(Lines(read),
              ElementsAre("connect_context 1:0 context", "notification 1:2 small",
                          "notification_reply 1:2 reply to small", "closed 1:0 the module closed the connection"));
  EXPECT_EQ(read.packets[1].packet.dropped, 2u);
  EXPECT_EQ(read.packets[2].packet.dropped, 0u);
  EXPECT_EQ(recorder->Status().dropped, 2u);
  EXPECT_EQ(recorder->Status().messages, 6u);
  EXPECT_EQ(recorder->Status().written, 4u);
}

TEST_F(RecorderTest, WithoutARecorderThePortClientIsTheHostsOwn) {
  EXPECT_EQ(RecordPort(nullptr, Buf("context"), Handle, [this](const NotificationHandler&) { return client; }), client);
  const auto recorder = std::make_shared<Recorder>();
  EXPECT_EQ(RecordPort(recorder, Buf("context"), Handle, [](const NotificationHandler&) { return nullptr; }), nullptr);
  const auto throws = [](const NotificationHandler&) -> std::shared_ptr<CPortClient> {
    throw std::runtime_error("no port");
  };
  EXPECT_THROW(RecordPort(recorder, nullptr, Handle, throws), std::runtime_error);
}

TEST_F(RecorderTest, APortClientMayOutliveItsRecorder) {
  auto recorder = std::make_shared<Recorder>(Settings());
  const auto port = Wrap(recorder);
  port->Connect();
  recorder.reset();
  EXPECT_EQ(TextOf(Notify("event")), "reply to event");
  port->Close();
  EXPECT_THAT(Lines(Read()), ElementsAre("connect_context 1:0 context"));
}

TEST_F(RecorderTest, ManyThreadsRecordEveryMessageOnce) {
  const auto recorder = std::make_shared<Recorder>(Settings());
  const auto port = Wrap(recorder);
  port->Connect();
  constexpr int kThreads = 4, kEvents = 500;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([this] {
      for (int event = 0; event < kEvents; ++event) Notify("event");
    });
  }
  for (std::thread& thread : threads) thread.join();
  recorder->Stop();
  const ReadCapture read = Read();
  EXPECT_EQ(recorder->Status().dropped, 0u);
  std::vector<int> seen(kThreads * kEvents + 1);
  std::uint64_t time = 0;
  for (const ReadPacket& each : read.packets) {
    ++seen[each.packet.header.exchange];
    EXPECT_LE(time, each.packet.time);
    time = each.packet.time;
  }
  for (std::size_t exchange = 1; exchange < seen.size(); ++exchange) EXPECT_EQ(seen[exchange], 2) << exchange;
}

TEST_F(RecorderTest, FactsAndJudgementsMayContainAnything) {
  const auto recorder = std::make_shared<Recorder>(Settings());
  recorder->SetFacts("");
  recorder->AddJudgement({3, std::string_view("\xFF\n", 2), std::chrono::microseconds(1)});
  recorder->Stop();
  EXPECT_THAT(Lines(Read()),
              ElementsAre("judgement 0:0 {\"decision\":3,\"rule\":\"\xEF\xBF\xBD\\n\",\"microseconds\":1}"));
}

}  // namespace
}  // namespace fenlux::testing
