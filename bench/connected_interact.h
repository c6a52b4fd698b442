// A driver interface that has been through its opening exchanges on the fake host, with nothing recorded.
#pragma once

#include <memory>

#include "kdi/win_driver_interact.h"
#include "tests/support/fake_host.h"

namespace fenlux::bench {

struct ConnectedInteract {
  ConnectedInteract() {
    host.gate().SetJournal(false);
    host.settings().recorded_request_bytes = 0;
    host.settings().records_kept = false;
    host.settings().fill_buffers = true;
    interact = std::make_shared<CWinDriverInteract>(host.context());
    interact->RunDriverConnection();  // the fake port client's Wait returns at once
  }

  testing::FakeHost host;
  std::shared_ptr<CWinDriverInteract> interact;
};

}  // namespace fenlux::bench
