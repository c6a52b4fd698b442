// The fake of host/utility.h.
#pragma once

#include <boost/filesystem/operations.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/utility.h"
#include "tests/support/fake_host/fake_buf.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeMeasurement final : public CMeasurement {
 public:
  explicit FakeMeasurement(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::string& GetResultText(std::string& out) override {
    core->gate.Pass("CMeasurement::GetResultText");
    out = core->settings.measured;
    return out;
  }

 private:
  std::shared_ptr<HostCore> core;
};

class FakeUtility final : public CUtility {
 public:
  explicit FakeUtility(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}

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
  // Writes little-endian UTF-16 and, if there is room, a NUL; leaves the rest of the field alone.
  void CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) override;
  std::wstring& ToWideString(std::wstring& out, const std::string& text) override;
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
  std::shared_ptr<HostCore> core;
};

}  // namespace fenlux::testing
