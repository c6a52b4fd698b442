// Checks of the values of options and arguments. Each message says what is allowed and what was given.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <string>

namespace fenlux::refhost {

// An integer from `min` to `max`.
CLI::Validator IntegerBetween(std::int64_t min, std::uint64_t max);
// A number that is not negative.
CLI::Validator NotNegative();
// A duration, see ParseDuration.
CLI::Validator Duration();
// One of the words in `choices`, separated by "|" as in help: "on|off".
CLI::Validator OneOf(const std::string& choices);

// The value of an option that passed the check.
std::chrono::milliseconds DurationOf(const std::string& text);

}  // namespace fenlux::refhost
