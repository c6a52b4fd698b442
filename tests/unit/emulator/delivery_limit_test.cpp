// A port's limit of deliveries: which delivery is the last one.
#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "refhost/emulator/driver/driver_port.h"

namespace fenlux::testing {
namespace {

using refhost::DriverPort;
using Place = DriverPort::Place;

bool Begins() { return true; }
bool DoesNotBegin() { return false; }

TEST(DeliveryLimit, OnlyTheDeliveryThatReachesItIsTheLast) {
  DriverPort port({});
  EXPECT_EQ(port.BeginDelivery(Begins), Place::kOneOfMany);
  port.LimitDeliveries(2);
  EXPECT_EQ(port.BeginDelivery(Begins), Place::kOneOfMany);
  EXPECT_EQ(port.BeginDelivery(Begins), Place::kLast);
  EXPECT_EQ(port.BeginDelivery(Begins), Place::kNone);
  port.LimitDeliveries(0);
  EXPECT_EQ(port.BeginDelivery(Begins), Place::kOneOfMany);
}

TEST(DeliveryLimit, ADeliveryThatDoesNotBeginDoesNotCount) {
  DriverPort port({});
  EXPECT_EQ(port.BeginDelivery(DoesNotBegin), Place::kNone);
  port.LimitDeliveries(1);
  EXPECT_EQ(port.BeginDelivery(DoesNotBegin), Place::kNone);
  EXPECT_EQ(port.BeginDelivery(Begins), Place::kLast);
}

TEST(DeliveryLimit, DeliveriesOfSeveralThreadsBeginOneAfterTheOther) {
  DriverPort port({});
  port.LimitDeliveries(2);
  std::vector<int> begun;  // needs no lock if the calls do not overlap; the thread sanitizer checks it
  std::promise<void> firstBegins;
  std::promise<void> secondStarts;
  auto first = std::async(std::launch::async, [&] {
    return port.BeginDelivery([&] {
      firstBegins.set_value();
      secondStarts.get_future().wait();
      begun.push_back(1);
      return true;
    });
  });
  firstBegins.get_future().wait();
  auto second = std::async(std::launch::async, [&] {
    secondStarts.set_value();
    return port.BeginDelivery([&] {
      begun.push_back(2);
      return true;
    });
  });
  EXPECT_EQ(first.get(), Place::kOneOfMany);
  EXPECT_EQ(second.get(), Place::kLast);
  EXPECT_EQ(begun, (std::vector<int>{1, 2}));
}

}  // namespace
}  // namespace fenlux::testing
