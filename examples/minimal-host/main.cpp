// A complete fenlux host in one file, as small as it can be, for agents to start from.
//
//   minimal-host [MODULE]     MODULE: the module's library; default: the one next to this program
//
// It provides every service that the module needs, loads the module, lets it connect to a stand-in driver, and judges
// what the driver reports. It exits with 0 if the driver got every request and verdict that it expects.
//
// Threads.   The module calls services concurrently, from the thread that calls init, its own workers, and the port
//            client's delivery threads. So every service here is either immutable or locked.
// Ownership. Services, buffers and records are passed in shared handles. The module keeps the services as long as it is
//            loaded, which is until the process ends: nothing that a service uses may be destroyed before that.
// Blocking.  While a delivery thread is busy, an operation is blocked in the kernel. What runs there (CreateBuffer,
//            CreateRecord, Evaluate, the log) must not wait for disks, networks or other events.
#include <boost/filesystem/operations.hpp>
#include <boost/locale/encoding_utf.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "core/fenlux.h"
#include "fenlux/abi.h"  // an error here means that this host is not built like the module
#include "host/host.h"
#include "kdi/driver_records.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN  // otherwise windows.h defines SetPort as a macro
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace agent {

using namespace fenlux;
using namespace std::chrono_literals;
namespace fs = boost::filesystem;
using boost::locale::conv::utf_to_utf;
using records::Command;
using std::make_shared, std::string, std::wstring;
template <class T>
using Ptr = std::shared_ptr<T>;
using U8 = std::uint8_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

void Print(const char* kind, const string& line) { std::printf("%-8s %s\n", kind, line.c_str()); }

// The driver and its port. An agent has a real port client here instead, which implements the five operations with the
// system's port functions.
constexpr U32 kProcess = 4711;  // the only process that this driver knows

// What the driver reports, and the verdict it expects; 0 means no answer.
struct Report {
  U32 code;
  std::u16string path;
  bool oplock;
  U32 verdict;
};

// The buffer's bytes as a driver record; the buffer must be at least as large.
template <class Record>
Record& As(CBuf& buffer) {
  if (buffer.GetSize() < sizeof(Record)) throw std::runtime_error("buffer too small for its record");
  return *reinterpret_cast<Record*>(buffer.GetData());
}

struct StandInDriver final : CPortClient {
  void Connect() override {
    const bool known = As<records::ConnectContext>(*connectContext).magic.value() == records::kConnectMagic;
    if (!known) throw std::runtime_error("driver refuses the connection");
  }
  // Delivers each report on its own thread. The module may release its last handle of a port client on a delivery
  // thread, so the destructor must not join them; Run does.
  void Start() override {
    for (const Report& report : reports) delivery.emplace_back([this, &report] { Deliver(report); });
  }
  void Wait() override {  // the module has sent its opening requests
    std::unique_lock lock(mutex);
    waiting = true;
    changed.notify_all();
    changed.wait(lock, [this] { return closed; });
  }
  // Waits for nothing: the caller may be a thread that a delivery waits for.
  void Close() override {
    const std::lock_guard lock(mutex);
    closed = true;
    changed.notify_all();
  }
  // Writes the driver's answer into `reply` if the module expects one.
  void Send(const Ptr<CBuf>& request, Ptr<CBuf>& reply, bool) override {
    const auto& header = As<records::RequestHeader>(*request);
    const auto command = static_cast<Command>(header.command.value());
    if (header.magic.value() != records::kRequestMagic) throw std::runtime_error("not a request");
    if (command == Command::kDriverVersion && reply)
      As<records::VersionReply>(*reply).version = records::kModuleVersion;
    const std::lock_guard lock(mutex);
    if (closed) throw std::runtime_error("connection closed");
    awaited.erase(command);
    changed.notify_all();
  }

  void Deliver(const Report& report) {
    const std::size_t pathSize = (report.path.size() + 1) * 2;  // with its NUL
    std::vector<U8> message(sizeof(records::Notification) + pathSize);
    auto& fixed = *reinterpret_cast<records::Notification*>(message.data());
    fixed.processId = kProcess;
    fixed.code = report.code;
    fixed.oplock = report.oplock ? 1 : 0;
    fixed.item1Size = static_cast<U32>(pathSize);
    std::memcpy(&fixed + 1, report.path.c_str(), pathSize);

    U32 verdict = 0;
    try {
      // Until the handler returns, the module must answer the driver; from then on the port client must.
      const auto reply = handler(message.data(), static_cast<U32>(message.size()));
      if (reply) verdict = As<records::Reply>(*reply).verdict.value();
    } catch (...) {  // the module could not make a reply, so the port client answers itself
      verdict = static_cast<U32>(records::Verdict::kUnjudged);
    }
    Print("driver", "code " + std::to_string(report.code) + " got verdict " + std::to_string(verdict));
    const std::lock_guard lock(mutex);
    ++delivered;
    if (verdict == report.verdict) ++correct;
    changed.notify_all();
  }

  // Returns whether the module serves the connection, and every report and awaited request has arrived.
  bool WaitForAll(std::chrono::seconds limit) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [this] { return waiting && delivered == reports.size() && awaited.empty(); });
  }

  const std::vector<Report> reports = {
      {4098, u"C:\\Work\\report.txt", false, 2},
      {4098, u"C:\\Work\\secret.txt", false, 4},
      {4098, u"C:\\Work\\secret.txt", true, 3},  // an oplock break passes without judgement
      {4113, u"C:\\Work\\tool.exe", false, 0},   // reported only: no answer expected
  };
  Ptr<CBuf> connectContext;
  NotificationHandler handler;
  std::vector<std::thread> delivery;
  std::mutex mutex;  // guards the members below
  std::condition_variable changed;
  std::set<Command> awaited = {Command::kDriverVersion, Command::kCommitMonitorObjects, Command::kDriverConfig};
  std::size_t delivered = 0, correct = 0;
  bool waiting = false, closed = false;
};

// The services. Buffers are zero-filled: the module writes only a record's fields, but every byte goes to the driver.
// Zeros leak no old memory and terminate texts.
struct Buffer final : CBuf {
  explicit Buffer(std::size_t size) : bytes(size) {}
  Buffer(const U8* data, std::size_t size) : bytes(data, data + size) {}
  U8* GetData() override { return bytes.data(); }
  std::size_t GetSize() override { return bytes.size(); }
  std::vector<U8> bytes;
};

// Writes each line to standard output in one call. An agent puts it into a queue instead: a blocked console or
// disk would block the kernel's operations.
struct Log final : CLog {
  void LogAlert(U32, const string& line) override { Print("alert", line); }
  void LogProblem(U32, const string& line) override { Print("problem", line); }
  void LogWarning(U32, const string& line) override { Print("warning", line); }
  void LogNotice(U32, const string& line) override { Print("notice", line); }
  void LogEvent(U32, const string& line) override { Print("event", line); }
  void LogDetail(U32, const string& line) override { Print("detail", line); }
};

struct Locale final : CLocale {
  string& TranslateText(string& out, const char* text, const char*, U32) override { return out = text; }
};

struct Utility final : CUtility {
  bool QueryVersionFlag() override { return false; }
  string& ToNarrowString(string& out, const wstring& text) override { return out = utf_to_utf<char>(text); }
  string& TransformPath(string& out, const string& path) override { return out = path; }
  string& ConvertText(string& out, const string& message) override { return out = message; }
  Ptr<CMeasurement>& CreateMeasurement(Ptr<CMeasurement>& out) override { return out; }  // null: measures nothing
  void CopyToField(void* destination, U32 limit, const wstring& text) override {
    const std::u16string units = utf_to_utf<char16_t>(text).substr(0, limit / 2);  // truncates
    std::memcpy(destination, units.data(), units.size() * 2);
  }
  wstring& ToWideString(wstring& out, const string& text) override { return out = utf_to_utf<wchar_t>(text); }
  wstring& ToRecordString(wstring& out, const wstring& path) override { return out = path; }
  Ptr<CBuf>& CreateBuffer(Ptr<CBuf>& out, bool, U32 size, bool) override { return out = make_shared<Buffer>(size); }
  bool TestPath(const fs::path& path) override {
    boost::system::error_code error;
    return fs::is_directory(path, error);
  }
  Ptr<CBuf>& BufferFromBytes(Ptr<CBuf>& out, const void* bytes, U32 length) override {
    return out = make_shared<Buffer>(static_cast<const U8*>(bytes), length);
  }
  void WriteLog(U32, const string& line, U32) override { Print("process", line); }
};

// Network objects and registration records are for the host alone. This one has no use for them and returns null.
struct Net final : CNet {
  Ptr<CNetObject>& CreateObject(Ptr<CNetObject>& out, U32, U32) override { return out; }
};
struct SpspSettings final : CSpspSettings {
  U8 GetSpspFlag1() override { return 1; }
  U8 GetReservedFlag() override { return 0; }
  U8 GetSpspFlag2() override { return 1; }
  U8 GetSpspFlag3() override { return 1; }
  U8 GetSpspFlag4() override { return 1; }
};
struct PolicyObject final : CPolicyObject {
  fs::path GetMonitorPath() override { return fs::current_path(); }
};

// Both configuration services. Some operations return a handle by reference, which the module reads after the call: the
// handle must stay as it is. Nothing changes here; an agent replaces the policy's handle under a lock and then calls
// CFenlux::NotifyPolicyChanged.
struct Configuration final : CCfg, CCfgEx {
  const Ptr<CRecordFactory>& GetRecordFactory() override { return recordFactory; }
  const Ptr<CSpspSettings>& GetSpspSettings() override { return spspSettings; }
  void ReportDriverVersion(U32, bool, U32 version) override { Print("host", "driver " + std::to_string(version)); }
  bool IsMeasuringEnabled(U32, U32) override { return false; }
  U32 GetRecordValue1() override { return 0; }
  U32 GetRecordValue2() override { return 0; }
  U32 GetPortValue() override { return 1; }
  bool IsEnabled() override { return true; }
  bool GetDriverInterfaceFlag() override { return false; }
  Ptr<MonitorPolicy>& GetMonitorPolicy(Ptr<MonitorPolicy>& out) override { return out = policy; }
  bool IsCacheBypassed() override { return false; }
  bool IsIdentityTextAdded() override { return false; }
  U32 GetRefreshInterval() override { return 1000; }
  const Ptr<CBuf>& GetDriverConfigBlock() override { return configBlock; }
  bool GetClientTypeFlag() override { return false; }
  bool GetMonitorObjectFlag() override { return true; }

  const Ptr<CRecordFactory> recordFactory;  // null: registers nothing
  const Ptr<CSpspSettings> spspSettings = make_shared<SpspSettings>();
  const Ptr<MonitorPolicy> policy = make_shared<MonitorPolicy>(MonitorPolicy{make_shared<PolicyObject>()});
  const Ptr<CBuf> configBlock = make_shared<Buffer>(4);
};

// One thread fills, judges and drops a record, so it needs no lock. It stores only what the judge uses.
struct EventProcess final : CArpProcess {
  U64 GetProcessId() override { return id; }
  void SetProcessId(U64 processId) override { id = processId; }
  void SetSessionId(U32) override {}
  void SetNarrowInfo(const string&) override {}
  void SetIdentityText(const string&) override {}
  U64 id = 0;
};
struct EventRecord final : CArpRecord {
  const Ptr<CArpProcess>& ProcessPart() override { return process; }
  void Mark() override {}
  wstring& GetPath(wstring& out) override { return out = path; }
  Ptr<CBuf> GetContextData() override { return nullptr; }  // this judge never decides 5
  U32 GetPathSource() override { return static_cast<U32>(process->GetProcessId()); }
  string& Describe(string& out) override { return out = utf_to_utf<char>(path); }
  void SetPath(const wstring& text) override { path = text; }
  void SetSecondPath(const wstring&) override {}
  void SetEventType(U32) override {}
  void SetCategory(U32) override {}
  void SetSource(U32) override {}
  void SetExtraData(const Ptr<CBuf>&) override {}
  void SetPort(std::uint16_t) override {}
  void SetIpv6(bool) override {}
  void SetIpv4Address(U32) override {}
  void SetIpv6Address(const std::array<U8, 16>&) override {}
  void SetRemoteFlag(bool) override {}
  void SetWord0(U64) override {}
  void SetWord1(U64) override {}
  void SetWord2(U64) override {}
  void SetWord3(U64) override {}
  void SetValueA(U32) override {}
  void SetValueB(U32) override {}
  void SetWideInfo(const wstring&) override {}
  const Ptr<CArpProcess> process = make_shared<EventProcess>();
  wstring path;
};
struct RecordMaker final : CArpMgmt {
  Ptr<CArpRecord>& CreateRecord(Ptr<CArpRecord>& out, U32) override { return out = make_shared<EventRecord>(); }
};

// This host made every record, so the cast is safe.
struct Judge final : CAoArp {
  U32 Evaluate(const Ptr<CArpRecord>& record) override {
    return static_cast<EventRecord&>(*record).path.find(L"secret") == wstring::npos ? 1 : 3;  // verdict 2 or 4
  }
};

// Process queries, which an agent passes to the operating system, and the factory of port clients.
struct WinWork final : CWinWork {
  fs::path& SystemPath(fs::path& out, const string& image) override { return out = fs::path("C:\\Windows") / image; }
  U32 QueryProcessValue(U32 processId, U32) override { return processId == kProcess ? 1 : 0xFFFFFFFF; }
  wstring& GetProcessWideText(wstring& out, U32 id, U32) override { return out = id == kProcess ? L"writer.exe" : L""; }
  string& GetProcessNarrowText(string& out, U32, U32) override { return out = ""; }
  Ptr<CPortClient>& CreatePortClient(Ptr<CPortClient>& out, const string& name, const Ptr<CBuf>& connectContext, U32,
                                     const NotificationHandler& handler, U32) override {
    if (driver->handler) throw std::runtime_error("the stand-in driver accepts one connection");
    Print("host", "connecting to " + name);
    driver->connectContext = connectContext;
    driver->handler = handler;
    return out = driver;
  }
  string& GetIdentityText(string& out, const void*) override { return out = ""; }
  Ptr<ProcessIdList>& FindProcessesByImage(Ptr<ProcessIdList>& out, const fs::path&, U32) override { return out; }
  Ptr<ProcessIdSet>& GetRunningProcessIds(Ptr<ProcessIdSet>& out, U32) override {
    return out = make_shared<ProcessIdSet>(ProcessIdSet{kProcess});
  }
  const Ptr<StandInDriver> driver = make_shared<StandInDriver>();
};

// The service locator.
struct Context final : CGlobalContext {
  Ptr<CCfg> GetCfg() override { return configuration; }
  Ptr<CLog> GetLog() override { return log; }
  Ptr<CLocale> GetLocale() override { return locale; }
  Ptr<CUtility> GetUtility() override { return utility; }
  Ptr<CNet> GetNet() override { return net; }
  const Ptr<CRecordService>& GetRecordService() override { return recordService; }
  const Ptr<CWinWork>& GetWinWork() override { return winWork; }
  Ptr<CArpMgmt> GetArpMgmt() override { return recordMaker; }
  Ptr<CCfgEx> GetCfgEx() override { return configuration; }
  Ptr<CAoArp> GetAoArp() override { return judge; }
  void RegisterModule(const Ptr<CFenlux>& made) override { module = made; }  // inside init

  const Ptr<Configuration> configuration = make_shared<Configuration>();
  const Ptr<Log> log = make_shared<Log>();
  const Ptr<Locale> locale = make_shared<Locale>();
  const Ptr<Utility> utility = make_shared<Utility>();
  const Ptr<Net> net = make_shared<Net>();
  const Ptr<CRecordService> recordService;
  const Ptr<WinWork> work = make_shared<WinWork>();
  const Ptr<CWinWork> winWork = work;  // the handle that the contract returns by reference
  const Ptr<RecordMaker> recordMaker = make_shared<RecordMaker>();
  const Ptr<Judge> judge = make_shared<Judge>();
  Ptr<CFenlux> module;
};

// Never unloaded: the module's threads are never joined and run its code until the process ends.
decltype(&init) LoadModule(const fs::path& file) {
#ifdef _WIN32
  const HMODULE library = LoadLibraryW(file.c_str());
  void* const symbol = library == nullptr ? nullptr : reinterpret_cast<void*>(GetProcAddress(library, "init"));
#else
  void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* const symbol = library == nullptr ? nullptr : dlsym(library, "init");
#endif
  if (symbol == nullptr) throw std::runtime_error(file.string() + " cannot be loaded or has no init");
  return reinterpret_cast<decltype(&init)>(symbol);
}

// The order of operations. An agent serves until it is told to stop, where this waits for the last report.
int Run(const fs::path& moduleFile) {
  const auto host = make_shared<Context>();  // 1. every service works before the module is loaded
  const auto driver = host->work->driver;
  const Ptr<CGlobalContext> context = host;
  LoadModule(moduleFile)(&context);  // 2. init: calls RegisterModule, or throws if a service is missing
  host->module->StartWork();         // 3. once; from here on the module calls the services on its own threads
  const bool complete = driver->WaitForAll(10s);
  host->module->StopWork(true);  // 4. it would reconnect in five seconds; the process ends before that
  if (!complete) throw std::runtime_error("timed out waiting for a request or a verdict");
  for (std::thread& thread : driver->delivery) thread.join();  // 5. no handler call is left; main exits
  Print("host", std::to_string(driver->correct) + " of " + std::to_string(driver->delivered) + " verdicts as expected");
  return driver->correct == driver->delivered ? 0 : 1;
}

}  // namespace agent

int main(int argc, char** argv) {
  int code = 1;
  try {
    const auto beside = agent::fs::absolute(argv[0]).parent_path() / MODULE_NAME;
    code = agent::Run(argc > 1 ? agent::fs::absolute(argv[1]) : beside);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "minimal-host: %s\n", error.what());
  }
  std::fflush(stdout);
  std::_Exit(code);  // without destructors: the module's threads still run and use the services
}
