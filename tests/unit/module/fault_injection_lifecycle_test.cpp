// Fault injection into construction and into init.
#include "tests/unit/module/fault_injection.h"

namespace fenlux::testing {
namespace {

class FaultInjectionLifecycle : public FaultInjection {};

}  // namespace

TEST_F(FaultInjectionLifecycle, FailedConstructionOfAnInterfaceThrowsAndLeaksNothing) {
  const auto contexts = host.Context().use_count();
  const auto holders = host.Core().use_count();
  FailEveryCall([] { return 0; }, [&](int) { std::make_shared<CWinDriverInteract>(host.Context()); },
                [](const Lines& calls, std::size_t position) {
                  // The calls from Withdraw on are the destructor's, which swallows failures.
                  return position >= Find(calls, "CRecordRegistration::Withdraw") ? kSwallowed : kPropagates;
                });
  EXPECT_EQ(host.Context().use_count(), contexts);
  EXPECT_EQ(host.Core().use_count(), holders);
}

TEST_F(FaultInjectionLifecycle, FailedConstructionOfTheModuleThrowsAndLeaksNothing) {
  const auto contexts = host.Context().use_count();
  FailEveryCall([] { return 0; }, [&](int) { CFenluxImpl impl(host.Context()); }, AlwaysPropagates);
  EXPECT_EQ(host.Context().use_count(), contexts);
}

TEST_F(FaultInjectionLifecycle, FailedInitThrowsAndPublishesTheModuleOnlyIfRegistrationFailed) {
  FailEveryCall(
      [] {
        CFenluxImpl::Release();
        return 0;
      },
      [&](int) {
        const auto expectInstance = [&] {
          const std::string failed = Gate().FailedOperation();
          EXPECT_EQ(CFenluxImpl::Instance() != nullptr, failed.empty() || failed == "CGlobalContext::RegisterModule");
        };
        try {
          init(&host.Context());
        } catch (...) {
          expectInstance();
          throw;
        }
        expectInstance();
      },
      AlwaysPropagates);
  CFenluxImpl::Release();
}

}  // namespace fenlux::testing
