// The notification table, and the functions that store the additional values of some codes.
#include "connection/notification_table.h"

#include <algorithm>
#include <array>
#include <functional>
#include <initializer_list>
#include <iterator>

namespace fenlux {
namespace {

constexpr EventTypes One(std::uint32_t type) { return {type, type}; }

template <class Detail>
const Detail& DetailOf(const records::Notification& message) {
  static_assert(sizeof(Detail) <= sizeof(records::Notification::detail));
  return *reinterpret_cast<const Detail*>(message.detail);
}

// An access has two values; its event types depend on the kind of access and its conditions.
EventTypes Access(NotificationContext& context, EventTypes rowTypes) {
  constexpr EventTypes kSpecialAccess{0x401C, 0x401D};
  constexpr EventTypes kPlainAccess{0x4002, 0x4003};
  const auto& message = context.message;
  context.record.SetValueA(message.accessValueA.value());
  context.record.SetValueB(message.accessValueB.value());
  if (message.accessKind != 0) return kSpecialAccess;
  const bool conditional = message.conditionA != 0 || message.conditionB != 0 || message.conditionC != 0;
  return conditional ? rowTypes : kPlainAccess;
}

// Belongs to category 2 despite its number; has other event types under condition B.
EventTypes SecondCategory(NotificationContext& context, EventTypes rowTypes) {
  constexpr EventTypes kUnderConditionB{0x4008, 0x4009};
  context.record.SetCategory(kEventCategory2);
  return context.message.conditionB != 0 ? kUnderConditionB : rowTypes;
}

EventTypes NoReply(NotificationContext& context, EventTypes rowTypes) {
  context.replyWanted = false;
  return rowTypes;
}

EventTypes Endpoint(NotificationContext& context, EventTypes rowTypes) {
  const auto& detail = DetailOf<records::EndpointDetail>(context.message);
  const bool ipv6 = detail.ipv6 != 0;
  context.record.SetPort(detail.port.value());
  context.record.SetIpv6(ipv6);
  if (ipv6) {
    std::array<std::uint8_t, 16> address;
    std::copy(std::begin(detail.ipv6Address), std::end(detail.ipv6Address), address.begin());
    context.record.SetIpv6Address(address);
  } else {
    context.record.SetIpv4Address(detail.ipv4Address.value());
  }
  return rowTypes;
}

// If the driver sent no path, the host looks it up by the record's path source.
EventTypes Remote(NotificationContext& context, EventTypes rowTypes) {
  const auto& detail = DetailOf<records::RemoteDetail>(context.message);
  context.record.SetRemoteFlag(detail.remote != 0);
  context.record.SetWord0(detail.words[0].value());
  context.record.SetWord1(detail.words[1].value());
  context.record.SetWord2(detail.words[2].value());
  context.record.SetWord3(detail.words[3].value());
  std::wstring path;
  if (context.record.GetPath(path).empty()) {
    context.winWork.GetProcessWideText(path, context.record.GetPathSource(), 0);
    context.record.SetPath(path);
  }
  return rowTypes;
}

EventTypes Marked(NotificationContext& context, EventTypes rowTypes) {
  context.record.Mark();
  return rowTypes;
}

// Sorted by code; one row per line.
// clang-format off
constexpr NotificationRow kRows[] = {
    {4097, {0x4000, 0x4001}, Access},
    {4098, One(0x4005), nullptr},
    {4099, One(0x4006), nullptr},
    {4100, One(0x4007), nullptr},
    {4101, {0x4008, 0x4009}, nullptr},
    {4102, One(0x400A), nullptr},
    {4103, One(0x400B), nullptr},
    {4104, One(0x400C), nullptr},
    {4105, One(0x400D), nullptr},
    {4106, One(0x400E), nullptr},
    {4107, One(0x400F), nullptr},
    {4108, One(0x4010), nullptr},
    {4109, One(0x4011), SecondCategory},
    {4110, One(0x4012), nullptr},
    {4111, One(0x4013), nullptr},
    {4112, One(0x4014), nullptr},
    {4113, One(0x4015), NoReply},
    {4114, One(0x1002), Endpoint},
    {4116, One(0x4018), Remote},
    {4117, One(0x401B), nullptr},
    {4118, One(0x401E), nullptr},
    {8193, {0x4000, 0x4001}, Access},
    {8194, One(0x4004), Marked},
    {8195, One(0x4007), nullptr},
    {8196, {0x4008, 0x4009}, nullptr},
    {8197, One(0x400A), nullptr},
    {8198, One(0x400B), nullptr},
    {8199, One(0x400C), nullptr},
    {8200, One(0x400D), nullptr},
    {8201, One(0x400E), nullptr},
    {8202, One(0x400F), nullptr},
    {8203, One(0x4010), nullptr},
    {8204, One(0x4017), nullptr},
    {8205, One(0x4019), Remote},
    {8206, One(0x401A), nullptr},
};
// clang-format on
static_assert(std::ranges::adjacent_find(kRows, std::ranges::greater_equal{}, &NotificationRow::code) ==
              std::end(kRows));

// Whether the codes whose rows name `work` are exactly these.
constexpr bool OnlyTheseNeed(RecordWork work, std::initializer_list<std::uint32_t> codes) {
  return std::ranges::all_of(kRows, [&](const NotificationRow& row) {
    return (row.work == work) == (std::ranges::find(codes, row.code) != codes.end());
  });
}
static_assert(OnlyTheseNeed(Access, {records::code::kAccess1, records::code::kAccess2}));
static_assert(OnlyTheseNeed(SecondCategory, {records::code::kCategory2}));
static_assert(OnlyTheseNeed(NoReply, {records::code::kNoReply}));
static_assert(OnlyTheseNeed(Endpoint, {records::code::kEndpoint}));
static_assert(OnlyTheseNeed(Remote, {records::code::kRemote1, records::code::kRemote2}));
static_assert(OnlyTheseNeed(Marked, {records::code::kMarked}));

// The row of each code from `Min` to `Max`, or null for a code without a row.
template <std::uint32_t Min, std::uint32_t Max>
constexpr std::array<const NotificationRow*, Max - Min + 1> RowsOf() {
  std::array<const NotificationRow*, Max - Min + 1> rows{};
  for (const NotificationRow& row : kRows) {
    if (row.code >= Min && row.code <= Max) rows[row.code - Min] = &row;
  }
  return rows;
}
static_assert(std::ranges::all_of(kRows, [](const NotificationRow& row) {
  using namespace records::code;
  return (row.code >= kMin1 && row.code <= kMax1) || (row.code >= kMin2 && row.code <= kMax2);
}));

}  // namespace

const NotificationRow* FindNotificationRow(std::uint32_t code) {
  using namespace records::code;
  static constexpr auto kRows1 = RowsOf<kMin1, kMax1>();
  static constexpr auto kRows2 = RowsOf<kMin2, kMax2>();
  if (code >= kMin1 && code <= kMax1) return kRows1[code - kMin1];
  if (code >= kMin2 && code <= kMax2) return kRows2[code - kMin2];
  return nullptr;
}

}  // namespace fenlux
