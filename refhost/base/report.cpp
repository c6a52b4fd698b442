// The two output formats of a report.
#include "refhost/base/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kIndent = 2;

// One decimal, in any locale.
std::string DecimalText(double value) { return fmt::format("{:.1f}", value); }

std::string ValueText(const Report& value) {
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    return text.empty() ? "-" : Printable(text);
  }
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_number_float()) return DecimalText(value.get<double>());
  if (value.is_structured() && value.empty()) return "none";
  return value.is_structured() ? std::string() : value.dump();
}

void AppendLine(std::string& out, std::size_t indent, const std::string& name, std::size_t width,
                const std::string& value) {
  if (value.empty()) {
    out += fmt::format("{:{}}{}\n", "", indent, name);
  } else {
    out += fmt::format("{:{}}{:<{}}{:{}}{}\n", "", indent, name, width, "", kIndent, value);
  }
}

void AppendReport(std::string& out, const Report& report, std::size_t indent) {
  std::size_t width = 0;
  for (const auto& [name, value] : report.items()) {
    if (!value.is_object()) width = std::max(width, Printable(name).size());
  }
  for (const auto& [name, value] : report.items()) {
    AppendLine(out, indent, Printable(name), width, ValueText(value));
    if (value.is_object()) AppendReport(out, value, indent + kIndent);
    if (!value.is_array()) continue;
    for (const Report& text : value) {
      AppendLine(out, indent + kIndent, Printable(text.get_ref<const std::string&>()), 0, "");
    }
  }
}

}  // namespace

std::string JsonText(const Report& json) {
  return PrintableJson(json.dump(-1, ' ', false, Report::error_handler_t::replace));
}

std::string AlignedText(const Report& report) {
  std::string text;
  AppendReport(text, report, 0);
  return text;
}

double RoundToTenths(double value) {
  // The number nearest to the decimal text. Its shortest exact representation is that text again.
  double rounded = 0;
  const std::string text = DecimalText(value);
  std::from_chars(text.data(), text.data() + text.size(), rounded);
  return rounded;
}

double Microseconds(std::chrono::nanoseconds time) {
  return RoundToTenths(std::chrono::duration<double, std::micro>(time).count());
}

}  // namespace fenlux::refhost
