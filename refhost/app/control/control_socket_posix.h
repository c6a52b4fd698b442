// Unix-domain sockets of the control channel: their place in the file system, and connecting within a time limit.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>

#include "refhost/base/platform/descriptor_posix.h"

namespace fenlux::refhost {

// Creates a socket that listens at `path`, for this user only: creates the directory if it is missing and removes a
// socket that a killed host left. Throws ControlChannelBusy or ControlChannelError.
Descriptor ListenAt(const boost::filesystem::path& path);

// Connects to the socket at `path`. Throws ControlChannelUnreachable, or ControlChannelError if it belongs to another
// user's process.
Descriptor ConnectTo(const boost::filesystem::path& path, std::chrono::milliseconds limit);

// Whether the process at the other end runs as this user.
bool IsOwnUser(const Descriptor& socket);

}  // namespace fenlux::refhost
