// Implementation of the driver interface: one connection with the kernel driver, from opening to end.
//
// Shared by the connection worker, which runs the connection, the policy worker and host threads, which send requests,
// and the port client's delivery threads, which dispatch notifications. `interactMutex` guards the two pending lists
// and nothing else. The flags are atomic and the port client's handle has its own mutex, under which no code of
// the host runs, so StopInteract never waits for a host call. DispatchNotification owes the driver a reply from its
// first statement until it returns; from then on the port client does.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/atomic_handle.h"
#include "common/mutex.h"
#include "common/striped_handle.h"
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

  // The port value that was passed to the port client. Any thread.
  std::uint32_t PortValue() const;

  // Stops the connection and, on the first call only, withdraws the registration and releases the net object. Tries
  // every step, then rethrows the first exception. Host threads, connection worker, destructor.
  void Shutdown();

  // Reads the driver's version, reports it to the host's configuration, logs both versions, and warns if they differ.
  // Throws what the host throws. Connection worker.
  void CheckDriverVersion();

  // Returns the id of the first process of a system image that runs in the system's own session, or
  // records::kNoProcess. `image` is relative to the system directory. Throws what the host throws. Connection worker.
  std::uint64_t FindSystemProcessId(const std::string& image);

  // Decodes one notification, has it judged, and returns the reply, or an empty handle if the driver expects none.
  // Reads `message` only during the call. Throws only if the reply buffer cannot be made. Delivery threads.
  std::shared_ptr<CBuf> DispatchNotification(const void* message, std::uint32_t size);

 private:
  struct ModeSwitch;

  // The connection (connection/).
  // `self` refers to this object; the notification handler keeps weak handles to it.
  std::shared_ptr<CPortClient> OpenPortClient(const StripedHandle<CWinDriverInteract>& self);
  void RegisterSystemImage(records::SystemProcess kind, const char* image);
  // Makes a reply with room for `contextSize` bytes after the fixed part and verdict 8. Throws what the host throws.
  std::shared_ptr<CBuf> CreateReply(std::uint32_t contextSize);
  records::Verdict PassUnjudged(CArpRecord& record);
  records::Verdict Judge(const std::shared_ptr<CArpRecord>& record, std::uint32_t eventType,
                         std::shared_ptr<CBuf>& reply);
  std::shared_ptr<CBuf> ContextReply(CArpRecord& record);

  // Monitored objects (connection/).
  std::vector<std::wstring>& PendingList(int objectType) FENLUX_REQUIRES(interactMutex);
  // Adds each path, commits them, and logs the outcome of each. Returns true. Throws what logging throws; failures to
  // send are logged.
  bool RegisterMonitors(const std::vector<std::wstring>& paths, int objectType);
  void AddMonitor(const std::wstring& text, int objectType);
  // Logs one line per text: `opening`, translated once, and the text.
  void LogEach(void (CLog::*operation)(std::uint32_t, const std::string&), const char* opening,
               const std::vector<std::string>& texts);

  // Network control (connection/).
  void SetNetControlMode(records::NetControlMode mode);
  // Replaces the driver's item list of a type. Items that cannot be sent are counted and logged as one line.
  void LoadNetControlItems(std::uint32_t listType, const std::shared_ptr<NetControlItems>& items);
  void ClearNetControlItems(std::uint32_t listType);

  // Requests (kdi/). All of them throw what the host throws, and may be called on any thread.
  void SendModeSwitch(const ModeSwitch& modeSwitch, bool implemented, std::uint32_t mode);
  // Makes a request of full size and writes its header.
  std::shared_ptr<CBuf> CreateRequest(records::Command command);
  // Sends a request and ignores the reply.
  void Send(const std::shared_ptr<CBuf>& request);
  // Makes a request, lets `fill` write its payload, and sends it.
  template <class Record, class Fill>
  void SendRequest(records::Command command, Fill&& fill) {
    const auto request = CreateRequest(command);
    fill(FieldsOf<Record>(*request));
    Send(request);
  }
  // Sends a request whose payload is one number.
  void SendValue(records::Command command, std::uint32_t value);
  // Throws std::runtime_error if no connection was ever opened.
  std::shared_ptr<CPortClient> RequirePortClient() const;

  // Runs `body` and logs an exception as one line; ignores a log that throws. Defined in kdi/reported.h.
  template <class Body>
  void Reported(const char* tag, Body&& body) noexcept;

  // Writes the translation of a fixed message text into `out` and returns it; without a locale service, the text
  // itself. Throws what the host throws. Any thread.
  std::string& LocalizeText(std::string& out, const char* text);
  std::string LocalizedText(const char* text);

  std::shared_ptr<CWinWork> winWork;
  AtomicHandle<CPortClient> portClient;  // empty until the connection is opened
  std::shared_ptr<CAutoRefreshProcessInfo> autoRefresh;
  Mutex interactMutex;
  std::vector<std::wstring> pendingMonitorObjectsA FENLUX_GUARDED_BY(interactMutex);  // types 1 and 2
  std::vector<std::wstring> pendingMonitorObjectsB FENLUX_GUARDED_BY(interactMutex);  // type 3
  std::atomic<bool> ready{false};    // set by RunDriverConnection once the port client has started
  std::atomic<bool> stopped{false};  // set by StopInteract for good
};

}  // namespace fenlux
