// Named pipes of the control channel: their names, their protection, and operations with a deadline.
#pragma once

#include <windows.h>

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/base/platform/handle_win.h"

namespace fenlux::refhost {

inline constexpr DWORD kPipeBuffer = 65536;

// Memory that the system allocates with LocalAlloc.
template <typename Value>
struct LocalFreer {
  void operator()(Value* value) const { ::LocalFree(value); }
};
template <typename Value>
using Local = std::unique_ptr<Value, LocalFreer<Value>>;
using SecurityDescriptor = Local<void>;

std::string NarrowText(const boost::filesystem::path& path);

// The pipe of this user's host. Throws ControlChannelError.
std::wstring DefaultPipeName();
// The pipe's name with backslashes. Throws ControlChannelError if the path does not name a pipe.
std::wstring PipeName(const boost::filesystem::path& path);
// A security descriptor: owned by the user, and accessible to that user only. Throws ControlChannelError.
SecurityDescriptor OwnerOnly();
// Whether the pipe was created by this user.
bool IsOwnPipe(HANDLE pipe);

// How reading a line ended: a whole line, a line beyond the limit, the deadline, or a close by the peer or a stop.
enum class LineEnd { kComplete, kTooLong, kLate, kClosed };

// Runs one operation on a pipe at a time, with a deadline.
class PipeOperation {
 public:
  using Clock = std::chrono::steady_clock;

  // Setting `stopEvent`, which may be null, ends every wait.
  PipeOperation(HANDLE opened, HANDLE stopEvent);

  // Both return whether they succeeded before the deadline.
  bool Accept(Clock::time_point deadline);
  bool Write(std::string_view text, Clock::time_point deadline);
  // Puts a line into `line`, without its end.
  LineEnd ReadLine(std::string& line, std::size_t maxBytes, Clock::time_point deadline);
  // Waits until the peer closes and ignores what it still sends.
  void AwaitClose(Clock::time_point deadline);

 private:
  // Appends what it read to `text`.
  bool Read(std::string& text, Clock::time_point deadline);
  void Begin();
  // Waits for the operation and returns the number of bytes moved; nullopt if it failed or was cancelled. The operation
  // has always ended when this returns, because it uses the caller's memory.
  std::optional<DWORD> Finish(Clock::time_point deadline);

  const HANDLE pipe;
  const HANDLE stop;
  const Handle done;
  OVERLAPPED operation{};
  bool timedOut = false;  // the last operation was cancelled at its deadline
};

}  // namespace fenlux::refhost
