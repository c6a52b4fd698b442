// The table of capabilities that a host keeps, and the system calls that drop the others.
#include "refhost/app/security/privileges.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "refhost/app/security/sudo_user.h"
#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

enum class NeededFor { kKernelEvents, kFilesOfTheSudoUser };

struct KeptCapability {
  int number;
  NeededFor neededFor;
};
// docs/operations.md lists the same, for operators.
constexpr KeptCapability kKept[] = {
    // fanotify_init for permission events without limits, and fanotify_mark when the policy changes.
    {CAP_SYS_ADMIN, NeededFor::kKernelEvents},
    // Marking directories that root itself may not read, and open_by_handle_at, which finds the path of a file.
    {CAP_DAC_READ_SEARCH, NeededFor::kKernelEvents},
    // /proc/PID/exe of other users' processes.
    {CAP_SYS_PTRACE, NeededFor::kKernelEvents},
    // Loading the module and reloading the configuration from a home directory that is closed to others.
    {CAP_DAC_READ_SEARCH, NeededFor::kFilesOfTheSudoUser},
};

// Sets of capabilities: one bit each.
using Capabilities = std::uint64_t;

Capabilities BitOf(int capability) { return Capabilities{1} << static_cast<unsigned>(capability); }

Capabilities Wanted(bool receivesKernelEvents) {
  const bool hasSudoUser = SudoUser().has_value();
  Capabilities wanted = 0;
  for (const KeptCapability& kept : kKept) {
    const bool needed = kept.neededFor == NeededFor::kKernelEvents ? receivesKernelEvents : hasSudoUser;
    if (needed) wanted |= BitOf(kept.number);
  }
  return wanted;
}

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error("cannot limit the privileges of this process: " + what + ": " + LastErrorText());
}

using CapabilityData = std::array<__user_cap_data_struct, 2>;  // the low and the high 32 bits

Capabilities Permitted() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  CapabilityData data{};
  if (::syscall(SYS_capget, &header, data.data()) != 0) Fail("capget");
  return data[0].permitted | (Capabilities{data[1].permitted} << 32U);
}

void SetCapabilities(Capabilities capabilities) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  CapabilityData data{};
  for (std::size_t half = 0; half < data.size(); ++half) {
    const auto bits = static_cast<std::uint32_t>(capabilities >> (32U * half));
    data[half].permitted = bits;
    data[half].effective = bits;
  }
  if (::syscall(SYS_capset, &header, data.data()) != 0) Fail("capset");
}

// Drops what programs run by this process could regain.
void DropFromBoundingSet(Capabilities kept) {
  for (int capability = 0; ::prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
    if ((kept & BitOf(capability)) == 0 && ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) Fail("PR_CAPBSET_DROP");
  }
}

}  // namespace

void LimitPrivileges(bool receivesKernelEvents) {
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) Fail("PR_SET_NO_NEW_PRIVS");
  // Sanitizers read their own process through /proc.
  if (FENLUX_UNDUMPABLE && ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) Fail("PR_SET_DUMPABLE");
  const Capabilities permitted = Permitted();
  const Capabilities kept = permitted & Wanted(receivesKernelEvents);
  // Without this capability the bounding set cannot be changed. It need not be: PR_SET_NO_NEW_PRIVS already keeps
  // programs from gaining privileges.
  if ((permitted & BitOf(CAP_SETPCAP)) != 0) DropFromBoundingSet(kept);
  SetCapabilities(kept);
}

}  // namespace fenlux::refhost
