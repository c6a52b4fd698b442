// The order of operations in each interface: a host and a module built with different orders would call the wrong ones.
// With the supported compilers, a pointer to a virtual member function contains its slot. Taking the address of an
// overloaded name does not compile, so this also checks that there are no overloads. The fakes implement exactly these
// operations and can be instantiated, so the interfaces declare no others.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include "core/fenlux.h"
#include "host/host.h"
#include "kdi/kdi_base.h"

namespace fenlux::testing {
namespace {

template <class Member>
std::ptrdiff_t SlotOf(Member member) {
  std::ptrdiff_t parts[2];
  static_assert(sizeof member == sizeof parts);
  std::memcpy(parts, &member, sizeof parts);
  EXPECT_EQ(parts[0] % static_cast<std::ptrdiff_t>(sizeof(void*)), 1) << "not virtual";
  EXPECT_EQ(parts[1], 0) << "not in the first base";
  return parts[0] / static_cast<std::ptrdiff_t>(sizeof(void*));
}

template <class Interface>
void ExpectBareInterface() {
  static_assert(std::is_abstract_v<Interface>);
  static_assert(!std::has_virtual_destructor_v<Interface>);
  static_assert(sizeof(Interface) == sizeof(void*), "an interface has no data");
}

template <class Interface, class... Members>
void ExpectSlots(Members... members) {
  const std::vector<std::ptrdiff_t> slots{SlotOf(members)...};
  for (std::size_t i = 0; i < slots.size(); ++i) EXPECT_EQ(slots[i], static_cast<std::ptrdiff_t>(i));
}

}  // namespace

TEST(SlotOrder, GlobalContext) {
  using I = CGlobalContext;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::GetCfg, &I::GetLog, &I::GetLocale, &I::GetUtility, &I::GetNet, &I::GetRecordService,
                 &I::GetWinWork, &I::GetArpMgmt, &I::GetCfgEx, &I::GetAoArp, &I::RegisterModule);
}

TEST(SlotOrder, Locale) {
  ExpectBareInterface<CLocale>();
  ExpectSlots<CLocale>(&CLocale::TranslateText);
}

TEST(SlotOrder, Log) {
  using I = CLog;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::LogAlert, &I::LogProblem, &I::LogWarning, &I::LogNotice, &I::LogEvent, &I::LogDetail);
}

TEST(SlotOrder, Measurement) {
  ExpectBareInterface<CMeasurement>();
  ExpectSlots<CMeasurement>(&CMeasurement::GetResultText);
}

TEST(SlotOrder, Utility) {
  using I = CUtility;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::QueryVersionFlag, &I::ToNarrowString, &I::TransformPath, &I::ConvertText, &I::CreateMeasurement,
                 &I::CopyToField, &I::ToWideString, &I::ToRecordString, &I::CreateBuffer, &I::TestPath,
                 &I::BufferFromBytes, &I::WriteLog);
}

TEST(SlotOrder, Buf) {
  ExpectBareInterface<CBuf>();
  ExpectSlots<CBuf>(&CBuf::GetData, &CBuf::GetSize);
}

TEST(SlotOrder, SpspSettings) {
  using I = CSpspSettings;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::GetSpspFlag1, &I::GetReservedFlag, &I::GetSpspFlag2, &I::GetSpspFlag3, &I::GetSpspFlag4);
}

TEST(SlotOrder, Cfg) {
  using I = CCfg;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::GetRecordFactory, &I::GetSpspSettings, &I::ReportDriverVersion, &I::IsMeasuringEnabled);
}

TEST(SlotOrder, RecordService) {
  ExpectBareInterface<CKdiRecord>();
  ExpectSlots<CKdiRecord>(&CKdiRecord::SetName, &CKdiRecord::SetPortValue, &CKdiRecord::SetValue1,
                          &CKdiRecord::SetValue2);
  ExpectBareInterface<CRecordFactory>();
  ExpectSlots<CRecordFactory>(&CRecordFactory::CreateRecord);
  ExpectBareInterface<CRecordRegistration>();
  ExpectSlots<CRecordRegistration>(&CRecordRegistration::Withdraw);
  ExpectBareInterface<CRecordService>();
  ExpectSlots<CRecordService>(&CRecordService::Register);
}

TEST(SlotOrder, Net) {
  ExpectBareInterface<CNetObject>();
  ExpectSlots<CNetObject>(&CNetObject::Release);
  ExpectBareInterface<CNet>();
  ExpectSlots<CNet>(&CNet::CreateObject);
}

TEST(SlotOrder, CfgEx) {
  ExpectBareInterface<CPolicyObject>();
  ExpectSlots<CPolicyObject>(&CPolicyObject::GetMonitorPath);
  using I = CCfgEx;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::GetRecordValue1, &I::GetRecordValue2, &I::GetPortValue, &I::IsEnabled, &I::GetDriverInterfaceFlag,
                 &I::GetMonitorPolicy, &I::IsCacheBypassed, &I::IsIdentityTextAdded, &I::GetRefreshInterval,
                 &I::GetDriverConfigBlock, &I::GetClientTypeFlag, &I::GetMonitorObjectFlag);
}

TEST(SlotOrder, WinWork) {
  using I = CWinWork;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::SystemPath, &I::QueryProcessValue, &I::GetProcessWideText, &I::GetProcessNarrowText,
                 &I::CreatePortClient, &I::GetIdentityText, &I::FindProcessesByImage, &I::GetRunningProcessIds);
}

TEST(SlotOrder, PortClient) {
  using I = CPortClient;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::Connect, &I::Start, &I::Wait, &I::Close, &I::Send);
}

TEST(SlotOrder, ArpProcess) {
  using I = CArpProcess;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::GetProcessId, &I::SetProcessId, &I::SetSessionId, &I::SetNarrowInfo, &I::SetIdentityText);
}

TEST(SlotOrder, ArpRecord) {
  using I = CArpRecord;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::ProcessPart, &I::Mark, &I::GetPath, &I::GetContextData, &I::GetPathSource, &I::Describe,
                 &I::SetPath, &I::SetSecondPath, &I::SetEventType, &I::SetCategory, &I::SetSource, &I::SetExtraData,
                 &I::SetPort, &I::SetIpv6, &I::SetIpv4Address, &I::SetIpv6Address, &I::SetRemoteFlag, &I::SetWord0,
                 &I::SetWord1, &I::SetWord2, &I::SetWord3, &I::SetValueA, &I::SetValueB, &I::SetWideInfo);
}

TEST(SlotOrder, ArpMgmtAndAoArp) {
  ExpectBareInterface<CArpMgmt>();
  ExpectSlots<CArpMgmt>(&CArpMgmt::CreateRecord);
  ExpectBareInterface<CAoArp>();
  ExpectSlots<CAoArp>(&CAoArp::Evaluate);
}

TEST(SlotOrder, Fenlux) {
  using I = CFenlux;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::StartWork, &I::StopWork, &I::NotifyPolicyChanged, &I::GetDriverPortValue, &I::GetDriverInteract);
}

TEST(SlotOrder, DrvXControl) {
  using I = CDrvXControl;
  ExpectBareInterface<I>();
  ExpectSlots<I>(&I::AddMonitorObject, &I::SendMonitorObjects, &I::ClearMonitorObjects, &I::EnterNetControlMode1,
                 &I::ApplyNetControlItems, &I::EnterNetControlMode3, &I::AddNetControlItems);
}

TEST(SlotOrder, KdiBaseStartsWithTheSevenOperationsOfDrvXControl) {
  using I = CKDIBase;
  static_assert(std::is_abstract_v<I>);
  static_assert(!std::has_virtual_destructor_v<I>);
  ExpectSlots<I>(&I::AddMonitorObject, &I::SendMonitorObjects, &I::ClearMonitorObjects, &I::EnterNetControlMode1,
                 &I::ApplyNetControlItems, &I::EnterNetControlMode3, &I::AddNetControlItems, &I::GetDriverVersion,
                 &I::IsDriverReady, &I::IsStopRequested, &I::QueryOptionalFeature, &I::SetGrspSwitch,
                 &I::QuerySupportedFeature, &I::DumpDriverDebugInfo, &I::SetGrpmSwitch, &I::SetGrdtoValue,
                 &I::GetImplementationCode, &I::SetGrharaSwitch, &I::SetSpspState, &I::RegisterSystemProcess,
                 &I::SendDriverConfig, &I::RunDriverConnection, &I::StopInteract, &I::OnKernelData, &I::TriggerLtrkd);
}

TEST(SlotOrder, DrvXControlIsThePrimaryBaseOfKdiBase) {
  // Both have the same address, so the host may use either table.
  alignas(CKDIBase) static unsigned char storage[sizeof(CKDIBase)];
  auto* const base = reinterpret_cast<CKDIBase*>(storage);
  EXPECT_EQ(static_cast<void*>(static_cast<CDrvXControl*>(base)), static_cast<void*>(base));
}

TEST(SlotOrder, ANetControlItemIs48BytesAndANumber) {
  EXPECT_EQ(sizeof(NetControlItem), 52u);
  EXPECT_EQ(offsetof(NetControlItem, opaque), 0u);
  EXPECT_EQ(offsetof(NetControlItem, value), 48u);
}

}  // namespace fenlux::testing
