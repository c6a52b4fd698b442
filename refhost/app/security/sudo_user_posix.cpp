// sudo names the user in an environment variable.
#include "refhost/app/security/sudo_user.h"

#include <unistd.h>

#include <charconv>
#include <string>

#include "refhost/base/platform/environment.h"

namespace fenlux::refhost {

std::optional<std::uint32_t> SudoUser() {
  if (::geteuid() != 0) return std::nullopt;
  const std::string text = EnvironmentText("SUDO_UID").value_or("");
  const char* const end = text.data() + text.size();
  std::uint32_t user = 0;
  const auto [rest, error] = std::from_chars(text.data(), end, user);
  if (error != std::errc() || rest != end || user == 0) return std::nullopt;
  return user;
}

}  // namespace fenlux::refhost
