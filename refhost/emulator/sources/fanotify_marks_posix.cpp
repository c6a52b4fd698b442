// Adds and removes marks until they equal the requested set; refuses "/" and "/tmp" themselves.
#include "refhost/emulator/sources/fanotify_marks.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/fanotify.h>
#include <sys/stat.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

// Watching these would block programs that have nothing to do with the host.
constexpr const char* kNeverWatched[] = {"/", "/tmp"};

bool SameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Fills in the directory's status. Returns why it may not be watched; empty if it may.
std::string Inspect(const std::string& directory, struct stat& status) {
  if (directory.empty() || directory.front() != '/') return "is not an absolute path";
  if (::stat(directory.c_str(), &status) != 0) return LastErrorText();
  if (!S_ISDIR(status.st_mode)) return "is not a directory";
  for (const char* never : kNeverWatched) {
    struct stat other {};
    if (::stat(never, &other) == 0 && SameFile(status, other)) {
      return std::string("is ") + never + " itself, which is never watched";
    }
  }
  return {};
}

}  // namespace

std::string FanotifyMarks::Refusal(const std::string& directory) {
  struct stat status {};
  return Inspect(directory, status);
}

FanotifyMarks::Change FanotifyMarks::Set(const std::vector<std::string>& directories) {
  Change change;
  Directories wanted;
  for (const std::string& directory : directories) Collect(directory, wanted, change.refused);

  WatchedDirectories watched;
  std::erase_if(wanted, [&](const auto& directory) {
    const std::string reason = watched.Add(directory.second);
    if (!reason.empty()) change.refused.push_back(fmt::format("{}: {}", directory.second, reason));
    return !reason.empty();
  });
  paths.Replace(watched, std::chrono::steady_clock::now());

  Directories kept;
  bool lost = false;
  for (const auto& [identity, directory] : marked) {
    if (wanted.contains(identity)) continue;
    change.removed.push_back(directory);
    // The mark of a deleted directory is gone; that of a renamed one is not.
    lost |= ::fanotify_mark(group, FAN_MARK_REMOVE, mask | FAN_EVENT_ON_CHILD, AT_FDCWD, directory.c_str()) != 0;
  }
  // A mark that can no longer be found by name can only be removed with all others; the wanted ones are set again.
  if (lost) ::fanotify_mark(group, FAN_MARK_FLUSH, 0, AT_FDCWD, nullptr);

  for (const auto& [identity, directory] : wanted) {
    const std::string reason = Mark(directory);
    if (!reason.empty()) {
      change.refused.push_back(fmt::format("{}: {}", directory, reason));
      continue;
    }
    if (!marked.contains(identity)) change.added.push_back(directory);
    kept.emplace(identity, directory);
  }
  marked = std::move(kept);
  return change;
}

void FanotifyMarks::Clear() {
  ::fanotify_mark(group, FAN_MARK_FLUSH, 0, AT_FDCWD, nullptr);
  marked.clear();
}

void FanotifyMarks::Collect(const std::string& directory, Directories& wanted,
                            std::vector<std::string>& refused) const {
  struct stat status {};
  const std::string reason = Inspect(directory, status);
  if (!reason.empty()) {
    refused.push_back(directory + ": " + reason);
    return;
  }
  if (!wanted.emplace(FileIdentity(status.st_dev, status.st_ino), directory).second || !recursive) return;
  boost::system::error_code error;
  boost::filesystem::directory_iterator entry(directory, error);
  for (; !error && entry != boost::filesystem::directory_iterator(); entry.increment(error)) {
    boost::system::error_code entryError;
    if (entry->symlink_status(entryError).type() == boost::filesystem::directory_file) {
      Collect(entry->path().native(), wanted, refused);
    }
  }
  if (error) refused.push_back(directory + ": cannot list its directories: " + error.message());
}

std::string FanotifyMarks::Mark(const std::string& directory) const {
  const int result =
      ::fanotify_mark(group, FAN_MARK_ADD | FAN_MARK_ONLYDIR, mask | FAN_EVENT_ON_CHILD, AT_FDCWD, directory.c_str());
  return result == 0 ? std::string() : LastErrorText();
}

}  // namespace fenlux::refhost
