// Simple implementations of every host interface, for a host to start from: override what must be different, or replace
// the functions that DefaultServices calls. Header only.
//
// A host needs two functions and is complete:
//
//   auto services = std::make_shared<fenlux::DefaultServices>();
//   services->judge = [](const fenlux::Event& event) { return fenlux::Decision::kPass; };
//   services->makePortClient = ...;  // a CPortClient for the driver's port
//   const std::shared_ptr<fenlux::CGlobalContext> context = services;
//   init(&context);  // looked up in the library
//   services->module->StartWork();
//
// The services must work until the process ends, because the module's threads never end. Every operation may be called
// concurrently; the functions are called without a lock, so they must allow that too. Set them before init.
#ifndef FENLUX_DEFAULT_SERVICES_H
#define FENLUX_DEFAULT_SERVICES_H

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <boost/locale/encoding_utf.hpp>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/fenlux.h"
#include "fenlux/default_record.h"
#include "host/host.h"

namespace fenlux {

// Every service of a host in one object. Make it with std::make_shared.
//
// By default the host is enabled, has client type 1, monitors what SetPolicy names, logs to standard error, knows no
// processes, sends switches of 0 and no configuration block, registers nothing, and decides nothing (verdict 8).
class DefaultServices : public CGlobalContext,
                        public CLog,
                        public CLocale,
                        public CUtility,
                        public CNet,
                        public CCfg,
                        public CCfgEx,
                        public CWinWork,
                        public CArpMgmt,
                        public CAoArp,
                        public std::enable_shared_from_this<DefaultServices> {
 public:
  // Makes a port client. The arguments are those of CWinWork::CreatePortClient that a client needs.
  using PortClientMaker = std::function<std::shared_ptr<CPortClient>(
      const std::string& portName, const std::shared_ptr<CBuf>& connectContext, std::uint32_t maxMessageSize,
      const NotificationHandler& handler)>;

  // Makes services that decide nothing and have no driver, until the functions below are set.
  DefaultServices() : winWork(std::shared_ptr<void>(), this) {}
  virtual ~DefaultServices() = default;
  DefaultServices(const DefaultServices&) = delete;
  DefaultServices& operator=(const DefaultServices&) = delete;

  std::function<Decision(const Event&)> judge;  // called by Evaluate; without it, nothing is decided
  PortClientMaker makePortClient;               // called by CreatePortClient; without it, there is no driver
  std::function<void(const char* kind, const std::string& line)> log;  // called for each line; must not block
  std::shared_ptr<CFenlux> module;                                     // set by init

  // Replaces the directories to monitor, and notifies the module. Any thread.
  void SetPolicy(const std::vector<boost::filesystem::path>& directories) {
    auto newPolicy = std::make_shared<MonitorPolicy>();
    for (const auto& directory : directories) newPolicy->push_back(std::make_shared<Directory>(directory));
    {
      const std::lock_guard lock(mutex);
      policy = std::move(newPolicy);
    }
    if (module) module->NotifyPolicyChanged();
  }

  // CGlobalContext
  std::shared_ptr<CCfg> GetCfg() override { return shared_from_this(); }
  std::shared_ptr<CLog> GetLog() override { return shared_from_this(); }
  std::shared_ptr<CLocale> GetLocale() override { return shared_from_this(); }
  std::shared_ptr<CUtility> GetUtility() override { return shared_from_this(); }
  std::shared_ptr<CNet> GetNet() override { return shared_from_this(); }
  const std::shared_ptr<CRecordService>& GetRecordService() override { return recordService; }
  const std::shared_ptr<CWinWork>& GetWinWork() override { return winWork; }
  std::shared_ptr<CArpMgmt> GetArpMgmt() override { return shared_from_this(); }
  std::shared_ptr<CCfgEx> GetCfgEx() override { return shared_from_this(); }
  std::shared_ptr<CAoArp> GetAoArp() override { return shared_from_this(); }
  void RegisterModule(const std::shared_ptr<CFenlux>& made) override { module = made; }

  // CLog
  void LogAlert(std::uint32_t /*code*/, const std::string& line) override { Write("alert", line); }
  void LogProblem(std::uint32_t /*code*/, const std::string& line) override { Write("problem", line); }
  void LogWarning(std::uint32_t /*code*/, const std::string& line) override { Write("warning", line); }
  void LogNotice(std::uint32_t /*code*/, const std::string& line) override { Write("notice", line); }
  void LogEvent(std::uint32_t /*code*/, const std::string& line) override { Write("event", line); }
  void LogDetail(std::uint32_t /*code*/, const std::string& line) override { Write("detail", line); }

  // CLocale: no translation.
  std::string& TranslateText(std::string& out, const char* text, const char* /*second*/,
                             std::uint32_t /*flags*/) override {
    return out = text;
  }

  // CUtility: narrow text is UTF-8, the driver's texts are UTF-16, and paths stay as the driver writes them.
  bool QueryVersionFlag() override { return false; }
  std::string& ToNarrowString(std::string& out, const std::wstring& text) override {
    return out = boost::locale::conv::utf_to_utf<char>(text);
  }
  std::string& TransformPath(std::string& out, const std::string& path) override { return out = path; }
  std::string& ConvertText(std::string& out, const std::string& message) override { return out = message; }
  std::shared_ptr<CMeasurement>& CreateMeasurement(std::shared_ptr<CMeasurement>& out) override { return out; }
  void CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) override {
    const std::u16string units = boost::locale::conv::utf_to_utf<char16_t>(text);
    auto* field = static_cast<std::uint8_t*>(destination);
    const std::size_t count = std::min<std::size_t>(units.size(), limit / 2);
    for (std::size_t index = 0; index < count; ++index) {
      field[2 * index] = static_cast<std::uint8_t>(units[index] & 0xFF);
      field[2 * index + 1] = static_cast<std::uint8_t>(units[index] >> 8);
    }
  }
  std::wstring& ToWideString(std::wstring& out, const std::string& text) override {
    return out = boost::locale::conv::utf_to_utf<wchar_t>(text);
  }
  std::wstring& ToRecordString(std::wstring& out, const std::wstring& path) override { return out = path; }
  std::shared_ptr<CBuf>& CreateBuffer(std::shared_ptr<CBuf>& out, bool /*first*/, std::uint32_t size,
                                      bool /*last*/) override {
    return out = std::make_shared<DefaultBuffer>(std::size_t{size});
  }
  bool TestPath(const boost::filesystem::path& path) override {
    boost::system::error_code error;
    return boost::filesystem::is_directory(path, error);
  }
  std::shared_ptr<CBuf>& BufferFromBytes(std::shared_ptr<CBuf>& out, const void* bytes, std::uint32_t length) override {
    return out = std::make_shared<DefaultBuffer>(bytes, std::size_t{length});
  }
  void WriteLog(std::uint32_t /*code*/, const std::string& line, std::uint32_t /*category*/) override {
    Write("process", line);
  }

  // CNet: none needed.
  std::shared_ptr<CNetObject>& CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t /*value1*/,
                                            std::uint32_t /*value2*/) override {
    return out;
  }

  // CCfg: registers nothing and measures nothing.
  const std::shared_ptr<CRecordFactory>& GetRecordFactory() override { return recordFactory; }
  const std::shared_ptr<CSpspSettings>& GetSpspSettings() override { return switches; }
  void ReportDriverVersion(std::uint32_t /*kind*/, bool /*current*/, std::uint32_t /*version*/) override {}
  bool IsMeasuringEnabled(std::uint32_t /*first*/, std::uint32_t /*second*/) override { return false; }

  // CCfgEx
  std::uint32_t GetRecordValue1() override { return 0; }
  std::uint32_t GetRecordValue2() override { return 0; }
  std::uint32_t GetPortValue() override { return 0; }
  bool IsEnabled() override { return true; }
  bool GetDriverInterfaceFlag() override { return false; }
  std::shared_ptr<MonitorPolicy>& GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) override {
    const std::lock_guard lock(mutex);
    return out = policy;
  }
  bool IsCacheBypassed() override { return false; }
  bool IsIdentityTextAdded() override { return false; }
  std::uint32_t GetRefreshInterval() override { return 1000; }
  const std::shared_ptr<CBuf>& GetDriverConfigBlock() override { return configBlock; }
  bool GetClientTypeFlag() override { return false; }
  bool GetMonitorObjectFlag() override { return true; }

  // CWinWork: override the process queries with those of the system.
  boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& imageName) override {
    return out = imageName;
  }
  std::uint32_t QueryProcessValue(std::uint32_t /*processId*/, std::uint32_t /*reserved*/) override {
    return kUnknownProcess;
  }
  std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t /*processIdOrPathSource*/,
                                   std::uint32_t /*reserved*/) override {
    return out = std::wstring();
  }
  std::string& GetProcessNarrowText(std::string& out, std::uint32_t /*processId*/,
                                    std::uint32_t /*reserved*/) override {
    return out = std::string();
  }
  std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string& portName,
                                                 const std::shared_ptr<CBuf>& connectContext,
                                                 std::uint32_t maxMessageSize, const NotificationHandler& handler,
                                                 std::uint32_t /*portValue*/) override {
    return out = makePortClient ? makePortClient(portName, connectContext, maxMessageSize, handler) : nullptr;
  }
  std::string& GetIdentityText(std::string& out, const void* /*identity*/) override { return out = std::string(); }
  std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                       const boost::filesystem::path& /*image*/,
                                                       std::uint32_t /*reserved*/) override {
    return out;
  }
  std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                      std::uint32_t /*reserved*/) override {
    return out;
  }

  // CArpMgmt
  std::shared_ptr<CArpRecord>& CreateRecord(std::shared_ptr<CArpRecord>& out, std::uint32_t /*reserved*/) override {
    return out = std::make_shared<DefaultRecord>();
  }

  // CAoArp: CreateRecord made every record, so the cast is safe.
  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override {
    const Decision decision = judge ? judge(static_cast<DefaultRecord&>(*record).event) : Decision::kUndecided;
    return static_cast<std::uint32_t>(decision);
  }

 private:
  struct Directory final : CPolicyObject {
    explicit Directory(boost::filesystem::path directory) : path(std::move(directory)) {}
    boost::filesystem::path GetMonitorPath() override { return path; }
    const boost::filesystem::path path;
  };

  struct Switches final : CSpspSettings {
    std::uint8_t GetSpspFlag1() override { return 0; }
    std::uint8_t GetReservedFlag() override { return 0; }
    std::uint8_t GetSpspFlag2() override { return 0; }
    std::uint8_t GetSpspFlag3() override { return 0; }
    std::uint8_t GetSpspFlag4() override { return 0; }
  };

  void Write(const char* kind, const std::string& line) {
    if (log) {
      log(kind, line);
    } else {
      std::fprintf(stderr, "%s %s\n", kind, line.c_str());
    }
  }

  // Refers to this object without owning it: this object holds the handle.
  const std::shared_ptr<CWinWork> winWork;
  const std::shared_ptr<CRecordService> recordService;
  const std::shared_ptr<CRecordFactory> recordFactory;
  const std::shared_ptr<CSpspSettings> switches = std::make_shared<Switches>();
  const std::shared_ptr<CBuf> configBlock;
  std::mutex mutex;
  std::shared_ptr<MonitorPolicy> policy;  // guarded by mutex
};

}  // namespace fenlux

#endif  // FENLUX_DEFAULT_SERVICES_H
