// Kernel permission events. An operation stands still in the kernel from the moment its event is read until a response
// is written; the duty to write it is never without an owner:
//   - the reader that read the event, until it hands the notification to the module;
//   - then whoever takes the answer's slot: the reader itself when the reply has come, or the watchdog at the deadline,
//     or the end of the connection, or Stop, each of which then writes "allow" under the slot's lock.
// A reader that finds its answer taken writes nothing. Responses name the event by its descriptor's number, so a reader
// closes the descriptor only after it holds the slot again: no number is reused while a response can still be written.
// Marks removed and the group closed, the kernel itself allows whatever nobody has answered.
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/emulator/sources/fanotify_marks.h"
#include "refhost/emulator/sources/fanotify_source.h"
#include "refhost/emulator/sources/notification_builder.h"
#include "refhost/emulator/thread_crew.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kMostLines = 20;  // of the log, for one change of the watched directories

struct EventKind {
  std::uint64_t mask;
  std::uint32_t code;
  std::uint8_t conditionA;
};
constexpr EventKind kEventKinds[] = {
    {FAN_OPEN_EXEC_PERM, 4097, 1},
    {FAN_OPEN_PERM, 4097, 0},
    {FAN_ACCESS_PERM, 4098, 0},
};

const EventKind& KindOf(std::uint64_t mask) {
  const auto* kind = std::find_if(std::begin(kEventKinds), std::end(kEventKinds),
                                  [mask](const EventKind& candidate) { return (candidate.mask & mask) != 0; });
  return kind == std::end(kEventKinds) ? kEventKinds[1] : *kind;
}

std::uint64_t MaskOf(const KernelEventSettings& settings) {
  return (settings.onOpen ? std::uint64_t{FAN_OPEN_PERM} : 0) |
         (settings.onAccess ? std::uint64_t{FAN_ACCESS_PERM} : 0) |
         (settings.onExec ? std::uint64_t{FAN_OPEN_EXEC_PERM} : 0);
}

int OpenGroup() {
  // The kernel opens every event's file for the reader. Without O_NONBLOCK that would wait for the other end of a named
  // pipe, with nobody left to answer.
  const int group =
      ::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK | FAN_UNLIMITED_QUEUE | FAN_UNLIMITED_MARKS,
                      O_RDONLY | O_CLOEXEC | O_LARGEFILE | O_NONBLOCK);
  if (group >= 0) return group;
  const int error = errno;
  throw std::runtime_error("kernel events cannot be opened: " + SystemErrorText(error) +
                           (error == EPERM ? "; they need root (CAP_SYS_ADMIN)" : ""));
}

// An event whose file cannot be opened for the reader is refused by the kernel: spare as many descriptors as allowed.
void RaiseDescriptorLimit() {
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

class FanotifySource final : public EventSource, public std::enable_shared_from_this<FanotifySource> {
 public:
  FanotifySource(std::shared_ptr<DriverCore> driverCore, const KernelEventSettings& kernelSettings);

  void Start() override;
  void Watch(std::uint64_t revision, const std::vector<std::string>& directories) override;
  void OnWatchdog() override;
  void Stop(std::chrono::milliseconds grace) override;

 private:
  class Reader;

  bool Refuses(std::uint32_t verdict) const {
    return std::find(settings.refusingVerdicts.begin(), settings.refusingVerdicts.end(), verdict) !=
           settings.refusingVerdicts.end();
  }
  // Reads one event; false where there is none at the moment.
  bool ReadEvent(fanotify_event_metadata& event);
  void Respond(int event, bool refuse) noexcept;
  // Lets an event through without asking the module.
  void LetThrough(int event, UnjudgedCause cause) noexcept;
  // Empties the kernel's queue, letting everything through.
  void Drain();
  void LogEach(EmulatorLogLevel level, const std::string& text, const std::vector<std::string>& lines);

  const std::shared_ptr<DriverCore> core;
  const KernelEventSettings settings;
  const std::uint64_t ownProcess = OwnProcessId();
  const Descriptor group;
  const Descriptor wake;
  std::atomic<bool> stopping{false};
  std::atomic<std::uint32_t> heldUp{0};  // readers inside the module whose answer was taken from them
  ThreadCrew crew;

  std::mutex watchMutex;
  FanotifyMarks marks;
  std::uint64_t watchRevision = 0;
};

// One thread that reads events and answers them, and what it keeps from one to the next.
class FanotifySource::Reader final : public AnswerRelease {
 public:
  explicit Reader(FanotifySource& owner) : source(owner), slot(owner.core->MakeSlot()) {}

  void Run() {
    pollfd polled[] = {{source.group.Get(), POLLIN, 0}, {source.wake.Get(), POLLIN, 0}};
    while (!source.stopping) {
      // Without memory for waiting, it looks again in a moment: whoever stands still in the kernel needs its reader.
      if (::poll(polled, std::size(polled), -1) < 0 && errno != EINTR) source.core->Sleep(std::chrono::milliseconds(1));
      fanotify_event_metadata read{};
      if (!source.stopping && source.ReadEvent(read)) Handle(read);
    }
  }

  void Release(UnjudgedCause) noexcept override {
    ++source.heldUp;
    source.Respond(event, false);
  }

 private:
  void Handle(const fanotify_event_metadata& read) {
    const Descriptor descriptor(read.fd);
    event = read.fd;
    if (static_cast<std::uint64_t>(read.pid) == source.ownProcess) {
      return source.LetThrough(read.fd, UnjudgedCause::kOwnProcess);
    }
    try {
      Build(read);
    } catch (const std::exception&) {  // no memory
      return source.LetThrough(read.fd, UnjudgedCause::kNotBuilt);
    }
    DeliveryOptions options;
    options.release = this;
    const Delivery delivery =
        source.core->Deliver(*slot, message.data(), static_cast<std::uint32_t>(message.size()), options);
    switch (delivery.outcome) {
      case Delivery::Outcome::kNotConnected:
        return source.LetThrough(read.fd, UnjudgedCause::kNoConnection);
      case Delivery::Outcome::kAnswered:
        return source.Respond(read.fd, source.Refuses(delivery.verdict));
      case Delivery::Outcome::kUnansweredByDesign:
      case Delivery::Outcome::kLost:
        return source.Respond(read.fd, false);
      case Delivery::Outcome::kTaken:
        --source.heldUp;
        return;
    }
  }

  void Build(const fanotify_event_metadata& read) {
    const EventKind& kind = KindOf(read.mask);
    NotificationFields fields;
    fields.code = kind.code;
    fields.conditionA = kind.conditionA;
    fields.processId = static_cast<std::uint64_t>(read.pid);
    fields.accessValueA = static_cast<std::uint32_t>(read.mask);
    char link[32];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", read.fd);
    char path[PATH_MAX];
    const ssize_t length = ::readlink(link, path, sizeof(path));
    if (length > 0) fields.path = Utf16FromNarrow({path, static_cast<std::size_t>(length)});
    message.resize(NotificationSize(fields));
    WriteNotification(fields, message.data());
  }

  FanotifySource& source;
  const std::shared_ptr<AnswerSlot> slot;
  std::vector<std::uint8_t> message;
  int event = -1;
};

FanotifySource::FanotifySource(std::shared_ptr<DriverCore> driverCore, const KernelEventSettings& kernelSettings)
    : core(std::move(driverCore)),
      settings(kernelSettings),
      group(OpenGroup()),
      wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      marks(group.Get(), MaskOf(settings), settings.recursive) {
  if (wake.Get() < 0) throw std::runtime_error("kernel events cannot be opened: " + LastErrorText());
  if (MaskOf(settings) == 0) throw std::runtime_error("no kind of kernel event is asked for");
  for (const std::string& directory : settings.directories) {
    const std::string reason = FanotifyMarks::Refusal(directory);
    if (!reason.empty()) throw std::runtime_error("directory " + directory + " " + reason);
  }
  RaiseDescriptorLimit();
}

void FanotifySource::Start() {
  // The threads own the source: one that is left behind inside a handler still finds it when the call returns.
  const auto self = shared_from_this();
  for (std::uint32_t i = 0; i < settings.threads; ++i) crew.Add([self] { Reader(*self).Run(); });
}

void FanotifySource::Watch(std::uint64_t revision, const std::vector<std::string>& directories) {
  FanotifyMarks::Change change;
  {
    const std::lock_guard lock(watchMutex);
    if (stopping || revision <= watchRevision) return;
    watchRevision = revision;
    std::vector<std::string> wanted = settings.directories;
    if (settings.followPolicy) wanted.insert(wanted.end(), directories.begin(), directories.end());
    change = marks.Set(wanted);
  }
  LogEach(EmulatorLogLevel::kWarning, "Not watched: ", change.refused);
  LogEach(EmulatorLogLevel::kDetail, "Watched no longer: ", change.removed);
  LogEach(EmulatorLogLevel::kDetail, "Watched: ", change.added);
}

// A policy of thousands of directories must not fill the log.
void FanotifySource::LogEach(EmulatorLogLevel level, const std::string& text, const std::vector<std::string>& lines) {
  const std::size_t shown = std::min(lines.size(), kMostLines);
  for (std::size_t i = 0; i < shown; ++i) core->Log(level, text + lines[i]);
  if (shown < lines.size()) core->Log(level, text + std::to_string(lines.size() - shown) + " more");
}

void FanotifySource::OnWatchdog() {
  // With every reader held up nobody reads the queue, and a handler that itself waits for a watched file would wait for
  // ever: then the watchdog lets the queue through.
  if (heldUp >= settings.threads) Drain();
}

void FanotifySource::Stop(std::chrono::milliseconds grace) {
  {
    const std::lock_guard lock(watchMutex);
    stopping = true;
    marks.Clear();
  }
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(wake.Get(), &one, sizeof(one));
  Drain();
  crew.Join(grace);
  Drain();
}

bool FanotifySource::ReadEvent(fanotify_event_metadata& event) {
  // One event at a time, and no more than one open file per reader: the buffer holds a single event.
  const ssize_t length = ::read(group.Get(), &event, sizeof(event));
  if (length < 0) {
    if (errno != EAGAIN && errno != EINTR) {
      core->Log(EmulatorLogLevel::kProblem, "A kernel event could not be read: " + LastErrorText() + ".");
    }
    return false;
  }
  if (length != static_cast<ssize_t>(sizeof(event)) || event.vers != FANOTIFY_METADATA_VERSION) return false;
  if ((event.mask & FAN_Q_OVERFLOW) != 0) {
    core->Totals().NotDelivered(UnjudgedCause::kQueueOverflow);
    return false;
  }
  if (event.fd < 0) return false;
  core->Totals().KernelRead();
  return true;
}

void FanotifySource::Respond(int event, bool refuse) noexcept {
  // Counted first: whoever saw the operation go on finds it in the totals.
  core->Totals().KernelAnswered(refuse);
  const fanotify_response response{event, refuse ? std::uint32_t{FAN_DENY} : std::uint32_t{FAN_ALLOW}};
  ssize_t written = 0;
  do {
    written = ::write(group.Get(), &response, sizeof(response));
  } while (written < 0 && errno == EINTR);
}

void FanotifySource::LetThrough(int event, UnjudgedCause cause) noexcept {
  core->Totals().NotDelivered(cause);
  Respond(event, false);
}

void FanotifySource::Drain() {
  fanotify_event_metadata event{};
  while (ReadEvent(event)) {
    const Descriptor descriptor(event.fd);
    const bool own = static_cast<std::uint64_t>(event.pid) == ownProcess;
    LetThrough(event.fd, own ? UnjudgedCause::kOwnProcess
                             : (stopping ? UnjudgedCause::kNoConnection : UnjudgedCause::kReadersBusy));
  }
}

}  // namespace

std::shared_ptr<EventSource> MakeFanotifySource(std::shared_ptr<DriverCore> core, const KernelEventSettings& settings) {
  return std::make_shared<FanotifySource>(std::move(core), settings);
}

}  // namespace fenlux::refhost
