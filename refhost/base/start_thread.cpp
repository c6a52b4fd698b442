// Composes the message for a thread that cannot be started.
#include "refhost/base/start_thread.h"

#include <fmt/format.h>

namespace fenlux::refhost {

std::string ThreadFailureText(std::string_view name, const std::error_code& reason) {
  return fmt::format(
      "the thread for {} cannot be started: {}; raise the limit on processes and threads, or free memory", name,
      reason.message());
}

}  // namespace fenlux::refhost
