// Starts threads; the error message of a failure names the thread.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "common/detached_thread.h"

namespace fenlux::refhost {

// A message that the thread for `name` cannot be started, with the system's reason and what to do.
std::string ThreadFailureText(std::string_view name, const std::error_code& reason);

// Starts a thread that runs `body`. `name` describes it in messages: "the log's writer". Throws std::runtime_error with
// ThreadFailureText if the system refuses. Any thread.
template <typename Body>
std::thread StartThread(std::string_view name, Body&& body) {
  try {
    return std::thread(std::forward<Body>(body));
  } catch (const std::system_error& error) {
    throw std::runtime_error(ThreadFailureText(name, error.code()));
  }
}

// The same for a thread that nobody joins; returns its id. Do not detach the result of StartThread instead: on Windows
// that can lose the next thread (common/detached_thread.h).
template <typename Body>
std::thread::id StartDetachedThread(std::string_view name, Body&& body) {
  try {
    return fenlux::StartDetachedThread(std::forward<Body>(body));
  } catch (const std::system_error& error) {
    throw std::runtime_error(ThreadFailureText(name, error.code()));
  }
}

}  // namespace fenlux::refhost
