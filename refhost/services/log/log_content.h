// A log line that is more than a text: facts that the log's writer turns into a sentence or into JSON.
#pragma once

#include <cstddef>
#include <string>

#include "refhost/base/report.h"

namespace fenlux::refhost {

// Immutable. Made by those who log, formatted by the writer thread, so that they need not wait for that.
class LogContent {
 public:
  virtual ~LogContent() = default;
  // The line's text, UTF-8. The log escapes it.
  virtual std::string Text() const = 0;
  // Adds the facts to the line's JSON object, which has the text already.
  virtual void AddTo(Report& line) const = 0;
  // Roughly the memory it takes while it waits, in bytes.
  virtual std::size_t Size() const = 0;
};

// Which outputs get a line, if its severity is high enough for them.
enum class LogAudience { kAll, kConsole, kFile };

}  // namespace fenlux::refhost
