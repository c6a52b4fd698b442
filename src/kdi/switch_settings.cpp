// Request 12: four switches of the host's configuration, handed to the driver once per connection.
#include "common/required.h"
#include "kdi/reported.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

void CWinDriverInteract::SetSpspState(std::uint8_t skipMiddleSwitches) {
  Reported("wdi,spsp", [&] {
    const auto request = CreateRequest(records::Command::kSpspState);
    auto& fields = FieldsOf<records::SpspStateRequest>(*request);
    const auto settings = Required(cfg->GetSpspSettings(), "[wdi,spsp] no settings!");
    fields.switch1 = settings->GetSpspFlag1();
    fields.switch2 = skipMiddleSwitches == 0 ? settings->GetSpspFlag2() : std::uint8_t{0};
    fields.switch3 = skipMiddleSwitches == 0 ? settings->GetSpspFlag3() : std::uint8_t{0};
    fields.switch4 = settings->GetSpspFlag4();
    Send(request);
  });
}

}  // namespace fenlux
