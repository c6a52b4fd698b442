// The current process on Windows.
#include <windows.h>

#include <string>

#include "refhost/base/platform/own_process.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kMaxPathUnits = 32768;  // including the terminating zero

}  // namespace

std::uint64_t OwnProcessId() { return ::GetCurrentProcessId(); }

boost::filesystem::path OwnProgramPath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    if (path.size() >= kMaxPathUnits) return {};
    path.resize(kMaxPathUnits);
  }
}

}  // namespace fenlux::refhost
