// One table for each kind of number. Codes without a specific name are named after their event type.
#include "refhost/capture/decode/protocol_names.h"

#include <algorithm>
#include <span>

namespace fenlux::capture {
namespace {

struct Name {
  std::uint32_t number;
  std::string_view text;
};

constexpr Name kCommands[] = {
    {1, "add monitor object"}, {3, "commit monitor objects"}, {4, "grpm switch"},      {6, "grsp switch"},
    {8, "grdto value"},        {9, "grhara switch"},          {11, "dump debug info"}, {12, "spsp state"},
    {13, "driver version"},    {19, "net-control mode"},      {20, "system process"},  {21, "net item list begin"},
    {22, "net item"},          {23, "net item list end"},     {24, "driver config"},
};

constexpr Name kCodes[] = {
    {4097, "access"},
    {4098, "event 0x4005"},
    {4099, "event 0x4006"},
    {4100, "event 0x4007"},
    {4101, "event 0x4008 or 0x4009"},
    {4102, "event 0x400A"},
    {4103, "event 0x400B"},
    {4104, "event 0x400C"},
    {4105, "event 0x400D"},
    {4106, "event 0x400E"},
    {4107, "event 0x400F"},
    {4108, "event 0x4010"},
    {4109, "event 0x4011, 0x4008 or 0x4009"},
    {4110, "event 0x4012"},
    {4111, "event 0x4013"},
    {4112, "event 0x4014"},
    {4113, "event 0x4015, no reply wanted"},
    {4114, "endpoint"},
    {4116, "remote"},
    {4117, "event 0x401B"},
    {4118, "event 0x401E, prefixed path"},
    {8193, "access"},
    {8194, "event 0x4004, marked"},
    {8195, "event 0x4007"},
    {8196, "event 0x4008 or 0x4009"},
    {8197, "event 0x400A"},
    {8198, "event 0x400B"},
    {8199, "event 0x400C"},
    {8200, "event 0x400D"},
    {8201, "event 0x400E"},
    {8202, "event 0x400F"},
    {8203, "event 0x4010"},
    {8204, "event 0x4017, further path"},
    {8205, "remote"},
    {8206, "event 0x401A"},
};

constexpr Name kVerdicts[] = {
    {2, "verdict 2"}, {3, "pass"},           {4, "verdict 4"}, {5, "verdict 5"},
    {6, "context"},   {7, "pass, client 2"}, {8, "unjudged"},
};

std::string_view Find(std::span<const Name> names, std::uint32_t number) {
  const auto found = std::ranges::find(names, number, &Name::number);
  return found == names.end() ? std::string_view("unknown") : found->text;
}

}  // namespace

std::string_view CommandName(std::uint32_t command) { return Find(kCommands, command); }
std::string_view CodeName(std::uint32_t code) { return Find(kCodes, code); }
std::string_view VerdictName(std::uint32_t verdict) { return Find(kVerdicts, verdict); }

}  // namespace fenlux::capture
