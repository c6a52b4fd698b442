// The fake of host/win_work.h.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "host/win_work.h"
#include "tests/support/fake_host/fake_buf.h"
#include "tests/support/fake_host/fake_port_client.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeWinWork final : public CWinWork {
 public:
  FakeWinWork(std::shared_ptr<HostCore> hostCore, std::shared_ptr<HostProducts> hostProducts)
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
  std::shared_ptr<HostCore> core;
  std::shared_ptr<HostProducts> products;
};

}  // namespace fenlux::testing
