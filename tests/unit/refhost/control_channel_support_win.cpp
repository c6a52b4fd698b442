// Control pipes for tests.
#include <windows.h>

#include "refhost/base/platform/handle_win.h"
#include "tests/unit/refhost/control_channel_support.h"

namespace fenlux::testing {

const std::string_view kChannelName = "control pipe";

boost::filesystem::path NewControlPath(const TemporaryDirectory& /*directory*/) {
  static int count = 0;
  return L"\\\\.\\pipe\\fenlux-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

bool ConnectAndSend(const boost::filesystem::path& path, std::string_view text) {
  const refhost::Handle client(
      ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  DWORD written = 0;
  return client.Valid() && (text.empty() || ::WriteFile(client.Get(), text.data(), static_cast<DWORD>(text.size()),
                                                        &written, nullptr) != FALSE);
}

}  // namespace fenlux::testing
