// Adds and removes marks until they match the requested directories.
#include "refhost/emulator/sources/kernel/fanotify_marks.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/fanotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

// How many directories are opened and marked in one round. EventPaths copies its table for each round.
constexpr std::size_t kMaxFound = 128;

FileIdentity IdentityOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }

// Gets the status of the file that the name leads to now. Returns why it may not be watched; empty if it may.
std::string Inspect(const std::string& name, struct stat& status) {
  if (name.empty() || name.front() != '/') return "is not an absolute path";
  if (::stat(name.c_str(), &status) != 0) return LastErrorText();
  if (!S_ISDIR(status.st_mode)) return "is not a directory";
  return NeverWatched(IdentityOf(status));
}

// Two changes within the same clock tick have the same time.
constexpr std::time_t kSettledAfterSeconds = 1;

std::optional<timespec> SettledChange(const struct stat& status) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec - status.st_ctim.tv_sec <= kSettledAfterSeconds) return std::nullopt;
  return status.st_ctim;
}

bool SameTime(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

bool IsAtOrBelow(const std::string& name, const std::string& top) {
  return name.starts_with(top) && (name.size() == top.size() || name[top.size()] == '/');
}

}  // namespace

std::string FanotifyMarks::Refusal(const std::string& directory) {
  struct stat status {};
  return Inspect(directory, status);
}

FanotifyMarks::Change FanotifyMarks::Set(const std::vector<std::string>& directories) {
  Change change;
  Round round{change, {}, {}};
  for (const std::string& directory : directories) Collect(directory, Scope::kAll, round);
  MarkFound(round);
  for (auto& [identity, directory] : marked) {
    if (round.wanted.contains(identity)) continue;
    if (!directory.unwanted) change.removed.push_back(directory.name);
    directory.unwanted = true;
  }
  RemoveUnwanted();
  WatchedDirectories known;
  for (const auto& [identity, directory] : marked) known.emplace(identity, directory.known);
  paths.Replace(known, std::chrono::steady_clock::now());
  std::erase_if(mounts, [](const auto& mount) { return mount.second.expired(); });

  states.clear();
  for (const std::string& name : std::set<std::string>(directories.begin(), directories.end())) {
    states.push_back({name, false, {}});
  }
  statesOutdated = true;
  NoteStates(change.refused);
  return change;
}

FanotifyMarks::Change FanotifyMarks::Renew() {
  Change change;
  std::vector<std::pair<FileIdentity, std::optional<timespec>>> changed;
  for (auto& [identity, directory] : marked) {
    if (directory.displaced || directory.unwanted) continue;
    const Look look = LookAt(identity, directory);
    if (look.changed) changed.emplace_back(identity, look.settled);
    if (look.lost.empty()) continue;
    directory.displaced = statesOutdated = true;
    const bool named = std::ranges::any_of(
        states, [&name = directory.name](const WatchState& state) { return state.directory == name; });
    if (named) {
      change.lost.push_back(fmt::format("{}: {}", directory.name, look.lost));
    } else {
      change.removed.push_back(directory.name);
    }
  }
  Round again{change, {}, {}};
  for (const auto& [identity, settled] : changed)
    Collect(std::string(marked.at(identity).name), Scope::kChanged, again);
  MarkFound(again);
  for (const auto& [identity, settled] : changed) {
    if (const auto directory = marked.find(identity); directory != marked.end()) directory->second.changed = settled;
  }
  Change missing;  // refusals are not reported: they are probably in the log already
  Round found{missing, {}, {}};
  for (const WatchState& state : states) {
    if (state.watched && !statesOutdated) continue;
    if (!IsWatched(state.directory)) Collect(state.directory, Scope::kUnwatched, found);
  }
  MarkFound(found);
  RemoveUnwanted();
  change.added.insert(change.added.end(), missing.added.begin(), missing.added.end());
  NoteStates(missing.refused);
  return change;
}

FanotifyMarks::Look FanotifyMarks::LookAt(const FileIdentity& identity, const Watched& directory) {
  struct stat status {};
  Look look;
  look.lost = Inspect(directory.name, status);
  if (look.lost.empty() && IdentityOf(status) != identity) look.lost = "is another directory now";
  if (!look.lost.empty()) return look;
  if (directory.changed && SameTime(*directory.changed, status.st_ctim)) return look;
  look.changed = true;
  look.settled = SettledChange(status);
  return look;
}

void FanotifyMarks::Collect(const std::string& name, Scope scope, Round& round) {
  try {
    FoundDirectory found = FindDirectory(name);
    // The next Renew notices that it is lost.
    if (found.directory == nullptr && scope == Scope::kChanged) return;
    Take(name, std::move(found), scope, round);
  } catch (const NoDescriptors& error) {
    KeepBelow(name, error, round);
  }
}

void FanotifyMarks::Take(const std::string& name, FoundDirectory found, Scope scope, Round& round) {
  if (found.directory == nullptr) {
    round.change.refused.push_back(name + ": " + found.refusal);
    return;
  }
  const FileIdentity identity = found.directory->identity;
  if (scope == Scope::kUnwatched && IsWatched(identity)) return;
  if (!round.wanted.insert(identity).second) return;
  const Named named{name, std::move(found.directory)};
  round.found.push_back(named);
  if (round.found.size() >= kMaxFound) MarkFound(round);
  if (recursive) CollectBelow(named, scope == Scope::kAll ? Scope::kAll : Scope::kUnwatched, round);
}

void FanotifyMarks::CollectBelow(const Named& parent, Scope scope, Round& round) {
  std::string refusal;
  for (const std::string& entry : DirectoriesIn(*parent.directory, refusal)) {
    const std::string name = parent.name + (parent.name.ends_with('/') ? "" : "/") + entry;
    try {
      FoundDirectory found = FindDirectory(*parent.directory, entry);
      if (found.directory != nullptr || !found.refusal.empty()) Take(name, std::move(found), scope, round);
    } catch (const NoDescriptors& error) {
      KeepBelow(name, error, round);
    }
  }
  if (!refusal.empty()) round.change.refused.push_back(parent.name + ": " + refusal);
}

void FanotifyMarks::KeepBelow(const std::string& name, const NoDescriptors& error, Round& round) const {
  bool kept = false;
  for (const auto& [identity, directory] : marked) {
    if (directory.displaced || directory.unwanted || !IsAtOrBelow(directory.name, name)) continue;
    round.wanted.insert(identity);
    kept = true;
  }
  if (!kept) round.change.refused.push_back(name + ": " + error.what());
}

void FanotifyMarks::MarkFound(Round& round) {
  std::vector<Watched> made;
  WatchedDirectories unknown;
  for (const Named& found : round.found) {
    made.push_back(MakeWatched(found));
    const WatchedDirectory& known = made.back().known;
    const auto before = marked.find(found.directory->identity);
    if (before == marked.end() || before->second.known != known) unknown.emplace(found.directory->identity, known);
  }
  if (!unknown.empty()) paths.Add(unknown);
  for (std::size_t i = 0; i < made.size(); ++i) {
    const OpenDirectory& directory = *round.found[i].directory;
    const bool wasWatched = IsWatched(directory.identity);
    if (const auto before = marked.find(directory.identity); before != marked.end()) {
      made[i].changed = before->second.changed;
    }
    // Recorded first: if memory runs out from here on, the mark can still be found.
    Watched& watched = marked.insert_or_assign(directory.identity, std::move(made[i])).first->second;
    // The call does not accept a descriptor opened with O_PATH unless a name is given too.
    if (::fanotify_mark(group, FAN_MARK_ADD | FAN_MARK_ONLYDIR, mask | FAN_EVENT_ON_CHILD, directory.descriptor.Get(),
                        ".") != 0) {
      const int error = errno;
      watched.unwanted = statesOutdated = true;
      round.change.refused.push_back(watched.name + ": " + SystemErrorText(error));
    } else if (!wasWatched) {
      round.change.added.push_back(watched.name);
    }
  }
  round.found.clear();
}

FanotifyMarks::Watched FanotifyMarks::MakeWatched(const Named& found) {
  const FileHandle handle(found.directory->descriptor.Get());
  return {found.name,
          {found.directory->path, HeldOnMountOf(found.directory)},
          handle,
          handle.Valid() ? nullptr : found.directory,
          std::nullopt};
}

std::shared_ptr<const OpenDirectory> FanotifyMarks::HeldOnMountOf(
    const std::shared_ptr<const OpenDirectory>& directory) {
  std::weak_ptr<const OpenDirectory>& mount = mounts[directory->mountId];
  if (std::shared_ptr<const OpenDirectory> held = mount.lock()) return held;
  mount = directory;
  return directory;
}

void FanotifyMarks::RemoveUnwanted() {
  std::erase_if(marked, [this](const auto& entry) { return entry.second.unwanted && Unmark(entry.second); });
}

bool FanotifyMarks::Unmark(const Watched& directory) const {
  Descriptor found;
  try {
    if (directory.held == nullptr) found = directory.handle.Open(directory.known.mount->descriptor.Get());
  } catch (const NoDescriptors&) {
    return false;
  }
  // A deleted directory has no mark.
  if (directory.held == nullptr && !found.Valid()) return errno == ESTALE;
  const int descriptor = directory.held == nullptr ? found.Get() : directory.held->descriptor.Get();
  return ::fanotify_mark(group, FAN_MARK_REMOVE, mask | FAN_EVENT_ON_CHILD, descriptor, ".") == 0 || errno == ENOENT;
}

bool FanotifyMarks::IsWatched(const FileIdentity& identity) const {
  const auto known = marked.find(identity);
  return known != marked.end() && !known->second.displaced && !known->second.unwanted;
}

bool FanotifyMarks::IsWatched(const std::string& name) const {
  struct stat status {};
  return Inspect(name, status).empty() && IsWatched(IdentityOf(status));
}

void FanotifyMarks::NoteStates(const std::vector<std::string>& refused) {
  for (WatchState& state : states) {
    if (state.watched && !statesOutdated) continue;
    struct stat status {};
    state.reason = Inspect(state.directory, status);
    state.watched = state.reason.empty() && IsWatched(IdentityOf(status));
    if (state.watched || !state.reason.empty()) continue;
    const std::string prefix = state.directory + ": ";
    const auto line = std::ranges::find_if(refused, [&](const auto& text) { return text.starts_with(prefix); });
    state.reason = line == refused.end() ? "is another directory now" : line->substr(prefix.size());
  }
  statesOutdated = false;
}

void FanotifyMarks::RemoveAll(int groupDescriptor) {
  ::fanotify_mark(groupDescriptor, FAN_MARK_FLUSH, 0, AT_FDCWD, nullptr);
}

}  // namespace fenlux::refhost
