// Everything that the views of a running host show: status, health and metrics.
#pragma once

#include <array>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/app/status/host_history.h"
#include "refhost/app/summary.h"

namespace fenlux::refhost {

// A directory that the driver should watch.
struct PolicyDirectory {
  std::string path;
  std::string missing;  // why the driver does not watch it; empty if it does
};

struct HistoryPeriod {
  std::string_view name;
  std::chrono::seconds length;
};
inline constexpr std::array<HistoryPeriod, 3> kHistoryPeriods{{{"last_10_seconds", std::chrono::seconds(10)},
                                                               {"last_minute", std::chrono::seconds(60)},
                                                               {"last_10_minutes", std::chrono::seconds(600)}}};

struct StatusFacts {
  SummaryFacts summary;
  std::uint64_t processId = 0;
  std::uint32_t moduleVersion = 0;
  boost::filesystem::path moduleLibrary;  // empty before the module is loaded
  std::chrono::system_clock::time_point started;

  boost::filesystem::path configuration;
  std::chrono::system_clock::time_point configurationLoaded;  // with the rules in force
  std::uint64_t reloads = 0;
  std::uint64_t refusedReloads = 0;
  bool lastReloadRefused = false;

  bool ready = false;  // the module has a connection that it can use
  bool hasPolicy = false;
  std::vector<PolicyDirectory> policy;
  std::vector<PolicyDirectory> otherDirectories;  // those that only the settings of the kernel source name

  std::size_t logQueueLines = 0;  // capacity
  std::uint64_t heldNetObjects = 0;
  std::uint64_t cachedProcesses = 0;
  LatencyCounts latencies;
  std::array<HistoryWindow, kHistoryPeriods.size()> history;  // of kHistoryPeriods
};

}  // namespace fenlux::refhost
