// A host of fenlux, as small as a complete one can be, for agents to start from.
//
//   minimal-host [MODULE]     MODULE: the module's library; without it, the one beside this program
//
// It has every service that the module asks for, loads the module, lets it connect to a driver (here a stand-in), and
// judges what the driver reports. It ends by itself: with 0 if the driver got every request and verdict it waits for.
//
// Threads.   The module calls a service on several threads at once: the thread that calls init, its own workers, and
//            the delivery threads of the port client. Every service here is therefore either unchanging or locked.
// Owners.    Services, buffers and records pass in shared handles. The module keeps the services while it is loaded,
//            and it stays loaded until the process ends: nothing that a service uses may die before that.
// Blocking.  While a delivery thread is busy, an operation in the kernel stands still. What runs there (CreateBuffer,
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
#include "host/host.h"
#include "kdi/driver_records.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN  // the whole of windows.h makes a macro of SetPort
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
using Clock = std::chrono::steady_clock;
template <class T>
using Ptr = std::shared_ptr<T>;
using U8 = std::uint8_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

void Print(const char* kind, const string& line) { std::printf("%-8s %s\n", kind, line.c_str()); }

// First the driver and the port to it, played in this program. An agent has a port client of its own in this place,
// with the system's port functions behind the five operations.
constexpr U32 kProcess = 4711;  // the only process in this driver's world

// What the driver reports, and the verdict that it has to get; 0: no answer at all.
struct Report {
  U32 code;
  std::u16string path;
  bool oplock;
  U32 verdict;
};

// A record of the driver, seen in a buffer that is at least as large.
template <class Record>
Record& As(CBuf& buffer) {
  if (buffer.GetSize() < sizeof(Record)) throw std::runtime_error("a buffer is too small for its record");
  return *reinterpret_cast<Record*>(buffer.GetData());
}

struct StandInDriver final : CPortClient {
  void Connect() override {
    const bool known = As<records::ConnectContext>(*connectContext).magic.value() == records::kConnectMagic;
    if (!known) throw std::runtime_error("the driver refuses the connection");
  }
  // Every report is delivered on a thread of its own. A port client may be destroyed on a delivery thread, where the
  // module lets go of its last handle, so its destructor must not join them; here the end of the run does.
  void Start() override {
    for (const Report& report : reports) delivery.emplace_back([this, &report] { Deliver(report); });
  }
  void Wait() override {  // the module's opening requests are through
    std::unique_lock lock(mutex);
    waiting = true;
    changed.notify_all();
    changed.wait(lock, [this] { return closed; });
  }
  // Final, and it waits for nobody: it may come from a thread that a delivery is waiting for.
  void Close() override {
    const std::lock_guard lock(mutex);
    closed = true;
    changed.notify_all();
  }
  // The driver's answer goes into `reply`, where the module wants one.
  void Send(const Ptr<CBuf>& request, Ptr<CBuf>& reply, bool) override {
    const auto& header = As<records::RequestHeader>(*request);
    const auto command = static_cast<Command>(header.command.value());
    if (header.magic.value() != records::kRequestMagic) throw std::runtime_error("this is not a request");
    if (command == Command::kDriverVersion && reply) As<records::VersionReply>(*reply).version = 19072701;
    const std::lock_guard lock(mutex);
    if (closed) throw std::runtime_error("the connection is closed");
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
      // Until the handler returns, the answer is the module's duty; from then on it is the port client's.
      const auto reply = handler(message.data(), static_cast<U32>(message.size()));
      if (reply) verdict = As<records::Reply>(*reply).verdict.value();
    } catch (...) {  // there was no memory to answer with, so the port client answers for itself
      verdict = static_cast<U32>(records::Verdict::kUnjudged);
    }
    Print("driver", "code " + std::to_string(report.code) + " got verdict " + std::to_string(verdict));
    const std::lock_guard lock(mutex);
    ++delivered;
    if (verdict == report.verdict) ++correct;
    changed.notify_all();
  }

  // Whether the connection is served, every report delivered, and every awaited request there.
  bool WaitForAll(std::chrono::seconds limit) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [this] { return waiting && delivered == reports.size() && awaited.empty(); });
  }

  const std::vector<Report> reports = {
      {4098, u"C:\\Work\\report.txt", false, 2},
      {4098, u"C:\\Work\\secret.txt", false, 4},
      {4098, u"C:\\Work\\secret.txt", true, 3},  // an oplock break is let through unjudged
      {4113, u"C:\\Work\\tool.exe", false, 0},   // told and not asked
  };
  Ptr<CBuf> connectContext;
  NotificationHandler handler;
  std::vector<std::thread> delivery;
  std::mutex mutex;  // guards what follows
  std::condition_variable changed;
  std::set<Command> awaited = {Command::kDriverVersion, Command::kCommitMonitorObjects, Command::kDriverConfig};
  std::size_t delivered = 0, correct = 0;
  bool waiting = false, closed = false;
};

// Now the services. Buffers are zero-filled: the module writes the fields that a record has and leaves the other bytes
// as they are, and all of them go to the driver. Zeroes never show it old memory, and they end the texts.
struct Buffer final : CBuf {
  explicit Buffer(std::size_t size) : bytes(size) {}
  Buffer(const U8* data, std::size_t size) : bytes(data, data + size) {}
  U8* GetData() override { return bytes.data(); }
  std::size_t GetSize() override { return bytes.size(); }
  std::vector<U8> bytes;
};

// Each line goes to standard output in one call. An agent puts it into a queue instead: a console or a disk that stands
// still would hold up the kernel.
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
struct Measurement final : CMeasurement {
  string& GetResultText(string& out) override { return out = std::to_string((Clock::now() - start) / 1us) + " us"; }
  const Clock::time_point start = Clock::now();
};

struct Utility final : CUtility {
  bool QueryVersionFlag() override { return false; }
  string& ToNarrowString(string& out, const wstring& text) override { return out = utf_to_utf<char>(text); }
  string& TransformPath(string& out, const string& path) override { return out = path; }
  string& ConvertText(string& out, const string& message) override { return out = message; }
  Ptr<CMeasurement>& CreateMeasurement(Ptr<CMeasurement>& out) override { return out = make_shared<Measurement>(); }
  void CopyToField(void* destination, U32 limit, const wstring& text) override {
    const std::u16string units = utf_to_utf<char16_t>(text).substr(0, limit / 2);  // what does not fit is cut
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

// The register of driver interfaces. This host keeps none, and has no use for what it is told.
struct KdiRecord final : CKdiRecord {
  void SetName(const string&) override {}
  void SetPortValue(U32) override {}
  void SetValue1(U32) override {}
  void SetValue2(U32) override {}
};
struct RecordRegistration final : CRecordRegistration {
  void Withdraw() override {}
};
struct KdiRegister final : CRecordFactory, CRecordService {
  Ptr<CKdiRecord>& CreateRecord(Ptr<CKdiRecord>& out) override { return out = make_shared<KdiRecord>(); }
  Ptr<CRecordRegistration> Register(const Ptr<CKdiRecord>&) override { return make_shared<RecordRegistration>(); }
};
struct NetObject final : CNetObject {
  Ptr<CNetObject>& Release(Ptr<CNetObject>& out, U32) override { return out; }
};
struct Net final : CNet {
  Ptr<CNetObject>& CreateObject(Ptr<CNetObject>& out, U32, U32) override { return out = make_shared<NetObject>(); }
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

// Both configuration services. The module reads handles that are given by reference after the call, so what they refer
// to must stay. Here nothing changes; an agent whose policy changes puts a new list in the old one's place, under a
// lock, and then calls CFenlux::NotifyPolicyChanged.
struct Configuration final : CCfg, CCfgEx {
  const Ptr<CRecordFactory>& GetRecordFactory() override { return recordFactory; }
  const Ptr<CSpspSettings>& GetSpspSettings() override { return spspSettings; }
  void ReportDriverVersion(U32, bool, U32 version) override { Print("host", "driver " + std::to_string(version)); }
  bool IsMeasuringEnabled(U32, U32) override { return true; }  // a log line each time: an agent measures on demand
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

  const Ptr<CRecordFactory> recordFactory = make_shared<KdiRegister>();
  const Ptr<CSpspSettings> spspSettings = make_shared<SpspSettings>();
  const Ptr<MonitorPolicy> policy = make_shared<MonitorPolicy>(MonitorPolicy{make_shared<PolicyObject>()});
  const Ptr<CBuf> configBlock = make_shared<Buffer>(4);
};

// One thread fills, judges and drops a record, so records need no lock. What the judge does not look at is not kept.
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

// Whatever comes back through the contract was made by this host, so its class is known.
struct Judge final : CAoArp {
  U32 Evaluate(const Ptr<CArpRecord>& record) override {
    return static_cast<EventRecord&>(*record).path.find(L"secret") == wstring::npos ? 1 : 3;  // verdict 2 or 4
  }
};

// Questions about processes, which an agent puts to the operating system; and the maker of port clients.
struct WinWork final : CWinWork {
  fs::path& SystemPath(fs::path& out, const string& image) override { return out = fs::path("C:\\Windows") / image; }
  U32 QueryProcessValue(U32 processId, U32) override { return processId == kProcess ? 1 : 0xFFFFFFFF; }
  wstring& GetProcessWideText(wstring& out, U32 id, U32) override { return out = id == kProcess ? L"writer.exe" : L""; }
  string& GetProcessNarrowText(string& out, U32, U32) override { return out = ""; }
  Ptr<CPortClient>& CreatePortClient(Ptr<CPortClient>& out, const string& name, const Ptr<CBuf>& connectContext, U32,
                                     const NotificationHandler& handler, U32) override {
    if (driver->handler) throw std::runtime_error("the stand-in is connected once");
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
  const Ptr<CRecordService> recordService = make_shared<KdiRegister>();
  const Ptr<WinWork> work = make_shared<WinWork>();
  const Ptr<CWinWork> winWork = work;  // as the contract hands it out, by reference
  const Ptr<RecordMaker> recordMaker = make_shared<RecordMaker>();
  const Ptr<Judge> judge = make_shared<Judge>();
  Ptr<CFenlux> module;
};

// The library stays loaded: the module's threads are never joined and run in its code until the process ends.
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

int Run(const fs::path& moduleFile) {
  const auto host = make_shared<Context>();
  const auto driver = host->work->driver;
  const Ptr<CGlobalContext> context = host;
  LoadModule(moduleFile)(&context);  // throws what is missing, across the library boundary
  host->module->StartWork();
  const bool complete = driver->WaitForAll(10s);
  host->module->StopWork(true);  // the module would connect again in five seconds; the process ends before
  if (!complete) throw std::runtime_error("a request or a verdict is missing after ten seconds");
  for (std::thread& thread : driver->delivery) thread.join();
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
  std::_Exit(code);  // the module's threads still run, and nothing that they use may be destroyed before they are gone
}
