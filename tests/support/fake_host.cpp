// Every operation of every interface: through the gate first, then what the settings say.
#include "tests/support/fake_host.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstring>
#include <set>
#include <utility>

#include "kdi/driver_records.h"

namespace fenlux::testing {
namespace {

using CorePtr = std::shared_ptr<HostCore>;

std::uint32_t ReadU32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void WriteU32(std::uint8_t* bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::string HexBytes(const std::uint8_t* bytes, std::size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < size; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 15];
  }
  return out;
}

// UTF-8 or ASCII in, one wchar_t per code point (or unit pair) out: enough for the texts of the tests.
std::wstring Widen(const std::string& text) {
  std::wstring out;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t code = length == 1 ? lead : lead & (0xFFu >> (length + 1));
    for (std::size_t k = 1; k < length && i + k < text.size(); ++k) {
      code = code << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3Fu);
    }
    i += length;
    if (sizeof(wchar_t) == 2 && code >= 0x10000) {
      out += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
      out += static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      out += static_cast<wchar_t>(code);
    }
  }
  return out;
}

std::uint32_t CommandOf(const std::shared_ptr<CBuf>& request) {
  const auto* const fake = dynamic_cast<const FakeBuf*>(request.get());
  return fake != nullptr && fake->size() >= 12 ? ReadU32(fake->data() + 8) : 0;
}

// ---------------------------------------------------------------- log, locale

class FakeLog final : public CLog {
 public:
  explicit FakeLog(CorePtr hostCore) : core(std::move(hostCore)) {}
  void LogAlert(std::uint32_t code, const std::string& line) override { Write("CLog::LogAlert", code, line); }
  void LogProblem(std::uint32_t code, const std::string& line) override { Write("CLog::LogProblem", code, line); }
  void LogWarning(std::uint32_t code, const std::string& line) override { Write("CLog::LogWarning", code, line); }
  void LogNotice(std::uint32_t code, const std::string& line) override { Write("CLog::LogNotice", code, line); }
  void LogEvent(std::uint32_t code, const std::string& line) override { Write("CLog::LogEvent", code, line); }
  void LogDetail(std::uint32_t code, const std::string& line) override { Write("CLog::LogDetail", code, line); }

 private:
  void Write(const char* operation, std::uint32_t code, const std::string& line) {
    core->gate.Pass(operation, Hex{code}, line);
  }
  CorePtr core;
};

class FakeLocale final : public CLocale {
 public:
  explicit FakeLocale(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::string& TranslateText(std::string& out, const char* text, const char* second, std::uint32_t flags) override {
    core->gate.Pass("CLocale::TranslateText", text, second, flags);
    const auto& translate = core->settings.translate;
    if (translate) {
      out = translate(text);
    } else {
      out = text;
    }
    return out;
  }

 private:
  CorePtr core;
};

// ---------------------------------------------------------------- utility

class FakeMeasurement final : public CMeasurement {
 public:
  explicit FakeMeasurement(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::string& GetResultText(std::string& out) override {
    core->gate.Pass("CMeasurement::GetResultText");
    out = core->settings.measured;
    return out;
  }

 private:
  CorePtr core;
};

class FakeUtility final : public CUtility {
 public:
  explicit FakeUtility(CorePtr hostCore) : core(std::move(hostCore)) {}

  bool QueryVersionFlag() override {
    core->gate.Pass("CUtility::QueryVersionFlag");
    return core->settings.versionFlag;
  }
  std::string& ToNarrowString(std::string& out, const std::wstring& text) override {
    core->gate.Pass("CUtility::ToNarrowString", text);
    out = Display(text);
    return out;
  }
  std::string& TransformPath(std::string& out, const std::string& path) override {
    core->gate.Pass("CUtility::TransformPath", path);
    out = path;
    return out;
  }
  std::string& ConvertText(std::string& out, const std::string& message) override {
    core->gate.Pass("CUtility::ConvertText", message);
    out = "<" + message + ">";
    return out;
  }
  std::shared_ptr<CMeasurement>& CreateMeasurement(std::shared_ptr<CMeasurement>& out) override {
    out.reset();
    if (core->gate.Pass("CUtility::CreateMeasurement")) out = std::make_shared<FakeMeasurement>(core);
    return out;
  }
  // Little-endian UTF-16 units and, where there is room, a NUL; the rest of the field is left alone.
  void CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) override {
    core->gate.Pass("CUtility::CopyToField", limit, text);
    auto* const bytes = static_cast<std::uint8_t*>(destination);
    std::size_t at = 0;
    const auto put = [&](std::uint32_t unit) {
      if (at + 2 > limit) return;
      bytes[at++] = static_cast<std::uint8_t>(unit);
      bytes[at++] = static_cast<std::uint8_t>(unit >> 8);
    };
    for (const wchar_t wide : text) {
      const auto code = static_cast<std::uint32_t>(wide);
      if (code >= 0x10000) {
        put(0xD800 + ((code - 0x10000) >> 10));
        put(0xDC00 + ((code - 0x10000) & 0x3FF));
      } else {
        put(code);
      }
    }
    put(0);
  }
  std::wstring& ToWideString(std::wstring& out, const std::string& text) override {
    core->gate.Pass("CUtility::ToWideString", text);
    out = Widen(text);
    return out;
  }
  std::wstring& ToRecordString(std::wstring& out, const std::wstring& path) override {
    core->gate.Pass("CUtility::ToRecordString", path);
    const auto& convert = core->settings.toRecord;
    if (convert) {
      out = convert(path);
    } else {
      out = path;
    }
    return out;
  }
  std::shared_ptr<CBuf>& CreateBuffer(std::shared_ptr<CBuf>& out, bool first, std::uint32_t size, bool last) override {
    out.reset();
    if (core->gate.Pass("CUtility::CreateBuffer", first, size, last)) {
      const auto& given = core->settings.givenSize;
      out = std::make_shared<FakeBuf>(core, given ? given(size) : size);
    }
    return out;
  }
  bool TestPath(const boost::filesystem::path& path) override {
    core->gate.Pass("CUtility::TestPath", path);
    const auto& test = core->settings.testPath;
    return test ? test(path) : boost::filesystem::is_directory(path);
  }
  std::shared_ptr<CBuf>& BufferFromBytes(std::shared_ptr<CBuf>& out, const void* bytes, std::uint32_t length) override {
    out.reset();
    if (core->gate.Pass("CUtility::BufferFromBytes", length)) {
      const auto* const first = static_cast<const std::uint8_t*>(bytes);
      out = std::make_shared<FakeBuf>(core, Bytes(first, first + length));
    }
    return out;
  }
  void WriteLog(std::uint32_t code, const std::string& line, std::uint32_t category) override {
    core->gate.Pass("CUtility::WriteLog", Hex{code}, line, category);
  }

 private:
  CorePtr core;
};

// ---------------------------------------------------------------- configuration

class FakeSpspSettings final : public CSpspSettings {
 public:
  explicit FakeSpspSettings(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::uint8_t GetSpspFlag1() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag1");
    return core->settings.spsp1;
  }
  std::uint8_t GetReservedFlag() override {
    core->gate.Pass("CSpspSettings::GetReservedFlag");
    return 0xEE;
  }
  std::uint8_t GetSpspFlag2() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag2");
    return core->settings.spsp2;
  }
  std::uint8_t GetSpspFlag3() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag3");
    return core->settings.spsp3;
  }
  std::uint8_t GetSpspFlag4() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag4");
    return core->settings.spsp4;
  }

 private:
  CorePtr core;
};

class FakeKdiRecord final : public CKdiRecord {
 public:
  explicit FakeKdiRecord(CorePtr hostCore) : core(std::move(hostCore)) {}
  void SetName(const std::string& name) override { core->gate.Pass("CKdiRecord::SetName", name); }
  void SetPortValue(std::uint32_t value) override { core->gate.Pass("CKdiRecord::SetPortValue", value); }
  void SetValue1(std::uint32_t value) override { core->gate.Pass("CKdiRecord::SetValue1", value); }
  void SetValue2(std::uint32_t value) override { core->gate.Pass("CKdiRecord::SetValue2", value); }

 private:
  CorePtr core;
};

class FakeRecordFactory final : public CRecordFactory {
 public:
  explicit FakeRecordFactory(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CKdiRecord>& CreateRecord(std::shared_ptr<CKdiRecord>& out) override {
    out.reset();
    if (core->gate.Pass("CRecordFactory::CreateRecord")) out = std::make_shared<FakeKdiRecord>(core);
    return out;
  }

 private:
  CorePtr core;
};

class FakeRecordRegistration final : public CRecordRegistration {
 public:
  explicit FakeRecordRegistration(CorePtr hostCore) : core(std::move(hostCore)) {}
  void Withdraw() override { core->gate.Pass("CRecordRegistration::Withdraw"); }

 private:
  CorePtr core;
};

class FakeRecordService final : public CRecordService {
 public:
  explicit FakeRecordService(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CRecordRegistration> Register(const std::shared_ptr<CKdiRecord>& record) override {
    if (!core->gate.Pass("CRecordService::Register", record ? "record" : "nothing")) return {};
    return std::make_shared<FakeRecordRegistration>(core);
  }

 private:
  CorePtr core;
};

class FakeCfg final : public CCfg {
 public:
  explicit FakeCfg(const CorePtr& hostCore)
      : core(hostCore),
        factory(std::make_shared<FakeRecordFactory>(hostCore)),
        settings(std::make_shared<FakeSpspSettings>(hostCore)) {}
  const std::shared_ptr<CRecordFactory>& GetRecordFactory() override {
    return core->gate.Pass("CCfg::GetRecordFactory") ? factory : noFactory;
  }
  const std::shared_ptr<CSpspSettings>& GetSpspSettings() override {
    return core->gate.Pass("CCfg::GetSpspSettings") ? settings : noSettings;
  }
  void ReportDriverVersion(std::uint32_t kind, bool current, std::uint32_t version) override {
    core->gate.Pass("CCfg::ReportDriverVersion", kind, current, version);
  }
  bool IsMeasuringEnabled(std::uint32_t first, std::uint32_t second) override {
    core->gate.Pass("CCfg::IsMeasuringEnabled", first, second);
    return core->settings.measuring;
  }

 private:
  CorePtr core;
  std::shared_ptr<CRecordFactory> factory;
  std::shared_ptr<CRecordFactory> noFactory;
  std::shared_ptr<CSpspSettings> settings;
  std::shared_ptr<CSpspSettings> noSettings;
};

class FakeCfgEx final : public CCfgEx {
 public:
  explicit FakeCfgEx(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::uint32_t GetRecordValue1() override {
    core->gate.Pass("CCfgEx::GetRecordValue1");
    return core->settings.recordValue1;
  }
  std::uint32_t GetRecordValue2() override {
    core->gate.Pass("CCfgEx::GetRecordValue2");
    return core->settings.recordValue2;
  }
  std::uint32_t GetPortValue() override {
    core->gate.Pass("CCfgEx::GetPortValue");
    return core->settings.portValue;
  }
  bool IsEnabled() override {
    core->gate.Pass("CCfgEx::IsEnabled");
    return core->settings.enabled;
  }
  bool GetDriverInterfaceFlag() override {
    core->gate.Pass("CCfgEx::GetDriverInterfaceFlag");
    return core->settings.driverInterfaceFlag;
  }
  std::shared_ptr<MonitorPolicy>& GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) override {
    out.reset();
    if (core->gate.Pass("CCfgEx::GetMonitorPolicy")) {
      out = std::make_shared<MonitorPolicy>();
      const std::lock_guard lock(core->mutex);
      core->givenPolicy = out;
      for (const auto& path : core->policy) {
        out->push_back(path ? std::make_shared<FakePolicyObject>(core, *path) : nullptr);
      }
    }
    return out;
  }
  bool IsCacheBypassed() override {
    core->gate.Pass("CCfgEx::IsCacheBypassed");
    return core->settings.cacheBypassed;
  }
  bool IsIdentityTextAdded() override {
    core->gate.Pass("CCfgEx::IsIdentityTextAdded");
    return core->settings.identityTextAdded;
  }
  std::uint32_t GetRefreshInterval() override {
    core->gate.Pass("CCfgEx::GetRefreshInterval");
    return core->settings.refreshInterval;
  }
  const std::shared_ptr<CBuf>& GetDriverConfigBlock() override {
    return core->gate.Pass("CCfgEx::GetDriverConfigBlock") ? block : noBlock;
  }
  bool GetClientTypeFlag() override {
    core->gate.Pass("CCfgEx::GetClientTypeFlag");
    return core->settings.clientTypeFlag;
  }
  bool GetMonitorObjectFlag() override {
    core->gate.Pass("CCfgEx::GetMonitorObjectFlag");
    return core->settings.monitorObjectFlag;
  }

  std::shared_ptr<CBuf> block;

 private:
  CorePtr core;
  std::shared_ptr<CBuf> noBlock;
};

// ---------------------------------------------------------------- net

class FakeNetObject final : public CNetObject {
 public:
  explicit FakeNetObject(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CNetObject>& Release(std::shared_ptr<CNetObject>& out, std::uint32_t reserved) override {
    out.reset();
    if (core->gate.Pass("CNetObject::Release", reserved)) out = std::make_shared<FakeNetObject>(core);
    return out;
  }

 private:
  CorePtr core;
};

class FakeNet final : public CNet {
 public:
  explicit FakeNet(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CNetObject>& CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t value1,
                                            std::uint32_t value2) override {
    out.reset();
    if (core->gate.Pass("CNet::CreateObject", value1, value2)) out = std::make_shared<FakeNetObject>(core);
    return out;
  }

 private:
  CorePtr core;
};

// ---------------------------------------------------------------- records and judging

class FakeArpMgmt final : public CArpMgmt {
 public:
  FakeArpMgmt(CorePtr hostCore, std::shared_ptr<HostProducts> hostProducts)
      : core(std::move(hostCore)), products(std::move(hostProducts)) {}
  std::shared_ptr<CArpRecord>& CreateRecord(std::shared_ptr<CArpRecord>& out, std::uint32_t reserved) override {
    out.reset();
    if (core->gate.Pass("CArpMgmt::CreateRecord", reserved)) {
      auto record = std::make_shared<FakeArpRecord>(core);
      if (core->settings.recordsKept) {
        const std::lock_guard lock(products->mutex);
        products->records.push_back(record);
      }
      out = std::move(record);
    }
    return out;
  }

 private:
  CorePtr core;
  std::shared_ptr<HostProducts> products;
};

class FakeAoArp final : public CAoArp {
 public:
  explicit FakeAoArp(CorePtr hostCore) : core(std::move(hostCore)) {}
  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override {
    core->gate.Pass("CAoArp::Evaluate", record ? "record" : "nothing");
    const auto& judge = core->settings.judge;
    if (judge) return judge(static_cast<FakeArpRecord&>(*record));
    return core->settings.decision;
  }

 private:
  CorePtr core;
};

// ---------------------------------------------------------------- process queries

class FakeWinWork final : public CWinWork {
 public:
  FakeWinWork(CorePtr hostCore, std::shared_ptr<HostProducts> hostProducts)
      : core(std::move(hostCore)), products(std::move(hostProducts)) {}

  boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& imageName) override {
    core->gate.Pass("CWinWork::SystemPath", imageName);
    out = boost::filesystem::path("system-root");
    out += "\\" + imageName;
    return out;
  }
  std::uint32_t QueryProcessValue(std::uint32_t processId, std::uint32_t reserved) override {
    core->gate.Pass("CWinWork::QueryProcessValue", processId, reserved);
    const auto& value = core->settings.processValue;
    return value ? value(processId) : 0;
  }
  std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t processIdOrPathSource,
                                   std::uint32_t reserved) override {
    core->gate.Pass("CWinWork::GetProcessWideText", processIdOrPathSource, reserved);
    const auto& text = core->settings.wideText;
    out = text ? text(processIdOrPathSource) : L"wide-" + std::to_wstring(processIdOrPathSource);
    return out;
  }
  std::string& GetProcessNarrowText(std::string& out, std::uint32_t processId, std::uint32_t reserved) override {
    core->gate.Pass("CWinWork::GetProcessNarrowText", processId, reserved);
    const auto& text = core->settings.narrowText;
    out = text ? text(processId) : "narrow-" + std::to_string(processId);
    return out;
  }
  std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string& portName,
                                                 const std::shared_ptr<CBuf>& connectContext,
                                                 std::uint32_t maxMessageSize, const NotificationHandler& handler,
                                                 std::uint32_t portValue) override {
    out.reset();
    if (connectContext) {
      const std::lock_guard lock(core->mutex);
      core->connectContexts.push_back(BytesOf(connectContext));
    }
    if (core->gate.Pass("CWinWork::CreatePortClient", portName, connectContext ? "context" : "no context",
                        maxMessageSize, handler ? "handler" : "no handler", portValue)) {
      auto client = std::make_shared<FakePortClient>(core, handler);
      const std::lock_guard lock(products->mutex);
      products->portClients.push_back(client);
      out = std::move(client);
    }
    return out;
  }
  std::string& GetIdentityText(std::string& out, const void* identity) override {
    {
      const std::lock_guard lock(core->mutex);
      core->identities.push_back(identity);
    }
    core->gate.Pass("CWinWork::GetIdentityText");
    out = core->settings.identityText;
    return out;
  }
  std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                       const boost::filesystem::path& image,
                                                       std::uint32_t reserved) override {
    out.reset();
    if (core->gate.Pass("CWinWork::FindProcessesByImage", image, reserved)) {
      const std::string name = image.string();
      const auto& processes = core->settings.processesOfImage;
      out = std::make_shared<ProcessIdList>();
      if (processes) {
        *out = processes(name);
      } else {
        out->push_back(name.find("csrss") != std::string::npos ? 400 : 500);
      }
    }
    return out;
  }
  std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                      std::uint32_t reserved) override {
    out.reset();
    if (core->gate.Pass("CWinWork::GetRunningProcessIds", reserved)) {
      const auto& running = core->settings.running;
      out = running ? std::make_shared<ProcessIdSet>(running()) : std::make_shared<ProcessIdSet>();
    }
    return out;
  }

 private:
  CorePtr core;
  std::shared_ptr<HostProducts> products;
};

// ---------------------------------------------------------------- the locator

class FakeGlobalContext final : public CGlobalContext {
 public:
  FakeGlobalContext(const CorePtr& hostCore, std::shared_ptr<CUtility> utilityService,
                    std::shared_ptr<CArpMgmt> arpMgmtService, std::shared_ptr<CAoArp> aoArpService,
                    std::shared_ptr<CWinWork> winWorkService, std::shared_ptr<CCfgEx> cfgExService)
      : core(hostCore),
        cfg(std::make_shared<FakeCfg>(hostCore)),
        log(std::make_shared<FakeLog>(hostCore)),
        locale(std::make_shared<FakeLocale>(hostCore)),
        utility(std::move(utilityService)),
        net(std::make_shared<FakeNet>(hostCore)),
        recordService(std::make_shared<FakeRecordService>(hostCore)),
        winWork(std::move(winWorkService)),
        arpMgmt(std::move(arpMgmtService)),
        cfgEx(std::move(cfgExService)),
        aoArp(std::move(aoArpService)) {}

  std::shared_ptr<CCfg> GetCfg() override { return Give("CGlobalContext::GetCfg", cfg); }
  std::shared_ptr<CLog> GetLog() override { return Give("CGlobalContext::GetLog", log); }
  std::shared_ptr<CLocale> GetLocale() override { return Give("CGlobalContext::GetLocale", locale); }
  std::shared_ptr<CUtility> GetUtility() override { return Give("CGlobalContext::GetUtility", utility); }
  std::shared_ptr<CNet> GetNet() override { return Give("CGlobalContext::GetNet", net); }
  const std::shared_ptr<CRecordService>& GetRecordService() override {
    return core->gate.Pass("CGlobalContext::GetRecordService") ? recordService : noRecordService;
  }
  const std::shared_ptr<CWinWork>& GetWinWork() override {
    return core->gate.Pass("CGlobalContext::GetWinWork") ? winWork : noWinWork;
  }
  std::shared_ptr<CArpMgmt> GetArpMgmt() override { return Give("CGlobalContext::GetArpMgmt", arpMgmt); }
  std::shared_ptr<CCfgEx> GetCfgEx() override { return Give("CGlobalContext::GetCfgEx", cfgEx); }
  std::shared_ptr<CAoArp> GetAoArp() override { return Give("CGlobalContext::GetAoArp", aoArp); }
  void RegisterModule(const std::shared_ptr<CFenlux>& module) override {
    {
      const std::lock_guard lock(core->mutex);
      core->module = module;
    }
    core->gate.Pass("CGlobalContext::RegisterModule", module ? "module" : "nothing");
  }

 private:
  template <class Service>
  std::shared_ptr<Service> Give(const char* operation, const std::shared_ptr<Service>& service) {
    return core->gate.Pass(operation) ? service : std::shared_ptr<Service>();
  }

  CorePtr core;
  std::shared_ptr<CCfg> cfg;
  std::shared_ptr<CLog> log;
  std::shared_ptr<CLocale> locale;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CNet> net;
  std::shared_ptr<CRecordService> recordService;
  std::shared_ptr<CRecordService> noRecordService;
  std::shared_ptr<CWinWork> winWork;
  std::shared_ptr<CWinWork> noWinWork;
  std::shared_ptr<CArpMgmt> arpMgmt;
  std::shared_ptr<CCfgEx> cfgEx;
  std::shared_ptr<CAoArp> aoArp;
};

}  // namespace

std::uint32_t OwnRefreshInterval() {
  static std::atomic<std::uint32_t> next{3'600'000};
  return next++;
}

// ---------------------------------------------------------------- buffers

FakeBuf::FakeBuf(std::shared_ptr<HostCore> hostCore, std::size_t size)
    : core(std::move(hostCore)), length(size), storage(new std::uint8_t[size]) {
  if (core->settings.fillBuffers) std::memset(storage.get(), 0xCD, size);
}

FakeBuf::FakeBuf(std::shared_ptr<HostCore> hostCore, const Bytes& bytes)
    : core(std::move(hostCore)), length(bytes.size()), storage(new std::uint8_t[bytes.size()]) {
  std::copy(bytes.begin(), bytes.end(), storage.get());
}

std::uint8_t* FakeBuf::GetData() {
  core->gate.Pass("CBuf::GetData");
  return storage.get();
}

std::size_t FakeBuf::GetSize() {
  core->gate.Pass("CBuf::GetSize");
  return length;
}

Bytes BytesOf(const std::shared_ptr<CBuf>& buffer) {
  const auto* const fake = dynamic_cast<const FakeBuf*>(buffer.get());
  return fake != nullptr ? fake->Copy() : Bytes();
}

// ---------------------------------------------------------------- port client

FakePortClient::FakePortClient(std::shared_ptr<HostCore> hostCore, NotificationHandler notificationHandler)
    : core(std::move(hostCore)), handler(std::move(notificationHandler)) {}

void FakePortClient::Connect() { core->gate.Pass("CPortClient::Connect"); }

void FakePortClient::Start() { core->gate.Pass("CPortClient::Start"); }

void FakePortClient::Wait() {
  core->gate.Pass("CPortClient::Wait");
  if (!core->settings.waitBlocks) return;
  std::unique_lock lock(mutex);
  closing.wait(lock, [this] { return closed; });
}

void FakePortClient::Close() {
  {
    const std::lock_guard lock(mutex);
    closed = true;
    closing.notify_all();
  }
  core->gate.Pass("CPortClient::Close");
}

void FakePortClient::Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) {
  const std::uint32_t command = CommandOf(request);
  const std::size_t kept = core->settings.recordedRequestBytes;
  if (kept != 0) {
    Bytes bytes = BytesOf(request);
    if (bytes.size() > kept) bytes.resize(kept);
    const std::lock_guard lock(core->mutex);
    core->requests.push_back({command, std::move(bytes), reply != nullptr});
  }
  core->gate.Pass("CPortClient::Send", command, reply ? "reply" : "no reply", flag);
  if (core->settings.answer) {
    core->settings.answer(request, reply);
  } else if (command == 13 && reply) {
    WriteU32(static_cast<FakeBuf&>(*reply).data() + 12, core->settings.driverVersion);
  }
}

std::shared_ptr<CBuf> FakePortClient::Deliver(const Bytes& message) const {
  // A copy of exactly the message's size, so that a read beyond it is seen.
  const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[message.size()]);
  std::copy(message.begin(), message.end(), copy.get());
  return handler(copy.get(), static_cast<std::uint32_t>(message.size()));
}

bool FakePortClient::IsClosed() const {
  const std::lock_guard lock(mutex);
  return closed;
}

// ---------------------------------------------------------------- event record

std::uint64_t FakeArpProcess::GetProcessId() {
  core->gate.Pass("CArpProcess::GetProcessId");
  return processId;
}
void FakeArpProcess::SetProcessId(std::uint64_t newId) {
  core->gate.Pass("CArpProcess::SetProcessId", newId);
  processId = newId;
}
void FakeArpProcess::SetSessionId(std::uint32_t sessionId) { core->gate.Pass("CArpProcess::SetSessionId", sessionId); }
void FakeArpProcess::SetNarrowInfo(const std::string& text) { core->gate.Pass("CArpProcess::SetNarrowInfo", text); }
void FakeArpProcess::SetIdentityText(const std::string& text) { core->gate.Pass("CArpProcess::SetIdentityText", text); }

FakeArpRecord::FakeArpRecord(std::shared_ptr<HostCore> hostCore)
    : core(std::move(hostCore)), process(std::make_shared<FakeArpProcess>(core)) {
  if (core->settings.contextBuffer) {
    contextData = core->settings.contextBuffer();
  } else if (core->settings.contextData) {
    std::optional<Bytes> data = core->settings.contextData();
    if (data) contextData = std::make_shared<FakeBuf>(core, *data);
  }
}

const std::shared_ptr<CArpProcess>& FakeArpRecord::ProcessPart() {
  return core->gate.Pass("CArpRecord::ProcessPart") ? process : noProcess;
}
void FakeArpRecord::Mark() { core->gate.Pass("CArpRecord::Mark"); }
std::wstring& FakeArpRecord::GetPath(std::wstring& out) {
  core->gate.Pass("CArpRecord::GetPath");
  out = path;
  return out;
}
std::shared_ptr<CBuf> FakeArpRecord::GetContextData() {
  return core->gate.Pass("CArpRecord::GetContextData") ? contextData : std::shared_ptr<CBuf>();
}
std::uint32_t FakeArpRecord::GetPathSource() {
  core->gate.Pass("CArpRecord::GetPathSource");
  return core->settings.pathSource;
}
std::string& FakeArpRecord::Describe(std::string& out) {
  core->gate.Pass("CArpRecord::Describe");
  out = core->settings.description;
  return out;
}
void FakeArpRecord::SetPath(const std::wstring& newPath) {
  core->gate.Pass("CArpRecord::SetPath", newPath);
  path = newPath;
}
void FakeArpRecord::SetSecondPath(const std::wstring& newPath) {
  core->gate.Pass("CArpRecord::SetSecondPath", newPath);
  secondPath = newPath;
}
void FakeArpRecord::SetEventType(std::uint32_t type) {
  core->gate.Pass("CArpRecord::SetEventType", Hex{type});
  eventType = type;
}
void FakeArpRecord::SetCategory(std::uint32_t newCategory) {
  core->gate.Pass("CArpRecord::SetCategory", newCategory);
  category = newCategory;
}
void FakeArpRecord::SetSource(std::uint32_t source) { core->gate.Pass("CArpRecord::SetSource", source); }
void FakeArpRecord::SetExtraData(const std::shared_ptr<CBuf>& data) {
  const Bytes bytes = BytesOf(data);
  core->gate.Pass("CArpRecord::SetExtraData", data ? HexBytes(bytes.data(), bytes.size()) : "nothing");
}
void FakeArpRecord::SetPort(std::uint16_t port) {
  core->gate.Pass("CArpRecord::SetPort", static_cast<std::uint32_t>(port));
}
void FakeArpRecord::SetIpv6(bool ipv6) { core->gate.Pass("CArpRecord::SetIpv6", ipv6); }
void FakeArpRecord::SetIpv4Address(std::uint32_t address) {
  core->gate.Pass("CArpRecord::SetIpv4Address", Hex{address});
}
void FakeArpRecord::SetIpv6Address(const std::array<std::uint8_t, 16>& address) {
  core->gate.Pass("CArpRecord::SetIpv6Address", HexBytes(address.data(), address.size()));
}
void FakeArpRecord::SetRemoteFlag(bool remote) { core->gate.Pass("CArpRecord::SetRemoteFlag", remote); }
void FakeArpRecord::SetWord0(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord0", Hex{word}); }
void FakeArpRecord::SetWord1(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord1", Hex{word}); }
void FakeArpRecord::SetWord2(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord2", Hex{word}); }
void FakeArpRecord::SetWord3(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord3", Hex{word}); }
void FakeArpRecord::SetValueA(std::uint32_t value) { core->gate.Pass("CArpRecord::SetValueA", Hex{value}); }
void FakeArpRecord::SetValueB(std::uint32_t value) { core->gate.Pass("CArpRecord::SetValueB", Hex{value}); }
void FakeArpRecord::SetWideInfo(const std::wstring& text) { core->gate.Pass("CArpRecord::SetWideInfo", text); }

boost::filesystem::path FakePolicyObject::GetMonitorPath() {
  core->gate.Pass("CPolicyObject::GetMonitorPath");
  return path;
}

// ---------------------------------------------------------------- the host of a test

FakeHost::FakeHost()
    : core(std::make_shared<HostCore>()),
      products(std::make_shared<HostProducts>()),
      utility(std::make_shared<FakeUtility>(core)),
      arpMgmt(std::make_shared<FakeArpMgmt>(core, products)),
      aoArp(std::make_shared<FakeAoArp>(core)),
      winWork(std::make_shared<FakeWinWork>(core, products)),
      cfgEx(std::make_shared<FakeCfgEx>(core)),
      context(std::make_shared<FakeGlobalContext>(core, utility, arpMgmt, aoArp, winWork, cfgEx)) {}

std::shared_ptr<FakeBuf> FakeHost::MakeBuffer(const Bytes& bytes) const {
  return std::make_shared<FakeBuf>(core, bytes);
}

void FakeHost::SetDriverConfigBlock(std::shared_ptr<CBuf> block) {
  static_cast<FakeCfgEx&>(*cfgEx).block = std::move(block);
}

void FakeHost::SetPolicy(const std::vector<std::optional<boost::filesystem::path>>& paths) {
  const std::lock_guard lock(core->mutex);
  core->policy = paths;
}

std::shared_ptr<FakePortClient> FakeHost::PortClient() const {
  const std::lock_guard lock(products->mutex);
  return products->portClients.empty() ? nullptr : products->portClients.back();
}

std::size_t FakeHost::PortClientCount() const {
  const std::lock_guard lock(products->mutex);
  return products->portClients.size();
}

std::vector<SentRequest> FakeHost::Requests() const {
  const std::lock_guard lock(core->mutex);
  return core->requests;
}

std::vector<SentRequest> FakeHost::RequestsOf(std::uint32_t command) const {
  std::vector<SentRequest> kept;
  const std::lock_guard lock(core->mutex);
  std::copy_if(core->requests.begin(), core->requests.end(), std::back_inserter(kept),
               [command](const SentRequest& request) { return request.command == command; });
  return kept;
}

void FakeHost::ClearRequests() const {
  const std::lock_guard lock(core->mutex);
  core->requests.clear();
}

std::vector<Bytes> FakeHost::ConnectContexts() const {
  const std::lock_guard lock(core->mutex);
  return core->connectContexts;
}

std::vector<const void*> FakeHost::Identities() const {
  const std::lock_guard lock(core->mutex);
  return core->identities;
}

std::shared_ptr<FakeArpRecord> FakeHost::Record() const {
  const std::lock_guard lock(products->mutex);
  return products->records.empty() ? nullptr : products->records.back();
}

bool FakeHost::PolicyIsLetGo() const {
  const std::lock_guard lock(core->mutex);
  return core->givenPolicy.expired();
}

std::shared_ptr<CFenlux> FakeHost::Module() const {
  const std::lock_guard lock(core->mutex);
  return core->module.lock();
}

}  // namespace fenlux::testing
