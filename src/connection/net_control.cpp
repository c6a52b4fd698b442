// Network control: modes, and the driver's item lists, each sent as begin, items, end.
//
// Takes no lock on purpose: a host runs one of these operations at a time, or their lists mix in the driver.
#include <algorithm>
#include <stdexcept>

#include "common/guarded.h"
#include "common/log_codes.h"
#include "common/text.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {
namespace {

using records::NetControlMode;

constexpr std::uint32_t kLists[] = {records::kNetItemList1, records::kNetItemList2, records::kNetItemList3};

}  // namespace

void CWinDriverInteract::EnterNetControlMode1() {
  SetNetControlMode(NetControlMode::kMode1);
  for (const std::uint32_t listType : kLists) ClearNetControlItems(listType);
}

void CWinDriverInteract::EnterNetControlMode3() {
  SetNetControlMode(NetControlMode::kMode3);
  for (const std::uint32_t listType : kLists) ClearNetControlItems(listType);
}

void CWinDriverInteract::ApplyNetControlItems(bool alternate, const std::shared_ptr<NetControlItems>& items) {
  LoadNetControlItems(records::kNetItemList3, items);
  SetNetControlMode(alternate ? NetControlMode::kAlternateItems : NetControlMode::kItems);
}

void CWinDriverInteract::AddNetControlItems(int itemType, const std::shared_ptr<NetControlItems>& items) {
  const auto listType = static_cast<std::uint32_t>(itemType);
  if (listType != records::kNetItemList1 && listType != records::kNetItemList2) {
    throw std::runtime_error("[wdi,ncadp] bad para!");
  }
  LoadNetControlItems(listType, items);
}

void CWinDriverInteract::SetNetControlMode(NetControlMode mode) {
  SendValue(records::Command::kNetControlMode, static_cast<std::uint32_t>(mode));
}

void CWinDriverInteract::LoadNetControlItems(std::uint32_t listType, const std::shared_ptr<NetControlItems>& items) {
  SendValue(records::Command::kNetItemListBegin, listType);
  std::size_t failed = 0;
  if (items) {
    for (const NetControlItem& item : *items) {
      try {
        SendRequest<records::NetItemRequest>(records::Command::kNetItem, [&](records::NetItemRequest& request) {
          request.listType = listType;
          std::copy(item.opaque.begin(), item.opaque.end(), request.opaque);
          request.value = item.value;
        });
      } catch (...) {
        ++failed;  // logged below, as one line for the whole list
      }
    }
  }
  AllSteps steps;  // the list must be closed even if its failures could not be logged
  steps.Try([&] {
    if (failed == 0) return;
    std::string line = LocalizedText("[Add Net Control Item Failed!][Failed Counter]=");
    AppendDecimal(line, failed);
    log->LogProblem(kLogCode, line);
  });
  steps.Try([&] { SendValue(records::Command::kNetItemListEnd, listType); });
  steps.Finish();
}

void CWinDriverInteract::ClearNetControlItems(std::uint32_t listType) {
  SendValue(records::Command::kNetItemListBegin, listType);
  SendValue(records::Command::kNetItemListEnd, listType);
}

}  // namespace fenlux
