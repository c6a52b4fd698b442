// Writing through stdio, whose buffer the queue flushes after each batch.
#include "refhost/services/log/log_file_sink.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace fenlux::refhost {
namespace {

[[noreturn]] void ThrowFailure() {
  const int error = errno;
  throw std::runtime_error("the log file takes no more: " + std::generic_category().message(error));
}

}  // namespace

void LogFileSink::sink_it_(const spdlog::details::log_msg& message) {
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  if (std::fwrite(line.data(), 1, line.size(), file.get()) != line.size()) {
    ThrowFailure();
  }
}

void LogFileSink::flush_() {
  if (std::fflush(file.get()) != 0) ThrowFailure();
}

}  // namespace fenlux::refhost
