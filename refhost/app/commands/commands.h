// The program's commands, after command-line parsing. Each returns the program's exit code.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "refhost/app/control/control_protocol.h"
#include "refhost/app/decisions/explain_report.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {

struct RunOptions {
  boost::filesystem::path config;
  boost::filesystem::path module;  // overrides the configuration unless empty
  boost::filesystem::path socket;  // overrides the configuration unless empty
  boost::filesystem::path record;  // capture to record into; overrides the configuration unless empty
  std::optional<std::chrono::milliseconds> duration;  // if absent, run until a signal or the configured end
  bool json = false;
  LogColors colors = LogColors::kIfTerminal;  // of the log on the console
  bool insecurePermissions = false;           // as root, use files that other users may change
};

// Runs a host. Returns only if the host could not be created; otherwise ends the process when the run ends, because the
// module's threads are never joined.
int RunHost(const RunOptions& options);

struct CheckOptions {
  boost::filesystem::path file;
  bool json = false;                 // show the findings as JSON, on standard output
  bool insecurePermissions = false;  // as root, accept files that other users may change
};

// Validates a configuration or a scenario, and tries the first steps of a run with the configuration.
int CheckConfiguration(const CheckOptions& options);

struct DecodeOptions {
  boost::filesystem::path file;
  bool json = false;
  bool follow = false;  // keep reading as the file grows
  bool hex = false;     // show the bytes of messages too
  // Conditions of the exchanges to show.
  std::optional<std::uint32_t> code;
  std::optional<std::uint32_t> verdict;
  std::optional<std::string> path;  // a pattern, see Glob
  std::optional<double> slowMicroseconds;
};

// Shows the exchanges of a capture.
int DecodeCapture(const DecodeOptions& options);

struct ReplayOptions {
  boost::filesystem::path file;
  boost::filesystem::path module;  // empty: the default one
  bool recordedPace = false;       // otherwise as fast as the module answers
  bool json = false;
  bool insecurePermissions = false;  // as root, use a module that other users may change
};

// Plays a capture to a module and compares what the module does. Returns only if the module was not loaded; otherwise
// ends the process.
int ReplayCapture(const ReplayOptions& options);

struct DriveOptions {
  boost::filesystem::path config;
  boost::filesystem::path module;  // overrides the configuration unless empty
  boost::filesystem::path record;  // capture to keep; empty: do not keep it
  std::chrono::milliseconds timeout{15'000};
  std::chrono::milliseconds requestLimit{2'000};
  std::chrono::milliseconds notifications{5'000};
  bool reconnect = true;  // make the module close the connection and connect again
  bool json = false;
  bool insecurePermissions = false;  // as root, use files that other users may change
};

// Has the module exercise the whole protocol with a driver, and shows what the driver does wrong. Returns only if the
// host could not be created; otherwise ends the process.
int DriveDriver(const DriveOptions& options);

struct ReportOptions {
  boost::filesystem::path file;
  boost::filesystem::path html;  // to write; replaced if it exists
  std::string title;             // UTF-8; empty: the capture's name
};

// Writes a capture's report.
int ReportCapture(const ReportOptions& options);

struct ExplainOptions {
  boost::filesystem::path config;
  ExplainQuestion question;
  bool json = false;
};

// Shows which rule of a configuration would decide about an event, and why. Needs no running host.
int ExplainDecision(const ExplainOptions& options);

struct ControlOptions {
  boost::filesystem::path socket;  // empty: the socket of the configuration
  boost::filesystem::path config;  // empty: use the default socket
  boost::filesystem::path items;   // file of network-control items to send along; empty: none
  bool json = false;
  bool insecurePermissions = false;  // as root, use a file of items that other users may change
  ControlRequest request;
};

// Runs one operation on a running host.
int ControlHost(ControlOptions options);

}  // namespace fenlux::refhost
