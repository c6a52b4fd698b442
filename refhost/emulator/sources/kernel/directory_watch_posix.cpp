// Marks the selected directories, renews the marks, and logs changes.
#include "refhost/emulator/sources/kernel/directory_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "refhost/emulator/sources/kernel/kernel_event.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kMaxLines = 20;  // of the log, for one change

}  // namespace

DirectoryWatch::DirectoryWatch(int groupDescriptor, const KernelEventSettings& kernelSettings, EventPaths& eventPaths,
                               HookCaller& hookCaller)
    : group(groupDescriptor),
      settings(kernelSettings),
      hooks(hookCaller),
      marks(group, KernelEventMask(settings), settings.recursive, eventPaths) {}

void DirectoryWatch::Set(std::uint64_t newRevision, const std::vector<std::string>& directories) {
  FanotifyMarks::Change change;
  {
    const MutexLock lock(mutex);
    if (stopping || newRevision <= revision) return;
    std::vector<std::string> all = settings.directories;
    if (settings.followPolicy) all.insert(all.end(), directories.begin(), directories.end());
    wanted = std::move(all);
    revision = newRevision;
    marksOutdated = true;
    change = UpdateMarks();
  }
  LogChange(change, EmulatorLogLevel::kDetail, "Watched: ");
}

void DirectoryWatch::Renew() {
  FanotifyMarks::Change change;
  {
    const MutexLock lock(mutex);
    if (stopping) return;
    change = UpdateMarks();
  }
  LogChange(change, EmulatorLogLevel::kEvent, "Watched from now on: ");
}

void DirectoryWatch::Stop() {
  stopping = true;
  FanotifyMarks::RemoveAll(group);
}

FanotifyMarks::Change DirectoryWatch::UpdateMarks() {
  FanotifyMarks::Change change;
  try {
    change = marksOutdated ? marks.Set(wanted) : marks.Renew();
    marksOutdated = false;
    if (*states.Get() != marks.States()) states.Set(marks.States());
  } catch (const std::exception&) {  // no memory: the next call continues
  }
  if (stopping) FanotifyMarks::RemoveAll(group);
  return change;
}

void DirectoryWatch::LogChange(const FanotifyMarks::Change& change, EmulatorLogLevel level, const char* added) {
  LogEach(EmulatorLogLevel::kWarning, "Watch lost: ", change.lost);
  LogEach(EmulatorLogLevel::kWarning, "Not watched: ", change.refused);
  LogEach(EmulatorLogLevel::kDetail, "No longer watched: ", change.removed);
  LogEach(level, added, change.added);
}

// A policy of thousands of directories must not fill the log.
void DirectoryWatch::LogEach(EmulatorLogLevel level, const char* text, const std::vector<std::string>& lines) {
  const std::size_t shown = std::min(lines.size(), kMaxLines);
  try {
    for (std::size_t i = 0; i < shown; ++i) hooks.Log(level, text + lines[i]);
    if (shown < lines.size()) hooks.Log(level, fmt::format("{}{} more", text, lines.size() - shown));
  } catch (const std::bad_alloc&) {  // the lines are lost
  }
}

}  // namespace fenlux::refhost
