// The program's commands, after their command lines have been read. Each returns the program's exit code.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <optional>

#include "refhost/app/control/control_protocol.h"

namespace fenlux::refhost {

struct RunOptions {
  boost::filesystem::path config;
  boost::filesystem::path module;                     // empty: as the configuration says
  std::optional<std::chrono::milliseconds> duration;  // nothing: until a signal, or the scenario's end where configured
  bool json = false;
};

// Runs a host to its end. Returns where it could not begin; once the module works, the process is left from inside.
int RunHost(const RunOptions& options);

// Validates a configuration or a scenario.
int CheckConfiguration(const boost::filesystem::path& file);

struct ControlOptions {
  boost::filesystem::path socket;  // empty: that of the configuration
  boost::filesystem::path config;  // empty: the default place
  boost::filesystem::path items;   // a file of network-control items to send along; empty: none
  bool json = false;
  ControlRequest request;
};

// Has a running host carry out one operation.
int ControlHost(ControlOptions options);

}  // namespace fenlux::refhost
