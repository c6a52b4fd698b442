// Expands variables and resolves relative paths.
#include "refhost/base/config/config_paths.h"

#include <fmt/format.h>

#include <boost/filesystem/operations.hpp>
#include <optional>

#include "refhost/base/platform/environment.h"
#include "refhost/base/platform/own_process.h"

namespace fenlux::refhost {
namespace {

// Available in files although it is not an environment variable.
constexpr std::string_view kOwnProgram = "FENLUX_HOST_PROGRAM";
constexpr std::string_view kOpen = "${";
constexpr char kClose = '}';

std::optional<std::string> VariableText(const std::string& name) {
  if (name == kOwnProgram) return OwnProgramPath().string();
  return EnvironmentText(name);
}

}  // namespace

Expansion ExpandVariables(std::string_view text) {
  Expansion expansion;
  for (;;) {
    const std::size_t open = text.find(kOpen);
    expansion.text += text.substr(0, open);
    if (open == std::string_view::npos) return expansion;
    text.remove_prefix(open + kOpen.size());
    const std::size_t close = text.find(kClose);
    if (close == std::string_view::npos) return {{}, "has \"${\" without \"}\""};
    const std::string name(text.substr(0, close));
    const std::optional<std::string> value = VariableText(name);
    if (!value) return {{}, fmt::format("refers to the environment variable {}, which is not set", name)};
    expansion.text += *value;
    text.remove_prefix(close + 1);
  }
}

boost::filesystem::path ResolvePath(const boost::filesystem::path& path, const boost::filesystem::path& file) {
  if (path.is_absolute()) return path;
  const boost::filesystem::path directory = boost::filesystem::absolute(file.parent_path());
  if (path.has_root_directory()) return directory.root_name() / path;
  const boost::filesystem::path normal = (directory / path).lexically_normal();
  return normal.filename() == "." ? normal.parent_path() : normal;
}

}  // namespace fenlux::refhost
