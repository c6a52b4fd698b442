// The reasons in a recording why a connection ended. Any other text is the reason why the driver refused it.
#pragma once

#include <string_view>

namespace fenlux::capture {

inline constexpr std::string_view kDriverEnded = "the connection ended";
inline constexpr std::string_view kModuleClosed = "the module closed the connection";
inline constexpr std::string_view kModuleReleased = "the module released the port client";

constexpr bool ClosedByModule(std::string_view reason) { return reason == kModuleClosed || reason == kModuleReleased; }

}  // namespace fenlux::capture
