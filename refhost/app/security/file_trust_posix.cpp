// Walks the path component by component, following links itself. Once a component is known to be safe, only its owners
// can replace it, so the file that is opened later is the one that was checked.
#include "refhost/app/security/file_trust.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <optional>
#include <string_view>
#include <vector>

#include "refhost/app/security/sudo_user.h"
#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

constexpr int kMaxLinks = 40;  // as the kernel does
constexpr const char* kRemedy = "or override this check with --insecure-permissions";

// Whether the group is the private group that the system created for the user: with such groups, users' files are often
// writable by their group.
bool IsPrivateGroup(gid_t group, uid_t user) {
  // The process has no other thread yet.
  const passwd* const account = ::getpwuid(user);  // NOLINT(concurrency-mt-unsafe)
  if (account == nullptr || account->pw_gid != group) return false;
  const std::string name = account->pw_name;
  const struct group* const entry = ::getgrgid(group);  // NOLINT(concurrency-mt-unsafe)
  if (entry == nullptr || entry->gr_name != name) return false;
  for (char** member = entry->gr_mem; *member != nullptr; ++member) {
    if (*member != name) return false;
  }
  return true;
}

bool OthersMayWrite(const struct stat& status) {
  if ((status.st_mode & S_IWOTH) != 0) return true;
  if ((status.st_mode & S_IWGRP) == 0 || status.st_gid == 0) return false;
  const std::optional<std::uint32_t> sudoUser = SudoUser();
  return !sudoUser || !IsPrivateGroup(status.st_gid, *sudoUser);
}

// What is wrong with one component of a path; empty if nothing.
std::string Problem(const fs::path& path, const struct stat& status) {
  if (status.st_uid != 0 && status.st_uid != SudoUser()) {
    return fmt::format("{} belongs to user {}, who could change what root runs. Give it to root (chown root), {}",
                       path.native(), status.st_uid, kRemedy);
  }
  if (S_ISLNK(status.st_mode)) return {};  // nobody can write one
  const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
  if (isSticky || !OthersMayWrite(status)) return {};
  return fmt::format(
      "{} may be written by other users (mode {:04o}), who could change what root runs. Take that right "
      "away (chmod go-w), {}",
      path.native(), status.st_mode & 07777U, kRemedy);
}

// The components of a path that are still to be checked, the next one last.
using Components = std::vector<fs::path>;

void Push(Components& components, const fs::path& path) {
  const Components added(path.begin(), path.end());
  components.insert(components.end(), added.rbegin(), added.rend());
}

}  // namespace

std::string WhyUntrusted(const fs::path& file) {
  if (::geteuid() != 0) return {};
  Components components;
  Push(components, fs::absolute(file));
  fs::path current = "/";
  int links = 0;
  while (!components.empty()) {
    const fs::path name = components.back();
    components.pop_back();
    if (name == ".") continue;
    if (name == "..") {
      current = current.parent_path();  // no component of it is a link
      if (current.empty()) current = "/";
      continue;
    }
    const fs::path next = name.is_absolute() ? name : current / name;
    struct stat status {};
    if (::lstat(next.c_str(), &status) != 0) {
      return errno == ENOENT ? std::string() : fmt::format("{} cannot be checked: {}", next.native(), LastErrorText());
    }
    if (std::string problem = Problem(next, status); !problem.empty()) return problem;
    if (!S_ISLNK(status.st_mode)) {
      current = next;
      continue;
    }
    if (++links > kMaxLinks) return fmt::format("{} has too many symbolic links", file.native());
    boost::system::error_code error;
    const fs::path target = fs::read_symlink(next, error);
    if (error) return fmt::format("{} cannot be checked: {}", next.native(), error.message());
    Push(components, target);  // an absolute one begins with "/"
  }
  return {};
}

std::string WhyUntrusted(const fs::path& file, std::FILE* opened) {
  if (::geteuid() != 0) return {};
  struct stat status {};
  if (::fstat(::fileno(opened), &status) != 0) {
    return fmt::format("{} cannot be checked: {}", file.native(), LastErrorText());
  }
  return Problem(file, status);
}

}  // namespace fenlux::refhost
