// A control channel for the duration of a test, and the helpers that differ between platforms.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "refhost/app/control/control_channel.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::testing {

// For a request that a listener is expected to answer.
inline constexpr std::chrono::seconds kRequestTimeout{20};

// Listens at a path, answers each request with "re: " and the request, and refuses with "no: " and the reason.
class ControlServing {
 public:
  explicit ControlServing(const boost::filesystem::path& path,
                          const refhost::ControlLimits& limits = {.requestTime = std::chrono::minutes(2)})
      : listener(path, limits), thread([this] {
          listener.Serve({.answer = [](const std::string& request) { return "re: " + request; },
                          .refuse = [](const std::string& reason) { return "no: " + reason; }});
        }) {}
  ~ControlServing() {
    listener.Stop();
    thread.join();
  }
  ControlServing(const ControlServing&) = delete;
  ControlServing& operator=(const ControlServing&) = delete;

 private:
  refhost::ControlListener listener;
  std::thread thread;
};

// The text of the ControlChannelError that the action throws; empty if it throws none.
inline std::string ControlErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const refhost::ControlChannelError& error) {
    return error.what();
  }
  return {};
}

// What the platform calls a channel in messages: "control socket" or "control pipe".
extern const std::string_view kChannelName;

// A path for a test's own channel. On POSIX it is in the directory.
boost::filesystem::path NewControlPath(const TemporaryDirectory& directory);

// A client that sends a request in pieces.
class PieceClient {
 public:
  // Connects. Fails the test if it cannot.
  explicit PieceClient(const boost::filesystem::path& path);
  ~PieceClient();
  PieceClient(const PieceClient&) = delete;
  PieceClient& operator=(const PieceClient&) = delete;

  // Returns whether the text was sent; false if the host has closed the connection.
  bool Send(std::string_view text);
  // What the host sends until it closes the connection or ends a line; without the line end.
  std::string Receive();

 private:
  std::intptr_t channel = -1;  // the platform's descriptor or handle
};

// Connects as a client and disconnects again, after sending the text if there is any. Returns whether it connected.
bool ConnectAndSend(const boost::filesystem::path& path, std::string_view text);

}  // namespace fenlux::testing
