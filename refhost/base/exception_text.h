// What an exception says, for whoever asked for the operation that it ended.
#pragma once

#include <exception>
#include <string>

namespace fenlux::refhost {

// The message of the exception that is being handled; only inside a catch clause.
inline std::string CurrentExceptionText() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "it ended by something that is no exception and says nothing";
  }
}

}  // namespace fenlux::refhost
