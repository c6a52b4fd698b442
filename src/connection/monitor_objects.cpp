// Monitored paths: queued by the host or the policy worker, then sent to the driver as one request each and a commit.
//
// `interactMutex` guards the two pending lists. Every operation holds it for its whole run, also while it sends, so
// that two batches of one type never mix in the driver.
#include <boost/filesystem/operations.hpp>
#include <stdexcept>
#include <utility>

#include "common/exception_report.h"
#include "common/guarded.h"
#include "common/log_codes.h"
#include "common/wide_text.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {
namespace {

bool IsMonitorObjectType(int objectType) {
  return objectType >= records::kObjectType1 && objectType <= records::kObjectType3;
}

// The request's flag: 1 if the path does not exist or the host says that it may be monitored.
std::uint8_t PathFlag(CUtility& utility, const boost::filesystem::path& path) {
  boost::system::error_code error;
  const auto type = boost::filesystem::status(path, error).type();
  const bool missing = type == boost::filesystem::status_error || type == boost::filesystem::file_not_found;
  return missing || utility.TestPath(path) ? 1 : 0;
}

}  // namespace

std::vector<std::wstring>& CWinDriverInteract::PendingList(int objectType) {
  return objectType == records::kObjectType3 ? pendingMonitorObjectsB : pendingMonitorObjectsA;
}

bool CWinDriverInteract::AddMonitorObject(bool kernelSide, const char* path, int objectType) {
  if (kernelSide) throw std::runtime_error("NOT supported under windows driver!");
  if (path == nullptr) throw std::runtime_error("[wdi,aodm] bad parameter!");
  const MutexLock lock(interactMutex);
  std::wstring widePath;
  utility->ToWideString(widePath, path);
  if (!IsMonitorObjectType(objectType)) throw std::runtime_error("[wdi,aodm] bad parameter!");
  PendingList(objectType).push_back(std::move(widePath));
  return true;
}

void CWinDriverInteract::SendMonitorObjects(int objectType) {
  const MutexLock lock(interactMutex);
  if (!IsMonitorObjectType(objectType)) throw std::runtime_error("[wdi,samtd] bad parameter!");
  const auto paths = std::exchange(PendingList(objectType), {});
  Quietly([&] { RegisterMonitors(paths, objectType); });
}

bool CWinDriverInteract::ClearMonitorObjects(int objectType) {
  const MutexLock lock(interactMutex);
  if (!IsMonitorObjectType(objectType)) throw std::runtime_error("[wdi,gcm] bad parameter!");
  PendingList(objectType).clear();
  if (ready && !stopped && portClient.Load()) {
    SendValue(records::Command::kCommitMonitorObjects, static_cast<std::uint32_t>(objectType));
  }
  return true;
}

bool CWinDriverInteract::RegisterMonitors(const std::vector<std::wstring>& paths, int objectType) {
  std::vector<std::string> added;   // narrow paths
  std::vector<std::string> failed;  // narrow paths, each followed by its error text
  added.reserve(paths.size());
  for (const std::wstring& path : paths) {
    std::string text;
    try {
      AddMonitor(path, objectType);
      utility->ToNarrowString(text, path);
      added.push_back(std::move(text));
    } catch (...) {
      const std::string report = ReportCurrentException("wdi,wdpm");
      Quietly([&] { utility->ToNarrowString(text, path); });
      failed.push_back(text + report);
    }
  }

  try {
    SendValue(records::Command::kCommitMonitorObjects, static_cast<std::uint32_t>(objectType));
  } catch (...) {
    log->LogProblem(kLogCode, ReportCurrentException("wdi,wdpm-2"));
  }

  if (paths.empty()) return true;
  if (added.empty()) {
    log->LogProblem(kLogCode, LocalizedText("[wdi,wdpm]Add Monitor All Failed!"));
    return true;
  }
  LogEach(&CLog::LogProblem, "[Add Monitor Failed!][obj path]=", failed);
  LogEach(&CLog::LogEvent, "[Add Monitor OK!][obj path]=", added);
  return true;
}

void CWinDriverInteract::AddMonitor(const std::wstring& text, int objectType) {
  const boost::filesystem::path path = PathFromWide(text);
  SendRequest<records::MonitorObjectRequest>(
      records::Command::kAddMonitorObject, [&](records::MonitorObjectRequest& request) {
        request.objectType = static_cast<std::uint32_t>(objectType);
        request.pathFlag = PathFlag(*utility, path);
        utility->CopyToField(request.rootName, sizeof(request.rootName), WideFromPath(path.root_name()));
        utility->CopyToField(request.path, sizeof(request.path), text);
      });
}

void CWinDriverInteract::LogEach(void (CLog::*operation)(std::uint32_t, const std::string&), const char* opening,
                                 const std::vector<std::string>& texts) {
  if (texts.empty()) return;
  std::string line = LocalizedText(opening);
  const std::size_t openingSize = line.size();
  for (const std::string& text : texts) {
    line.resize(openingSize);
    line += text;
    ((*log).*operation)(kLogCode, line);
  }
}

}  // namespace fenlux
