// A module that differs slightly from the real one, to test what a replay detects: it loads the real module, which
// FENLUX_REAL_MODULE names, and changes one byte in each of two messages.
#define FENLUX_BUILDING_MODULE
#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "core/fenlux.h"
#include "host/host.h"
#include "kdi/driver_records.h"

namespace {

using namespace fenlux;

template <class Record>
Record* As(const std::shared_ptr<CBuf>& buffer) {
  return buffer == nullptr ? nullptr : reinterpret_cast<Record*>(buffer->GetData());
}

// Judged notifications of code 4099 get verdict 2.
NotificationHandler Altered(const NotificationHandler& handler) {
  return [handler](const void* message, std::uint32_t size) {
    std::shared_ptr<CBuf> reply = handler(message, size);
    const bool whole = size >= sizeof(records::Notification);
    if (whole && static_cast<const records::Notification*>(message)->code.value() == 4099) {
      As<records::Reply>(reply)->verdict = 2;
    }
    return reply;
  };
}

// The first of the four switches is inverted.
class AlteredClient final : public CPortClient {
 public:
  explicit AlteredClient(std::shared_ptr<CPortClient> portClient) : client(std::move(portClient)) {}
  void Connect() override { client->Connect(); }
  void Start() override { client->Start(); }
  void Wait() override { client->Wait(); }
  void Close() override { client->Close(); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override {
    auto& fields = *As<records::SpspStateRequest>(request);
    if (fields.header.command.value() == static_cast<std::uint32_t>(records::Command::kSpspState)) {
      fields.switch1 = fields.switch1 == 0 ? 1 : 0;
    }
    client->Send(request, reply, flag);
  }

 private:
  const std::shared_ptr<CPortClient> client;
};

class Work final : public CWinWork {
 public:
  explicit Work(std::shared_ptr<CWinWork> winWork) : work(std::move(winWork)) {}
  boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& image) override {
    return work->SystemPath(out, image);
  }
  std::uint32_t QueryProcessValue(std::uint32_t id, std::uint32_t reserved) override {
    return work->QueryProcessValue(id, reserved);
  }
  std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t id, std::uint32_t reserved) override {
    return work->GetProcessWideText(out, id, reserved);
  }
  std::string& GetProcessNarrowText(std::string& out, std::uint32_t id, std::uint32_t reserved) override {
    return work->GetProcessNarrowText(out, id, reserved);
  }
  std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string& name,
                                                 const std::shared_ptr<CBuf>& context, std::uint32_t size,
                                                 const NotificationHandler& handler, std::uint32_t value) override {
    std::shared_ptr<CPortClient> client;
    work->CreatePortClient(client, name, context, size, Altered(handler), value);
    return out = std::make_shared<AlteredClient>(client);
  }
  std::string& GetIdentityText(std::string& out, const void* identity) override {
    return work->GetIdentityText(out, identity);
  }
  std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                       const boost::filesystem::path& image,
                                                       std::uint32_t reserved) override {
    return work->FindProcessesByImage(out, image, reserved);
  }
  std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                      std::uint32_t reserved) override {
    return work->GetRunningProcessIds(out, reserved);
  }

 private:
  const std::shared_ptr<CWinWork> work;
};

class Context final : public CGlobalContext {
 public:
  explicit Context(std::shared_ptr<CGlobalContext> globalContext)
      : context(std::move(globalContext)), work(std::make_shared<Work>(context->GetWinWork())) {}
  std::shared_ptr<CCfg> GetCfg() override { return context->GetCfg(); }
  std::shared_ptr<CLog> GetLog() override { return context->GetLog(); }
  std::shared_ptr<CLocale> GetLocale() override { return context->GetLocale(); }
  std::shared_ptr<CUtility> GetUtility() override { return context->GetUtility(); }
  std::shared_ptr<CNet> GetNet() override { return context->GetNet(); }
  const std::shared_ptr<CRecordService>& GetRecordService() override { return context->GetRecordService(); }
  const std::shared_ptr<CWinWork>& GetWinWork() override { return work; }
  std::shared_ptr<CArpMgmt> GetArpMgmt() override { return context->GetArpMgmt(); }
  std::shared_ptr<CCfgEx> GetCfgEx() override { return context->GetCfgEx(); }
  std::shared_ptr<CAoArp> GetAoArp() override { return context->GetAoArp(); }
  void RegisterModule(const std::shared_ptr<CFenlux>& module) override { context->RegisterModule(module); }

 private:
  const std::shared_ptr<CGlobalContext> context;
  const std::shared_ptr<CWinWork> work;
};

}  // namespace

void init(const std::shared_ptr<CGlobalContext>* context) {
  const char* const file = std::getenv("FENLUX_REAL_MODULE");
  void* const library = file == nullptr ? nullptr : dlopen(file, RTLD_NOW | RTLD_LOCAL);
  void* const symbol = library == nullptr ? nullptr : dlsym(library, "init");
  if (symbol == nullptr) throw std::runtime_error("FENLUX_REAL_MODULE does not name a module");
  const std::shared_ptr<CGlobalContext> altered = std::make_shared<Context>(*context);
  reinterpret_cast<void (*)(const std::shared_ptr<CGlobalContext>*)>(symbol)(&altered);
}
