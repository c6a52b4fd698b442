// The door to a real driver: port clients over the Filter Manager, by which Windows connects programs with filter
// drivers. Other systems have none, and there a FilterPort cannot be made.
//
// Who answers the driver: an operation waits in the kernel for every message that demands an answer. The module has
// that duty while its handler runs; before and after, the port client has it. Where the module gives no answer (its
// handler throws, or has no reply for a message that demands one) or its reply is not taken, the port client answers
// that the operation was not judged. Where even that is impossible the connection is gone, and with it the driver's
// waiting: the Filter Manager releases everyone who waits when a port is closed. Each case is counted, and the
// exceptional ones are logged.
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
  boost::filesystem::path filterLibrary;  // with the functions of the Filter Manager; empty: the system's own
  std::uint32_t threads = 4;              // that call the module's handler
  std::uint32_t buffers = 8;              // for messages that the driver may send ahead; at least as many as threads

  bool operator==(const FilterPortSettings&) const = default;
};

// Over all connections. Messages received = answered + no answer due + answered instead + late + lost + in flight.
struct FilterPortTotals {
  std::uint64_t connects = 0;
  std::uint64_t refusedConnects = 0;
  std::uint64_t requests = 0;        // that the driver took
  std::uint64_t failedRequests = 0;  // that it did not
  std::uint64_t received = 0;
  std::uint64_t answered = 0;         // with the module's reply
  std::uint64_t noAnswerDue = 0;      // the driver did not wait for one
  std::uint64_t answeredInstead = 0;  // with "not judged", for want of a reply that could be sent
  std::uint64_t late = 0;             // the driver had given up waiting
  std::uint64_t lost = 0;             // no answer could be given any more
  std::uint64_t inFlight = 0;

  bool AddsUp() const { return received == answered + noAnswerDue + answeredInstead + late + lost + inFlight; }
};

// Whether this system has a Filter Manager.
bool FilterPortExists();

// Any thread, save where it says so.
class FilterPort {
 public:
  // Called on the delivery threads and the module's, several at once; must not block or throw.
  using LogHook = std::function<void(Severity severity, const std::string& line)>;

  // Looks up the library's functions. Throws std::runtime_error that says what is missing.
  FilterPort(const FilterPortSettings& settings, LogHook log);
  // Stops.
  ~FilterPort();
  FilterPort(const FilterPort&) = delete;
  FilterPort& operator=(const FilterPort&) = delete;

  // What a host's CWinWork::CreatePortClient hands to the module; it stays usable after the FilterPort has gone. The
  // port value is the host's own matter and does not reach the driver.
  std::shared_ptr<CPortClient> MakePortClient(const std::string& portName, const std::shared_ptr<CBuf>& connectContext,
                                              std::uint32_t maxMessageSize, NotificationHandler handler,
                                              std::uint32_t portValue);
  // Refuses every later connection. Those that are open go on.
  void Stop();
  FilterPortTotals Totals() const;

 private:
  class Impl;
  std::shared_ptr<Impl> impl;
};

}  // namespace fenlux::refhost
