// The `ctl` command: sends one request to a running host and shows its answer.
#include <fmt/format.h>

#include <iostream>

#include "refhost/app/commands/commands.h"
#include "refhost/app/control/control_channel.h"
#include "refhost/app/control/net_item_file.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/host_config.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

// Long, because `stop --clear` waits for the driver.
constexpr std::chrono::seconds kAnswerTimeout{60};

boost::filesystem::path SocketPath(const ControlOptions& options, ConfigErrors& errors) {
  if (!options.socket.empty()) return options.socket;
  if (options.config.empty()) return DefaultControlPath();
  const boost::filesystem::path socket = LoadHostConfig(options.config, errors).start.control.socket;
  return socket.empty() ? DefaultControlPath() : socket;
}

}  // namespace

int ControlHost(ControlOptions options) {
  ConfigErrors errors;
  const boost::filesystem::path path = SocketPath(options, errors);
  if (!options.items.empty()) {
    options.request.arguments["items"] = EncodeNetItems(LoadNetItems(options.items, errors));
  }
  if (!errors.Empty()) {
    std::cerr << PrintableLines(errors.Text());
    return kExitUsage;
  }
  const std::string request = EncodeRequest(options.request);
  if (request.size() > kMaxControlRequest) {
    std::cerr << fmt::format("fenlux-host: the request is {} bytes long, but a host takes no more than {}; ",
                             request.size(), kMaxControlRequest)
              << "send fewer items at once\n";
    return kExitUsage;
  }
  try {
    const std::string line = SendControlRequest(path, request, kAnswerTimeout);
    const std::optional<ControlAnswer> answer = DecodeAnswer(line);
    if (!answer) throw ControlChannelError("the host's answer is malformed");
    if (!answer->done) {
      std::cerr << PrintableLines(answer->error) << '\n';
      return kExitRefused;
    }
    if (options.json) {
      std::cout << answer->json << '\n';
    } else {
      std::cout << (answer->text.empty() ? "done\n" : answer->text);
    }
    return kExitSuccess;
  } catch (const ControlChannelError& error) {
    std::cerr << "fenlux-host: " << PrintableLines(error.what()) << '\n';
    return kExitUnreachable;
  }
}

}  // namespace fenlux::refhost
