// The requests that change what the driver does: pending monitor objects, network-control modes, switches, debug dump.
#include <stdexcept>

#include "common/guarded.h"
#include "common/log_codes.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {
namespace {

constexpr std::uint32_t kNetItemLists[] = {records::kNetItemList1, records::kNetItemList2, records::kNetItemList3};

bool IsMonitorObjectType(int objectType) {
  return objectType >= records::kObjectType1 && objectType <= records::kObjectType3;
}

void RequireImplemented(bool implemented, const char* message) {
  if (!implemented) throw std::runtime_error(message);
}

}  // namespace

// --- Pending monitor objects: every operation holds the list lock for its whole run.

std::vector<std::wstring>& CWinDriverInteract::PendingList(int objectType) {
  return objectType == records::kObjectType3 ? pendingMonitorObjectsB : pendingMonitorObjectsA;
}

bool CWinDriverInteract::AddMonitorObject(bool kernelSide, const char* path, int objectType) {
  if (kernelSide) throw std::runtime_error("NOT supported under windows driver!");
  if (path == nullptr) throw std::runtime_error("[wdi,aodm] bad parameter!");
  const MutexLock lock(interactMutex);
  std::wstring widePath;
  utility->ToWideString(widePath, path);
  if (!IsMonitorObjectType(objectType)) throw std::runtime_error("[wdi,aodm] bad parameter!");
  PendingList(objectType).push_back(std::move(widePath));
  return true;
}

void CWinDriverInteract::SendMonitorObjects(int objectType) {
  const MutexLock lock(interactMutex);
  if (!IsMonitorObjectType(objectType)) throw std::runtime_error("[wdi,samtd] bad parameter!");
  auto& pending = PendingList(objectType);
  try {
    RegisterMonitors(pending, objectType);
  } catch (...) {  // by intent: what could be reported has been
  }
  pending.clear();
}

bool CWinDriverInteract::ClearMonitorObjects(int objectType) {
  const MutexLock lock(interactMutex);
  if (!IsMonitorObjectType(objectType)) throw std::runtime_error("[wdi,gcm] bad parameter!");
  PendingList(objectType).clear();
  if (ready && !stopped && portClient.Load()) {
    SendValue(records::Command::kCommitMonitorObjects, static_cast<std::uint32_t>(objectType));
  }
  return true;
}

// --- Network control. Nothing is locked: hosts run one of these operations at a time, or their lists mix in the
// driver.

void CWinDriverInteract::SetNetControlMode(records::NetControlMode mode) {
  SendValue(records::Command::kNetControlMode, static_cast<std::uint32_t>(mode));
}

void CWinDriverInteract::EnterNetControlMode1() {
  SetNetControlMode(records::NetControlMode::kMode1);
  for (const std::uint32_t listType : kNetItemLists) ClearNetControlItems(listType);
}

void CWinDriverInteract::EnterNetControlMode3() {
  SetNetControlMode(records::NetControlMode::kMode3);
  for (const std::uint32_t listType : kNetItemLists) ClearNetControlItems(listType);
}

void CWinDriverInteract::ApplyNetControlItems(bool alternate, const std::shared_ptr<NetControlItems>& items) {
  LoadNetControlItems(records::kNetItemList3, items);
  SetNetControlMode(alternate ? records::NetControlMode::kAlternateItems : records::NetControlMode::kItems);
}

void CWinDriverInteract::AddNetControlItems(int itemType, const std::shared_ptr<NetControlItems>& items) {
  const auto listType = static_cast<std::uint32_t>(itemType);
  if (listType != records::kNetItemList1 && listType != records::kNetItemList2) {
    throw std::runtime_error("[wdi,ncadp] bad para!");
  }
  LoadNetControlItems(listType, items);
}

// --- Switches. Modes 1 and 3 select a switch, in opposite senses for the two operations; no other mode is known.

struct CWinDriverInteract::ModeSwitch {
  records::Command command;
  std::uint8_t switchOfMode1;
  std::uint8_t switchOfMode3;
  const char* notImplemented;
  const char* mode2Refused;
  const char* otherModeRefused;
};

void CWinDriverInteract::SendModeSwitch(const ModeSwitch& modeSwitch, bool implemented, std::uint32_t mode) {
  RequireImplemented(implemented, modeSwitch.notImplemented);
  if (mode == 2) throw std::runtime_error(modeSwitch.mode2Refused);
  if (mode != 1 && mode != 3) throw std::runtime_error(modeSwitch.otherModeRefused);
  SendRequest<records::ClientSwitchRequest>(modeSwitch.command, [&](records::ClientSwitchRequest& request) {
    request.clientType = records::ClientType(clientTypeFlag);
    request.on = mode == 1 ? modeSwitch.switchOfMode1 : modeSwitch.switchOfMode3;
  });
}

std::uint32_t CWinDriverInteract::SetGrspSwitch(bool implemented, std::uint32_t mode) {
  static constexpr ModeSwitch kGrsp{
      records::Command::kGrspSwitch, 0, 1, "[wdi,grsp]Not implemented.", "[wdi,granra]Not supported-1.",
      "[wdi,granra]Not supported-2."};
  SendModeSwitch(kGrsp, implemented, mode);
  return mode;
}

std::uint32_t CWinDriverInteract::SetGrpmSwitch(bool implemented, std::uint32_t mode) {
  static constexpr ModeSwitch kGrpm{
      records::Command::kGrpmSwitch, 1, 0, "[wdi,grpm]Not implemented.", "[wdi,grpm]Not supported-1.",
      "[wdi,grpm]Not supported-2."};
  SendModeSwitch(kGrpm, implemented, mode);
  return 1;
}

std::uint32_t CWinDriverInteract::SetGrdtoValue(bool implemented, std::uint32_t value) {
  RequireImplemented(implemented, "[wdi,grdto]Not implemented.");
  SendValue(records::Command::kGrdtoValue, value);
  return 0;
}

bool CWinDriverInteract::SetGrharaSwitch(bool implemented, bool on) {
  RequireImplemented(implemented, "[wdi,grhara]Not implemented.");
  SendRequest<records::SwitchRequest>(records::Command::kGrharaSwitch,
                                      [&](records::SwitchRequest& request) { request.off = on ? 0 : 1; });
  return true;
}

std::string CWinDriverInteract::DumpDriverDebugInfo() {
  Send(CreateRequest(records::Command::kDumpDebugInfo));
  return LocalizedText("Please use Dbgview to get result.");
}

}  // namespace fenlux
