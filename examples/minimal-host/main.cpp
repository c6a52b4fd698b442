// A complete fenlux host in one file, for agents to start from.
//
//   minimal-host [MODULE [CAPTURE]]     MODULE: the module's library; default: the one next to this program
//                                       CAPTURE: a file to record the driver's port to; default: none
//
// It provides every service that the module needs, most of them the defaults of fenlux/default_services.h, loads the
// module, lets it connect to a stand-in driver, and judges what the driver reports. It exits with 0 if the driver got
// every request and verdict that it expects.
//
// Threads.   The module calls services concurrently, from the thread that calls init, its own workers, and the port
//            client's delivery threads. So every service here is either immutable or locked.
// Ownership. Services, buffers and records are passed in shared handles. The module keeps the services as long as it is
//            loaded, which is until the process ends: nothing that a service uses may be destroyed before that.
// Blocking.  While a delivery thread is busy, an operation is blocked in the kernel. What runs there (CreateBuffer,
//            CreateRecord, Evaluate, the log) must not wait for disks, networks or other events.
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "capture/recording_port_client.h"
#include "fenlux/abi.h"  // an error here means that this host is not built like the module
#include "fenlux/default_services.h"
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
using records::Command;
using std::make_shared, std::string;
template <class T>
using Ptr = std::shared_ptr<T>;
using U8 = std::uint8_t;
using U32 = std::uint32_t;

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
  // Never waits: the caller may be a thread that a delivery is waiting for.
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

// The services. Most are the defaults; this host adds a judge, a driver, and a single process.
struct Services final : DefaultServices {
  explicit Services(const Ptr<capture::Recorder>& recorder) {  // null: nothing is recorded
    log = Print;  // an agent puts lines into a queue: a blocked console or disk would block the kernel's operations
    judge = [recorder](const Event& event) {
      const bool secret = event.path.find(L"secret") != std::wstring::npos;
      const Decision decision = secret ? Decision::kVerdict4 : Decision::kVerdict2;
      if (recorder)
        recorder->AddJudgement({static_cast<U32>(decision), secret ? "secrets are refused" : "default", 0us});
      return decision;
    };
    makePortClient = [this, recorder](const string& portName, const Ptr<CBuf>& connectContext, U32,
                                      const NotificationHandler& handler) {
      if (driver->handler) throw std::runtime_error("the stand-in driver accepts one connection");
      Print("host", "connecting to " + portName);
      // Without a recorder, this is the port client that the function makes.
      return capture::RecordPort(recorder, connectContext, handler, [&](const NotificationHandler& recorded) {
        driver->connectContext = connectContext;
        driver->handler = recorded;
        return driver;
      });
    };
    SetPolicy({fs::current_path()});  // an agent calls it again when the policy changes
  }
  void ReportDriverVersion(U32, bool, U32 version) override { Print("host", "driver " + std::to_string(version)); }
  // Process queries. An agent asks the operating system.
  U32 QueryProcessValue(U32 processId, U32) override { return processId == kProcess ? 1 : kUnknownProcess; }
  std::wstring& GetProcessWideText(std::wstring& out, U32 processId, U32) override {
    return out = processId == kProcess ? L"writer.exe" : L"";
  }
  Ptr<ProcessIdSet>& GetRunningProcessIds(Ptr<ProcessIdSet>& out, U32) override {
    return out = make_shared<ProcessIdSet>(ProcessIdSet{kProcess});
  }

  const Ptr<StandInDriver> driver = make_shared<StandInDriver>();
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

// The order of operations. An agent serves until it is told to stop; this host waits for the last report instead.
int Run(const fs::path& moduleFile, const fs::path& captureFile) {
  const auto recorder = captureFile.empty() ? nullptr : make_shared<capture::Recorder>();
  if (recorder) {
    capture::RecordingSettings settings;
    settings.file = captureFile;
    recorder->Start(settings);
    recorder->SetFacts(R"({"client_type":1,"monitor_object_type":1})");  // what this host gives the module
  }
  const auto host = make_shared<Services>(recorder);  // 1. every service works before the module is loaded
  const auto driver = host->driver;
  const Ptr<CGlobalContext> context = host;
  LoadModule(moduleFile)(&context);  // 2. init: calls RegisterModule, or throws if a service is missing
  host->module->StartWork();         // 3. once; from here on the module calls the services on its own threads
  const bool complete = driver->WaitForAll(10s);
  if (recorder) recorder->AddCall(R"({"operation":"stop","arguments":{"clear":"true"}})");  // what follows
  host->module->StopWork(true);  // 4. it would reconnect in five seconds; the process ends before that
  if (recorder) recorder->Stop();
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
    code = agent::Run(argc > 1 ? agent::fs::absolute(argv[1]) : beside, argc > 2 ? argv[2] : "");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "minimal-host: %s\n", error.what());
  }
  std::fflush(stdout);
  std::_Exit(code);  // without destructors: the module's threads still run and use the services
}
