// A stand-in for the Filter Manager and a filter driver behind it, both inside the test's own process.
//
// The library exports the four functions that the reference host's port client uses, under their real names, and this
// class, by which a test says what the driver does. It is ours, made for tests: what it shows is that the port client
// keeps to the functions' documented contract as we read it, not that it works with a real driver.
//
// A port is a named pipe that carries whole messages, so its handle is one that the system's own calls take: completion
// queues, CancelIoEx, CloseHandle. Messages go through the pipe; replies and requests are calls.
//
// What differs from the real thing, as far as we know: a message larger than the buffer ends its reception with
// ERROR_MORE_DATA and a port whose driver has gone with ERROR_BROKEN_PIPE, where the Filter Manager has results of its
// own; and there is no receiving without an OVERLAPPED.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#ifdef FENLUX_BUILDING_STAND_IN
#define FENLUX_STAND_IN_API __declspec(dllexport)
#else
#define FENLUX_STAND_IN_API __declspec(dllimport)
#endif

namespace fenlux::testing {

// What became of one delivered message.
struct StandInAnswer {
  enum class Outcome {
    kReplied,
    kNotDue,        // none was asked for
    kTimedOut,      // the driver gave up waiting
    kDisconnected,  // the port was closed before an answer came, or no port was open
  };

  Outcome outcome = Outcome::kDisconnected;
  std::int32_t status = 0;          // of the reply's header
  std::vector<std::uint8_t> bytes;  // behind the reply's header
};

// One for the process. Any thread.
class FENLUX_STAND_IN_API FilterStandIn {
 public:
  static FilterStandIn& Instance();

  // Back to the beginning: no port, nothing counted, nothing refused. No port may be open.
  void Reset();

  // From now on: the result of opening a port (S_OK: it opens), of replying, and of sending.
  void FailConnects(HRESULT result);
  void FailReplies(HRESULT result, std::uint64_t count);  // the next `count` replies
  void FailSends(HRESULT result);
  // From now on opening a port, or sending, waits until Release.
  void HoldConnects();
  void HoldSends();
  // From now on sending waits in an operation of the port, until Release or until the caller cancels it. That operation
  // stands behind the receptions that are pending, so no more messages than those may be delivered meanwhile. What
  // HoldSends holds goes on into it.
  void HoldSendsUntilCancelled();
  void Release();
  // Until so many calls are being held.
  bool AwaitHeld(std::uint64_t count, std::chrono::milliseconds limit);

  // What the driver answers to request 13: the version, in this many bytes.
  void SetVersion(std::uint32_t version, std::uint32_t answerSize);

  // Waits for a port to be open.
  bool AwaitPort(std::chrono::milliseconds limit);
  bool PortOpen();

  // Delivers a message and waits for its answer, as an operation does that is held up in the kernel. `replyRoom` is the
  // size of the reply that the driver has room for, without its header; 0 asks for none. Several threads at once.
  StandInAnswer Deliver(const std::vector<std::uint8_t>& message, std::uint32_t replyRoom,
                        std::chrono::milliseconds limit);
  // Sends bytes through the port as they are, without a header.
  bool DeliverRaw(const std::vector<std::uint8_t>& bytes);
  // The driver goes away.
  void Drop();

  // The sizes of the receptions that are pending. Looks at the caller's operations, so it is only asked while the port
  // client of the newest port is there.
  std::vector<std::uint32_t> PendingReceptions();

  // What was seen.
  std::uint64_t Connects();
  std::uint64_t BadConnects();  // with a context or name that is not the module's; refused
  std::wstring PortName();
  std::vector<std::uint8_t> ConnectContext();
  std::vector<std::vector<std::uint8_t>> Requests();
  std::uint64_t Replies();
  std::uint64_t RepliesWithoutWaiter();

  // The library's side.
  HRESULT Connect(const wchar_t* name, const void* context, std::uint16_t contextSize, HANDLE* port);
  HRESULT Receive(HANDLE port, void* message, std::uint32_t size, OVERLAPPED* operation);
  HRESULT Reply(HANDLE port, const void* reply, std::uint32_t size);
  HRESULT Send(HANDLE port, const void* request, std::uint32_t size, void* answer, std::uint32_t room,
               std::uint32_t* returned);

  FilterStandIn(const FilterStandIn&) = delete;
  FilterStandIn& operator=(const FilterStandIn&) = delete;

 private:
  FilterStandIn();
  ~FilterStandIn();

  class Body;
  std::shared_ptr<Body> body;
};

}  // namespace fenlux::testing
