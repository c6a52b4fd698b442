// Fixture of the filter port's tests: a port whose Filter Manager is the stand-in library of tests/support.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, which it needs.
#include <fltuser.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/mutex.h"
#include "kdi/driver_records.h"
#include "refhost/port/filter_port_client.h"
#include "refhost/services/heap_buffer.h"
#include "tests/support/filter_stand_in/filter_stand_in.h"

namespace fenlux::testing {

using refhost::FilterPort;
using refhost::FilterPortTotals;
using refhost::HeapBuffer;
using Bytes = std::vector<std::uint8_t>;
using Outcome = StandInAnswer::Outcome;

inline constexpr char kLibrary[] = "fenlux-filter-stand-in.dll";
inline constexpr char kName[] = "\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E";
// Long enough that only a hang reaches it.
inline constexpr std::chrono::seconds kTimeout{60};
inline constexpr std::uint32_t kRoom = records::kReplyFixedSize;
inline constexpr auto kPassVerdict = static_cast<std::uint32_t>(records::Verdict::kPass);

inline std::shared_ptr<CBuf> Buffer(const Bytes& bytes) { return std::make_shared<HeapBuffer>(bytes); }

inline Bytes ContextBytes(std::uint32_t clientType) {
  records::ConnectContext context{};
  context.magic = records::kConnectMagic;
  context.version = records::kConnectVersion;
  context.clientType = clientType;
  Bytes bytes(sizeof(context));
  std::memcpy(bytes.data(), &context, sizeof(context));
  return bytes;
}

inline Bytes ReplyBytes(std::uint32_t verdict, std::size_t extra = 0) {
  records::Reply reply{};
  reply.magic = records::kReplyMagic;
  reply.fixedSize = records::kReplyFixedSize;
  reply.verdict = verdict;
  reply.contextSize = static_cast<std::uint32_t>(extra);
  Bytes bytes(sizeof(reply) + extra, 0xEE);
  std::memcpy(bytes.data(), &reply, sizeof(reply));
  return bytes;
}

inline std::uint32_t VerdictOf(const Bytes& bytes) {
  records::Reply reply{};
  if (bytes.size() < sizeof(reply)) return 0;
  std::memcpy(&reply, bytes.data(), sizeof(reply));
  EXPECT_EQ(reply.magic.value(), records::kReplyMagic);
  EXPECT_EQ(reply.fixedSize.value(), records::kReplyFixedSize);
  return reply.verdict.value();
}

inline Bytes RequestBytes(records::Command command) {
  records::RequestHeader header{};
  header.magic = records::kRequestMagic;
  header.command = static_cast<std::uint32_t>(command);
  Bytes bytes(records::kRequestSize);
  std::memcpy(bytes.data(), &header, sizeof(header));
  return bytes;
}

inline std::string FailureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return {};
}

// Blocks handlers until it is opened.
class Gate {
 public:
  void Pass() {
    MutexLock lock(mutex);
    ++arrivals;
    changed.notify_all();
    while (!open) lock.Wait(changed);
  }
  bool AwaitArrivals(int count) {
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    MutexLock lock(mutex);
    while (arrivals < count) {
      if (!lock.WaitUntil(changed, deadline)) return arrivals >= count;
    }
    return true;
  }
  void Open() {
    const MutexLock lock(mutex);
    open = true;
    changed.notify_all();
  }

 private:
  Mutex mutex;
  std::condition_variable changed;
  int arrivals FENLUX_GUARDED_BY(mutex) = 0;
  bool open FENLUX_GUARDED_BY(mutex) = false;
};

// The log lines of a port. Shared with its hook, which may run after the fixture is destroyed.
class LogLines {
 public:
  void Add(const std::string& line) {
    const MutexLock lock(mutex);
    lines.push_back(line);
  }
  std::vector<std::string> Copy() const {
    const MutexLock lock(mutex);
    return lines;
  }

 private:
  mutable Mutex mutex;
  std::vector<std::string> lines FENLUX_GUARDED_BY(mutex);
};

class FilterPortTest : public ::testing::Test {
 protected:
  FilterPortTest() { driver.Reset(); }
  ~FilterPortTest() override {
    driver.Release();
    if (client != nullptr) client->Close();
    client.reset();
    AwaitClosed();
  }

  std::shared_ptr<CPortClient> Made(const Bytes& context = ContextBytes(1), const std::string& name = kName) {
    if (port == nullptr) {
      port = std::make_shared<FilterPort>(
          refhost::FilterPortSettings{.filterLibrary = kLibrary, .threads = 3, .buffers = 6},
          [lines = lines](refhost::Severity, const std::string& line) { lines->Add(line); });
    }
    client = port->MakePortClient(
        name, Buffer(context), records::kMaxMessageSize,
        [this](const void* message, std::uint32_t size) {
          const auto* bytes = static_cast<const std::uint8_t*>(message);
          return handler({bytes, bytes + size});
        },
        7);
    return client;
  }
  CPortClient& Opened() {
    Made();
    client->Connect();
    client->Start();
    return *client;
  }

  // Sends a request that the driver holds, on another thread. The result is the message of the failure.
  std::future<std::string> HeldSend() {
    auto sending = std::async(std::launch::async, [this] {
      std::shared_ptr<CBuf> none;
      return FailureOf([&] { client->Send(Buffer(RequestBytes(records::Command::kSpspState)), none, true); });
    });
    EXPECT_TRUE(driver.AwaitHeld(1, kTimeout));
    return sending;
  }
  // Whether the request ends while the driver still holds it. Then releases it, so that the test can end.
  bool EndsByItself(const std::future<std::string>& sending) {
    const bool ended = sending.wait_for(kTimeout) == std::future_status::ready;
    driver.Release();
    return ended;
  }

  template <typename Condition>
  static bool Await(const Condition& condition) {
    const auto until = std::chrono::steady_clock::now() + kTimeout;
    while (!condition() && std::chrono::steady_clock::now() < until) std::this_thread::yield();
    return condition();
  }
  // The thread that uses the port last closes it, so the driver may see that a little later than the caller.
  bool AwaitClosed() {
    return Await([this] { return !driver.PortOpen(); });
  }
  bool AwaitPendingReceptions(std::size_t count) {
    return Await([&] { return driver.PendingReceptions().size() == count; });
  }
  // Waits until the totals meet the condition: messages are counted after the reply is sent.
  FilterPortTotals AwaitTotals(const std::function<bool(const FilterPortTotals&)>& condition) {
    Await([&] { return condition(port->Totals()); });
    return port->Totals();
  }
  std::vector<std::string> Logged() const { return lines->Copy(); }

  FilterStandIn& driver = FilterStandIn::Instance();
  std::function<std::shared_ptr<CBuf>(const Bytes&)> handler = [](const Bytes&) {
    return Buffer(ReplyBytes(kPassVerdict));
  };
  std::shared_ptr<FilterPort> port;
  std::shared_ptr<CPortClient> client;

 private:
  const std::shared_ptr<LogLines> lines = std::make_shared<LogLines>();
};

}  // namespace fenlux::testing
