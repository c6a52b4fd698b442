// Why an operation got no verdict of the module, and whether it is refused then.
//
// One rule for all of them: an operation whose path cannot be established is refused; one whose program cannot be
// established is refused only where a rule's program pattern would decide; lateness, full queues, lack of memory or
// file descriptors, and a connection that is down follow the setting `unjudged`. Only an explicit "refuse" lets load
// change a verdict. Each reader keeps a descriptor in reserve, so that the kernel itself does not refuse what it cannot
// hand over.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace fenlux::refhost {

enum class UnjudgedCause : std::size_t {
  // Delivered to the module and not answered in time.
  kLate,  // the deadline passed while the module was still working on it
  // Delivered to the module and lost.
  kEmptyReply,       // the handler returned no reply although one is due
  kHandlerThrew,     // the handler threw an exception
  kMalformedReply,   // the reply breaks the protocol
  kConnectionEnded,  // the connection ended before the reply was taken
  kStopped,          // the emulator stopped before the reply was taken
  // Delivered to the module and answered without a judgement.
  kNotJudged,              // kernel event with verdict 8: something failed inside the module or the host
  kProgramNotEstablished,  // a rule's program pattern would decide, and the program is not known for certain
  // Never delivered. Kernel events only.
  kNoConnection,        // no module was connected
  kOwnProcess,          // of the host's own process
  kReadersBusy,         // every reader was blocked beyond the deadline
  kNotBuilt,            // no memory for the notification
  kNoDescriptors,       // no file descriptor left for the event; the kernel has refused the operation
  kNotOpened,           // the kernel could not open the file for the host, and has refused the operation
  kPathNotEstablished,  // no path that the rules can be applied to is known for certain
  kPathNotLookedUp,     // no file descriptors to look its path up
  kStopping,            // the host is about to end
  kQueueOverflow,       // the kernel dropped events because its queue was full
};
inline constexpr std::size_t kUnjudgedCauses = 18;

// The causes of delivered events that count as lost.
inline constexpr std::array<UnjudgedCause, 5> kLostCauses{UnjudgedCause::kEmptyReply, UnjudgedCause::kHandlerThrew,
                                                          UnjudgedCause::kMalformedReply,
                                                          UnjudgedCause::kConnectionEnded, UnjudgedCause::kStopped};

// The cause's name in summaries, also as a JSON key: "late", "empty reply" and so on.
std::string_view UnjudgedCauseName(UnjudgedCause cause);
// The same for messages, to follow the word "because": "the path could not be established".
std::string_view UnjudgedCauseText(UnjudgedCause cause);

// The setting `unjudged`.
enum class UnjudgedPolicy { kAllow, kRefuse };

// "allow" or "refuse", as the configuration writes it.
std::string_view UnjudgedPolicyName(UnjudgedPolicy policy);
// Whether an operation is refused that was not judged for this cause.
bool IsRefusedUnjudged(UnjudgedCause cause, UnjudgedPolicy policy);

}  // namespace fenlux::refhost
