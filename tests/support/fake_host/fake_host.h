// A complete fake of the host: every interface the module requires, behaving as the test's settings say. Every
// operation passes the call gate first (tests/support/call_gate.h).
//
// The services own the core (gate, settings, recordings); FakeHost owns the services. None of them owns an object of
// the module: a port client keeps the notification handler, which is itself weak. Releasing the host and the module
// therefore destroys everything.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/host.h"
#include "tests/support/fake_host/fake_arp_record.h"
#include "tests/support/fake_host/fake_buf.h"
#include "tests/support/fake_host/fake_port_client.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

// The host of one test. The service handles are for tests that call a service directly. To withhold a service, make its
// getter return an empty handle: Gate().GiveEmpty("CGlobalContext::GetLocale").
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
  // Sets the block that CCfgEx returns; empty by default.
  void SetDriverConfigBlock(std::shared_ptr<CBuf> block);
  // Sets the policy that CCfgEx returns, also while the module runs; a missing path becomes a null object.
  void SetPolicy(const std::vector<std::optional<boost::filesystem::path>>& paths);

  // What the module has done so far.
  std::shared_ptr<FakePortClient> PortClient() const;  // the newest; null if none
  std::size_t PortClientCount() const;
  std::vector<SentRequest> Requests() const;
  std::vector<SentRequest> RequestsOf(std::uint32_t command) const;
  void ClearRequests() const;
  std::vector<Bytes> ConnectContexts() const;
  std::vector<const void*> Identities() const;
  std::shared_ptr<FakeArpRecord> Record() const;  // the newest; null if none
  std::shared_ptr<CFenlux> Module() const;
  bool IsPolicyReleased() const;  // whether nothing holds the policy that was returned last

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
