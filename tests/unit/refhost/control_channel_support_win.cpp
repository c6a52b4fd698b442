// Control pipes for tests.
#include <windows.h>

#include <gtest/gtest.h>

#include "refhost/base/platform/handle_win.h"
#include "tests/unit/refhost/control_channel_support.h"

namespace fenlux::testing {

const std::string_view kChannelName = "control pipe";

boost::filesystem::path NewControlPath(const TemporaryDirectory& /*directory*/) {
  static int count = 0;
  return L"\\\\.\\pipe\\fenlux-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

PieceClient::PieceClient(const boost::filesystem::path& path) {
  HANDLE pipe = INVALID_HANDLE_VALUE;
  do {
    pipe = ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  } while (pipe == INVALID_HANDLE_VALUE && ::GetLastError() == ERROR_PIPE_BUSY &&
           ::WaitNamedPipeW(path.c_str(), 10'000) != FALSE);
  EXPECT_NE(pipe, INVALID_HANDLE_VALUE);
  channel = reinterpret_cast<std::intptr_t>(pipe);
}

PieceClient::~PieceClient() { ::CloseHandle(reinterpret_cast<HANDLE>(channel)); }

bool PieceClient::Send(std::string_view text) {
  DWORD written = 0;
  return ::WriteFile(reinterpret_cast<HANDLE>(channel), text.data(), static_cast<DWORD>(text.size()), &written,
                     nullptr) != FALSE &&
         written == text.size();
}

std::string PieceClient::Receive() {
  std::string text;
  char chunk[4096];
  DWORD count = 0;
  while (text.find('\n') == std::string::npos &&
         ::ReadFile(reinterpret_cast<HANDLE>(channel), chunk, sizeof(chunk), &count, nullptr) != FALSE && count > 0) {
    text.append(chunk, count);
  }
  return text.substr(0, text.find('\n'));
}

bool ConnectAndSend(const boost::filesystem::path& path, std::string_view text) {
  const refhost::Handle client(
      ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  DWORD written = 0;
  return client.Valid() && (text.empty() || ::WriteFile(client.Get(), text.data(), static_cast<DWORD>(text.size()),
                                                        &written, nullptr) != FALSE);
}

}  // namespace fenlux::testing
