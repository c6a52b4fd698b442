// The control channel between a running host and its operator: a line-based request and answer over a local socket
// (POSIX) or a named pipe (Windows).
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace fenlux::refhost {

// Parsing a request takes many times its size in memory.
inline constexpr std::size_t kMaxControlRequest = std::size_t{1} << 20;
inline constexpr std::size_t kMaxControlAnswer = std::size_t{64} << 20;

// Limits that keep a client from blocking the channel or exhausting the host's memory.
struct ControlLimits {
  std::size_t requestBytes = kMaxControlRequest;
  std::chrono::milliseconds requestTime{5000};  // for a whole request to arrive, and again for its answer to be sent
  std::size_t clients = 8;                      // connected at once; further ones wait
};

// What the host sends back. Each returns an answer line without the line end and must not throw.
struct ControlReplies {
  std::function<std::string(const std::string& request)> answer;
  std::function<std::string(const std::string& reason)> refuse;  // for a request beyond a limit
};

// The channel cannot be opened or reached; the text says what to do about it.
class ControlChannelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Another host of this user listens there.
class ControlChannelBusy : public ControlChannelError {
 public:
  using ControlChannelError::ControlChannelError;
};

// No host listens there.
class ControlChannelUnreachable : public ControlChannelError {
 public:
  using ControlChannelError::ControlChannelError;
};

// Where a host listens by default. The path belongs to the user alone.
boost::filesystem::path DefaultControlPath();
// Where `ctl` looks for a host by default, in this order: the user's own, and that of the system's service.
std::vector<boost::filesystem::path> DefaultControlPaths();

// Why a host cannot listen there; empty if it can, or if another host already does. Changes nothing.
std::string WhyNoListener(const boost::filesystem::path& path);

// The host's end. Accepts clients of the host's own user only.
class ControlListener {
 public:
  // Opens the channel. Throws ControlChannelBusy, or ControlChannelError for any other reason, such as a channel that
  // other users could reach or something else in its place.
  explicit ControlListener(const boost::filesystem::path& path, const ControlLimits& limits = {});
  // Stops.
  ~ControlListener();
  ControlListener(const ControlListener&) = delete;
  ControlListener& operator=(const ControlListener&) = delete;

  // Serves clients until Stop, several at once. Calls `replies` for one request at a time.
  void Serve(const ControlReplies& replies);
  // Makes Serve return and closes the channel. Any thread.
  void Stop();

 private:
  class Body;
  std::unique_ptr<Body> body;
};

// The operator's end: sends one request line and returns the answer line, all within `timeout`. Throws
// ControlChannelUnreachable if there is no host, or another ControlChannelError.
std::string SendControlRequest(const boost::filesystem::path& path, const std::string& request,
                               std::chrono::milliseconds timeout);

}  // namespace fenlux::refhost
