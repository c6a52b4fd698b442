// Records the traffic of a driver's port to capture files, for any host.
//
// A host needs one Recorder, and passes its port clients through RecordPort:
//
//   const auto recorder = std::make_shared<capture::Recorder>(capture::RecordingSettings{.file = "port.pcapng"});
//   ...
//   out = capture::RecordPort(recorder, connectContext, handler, [&](const NotificationHandler& recorded) {
//     return MakePortClient(portName, connectContext, maxMessageSize, recorded, portValue);  // as without recording
//   });
//
// It may also add what the port does not show: the judgements of its CAoArp (AddJudgement) and what it gave the module
// (SetFacts). A replay of the capture uses both.
//
// Recording never delays and never fails the port. Messages go to a bounded queue, which one thread of the recorder
// writes to the file. Messages that do not fit or cannot be written are counted, and the file says where they are
// missing. What is captured contains paths, process ids and whatever the driver reports; only the user that runs the
// host can read the files.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/port_client.h"

namespace fenlux::capture {

// What is recorded. Connects and closes always are.
struct RecordedKinds {
  bool requests = true;       // requests and their replies
  bool notifications = true;  // notifications and their replies
  bool judgements = true;     // see Recorder::AddJudgement
  bool facts = true;          // see Recorder::SetFacts
  bool calls = true;          // see Recorder::AddCall

  // Whether the same is recorded.
  bool operator==(const RecordedKinds&) const = default;
};

// Where and how to record.
struct RecordingSettings {
  // The file that is being written. Its directory must exist. An existing capture of that name becomes an older file.
  boost::filesystem::path file;
  // A new file begins before one gets larger, in bytes; 0: never. A file holds at least one message.
  std::uint64_t maxFileSize = 0;
  // How many files are kept, the current one included; at least 1. Of "port.pcapng", the older ones are
  // "port.1.pcapng", "port.2.pcapng" and so on. The oldest is removed when a new one begins.
  std::uint32_t maxFiles = 1;
  // The most memory that waiting messages may take, in bytes.
  std::size_t queueSize = std::size_t{16} << 20;
  // How long Stop waits for the writer, so that a disk that is stuck does not keep the host from stopping.
  std::chrono::milliseconds stopTimeout{1000};
  // What is recorded.
  RecordedKinds kinds;

  // Whether everything is the same.
  bool operator==(const RecordingSettings&) const = default;
};

// The state of the current recording, or of the last one.
struct RecordingStatus {
  bool active = false;           // between Start and Stop
  boost::filesystem::path file;  // of the settings
  std::uint64_t messages = 0;    // that were to be recorded: written, dropped, or waiting
  std::uint64_t written = 0;     // to files
  std::uint64_t dropped = 0;     // did not fit into the queue, or could not be written
  std::uint64_t bytes = 0;       // written, in all files
  std::uint64_t files = 0;       // begun
  std::string error;             // why writing failed last; empty if it never did
};

// A recording cannot begin; the text says why.
class RecordingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// How a host judged a notification.
struct Judgement {
  std::uint32_t decision = 0;             // what CAoArp::Evaluate returns
  std::string_view rule;                  // UTF-8: what decided; may be empty
  std::chrono::microseconds duration{0};  // of judging
};

// Any thread. Only Start and Stop wait for the file.
class Recorder {
 public:
  // Records nothing until Start.
  Recorder();
  // Starts. Throws RecordingError.
  explicit Recorder(const RecordingSettings& settings);
  // Stops.
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // Begins a recording, also in the middle of a connection. Throws RecordingError if one is active, the settings are
  // invalid, the file cannot be created, or a file with one of its names exists and is no capture.
  void Start(const RecordingSettings& settings);
  // Writes what waits and closes the file. Waits for that as long as the settings say at most; what a stuck disk has
  // not taken by then is left to the writer's thread. Does nothing if no recording is active.
  void Stop();
  // The counts so far.
  RecordingStatus Status() const;

  // What the host gave the module, as a JSON object. Recorded now, and at the beginning of every file. Empty: none.
  void SetFacts(const std::string& json) noexcept;
  // How the host judged the notification that this thread is handling. Call it from CAoArp::Evaluate.
  void AddJudgement(const Judgement& judgement) noexcept;
  // An operation of the module or its driver interface that the host calls, as a JSON object. Call it before the
  // operation.
  void AddCall(const std::string& json) noexcept;

  // Private to the library: what the recorder shares with the port clients it wraps.
  class State;
  // Private to the library.
  const std::shared_ptr<State>& SharedState() const { return state; }

 private:
  std::shared_ptr<State> state;
};

// Makes the host's own port client, with the handler it is given.
using RecordedClientMaker = std::function<std::shared_ptr<CPortClient>(const NotificationHandler& handler)>;

// Returns the port client that `make` returns, wrapped so that `recorder` sees its traffic; null if `make` returns
// null. The arguments are those of CWinWork::CreatePortClient. Throws only what `make` throws. If `recorder` is null,
// returns the port client itself. The wrapper may outlive the recorder. Any thread.
std::shared_ptr<CPortClient> RecordPort(const std::shared_ptr<Recorder>& recorder,
                                        const std::shared_ptr<CBuf>& connectContext, const NotificationHandler& handler,
                                        const RecordedClientMaker& make);

}  // namespace fenlux::capture
