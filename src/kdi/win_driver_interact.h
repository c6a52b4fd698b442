// The driver interface's one implementation: one connection with the kernel driver, from its opening to its end.
//
// Shared between the connection worker, which runs the connection, the policy worker and host threads, which send
// requests, and the port client's delivery threads, which dispatch notifications. `interactMutex` guards the two
// pending lists and nothing else; the flags are atomic and the port client's handle is replaced atomically, so that
// StopInteract never waits for a lock. A reply is owed to the driver from the moment that DispatchNotification is
// entered until it has returned the reply to the port client.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/atomic_handle.h"
#include "common/mutex.h"
#include "kdi/driver_records.h"
#include "kdi/kdi_base.h"
#include "kdi/request.h"
#include "procinfo/auto_refresh_process_info.h"

namespace fenlux {

class CWinDriverInteract final : public CKDIBase {
 public:
  // Throws std::runtime_error naming the first required service that is missing.
  explicit CWinDriverInteract(const std::shared_ptr<CGlobalContext>& globalContext);
  ~CWinDriverInteract();
  CWinDriverInteract(const CWinDriverInteract&) = delete;
  CWinDriverInteract& operator=(const CWinDriverInteract&) = delete;

  bool AddMonitorObject(bool kernelSide, const char* path, int objectType) override;
  void SendMonitorObjects(int objectType) override;
  bool ClearMonitorObjects(int objectType) override;
  void EnterNetControlMode1() override;
  void ApplyNetControlItems(bool alternate, const std::shared_ptr<NetControlItems>& items) override;
  void EnterNetControlMode3() override;
  void AddNetControlItems(int itemType, const std::shared_ptr<NetControlItems>& items) override;
  std::uint32_t GetDriverVersion() override;
  bool IsDriverReady() override;
  bool IsStopRequested() override;
  bool QueryOptionalFeature() override;
  std::uint32_t SetGrspSwitch(bool implemented, std::uint32_t mode) override;
  bool QuerySupportedFeature() override;
  std::string DumpDriverDebugInfo() override;
  std::uint32_t SetGrpmSwitch(bool implemented, std::uint32_t mode) override;
  std::uint32_t SetGrdtoValue(bool implemented, std::uint32_t value) override;
  std::uint32_t GetImplementationCode() override;
  bool SetGrharaSwitch(bool implemented, bool on) override;
  void SetSpspState(std::uint8_t skipMiddleSwitches) override;
  void RegisterSystemProcess(std::uint32_t kind, std::uint64_t processId) override;
  void SendDriverConfig() override;
  void RunDriverConnection() override;
  void StopInteract() override;
  void OnKernelData(std::uint64_t data) override;
  void TriggerLtrkd() override;

  // The value that names the port to the port client. Any thread.
  std::uint32_t PortValue() const;

  // Stops the connection, and, the first time only, withdraws the registration and releases the net object. Everything
  // is tried; the first failure goes on. Host threads, connection worker, destructor.
  void Shutdown();

  // Reads the driver's version, reports it to the host's configuration, logs both versions and warns where they
  // differ. Throws what the host throws. Connection worker.
  void CheckDriverVersion();
  // Writes the translation of a fixed message text into `out` and returns it; the text itself without a locale service.
  // Any thread.
  std::string& LocalizeText(std::string& out, const char* text);
  std::string LocalizedText(const char* text);

  // A request of full size with its header in place. Throws what the host throws. Any thread.
  std::shared_ptr<CBuf> CreateRequest(records::Command command);
  // A reply with `contextSize` bytes behind the fixed part, not yet judged. Throws what the host throws. Any thread.
  std::shared_ptr<CBuf> CreateReply(std::uint32_t contextSize);

  // Decodes one notification, has it judged and returns the reply; empty where the driver expects none. Throws only
  // where the reply cannot be made. Delivery threads.
  std::shared_ptr<CBuf> DispatchNotification(const void* message, std::uint32_t size);

  // Adds each path, commits them and logs the outcome; always true. Policy worker and host threads.
  bool RegisterMonitors(const std::vector<std::wstring>& paths, int objectType) FENLUX_REQUIRES(interactMutex);
  // The process of a system image that belongs to the system's own session; all ones where there is none.
  std::uint64_t FindSystemProcessId(const std::string& image);
  // Replaces the driver's item list of a type; items that fail are counted in one line.
  void LoadNetControlItems(std::uint32_t listType, const std::shared_ptr<NetControlItems>& items);
  // Empties the driver's item list of a type.
  void ClearNetControlItems(std::uint32_t listType);

 private:
  struct ModeSwitch;

  std::shared_ptr<CPortClient> OpenPortClient();
  records::Verdict PassUnjudged(CArpRecord& record);
  records::Verdict Judge(const std::shared_ptr<CArpRecord>& record, std::uint32_t eventType,
                         std::shared_ptr<CBuf>& reply);
  std::shared_ptr<CBuf> ContextReply(CArpRecord& record);
  void RegisterSystemImage(records::SystemProcess kind, const char* image);

  std::vector<std::wstring>& PendingList(int objectType) FENLUX_REQUIRES(interactMutex);
  void AddMonitor(const std::wstring& text, int objectType);
  void LogEach(void (CLog::*operation)(std::uint32_t, const std::string&), const char* opening,
               const std::vector<std::string>& texts);
  void SendModeSwitch(const ModeSwitch& modeSwitch, bool implemented, std::uint32_t mode);
  void SetNetControlMode(records::NetControlMode mode);

  // Sends a request and drops whatever comes back.
  void Send(const std::shared_ptr<CBuf>& request);
  // Makes a request, has its payload written, and sends it.
  template <class Record, class Fill>
  void SendRequest(records::Command command, Fill&& fill) {
    const auto request = CreateRequest(command);
    fill(FieldsOf<Record>(*request));
    Send(request);
  }
  // The same for the requests whose payload is one number.
  void SendValue(records::Command command, std::uint32_t value);
  // Throws std::runtime_error where no connection was ever opened.
  std::shared_ptr<CPortClient> RequirePortClient() const;

  // Runs a body of which nothing may leave: a failure becomes one report line.
  template <class Body>
  void Reported(const char* tag, Body&& body) noexcept;
  // Writes a problem line; a log that throws is none of the caller's business.
  void LogProblemQuietly(const std::string& line) noexcept;

  std::shared_ptr<CWinWork> winWork;
  AtomicHandle<CPortClient> portClient;  // empty until the connection run has made it
  std::shared_ptr<CAutoRefreshProcessInfo> autoRefresh;
  Mutex interactMutex;
  std::vector<std::wstring> pendingMonitorObjectsA FENLUX_GUARDED_BY(interactMutex);  // types 1 and 2
  std::vector<std::wstring> pendingMonitorObjectsB FENLUX_GUARDED_BY(interactMutex);  // type 3
  std::atomic<bool> ready{false};    // set by the connection run once the port client has started
  std::atomic<bool> stopped{false};  // set by StopInteract for good
};

}  // namespace fenlux
