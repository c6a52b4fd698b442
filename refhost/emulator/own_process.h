// The emulator's own process, whose operations are never judged and which scenarios call "self".
#pragma once

#include <cstdint>

namespace fenlux::refhost {

std::uint64_t OwnProcessId();

}  // namespace fenlux::refhost
