// Adds and removes marks until they equal the requested set; refuses "/" and "/tmp" themselves.
#include "refhost/emulator/sources/kernel/fanotify_marks.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/fanotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <set>

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

// A change may come within the same tick as the one before, and have its time.
constexpr std::time_t kSettledAfterSeconds = 1;

std::optional<timespec> SettledChange(const struct stat& status) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec - status.st_ctim.tv_sec <= kSettledAfterSeconds) return std::nullopt;
  return status.st_ctim;
}

bool SameTime(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

FileIdentity IdentityOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }

}  // namespace

std::string FanotifyMarks::Refusal(const std::string& directory) {
  struct stat status {};
  return Inspect(directory, status);
}

FanotifyMarks::Change FanotifyMarks::Set(const std::vector<std::string>& directories) {
  Change change;
  Directories wanted;
  for (const std::string& directory : directories) Collect(directory, Scope::kAll, wanted, change.refused);
  paths.Replace(Prepare(wanted, change), std::chrono::steady_clock::now());

  Directories kept;
  bool lost = false;
  for (const auto& [identity, directory] : marked) {
    if (wanted.contains(identity)) continue;
    change.removed.push_back(directory.path);
    // The mark of a deleted directory is gone; that of a renamed one is not.
    lost |= ::fanotify_mark(group, FAN_MARK_REMOVE, mask | FAN_EVENT_ON_CHILD, AT_FDCWD, directory.path.c_str()) != 0;
  }
  // A mark that can no longer be found by name can only be removed with all others; the wanted ones are set again.
  if (lost) RemoveAll(group);
  MarkAll(wanted, change, kept);
  marked = std::move(kept);
  states.clear();
  for (const std::string& name : std::set<std::string>(directories.begin(), directories.end())) {
    states.push_back({name, false, {}});
  }
  NoteStates(change.refused, true);
  return change;
}

FanotifyMarks::Change FanotifyMarks::Renew() {
  Change change;
  Directories wanted;
  bool someAstray = false;
  for (auto& [identity, directory] : marked) {
    if (directory.astray) continue;
    std::string lost;
    const bool changed = Changed(identity, directory, lost);
    if (!lost.empty()) {
      directory.astray = someAstray = true;
      const bool named = std::ranges::any_of(
          states, [&path = directory.path](const WatchState& state) { return state.directory == path; });
      if (named) {
        change.lost.push_back(fmt::format("{}: {}", directory.path, lost));
      } else {
        change.removed.push_back(directory.path);
      }
    } else if (changed) {
      // It may be another directory that was given the number of the old one, which has no mark.
      Mark(directory.path);
      if (recursive) CollectBelow(directory.path, Scope::kUnwatched, wanted, change.refused);
    }
  }
  std::vector<std::string> refused;  // most probably again, as the log says already
  for (const WatchState& state : states) {
    if (state.watched && !someAstray) continue;
    if (!IsWatched(state.directory)) Collect(state.directory, Scope::kUnwatched, wanted, refused);
  }
  if (!wanted.empty()) {
    Change again;
    paths.Add(Prepare(wanted, again));
    MarkAll(wanted, again, marked);
    change.added = std::move(again.added);
    refused.insert(refused.end(), again.refused.begin(), again.refused.end());
  }
  NoteStates(refused, someAstray);
  return change;
}

WatchedDirectories FanotifyMarks::Prepare(Directories& wanted, Change& change) const {
  WatchedDirectories watched;
  std::erase_if(wanted, [&](const auto& directory) {
    const std::string& path = directory.second.path;
    const std::string reason = watched.Add(path);
    if (!reason.empty()) change.refused.push_back(fmt::format("{}: {}", path, reason));
    return !reason.empty();
  });
  return watched;
}

void FanotifyMarks::MarkAll(const Directories& wanted, Change& change, Directories& kept) const {
  for (const auto& [identity, directory] : wanted) {
    const std::string reason = Mark(directory.path);
    if (!reason.empty()) {
      change.refused.push_back(fmt::format("{}: {}", directory.path, reason));
      continue;
    }
    if (!IsWatched(identity)) change.added.push_back(directory.path);
    kept.insert_or_assign(identity, directory);
  }
}

bool FanotifyMarks::Changed(const FileIdentity& identity, Watched& directory, std::string& lost) const {
  struct stat status {};
  lost = Inspect(directory.path, status);
  if (lost.empty() && IdentityOf(status) != identity) lost = "is another directory now";
  if (!lost.empty()) return false;
  if (directory.changed && SameTime(*directory.changed, status.st_ctim)) return false;
  directory.changed = SettledChange(status);
  return true;
}

bool FanotifyMarks::IsWatched(const FileIdentity& identity) const {
  const auto known = marked.find(identity);
  return known != marked.end() && !known->second.astray;
}

bool FanotifyMarks::IsWatched(const std::string& path) const {
  struct stat status {};
  return Inspect(path, status).empty() && IsWatched(IdentityOf(status));
}

void FanotifyMarks::NoteStates(const std::vector<std::string>& refused, bool alsoWatched) {
  for (WatchState& state : states) {
    if (state.watched && !alsoWatched) continue;
    struct stat status {};
    state.reason = Inspect(state.directory, status);
    state.watched = state.reason.empty() && IsWatched(IdentityOf(status));
    if (state.watched || !state.reason.empty()) continue;
    const std::string prefix = state.directory + ": ";
    const auto line = std::ranges::find_if(refused, [&](const auto& text) { return text.starts_with(prefix); });
    state.reason = line == refused.end() ? "cannot be marked" : line->substr(prefix.size());
  }
}

void FanotifyMarks::RemoveAll(int groupDescriptor) {
  ::fanotify_mark(groupDescriptor, FAN_MARK_FLUSH, 0, AT_FDCWD, nullptr);
}

void FanotifyMarks::Collect(const std::string& directory, Scope scope, Directories& wanted,
                            std::vector<std::string>& refused) const {
  struct stat status {};
  const std::string reason = Inspect(directory, status);
  if (!reason.empty()) {
    refused.push_back(directory + ": " + reason);
    return;
  }
  const FileIdentity identity = IdentityOf(status);
  if (scope == Scope::kUnwatched && IsWatched(identity)) return;
  const bool isNew = wanted.emplace(identity, Watched{directory, std::nullopt}).second;
  if (isNew && recursive) CollectBelow(directory, scope, wanted, refused);
}

void FanotifyMarks::CollectBelow(const std::string& directory, Scope scope, Directories& wanted,
                                 std::vector<std::string>& refused) const {
  boost::system::error_code error;
  boost::filesystem::directory_iterator entry(directory, error);
  for (; !error && entry != boost::filesystem::directory_iterator(); entry.increment(error)) {
    boost::system::error_code entryError;
    if (entry->symlink_status(entryError).type() == boost::filesystem::directory_file) {
      Collect(entry->path().native(), scope, wanted, refused);
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
