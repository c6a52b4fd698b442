// Monitored paths on their way to the driver: one request each, a commit, and a log line for every outcome.
#include <boost/filesystem/operations.hpp>

#include "common/exception_report.h"
#include "common/guarded.h"
#include "common/log_codes.h"
#include "common/wide_text.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {
namespace {

// What the driver is told of the path besides its text: 1 for a path that is not there, else the host's answer.
std::uint8_t PathFlag(CUtility& utility, const boost::filesystem::path& path) {
  boost::system::error_code error;
  const auto type = boost::filesystem::status(path, error).type();
  const bool missing = type == boost::filesystem::status_error || type == boost::filesystem::file_not_found;
  return missing || utility.TestPath(path) ? 1 : 0;
}

}  // namespace

bool CWinDriverInteract::RegisterMonitors(const std::vector<std::wstring>& paths, int objectType) {
  std::vector<std::string> added;   // narrow paths
  std::vector<std::string> failed;  // narrow paths, each with its error text behind it
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

// One line for each text; the opening is translated once.
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

}  // namespace fenlux
