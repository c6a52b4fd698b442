// Why a connection ended, as a recording says it. Any other reason is the driver's, which refused the connection.
#pragma once

#include <string_view>

namespace fenlux::capture {

inline constexpr std::string_view kDriverEnded = "the connection ended";
inline constexpr std::string_view kModuleClosed = "the module closed the connection";
inline constexpr std::string_view kModuleReleased = "the module released the port client";

constexpr bool ClosedByModule(std::string_view reason) { return reason == kModuleClosed || reason == kModuleReleased; }

}  // namespace fenlux::capture
