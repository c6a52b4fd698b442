// A stand-in for the Filter Manager and a filter driver, both inside the test's own process.
//
// The library exports the four functions that the reference host's port client uses, under their real names, and this
// class, with which a test controls the driver. It is written for these tests: it shows that the port client follows
// the documented contract of the functions as we understand it, not that it works with a real driver.
//
// A port is a message-mode named pipe, so the system's own calls accept its handle: completion ports, CancelIoEx,
// CloseHandle. Messages go through the pipe; replies and requests are calls.
//
// Known differences from the real Filter Manager: a message larger than the buffer completes with ERROR_MORE_DATA and a
// lost driver with ERROR_BROKEN_PIPE, while the Filter Manager has its own results; and receiving requires an
// OVERLAPPED.
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

// The outcome of one delivered message.
struct StandInAnswer {
  enum class Outcome {
    kReplied,
    kNotDue,        // no reply was requested
    kTimedOut,      // the driver gave up waiting
    kDisconnected,  // the port was closed before an answer arrived, or no port was open
  };

  Outcome outcome = Outcome::kDisconnected;
  std::int32_t status = 0;          // of the reply's header
  std::vector<std::uint8_t> bytes;  // after the reply's header
};

// One for the process. Any thread.
class FENLUX_STAND_IN_API FilterStandIn {
 public:
  static FilterStandIn& Instance();

  // Restores the initial state: no port, counters at zero, nothing refused. No port may be open.
  void Reset();

  // Sets the result of opening a port (S_OK: it opens), of replying, and of sending.
  void FailConnects(HRESULT result);
  void FailReplies(HRESULT result, std::uint64_t count);  // the next `count` replies
  void FailSends(HRESULT result);
  // Makes opening a port, or sending, block until Release.
  void HoldConnects();
  void HoldSends();
  // Makes sending wait in an operation on the port until Release or until the caller cancels it. That operation queues
  // after the pending receptions, so until then deliver at most as many messages as there are receptions. Sends that
  // HoldSends blocks then wait in it too.
  void HoldSendsUntilCancelled();
  void Release();
  // Waits until this many calls are blocked.
  bool AwaitHeld(std::uint64_t count, std::chrono::milliseconds limit);

  // Sets the answer to request 13: the version, and the size of the answer in bytes.
  void SetVersion(std::uint32_t version, std::uint32_t answerSize);

  // Waits until a port is open.
  bool AwaitPort(std::chrono::milliseconds limit);
  bool PortOpen();

  // Delivers a message and waits for its answer, as a blocked kernel operation does. `replyRoom` is the maximum size of
  // the reply without its header; 0 requests none. Any thread, concurrently.
  StandInAnswer Deliver(const std::vector<std::uint8_t>& message, std::uint32_t replyRoom,
                        std::chrono::milliseconds limit);
  // Sends raw bytes through the port, without a header.
  bool DeliverRaw(const std::vector<std::uint8_t>& bytes);
  // Closes the port, as if the driver were unloaded.
  void Drop();

  // Returns the sizes of the pending receptions. Reads the caller's OVERLAPPED structures, so call it only while the
  // port client of the newest port exists.
  std::vector<std::uint32_t> PendingReceptions();

  // What the stand-in has seen.
  std::uint64_t Connects();
  std::uint64_t BadConnects();  // refused: the context or name is not the module's
  std::wstring PortName();
  std::vector<std::uint8_t> ConnectContext();
  std::vector<std::vector<std::uint8_t>> Requests();
  std::uint64_t Replies();
  std::uint64_t RepliesWithoutWaiter();

  // For the exported functions.
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
