// Writes through stdio, whose buffer the queue flushes after each batch.
#include "refhost/services/log/log_file_sink.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace fenlux::refhost {
namespace {

[[noreturn]] void ThrowFailure(int error) {
  throw std::runtime_error("the log file cannot be written: " + std::generic_category().message(error));
}

}  // namespace

void LogFileSink::sink_it_(const spdlog::details::log_msg& message) {
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  if (std::fwrite(line.data(), 1, line.size(), file.get()) != line.size()) {
    writeError = errno;
    ThrowFailure(writeError);
  }
}

void LogFileSink::flush_() {
  const int lastError = std::exchange(writeError, 0);
  if (std::fflush(file.get()) != 0) ThrowFailure(errno);
  if (lastError != 0) ThrowFailure(lastError);
}

}  // namespace fenlux::refhost
