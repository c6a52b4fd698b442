// The library as a host loads it, served by the fake host: calls, exceptions and threads that cross the boundary
// between the two.
//
// A process has one module, so these cases build on each other and run in the order of this file.
#include <gtest/gtest.h>
#include <winsock2.h>
// After winsock2.h; otherwise it includes the older winsock.h.
#include <windows.h>

#include <array>
#include <boost/system/system_error.hpp>
#include <string>
#include <thread>
#include <utility>

#include "core/fenlux.h"
#include "kdi/kdi_base.h"
#include "tests/support/fake_host/fake_host.h"
#include "tests/support/record_builders.h"

namespace fenlux::testing {
namespace {

using InitFunction = void (*)(const std::shared_ptr<CGlobalContext>*);

class ModuleLibrary : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    networkBefore = NetworkStarted();
    // Never freed: its threads are detached.
    library = ::LoadLibraryW(L"fenlux.dll");
    networkAfter = NetworkStarted();
    if (library != nullptr)
      init = reinterpret_cast<InitFunction>(reinterpret_cast<void*>(::GetProcAddress(library, "init")));
    host = new FakeHost;
    host->Settings().waitBlocks = true;
    host->Gate().SetJournal(true);
  }
  void SetUp() override { ASSERT_NE(init, nullptr) << "fenlux.dll next to this program has no init"; }

  // Whether the system's network library has been started in this process.
  static bool NetworkStarted() {
    const SOCKET made = ::socket(AF_INET, SOCK_DGRAM, 0);
    const bool started = made != INVALID_SOCKET || ::WSAGetLastError() != WSANOTINITIALISED;
    if (made != INVALID_SOCKET) ::closesocket(made);
    return started;
  }
  static std::string FailureOfInit(const std::shared_ptr<CGlobalContext>* context) {
    try {
      init(context);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "nothing was thrown";
  }
  static std::size_t Registrations() { return host->Gate().Count("CGlobalContext::RegisterModule("); }
  static Bytes Notification() { return NotificationBuilder(4098).Item1(u"C:\\work\\notes.txt").Build(); }
  static std::uint32_t VerdictOf(const std::shared_ptr<CBuf>& reply) {
    const Bytes bytes = BytesOf(reply);
    return bytes.size() < 156 ? 0 : bytes[12];
  }

  static inline HMODULE library = nullptr;
  static inline InitFunction init = nullptr;
  static inline FakeHost* host = nullptr;
  static inline bool networkBefore = true;
  static inline bool networkAfter = false;
};

TEST_F(ModuleLibrary, StartsTheNetworkLibraryWhenItLoads) {
  EXPECT_FALSE(networkBefore) << "something else in this program started it";
  EXPECT_TRUE(networkAfter);
}

TEST_F(ModuleLibrary, HasAVersionResource) {
  std::array<std::uint8_t, 4096> information{};
  ASSERT_TRUE(::GetFileVersionInfoW(L"fenlux.dll", 0, static_cast<DWORD>(information.size()), information.data()));
  void* found = nullptr;
  UINT size = 0;
  ASSERT_TRUE(::VerQueryValueW(information.data(), L"\\", &found, &size));
  ASSERT_GE(size, sizeof(VS_FIXEDFILEINFO));
  const auto* version = static_cast<const VS_FIXEDFILEINFO*>(found);
  for (const auto& [upper, lower] : {std::pair(version->dwFileVersionMS, version->dwFileVersionLS),
                                     std::pair(version->dwProductVersionMS, version->dwProductVersionLS)}) {
    EXPECT_EQ(HIWORD(upper) * 1000000U + LOWORD(upper) * 10000U + HIWORD(lower) * 100U + LOWORD(lower), 19072701U);
  }
  // The language and character set of the strings.
  ASSERT_TRUE(::VerQueryValueW(information.data(), L"\\VarFileInfo\\Translation", &found, &size));
  EXPECT_EQ(*static_cast<const DWORD*>(found), 0x04B00409U);
  for (const auto& [name, text] :
       {std::pair{L"FileVersion", L"19072701"}, std::pair{L"ProductVersion", L"19072701"},
        std::pair{L"InternalName", L"fenlux"}, std::pair{L"OriginalFilename", L"fenlux.dll"}}) {
    const std::wstring block = std::wstring(L"\\StringFileInfo\\040904b0\\") + name;
    ASSERT_TRUE(::VerQueryValueW(information.data(), block.c_str(), &found, &size)) << text;
    EXPECT_EQ(static_cast<const wchar_t*>(found), std::wstring(text));
  }
}

TEST_F(ModuleLibrary, ItsOwnExceptionsReachTheHost) {
  EXPECT_EQ(FailureOfInit(nullptr), "[cl]Bad global class!");
  const std::shared_ptr<CGlobalContext> none;
  EXPECT_EQ(FailureOfInit(&none), "[cl]Bad global class!");
}

TEST_F(ModuleLibrary, SaysWhichServiceIsMissing) {
  for (const auto& [getter, text] :
       {std::pair{"CGlobalContext::GetUtility", "bad utility init!"},
        std::pair{"CGlobalContext::GetCfg", "bad cfg init!"}, std::pair{"CGlobalContext::GetLog", "bad log init!"},
        std::pair{"CGlobalContext::GetCfgEx", "bad cfgex init!"}}) {
    host->Gate().GiveEmpty(getter);
    EXPECT_EQ(FailureOfInit(&host->Context()), text);
    host->Gate().StopGivingEmpty(getter);
  }
  EXPECT_EQ(Registrations(), 0U);
}

TEST_F(ModuleLibrary, PropagatesExceptionsOfServicesUnchanged) {
  const auto throws = [](Failure failure) {
    host->Gate().FailAlways("CGlobalContext::GetLog", failure);
    std::string caught = "nothing";
    try {
      init(&host->Context());
    } catch (const boost::system::system_error& error) {
      caught = error.code() == boost::system::errc::permission_denied ? "permission denied" : error.what();
    } catch (const std::exception& error) {
      caught = error.what();
    } catch (int number) {
      caught = std::to_string(number);
    }
    host->Gate().StopFailing();
    return caught;
  };
  EXPECT_EQ(throws(Failure::kStandard), "standard failure");
  EXPECT_EQ(throws(Failure::kPoco), "I/O error");
  EXPECT_EQ(throws(Failure::kBoostSystem), "permission denied");
  EXPECT_EQ(throws(Failure::kInt), "7");
  EXPECT_EQ(Registrations(), 0U);
}

TEST_F(ModuleLibrary, RegistersItsModuleOnce) {
  init(&host->Context());
  EXPECT_EQ(Registrations(), 1U);
  ASSERT_NE(host->Module(), nullptr);
  const auto module = host->Module();
  init(&host->Context());
  EXPECT_EQ(Registrations(), 1U);
  EXPECT_EQ(host->Module(), module);
}

TEST_F(ModuleLibrary, RefusesThePortValueWithoutAConnection) {
  try {
    host->Module()->GetDriverPortValue();
    FAIL() << "a port value without a connection";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "DCI,Driver Interact NOT ready.");
  }
  EXPECT_EQ(host->Module()->GetDriverInteract(), nullptr);
}

TEST_F(ModuleLibrary, StartsItsWorkAndBecomesReady) {
  host->Module()->StartWork();
  ASSERT_TRUE(host->Gate().AwaitCount("CPortClient::Wait(", 1));
  EXPECT_EQ(host->Module()->GetDriverPortValue(), 77U);
  ASSERT_NE(host->Module()->GetDriverInteract(), nullptr);
  EXPECT_EQ(host->Module()->GetDriverInteract()->GetDriverVersion(), 19072701U);
  ASSERT_EQ(host->ConnectContexts().size(), 1U);
}

TEST_F(ModuleLibrary, DispatchesOnShortLivedThreadsOfTheHost) {
  const auto port = host->PortClient();
  ASSERT_NE(port, nullptr);
  std::atomic<int> right{0};
  for (int round = 0; round < 50; ++round) {
    std::vector<std::thread> delivering;
    for (int index = 0; index < 4; ++index) {
      delivering.emplace_back([&] {
        if (VerdictOf(port->Deliver(Notification())) == 2) ++right;
      });
    }
    for (std::thread& thread : delivering) thread.join();
  }
  EXPECT_EQ(right, 200);
  // A thread created by the system, without the C++ runtime.
  struct Order {
    FakePortClient* port;
    std::uint32_t verdict;
  } order{port.get(), 0};
  const HANDLE thread = ::CreateThread(
      nullptr, 0,
      [](void* parameter) -> DWORD {
        auto& given = *static_cast<Order*>(parameter);
        given.verdict = VerdictOf(given.port->Deliver(Notification()));
        return 0;
      },
      &order, 0, nullptr);
  ASSERT_NE(thread, nullptr);
  ::WaitForSingleObject(thread, INFINITE);
  ::CloseHandle(thread);
  EXPECT_EQ(order.verdict, 2U);
}

TEST_F(ModuleLibrary, DistinguishesTheKindsOfTheHostsExceptions) {
  const auto lineFor = [](Failure failure) {
    host->Gate().ClearJournal();
    host->Gate().FailAlways("CAoArp::Evaluate", failure);
    EXPECT_EQ(VerdictOf(host->PortClient()->Deliver(Notification())), 8U);
    host->Gate().StopFailing();
    const auto lines = host->Gate().EntriesOf({"CLog::LogProblem"});
    return lines.empty() ? std::string("no line") : lines[0];
  };
  EXPECT_EQ(lineFor(Failure::kStandard), "CLog::LogProblem(0x10003, [wdi,wdaokd,STDE] info=standard failure)");
  EXPECT_EQ(lineFor(Failure::kPoco),
            "CLog::LogProblem(0x10003, [wdi,wdaokd,PCE] code=42,info=I/O error: poco failure)");
  EXPECT_EQ(lineFor(Failure::kBoostSystem).rfind("CLog::LogProblem(0x10003, [wdi,wdaokd,BSTE] code=generic:13", 0), 0U);
  EXPECT_EQ(lineFor(Failure::kInt), "CLog::LogProblem(0x10003, [wdi,wdaokd,OTHE])");
}

TEST_F(ModuleLibrary, PropagatesExceptionsOfTheHost) {
  const auto interact = host->Module()->GetDriverInteract();
  ASSERT_NE(interact, nullptr);
  host->Gate().FailAlways("CPortClient::Send", Failure::kStandard);
  EXPECT_THROW(interact->DumpDriverDebugInfo(), std::runtime_error);
  host->Gate().StopFailing();
  host->Gate().FailAlways("CPortClient::Send", Failure::kInt);
  EXPECT_THROW(interact->DumpDriverDebugInfo(), int);
  host->Gate().StopFailing();
}

TEST_F(ModuleLibrary, ReconnectsFiveSecondsAfterAStop) {
  host->Gate().ClearJournal();
  const auto old = host->PortClient();
  const auto begun = std::chrono::steady_clock::now();
  host->Module()->StopWork(true);
  EXPECT_TRUE(old->IsClosed());
  EXPECT_EQ(host->Module()->GetDriverInteract(), nullptr);
  ASSERT_TRUE(host->Gate().AwaitCount("CPortClient::Wait(", 1));
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(4500));
  EXPECT_EQ(host->PortClientCount(), 2U);
  // The previous connection's handler is unused now.
  EXPECT_NE(host->PortClient(), old);
  EXPECT_EQ(VerdictOf(host->PortClient()->Deliver(Notification())), 2U);
}

TEST_F(ModuleLibrary, StaysLoaded) {
  host->Module()->StopWork(false);
  // From here on the process ends while the module's threads still run, as a host's process does.
  EXPECT_EQ(::GetModuleHandleW(L"fenlux.dll"), library);
}

}  // namespace
}  // namespace fenlux::testing
