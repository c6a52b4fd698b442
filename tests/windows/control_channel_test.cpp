// The control pipe: who may reach it, and that a request gets its answer.
#include "refhost/app/control/control_channel.h"

#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, which they need.
#include <aclapi.h>
#include <sddl.h>

#include <optional>
#include <thread>

#include "refhost/base/platform/handle_win.h"
#include "tests/unit/refhost/control_serving.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::ControlErrorOf;
using fenlux::testing::ControlServing;

constexpr std::chrono::seconds kPatience{20};

boost::filesystem::path Place() {
  static int count = 0;
  return L"\\\\.\\pipe\\fenlux-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

Handle Open(const boost::filesystem::path& place) {
  return Handle(
      ::CreateFileW(place.c_str(), GENERIC_READ | GENERIC_WRITE | READ_CONTROL, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::wstring OwnUserText() {
  HANDLE token = nullptr;
  ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token);
  const Handle held(token);
  std::array<std::uint8_t, 512> block{};
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, block.data(), static_cast<DWORD>(block.size()), &size);
  wchar_t* text = nullptr;
  ::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(block.data())->User.Sid, &text);
  const std::wstring user = text;
  ::LocalFree(text);
  return user;
}

TEST(ControlChannel, AnswersEachRequestAndRemovesItsPipeAtTheEnd) {
  const auto place = Place();
  {
    const ControlServing serving(place);
    EXPECT_EQ(ControlExchange(place, "one", kPatience), "re: one");
    EXPECT_EQ(ControlExchange(place, "two", kPatience), "re: two");
    const std::string large(300'000, 'x');
    EXPECT_EQ(ControlExchange(place, large, kPatience), "re: " + large);
  }
  EXPECT_FALSE(Open(place).Valid());
}

TEST(ControlChannel, OperatorsThatComeAtOnceAreServedInTurn) {
  const auto place = Place();
  const ControlServing serving(place);
  std::vector<std::thread> operators;
  std::atomic<int> answered{0};
  for (int index = 0; index < 6; ++index) {
    operators.emplace_back([&, index] {
      const std::string request = std::to_string(index);
      if (ControlExchange(place, request, kPatience) == "re: " + request) ++answered;
    });
  }
  for (std::thread& each : operators) each.join();
  EXPECT_EQ(answered, 6);
}

TEST(ControlChannel, OnlyItsUserCanOpenThePipe) {
  const auto place = Place();
  const ControlServing serving(place);
  const Handle pipe = Open(place);
  ASSERT_TRUE(pipe.Valid());
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(::GetSecurityInfo(pipe.Get(), SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                              nullptr, nullptr, nullptr, nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  wchar_t* words = nullptr;
  ASSERT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(
      descriptor, SDDL_REVISION_1, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &words, nullptr));
  const std::wstring text = words;
  ::LocalFree(words);
  ::LocalFree(descriptor);
  const std::wstring user = OwnUserText();
  EXPECT_EQ(text.find(L"O:" + user + L"D:"), 0U);
  // One entry, which grants, and which is the user's.
  EXPECT_EQ(std::count(text.begin(), text.end(), L'('), 1);
  EXPECT_NE(text.find(L"(A;;"), std::wstring::npos);
  EXPECT_NE(text.find(L";;;" + user + L")"), std::wstring::npos);
}

TEST(ControlChannel, RefusesAPlaceWhereAnotherHostListens) {
  const auto place = Place();
  const ControlServing serving(place);
  EXPECT_EQ(
      ControlErrorOf([&] { ControlListener{place}; }),
      "another host listens on the control pipe " + place.string() + "; end it, or name another pipe under [control]");
  EXPECT_EQ(ControlExchange(place, "still there", kPatience), "re: still there");
}

TEST(ControlChannel, RefusesAPlaceThatIsNoPipe) {
  for (const char* place :
       {"C:\\temp\\socket", "\\\\.\\pipe\\", "\\\\server\\pipe\\name", "\\\\.\\pipe\\a\\b", "name"}) {
    EXPECT_EQ(
        ControlErrorOf([&] { ControlListener{place}; }),
        std::string("the control channel is a named pipe here; ") + place + " must be of the form \\\\.\\pipe\\NAME");
  }
}

TEST(ControlChannel, SaysThatNoHostIsThere) {
  const auto place = Place();
  EXPECT_EQ(ControlErrorOf([&] {
              ControlExchange(place, "", std::chrono::seconds(1));
            }).find("no host can be reached on the control pipe " + place.string() + ": "),
            0U);
}

TEST(ControlChannel, AClientThatGoesAwayInTheMiddleOfALineDoesNotEndTheService) {
  const auto place = Place();
  const ControlServing serving(place);
  {
    const Handle client = Open(place);
    ASSERT_TRUE(client.Valid());
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(client.Get(), "half", 4, &written, nullptr));
  }
  EXPECT_EQ(ControlExchange(place, "next", kPatience), "re: next");
}

TEST(ControlChannel, StopEndsTheServiceWhileAClientSaysNothing) {
  // A stop that waited for the client would every time take the five seconds that a client is given. A busy machine can
  // take as long, but not every time.
  constexpr std::chrono::seconds kSooner{4};
  std::chrono::steady_clock::duration taken = kSooner;
  for (int attempt = 0; attempt < 10 && taken >= kSooner; ++attempt) {
    const auto place = Place();
    std::optional<ControlServing> serving(place);
    const Handle client = Open(place);
    ASSERT_TRUE(client.Valid());
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(client.Get(), "half", 4, &written, nullptr));
    ASSERT_TRUE(::FlushFileBuffers(client.Get()));  // it was read: the service waits for the rest
    const auto begun = std::chrono::steady_clock::now();
    serving.reset();
    taken = std::chrono::steady_clock::now() - begun;
  }
  EXPECT_LT(taken, kSooner);
}

TEST(ControlChannel, TheDefaultPlaceIsThePipeOfTheUser) {
  EXPECT_EQ(DefaultControlPlace().native(), L"\\\\.\\pipe\\fenlux-host-" + OwnUserText());
}

}  // namespace
}  // namespace fenlux::refhost
