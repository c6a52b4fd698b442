// The module sends exactly the request vectors, and judges the notification vectors as the header reads them.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/wide_text.h"
#include "driver/tests/notification_of_view.h"
#include "fenlux/driver_protocol.h"
#include "tests/unit/module/notification_test.h"

namespace fenlux::testing {
namespace {

const std::string kFolder = FENLUX_VECTORS;

Bytes ReadVector(const std::string& name) {
  std::ifstream in(kFolder + "/" + name + ".bin", std::ios::binary);
  EXPECT_TRUE(in) << name;
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The names of the vectors of one folder.
std::vector<std::string> VectorsIn(const std::string& folder) {
  std::ifstream index(kFolder + "/index.txt");
  std::vector<std::string> names;
  for (std::string kind, name; index >> kind >> name;) {
    if (name.rfind(folder + "/", 0) == 0) names.push_back(name);
  }
  EXPECT_FALSE(names.empty()) << folder;
  return names;
}

std::wstring Wide(FenluxText text) {
  return text.data == nullptr ? std::wstring() : WideFromUtf16(text.data, text.count);
}

// How many bytes of a request its command uses.
std::size_t UsedSize(const Bytes& request) {
  switch (FenluxLoadU32(request.data() + 8)) {
    case FENLUX_COMMAND_ADD_MONITOR_OBJECT:
      return sizeof(FenluxMonitorObjectRecord);
    case FENLUX_COMMAND_GRPM_SWITCH:
    case FENLUX_COMMAND_GRSP_SWITCH:
      return sizeof(FenluxClientSwitchRecord);
    case FENLUX_COMMAND_GRHARA_SWITCH:
      return sizeof(FenluxSwitchRecord);
    case FENLUX_COMMAND_DUMP_DEBUG_INFO:
    case FENLUX_COMMAND_DRIVER_VERSION:
      return sizeof(FenluxRequestHeader);
    case FENLUX_COMMAND_SPSP_STATE:
      return sizeof(FenluxSpspStateRecord);
    case FENLUX_COMMAND_SYSTEM_PROCESS:
      return sizeof(FenluxSystemProcessRecord);
    case FENLUX_COMMAND_NET_ITEM:
      return sizeof(FenluxNetItemRecord);
    case FENLUX_COMMAND_DRIVER_CONFIG:  // the blocks of the vectors do not end with 0
      return static_cast<std::size_t>(
          std::find_if(request.rbegin(), request.rend(), [](std::uint8_t byte) { return byte != 0; }).base() -
          request.begin());
    default:
      return sizeof(FenluxValueRecord);
  }
}

// The vector with 0xCD where the module writes nothing, as in the fake host's buffers.
Bytes RequestVector(const std::string& name) {
  Bytes request = ReadVector("request/" + name);
  if (request.size() != FENLUX_REQUEST_SIZE) return {};
  const auto used = std::max(UsedSize(request), sizeof(FenluxRequestHeader));
  std::fill(request.begin() + static_cast<std::ptrdiff_t>(used), request.end(), std::uint8_t{0xCD});
  return request;
}

// The units of a text in a record, in the machine's byte order.
class ModuleRequests : public ModuleTest {
 protected:
  // The requests sent since the last call are these vectors, in this order.
  void ExpectSent(const std::vector<std::string>& names) {
    const auto sent = host.Requests();
    ASSERT_EQ(sent.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
      EXPECT_TRUE(SameBytes(RequestVector(names[i]), sent[i].bytes)) << names[i];
    }
    host.ClearRequests();
  }
};

}  // namespace

TEST_F(ModuleRequests, ConnectContextsAreTheVectors) {
  for (const bool flag : {false, true}) {
    Settings().clientTypeFlag = flag;
    ReadyInteract();
    ASSERT_FALSE(host.ConnectContexts().empty());
    EXPECT_TRUE(SameBytes(ReadVector(flag ? "connect-context/client-type-2" : "connect-context/client-type-1"),
                          host.ConnectContexts().back()));
  }
}

TEST_F(ModuleRequests, SwitchRequestsAreTheVectors) {
  auto interact = ReadyInteract();
  interact->SetGrpmSwitch(true, 1);
  interact->SetGrspSwitch(true, 1);
  interact->SetGrdtoValue(true, 0x12345678);
  interact->SetGrharaSwitch(true, true);
  interact->SetGrharaSwitch(true, false);
  interact->DumpDriverDebugInfo();
  interact->GetDriverVersion();
  ExpectSent({"04-mode-1", "06-mode-1", "08-value", "09-on", "09-off", "11-dump", "13-version"});

  Settings().spsp1 = Settings().spsp2 = Settings().spsp4 = 1;
  Settings().spsp3 = 0;
  interact->SetSpspState(0);
  interact->SetSpspState(1);
  ExpectSent({"12-all", "12-middle-skipped"});

  Settings().clientTypeFlag = true;
  interact = ReadyInteract();
  interact->SetGrpmSwitch(true, 3);
  interact->SetGrspSwitch(true, 3);
  ExpectSent({"04-mode-3", "06-mode-3"});
}

TEST_F(ModuleRequests, MonitorObjectsAreTheVectors) {
  const auto interact = ReadyInteract();
  // A path too long for the system does not exist either, hence its flag.
  const std::string longest = "C:\\" + std::string(32765, 'a');
  interact->AddMonitorObject(false, longest.c_str(), 1);
  interact->SendMonitorObjects(1);
  auto sent = host.Requests();
  ASSERT_EQ(sent.size(), 2u);
  // Only on Windows does such a path have a root name.
  Bytes expected = RequestVector("01-longest");
  std::copy_n(sent[0].bytes.begin() + 17, 8, expected.begin() + 17);
  EXPECT_TRUE(SameBytes(expected, sent[0].bytes));
  EXPECT_TRUE(SameBytes(RequestVector("03-commit-type-1"), sent[1].bytes));
  host.ClearRequests();
  interact->ClearMonitorObjects(2);
  interact->ClearMonitorObjects(3);
  ExpectSent({"03-commit-type-2", "03-commit-type-3"});
}

TEST_F(ModuleRequests, NetworkControlIsTheVectors) {
  const auto interact = ReadyInteract();
  const auto items = std::make_shared<NetControlItems>(1);
  for (std::size_t i = 0; i < 48; ++i) items->front().opaque[i] = static_cast<std::uint8_t>(i + 1);
  items->front().value = 0xa0b0c0d0;
  interact->ApplyNetControlItems(false, items);
  ExpectSent({"21-list-begin", "22-item", "23-list-end", "19-mode-2"});
  interact->ApplyNetControlItems(true, nullptr);
  ExpectSent({"21-list-begin", "23-list-end", "19-mode-4"});
  for (const bool first : {true, false}) {
    first ? interact->EnterNetControlMode1() : interact->EnterNetControlMode3();
    const auto sent = host.RequestsOf(19);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_TRUE(SameBytes(RequestVector(first ? "19-mode-1" : "19-mode-3"), sent[0].bytes));
    host.ClearRequests();
  }
}

TEST_F(ModuleRequests, SystemProcessesAndConfigurationAreTheVectors) {
  const auto interact = ReadyInteract();
  interact->RegisterSystemProcess(2, 0x1a4);
  interact->RegisterSystemProcess(3, 0x123456789abcdef0);
  interact->SendDriverConfig();
  ExpectSent({"20-csrss", "20-services", "24-no-block"});
  Bytes block;
  for (std::uint8_t value = 0xe0; value < 0xf4; ++value) block.push_back(value);
  host.SetDriverConfigBlock(host.MakeBuffer(block));
  interact->SendDriverConfig();
  ExpectSent({"24-block"});
}

TEST_F(ModuleRequests, VersionRepliesAreRead) {
  for (const auto& [name, version] : {std::pair{"module-version", 19072701u}, std::pair{"other-version", 19072600u}}) {
    const Bytes reply = ReadVector(std::string("version-reply/") + name);
    Settings().answer = [&](const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>& answer) {
      if (answer) answer = host.MakeBuffer(reply);
    };
    EXPECT_EQ(ReadyInteract()->GetDriverVersion(), version);
    Settings().answer = nullptr;
  }
}

TEST_F(NotificationTest, NotificationVectorsAreJudgedAsTheHeaderReadsThem) {
  Settings().decision = 3;
  for (const std::string& name : VectorsIn("notification")) {
    SCOPED_TRACE(name);
    const Bytes message = ReadVector(name);
    FenluxNotificationView view = {};
    ASSERT_EQ(FenluxParseNotification(message.data(), message.size(), &view), FENLUX_OK);
    const auto reply = Dispatch(message);
    ASSERT_EQ(reply != nullptr, FenluxIsReplyExpected(view.event.code) != 0);
    if (reply) {
      const Bytes bytes = BytesOf(reply);
      FenluxReplyView replyView = {};
      ASSERT_EQ(FenluxParseReply(bytes.data(), bytes.size(), &replyView), FENLUX_OK);
      EXPECT_EQ(replyView.verdict, view.event.oplock != 0 ? FENLUX_VERDICT_PASS : FENLUX_VERDICT_4);
    }
    const auto record = host.Record();
    ASSERT_TRUE(record);
    std::wstring path = Wide(view.furtherPath.data != nullptr ? view.furtherPath : view.path);
    if (view.event.code == FENLUX_CODE_PREFIXED_PATH) path.erase(0, 12);
    const bool lookedUp =
        path.empty() && (view.event.code == FENLUX_CODE_REMOTE_1 || view.event.code == FENLUX_CODE_REMOTE_2);
    EXPECT_EQ(record->path, lookedUp ? L"wide-4711" : path);
    EXPECT_EQ(record->secondPath, Wide(view.secondPath));
    EXPECT_EQ(record->ProcessPart()->GetProcessId(), view.event.processId);
    EXPECT_EQ(Logged().size(), view.event.oplock != 0 ? 1u : 0u);
  }
}

TEST_F(NotificationTest, MalformedNotificationVectorsAreNotJudged) {
  Settings().decision = 3;
  std::size_t checked = 0;
  for (const std::string& name : VectorsIn("malformed")) {
    if (name.rfind("malformed/notification-", 0) != 0) continue;
    SCOPED_TRACE(name);
    ++checked;
    const auto reply = Dispatch(ReadVector(name));
    ASSERT_TRUE(reply);
    const Bytes bytes = BytesOf(reply);
    FenluxReplyView view = {};
    ASSERT_EQ(FenluxParseReply(bytes.data(), bytes.size(), &view), FENLUX_OK);
    EXPECT_EQ(view.verdict, FENLUX_VERDICT_UNJUDGED);
    EXPECT_EQ(Logged().size(), 1u);
  }
  EXPECT_GE(checked, 7u);
}

TEST(DriverProtocol, BuilderMakesTheNotificationVectors) {
  for (const std::string& name : VectorsIn("notification")) {
    SCOPED_TRACE(name);
    const Bytes message = ReadVector(name);
    FenluxNotificationView view = {};
    ASSERT_EQ(FenluxParseNotification(message.data(), message.size(), &view), FENLUX_OK);
    // If there is a further path, the view does not contain the path.
    if (name == "notification/8204-further-path-last") continue;
    const NotificationOfView notification(view);
    Bytes built(message.size(), 0xCD);
    std::size_t size = 0;
    ASSERT_EQ(FenluxBuildNotification(notification.Get(), built.data(), built.size(), &size), FENLUX_OK);
    EXPECT_EQ(size, message.size());
    EXPECT_TRUE(SameBytes(message, built));
  }
}

TEST(DriverProtocol, BuilderMakesTheReplyVectors) {
  for (const std::string& name : VectorsIn("reply")) {
    if (name.find("unused-cd") != std::string::npos) continue;  // from a buffer that the builder would clear
    SCOPED_TRACE(name);
    const Bytes reply = ReadVector(name);
    FenluxReplyView view = {};
    ASSERT_EQ(FenluxParseReply(reply.data(), reply.size(), &view), FENLUX_OK);
    Bytes built(reply.size(), 0xCD);
    std::size_t size = 0;
    ASSERT_EQ(FenluxBuildReply(view.verdict, view.context, built.data(), built.size(), &size), FENLUX_OK);
    EXPECT_EQ(size, reply.size());
    EXPECT_TRUE(SameBytes(reply, built));
  }
}

TEST(DriverProtocol, BuilderMakesTheVersionReplyVectors) {
  for (const auto& [name, version] : {std::pair{"module-version", 19072701u}, std::pair{"other-version", 19072600u}}) {
    Bytes built(FENLUX_VERSION_REPLY_SIZE, 0xCD);
    ASSERT_EQ(FenluxBuildVersionReply(version, built.data(), built.size()), FENLUX_OK);
    EXPECT_TRUE(SameBytes(ReadVector(std::string("version-reply/") + name), built));
  }
}

TEST_F(NotificationTest, WhatTheHeaderBuildsReachesTheRecord) {
  static constexpr std::uint16_t kPath[] = {'\\', 'a', 0xD83D, 0xDCC1};
  FenluxNotification notification = {};
  notification.event.code = FENLUX_CODE_ENDPOINT;
  notification.event.processId = 77;
  notification.event.detail.endpoint = {0, 443, {192, 0, 2, 1}};
  notification.path = {kPath, 4};
  std::size_t size = 0;
  ASSERT_EQ(FenluxBuildNotification(&notification, nullptr, 0, &size), FENLUX_ERROR_CAPACITY);
  Bytes message(size);
  ASSERT_EQ(FenluxBuildNotification(&notification, message.data(), message.size(), &size), FENLUX_OK);
  Dispatch(message);
  EXPECT_EQ(host.Record()->path, L"\\a\U0001F4C1");
  EXPECT_EQ(host.Record()->eventType, 0x1002u);
  // The host gets an IPv4 address as the little-endian number of bytes in network order.
  EXPECT_EQ(Gate().EntriesOf({"CArpRecord::SetPort", "CArpRecord::SetIpv"}),
            (Lines{"CArpRecord::SetPort(443)", "CArpRecord::SetIpv6(false)", "CArpRecord::SetIpv4Address(0x10200c0)"}));
}

}  // namespace fenlux::testing
