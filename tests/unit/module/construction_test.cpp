// Construction of a driver interface: the services it requests, their order, and the effect of a missing one.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

class InteractConstruction : public ModuleTest {};

const Lines kCompleteConstruction{
    "CGlobalContext::GetUtility()",     "CGlobalContext::GetLocale()",  "CGlobalContext::GetLog()",
    "CGlobalContext::GetCfg()",         "CGlobalContext::GetNet()",     "CGlobalContext::GetCfgEx()",
    "CGlobalContext::GetArpMgmt()",     "CGlobalContext::GetAoArp()",   "CCfgEx::GetDriverInterfaceFlag()",
    "CCfgEx::GetRecordValue1()",        "CCfgEx::GetRecordValue2()",    "CNet::CreateObject(101, 102)",
    "CCfgEx::GetClientTypeFlag()",      "CCfgEx::GetPortValue()",       "CCfg::GetRecordFactory()",
    "CRecordFactory::CreateRecord()",   "CKdiRecord::SetName(KDIB)",    "CKdiRecord::SetPortValue(77)",
    "CKdiRecord::SetValue1(101)",       "CKdiRecord::SetValue2(102)",   "CGlobalContext::GetRecordService()",
    "CRecordService::Register(record)", "CGlobalContext::GetWinWork()", "CGlobalContext::GetUtility()",
    "CGlobalContext::GetWinWork()",     "CGlobalContext::GetCfgEx()"};

struct MissingService {
  const char* getter;
  const char* message;
  std::size_t calls;  // host calls up to and including the getter
};

class MissingInteractService : public ModuleTest, public ::testing::WithParamInterface<MissingService> {};

}  // namespace

TEST_F(InteractConstruction, RequestsTheServicesInOrderAndRegistersItself) {
  const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
  EXPECT_EQ(Gate().Entries(), kCompleteConstruction);
}

TEST_F(InteractConstruction, IsNeitherReadyNorStopped) {
  const auto interact = NewInteract();
  EXPECT_FALSE(interact->IsDriverReady());
  EXPECT_FALSE(interact->IsStopRequested());
  EXPECT_EQ(interact->PortValue(), 77u);
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(InteractConstruction, HandsOutWeakReferencesToItself) {
  const auto interact = NewInteract();
  EXPECT_EQ(interact->shared_from_this(), interact);
}

TEST_P(MissingInteractService, FailsConstructionWithItsOwnMessageAndRequestsNothingElse) {
  Gate().GiveEmpty(GetParam().getter);
  EXPECT_EQ(RuntimeErrorOf([&] { std::make_shared<CWinDriverInteract>(host.Context()); }), GetParam().message);
  const Lines expected(kCompleteConstruction.begin(),
                       kCompleteConstruction.begin() + static_cast<std::ptrdiff_t>(GetParam().calls));
  EXPECT_EQ(Gate().Entries(), expected);
  EXPECT_EQ(expected.back(), std::string(GetParam().getter) + "()");
}

INSTANTIATE_TEST_SUITE_P(Services, MissingInteractService,
                         ::testing::Values(MissingService{"CGlobalContext::GetUtility", "bad utility init!", 1},
                                           MissingService{"CGlobalContext::GetLocale", "bad locale init!", 2},
                                           MissingService{"CGlobalContext::GetLog", "bad log init!", 3},
                                           MissingService{"CGlobalContext::GetCfg", "bad cfg init!", 4},
                                           MissingService{"CGlobalContext::GetNet", "bad net init!", 5},
                                           MissingService{"CGlobalContext::GetCfgEx", "bad cfgex init!", 6},
                                           MissingService{"CGlobalContext::GetArpMgmt", "bad arpmgmt init!", 7},
                                           MissingService{"CGlobalContext::GetAoArp", "bad ao_arp init!", 8},
                                           MissingService{"CGlobalContext::GetWinWork", "Bad win_work init!", 23}),
                         [](const auto& instance) { return std::string(instance.param.getter).substr(16); });

TEST_F(InteractConstruction, ACfgExThatVanishesBeforeTheProcessCacheIsCreatedFailsConstruction) {
  Gate().GiveEmptyAt("CGlobalContext::GetCfgEx", 2);
  EXPECT_EQ(RuntimeErrorOf([&] { std::make_shared<CWinDriverInteract>(host.Context()); }), "[arpi] Bad cfgex init!");
}

TEST_F(InteractConstruction, AFailedConstructionLogsNothing) {
  Gate().GiveEmpty("CGlobalContext::GetWinWork");
  EXPECT_THROW(std::make_shared<CWinDriverInteract>(host.Context()), std::runtime_error);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(InteractConstruction, AnAbsentNetObjectIsSkipped) {
  Gate().GiveEmpty("CNet::CreateObject");
  const auto interact = NewInteract();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), Lines{"CRecordRegistration::Withdraw()"});
}

TEST_F(InteractConstruction, WithoutARecordFactoryNothingIsRegistered) {
  Gate().GiveEmpty("CCfg::GetRecordFactory");
  auto interact = std::make_shared<CWinDriverInteract>(host.Context());
  EXPECT_EQ(Gate().Count("CKdiRecord::"), 0u);
  EXPECT_EQ(Gate().Count("CRecordService::Register"), 0u);
  Forget();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), Lines{"CNetObject::Release(0)"});
}

TEST_F(InteractConstruction, WithoutARecordNothingIsRegistered) {
  Gate().GiveEmpty("CRecordFactory::CreateRecord");
  auto interact = std::make_shared<CWinDriverInteract>(host.Context());
  EXPECT_EQ(Gate().Count("CKdiRecord::"), 0u);
  EXPECT_EQ(Gate().Count("CRecordService::Register"), 0u);
}

TEST_F(InteractConstruction, WithoutARecordServiceNothingIsRegistered) {
  Gate().GiveEmpty("CGlobalContext::GetRecordService");
  auto interact = std::make_shared<CWinDriverInteract>(host.Context());
  EXPECT_EQ(Gate().Count("CRecordService::Register"), 0u);
  Forget();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), Lines{"CNetObject::Release(0)"});
}

TEST_F(InteractConstruction, AnEmptyRegistrationIsNotWithdrawn) {
  Gate().GiveEmpty("CRecordService::Register");
  const auto interact = NewInteract();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), Lines{"CNetObject::Release(0)"});
}

TEST_F(InteractConstruction, AnEmptyContextIsRefused) {
  EXPECT_THROW(std::make_shared<CWinDriverInteract>(nullptr), std::runtime_error);
}

TEST_F(InteractConstruction, AFailedConstructionReleasesEveryService) {
  Gate().GiveEmpty("CGlobalContext::GetWinWork");
  const auto holders = host.Core().use_count();
  const auto contexts = host.Context().use_count();
  EXPECT_THROW(std::make_shared<CWinDriverInteract>(host.Context()), std::runtime_error);
  EXPECT_EQ(host.Context().use_count(), contexts);
  EXPECT_EQ(host.Core().use_count(), holders) << "a net object or a registration is still held";
}

}  // namespace fenlux::testing
