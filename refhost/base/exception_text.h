// The message of an exception, to report why an operation failed.
#pragma once

#include <exception>
#include <string>

namespace fenlux::refhost {

// The message of the exception being handled. Call it only in a catch clause.
inline std::string CurrentExceptionText() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what() == nullptr ? "" : error.what();
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace fenlux::refhost
