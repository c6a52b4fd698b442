// The register of driver interfaces, and their net objects.
#include "refhost/services/record_register.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

std::shared_ptr<CKdiRecord> FilledRecord(RecordRegister& records) {
  std::shared_ptr<CKdiRecord> record;
  records.CreateRecord(record);
  record->SetName("KDIB");
  record->SetPortValue(1);
  record->SetValue1(2);
  record->SetValue2(3);
  return record;
}

TEST(RecordRegister, HoldsARecordUntilItIsWithdrawn) {
  RecordRegister records;
  const auto registration = records.Register(FilledRecord(records));
  EXPECT_EQ(records.Registered(), (std::vector<RegisteredInterface>{{"KDIB", 1, 2, 3}}));
  registration->Withdraw();
  registration->Withdraw();
  EXPECT_TRUE(records.Registered().empty());
  EXPECT_EQ(records.TotalRegistered(), 1U);
}

TEST(RecordRegister, DestroyingARegistrationWithdrawsIt) {
  RecordRegister records;
  records.Register(FilledRecord(records)).reset();
  EXPECT_TRUE(records.Registered().empty());
}

TEST(RecordRegister, ARegistrationMayOutliveTheRegister) {
  std::shared_ptr<CRecordRegistration> registration;
  {
    RecordRegister records;
    registration = records.Register(FilledRecord(records));
  }
  registration->Withdraw();
}

TEST(RecordRegister, RejectsARecordItDidNotCreate) {
  RecordRegister records;
  EXPECT_THROW(records.Register(nullptr), std::runtime_error);
}

TEST(NetService, CountsObjectsUntilTheyAreReleasedOrDestroyed) {
  NetService net;
  std::shared_ptr<CNetObject> first;
  std::shared_ptr<CNetObject> second;
  net.CreateObject(first, 1, 2);
  net.CreateObject(second, 1, 2);
  EXPECT_EQ(net.Totals().held, 2U);
  std::shared_ptr<CNetObject> dropped;
  first->Release(dropped, 0);
  EXPECT_EQ(net.Totals().held, 1U);
  first.reset();
  second.reset();
  EXPECT_EQ(net.Totals().held, 0U);
  EXPECT_EQ(net.Totals().made, 2U);
}

}  // namespace
}  // namespace fenlux::refhost
