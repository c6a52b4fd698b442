// The fake of host/locale.h.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/locale.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeLocale final : public CLocale {
 public:
  explicit FakeLocale(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
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
  std::shared_ptr<HostCore> core;
};

}  // namespace fenlux::testing
