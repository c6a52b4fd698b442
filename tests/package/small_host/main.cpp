// A host of fewer than 60 lines against the installed headers: a port client that delivers a file's notifications, and
// a judge with rules. Each line of the file is a message in hexadecimal, after an x, and the expected verdict.
#include <dlfcn.h>
#include <unistd.h>

#include <fstream>

#include "fenlux/default_services.h"
#include "fenlux/driver_protocol.h"

struct ScriptedPort final : fenlux::CPortClient {
  ScriptedPort(fenlux::NotificationHandler moduleHandler, const char* scriptFile)
      : handler(std::move(moduleHandler)), script(scriptFile) {}
  void Connect() override {}
  void Start() override {}
  void Wait() override {
    int expected = 0, right = 0, all = 0;
    for (std::string text; script >> text >> expected; ++all) {
      std::vector<std::uint8_t> message;
      for (std::size_t i = 1; i < text.size(); i += 2) {
        message.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
      }
      const auto answer = handler(message.data(), static_cast<std::uint32_t>(message.size()));
      FenluxReplyView reply = {};
      if (answer) FenluxParseReply(answer->GetData(), answer->GetSize(), &reply);
      right += static_cast<int>(reply.verdict) == expected ? 1 : 0;  // 0 without a reply
    }
    std::printf("%d of %d verdicts as expected\n", right, all);
    std::fflush(stdout);
    std::_Exit(right == all && all > 0 ? 0 : 1);  // the module's threads never end
  }
  void Close() override {}
  void Send(const std::shared_ptr<fenlux::CBuf>&, std::shared_ptr<fenlux::CBuf>&, bool) override {}

  const fenlux::NotificationHandler handler;
  std::ifstream script;
};

int main(int, char** arguments) {
  const auto services = std::make_shared<fenlux::DefaultServices>();
  services->judge = [](const fenlux::Event& event) {
    if (event.path.ends_with(L".secret")) return fenlux::Decision::kVerdict4;
    if (event.path.starts_with(L"/vault/")) return fenlux::Decision::kVerdict5;
    if (event.path.ends_with(L".traced")) event.contextData = std::make_shared<fenlux::DefaultBuffer>(std::size_t{4});
    if (event.contextData) return fenlux::Decision::kContext;
    return event.eventType == 0x1002 ? fenlux::Decision::kVerdict2 : fenlux::Decision::kPass;  // 0x1002: the network
  };
  services->makePortClient = [=](const auto&, const auto&, std::uint32_t, const fenlux::NotificationHandler& handler) {
    return std::make_shared<ScriptedPort>(handler, arguments[2]);
  };
  void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  void* const symbol = library == nullptr ? nullptr : dlsym(library, "init");
  if (symbol == nullptr) return std::puts(dlerror()), 1;
  const std::shared_ptr<fenlux::CGlobalContext> context = services;
  reinterpret_cast<decltype(&init)>(symbol)(&context);
  services->module->StartWork();
  for (;;) pause();
}
