// A structured log line: facts that the log's writer formats as a sentence or as JSON.
#pragma once

#include <cstddef>
#include <string>

#include "refhost/base/report.h"

namespace fenlux::refhost {

// Immutable. Created by the logging thread and formatted by the writer thread, so that logging does not wait for it.
class LogContent {
 public:
  virtual ~LogContent() = default;
  // The line's text, UTF-8. The log escapes it.
  virtual std::string Text() const = 0;
  // Adds the facts to the line's JSON object, which already has the text.
  virtual void AddTo(Report& line) const = 0;
  // Its approximate memory use while queued, in bytes.
  virtual std::size_t Size() const = 0;
};

// The outputs that get a line if its severity is high enough for them.
enum class LogAudience { kAll, kConsole, kFile };

}  // namespace fenlux::refhost
