// Builds the fake services around one core, and gives access to what they recorded.
#include "tests/support/fake_host/fake_host.h"

#include <algorithm>
#include <utility>

#include "tests/support/fake_host/fake_ao_arp.h"
#include "tests/support/fake_host/fake_arp_mgmt.h"
#include "tests/support/fake_host/fake_cfg_ex.h"
#include "tests/support/fake_host/fake_global_context.h"
#include "tests/support/fake_host/fake_utility.h"
#include "tests/support/fake_host/fake_win_work.h"

namespace fenlux::testing {

FakeHost::FakeHost()
    : core(std::make_shared<HostCore>()),
      products(std::make_shared<HostProducts>()),
      utility(std::make_shared<FakeUtility>(core)),
      arpMgmt(std::make_shared<FakeArpMgmt>(core, products)),
      aoArp(std::make_shared<FakeAoArp>(core)),
      winWork(std::make_shared<FakeWinWork>(core, products)),
      cfgEx(std::make_shared<FakeCfgEx>(core)),
      context(std::make_shared<FakeGlobalContext>(core, utility, arpMgmt, aoArp, winWork, cfgEx)) {}

std::shared_ptr<FakeBuf> FakeHost::MakeBuffer(const Bytes& bytes) const {
  return std::make_shared<FakeBuf>(core, bytes);
}

void FakeHost::SetDriverConfigBlock(std::shared_ptr<CBuf> block) {
  static_cast<FakeCfgEx&>(*cfgEx).block = std::move(block);
}

void FakeHost::SetPolicy(const std::vector<std::optional<boost::filesystem::path>>& paths) {
  const std::lock_guard lock(core->mutex);
  core->policy = paths;
}

std::shared_ptr<FakePortClient> FakeHost::PortClient() const {
  const std::lock_guard lock(products->mutex);
  return products->portClients.empty() ? nullptr : products->portClients.back();
}

std::size_t FakeHost::PortClientCount() const {
  const std::lock_guard lock(products->mutex);
  return products->portClients.size();
}

std::vector<SentRequest> FakeHost::Requests() const {
  const std::lock_guard lock(core->mutex);
  return core->requests;
}

std::vector<SentRequest> FakeHost::RequestsOf(std::uint32_t command) const {
  std::vector<SentRequest> kept;
  const std::lock_guard lock(core->mutex);
  std::copy_if(core->requests.begin(), core->requests.end(), std::back_inserter(kept),
               [command](const SentRequest& request) { return request.command == command; });
  return kept;
}

void FakeHost::ClearRequests() const {
  const std::lock_guard lock(core->mutex);
  core->requests.clear();
}

std::vector<Bytes> FakeHost::ConnectContexts() const {
  const std::lock_guard lock(core->mutex);
  return core->connectContexts;
}

std::vector<const void*> FakeHost::Identities() const {
  const std::lock_guard lock(core->mutex);
  return core->identities;
}

std::shared_ptr<FakeArpRecord> FakeHost::Record() const {
  const std::lock_guard lock(products->mutex);
  return products->records.empty() ? nullptr : products->records.back();
}

bool FakeHost::IsPolicyReleased() const {
  const std::lock_guard lock(core->mutex);
  return core->givenPolicy.expired();
}

std::shared_ptr<CFenlux> FakeHost::Module() const {
  const std::lock_guard lock(core->mutex);
  return core->module.lock();
}

}  // namespace fenlux::testing
