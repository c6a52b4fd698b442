// The C header and the module's own records are the same: every size, offset and number.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "connection/notification_table.h"
#include "fenlux/driver_protocol.h"
#include "kdi/driver_records.h"

namespace fenlux::testing {
namespace {

#define EXPECT_SAME_SIZE(c, cxx) EXPECT_EQ(sizeof(c), sizeof(records::cxx))
#define EXPECT_SAME_FIELD(c, cField, cxx, cxxField)                 \
  EXPECT_EQ(offsetof(c, cField), offsetof(records::cxx, cxxField)); \
  EXPECT_EQ(sizeof(static_cast<c*>(nullptr)->cField), sizeof(records::cxx::cxxField))

TEST(DriverProtocol, RecordsAreTheModules) {
  EXPECT_SAME_SIZE(FenluxConnectContextRecord, ConnectContext);
  EXPECT_SAME_FIELD(FenluxConnectContextRecord, magic, ConnectContext, magic);
  EXPECT_SAME_FIELD(FenluxConnectContextRecord, version, ConnectContext, version);
  EXPECT_SAME_FIELD(FenluxConnectContextRecord, clientType, ConnectContext, clientType);
  EXPECT_SAME_SIZE(FenluxRequestHeader, RequestHeader);
  EXPECT_SAME_FIELD(FenluxRequestHeader, magic, RequestHeader, magic);
  EXPECT_SAME_FIELD(FenluxRequestHeader, command, RequestHeader, command);
  EXPECT_SAME_SIZE(FenluxMonitorObjectRecord, MonitorObjectRequest);
  EXPECT_SAME_FIELD(FenluxMonitorObjectRecord, header, MonitorObjectRequest, header);
  EXPECT_SAME_FIELD(FenluxMonitorObjectRecord, objectType, MonitorObjectRequest, objectType);
  EXPECT_SAME_FIELD(FenluxMonitorObjectRecord, pathFlag, MonitorObjectRequest, pathFlag);
  EXPECT_SAME_FIELD(FenluxMonitorObjectRecord, rootName, MonitorObjectRequest, rootName);
  EXPECT_SAME_FIELD(FenluxMonitorObjectRecord, path, MonitorObjectRequest, path);
  EXPECT_SAME_SIZE(FenluxValueRecord, ValueRequest);
  EXPECT_SAME_FIELD(FenluxValueRecord, value, ValueRequest, value);
  EXPECT_SAME_SIZE(FenluxClientSwitchRecord, ClientSwitchRequest);
  EXPECT_SAME_FIELD(FenluxClientSwitchRecord, clientType, ClientSwitchRequest, clientType);
  EXPECT_SAME_FIELD(FenluxClientSwitchRecord, on, ClientSwitchRequest, on);
  EXPECT_SAME_SIZE(FenluxSwitchRecord, SwitchRequest);
  EXPECT_SAME_FIELD(FenluxSwitchRecord, off, SwitchRequest, off);
  EXPECT_SAME_SIZE(FenluxSpspStateRecord, SpspStateRequest);
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t offsets[] = {
        offsetof(records::SpspStateRequest, switch1), offsetof(records::SpspStateRequest, switch2),
        offsetof(records::SpspStateRequest, switch3), offsetof(records::SpspStateRequest, switch4)};
    EXPECT_EQ(offsetof(FenluxSpspStateRecord, switches) + i, offsets[i]);
  }
  EXPECT_SAME_SIZE(FenluxSystemProcessRecord, SystemProcessRequest);
  EXPECT_SAME_FIELD(FenluxSystemProcessRecord, kind, SystemProcessRequest, kind);
  EXPECT_SAME_FIELD(FenluxSystemProcessRecord, processId, SystemProcessRequest, processId);
  EXPECT_SAME_SIZE(FenluxNetItemRecord, NetItemRequest);
  EXPECT_SAME_FIELD(FenluxNetItemRecord, listType, NetItemRequest, listType);
  EXPECT_SAME_FIELD(FenluxNetItemRecord, opaque, NetItemRequest, opaque);
  EXPECT_SAME_FIELD(FenluxNetItemRecord, value, NetItemRequest, value);
  EXPECT_SAME_SIZE(FenluxDriverConfigRecord, DriverConfigRequest);
  EXPECT_SAME_FIELD(FenluxDriverConfigRecord, block, DriverConfigRequest, block);
  // The module's record of the version reply ends after the version; the reply itself must have its full size.
  EXPECT_SAME_FIELD(FenluxVersionReplyRecord, header, VersionReply, header);
  EXPECT_SAME_FIELD(FenluxVersionReplyRecord, version, VersionReply, version);
  EXPECT_EQ(sizeof(FenluxVersionReplyRecord), records::kRequestSize);
}

TEST(DriverProtocol, NotificationsAndRepliesAreTheModules) {
  EXPECT_SAME_SIZE(FenluxNotificationRecord, Notification);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, unused0, Notification, unused0);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, processId, Notification, processId);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, code, Notification, code);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, variant, Notification, variant);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, conditionA, Notification, conditionA);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, unused26, Notification, unused26);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, conditionB, Notification, conditionB);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, conditionC, Notification, conditionC);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, oplock, Notification, oplock);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, item1Size, Notification, item1Size);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, item2Size, Notification, item2Size);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, item3Size, Notification, item3Size);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, item4Present, Notification, item4Present);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, identityPresent, Notification, identityPresent);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, identity, Notification, identity);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, detail, Notification, detail);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, accessKind, Notification, accessKind);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, accessValueA, Notification, accessValueA);
  EXPECT_SAME_FIELD(FenluxNotificationRecord, accessValueB, Notification, accessValueB);
  EXPECT_SAME_SIZE(FenluxEndpointDetail, EndpointDetail);
  EXPECT_SAME_FIELD(FenluxEndpointDetail, ipv6, EndpointDetail, ipv6);
  EXPECT_SAME_FIELD(FenluxEndpointDetail, port, EndpointDetail, port);
  EXPECT_SAME_FIELD(FenluxEndpointDetail, address, EndpointDetail, ipv6Address);
  EXPECT_EQ(offsetof(FenluxEndpointDetail, address), offsetof(records::EndpointDetail, ipv4Address));
  EXPECT_SAME_SIZE(FenluxRemoteDetail, RemoteDetail);
  EXPECT_SAME_FIELD(FenluxRemoteDetail, remote, RemoteDetail, remote);
  EXPECT_SAME_FIELD(FenluxRemoteDetail, words, RemoteDetail, words);
  EXPECT_SAME_SIZE(FenluxReplyRecord, Reply);
  EXPECT_SAME_FIELD(FenluxReplyRecord, magic, Reply, magic);
  EXPECT_SAME_FIELD(FenluxReplyRecord, fixedSize, Reply, fixedSize);
  EXPECT_SAME_FIELD(FenluxReplyRecord, verdict, Reply, verdict);
  EXPECT_SAME_FIELD(FenluxReplyRecord, contextSize, Reply, contextSize);
}

TEST(DriverProtocol, RecordsLieAtAnyAddress) {
  EXPECT_EQ(alignof(FenluxConnectContextRecord), 1u);
  EXPECT_EQ(alignof(FenluxMonitorObjectRecord), 1u);
  EXPECT_EQ(alignof(FenluxNetItemRecord), 1u);
  EXPECT_EQ(alignof(FenluxSystemProcessRecord), 1u);
  EXPECT_EQ(alignof(FenluxNotificationRecord), 1u);
  EXPECT_EQ(alignof(FenluxRemoteDetail), 1u);
  EXPECT_EQ(alignof(FenluxReplyRecord), 1u);
}

TEST(DriverProtocol, NumbersAreTheModules) {
  EXPECT_EQ(FENLUX_CONNECT_MAGIC, records::kConnectMagic);
  EXPECT_EQ(FENLUX_REQUEST_MAGIC, records::kRequestMagic);
  EXPECT_EQ(FENLUX_REPLY_MAGIC, records::kReplyMagic);
  EXPECT_EQ(FENLUX_CONNECT_VERSION, records::kConnectVersion);
  EXPECT_EQ(FENLUX_MODULE_VERSION, records::kModuleVersion);
  EXPECT_EQ(FENLUX_CLIENT_TYPE_1, records::ClientType(false));
  EXPECT_EQ(FENLUX_CLIENT_TYPE_2, records::ClientType(true));
  EXPECT_EQ(FENLUX_REQUEST_SIZE, records::kRequestSize);
  EXPECT_EQ(FENLUX_VERSION_REPLY_SIZE, records::kRequestSize);
  EXPECT_EQ(FENLUX_MAX_PAYLOAD_SIZE, records::kMaxPayloadSize);
  EXPECT_EQ(FENLUX_NOTIFICATION_FIXED_SIZE, records::kNotificationFixedSize);
  EXPECT_EQ(FENLUX_MAX_NOTIFICATION_SIZE, records::kMaxMessageSize);
  EXPECT_EQ(FENLUX_REPLY_FIXED_SIZE, records::kReplyFixedSize);
  EXPECT_EQ(FENLUX_REPLY_CONTEXT_TAIL, records::kContextTerminatorSize);
  EXPECT_EQ(FENLUX_NO_PROCESS, records::kNoProcess);
  EXPECT_EQ(std::wstring(FENLUX_PORT_NAME_WIDE), records::kPortName);
  EXPECT_EQ(std::wstring(FENLUX_PORT_NAME_WIDE).size(), FENLUX_PORT_NAME_LENGTH);
}

template <class Cxx>
void ExpectSame(unsigned c, Cxx cxx) {
  EXPECT_EQ(c, static_cast<unsigned>(cxx));
}

TEST(DriverProtocol, CommandsAreTheModules) {
  using records::Command;
  ExpectSame(FENLUX_COMMAND_ADD_MONITOR_OBJECT, Command::kAddMonitorObject);
  ExpectSame(FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS, Command::kCommitMonitorObjects);
  ExpectSame(FENLUX_COMMAND_GRPM_SWITCH, Command::kGrpmSwitch);
  ExpectSame(FENLUX_COMMAND_GRSP_SWITCH, Command::kGrspSwitch);
  ExpectSame(FENLUX_COMMAND_GRDTO_VALUE, Command::kGrdtoValue);
  ExpectSame(FENLUX_COMMAND_GRHARA_SWITCH, Command::kGrharaSwitch);
  ExpectSame(FENLUX_COMMAND_DUMP_DEBUG_INFO, Command::kDumpDebugInfo);
  ExpectSame(FENLUX_COMMAND_SPSP_STATE, Command::kSpspState);
  ExpectSame(FENLUX_COMMAND_DRIVER_VERSION, Command::kDriverVersion);
  ExpectSame(FENLUX_COMMAND_NET_CONTROL_MODE, Command::kNetControlMode);
  ExpectSame(FENLUX_COMMAND_SYSTEM_PROCESS, Command::kSystemProcess);
  ExpectSame(FENLUX_COMMAND_NET_ITEM_LIST_BEGIN, Command::kNetItemListBegin);
  ExpectSame(FENLUX_COMMAND_NET_ITEM, Command::kNetItem);
  ExpectSame(FENLUX_COMMAND_NET_ITEM_LIST_END, Command::kNetItemListEnd);
  ExpectSame(FENLUX_COMMAND_DRIVER_CONFIG, Command::kDriverConfig);
}

TEST(DriverProtocol, VerdictsAreTheModules) {
  using records::Verdict;
  ExpectSame(FENLUX_VERDICT_2, Verdict::kVerdict2);
  ExpectSame(FENLUX_VERDICT_PASS, Verdict::kPass);
  ExpectSame(FENLUX_VERDICT_4, Verdict::kVerdict4);
  ExpectSame(FENLUX_VERDICT_5, Verdict::kVerdict5);
  ExpectSame(FENLUX_VERDICT_CONTEXT, Verdict::kContext);
  ExpectSame(FENLUX_VERDICT_PASS_CLIENT_2, Verdict::kPassClient2);
  ExpectSame(FENLUX_VERDICT_UNJUDGED, Verdict::kUnjudged);
}

TEST(DriverProtocol, NotificationCodesAreTheModules) {
  namespace code = records::code;
  ExpectSame(FENLUX_CODE_ACCESS_1, code::kAccess1);
  ExpectSame(FENLUX_CODE_4109, code::kCategory2);
  ExpectSame(FENLUX_CODE_NO_REPLY, code::kNoReply);
  ExpectSame(FENLUX_CODE_ENDPOINT, code::kEndpoint);
  ExpectSame(FENLUX_CODE_REMOTE_1, code::kRemote1);
  ExpectSame(FENLUX_CODE_PREFIXED_PATH, code::kPrefixedPath);
  ExpectSame(FENLUX_CODE_ACCESS_2, code::kAccess2);
  ExpectSame(FENLUX_CODE_MARKED, code::kMarked);
  ExpectSame(FENLUX_CODE_FURTHER_PATH, code::kFurtherPath);
  ExpectSame(FENLUX_CODE_REMOTE_2, code::kRemote2);
  for (std::uint32_t number = 0; number < 20000; ++number) {
    EXPECT_EQ(FenluxIsNotificationCode(number) != 0, FindNotificationRow(number) != nullptr) << number;
  }
  EXPECT_FALSE(FenluxIsNotificationCode(0xFFFFFFFF));
}

}  // namespace
}  // namespace fenlux::testing
