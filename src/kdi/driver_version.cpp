// The version handshake: reads the driver's version, compares it with the module's, reports and logs both.
#include "common/log_codes.h"
#include "common/text.h"
#include "kdi/reported.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

std::uint32_t CWinDriverInteract::GetDriverVersion() {
  std::uint32_t version = 0;
  Reported("wdi,gdv", [&] {
    const auto request = CreateRequest(records::Command::kDriverVersion);
    auto reply = CreateRequest(records::Command::kDriverVersion);
    RequirePortClient()->Send(request, reply, true);
    // A short reply counts as no reply; it is not an error.
    if (reply && reply->GetSize() >= records::kRequestSize) {
      version = FieldsOf<records::VersionReply>(*reply).version.value();
    }
  });
  return version;
}

void CWinDriverInteract::CheckDriverVersion() {
  const std::uint32_t driverVersion = GetDriverVersion();
  cfg->ReportDriverVersion(kDriverVersionKind, true, driverVersion);
  const std::uint32_t moduleVersion = records::kModuleVersion + (utility->QueryVersionFlag() ? 1 : 0);

  const auto logVersion = [this](const char* text, std::uint32_t version) {
    std::string line = LocalizedText(text);
    AppendDecimal(line, version);
    log->LogEvent(kLogCode, line);
  };
  logVersion("Current driver version=", driverVersion);
  logVersion("Current fenlux version=", moduleVersion);
  if (driverVersion != moduleVersion) {
    log->LogWarning(kLogCode, LocalizedText("Driver version and fenlux version is NOT the same!"));
  }
}

}  // namespace fenlux
