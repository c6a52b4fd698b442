// A host of less than 60 lines against the installed headers: a port client that plays a script, and a judge.
#include <dlfcn.h>
#include <unistd.h>

#include "fenlux/default_services.h"
#include "fenlux/driver_protocol.h"

// Plays the driver: delivers two notifications once the module waits, then ends.
struct ScriptedPort final : fenlux::CPortClient {
  explicit ScriptedPort(fenlux::NotificationHandler moduleHandler) : handler(std::move(moduleHandler)) {}
  void Connect() override {}
  void Start() override {}
  void Wait() override {
    for (const char16_t* path : {u"C:\\Work\\report.txt", u"C:\\Work\\secret.txt"}) {
      const std::u16string text(path);
      const std::vector<std::uint16_t> units(text.begin(), text.end());
      FenluxNotification notification = {};
      notification.event.code = FENLUX_CODE_4098;
      notification.path.units = units.data();
      notification.path.count = units.size();
      std::array<std::uint8_t, 1024> message;
      std::size_t size = 0;
      FenluxReplyView reply = {};
      if (FenluxBuildNotification(&notification, message.data(), message.size(), &size) != FENLUX_OK) continue;
      const auto answer = handler(message.data(), static_cast<std::uint32_t>(size));
      if (!answer || FenluxParseReply(answer->GetData(), answer->GetSize(), &reply) != FENLUX_OK) continue;
      verdicts.push_back(reply.verdict);
    }
    const bool right = verdicts == std::vector<int>{FENLUX_VERDICT_2, FENLUX_VERDICT_4};
    std::puts(right ? "verdicts as expected" : "other verdicts");
    std::fflush(stdout);
    std::_Exit(right ? 0 : 1);  // the module's threads never end
  }
  void Close() override {}
  void Send(const std::shared_ptr<fenlux::CBuf>&, std::shared_ptr<fenlux::CBuf>&, bool) override {}

  const fenlux::NotificationHandler handler;
  std::vector<int> verdicts;
};

int main(int, char** arguments) {
  const auto services = std::make_shared<fenlux::DefaultServices>();
  services->judge = [](const fenlux::Event& event) {
    return event.path.find(L"secret") == std::wstring::npos ? fenlux::Decision::kVerdict2 : fenlux::Decision::kVerdict4;
  };
  services->makePortClient = [](const auto&, const auto&, std::uint32_t, const fenlux::NotificationHandler& handler) {
    return std::make_shared<ScriptedPort>(handler);
  };
  void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  void* const symbol = library == nullptr ? nullptr : dlsym(library, "init");
  if (symbol == nullptr) return std::puts(dlerror()), 1;
  const std::shared_ptr<fenlux::CGlobalContext> context = services;
  reinterpret_cast<decltype(&init)>(symbol)(&context);
  services->module->StartWork();
  for (;;) pause();
}
