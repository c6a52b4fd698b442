// Compares the policy with what the driver was told.
#include "refhost/app/status/policy_directories.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

std::string Missing(const fs::path& directory, const std::string& name, const SummaryFacts& facts) {
  boost::system::error_code error;
  const fs::file_status status = fs::status(directory, error);
  if (!fs::exists(status)) return error ? error.message() : "it does not exist";
  if (!fs::is_directory(status)) return "it is not a directory";
  if (facts.filterPort) return {};  // a real driver does not tell
  const bool committed = std::ranges::any_of(facts.driver.monitored, [&](const MonitoredSet& set) {
    return std::ranges::any_of(set.committed, [&](const MonitoredObject& object) { return object.path == name; });
  });
  if (committed) return {};
  return facts.driver.connected ? "the policy has not been applied yet" : "no connection has applied the policy";
}

}  // namespace

std::vector<PolicyDirectory> PolicyDirectories(const std::vector<fs::path>& policy, const SummaryFacts& facts) {
  std::vector<PolicyDirectory> directories;
  for (const fs::path& directory : policy) {
    const std::string& name = directory.string();
    directories.push_back({name, Missing(directory, name, facts)});
  }
  return directories;
}

}  // namespace fenlux::refhost
