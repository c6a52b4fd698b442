// Access to the control pipe, its name, and how it stops.
#include "refhost/app/control/control_channel.h"

#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, which they need.
#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <array>
#include <optional>

#include "refhost/base/platform/handle_win.h"
#include "tests/unit/refhost/control_channel_support.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::ControlErrorOf;
using fenlux::testing::ControlServing;
using fenlux::testing::NewControlPath;
using fenlux::testing::TemporaryDirectory;

Handle Open(const boost::filesystem::path& path) {
  return Handle(
      ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | READ_CONTROL, 0, nullptr, OPEN_EXISTING, 0, nullptr));
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

TEST(ControlPipe, IsAccessibleToItsUserOnly) {
  const TemporaryDirectory directory;
  const auto path = NewControlPath(directory);
  const ControlServing serving(path);
  const Handle pipe = Open(path);
  ASSERT_TRUE(pipe.Valid());
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(::GetSecurityInfo(pipe.Get(), SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                              nullptr, nullptr, nullptr, nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  wchar_t* definition = nullptr;
  ASSERT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(
      descriptor, SDDL_REVISION_1, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &definition, nullptr));
  const std::wstring text = definition;
  ::LocalFree(definition);
  ::LocalFree(descriptor);
  const std::wstring user = OwnUserText();
  EXPECT_EQ(text.find(L"O:" + user + L"D:"), 0U);
  // Exactly one entry, which grants access to the user.
  EXPECT_EQ(std::count(text.begin(), text.end(), L'('), 1);
  EXPECT_NE(text.find(L"(A;;"), std::wstring::npos);
  EXPECT_NE(text.find(L";;;" + user + L")"), std::wstring::npos);
}

TEST(ControlPipe, RefusesAPathThatIsNotAPipe) {
  for (const char* path :
       {"C:\\temp\\socket", "\\\\.\\pipe\\", "\\\\server\\pipe\\name", "\\\\.\\pipe\\a\\b", "name"}) {
    EXPECT_EQ(ControlErrorOf([&] { ControlListener{path}; }),
              std::string("the control channel is a named pipe; ") + path + " must have the form \\\\.\\pipe\\NAME");
  }
}

TEST(ControlPipe, StopsWhileAClientSendsNothing) {
  // A stop that waited for the client would take the client's timeout in every attempt. On a busy machine one attempt
  // may take that long, but not all of them.
  constexpr std::chrono::seconds kLimit{4};
  std::chrono::steady_clock::duration taken = kLimit;
  for (int attempt = 0; attempt < 10 && taken >= kLimit; ++attempt) {
    const TemporaryDirectory directory;
    const auto path = NewControlPath(directory);
    std::optional<ControlServing> serving(path);
    const Handle client = Open(path);
    ASSERT_TRUE(client.Valid());
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(client.Get(), "half", 4, &written, nullptr));
    ASSERT_TRUE(::FlushFileBuffers(client.Get()));  // the service has read it and waits for the rest
    const auto start = std::chrono::steady_clock::now();
    serving.reset();
    taken = std::chrono::steady_clock::now() - start;
  }
  EXPECT_LT(taken, kLimit);
}

TEST(ControlPipe, HasADefaultNameForEachUser) {
  EXPECT_EQ(DefaultControlPath().native(), L"\\\\.\\pipe\\fenlux-host-" + OwnUserText());
}

}  // namespace
}  // namespace fenlux::refhost
