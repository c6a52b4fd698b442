// Implements the conversions.
#include "refhost/services/utility_service.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <string_view>

#include "refhost/base/text/utf_text.h"
#include "refhost/services/heap_buffer.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;

class Measurement final : public CMeasurement {
 public:
  std::string& GetResultText(std::string& out) override {
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
    return out = fmt::format("{} us", elapsed.count());
  }

 private:
  Clock::time_point start = Clock::now();
};

// What Windows puts before paths that it passes to drivers, and before long ones.
constexpr std::wstring_view kPrefixes[] = {L"\\??\\", L"\\\\?\\"};
// Begins a path on another computer.
constexpr std::wstring_view kComputer = L"\\\\";

bool IsSeparator(wchar_t character) { return character == L'/' || character == L'\\'; }

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }

// The length of the components before the first with a name: further separators, and ".".
std::size_t EmptyComponents(std::wstring_view path) {
  std::size_t at = 0;
  for (; at < path.size(); ++at) {
    if (IsSeparator(path[at])) continue;
    if (path[at] != L'.' || (at + 1 < path.size() && !IsSeparator(path[at + 1]))) break;
  }
  return at;
}

}  // namespace

UtilityService::UtilityService(std::shared_ptr<LogService> logService, bool versionFlagValue)
    : log(std::move(logService)), versionFlag(versionFlagValue) {}

bool UtilityService::QueryVersionFlag() { return versionFlag; }

std::string& UtilityService::ToNarrowString(std::string& out, const std::wstring& text) {
  return out = NarrowFromWide(text);
}

std::string& UtilityService::TransformPath(std::string& out, const std::string& path) { return out = path; }

std::string& UtilityService::ConvertText(std::string& out, const std::string& message) {
  return out = NarrowFromWide(WideFromNarrow(message));
}

std::shared_ptr<CMeasurement>& UtilityService::CreateMeasurement(std::shared_ptr<CMeasurement>& out) {
  return out = std::make_shared<Measurement>();
}

void UtilityService::CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) {
  const std::u16string units = Utf16FromWide(text);
  const std::size_t room = limit / 2;
  std::size_t count = units.size() < room ? units.size() : room;
  // Do not split a surrogate pair.
  if (count < units.size() && count > 0 && IsHighSurrogate(units[count - 1])) --count;
  auto* field = static_cast<std::uint8_t*>(destination);
  for (std::size_t index = 0; index < count; ++index) {
    field[2 * index] = static_cast<std::uint8_t>(units[index] & 0xFF);
    field[2 * index + 1] = static_cast<std::uint8_t>(units[index] >> 8);
  }
  if (count < room) field[2 * count] = field[2 * count + 1] = 0;
}

std::wstring& UtilityService::ToWideString(std::wstring& out, const std::string& text) {
  return out = WideFromNarrow(text);
}

std::wstring& UtilityService::ToRecordString(std::wstring& out, const std::wstring& path) {
  std::wstring_view rest = path;
  for (const std::wstring_view prefix : kPrefixes) {
    if (rest.starts_with(prefix)) rest.remove_prefix(prefix.size());
  }
  std::wstring normal(rest.size(), L'\0');
  wchar_t* end = normal.data();
  if (rest.starts_with(kComputer)) {
    end = std::ranges::copy(kComputer, end).out;
    rest.remove_prefix(kComputer.size());
    rest.remove_prefix(EmptyComponents(rest));
  }
  for (std::size_t at = 0; at < rest.size();) {
    const wchar_t character = rest[at++];
    *end++ = character;
    if (IsSeparator(character)) at += EmptyComponents(rest.substr(at));
  }
  normal.resize(static_cast<std::size_t>(end - normal.data()));
  return out = std::move(normal);
}

std::shared_ptr<CBuf>& UtilityService::CreateBuffer(std::shared_ptr<CBuf>& out, bool /*first*/, std::uint32_t size,
                                                    bool /*last*/) {
  return out = std::make_shared<HeapBuffer>(static_cast<std::size_t>(size));
}

bool UtilityService::TestPath(const boost::filesystem::path& path) {
  boost::system::error_code error;
  return boost::filesystem::is_directory(path, error);
}

std::shared_ptr<CBuf>& UtilityService::BufferFromBytes(std::shared_ptr<CBuf>& out, const void* bytes,
                                                       std::uint32_t length) {
  return out = std::make_shared<HeapBuffer>(static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(length));
}

void UtilityService::WriteLog(std::uint32_t code, const std::string& line, std::uint32_t category) {
  log->Write(Severity::kEvent, code, line, category);
}

}  // namespace fenlux::refhost
