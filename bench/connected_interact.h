// A connected driver interface on the fake host, with all recording switched off.
#pragma once

#include <memory>

#include "kdi/win_driver_interact.h"
#include "tests/support/fake_host/fake_host.h"

namespace fenlux::bench {

struct ConnectedInteract {
  ConnectedInteract() {
    host.Gate().SetJournal(false);
    host.Settings().recordedRequestBytes = 0;
    host.Settings().recordsKept = false;
    host.Settings().fillBuffers = true;
    interact = std::make_shared<CWinDriverInteract>(host.Context());
    interact->RunDriverConnection();  // the fake port client's Wait returns at once
  }

  testing::FakeHost host;
  std::shared_ptr<CWinDriverInteract> interact;
};

}  // namespace fenlux::bench
