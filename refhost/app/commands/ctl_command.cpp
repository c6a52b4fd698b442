// The `ctl` command: sends one request to a running host and shows its answer.
#include <fmt/format.h>

#include <iostream>
#include <nlohmann/json.hpp>

#include "refhost/app/commands/commands.h"
#include "refhost/app/commands/watch_events.h"
#include "refhost/app/control/control_channel.h"
#include "refhost/app/control/net_item_file.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/host_config.h"
#include "refhost/app/problem_output.h"
#include "refhost/app/security/file_trust.h"
#include "refhost/app/status/health.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

// Long, because `stop --clear` waits for the driver.
constexpr std::chrono::seconds kAnswerTimeout{60};
// A host that takes longer is not healthy.
constexpr std::chrono::seconds kHealthTimeout{10};

using Paths = std::vector<boost::filesystem::path>;

// Where to look for the host, in this order.
Paths SocketPaths(const ControlOptions& options, ConfigErrors& errors) {
  if (!options.socket.empty()) return {options.socket};
  if (options.config.empty()) return DefaultControlPaths();
  const boost::filesystem::path socket = LoadControlSettings(options.config, errors).socket;
  return socket.empty() ? DefaultControlPaths() : Paths{socket};
}

// The answer of the first host that can be reached. Throws ControlChannelError, listing what was tried.
std::string SendToFirst(const Paths& paths, const std::string& request, std::chrono::milliseconds timeout) {
  std::string tried;
  for (const auto& path : paths) {
    try {
      return SendControlRequest(path, request, timeout);
    } catch (const ControlChannelUnreachable& error) {
      tried += (tried.empty() ? "" : "; ") + std::string(error.what());
    }
  }
  throw ControlChannelError(tried);
}

int Fail(int code, const ControlOptions& options, const std::string& text) {
  std::cerr << ProblemLines(text, options.json);
  return code;
}

// On standard output, where monitoring scripts also read the answer of a running host.
int ShowUnreachable(const std::string& reason, bool json) {
  const Report report = UnreachableReport(reason);
  std::cout << (json ? JsonText(report) + "\n" : HealthText(report));
  return HealthExitCode(report);
}

int Watch(const Paths& paths, const ControlOptions& options) {
  try {
    return WatchEvents(options.request, options.json, [&](const ControlRequest& request) {
      const std::optional<ControlAnswer> answer =
          DecodeAnswer(SendToFirst(paths, EncodeRequest(request), kAnswerTimeout));
      if (!answer) throw ControlChannelError("the host's answer is malformed");
      return *answer;
    });
  } catch (const ControlChannelError& error) {
    return Fail(kExitUnreachable, options, std::string("fenlux-host: ") + error.what());
  }
}

}  // namespace

int ControlHost(ControlOptions options) {
  ConfigErrors errors;
  const Paths paths = SocketPaths(options, errors);
  if (!options.items.empty()) {
    const std::string reason = options.insecurePermissions ? std::string() : WhyUntrusted(options.items);
    if (!reason.empty()) return Fail(kExitUsage, options, "fenlux-host: " + reason);
    options.request.arguments["items"] = EncodeNetItems(LoadNetItems(options.items, errors));
  }
  if (!errors.Empty()) {
    std::cerr << ProblemLines(errors, options.json);
    return kExitUsage;
  }
  const std::string request = EncodeRequest(options.request);
  if (request.size() > kMaxControlRequest) {
    return Fail(kExitUsage, options,
                fmt::format("fenlux-host: the request is {} bytes long, but a host accepts no more than {}; send fewer "
                            "items at once",
                            request.size(), kMaxControlRequest));
  }
  if (options.request.operation == "watch") return Watch(paths, options);
  const bool isHealth = options.request.operation == "health";
  try {
    const std::string line = SendToFirst(paths, request, isHealth ? kHealthTimeout : kAnswerTimeout);
    const std::optional<ControlAnswer> answer = DecodeAnswer(line);
    if (!answer) throw ControlChannelError("the host's answer is malformed");
    if (!answer->done) {
      return Fail(kExitRefused, options, answer->error);
    }
    if (options.json) {
      std::cout << answer->json << '\n';
    } else {
      std::cout << (answer->text.empty() ? "done\n" : answer->text);
    }
    std::cout << std::flush;
    return std::cout ? answer->code : Fail(kExitOutput, options, "fenlux-host: " + OutputFailure());
  } catch (const ControlChannelError& error) {
    if (isHealth) return ShowUnreachable(error.what(), options.json);
    return Fail(kExitUnreachable, options, std::string("fenlux-host: ") + error.what());
  }
}

}  // namespace fenlux::refhost
