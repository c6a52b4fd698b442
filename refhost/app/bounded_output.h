// Text for standard output or standard error. Writing never blocks: a thread of the output's own does it, so an output
// that nobody reads delays nobody.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

namespace fenlux::refhost {

// Any thread. The writer's thread outlives the object while it is stuck, so `stream` must live as long as the process.
class BoundedOutput {
 public:
  static constexpr std::size_t kMaxBytes = std::size_t{4} << 20;

  // Starts the writer. `name` says what it writes: "standard output". Throws std::runtime_error if no thread can be
  // started.
  BoundedOutput(std::ostream& stream, const std::string& name);
  // Lets the writer finish what is waiting, and does not wait for it.
  ~BoundedOutput();
  BoundedOutput(const BoundedOutput&) = delete;
  BoundedOutput& operator=(const BoundedOutput&) = delete;

  // Queues the text. False: dropped, because more than kMaxBytes would be waiting. Throws std::bad_alloc.
  bool Write(const std::string& text);
  // Waits until everything queued so far is written and flushed; false if `limit` passes first.
  bool Flush(std::chrono::milliseconds limit);
  // Why something could not be written, in the system's words; empty if everything was that is not still waiting.
  std::string Failure() const;

 private:
  struct Shared;

  const std::shared_ptr<Shared> shared;
};

}  // namespace fenlux::refhost
