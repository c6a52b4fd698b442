// The process this code runs in: its id and its program.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>

namespace fenlux::refhost {

// Any thread.
std::uint64_t OwnProcessId();
// Empty if the system does not say.
boost::filesystem::path OwnProgramPath();

}  // namespace fenlux::refhost
