// A host whose services write to no memory that two delivery threads share, for benchmarks of several threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "fenlux/default_services.h"
#include "kdi/win_driver_interact.h"

namespace fenlux::bench {

// Knows the processes 1 to `processes`. GetCfg, which every notification calls, returns a handle without a count, so
// that threads that copy it do not compete for one.
class UnsharedHost : public DefaultServices {
 public:
  explicit UnsharedHost(std::uint32_t processes) {
    log = [](const char*, const std::string&) {};
    makePortClient = [this](const std::string&, const std::shared_ptr<CBuf>&, std::uint32_t,
                            const NotificationHandler& notificationHandler) {
      handler = notificationHandler;
      return std::make_shared<IdlePortClient>();
    };
    for (std::uint32_t process = 1; process <= processes; ++process) running->insert(process);
  }

  std::shared_ptr<CCfg> GetCfg() override { return {std::shared_ptr<void>(), this}; }
  std::uint32_t QueryProcessValue(std::uint32_t /*processId*/, std::uint32_t /*reserved*/) override { return 1; }
  std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t /*processId*/,
                                   std::uint32_t /*reserved*/) override {
    return out = L"C:\\Program Files\\Editor\\editor.exe";
  }
  std::string& GetProcessNarrowText(std::string& out, std::uint32_t /*processId*/,
                                    std::uint32_t /*reserved*/) override {
    return out = "editor.exe report.docx";
  }
  std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                      std::uint32_t /*reserved*/) override {
    return out = running;
  }

  NotificationHandler handler;  // set when the connection is opened

 private:
  // Drops requests; its connection lasts until it is closed.
  struct IdlePortClient final : CPortClient {
    void Connect() override {}
    void Start() override {}
    void Wait() override { closed.wait(false); }
    void Close() override {
      closed = true;
      closed.notify_all();
    }
    void Send(const std::shared_ptr<CBuf>& /*request*/, std::shared_ptr<CBuf>& /*reply*/, bool /*flag*/) override {}
    std::atomic<bool> closed{false};
  };

  const std::shared_ptr<ProcessIdSet> running = std::make_shared<ProcessIdSet>();
};

// An UnsharedHost and its driver interface, which stays connected. Never destroy it: its threads do not end.
struct UnsharedConnection {
  UnsharedConnection() {
    std::thread([this] { interact->RunDriverConnection(); }).detach();
    while (!interact->IsDriverReady()) std::this_thread::yield();
  }

  const std::shared_ptr<UnsharedHost> host = std::make_shared<UnsharedHost>(8);
  const std::shared_ptr<CWinDriverInteract> interact = std::make_shared<CWinDriverInteract>(host);
};

}  // namespace fenlux::bench
