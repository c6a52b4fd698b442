// Reads and checks the address.
#include "refhost/app/metrics/metrics_settings.h"

#include <fmt/format.h>

#include <boost/asio/ip/address.hpp>
#include <charconv>
#include <optional>
#include <string_view>

#include "refhost/app/metrics/metrics_server.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

struct Place {
  boost::asio::ip::address address;
  std::uint16_t port = 0;
};

// "127.0.0.1:9464" or "[::1]:9464".
std::optional<Place> ParsePlace(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::string_view port = text.substr(colon + 1);
  std::string_view host = text.substr(0, colon);
  const bool bracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  Place place;
  const auto parsed = std::from_chars(port.data(), port.data() + port.size(), place.port);
  if (port.empty() || parsed.ec != std::errc() || parsed.ptr != port.data() + port.size()) return std::nullopt;
  boost::system::error_code error;
  place.address = boost::asio::ip::make_address(std::string(host), error);
  if (error || place.address.is_v6() != bracketed) return std::nullopt;
  return place;
}

}  // namespace

MetricsSettings ReadMetricsSettings(const ConfigTable& table) {
  MetricsSettings settings;
  const bool remoteAllowed = table.Boolean("allow_remote", false);
  const std::string text = table.Text("listen", "");
  if (text.empty()) {
    if (table.Has("listen")) table.Report("listen", "must not be empty; leave it out to serve no metrics");
    return settings;
  }
  if (!MetricsExist()) {
    table.Report("listen", "metrics are available on Linux only");
    return settings;
  }
  const std::optional<Place> place = ParsePlace(text);
  if (!place) {
    table.Report("listen", fmt::format("must be a numeric address and a port, such as \"127.0.0.1:9464\" or "
                                       "\"[::1]:9464\", not \"{}\"",
                                       text));
    return settings;
  }
  if (!place->address.is_loopback() && !remoteAllowed) {
    table.Report("listen", fmt::format("{} can be reached from other machines, and metrics name your rules; use "
                                       "127.0.0.1, or permit it with allow_remote = true",
                                       place->address.to_string()));
  }
  settings.address = place->address.to_string();
  settings.port = place->port;
  return settings;
}

}  // namespace fenlux::refhost
