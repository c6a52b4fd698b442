// Text for standard output or standard error. Write never blocks: a separate thread writes the text, so an output that
// nobody reads does not delay the caller.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

namespace fenlux::refhost {

// Any thread. A writer thread that is stuck outlives the object, so `stream` must live as long as the process.
class BoundedOutput {
 public:
  static constexpr std::size_t kMaxBytes = std::size_t{4} << 20;

  // Starts the writer thread. `name` says what it writes, such as "standard output". Throws std::runtime_error if the
  // thread cannot be started.
  BoundedOutput(std::ostream& stream, const std::string& name);
  // Does not wait: the writer still writes what is queued.
  ~BoundedOutput();
  BoundedOutput(const BoundedOutput&) = delete;
  BoundedOutput& operator=(const BoundedOutput&) = delete;

  // Queues the text. Returns false and drops it if more than kMaxBytes would be queued. Throws std::bad_alloc.
  bool Write(const std::string& text);
  // Waits until everything queued so far is written and flushed; false if `limit` passes first.
  bool Flush(std::chrono::milliseconds limit);
  // The system's reason for the last failed write; empty if no write has failed.
  std::string Failure() const;

 private:
  struct Shared;

  const std::shared_ptr<Shared> shared;
};

}  // namespace fenlux::refhost
