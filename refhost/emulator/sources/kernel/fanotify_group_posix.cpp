// The system calls behind a group of permission events.
#include "refhost/emulator/sources/kernel/fanotify_group.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>

#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

// Since Linux 6.13, an event whose file the kernel cannot open has the error in place of the descriptor. Before that,
// reading it fails with the error, and EAGAIN cannot be distinguished from "no event".
constexpr unsigned kReportDescriptorError = 0x2000;

int OpenGroup(unsigned flags) {
  // The kernel opens every event's file for the reader. Without O_NONBLOCK, that could wait for the other end of a
  // named pipe or for a lease on the file, and the reader could not respond.
  return ::fanotify_init(
      FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK | FAN_UNLIMITED_QUEUE | FAN_UNLIMITED_MARKS | flags,
      // O_LARGEFILE is 0 on 64-bit systems, as is O_RDONLY.
      O_RDONLY | O_CLOEXEC | O_LARGEFILE | O_NONBLOCK);  // NOLINT(misc-redundant-expression)
}

int OpenGroup() {
  int group = OpenGroup(kReportDescriptorError);
  if (group < 0 && errno == EINVAL) group = OpenGroup(0);
  if (group >= 0) return group;
  const int error = errno;
  throw std::runtime_error("kernel events cannot be opened: " + SystemErrorText(error) +
                           (error == EPERM ? "; they need root (CAP_SYS_ADMIN)" : ""));
}

// The kernel refuses an event whose file it cannot open for the reader: allow as many descriptors as possible.
void RaiseDescriptorLimit() {
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void SpareDescriptor::Take() {
  if (!number.Valid()) number = Descriptor(::fcntl(source, F_DUPFD_CLOEXEC, 0));
}

void SpareDescriptor::TakeFrom(int event) {
  // Atomic, so that no other thread gets the number.
  if (number.Valid() || ::dup3(source, event, O_CLOEXEC) < 0) {
    ::close(event);
  } else {
    number = Descriptor(event);
  }
}

FanotifyGroup::FanotifyGroup(UnjudgedPolicy unjudgedPolicy, EmulatedDriver& owner)
    : policy(unjudgedPolicy), driver(owner), totals(owner.Totals()), hooks(owner.Hooks()), group(OpenGroup()) {
  RaiseDescriptorLimit();
}

ReadResult FanotifyGroup::Read(SpareDescriptor& spare, fanotify_event_metadata& event) {
  // The buffer holds a single event, so that a reader has at most one open file at a time.
  event = {};
  spare.Give();
  const ssize_t length = ::read(group.Get(), &event, sizeof(event));
  const int error = length < 0 ? errno : 0;
  if (length == static_cast<ssize_t>(sizeof(event)) && event.vers == FANOTIFY_METADATA_VERSION && event.fd >= 0) {
    totals.KernelRead();
    return ReadResult::kEvent;
  }
  spare.Take();
  if (error != 0) {
    if (error != EAGAIN && error != EINTR) CountRefusedByKernel(error);
  } else if ((event.mask & FAN_Q_OVERFLOW) != 0) {
    totals.Unjudged(UnjudgedCause::kQueueOverflow);
  } else if (event.fd < 0) {
    CountRefusedByKernel(-event.fd);
  }
  return HasMore() ? ReadResult::kFailed : ReadResult::kNothing;
}

// The error alone is ambiguous: before Linux 6.13, EAGAIN may also mean a file with a write lease.
bool FanotifyGroup::HasMore() const {
  int bytes = 0;
  return ::ioctl(group.Get(), FIONREAD, &bytes) == 0 && bytes > 0;
}

void FanotifyGroup::CountRefusedByKernel(int error) {
  UnjudgedCause cause = UnjudgedCause::kNotOpened;
  if (error == EMFILE || error == ENFILE) cause = UnjudgedCause::kNoDescriptors;
  if (error == ENOMEM) cause = UnjudgedCause::kNotBuilt;
  totals.KernelRead();
  totals.Unjudged(cause);
  totals.KernelRefusedUnjudged();
  try {
    hooks.Log(EmulatorLogLevel::kDetail, "The kernel refused an operation: it could not open the file for the host: " +
                                             SystemErrorText(error) + ".");
  } catch (const std::bad_alloc&) {  // counted, without its line
  }
}

// Counts before responding, so that a program whose operation continues already finds it in the totals.
void FanotifyGroup::Respond(int event, bool verdictRefuses) noexcept {
  const bool refuse = Enforced(verdictRefuses);
  totals.KernelAnswered(refuse);
  Write(event, refuse);
}

void FanotifyGroup::RespondUnjudged(int event, UnjudgedCause cause) noexcept {
  totals.Unjudged(cause);
  RespondCounted(event, cause);
}

void FanotifyGroup::RespondCounted(int event, UnjudgedCause cause) noexcept {
  const bool refuse = Enforced(IsRefusedUnjudged(cause, policy));
  if (refuse) {
    totals.KernelRefusedUnjudged();
  } else {
    totals.KernelAnswered(false);
  }
  Write(event, refuse);
}

void FanotifyGroup::Write(int event, bool refuse) noexcept {
  const fanotify_response response{event, refuse ? std::uint32_t{FAN_DENY} : std::uint32_t{FAN_ALLOW}};
  ssize_t written = 0;
  do {
    written = ::write(group.Get(), &response, sizeof(response));
  } while (written < 0 && errno == EINTR);
}

}  // namespace fenlux::refhost
