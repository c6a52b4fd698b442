// Passes records to the log, and limits what the console shows.
#include "refhost/app/decisions/decision_log.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "refhost/app/decisions/decision_text.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/events/rules.h"

namespace fenlux::refhost {
namespace {

class RecordContent final : public LogContent {
 public:
  explicit RecordContent(const DecisionRecord& observed) : record(observed) {}

  std::string Text() const override { return DecisionText(record); }
  void AddTo(Report& line) const override { line["decision"] = DecisionReport(record); }
  std::size_t Size() const override {
    if (record.judged.event == nullptr) return sizeof(*this);
    const EventData& event = record.judged.event->Data();
    const std::size_t wide = event.path.size() + event.secondPath.size() + event.imagePath.size();
    return sizeof(*this) + sizeof(event) + wide * sizeof(wchar_t) + event.commandLine.size();
  }

 private:
  const DecisionRecord record;
};

}  // namespace

void DecisionLog::Observe(const DecisionRecord& record) noexcept {
  const Severity severity = record.IsRefusal() ? Severity::kNotice : Severity::kEvent;
  try {
    const bool shown = !limited || ShownOnConsole(record);
    if (!shown) notOnConsole.fetch_add(1, std::memory_order_relaxed);
    log->Write(severity, std::make_shared<const RecordContent>(record), shown ? LogAudience::kAll : LogAudience::kFile);
  } catch (...) {  // no memory for it
    log->CountLostContent(severity);
  }
}

bool DecisionLog::ShownOnConsole(const DecisionRecord& record) {
  const MutexLock lock(mutex);
  return limit.Admit({record.judged.rules, record.judged.rule}, std::chrono::steady_clock::now());
}

void DecisionLog::ReportHidden(TimePoint now) {
  std::vector<LineLimit<Decider>::Hidden> hidden;
  {
    const MutexLock lock(mutex);
    hidden = limit.Over(now);
  }
  for (const auto& [decider, lines] : hidden) {
    const std::string what = decider.first == nullptr ? "without a judgement" : "by " + DeciderText(decider.second);
    log->Write(
        Severity::kNotice,
        fmt::format("{} more {} in the last {} s, not shown here", lines, what, LineLimit<Decider>::kInterval.count()),
        LogAudience::kConsole);
  }
}

}  // namespace fenlux::refhost
