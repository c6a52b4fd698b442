// The reference host's own services, except those whose answers come from the capture.
#include "refhost/app/replay/replay_services.h"

#include <utility>

#include "kdi/driver_records.h"
#include "refhost/app/replay/delivery_crew.h"
#include "refhost/base/live_value.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/configuration.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/heap_buffer.h"
#include "refhost/services/locale_service.h"
#include "refhost/services/log/log_service.h"
#include "refhost/services/record_register.h"
#include "refhost/services/utility_service.h"

namespace fenlux::refhost {
namespace {

LogSettings NoLog() {
  LogSettings settings;
  settings.consoleLevel = kSeverities;
  return settings;
}

// Judges a notification as in the capture, once the player has reached its reply.
class ReplayJudge final : public CAoArp {
 public:
  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override {
    PlayedDelivery* const delivery = PlayedDelivery::Current();
    if (delivery == nullptr) return static_cast<std::uint32_t>(Decision::kPass);
    PlayedJudgement judgement = delivery->AwaitJudgement();
    auto* const event = dynamic_cast<EventRecord*>(record.get());
    if (event != nullptr && !judgement.context.empty()) {
      event->SetContextData(std::make_shared<HeapBuffer>(std::move(judgement.context)));
    }
    return judgement.decision;
  }
};

}  // namespace

class ReplayHost::Utility final : public CUtility {
 public:
  Utility(std::shared_ptr<LogService> log, const ReplayFacts& facts)
      : service(std::move(log), facts.fixed.versionFlag), paths(facts.paths) {}

  void Replace(StandInPaths replacement) { paths.Set(std::move(replacement)); }

  bool QueryVersionFlag() override { return service.QueryVersionFlag(); }
  std::string& ToNarrowString(std::string& out, const std::wstring& text) override {
    const auto current = paths.Get();
    if (const std::string* const recorded = current->RecordedOf(text)) return out = *recorded;
    return service.ToNarrowString(out, text);
  }
  std::string& TransformPath(std::string& out, const std::string& path) override {
    return service.TransformPath(out, path);
  }
  std::string& ConvertText(std::string& out, const std::string& message) override {
    return service.ConvertText(out, message);
  }
  std::shared_ptr<CMeasurement>& CreateMeasurement(std::shared_ptr<CMeasurement>& out) override {
    return service.CreateMeasurement(out);
  }
  void CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) override {
    service.CopyToField(destination, limit, text);
  }
  std::wstring& ToWideString(std::wstring& out, const std::string& text) override {
    return service.ToWideString(out, text);
  }
  std::wstring& ToRecordString(std::wstring& out, const std::wstring& path) override {
    return service.ToRecordString(out, path);
  }
  std::shared_ptr<CBuf>& CreateBuffer(std::shared_ptr<CBuf>& out, bool first, std::uint32_t size, bool last) override {
    return service.CreateBuffer(out, first, size, last);
  }
  bool TestPath(const boost::filesystem::path& path) override { return paths.Get()->IsDirectory(path); }
  std::shared_ptr<CBuf>& BufferFromBytes(std::shared_ptr<CBuf>& out, const void* bytes, std::uint32_t length) override {
    return service.BufferFromBytes(out, bytes, length);
  }
  void WriteLog(std::uint32_t code, const std::string& line, std::uint32_t category) override {
    service.WriteLog(code, line, category);
  }

 private:
  UtilityService service;
  LiveValue<StandInPaths> paths;
};

// Contains only the recorded processes.
class ReplayHost::Work final : public CWinWork {
 public:
  explicit Work(std::shared_ptr<PlayedDriver> playedDriver) : driver(std::move(playedDriver)) {}

  void SetSystemProcesses(std::map<std::uint32_t, std::uint64_t> byKind) {
    const MutexLock lock(mutex);
    processes = std::move(byKind);
  }

  boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& imageName) override {
    return out = imageName;
  }
  std::uint32_t QueryProcessValue(std::uint32_t processId, std::uint32_t) override {
    const MutexLock lock(mutex);
    for (const auto& [kind, id] : processes) {
      if (id == processId) return kSystemSession;
    }
    return kUnknownProcess;
  }
  std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t, std::uint32_t) override { return out = {}; }
  std::string& GetProcessNarrowText(std::string& out, std::uint32_t, std::uint32_t) override { return out = {}; }
  std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string&,
                                                 const std::shared_ptr<CBuf>& connectContext, std::uint32_t,
                                                 const NotificationHandler& handler, std::uint32_t) override {
    return out = driver->MakePortClient(connectContext, handler);
  }
  std::string& GetIdentityText(std::string& out, const void*) override { return out = {}; }
  std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                       const boost::filesystem::path& image, std::uint32_t) override {
    out = std::make_shared<ProcessIdList>();
    const auto kind =
        image.string().ends_with("csrss.exe") ? records::SystemProcess::kCsrss : records::SystemProcess::kServices;
    const MutexLock lock(mutex);
    const auto found = processes.find(static_cast<std::uint32_t>(kind));
    if (found != processes.end()) out->push_back(static_cast<std::uint32_t>(found->second));
    return out;
  }
  std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out, std::uint32_t) override {
    return out = std::make_shared<ProcessIdSet>();
  }

 private:
  const std::shared_ptr<PlayedDriver> driver;
  Mutex mutex;
  std::map<std::uint32_t, std::uint64_t> processes FENLUX_GUARDED_BY(mutex);
};

ReplayHost::ReplayHost(const ReplayFacts& facts, std::shared_ptr<PlayedDriver> driver) {
  const auto log = std::make_shared<LogService>(NoLog());
  const auto records = std::make_shared<RecordRegister>();
  configuration = std::make_shared<Configuration>(facts.fixed, facts.live, records);
  utility = std::make_shared<Utility>(log, facts);
  work = std::make_shared<Work>(std::move(driver));
  context = std::make_shared<HostContext>(HostServices{
      .cfg = configuration,
      .log = log,
      .locale = std::make_shared<LocaleService>(Translations()),
      .utility = utility,
      .net = std::make_shared<NetService>(),
      .recordService = records,
      .winWork = work,
      .arpMgmt = std::make_shared<EventRecordMaker>(),
      .cfgEx = configuration,
      .aoArp = std::make_shared<ReplayJudge>(),
  });
}

ReplayHost::~ReplayHost() = default;

void ReplayHost::Replace(ReplayFacts facts) {
  utility->Replace(std::move(facts.paths));
  configuration->Replace(std::move(facts.live));
}

void ReplayHost::SetSystemProcesses(std::map<std::uint32_t, std::uint64_t> processes) {
  work->SetSystemProcesses(std::move(processes));
}

}  // namespace fenlux::refhost
