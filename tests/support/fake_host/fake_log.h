// The fake of host/log.h.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/log.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeLog final : public CLog {
 public:
  explicit FakeLog(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
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
  std::shared_ptr<HostCore> core;
};

}  // namespace fenlux::testing
