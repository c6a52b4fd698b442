// The driver's network-control lists, each sent as begin, items, end; and the configuration block.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "common/guarded.h"
#include "common/log_codes.h"
#include "common/text.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

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
        ++failed;  // reported below in one line; the list goes on
      }
    }
  }
  AllSteps steps;  // the driver's list is closed whether or not its failures could be logged
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

void CWinDriverInteract::SendDriverConfig() {
  const auto request = CreateRequest(records::Command::kDriverConfig);
  if (const std::shared_ptr<CBuf> block = cfgEx->GetDriverConfigBlock()) {
    const std::size_t size = block->GetSize();
    if (size > records::kMaxPayloadSize || sizeof(records::RequestHeader) + size > request->GetSize()) {
      throw std::runtime_error("[wdi] configuration block too large!");
    }
    if (size != 0) {
      const auto& bytes = FieldsOf<records::U8>(*block);
      std::memcpy(FieldsOf<records::DriverConfigRequest>(*request).block, &bytes, size);
    }
  }
  Send(request);
}

}  // namespace fenlux
