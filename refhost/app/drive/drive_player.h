// Makes the module run through all exchanges of the protocol with a driver.
#pragma once

#include <chrono>
#include <functional>

#include "refhost/app/drive/driver_examination.h"

namespace fenlux::refhost {

class ReferenceHost;

struct DriveSettings {
  std::chrono::milliseconds timeout{15'000};       // for a connection, and for a request that has no answer
  std::chrono::milliseconds notifications{5'000};  // how long the driver may send notifications
  bool reconnect = true;                           // close the connection at the end and wait for the next one
  bool emulated = true;                            // the driver is the emulator
};

// Runs the test on `host`, which must be started and recording its port: waits for a connection, sends every command,
// lets the driver send notifications, and makes the module reconnect. `sleep` waits for at most the given time and
// returns false if the user wants to stop, which ends the test. One thread.
DriveOutcome PlayDrive(ReferenceHost& host, const DriveSettings& settings,
                       const std::function<bool(std::chrono::milliseconds time)>& sleep);

}  // namespace fenlux::refhost
