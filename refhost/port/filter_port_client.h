// Port clients that use the Filter Manager, which connects programs with filter drivers on Windows. On other systems, a
// FilterPort cannot be created.
//
// Replies: for every message that requires a reply, an operation is blocked in the kernel. The module is responsible
// for the reply while its handler runs; before and after, the port client is. If the module's handler throws or returns
// no reply to a message that requires one, or if its reply is not accepted, the port client replies that the operation
// was not judged. If even that fails, the connection has ended, and the operation no longer waits: the Filter Manager
// releases all waiting operations when a port is closed. Each case is counted, and failures are logged.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/port_client.h"
#include "refhost/base/severity.h"

namespace fenlux::refhost {

struct FilterPortSettings {
  boost::filesystem::path filterLibrary;  // with the Filter Manager's functions; empty: the system's
  std::uint32_t threads = 4;              // threads that call the module's handler
  std::uint32_t buffers = 8;              // for messages that the driver sends ahead; at least `threads`

  bool operator==(const FilterPortSettings&) const = default;
};

// Over all connections. received = answered + noAnswerDue + answeredInstead + late + lost + inFlight.
struct FilterPortTotals {
  std::uint64_t connects = 0;
  std::uint64_t refusedConnects = 0;
  std::uint64_t requests = 0;        // accepted by the driver
  std::uint64_t failedRequests = 0;  // not accepted
  std::uint64_t received = 0;
  std::uint64_t answered = 0;         // with the module's reply
  std::uint64_t noAnswerDue = 0;      // the driver did not wait for a reply
  std::uint64_t answeredInstead = 0;  // with "not judged", because there was no reply that could be sent
  std::uint64_t late = 0;             // after the driver had stopped waiting
  std::uint64_t lost = 0;             // no reply could be sent
  std::uint64_t inFlight = 0;

  bool AddsUp() const { return received == answered + noAnswerDue + answeredInstead + late + lost + inFlight; }
};

// Whether this system has a Filter Manager.
bool FilterPortExists();

// Any thread.
class FilterPort {
 public:
  // Called on the delivery threads and the module's threads, concurrently. Must not block or throw.
  using LogHook = std::function<void(Severity severity, const std::string& line)>;

  // Looks up the library's functions. Throws std::runtime_error that names what is missing.
  FilterPort(const FilterPortSettings& settings, LogHook log);
  // Stops.
  ~FilterPort();
  FilterPort(const FilterPort&) = delete;
  FilterPort& operator=(const FilterPort&) = delete;

  // Implements a host's CWinWork::CreatePortClient. The client may outlive the FilterPort. The port value is not sent
  // to the driver.
  std::shared_ptr<CPortClient> MakePortClient(const std::string& portName, const std::shared_ptr<CBuf>& connectContext,
                                              std::uint32_t maxMessageSize, NotificationHandler handler,
                                              std::uint32_t portValue);
  // Refuses new connections. Open ones stay open.
  void Stop();
  FilterPortTotals Totals() const;

 private:
  class Impl;
  std::shared_ptr<Impl> impl;
};

}  // namespace fenlux::refhost
