// The four switches of the host's configuration, sent to the driver once per connection.
#include "common/required.h"
#include "kdi/reported.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

void CWinDriverInteract::SetSpspState(std::uint8_t skipMiddleSwitches) {
  Reported("wdi,spsp", [&] {
    SendRequest<records::SpspStateRequest>(records::Command::kSpspState, [&](records::SpspStateRequest& request) {
      const auto settings = Required(cfg->GetSpspSettings(), "[wdi,spsp] no settings!");
      request.switch1 = settings->GetSpspFlag1();
      request.switch2 = skipMiddleSwitches == 0 ? settings->GetSpspFlag2() : std::uint8_t{0};
      request.switch3 = skipMiddleSwitches == 0 ? settings->GetSpspFlag3() : std::uint8_t{0};
      request.switch4 = settings->GetSpspFlag4();
    });
  });
}

}  // namespace fenlux
