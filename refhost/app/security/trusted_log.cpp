// Checks the directories once they exist, because any user can create a missing one in a sticky directory. Checks the
// file after opening it, so that the file that is checked is the one that is written.
#include "refhost/app/security/trusted_log.h"

#include <stdexcept>
#include <string>

#include "refhost/app/security/file_trust.h"

namespace fenlux::refhost {
namespace {

void ThrowIfAny(const std::string& reason) {
  if (!reason.empty()) throw std::runtime_error(reason);
}

}  // namespace

LogFile OpenTrustedLog(const boost::filesystem::path& file, bool insecure) {
  if (file.empty()) return nullptr;
  if (insecure) return OpenLogFile(file);
  CreateDirectoriesOf(file);
  ThrowIfAny(WhyUntrusted(file));
  LogFile opened = OpenForAppending(file);
  ThrowIfAny(WhyUntrusted(file, opened.get()));
  return opened;
}

}  // namespace fenlux::refhost
