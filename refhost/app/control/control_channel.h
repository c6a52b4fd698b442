// The control channel between a running host and its operator: a line-based request and answer over a local socket
// (POSIX) or a named pipe (Windows).
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace fenlux::refhost {

inline constexpr std::size_t kMaxControlLine = std::size_t{64} << 20;
// A client that connects and sends nothing must not block others for longer.
inline constexpr std::chrono::seconds kControlClientTimeout{5};

// The channel cannot be opened or reached; the text says what to do about it.
class ControlChannelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Where a host listens by default. The path belongs to the user alone.
boost::filesystem::path DefaultControlPath();

// The host's end. Accepts clients of the host's own user only.
class ControlListener {
 public:
  // Opens the channel. Throws ControlChannelError, also if another host is listening there or other users could reach
  // it.
  explicit ControlListener(const boost::filesystem::path& path);
  // Stops.
  ~ControlListener();
  ControlListener(const ControlListener&) = delete;
  ControlListener& operator=(const ControlListener&) = delete;

  // Answers requests one at a time until Stop. `answer` maps a request line to an answer line, both without the line
  // end, and must not throw.
  void Serve(const std::function<std::string(const std::string& request)>& answer);
  // Makes Serve return and closes the channel. Any thread.
  void Stop();

 private:
  class Body;
  std::unique_ptr<Body> body;
};

// The operator's end: sends one request line and returns the answer line. Throws ControlChannelError.
std::string SendControlRequest(const boost::filesystem::path& path, const std::string& request,
                               std::chrono::seconds timeout);

}  // namespace fenlux::refhost
