// In a request, an item is the hexadecimal digits of its 48 opaque bytes, a colon and its value. Commas separate items.
#include "refhost/app/control/net_item_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/hex.h"

namespace fenlux::refhost {
namespace {

using Opaque = decltype(NetControlItem::opaque);

// nullopt unless there are exactly as many digits as the bytes need.
std::optional<Opaque> ParseOpaque(std::string_view digits) {
  Opaque opaque{};
  const auto bytes = BytesFromHex(digits);
  if (digits.size() != 2 * opaque.size() || !bytes || bytes->size() != opaque.size()) return std::nullopt;
  std::copy(bytes->begin(), bytes->end(), opaque.begin());
  return opaque;
}

NetControlItem ReadItem(const ConfigTable& table) {
  NetControlItem item{};
  item.value = table.RequiredUnsigned("value");
  if (table.Has("opaque_text")) {
    if (table.Has("opaque")) table.Report("opaque_text", "cannot be combined with opaque");
    const std::string text = table.Text("opaque_text", "");
    if (text.size() > item.opaque.size()) {
      table.Report("opaque_text", fmt::format("has {} bytes; an item holds {}", text.size(), item.opaque.size()));
    } else {
      std::copy(text.begin(), text.end(), item.opaque.begin());
    }
    return item;
  }
  const std::string digits = table.RequiredText("opaque");
  if (digits.empty()) return item;
  if (const auto opaque = ParseOpaque(digits)) {
    item.opaque = *opaque;
  } else {
    table.Report("opaque", "must be 96 hexadecimal digits");
  }
  return item;
}

NetControlItem DecodeItem(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) throw std::invalid_argument("a network-control item has no value");
  const auto opaque = ParseOpaque(text.substr(0, colon));
  NetControlItem item{};
  const std::string_view value = text.substr(colon + 1);
  const auto result = std::from_chars(value.data(), value.data() + value.size(), item.value);
  if (!opaque || value.empty() || result.ec != std::errc() || result.ptr != value.data() + value.size()) {
    throw std::invalid_argument("a network-control item is not 96 hexadecimal digits, a colon and a number");
  }
  item.opaque = *opaque;
  return item;
}

}  // namespace

NetControlItems LoadNetItems(const boost::filesystem::path& file, ConfigErrors& errors) {
  return ReadNetItems(ConfigDocument(file, errors).Root());
}

NetControlItems ReadNetItems(const ConfigTable& root) {
  NetControlItems items;
  for (const ConfigTable& table : root.Tables("items")) items.push_back(ReadItem(table));
  root.Finish();
  return items;
}

std::string EncodeNetItems(const NetControlItems& items) {
  std::string text;
  for (const NetControlItem& item : items) {
    if (!text.empty()) text += ',';
    text += fmt::format("{}:{}", HexText(item.opaque), item.value);
  }
  return text;
}

NetControlItems DecodeNetItems(std::string_view text) {
  NetControlItems items;
  while (!text.empty()) {
    const std::size_t comma = std::min(text.find(','), text.size());
    items.push_back(DecodeItem(text.substr(0, comma)));
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return items;
}

}  // namespace fenlux::refhost
