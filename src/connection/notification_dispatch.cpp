// Handles one notification: decodes it into an event record, has the host judge it, and builds the reply.
//
// Runs on the port client's delivery threads, concurrently, without locks of its own and without shared state: each
// call has its own record and reply. An operation is blocked in the kernel until the reply is sent, so the reply is
// made first; a failure after that is logged and leaves the reply's verdict at 8.
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "common/exception_report.h"
#include "common/guarded.h"
#include "common/log_codes.h"
#include "common/required.h"
#include "connection/notification_items.h"
#include "connection/notification_table.h"
#include "kdi/perf_scope.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {
namespace {

using records::Verdict;

// The verdict of operations that pass, whether judged or not.
Verdict PassVerdict(bool clientTypeFlag) { return clientTypeFlag ? Verdict::kPassClient2 : Verdict::kPass; }

Verdict VerdictOf(std::uint32_t decision, bool clientTypeFlag) {
  switch (static_cast<Decision>(decision)) {
    case Decision::kVerdict2:
      return Verdict::kVerdict2;
    case Decision::kPass:
      return PassVerdict(clientTypeFlag);
    case Decision::kVerdict4:
      return Verdict::kVerdict4;
    case Decision::kVerdict5:
      return Verdict::kVerdict5;
    case Decision::kContext:
      return Verdict::kContext;
    case Decision::kPassClient2:
      return Verdict::kPassClient2;
    case Decision::kUndecided:
      break;
  }
  return Verdict::kUnjudged;
}

std::uint32_t CategoryOf(std::uint32_t code) {
  if (code < records::code::kCategory1Begin) throw std::runtime_error("[wdi,wdaokd-2] bad pos value!");
  return code < records::code::kCategory2Begin ? kEventCategory1 : kEventCategory2;
}

// Returns the path of code::kPrefixedPath without its prefix, or unchanged if it is shorter than one.
std::wstring WithoutPrefix(CUtility& utility, std::wstring path) {
  std::string narrow;
  utility.ToNarrowString(narrow, path);
  if (narrow.size() < records::kPathPrefixLength) return path;
  std::wstring rest;
  utility.ToWideString(rest, narrow.substr(records::kPathPrefixLength));
  return rest;
}

void StorePaths(CUtility& utility, const NotificationItems& items, CArpRecord& record) {
  const auto& fixed = items.Fixed();
  const std::uint32_t code = fixed.code.value();
  std::wstring recordPath;
  if (code == records::code::kFurtherPath && fixed.item4Present.value() != 0) {
    record.SetPath(utility.ToRecordString(recordPath, items.FurtherPath()));
  } else if (fixed.item1Size.value() != 0) {
    std::wstring path = items.Path();
    // Every path from item 1 is stored twice. The record of code::kPrefixedPath gets both forms, first as the driver
    // writes it and then as the host's records keep it; the other codes store the record form twice, so that hosts see
    // the same two calls for every code.
    if (code == records::code::kPrefixedPath) {
      path = WithoutPrefix(utility, std::move(path));
      record.SetPath(path);
    } else {
      record.SetPath(utility.ToRecordString(recordPath, path));
    }
    record.SetPath(utility.ToRecordString(recordPath, path));
  }
  if (fixed.item2Size.value() != 0) record.SetSecondPath(utility.ToRecordString(recordPath, items.SecondPath()));
  if (fixed.item3Size.value() != 0) {
    const auto bytes = items.ExtraData();
    std::shared_ptr<CBuf> data;
    utility.BufferFromBytes(data, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    record.SetExtraData(Required(std::move(data), "[wdi,wdaokd] no buffer for extra data!"));
  }
}

}  // namespace

std::shared_ptr<CBuf> CWinDriverInteract::CreateReply(std::uint32_t contextSize) {
  if (contextSize > std::numeric_limits<std::uint32_t>::max() - records::kReplyFixedSize) {
    throw std::runtime_error("[wdi] context data too large!");
  }
  std::shared_ptr<CBuf> reply;
  utility->CreateBuffer(reply, true, records::kReplyFixedSize + contextSize, false);
  if (!reply) throw std::runtime_error("[wdi] no reply buffer!");
  auto& fields = FieldsOf<records::Reply>(*reply);
  fields.magic = records::kReplyMagic;
  fields.fixedSize = records::kReplyFixedSize;
  fields.verdict = static_cast<std::uint32_t>(Verdict::kUnjudged);
  return reply;
}

std::shared_ptr<CBuf> CWinDriverInteract::DispatchNotification(const void* message, std::uint32_t size) {
  const CPerfScope measured(context);
  auto reply = CreateReply(0);
  bool replyWanted = true;
  try {
    const NotificationItems items(message, size);
    const auto& fixed = items.Fixed();

    std::shared_ptr<CArpRecord> record;
    arpMgmt->CreateRecord(record, 0);
    if (!record) throw std::runtime_error("[wdi,wdaokd] no event record!");
    record->SetSource(kDriverEventSource);
    const std::uint32_t code = fixed.code.value();
    record->SetCategory(CategoryOf(code));
    CArpProcess& process = RequiredObject(record->ProcessPart(), "[wdi,wdaokd] no process part!");
    process.SetProcessId(fixed.processId.value());
    autoRefresh->FillEventProcessInfo(*record, process, items.Identity());
    StorePaths(*utility, items, *record);

    const NotificationRow* const row = FindNotificationRow(code);
    if (row == nullptr) throw std::runtime_error("[wdi,wdaokd] Unknown pos value!");
    EventTypes types = row->types;
    if (row->work != nullptr) {
      NotificationContext notification{fixed, *record, *winWork, replyWanted};
      types = row->work(notification, types);
    }

    const Verdict verdict = fixed.oplock != 0 ? PassUnjudged(*record)
                                              : Judge(record, fixed.variant != 0 ? types.variant : types.plain, reply);
    FieldsOf<records::Reply>(*reply).verdict = static_cast<std::uint32_t>(verdict);
  } catch (...) {
    Quietly([this] {
      const auto convert = [this](const std::string& text) {
        std::string converted;
        return utility->ConvertText(converted, text);
      };
      log->LogProblem(kLogCode, ReportCurrentExceptionByKind("wdi,wdaokd", convert));
    });
  }
  return replyWanted ? reply : nullptr;
}

// An oplock break must not wait for the host's judgement.
Verdict CWinDriverInteract::PassUnjudged(CArpRecord& record) {
  std::string description;
  record.Describe(description);
  Quietly([&] { log->LogDetail(kLogCode, LocalizedText("[Ignore OPLock]") + description); });
  return PassVerdict(clientTypeFlag);
}

Verdict CWinDriverInteract::Judge(const std::shared_ptr<CArpRecord>& record, std::uint32_t eventType,
                                  std::shared_ptr<CBuf>& reply) {
  record->SetEventType(eventType);
  const std::uint32_t decision = aoArp->Evaluate(record);
  if (decision == static_cast<std::uint32_t>(Decision::kContext)) reply = ContextReply(*record);
  return VerdictOf(decision, clientTypeFlag);
}

// Makes a reply that carries the record's context data.
std::shared_ptr<CBuf> CWinDriverInteract::ContextReply(CArpRecord& record) {
  const auto data = record.GetContextData();
  const std::size_t size = data ? data->GetSize() : 0;
  if (size == 0) throw std::runtime_error("[wdi,wdaokd] lost context data!");
  if (size > std::numeric_limits<std::uint32_t>::max() - records::kContextTerminatorSize) {
    throw std::runtime_error("[wdi] context data too large!");
  }
  const std::uint32_t contextSize = static_cast<std::uint32_t>(size) + records::kContextTerminatorSize;
  auto reply = CreateReply(contextSize);
  auto& fields = FieldsOf<records::Reply>(*reply);
  fields.contextSize = contextSize;
  std::memcpy(&fields + 1, &FieldsOf<records::U8>(*data), size);
  return reply;
}

}  // namespace fenlux
