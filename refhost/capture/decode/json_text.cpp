// Limits the nesting depth before parsing, because the library writes nested values recursively.
#include "refhost/capture/decode/json_text.h"

#include <nlohmann/json.hpp>

namespace fenlux::capture {
namespace {

constexpr int kMaxDepth = 64;

bool IsDeep(std::string_view text) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    if (inString) {
      if (character == '\\') ++i;  // what follows cannot end the string
      if (character == '"') inString = false;
    } else if (character == '"') {
      inString = true;
    } else if (character == '{' || character == '[') {
      if (++depth > kMaxDepth) return true;
    } else if (character == '}' || character == ']') {
      --depth;
    }
  }
  return false;
}

}  // namespace

std::optional<refhost::Report> ParseJsonObject(std::string_view text) {
  if (IsDeep(text)) return std::nullopt;
  refhost::Report parsed = refhost::Report::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!parsed.is_object()) return std::nullopt;
  return parsed;
}

}  // namespace fenlux::capture
