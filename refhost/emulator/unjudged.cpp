// The table of causes: each one's name, and what decides whether its operations are refused.
#include "refhost/emulator/unjudged.h"

namespace fenlux::refhost {
namespace {

enum class Outcome {
  kSetting,  // the setting `unjudged` decides
  kRefused,  // whatever the setting says
  kAllowed,  // whatever the setting says
};

struct CauseRow {
  UnjudgedCause cause;
  std::string_view name;
  std::string_view text;
  Outcome outcome;
};

// clang-format off
constexpr CauseRow kCauses[] = {
    {UnjudgedCause::kLate, "late", "the module did not answer by the deadline", Outcome::kSetting},
    {UnjudgedCause::kEmptyReply, "empty reply", "the module gave no reply", Outcome::kSetting},
    {UnjudgedCause::kHandlerThrew, "handler threw", "the module failed", Outcome::kSetting},
    {UnjudgedCause::kMalformedReply, "malformed reply", "the module's reply breaks the protocol", Outcome::kSetting},
    {UnjudgedCause::kConnectionEnded, "connection ended", "the connection ended before the reply", Outcome::kSetting},
    // Nothing is guarded once the host has stopped, so stopping refuses nothing either.
    {UnjudgedCause::kStopped, "stopped", "the host stopped before the reply", Outcome::kAllowed},
    {UnjudgedCause::kNotJudged, "not judged", "the module could not judge it", Outcome::kSetting},
    {UnjudgedCause::kProgramNotEstablished, "program not established", "the program could not be established", Outcome::kRefused},
    {UnjudgedCause::kNoConnection, "no connection", "the module was not connected", Outcome::kSetting},
    // Judging it would make the host wait for itself.
    {UnjudgedCause::kOwnProcess, "own process", "the host itself performed it", Outcome::kAllowed},
    {UnjudgedCause::kReadersBusy, "readers busy", "all readers were blocked", Outcome::kSetting},
    {UnjudgedCause::kNotBuilt, "not built", "there was no memory for it", Outcome::kSetting},
    // The kernel has already refused these two.
    {UnjudgedCause::kNoDescriptors, "no descriptors", "there were no file descriptors left", Outcome::kRefused},
    {UnjudgedCause::kNotOpened, "not opened", "the kernel could not open its file for the host", Outcome::kRefused},
    {UnjudgedCause::kPathNotEstablished, "path not established", "the path could not be established", Outcome::kRefused},
    {UnjudgedCause::kPathNotLookedUp, "path not looked up", "there were no file descriptors left to look up its path", Outcome::kSetting},
    {UnjudgedCause::kStopping, "stopping", "the host was stopping", Outcome::kAllowed},
    // The kernel has already allowed it.
    {UnjudgedCause::kQueueOverflow, "queue overflow", "the kernel's queue was full", Outcome::kAllowed},
};
// clang-format on

constexpr bool IsInOrder() {
  if (std::size(kCauses) != kUnjudgedCauses) return false;
  for (std::size_t index = 0; index < kUnjudgedCauses; ++index) {
    if (kCauses[index].cause != static_cast<UnjudgedCause>(index)) return false;
  }
  return true;
}
static_assert(IsInOrder());

const CauseRow& RowOf(UnjudgedCause cause) { return kCauses[static_cast<std::size_t>(cause)]; }

}  // namespace

std::string_view UnjudgedCauseName(UnjudgedCause cause) { return RowOf(cause).name; }

std::string_view UnjudgedCauseText(UnjudgedCause cause) { return RowOf(cause).text; }

std::string_view UnjudgedPolicyName(UnjudgedPolicy policy) {
  return policy == UnjudgedPolicy::kRefuse ? "refuse" : "allow";
}

bool IsRefusedUnjudged(UnjudgedCause cause, UnjudgedPolicy policy) {
  const Outcome outcome = RowOf(cause).outcome;
  return outcome == Outcome::kRefused || (outcome == Outcome::kSetting && policy == UnjudgedPolicy::kRefuse);
}

}  // namespace fenlux::refhost
