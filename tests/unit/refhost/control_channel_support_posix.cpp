// Control sockets for tests.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "tests/unit/refhost/control_channel_support.h"

namespace fenlux::testing {

const std::string_view kChannelName = "control socket";

boost::filesystem::path NewControlPath(const TemporaryDirectory& directory) { return directory.Path() / "s"; }

PieceClient::PieceClient(const boost::filesystem::path& path) : channel(::socket(AF_UNIX, SOCK_STREAM, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  EXPECT_EQ(::connect(static_cast<int>(channel), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
}

PieceClient::~PieceClient() { ::close(static_cast<int>(channel)); }

bool PieceClient::Send(std::string_view text) {
  return ::send(static_cast<int>(channel), text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

std::string PieceClient::Receive() {
  std::string line;
  for (char next = 0; ::read(static_cast<int>(channel), &next, 1) == 1 && next != '\n';) line += next;
  return line;
}

bool ConnectAndSend(const boost::filesystem::path& path, std::string_view text) {
  const int client = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  const bool sent = ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
                    ::write(client, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(client);
  return sent;
}

}  // namespace fenlux::testing
