// Request 12: four switches of the host's configuration, handed to the driver once per connection.
#include "kdi/reported.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

void CWinDriverInteract::SetSpspState(std::uint8_t skipMiddleSwitches) {
  Reported("wdi,spsp", [&] {
    SendRequest<records::SpspStateRequest>(records::Command::kSpspState, [&](records::SpspStateRequest& request) {
      const std::shared_ptr<CSpspSettings> settings = cfg->GetSpspSettings();
      if (!settings) throw std::runtime_error("[wdi,spsp] no settings!");
      request.switch1 = settings->GetSpspFlag1();
      request.switch2 = skipMiddleSwitches == 0 ? settings->GetSpspFlag2() : std::uint8_t{0};
      request.switch3 = skipMiddleSwitches == 0 ? settings->GetSpspFlag3() : std::uint8_t{0};
      request.switch4 = settings->GetSpspFlag4();
    });
  });
}

}  // namespace fenlux
