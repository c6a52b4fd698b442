// Rendering of the tree, and nothing of what it holds.
#include "refhost/base/report.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kIndent = 2;

template <typename... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};
template <typename... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

// One decimal, whatever the process's locale.
std::string DecimalText(double value) {
  std::array<char, 64> digits{};
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, 1);
  return result.ec == std::errc() ? std::string(digits.data(), result.ptr) : "0.0";
}

void AppendTextLine(std::string& out, std::size_t indent, const std::string& name, std::size_t width,
                    const std::string& value) {
  out.append(indent, ' ');
  out += name;
  if (!value.empty()) {
    out.append(std::max(width, name.size()) - name.size() + kIndent, ' ');
    out += value;
  }
  out += '\n';
}

}  // namespace

std::string JsonString(std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  // Wide text and back: what is invalid is replaced.
  const std::string valid = NarrowFromWide(WideFromNarrow(text));
  std::string json = "\"";
  for (const char character : valid) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      json += '\\';
      json += character;
    } else if (byte < 0x20 || byte == 0x7F) {
      json += "\\u00";
      json += kDigits[byte >> 4];
      json += kDigits[byte & 0xF];
    } else {
      json += character;
    }
  }
  return json += '"';
}

std::string Report::Json() const {
  std::string json;
  AppendJson(json);
  return json;
}

std::string Report::Text() const {
  std::string text;
  AppendText(text, 0);
  return text;
}

void Report::AppendJson(std::string& out) const {
  out += '{';
  bool first = true;
  for (const auto& [name, value] : entries) {
    if (!first) out += ',';
    first = false;
    out += JsonString(name) + ":";
    std::visit(Overloaded{
                   [&](const std::string& text) { out += JsonString(text); },
                   [&](bool flag) { out += flag ? "true" : "false"; },
                   [&](double number) { out += DecimalText(number); },
                   [&](std::uint64_t number) { out += std::to_string(number); },
                   [&](const std::vector<std::string>& texts) {
                     out += '[';
                     for (std::size_t index = 0; index < texts.size(); ++index) {
                       if (index > 0) out += ',';
                       out += JsonString(texts[index]);
                     }
                     out += ']';
                   },
                   [&](const std::vector<Report>& inner) { inner.front().AppendJson(out); },
               },
               value);
  }
  out += '}';
}

void Report::AppendText(std::string& out, std::size_t indent) const {
  std::size_t width = 0;
  for (const auto& [name, value] : entries) {
    if (!std::holds_alternative<std::vector<Report>>(value)) width = std::max(width, name.size());
  }
  for (const auto& [name, value] : entries) {
    const auto line = [&, &name = name](const std::string& text) { AppendTextLine(out, indent, name, width, text); };
    std::visit(Overloaded{
                   [&](const std::string& text) { line(text.empty() ? "-" : Printable(text)); },
                   [&](bool flag) { line(flag ? "yes" : "no"); },
                   [&](double number) { line(DecimalText(number)); },
                   [&](std::uint64_t number) { line(std::to_string(number)); },
                   [&](const std::vector<std::string>& texts) {
                     line(texts.empty() ? "none" : "");
                     for (const std::string& text : texts) {
                       AppendTextLine(out, indent + kIndent, Printable(text), 0, "");
                     }
                   },
                   [&](const std::vector<Report>& inner) {
                     if (inner.front().Empty()) {
                       line("none");
                     } else {
                       line("");
                       inner.front().AppendText(out, indent + kIndent);
                     }
                   },
               },
               value);
  }
}

}  // namespace fenlux::refhost
