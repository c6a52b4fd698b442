// Reports: named values in a fixed order, formatted as JSON for programs and as aligned text for people.
#pragma once

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace fenlux::refhost {

// A JSON object that keeps the order of its names. Values are strings, booleans, unsigned numbers, tenths (see
// RoundToTenths), arrays of strings, and nested reports. Start with Report::object(): a default Report is null.
using Report = nlohmann::ordered_json;

// One line of JSON, without the line end. Bytes that are not valid UTF-8 become U+FFFD; characters that Printable
// escapes are escaped.
std::string JsonText(const Report& json);

// One value per line, aligned within a level; inner levels are indented. Every line ends with a line feed.
std::string AlignedText(const Report& report);

// Rounds to one decimal, so that JSON shows no more. Accepts values below 10^14.
double RoundToTenths(double value);
// The time in microseconds, rounded like that.
double Microseconds(std::chrono::nanoseconds time);

}  // namespace fenlux::refhost
