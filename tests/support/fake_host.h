// A complete fake of the host: every interface the module requires, behaving as a test sets it. Every operation first
// passes the gate (tests/support/call_gate.h).
//
// The services hold the core (gate, settings, what was recorded); the FakeHost of a test holds the services. Nothing of
// it holds an object of the module, save port clients (a handler, which is weak itself), so letting go of both ends
// everything.
#pragma once

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <condition_variable>
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
#include "host/host.h"
#include "tests/support/call_gate.h"

namespace fenlux::testing {

using Bytes = std::vector<std::uint8_t>;

class FakePortClient;
class FakeArpRecord;

// An interval that no other host of the process has by default, so that a refresh thread that an earlier test left
// behind is never taken for one of this host's.
std::uint32_t OwnRefreshInterval();

// What the host answers. Set before the threads of a test start; atomics also later.
struct HostSettings {
  // CLocale
  std::function<std::string(const std::string&)> translate;  // empty: the text itself
  // CUtility
  std::atomic<bool> versionFlag{false};
  std::atomic<bool> fillBuffers{true};                           // with 0xCD, so that a byte written too much shows
  std::function<bool(const boost::filesystem::path&)> testPath;  // empty: whether it is a directory
  std::function<std::wstring(const std::wstring&)> toRecord;     // empty: the path itself
  std::function<std::uint32_t(std::uint32_t)> givenSize;         // of a buffer, for the size asked for; empty: that
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
  std::function<std::shared_ptr<CBuf>()> contextBuffer;  // in its place, a buffer of the test's own
  std::atomic<std::uint32_t> pathSource{4711};
  std::string description = "the record";
  // CAoArp
  std::atomic<std::uint32_t> decision{1};
  std::function<std::uint32_t(FakeArpRecord&)> judge;  // empty: the decision above
  // CPortClient
  std::atomic<bool> waitBlocks{false};  // until Close
  std::atomic<std::uint32_t> driverVersion{19072701};
  // Answers a request; may fill or replace the reply. Empty: request 13 gets driverVersion, the others nothing.
  std::function<void(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply)> answer;
  // How much of every request is recorded; 0: nothing, not even that there was one.
  std::atomic<std::size_t> recordedRequestBytes{~std::size_t{0}};
  std::atomic<bool> recordsKept{true};  // whether FakeHost::Records remembers the event records
};

struct SentRequest {
  std::uint32_t command;
  Bytes bytes;
  bool wantsReply;
};

// What every fake service holds.
struct HostCore {
  CallGate gate;
  HostSettings settings;

  std::mutex mutex;
  std::vector<std::optional<boost::filesystem::path>> policy;  // guarded by mutex
  std::vector<SentRequest> requests;                           // guarded by mutex
  std::vector<Bytes> connectContexts;                          // guarded by mutex
  std::vector<const void*> identities;                         // what GetIdentityText was given; guarded by mutex
  std::weak_ptr<CFenlux> module;                               // what RegisterModule was given last; guarded by mutex
  std::weak_ptr<MonitorPolicy> givenPolicy;                    // by GetMonitorPolicy, last; guarded by mutex
};

// What services make, and tests look at afterwards.
struct HostProducts {
  std::mutex mutex;
  std::vector<std::shared_ptr<FakePortClient>> portClients;  // guarded by mutex
  std::vector<std::shared_ptr<FakeArpRecord>> records;       // guarded by mutex
};

class FakeBuf final : public CBuf {
 public:
  FakeBuf(std::shared_ptr<HostCore> hostCore, std::size_t size);
  FakeBuf(std::shared_ptr<HostCore> hostCore, const Bytes& bytes);
  std::uint8_t* GetData() override;
  std::size_t GetSize() override;

  // The same without a host call.
  std::uint8_t* data() { return storage.get(); }
  const std::uint8_t* data() const { return storage.get(); }
  std::size_t size() const { return length; }
  Bytes Copy() const { return {data(), data() + size()}; }

 private:
  std::shared_ptr<HostCore> core;
  std::size_t length;
  std::unique_ptr<std::uint8_t[]> storage;
};

// The bytes of a buffer that the fake host made, without a host call.
Bytes BytesOf(const std::shared_ptr<CBuf>& buffer);

class FakePortClient final : public CPortClient {
 public:
  FakePortClient(std::shared_ptr<HostCore> hostCore, NotificationHandler notificationHandler);
  void Connect() override;
  void Start() override;
  void Wait() override;
  void Close() override;
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override;

  // The driver's side: a message for the module, on the calling thread.
  std::shared_ptr<CBuf> Deliver(const Bytes& message) const;
  const NotificationHandler& Handler() const { return handler; }
  bool IsClosed() const;

 private:
  std::shared_ptr<HostCore> core;
  NotificationHandler handler;
  mutable std::mutex mutex;
  std::condition_variable closing;
  bool closed = false;
};

class FakeArpProcess final : public CArpProcess {
 public:
  explicit FakeArpProcess(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::uint64_t GetProcessId() override;
  void SetProcessId(std::uint64_t processId) override;
  void SetSessionId(std::uint32_t sessionId) override;
  void SetNarrowInfo(const std::string& text) override;
  void SetIdentityText(const std::string& text) override;

 private:
  std::shared_ptr<HostCore> core;
  std::uint64_t processId = 0;
};

class FakeArpRecord final : public CArpRecord {
 public:
  explicit FakeArpRecord(std::shared_ptr<HostCore> hostCore);
  const std::shared_ptr<CArpProcess>& ProcessPart() override;
  void Mark() override;
  std::wstring& GetPath(std::wstring& out) override;
  std::shared_ptr<CBuf> GetContextData() override;
  std::uint32_t GetPathSource() override;
  std::string& Describe(std::string& out) override;
  void SetPath(const std::wstring& path) override;
  void SetSecondPath(const std::wstring& path) override;
  void SetEventType(std::uint32_t type) override;
  void SetCategory(std::uint32_t category) override;
  void SetSource(std::uint32_t source) override;
  void SetExtraData(const std::shared_ptr<CBuf>& data) override;
  void SetPort(std::uint16_t port) override;
  void SetIpv6(bool ipv6) override;
  void SetIpv4Address(std::uint32_t address) override;
  void SetIpv6Address(const std::array<std::uint8_t, 16>& address) override;
  void SetRemoteFlag(bool remote) override;
  void SetWord0(std::uint64_t word) override;
  void SetWord1(std::uint64_t word) override;
  void SetWord2(std::uint64_t word) override;
  void SetWord3(std::uint64_t word) override;
  void SetValueA(std::uint32_t value) override;
  void SetValueB(std::uint32_t value) override;
  void SetWideInfo(const std::wstring& text) override;

  // What the record holds, without a host call.
  std::wstring path;
  std::wstring secondPath;
  std::uint32_t eventType = 0;
  std::uint32_t category = 0;

 private:
  std::shared_ptr<HostCore> core;
  std::shared_ptr<CArpProcess> process;
  std::shared_ptr<CArpProcess> noProcess;
  std::shared_ptr<CBuf> contextData;
};

// One monitored object of a policy.
class FakePolicyObject final : public CPolicyObject {
 public:
  FakePolicyObject(std::shared_ptr<HostCore> hostCore, boost::filesystem::path monitorPath)
      : core(std::move(hostCore)), path(std::move(monitorPath)) {}
  boost::filesystem::path GetMonitorPath() override;

 private:
  std::shared_ptr<HostCore> core;
  boost::filesystem::path path;
};

// The host of one test. The handles of the services are for tests that call one directly; to withhold a service, make
// its getter give an empty handle: Gate().GiveEmpty("CGlobalContext::GetLocale").
class FakeHost {
 public:
  FakeHost();

  const std::shared_ptr<CGlobalContext>& Context() const { return context; }
  const std::shared_ptr<CUtility>& Utility() const { return utility; }
  const std::shared_ptr<CArpMgmt>& ArpMgmt() const { return arpMgmt; }
  const std::shared_ptr<CAoArp>& AoArp() const { return aoArp; }
  const std::shared_ptr<CWinWork>& WinWork() const { return winWork; }
  const std::shared_ptr<CCfgEx>& CfgEx() const { return cfgEx; }
  CallGate& Gate() const { return core->gate; }
  HostSettings& Settings() const { return core->settings; }
  const std::shared_ptr<HostCore>& Core() const { return core; }

  std::shared_ptr<FakeBuf> MakeBuffer(const Bytes& bytes) const;
  // The block that CCfgEx gives from now on; none until then.
  void SetDriverConfigBlock(std::shared_ptr<CBuf> block);
  // The policy that CCfgEx gives from now on, also while the module runs; nothing in place of a path is a null object.
  void SetPolicy(const std::vector<std::optional<boost::filesystem::path>>& paths);

  // What the module did so far.
  std::shared_ptr<FakePortClient> PortClient() const;  // the newest; empty where none was made
  std::size_t PortClientCount() const;
  std::vector<SentRequest> Requests() const;
  std::vector<SentRequest> RequestsOf(std::uint32_t command) const;
  void ClearRequests() const;
  std::vector<Bytes> ConnectContexts() const;
  std::vector<const void*> Identities() const;
  std::shared_ptr<FakeArpRecord> Record() const;  // the newest; empty where none was made
  std::shared_ptr<CFenlux> Module() const;
  bool PolicyIsLetGo() const;  // whether nobody holds the policy that was given last

 private:
  std::shared_ptr<HostCore> core;
  std::shared_ptr<HostProducts> products;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CArpMgmt> arpMgmt;
  std::shared_ptr<CAoArp> aoArp;
  std::shared_ptr<CWinWork> winWork;
  std::shared_ptr<CCfgEx> cfgEx;
  std::shared_ptr<CGlobalContext> context;
};

}  // namespace fenlux::testing
