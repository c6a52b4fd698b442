// Compares the policy with the objects that the driver received, and with what its event source watches.
#include "refhost/app/status/policy_directories.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <set>
#include <string_view>
#include <utility>

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

// A policy may have thousands of directories.
using Names = std::set<std::string_view>;

Names CommittedNames(const EmulatorState& driver) {
  Names names;
  for (const MonitoredSet& set : driver.monitored) {
    for (const MonitoredObject& object : set.committed) names.insert(object.path);
  }
  return names;
}

// Why the driver was not told to watch the directory; empty if it was.
std::string NotCommitted(const fs::path& directory, const SummaryFacts& facts, const Names& committed) {
  boost::system::error_code error;
  const fs::file_status status = fs::status(directory, error);
  if (!fs::exists(status)) return error ? error.message() : "it does not exist";
  if (!fs::is_directory(status)) return "it is not a directory";
  if (facts.filterPort) return {};  // a real driver does not report it
  if (committed.contains(directory.string())) return {};
  return facts.driver.connected ? "the policy has not been applied yet" : "no connection has applied the policy";
}

// Why the event source does not watch the directory; empty if it does, or if it watches none.
std::string NotWatched(const std::string& directory, const std::vector<WatchState>& watches) {
  const auto watch = std::ranges::lower_bound(watches, directory, {}, &WatchState::directory);
  return watch == watches.end() || watch->directory != directory ? std::string() : watch->reason;
}

}  // namespace

std::vector<PolicyDirectory> PolicyDirectories(const std::vector<fs::path>& policy, const SummaryFacts& facts,
                                               const std::vector<WatchState>& watches) {
  const Names committed = CommittedNames(facts.driver);
  std::vector<PolicyDirectory> directories;
  for (const fs::path& directory : policy) {
    std::string missing = NotCommitted(directory, facts, committed);
    if (missing.empty()) missing = NotWatched(directory.string(), watches);
    directories.push_back({directory.string(), std::move(missing)});
  }
  return directories;
}

std::vector<PolicyDirectory> OtherDirectories(const std::vector<PolicyDirectory>& policy,
                                              const std::vector<WatchState>& watches) {
  Names names;
  for (const PolicyDirectory& directory : policy) names.insert(directory.path);
  std::vector<PolicyDirectory> others;
  for (const WatchState& watch : watches) {
    if (!names.contains(watch.directory)) others.push_back({watch.directory, watch.reason});
  }
  return others;
}

}  // namespace fenlux::refhost
