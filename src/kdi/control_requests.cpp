// Requests that set what the driver does: switches, a value, the configuration block, the debug dump.
#include <cstring>
#include <stdexcept>

#include "common/log_codes.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {
namespace {

// The modes of SetGrspSwitch and SetGrpmSwitch. Modes 1 and 3 select a switch, in opposite senses for the two
// operations; mode 2 and every other mode are refused.
constexpr std::uint32_t kMode1 = 1;
constexpr std::uint32_t kMode2 = 2;
constexpr std::uint32_t kMode3 = 3;

constexpr std::uint32_t kGrpmResult = 1;  // of SetGrpmSwitch, whatever the mode

void RequireImplemented(bool implemented, const char* message) {
  if (!implemented) throw std::runtime_error(message);
}

}  // namespace

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
  if (mode == kMode2) throw std::runtime_error(modeSwitch.mode2Refused);
  if (mode != kMode1 && mode != kMode3) throw std::runtime_error(modeSwitch.otherModeRefused);
  SendRequest<records::ClientSwitchRequest>(modeSwitch.command, [&](records::ClientSwitchRequest& request) {
    request.clientType = records::ClientType(clientTypeFlag);
    request.on = mode == kMode1 ? modeSwitch.switchOfMode1 : modeSwitch.switchOfMode3;
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
  return kGrpmResult;
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

std::string CWinDriverInteract::DumpDriverDebugInfo() {
  Send(CreateRequest(records::Command::kDumpDebugInfo));
  return LocalizedText("Please use Dbgview to get result.");
}

}  // namespace fenlux
