// Serves the metrics to Prometheus over HTTP. Linux only.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "refhost/app/metrics/metrics_settings.h"

namespace fenlux::refhost {

// Whether this host has metrics.
bool MetricsExist();

// Another program uses the port, possibly a host that runs with the same settings.
class MetricsPortTaken : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One thread at a time.
class MetricsServer {
 public:
  // Opens the port. Throws std::runtime_error with the address and the system's reason: MetricsPortTaken, or another.
  explicit MetricsServer(const MetricsSettings& settings);
  // Stops.
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  // Starts the threads that answer; they call `text` concurrently. Call once. Throws std::runtime_error.
  void Start(std::function<std::string()> text);
  // Stops answering. May be called more than once.
  void Stop();
  // Such as http://127.0.0.1:9464/metrics.
  std::string Url() const;

 private:
  class Body;
  std::unique_ptr<Body> body;
};

}  // namespace fenlux::refhost
