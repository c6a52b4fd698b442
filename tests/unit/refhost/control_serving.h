// A control channel at work for the length of a test, and what an action on one complains of.
#pragma once

#include <boost/filesystem/path.hpp>
#include <functional>
#include <string>
#include <thread>

#include "refhost/app/control/control_channel.h"

namespace fenlux::testing {

// Listens at a place and answers each request with "re: " and the request itself.
class ControlServing {
 public:
  explicit ControlServing(const boost::filesystem::path& place)
      : listener(place),
        thread([this] { listener.Serve([](const std::string& request) { return "re: " + request; }); }) {}
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

// The text of the ControlChannelError that the action throws; empty where it throws none.
inline std::string ControlErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const refhost::ControlChannelError& error) {
    return error.what();
  }
  return {};
}

}  // namespace fenlux::testing
