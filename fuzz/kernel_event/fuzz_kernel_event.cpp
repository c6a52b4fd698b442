// Builds the notification of any kernel event with any path. The driver's header must accept it and read the same event
// from it.
//
// An input is the event's mask (8 bytes), the process id (4 bytes) and the path's bytes.
#include <sys/fanotify.h>

#include <string>
#include <vector>

#include "fenlux/driver_protocol.h"
#include "fuzz/support/fuzzing.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/emulator/sources/kernel/kernel_event.h"

namespace fenlux::refhost {
namespace {

using testing::ExactBytes;
using testing::Require;

std::u16string Units(FenluxText text) {
  std::u16string units;
  for (std::size_t i = 0; i < text.count; ++i) units.push_back(static_cast<char16_t>(FenluxTextUnit(text, i)));
  return units;
}

void Run(testing::FuzzInput input) {
  fanotify_event_metadata event{};
  event.mask = input.U64();
  event.pid = static_cast<int>(input.U32());
  event.fd = -1;
  const std::string path(input.RestText());
  static std::vector<std::uint8_t> message;  // reused, as a reader of events reuses it
  BuildKernelNotification(event, path, message);

  const ExactBytes exact(message);
  FenluxNotificationView view{};
  Require(FenluxParseNotification(exact.Data(), exact.Size(), &view) == FENLUX_OK, "a kernel event is a notification");
  const bool reading = (event.mask & FAN_ACCESS_PERM) != 0 && (event.mask & (FAN_OPEN_PERM | FAN_OPEN_EXEC_PERM)) == 0;
  Require(view.event.code == (reading ? 4098 : 4097), "opening and reading have their codes");
  Require((view.event.conditionA != 0) == ((event.mask & FAN_OPEN_EXEC_PERM) != 0), "an execution is marked");
  Require(view.event.processId == static_cast<std::uint64_t>(event.pid), "the process id is kept");
  const std::u16string expected = Utf16FromNarrow(path.substr(0, path.find('\0')));
  Require(Units(view.path) == expected, "the path is kept");
  Require(view.secondPath.count == 0 && view.extraData.size == 0 && view.identity.size == 0, "nothing else is in it");
}

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fenlux::refhost::Run({data, size});
  return 0;
}
