// Asks the kernel without changing anything.
#include "refhost/app/checks/system_facts.h"

#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>

#include "refhost/base/platform/error_text.h"
#include "refhost/emulator/sources/kernel/fanotify_marks.h"

namespace fenlux::refhost {

namespace fs = boost::filesystem;

bool HasUnixPaths() { return true; }

std::string WithLinksResolved(const std::string& pattern) {
  const std::size_t wildcard = pattern.find_first_of("*?");
  // Without a wildcard the whole pattern is a path; otherwise the directories before the wildcard are one.
  const std::size_t end = wildcard == std::string::npos ? pattern.size() : pattern.rfind('/', wildcard);
  if (end == std::string::npos || end == 0 || !pattern.starts_with('/')) return {};
  boost::system::error_code error;
  const std::string literal = pattern.substr(0, end);
  std::string real = fs::canonical(literal, error).string();
  if (error) {  // no such file: resolve at least its directory
    const std::size_t slash = literal.rfind('/');
    if (slash == 0) return {};
    real = fs::canonical(literal.substr(0, slash), error).string();
    if (error) return {};
    real += literal.substr(slash);
  }
  return real == literal ? std::string() : real + pattern.substr(end);
}

std::string WhyNotWritable(const fs::path& directory) {
  return ::access(directory.c_str(), W_OK | X_OK) == 0 ? std::string() : LastErrorText();
}

std::string WhyNotWatchable(const fs::path& directory) {
  std::string refusal = FanotifyMarks::Refusal(directory.string());
  if (!refusal.empty()) return refusal;
  struct statfs system {};
  if (::statfs(directory.c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC) {
    return "is in a proc file system, for which the kernel reports no events";
  }
  return {};
}

std::string WhyNoKernelEvents() {
  return ::geteuid() == 0 ? std::string() : "needs root; start the host as root, or with sudo";
}

}  // namespace fenlux::refhost
