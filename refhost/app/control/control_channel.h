// The line between a running host and its operator: one request, one answer. The bodies are the platform's.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace fenlux::refhost {

// The channel cannot be opened or reached; the text says what to do about it.
class ControlChannelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Where a host listens when its configuration names no place: one that belongs to the user alone.
boost::filesystem::path DefaultControlPlace();

// The host's end. Only processes of the host's own user are heard.
class ControlListener {
 public:
  // Opens the channel. Throws ControlChannelError, also where another host listens there already or where others than
  // the user could reach the place.
  explicit ControlListener(const boost::filesystem::path& place);
  // Stops.
  ~ControlListener();
  ControlListener(const ControlListener&) = delete;
  ControlListener& operator=(const ControlListener&) = delete;

  // Answers requests one after the other until Stop. `answer` gets a request of one line and gives an answer of one
  // line, both without the line end; it must not throw.
  void Serve(const std::function<std::string(const std::string& request)>& answer);
  // Makes Serve return, and removes the place. Any thread.
  void Stop();

 private:
  class Body;
  std::unique_ptr<Body> body;
};

// The operator's end: sends one request and waits for its answer. Throws ControlChannelError.
std::string ControlExchange(const boost::filesystem::path& place, const std::string& request,
                            std::chrono::seconds limit);

}  // namespace fenlux::refhost
