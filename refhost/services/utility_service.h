// Text conversion, buffers, measurements, and log lines with a category.
#pragma once

#include <memory>

#include "host/utility.h"

namespace fenlux::refhost {

class LogService;

class UtilityService final : public CUtility {
 public:
  // `versionFlagValue` is the result of QueryVersionFlag.
  UtilityService(std::shared_ptr<LogService> logService, bool versionFlagValue);

  bool QueryVersionFlag() override;
  // Wide text as UTF-8.
  std::string& ToNarrowString(std::string& out, const std::wstring& text) override;
  // The path unchanged.
  std::string& TransformPath(std::string& out, const std::string& path) override;
  // The message with invalid UTF-8 replaced.
  std::string& ConvertText(std::string& out, const std::string& message) override;
  // Measures microseconds from now.
  std::shared_ptr<CMeasurement>& CreateMeasurement(std::shared_ptr<CMeasurement>& out) override;
  // UTF-16 little-endian, truncated between characters, with a terminating zero unit if there is room.
  void CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) override;
  std::wstring& ToWideString(std::wstring& out, const std::string& text) override;
  // Without the prefix of the system's object names ("\??\", "\\?\"), repeated separators and "." components.
  std::wstring& ToRecordString(std::wstring& out, const std::wstring& path) override;
  // Always zero-filled.
  std::shared_ptr<CBuf>& CreateBuffer(std::shared_ptr<CBuf>& out, bool first, std::uint32_t size, bool last) override;
  bool TestPath(const boost::filesystem::path& path) override;
  std::shared_ptr<CBuf>& BufferFromBytes(std::shared_ptr<CBuf>& out, const void* bytes, std::uint32_t length) override;
  void WriteLog(std::uint32_t code, const std::string& line, std::uint32_t category) override;

 private:
  std::shared_ptr<LogService> log;
  bool versionFlag;
};

}  // namespace fenlux::refhost
