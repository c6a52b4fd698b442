// A named pipe that only its own user may open, and only on this machine.
#include "refhost/app/control/control_pipe_win.h"

#include <windows.h>
// After windows.h, which they need.
#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/app/control/control_channel.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

constexpr std::wstring_view kPipePrefix = L"\\\\.\\pipe\\";

// The TOKEN_USER block with the security identifier of this process's user.
std::vector<std::uint8_t> OwnUser() {
  HANDLE opened = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened)) {
    throw ControlChannelError("cannot determine the user of this process: " + LastErrorText());
  }
  const Handle token(opened);
  DWORD size = 0;
  ::GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &size);
  std::vector<std::uint8_t> block(size);
  if (!::GetTokenInformation(token.Get(), TokenUser, block.data(), size, &size)) {
    throw ControlChannelError("cannot determine the user of this process: " + LastErrorText());
  }
  return block;
}

PSID UserOf(std::vector<std::uint8_t>& block) { return reinterpret_cast<TOKEN_USER*>(block.data())->User.Sid; }

Handle NewEvent() { return Handle(::CreateEventW(nullptr, TRUE, FALSE, nullptr)); }

std::wstring OwnUserText() {
  std::vector<std::uint8_t> user = OwnUser();
  wchar_t* text = nullptr;
  if (!::ConvertSidToStringSidW(UserOf(user), &text)) {
    throw ControlChannelError("cannot determine the user of this process: " + LastErrorText());
  }
  return Local<wchar_t>(text).get();
}

}  // namespace

std::string NarrowText(const fs::path& path) { return NarrowFromWide(path.native()); }

std::wstring DefaultPipeName() { return std::wstring(kPipePrefix) + L"fenlux-host-" + OwnUserText(); }

SecurityDescriptor OwnerOnly() {
  const std::wstring user = OwnUserText();
  const std::wstring definition = L"O:" + user + L"D:P(A;;GA;;;" + user + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(definition.c_str(), SDDL_REVISION_1, &descriptor,
                                                              nullptr)) {
    throw ControlChannelError("cannot protect the control pipe: " + LastErrorText());
  }
  return SecurityDescriptor(descriptor);
}

std::wstring PipeName(const fs::path& path) {
  const std::wstring name = fs::path(path).make_preferred().native();
  if (!boost::algorithm::istarts_with(name, kPipePrefix) || name.size() == kPipePrefix.size() ||
      name.find(L'\\', kPipePrefix.size()) != std::wstring::npos || name.size() > 256) {
    throw ControlChannelError("the control channel is a named pipe; " + NarrowText(path) +
                              " must have the form \\\\.\\pipe\\NAME");
  }
  return name;
}

bool IsOwnPipe(HANDLE pipe) {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (::GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  const SecurityDescriptor held(descriptor);
  std::vector<std::uint8_t> user = OwnUser();
  return owner != nullptr && ::EqualSid(owner, UserOf(user));
}

PipeOperation::PipeOperation(HANDLE opened, HANDLE stopEvent) : pipe(opened), stop(stopEvent), done(NewEvent()) {}

bool PipeOperation::Accept(Clock::time_point deadline) {
  Begin();
  const BOOL now = ::ConnectNamedPipe(pipe, &operation);
  const DWORD error = ::GetLastError();
  return now || error == ERROR_PIPE_CONNECTED || (error == ERROR_IO_PENDING && Finish(deadline));
}

bool PipeOperation::Write(std::string_view text, Clock::time_point deadline) {
  while (!text.empty()) {
    Begin();
    const auto part = static_cast<DWORD>(std::min<std::size_t>(text.size(), kPipeBuffer));
    const BOOL now = ::WriteFile(pipe, text.data(), part, nullptr, &operation);
    if (!now && ::GetLastError() != ERROR_IO_PENDING) return false;
    const std::optional<DWORD> count = Finish(deadline);
    if (!count || *count == 0) return false;
    text.remove_prefix(*count);
  }
  return true;
}

LineEnd PipeOperation::ReadLine(std::string& line, std::size_t maxBytes, Clock::time_point deadline) {
  line.clear();
  while (line.size() <= maxBytes) {
    if (!Read(line, deadline)) return timedOut ? LineEnd::kLate : LineEnd::kClosed;
    if (line.back() != '\n') continue;
    line.pop_back();
    if (line.size() <= maxBytes) return LineEnd::kComplete;
  }
  return LineEnd::kTooLong;
}

void PipeOperation::AwaitClose(Clock::time_point deadline) {
  std::string ignored;
  while (Clock::now() < deadline && Read(ignored, deadline)) ignored.clear();
}

bool PipeOperation::Read(std::string& text, Clock::time_point deadline) {
  Begin();
  std::array<char, 65536> chunk{};
  const BOOL now = ::ReadFile(pipe, chunk.data(), static_cast<DWORD>(chunk.size()), nullptr, &operation);
  if (!now && ::GetLastError() != ERROR_IO_PENDING) return false;
  const std::optional<DWORD> count = Finish(deadline);
  if (!count || *count == 0) return false;
  text.append(chunk.data(), *count);
  return true;
}

void PipeOperation::Begin() {
  operation = {};
  operation.hEvent = done.Get();
  timedOut = false;
  ::ResetEvent(done.Get());
}

std::optional<DWORD> PipeOperation::Finish(Clock::time_point deadline) {
  const HANDLE waited[] = {done.Get(), stop};
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  const DWORD limit = left <= 0 ? 0 : static_cast<DWORD>(std::min<decltype(left)>(left, INFINITE - 1));
  const DWORD ended = ::WaitForMultipleObjects(stop == nullptr ? 1 : 2, waited, FALSE, limit);
  timedOut = ended == WAIT_TIMEOUT;  // not compared with the clock: the wait may end a little before the deadline
  if (ended != WAIT_OBJECT_0) ::CancelIoEx(pipe, &operation);
  DWORD count = 0;
  if (!::GetOverlappedResult(pipe, &operation, &count, TRUE)) return std::nullopt;
  return count;
}

}  // namespace fenlux::refhost
