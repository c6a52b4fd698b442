// Fault injection into the connection run.
#include "tests/unit/module/fault_injection.h"

namespace fenlux::testing {
namespace {

class FaultInjectionConnection : public FaultInjection {};

}  // namespace

TEST_F(FaultInjectionConnection, EachFailureIsReportedByItsOperationOrEndsTheRun) {
  FailEveryCall([&] { return std::make_shared<CWinDriverInteract>(host.Context()); },
                [&](auto& interact) {
                  interact->RunDriverConnection();
                  EXPECT_EQ(Gate().Count(Event("Driver interact exit.")), 1u);
                },
                [](const Lines& calls, std::size_t position) { return OutcomeInConnectionRun(calls, position); });
}

TEST_F(FaultInjectionConnection, TheRunThrowsIfEveryCallFromSomePointOnFails) {
  Lines clean;
  {
    const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    Forget();
    interact->RunDriverConnection();
    clean = CountedCalls();
  }
  ForEachFault(clean, [&](Failure failure, std::size_t position) {
    const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    Gate().FailFrom(position + 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { interact->RunDriverConnection(); }));
    EXPECT_ANY_THROW(interact->Shutdown());
    Gate().StopFailing();
  });
}

}  // namespace fenlux::testing
