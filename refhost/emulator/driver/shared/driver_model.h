// The driver's state: everything the module sent over the current connection, and the protocol violations. Each
// operation holds the lock and does nothing that blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/driver/shared/driver_commands.h"
#include "refhost/emulator/driver/shared/hook_caller.h"
#include "refhost/emulator/emulator_state.h"

namespace fenlux::refhost {

// The directories that the module wants watched. The highest revision is the current one.
struct WatchSet {
  std::uint64_t revision = 0;
  std::vector<std::string> directories;
};

// The effect of a request.
struct RequestEffect {
  std::string violation;         // empty if the request follows the protocol; otherwise the request changed nothing
  std::uint32_t command = 0;     // 0 if the request has no known command
  bool watchSetChanged = false;  // objects of type 1 or 2 were committed
};

// Any thread.
class DriverModel {
 public:
  explicit DriverModel(HookCaller& hookCaller) : hooks(hookCaller) {}

  // Begins a connection and returns its number. Discards the state of the previous one.
  std::uint64_t Open(std::uint32_t clientType, std::uint32_t portValue);
  // Marks the connection as ended, with the reason. If memory runs out, the reason is missing.
  void Close(std::string_view reason) noexcept;

  // Checks a request and carries it out. Returns nullopt if that connection has ended.
  std::optional<RequestEffect> CarryOut(std::uint64_t connection, const std::uint8_t* request, std::size_t size);
  // Whether the current connection has received the command this many times.
  bool Received(std::uint32_t command, std::uint64_t times) const;

  // Counts a violation of the protocol and keeps its text, unless that is empty; ReportViolation also logs it. If
  // memory runs out, they only count.
  void CountViolation(const std::string& text) noexcept;
  void ReportViolation(const std::string& text) noexcept;
  // If memory runs out, the reason is missing.
  void CountRefusedConnect(std::string_view reason) noexcept;

  EmulatorState State() const;
  // The committed paths of types 1 and 2, with a new revision. While no connection is open, and until a new one commits
  // paths, returns those of the last connection that did.
  WatchSet TakeWatchSet();

 private:
  void AddViolation(const std::string& text) noexcept FENLUX_REQUIRES(mutex);
  void KeepWatchedDirectories() FENLUX_REQUIRES(mutex);

  HookCaller& hooks;
  mutable Mutex mutex;
  DriverData data FENLUX_GUARDED_BY(mutex);
  std::uint64_t watchRevision FENLUX_GUARDED_BY(mutex) = 0;
  // Outlives the connection: a module that lost it still wants these directories watched.
  std::vector<std::string> watchedDirectories FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
