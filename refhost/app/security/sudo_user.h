// The user on whose behalf root runs this process.
#pragma once

#include <cstdint>
#include <optional>

namespace fenlux::refhost {

// The user who called sudo; nullopt if that was root, if this process does not run as root, or if it was not started by
// sudo. Trusts the environment: root controls that of its processes. Linux only.
std::optional<std::uint32_t> SudoUser();

}  // namespace fenlux::refhost
