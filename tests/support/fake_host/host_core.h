// What every fake service shares: the call gate, the settings of the test, and what was recorded.
#pragma once

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/fenlux.h"
#include "host/cfg_ex.h"
#include "tests/support/call_gate.h"

namespace fenlux::testing {

using Bytes = std::vector<std::uint8_t>;

class FakePortClient;
class FakeArpRecord;

// Returns an interval that no other host of the process uses by default, so that a refresh thread left over from an
// earlier test is never mistaken for one of this host's.
std::uint32_t OwnRefreshInterval();

// How the host answers. Set before the threads of a test start; atomics may also change later.
struct HostSettings {
  // CLocale
  std::function<std::string(const std::string&)> translate;  // empty: the text itself
  // CUtility
  std::atomic<bool> versionFlag{false};
  std::atomic<bool> fillBuffers{true};                           // with 0xCD, so that excess writes show
  std::function<bool(const boost::filesystem::path&)> testPath;  // empty: whether it is a directory
  std::function<std::wstring(const std::wstring&)> toRecord;     // empty: the path itself
  std::function<std::uint32_t(std::uint32_t)> givenSize;         // maps a requested buffer size; empty: identity
  std::string measured = "12 us";
  // CCfg
  std::atomic<bool> measuring{false};
  std::atomic<std::uint8_t> spsp1{0x11}, spsp2{0x12}, spsp3{0x13}, spsp4{0x14};
  // CCfgEx
  std::atomic<std::uint32_t> recordValue1{101}, recordValue2{102}, portValue{77};
  std::atomic<bool> enabled{true};
  std::atomic<bool> driverInterfaceFlag{false};
  std::atomic<bool> cacheBypassed{false};
  std::atomic<bool> identityTextAdded{false};
  std::atomic<std::uint32_t> refreshInterval{OwnRefreshInterval()};  // more than an hour
  std::atomic<bool> clientTypeFlag{false};
  std::atomic<bool> monitorObjectFlag{true};
  // CWinWork
  std::function<std::uint32_t(std::uint32_t)> processValue;                        // empty: 0
  std::function<std::string(std::uint32_t)> narrowText;                            // empty: "narrow-<id>"
  std::function<std::wstring(std::uint32_t)> wideText;                             // empty: L"wide-<id>"
  std::function<std::vector<std::uint32_t>(const std::string&)> processesOfImage;  // image name; empty: {400}, {500}
  std::function<std::set<std::uint64_t>()> running;                                // empty: none
  std::string identityText = "S-1-5-18";
  // CArpRecord, read when a record is made
  std::function<std::optional<Bytes>()> contextData;     // empty: no context data
  std::function<std::shared_ptr<CBuf>()> contextBuffer;  // if set, used instead of contextData
  std::atomic<std::uint32_t> pathSource{4711};
  std::string description = "the record";
  // CAoArp
  std::atomic<std::uint32_t> decision{1};
  std::function<std::uint32_t(FakeArpRecord&)> judge;  // empty: the decision above
  // CPortClient
  std::atomic<bool> waitBlocks{false};  // until Close
  std::atomic<std::uint32_t> driverVersion{19072701};
  // Answers a request; may fill or replace the reply. Empty: request 13 gets driverVersion, others get nothing.
  std::function<void(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply)> answer;
  // Maximum number of bytes recorded per request; 0 records no requests at all.
  std::atomic<std::size_t> recordedRequestBytes{~std::size_t{0}};
  std::atomic<bool> recordsKept{true};  // whether FakeHost::Record sees new event records
};

struct SentRequest {
  std::uint32_t command;
  Bytes bytes;
  bool wantsReply;
};

// Shared by all fake services of one host.
struct HostCore {
  CallGate gate;
  HostSettings settings;

  std::mutex mutex;
  std::vector<std::optional<boost::filesystem::path>> policy;  // guarded by mutex
  std::vector<SentRequest> requests;                           // guarded by mutex
  std::vector<Bytes> connectContexts;                          // guarded by mutex
  std::vector<const void*> identities;                         // arguments of GetIdentityText; guarded by mutex
  std::weak_ptr<CFenlux> module;                               // last argument of RegisterModule; guarded by mutex
  std::weak_ptr<MonitorPolicy> givenPolicy;                    // last result of GetMonitorPolicy; guarded by mutex
};

// Objects the services created, for tests to inspect.
struct HostProducts {
  std::mutex mutex;
  std::vector<std::shared_ptr<FakePortClient>> portClients;  // guarded by mutex
  std::vector<std::shared_ptr<FakeArpRecord>> records;       // guarded by mutex
};

}  // namespace fenlux::testing
