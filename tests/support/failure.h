// The exceptions that tests make host calls throw, and how the module reports them.
#pragma once

#include <string>

namespace fenlux::testing {

// What a failing call throws.
enum class Failure { kStandard, kPoco, kBoostSystem, kInt, kNullWhat };

inline constexpr Failure kAllFailures[] = {Failure::kStandard, Failure::kPoco, Failure::kBoostSystem, Failure::kInt,
                                           Failure::kNullWhat};

// The failure's name, for traces.
const char* NameOf(Failure failure);

// Throws what `failure` names: std::runtime_error("standard failure"), Poco::IOException("poco failure", 42),
// boost::system::system_error(permission_denied), the int 7, or a std::exception whose what() returns null.
[[noreturn]] void Throw(Failure failure);

// The text that a report of this failure gives after "info=": the exception's message; empty if it has none.
std::string MessageOf(Failure failure);

// The module's report where it distinguishes standard exceptions from everything else.
std::string Report(const std::string& tag, Failure failure);

// The module's report where it distinguishes Poco and Boost exceptions too.
std::string ReportByKind(const std::string& tag, Failure failure);

}  // namespace fenlux::testing
