// System processes: finds their ids and sends them to the driver, so that it can recognize them.
#include "kdi/reported.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

void CWinDriverInteract::RegisterSystemImage(records::SystemProcess kind, const char* image) {
  RegisterSystemProcess(static_cast<std::uint32_t>(kind), FindSystemProcessId(image));
}

std::uint64_t CWinDriverInteract::FindSystemProcessId(const std::string& image) {
  boost::filesystem::path path;
  winWork->SystemPath(path, image);
  std::shared_ptr<ProcessIdList> processIds;
  winWork->FindProcessesByImage(processIds, path, 0);
  if (!processIds) return records::kNoProcess;
  for (const std::uint32_t processId : *processIds) {
    if (winWork->QueryProcessValue(processId, 0) == kSystemSession) return processId;
  }
  return records::kNoProcess;
}

void CWinDriverInteract::RegisterSystemProcess(std::uint32_t kind, std::uint64_t processId) {
  const MutexLock lock(baseMutex);
  if (processId == records::kNoProcess || !ready) return;
  Reported("wdi,uxp", [&] {
    SendRequest<records::SystemProcessRequest>(records::Command::kSystemProcess,
                                               [&](records::SystemProcessRequest& request) {
                                                 request.kind = kind;
                                                 request.processId = processId;
                                               });
  });
}

}  // namespace fenlux
