// Signals to a running host, received by waiting for them.
#pragma once

#include <chrono>
#include <string>

namespace fenlux::refhost {

enum class HostSignal { kNone, kStop, kReload, kSummary };

// Blocks the signals on this thread and on all threads it starts later, so that WaitForSignal receives them. Call it
// before starting any thread.
void BlockSignals();

// Returns the next signal, or kNone if none arrives in time. One thread at a time.
HostSignal WaitForSignal(std::chrono::milliseconds timeout);

// What the signals do, for the command line's help. Ends with a line feed.
std::string SignalHelp();

}  // namespace fenlux::refhost
