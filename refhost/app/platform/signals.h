// The operating system's signals to a running host, taken on one thread at a time of its choosing.
#pragma once

#include <chrono>
#include <string>

namespace fenlux::refhost {

enum class HostSignal { kNone, kStop, kReload, kSummary };

// Keeps the signals for Wait from now on, on this thread and all that it starts; so it is called before any is started.
void HoldSignals();

// The next signal; none where there was none within `limit`.
HostSignal WaitForSignal(std::chrono::milliseconds limit);

// What an operator can do while the host runs, for the command line's help; ended by a line end.
std::string SignalHelp();

}  // namespace fenlux::refhost
