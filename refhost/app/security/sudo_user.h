// The user on whose behalf root runs this process.
#pragma once

#include <cstdint>
#include <optional>

namespace fenlux::refhost {

// The user who called sudo; none if that was root, or if this process is not root's or was started otherwise. Root
// vouches for the environment of its processes. Linux only.
std::optional<std::uint32_t> SudoUser();

}  // namespace fenlux::refhost
