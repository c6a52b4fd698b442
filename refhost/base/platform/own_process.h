// The current process's id and program.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>

namespace fenlux::refhost {

// Any thread.
std::uint64_t OwnProcessId();
// Empty if it cannot be determined.
boost::filesystem::path OwnProgramPath();

}  // namespace fenlux::refhost
