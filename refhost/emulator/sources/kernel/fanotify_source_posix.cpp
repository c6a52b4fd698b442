// Kernel permission events. An operation is blocked in the kernel from the moment its event is read until a response is
// written. At every moment exactly one party is responsible for writing it:
//   - the reader that read the event, until it hands the notification to the module;
//   - then the party that takes the answer's slot: the reader itself when the reply has arrived, or the watchdog at the
//     deadline, the end of the connection, or Stop, each of which writes the response under the slot's lock.
// A reader whose answer was taken writes nothing. Responses identify the event by its descriptor's number, so a
// reader closes the descriptor only after it holds the slot again: no number is reused while one can still be written.
// Once the marks are removed and the group is closed, the kernel itself allows operations without a response.
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <iterator>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/own_process.h"
#include "refhost/emulator/sources/kernel/directory_watch.h"
#include "refhost/emulator/sources/kernel/drain_round.h"
#include "refhost/emulator/sources/kernel/event_paths.h"
#include "refhost/emulator/sources/kernel/fanotify_group.h"
#include "refhost/emulator/sources/kernel/fanotify_marks.h"
#include "refhost/emulator/sources/kernel/fanotify_source.h"
#include "refhost/emulator/sources/kernel/kernel_event.h"
#include "refhost/emulator/sources/thread_crew.h"

namespace fenlux::refhost {
namespace {

constexpr auto kUnjudgedVerdict = static_cast<std::uint32_t>(records::Verdict::kUnjudged);
constexpr std::chrono::milliseconds kRenewInterval{400};

class FanotifySource final : public EventSource, public std::enable_shared_from_this<FanotifySource> {
 public:
  FanotifySource(std::shared_ptr<EmulatedDriver> emulatedDriver, const KernelEventSettings& kernelSettings,
                 UnjudgedPolicy unjudged);

  void Start() override;
  void Watch(std::uint64_t revision, const std::vector<std::string>& directories) override {
    watch.Set(revision, directories);
  }
  std::vector<WatchState> Watches() const override { return watch.States(); }
  bool OnWatchdog() override;
  void Stop(std::chrono::milliseconds grace) override;

 private:
  class Reader;

  bool IsOwn(const fanotify_event_metadata& event) const { return static_cast<std::uint64_t>(event.pid) == ownProcess; }
  // Whether no reader can read events: each is inside the module, and its answer was taken.
  bool ReadersBusy() const { return blockedReaders >= settings.threads; }
  // Responds to an event that was not delivered, and reports it if it is refused.
  void RespondUnjudged(const fanotify_event_metadata& event, UnjudgedCause cause);
  // Reads one event and responds without asking the module; false if none is queued.
  bool RespondToOne();
  // Does so until the kernel's queue is empty.
  void Drain() {
    while (RespondToOne()) {
    }
  }

  const std::shared_ptr<EmulatedDriver> driver;
  const KernelEventSettings settings;
  const UnjudgedPolicy unjudgedPolicy;
  const std::uint64_t ownProcess = OwnProcessId();
  FanotifyGroup group;
  const Descriptor wake;
  std::atomic<bool> stopping{false};
  std::atomic<std::uint32_t> blockedReaders{0};  // inside the module, after their answer was taken
  ThreadCrew crew;
  EventPaths paths;
  DirectoryWatch watch;

  Mutex drainMutex;  // for the watchdog's thread and the thread that calls Stop
  SpareDescriptor drainSpare FENLUX_GUARDED_BY(drainMutex){wake.Get()};
};

// One thread that reads events and responds to them, with the state it keeps between events.
class FanotifySource::Reader final : public AnswerRelease {
 public:
  explicit Reader(FanotifySource& owner)
      : source(owner), slot(owner.driver->Deliveries().MakeSlot()), spare(owner.wake.Get()) {}

  void Run() {
    pollfd polled[] = {{source.group.Get(), POLLIN, 0}, {source.wake.Get(), POLLIN, 0}};
    while (!source.stopping) {
      // Do not block in the read to save this call: the watchdog reads from the same group. A reader that is free again
      // may take the last event between the watchdog's check and its read. The watchdog would then block, and enforce
      // no deadline.
      //
      // If the kernel has no memory for polling, try again later: blocked operations need their reader.
      if (::poll(polled, std::size(polled), -1) < 0 && errno != EINTR) {
        source.driver->Wake().Sleep(std::chrono::milliseconds(1));
      }
      if (source.stopping) return;
      fanotify_event_metadata event{};
      if (source.group.Read(spare, event) != ReadResult::kEvent) continue;
      Handle(event);
      spare.TakeFrom(event.fd);
    }
  }

  void Release(UnjudgedCause cause) noexcept override {
    ++source.blockedReaders;
    source.group.RespondCounted(eventFile, cause);
  }

 private:
  void Handle(const fanotify_event_metadata& event) {
    eventFile = event.fd;
    if (source.IsOwn(event)) return source.RespondUnjudged(event, UnjudgedCause::kOwnProcess);
    try {
      const std::optional<std::string> path = source.paths.PathOf(event.fd);
      // Without a path, no rule can be applied.
      if (!path) return source.RespondUnjudged(event, UnjudgedCause::kPathNotEstablished);
      BuildKernelNotification(event, *path, message);
    } catch (const NoDescriptors&) {
      return source.RespondUnjudged(event, UnjudgedCause::kPathNotLookedUp);
    } catch (const std::exception&) {  // no memory
      return source.RespondUnjudged(event, UnjudgedCause::kNotBuilt);
    }
    DeliveryOptions options;
    options.release = this;
    options.operation = KernelOperation(event);
    const Delivery delivery = source.driver->Deliveries().Deliver(*slot, NotificationView(message), options);
    switch (delivery.outcome) {
      case Delivery::Outcome::kNotConnected:
        return source.RespondUnjudged(
            event, source.driver->Wake().Stopping() ? UnjudgedCause::kStopping : UnjudgedCause::kNoConnection);
      case Delivery::Outcome::kAnswered:
        return Answer(event.fd, delivery.verdict);
      case Delivery::Outcome::kUnansweredByDesign:
        return source.group.Respond(event.fd, false);
      case Delivery::Outcome::kLost:
        return source.group.RespondCounted(event.fd, delivery.cause);
      case Delivery::Outcome::kTaken:
        --source.blockedReaders;
        return;
    }
  }

  void Answer(int event, std::uint32_t verdict) {
    const bool refuse = source.settings.Refuses(verdict);
    if (!refuse && verdict == kUnjudgedVerdict) return source.group.RespondUnjudged(event, UnjudgedCause::kNotJudged);
    source.group.Respond(event, refuse);
  }

  FanotifySource& source;
  const std::shared_ptr<AnswerSlot> slot;
  SpareDescriptor spare;
  std::vector<std::uint8_t> message;
  int eventFile = -1;
};

FanotifySource::FanotifySource(std::shared_ptr<EmulatedDriver> emulatedDriver,
                               const KernelEventSettings& kernelSettings, UnjudgedPolicy unjudged)
    : driver(std::move(emulatedDriver)),
      settings(kernelSettings),
      unjudgedPolicy(unjudged),
      group(unjudged, *driver),
      wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      watch(group.Get(), settings, paths, driver->Hooks()) {
  if (!wake.Valid()) throw std::runtime_error("kernel events cannot be opened: " + LastErrorText());
  if (KernelEventMask(settings) == 0) throw std::runtime_error("no kind of kernel event is selected");
  for (const std::string& directory : settings.directories) {
    const std::string reason = FanotifyMarks::Refusal(directory);
    if (!reason.empty()) throw std::runtime_error(fmt::format("directory {}: {}", directory, reason));
  }
}

void FanotifySource::Start() {
  // The threads share ownership of the source: one left behind inside a handler still uses it when the call returns.
  const auto self = shared_from_this();
  for (std::uint32_t i = 0; i < settings.threads; ++i) {
    // Created here, so that each reader has its spare descriptor when this returns.
    crew.Add("a reader of kernel events", [self, reader = std::make_shared<Reader>(*self)] { reader->Run(); });
  }
  crew.Add("the watch of directories", [self] {
    while (self->driver->Wake().Sleep(kRenewInterval)) self->watch.Renew();
  });
}

bool FanotifySource::OnWatchdog() {
  try {
    paths.Forget(std::chrono::steady_clock::now());
  } catch (const std::bad_alloc&) {  // in the next round
  }
  // While every reader is blocked, none reads the queue, and a handler that itself waits for a watched file would
  // never return. The watchdog then responds to the queued events.
  return RunDrainRound([this] { return ReadersBusy(); }, [this] { return RespondToOne(); });
}

void FanotifySource::Stop(std::chrono::milliseconds grace) {
  stopping = true;
  watch.Stop();
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(wake.Get(), &one, sizeof(one));
  Drain();
  crew.Join(grace);
  Drain();
}

void FanotifySource::RespondUnjudged(const fanotify_event_metadata& event, UnjudgedCause cause) {
  const bool enforced = driver->RefusalsEnforced();
  group.RespondUnjudged(event.fd, cause);
  if (driver->Decisions() == nullptr || !IsRefusedUnjudged(cause, unjudgedPolicy)) return;
  DecisionRecord record;
  record.code = KernelEventCode(event);
  record.processId = static_cast<std::uint64_t>(event.pid);
  record.operation = KernelOperation(event);
  record.end.refused = enforced;
  record.end.wouldRefuse = !enforced;
  record.end.cause = UnjudgedCauseName(cause);
  driver->Decisions()->Report(std::move(record));
}

bool FanotifySource::RespondToOne() {
  const MutexLock lock(drainMutex);
  fanotify_event_metadata event{};
  const ReadResult result = group.Read(drainSpare, event);
  if (result != ReadResult::kEvent) return result == ReadResult::kFailed;
  UnjudgedCause cause = stopping ? UnjudgedCause::kStopping : UnjudgedCause::kReadersBusy;
  if (IsOwn(event)) cause = UnjudgedCause::kOwnProcess;
  RespondUnjudged(event, cause);
  drainSpare.TakeFrom(event.fd);
  return true;
}

}  // namespace

std::shared_ptr<EventSource> MakeFanotifySource(std::shared_ptr<EmulatedDriver> driver,
                                                const KernelEventSettings& settings, UnjudgedPolicy unjudged) {
  try {
    return std::make_shared<FanotifySource>(std::move(driver), settings, unjudged);
  } catch (const NoDescriptors& error) {
    throw std::runtime_error(std::string("kernel events cannot be opened: ") + error.what());
  }
}

}  // namespace fenlux::refhost
