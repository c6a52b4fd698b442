// The fixture of the emulator's tests: the test plays the module's side of the port.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "host/host.h"
#include "kdi/driver_records.h"
#include "refhost/emulator/driver/notification_view.h"
#include "refhost/emulator/driver_emulator.h"
#include "refhost/emulator/sources/notification_builder.h"
#include "tests/support/record_builders.h"
#include "tests/support/test_timeout.h"

namespace fenlux::testing {

using refhost::DriverEmulator;
using refhost::EmulatorState;
using refhost::EmulatorTotals;
using refhost::UnjudgedCause;
using refhost::UnjudgedPolicy;

inline constexpr char kPortNameText[] = "\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E";

std::shared_ptr<CBuf> Buffer(Bytes bytes);
Bytes BytesOf(const std::shared_ptr<CBuf>& buffer);
// The connect context with which a module opens its port.
Bytes ConnectContext(std::uint32_t clientType = 1);
// A request of full size: header and payload, followed by 0xCD.
Bytes Request(std::uint32_t command, std::string_view payloadDigits = {});
// The add request for a path.
Bytes AddRequest(std::uint32_t type, std::u16string_view path, std::u16string_view rootName = {},
                 std::uint8_t pathFlag = 1);
// A reply as the module builds it; context data only with verdict 6.
Bytes Reply(std::uint32_t verdict, const Bytes& context = {});

// Blocks handlers until the test opens it.
class Gate {
 public:
  void Open();
  // Counts the arrival and blocks until Open.
  void Pass();
  // Blocks until this many have arrived.
  void AwaitArrivals(int count);

 private:
  std::mutex mutex;
  std::condition_variable changed;
  int arrivals = 0;
  bool open = false;
};

class EmulatorTest : public ::testing::Test {
 public:
  using Handler = std::function<std::shared_ptr<CBuf>(const Bytes& message)>;

 protected:
  // No deadline or grace period ends during a test unless the test sets it.
  EmulatorTest() { settings.deadline = settings.stopGrace = kTestTimeout; }

  // Stops the emulator and checks that its totals add up.
  void TearDown() override;

  // Makes the emulator from `settings` and `scenario`.
  DriverEmulator& Emulator();
  // For handlers and hosts that may outlive the test.
  const std::shared_ptr<DriverEmulator>& Handle() const { return emulator; }
  // A valid port client; Opened also connects and starts it.
  std::shared_ptr<CPortClient> Made(std::uint32_t clientType = 1);
  std::shared_ptr<CPortClient> Opened(std::uint32_t clientType = 1);
  // Sends a request and returns the reply handle.
  std::shared_ptr<CBuf> Send(CPortClient& port, Bytes request, std::shared_ptr<CBuf> reply = nullptr, bool flag = true);
  // The text of the exception that the action throws; empty if it throws none.
  static std::string FailureOf(const std::function<void()>& action);

  EmulatorState State() { return Emulator().State(); }
  EmulatorTotals Totals() { return Emulator().Totals(); }
  std::vector<std::string> LogLines();

  // Adds a step of this many notifications to the scenario.
  refhost::NotifyStep& AddNotifications(Bytes message, std::uint64_t count = 1);
  template <typename Step>
  void AddStep(Step step) {
    scenario.steps.push_back({std::move(step), static_cast<std::uint32_t>(scenario.steps.size() + 1)});
  }

  refhost::EmulatorSettings settings;
  refhost::Scenario scenario;
  // For handlers that block. They share ownership of it, because a handler may outlive the test.
  const std::shared_ptr<Gate> gate = std::make_shared<Gate>();
  Handler handler = [](const Bytes&) { return Buffer(Reply(2)); };

 private:
  std::mutex logMutex;
  std::vector<std::string> logLines;
  std::vector<std::shared_ptr<CPortClient>> ports;
  std::shared_ptr<DriverEmulator> emulator;
};

// A notification without items.
inline Bytes Notification(std::uint32_t code) { return refhost::BuildNotification({.code = code}); }

}  // namespace fenlux::testing
