// Lays out the fields like the driver: the fixed part, then the items in order.
#include "refhost/emulator/sources/notification_builder.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <cstring>
#include <stdexcept>

namespace fenlux::refhost {
namespace {

using records::Notification;

std::size_t TextSize(const std::u16string& text) { return text.empty() ? 0 : (text.size() + 1) * 2; }

std::uint8_t* AppendText(std::uint8_t* out, const std::u16string& text) {
  if (text.empty()) return out;
  for (const char16_t unit : text) {
    boost::endian::store_little_u16(out, unit);
    out += sizeof(unit);
  }
  boost::endian::store_little_u16(out, 0);
  out += sizeof(char16_t);
  return out;
}

template <typename Record>
void StoreDetail(Notification& fixed, const Record& record) {
  static_assert(sizeof(Record) <= sizeof(fixed.detail));
  std::memcpy(fixed.detail, &record, sizeof(record));
}

struct DetailWriter {
  Notification& fixed;

  void operator()(std::monostate) const {}
  void operator()(const EndpointFields& endpoint) const {
    records::EndpointDetail detail{};
    detail.port = endpoint.port;
    if (const auto* ipv4 = std::get_if<std::uint32_t>(&endpoint.address)) {
      detail.ipv4Address = *ipv4;
    } else {
      detail.ipv6 = 1;
      const auto& bytes = std::get<1>(endpoint.address);
      std::copy(bytes.begin(), bytes.end(), detail.ipv6Address);
    }
    StoreDetail(fixed, detail);
  }
  void operator()(const RemoteFields& remote) const {
    records::RemoteDetail detail{};
    detail.remote = remote.remote ? 1 : 0;
    for (std::size_t i = 0; i < remote.words.size(); ++i) detail.words[i] = remote.words[i];
    StoreDetail(fixed, detail);
  }
};

}  // namespace

std::size_t NotificationSize(const NotificationFields& fields) {
  return sizeof(Notification) + TextSize(fields.path) + TextSize(fields.secondPath) + fields.extraData.size() +
         TextSize(fields.furtherPath);
}

void WriteNotification(const NotificationFields& fields, std::uint8_t* destination) {
  if (fields.identity.size() > sizeof(Notification::identity)) {
    throw std::invalid_argument("identity data of more than 64 bytes does not fit in a notification");
  }
  Notification fixed{};
  fixed.processId = fields.processId;
  fixed.code = fields.code;
  fixed.variant = fields.variant;
  fixed.conditionA = fields.conditionA;
  fixed.conditionB = fields.conditionB;
  fixed.conditionC = fields.conditionC;
  fixed.oplock = fields.oplock;
  fixed.item1Size = fields.statedItem1Size.value_or(static_cast<std::uint32_t>(TextSize(fields.path)));
  fixed.item2Size = fields.statedItem2Size.value_or(static_cast<std::uint32_t>(TextSize(fields.secondPath)));
  fixed.item3Size = fields.statedItem3Size.value_or(static_cast<std::uint32_t>(fields.extraData.size()));
  fixed.item4Present = fields.furtherPath.empty() ? 0u : 1u;
  fixed.identityPresent = fields.identity.empty() ? 0u : 1u;
  std::copy(fields.identity.begin(), fields.identity.end(), fixed.identity);
  std::visit(DetailWriter{fixed}, fields.detail);
  fixed.accessKind = fields.accessKind;
  fixed.accessValueA = fields.accessValueA;
  fixed.accessValueB = fields.accessValueB;

  std::memcpy(destination, &fixed, sizeof(fixed));
  std::uint8_t* out = destination + sizeof(fixed);
  out = AppendText(out, fields.path);
  out = AppendText(out, fields.secondPath);
  out = std::copy(fields.extraData.begin(), fields.extraData.end(), out);
  AppendText(out, fields.furtherPath);
}

std::vector<std::uint8_t> BuildNotification(const NotificationFields& fields) {
  std::vector<std::uint8_t> message(NotificationSize(fields));
  WriteNotification(fields, message.data());
  return message;
}

}  // namespace fenlux::refhost
