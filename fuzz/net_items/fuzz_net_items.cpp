// Reads any text as the network-control items of a control request, and as an operator's file of them.
//
// The first byte of an input selects which; the rest is the text.
#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz/support/fuzzing.h"
#include "refhost/app/control/net_item_file.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

using testing::Require;

std::optional<NetControlItems> Decode(std::string_view text) {
  try {
    return DecodeNetItems(text);
  } catch (const std::invalid_argument& error) {
    Require(error.what()[0] != '\0', "a refusal has a reason");
    return std::nullopt;
  }
}

bool Same(const NetControlItems& one, const NetControlItems& other) {
  return std::equal(
      one.begin(), one.end(), other.begin(), other.end(),
      [](const NetControlItem& a, const NetControlItem& b) { return a.opaque == b.opaque && a.value == b.value; });
}

void CheckRoundTrip(const NetControlItems& items) {
  const auto again = Decode(EncodeNetItems(items));
  Require(again && Same(*again, items), "encoded items decode to themselves");
}

void FuzzRequest(std::string_view text) {
  const auto items = Decode(text);
  if (!items) return;
  const auto commas = static_cast<std::size_t>(std::count(text.begin(), text.end(), ','));
  Require(items->size() == commas + (text.empty() || text.back() == ',' ? 0 : 1), "no item is lost");
  CheckRoundTrip(*items);
}

void FuzzFile(std::string_view text) {
  ConfigErrors errors;
  const ConfigDocument document(text, "/nowhere/items.toml", errors);
  const NetControlItems items = ReadNetItems(document.Root());
  Require(document.Parsed() || errors.Sorted().size() == 1, "a file that is not TOML gives one error");
  if (errors.Empty()) CheckRoundTrip(items);
}

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::refhost;
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  data[0] % 2 == 0 ? FuzzRequest(text) : FuzzFile(text);
  return 0;
}
