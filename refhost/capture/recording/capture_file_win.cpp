// Capture files on Windows, by handle. Others can read, rename and delete a file while it is written.
#include "refhost/capture/recording/capture_file.h"

#include <windows.h>
// Needs windows.h before it.
#include <sddl.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace fenlux::capture {
namespace {

// Memory that the system allocates with LocalAlloc.
struct LocalFreer {
  void operator()(void* value) const { ::LocalFree(value); }
};
using Local = std::unique_ptr<void, LocalFreer>;

boost::system::error_code LastError() { return {static_cast<int>(::GetLastError()), boost::system::system_category()}; }

// The security identifier of this process's user as text; empty if it cannot be determined.
std::wstring OwnUserText() {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::vector<std::uint8_t> block(size);
  const bool known = ::GetTokenInformation(token, TokenUser, block.data(), size, &size) != 0;
  ::CloseHandle(token);
  wchar_t* text = nullptr;
  if (!known || !::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(block.data())->User.Sid, &text)) return {};
  const Local held(text);
  return text;
}

// A security descriptor of a file that only the user may open; null if it cannot be created.
Local OwnerOnly() {
  const std::wstring user = OwnUserText();
  if (user.empty()) return nullptr;
  const std::wstring definition = L"D:P(A;;FA;;;" + user + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(definition.c_str(), SDDL_REVISION_1, &descriptor, nullptr);
  return Local(descriptor);
}

HANDLE AsHandle(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

}  // namespace

boost::system::error_code CaptureFile::Create(const boost::filesystem::path& file) {
  Close();
  const Local descriptor = OwnerOnly();
  if (descriptor == nullptr) return LastError();
  SECURITY_ATTRIBUTES security{sizeof(SECURITY_ATTRIBUTES), descriptor.get(), FALSE};
  const HANDLE created = ::CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, &security,
                                       CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (created == INVALID_HANDLE_VALUE) return LastError();
  handle = reinterpret_cast<std::intptr_t>(created);
  size = 0;
  return {};
}

boost::system::error_code CaptureFile::Append(std::span<const std::uint8_t> bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const auto piece = static_cast<DWORD>(std::min<std::size_t>(bytes.size() - done, std::size_t{1} << 30));
    DWORD count = 0;
    if (::WriteFile(AsHandle(handle), bytes.data() + done, piece, &count, nullptr)) {
      done += count;
      continue;
    }
    const boost::system::error_code error = LastError();
    // Remove the partial block, which a reader would report as damage. If that fails too, close the file, because
    // nothing more can be appended to it.
    LARGE_INTEGER whole{};
    whole.QuadPart = static_cast<LONGLONG>(size);
    if (!::SetFilePointerEx(AsHandle(handle), whole, nullptr, FILE_BEGIN) || !::SetEndOfFile(AsHandle(handle))) Close();
    return error;
  }
  size += bytes.size();
  return {};
}

void CaptureFile::Close() {
  if (IsOpen()) ::CloseHandle(AsHandle(handle));
  handle = kNone;
}

}  // namespace fenlux::capture
