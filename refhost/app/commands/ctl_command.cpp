// The operator's side of the control channel.
#include <iostream>

#include "refhost/app/commands/commands.h"
#include "refhost/app/control/control_channel.h"
#include "refhost/app/control/net_item_file.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/host_config.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

// Stopping with clearing waits for a driver that may be slow.
constexpr std::chrono::seconds kAnswerPatience{60};

boost::filesystem::path PlaceOf(const ControlOptions& options, ConfigErrors& errors) {
  if (!options.socket.empty()) return options.socket;
  if (options.config.empty()) return DefaultControlPlace();
  const boost::filesystem::path socket = LoadHostConfig(options.config, errors).start.control.socket;
  return socket.empty() ? DefaultControlPlace() : socket;
}

}  // namespace

int ControlHost(ControlOptions options) {
  ConfigErrors errors;
  const boost::filesystem::path place = PlaceOf(options, errors);
  if (!options.items.empty()) {
    options.request.arguments["items"] = EncodeNetItems(LoadNetItems(options.items, errors));
  }
  if (!errors.Empty()) {
    std::cerr << errors.Text();
    return kExitUsage;
  }
  try {
    const std::string line = ControlExchange(place, EncodeRequest(options.request), kAnswerPatience);
    const std::optional<ControlAnswer> answer = DecodeAnswer(line);
    if (!answer) throw ControlChannelError("the host's answer cannot be understood");
    if (!answer->done) {
      std::cerr << answer->error << '\n';
      return kExitRefused;
    }
    if (options.json) {
      std::cout << answer->json << '\n';
    } else {
      std::cout << (answer->text.empty() ? "done\n" : answer->text);
    }
    return kExitFine;
  } catch (const ControlChannelError& error) {
    std::cerr << "fenlux-host: " << error.what() << '\n';
    return kExitUnreachable;
  }
}

}  // namespace fenlux::refhost
