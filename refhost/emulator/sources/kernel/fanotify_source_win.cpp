// Windows has no fanotify, so kernel events are not available.
#include <stdexcept>

#include "refhost/emulator/sources/kernel/fanotify_source.h"

namespace fenlux::refhost {

std::shared_ptr<EventSource> MakeFanotifySource(std::shared_ptr<EmulatedDriver>, const KernelEventSettings&,
                                                UnjudgedPolicy) {
  throw std::runtime_error("kernel events need fanotify, which this system does not have; set source = \"scripted\"");
}

}  // namespace fenlux::refhost
