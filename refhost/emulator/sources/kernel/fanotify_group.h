// The kernel's side of permission events: reads them and writes the responses, and counts both.
#pragma once

#include <sys/fanotify.h>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/emulator/driver/emulated_driver.h"
#include "refhost/emulator/unjudged.h"

namespace fenlux::refhost {

// Reserves a file descriptor for the event that its thread reads next. If the process has no descriptor left when it
// reads an event, the kernel refuses the event's operation. One thread at a time.
class SpareDescriptor {
 public:
  // `anyDescriptor` is open, borrowed and outlives this. The reserved number is a duplicate of it.
  explicit SpareDescriptor(int anyDescriptor) : source(anyDescriptor) { Take(); }

  // Reserves a number, unless it holds one already or none is left.
  void Take();
  // Releases the number for the next file that the process opens.
  void Give() { number.Reset(); }
  // Closes an event's file and reserves its number.
  void TakeFrom(int event);

 private:
  const int source;
  Descriptor number;
};

enum class ReadResult {
  kEvent,
  kNothing,  // no event is queued
  kFailed,   // one event could not be read, and others are queued: read again
};

// Several threads may use one group. Every event that Read returns needs one response; its descriptor belongs to the
// caller and stays open until the response is written, because the response identifies the event by it.
class FanotifyGroup {
 public:
  // Throws std::runtime_error with the reason if the system has no permission events or the process may not use them.
  // `owner` is borrowed and outlives the group.
  FanotifyGroup(UnjudgedPolicy unjudgedPolicy, EmulatedDriver& owner);

  int Get() const { return group.Get(); }
  // Reads one event without blocking, if there is one. Gives it the caller's spare number: afterwards call TakeFrom
  // with the event's descriptor. Counts the operations that the kernel refused because it could not open their file for
  // the host.
  ReadResult Read(SpareDescriptor& spare, fanotify_event_metadata& event);
  // Allows or refuses the event's operation according to the module's verdict.
  void Respond(int event, bool verdictRefuses) noexcept;
  // Allows or refuses it according to the cause and the setting (see unjudged.h). RespondCounted does not count the
  // cause: the party that took the answer did.
  void RespondUnjudged(int event, UnjudgedCause cause) noexcept;
  void RespondCounted(int event, UnjudgedCause cause) noexcept;

 private:
  void Write(int event, bool refuse) noexcept;
  // Nothing is refused while refusals are not enforced.
  bool Enforced(bool refuse) const { return refuse && driver.RefusalsEnforced(); }
  void CountRefusedByKernel(int error);
  // Whether events are queued.
  bool HasMore() const;

  const UnjudgedPolicy policy;
  const EmulatedDriver& driver;
  TotalsCounter& totals;
  HookCaller& hooks;
  const Descriptor group;
};

}  // namespace fenlux::refhost
