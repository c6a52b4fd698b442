// The log's output to an open file.
#pragma once

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

#include <utility>

#include "refhost/services/log/log_file.h"

namespace fenlux::refhost {

// Not thread-safe. Throws std::runtime_error if writing fails. A flush also throws if a write has failed since the last
// flush, because the lines in the file's buffer at that time are lost too.
class LogFileSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  explicit LogFileSink(LogFile opened) : file(std::move(opened)) {}

  // Writes to this file from now on. All earlier lines must have been flushed.
  void Replace(LogFile opened) { file = std::move(opened); }

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override;

 private:
  LogFile file;
  int writeError = 0;  // of a write since the last flush; 0: none failed
};

}  // namespace fenlux::refhost
