// Throws each kind of failure, and composes the report the module writes about it.
#include "tests/support/failure.h"

#include <Poco/Exception.h>

#include <boost/system/error_code.hpp>
#include <boost/system/system_error.hpp>
#include <exception>
#include <stdexcept>

namespace fenlux::testing {
namespace {

// what() may return null, although no sensible class does that.
class NullWhat final : public std::exception {
 public:
  const char* what() const noexcept override { return nullptr; }
};

}  // namespace

const char* NameOf(Failure failure) {
  switch (failure) {
    case Failure::kStandard:
      return "standard exception";
    case Failure::kPoco:
      return "Poco exception";
    case Failure::kBoostSystem:
      return "Boost system error";
    case Failure::kInt:
      return "int";
    case Failure::kNullWhat:
      return "exception with a null message";
  }
  return "";
}

void Throw(Failure failure) {
  switch (failure) {
    case Failure::kStandard:
      throw std::runtime_error("standard failure");
    case Failure::kPoco:
      throw Poco::IOException("poco failure", 42);
    case Failure::kBoostSystem:
      throw boost::system::system_error(boost::system::errc::make_error_code(boost::system::errc::permission_denied));
    case Failure::kInt:
      throw 7;
    case Failure::kNullWhat:
      throw NullWhat();
  }
  throw std::logic_error("no such failure");
}

std::string MessageOf(Failure failure) {
  try {
    Throw(failure);
  } catch (const std::exception& caught) {
    const char* const message = caught.what();
    return message != nullptr ? message : "";
  } catch (...) {
    return {};
  }
}

std::string Report(const std::string& tag, Failure failure) {
  return failure == Failure::kInt ? "[" + tag + ",OTHE]" : "[" + tag + ",STDE] info=" + MessageOf(failure);
}

std::string ReportByKind(const std::string& tag, Failure failure) {
  if (failure == Failure::kPoco) return "[" + tag + ",PCE] code=42,info=I/O error: poco failure";
  if (failure == Failure::kBoostSystem) {
    const auto code = boost::system::errc::make_error_code(boost::system::errc::permission_denied);
    return "[" + tag + ",BSTE] code=" + std::string(code.category().name()) + ":" + std::to_string(code.value()) +
           ",info=<" + code.message() + ">";
  }
  return Report(tag, failure);
}

}  // namespace fenlux::testing
