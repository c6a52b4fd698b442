// The causes why an operation got no verdict from the module, and whether it is then refused.
//
// An operation whose path cannot be established is refused. One whose program cannot be established is refused only if
// a rule's program pattern would decide. Lateness, blocked readers, lack of memory or file descriptors, and a missing
// connection follow the setting `unjudged`, so load causes refusals only if that is "refuse". Each reader keeps a
// descriptor in reserve: when none is left, the kernel cannot pass on an event, and refuses its operation without
// asking the host.
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
  kOwnProcess,          // performed by the host's own process
  kReadersBusy,         // every reader was blocked beyond the deadline
  kNotBuilt,            // no memory for the notification
  kNoDescriptors,       // no file descriptor left for the event; the kernel has refused the operation
  kNotOpened,           // the kernel could not open the file for the host, and has refused the operation
  kPathNotEstablished,  // the path that the rules apply to is not known for certain
  kPathNotLookedUp,     // no file descriptors left to look up its path
  kStopping,            // the host is stopping
  kQueueOverflow,       // the kernel dropped events because its queue was full
};
inline constexpr std::size_t kUnjudgedCauses = 18;

// The causes of delivered events that count as lost.
inline constexpr std::array<UnjudgedCause, 5> kLostCauses{UnjudgedCause::kEmptyReply, UnjudgedCause::kHandlerThrew,
                                                          UnjudgedCause::kMalformedReply,
                                                          UnjudgedCause::kConnectionEnded, UnjudgedCause::kStopped};

// The cause's name in summaries, also as a JSON key: "late", "empty reply" and so on.
std::string_view UnjudgedCauseName(UnjudgedCause cause);
// The cause for messages, as a clause after "because": "the path could not be established".
std::string_view UnjudgedCauseText(UnjudgedCause cause);

// The setting `unjudged`.
enum class UnjudgedPolicy { kAllow, kRefuse };

// "allow" or "refuse", as the configuration writes it.
std::string_view UnjudgedPolicyName(UnjudgedPolicy policy);
// Whether an operation that was not judged for this cause is refused.
bool IsRefusedUnjudged(UnjudgedCause cause, UnjudgedPolicy policy);

}  // namespace fenlux::refhost
