// Looks at the file after opening it, so that it is the one that is written.
#include "refhost/app/security/trusted_log.h"

#include <stdexcept>
#include <string>

#include "refhost/app/security/file_trust.h"

namespace fenlux::refhost {

LogFile OpenTrustedLog(const boost::filesystem::path& file, bool insecure) {
  LogFile opened = OpenLogFile(file);
  const std::string reason = insecure ? std::string() : WhyUntrusted(file, opened.get());
  if (!reason.empty()) throw std::runtime_error(reason);
  return opened;
}

}  // namespace fenlux::refhost
