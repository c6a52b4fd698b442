// Records the traffic of a driver's port to capture files, for any host.
//
// A host creates one Recorder and wraps its port clients with RecordPort:
//
//   const auto recorder = std::make_shared<capture::Recorder>(capture::RecordingSettings{.file = "port.pcapng"});
//   ...
//   out = capture::RecordPort(recorder, connectContext, handler, [&](const NotificationHandler& recorded) {
//     return MakePortClient(portName, connectContext, maxMessageSize, recorded, portValue);  // as without recording
//   });
//
// It may also add what the port does not show: the judgements of its CAoArp (AddJudgement) and the data it gave the
// module (SetFacts). A replay of the capture uses both.
//
// Recording never blocks the port or makes it fail. Messages go to a bounded queue, which a thread of the recorder
// writes to the file. Messages that do not fit or cannot be written are counted, and the file states where they are
// missing. A capture contains paths, process ids and everything else that the driver reports; only the user that runs
// the host can read the files.
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

// The kinds of messages to record. Connects and closes are always recorded.
struct RecordedKinds {
  bool requests = true;       // requests and their replies
  bool notifications = true;  // notifications and their replies
  bool judgements = true;     // see Recorder::AddJudgement
  bool facts = true;          // see Recorder::SetFacts
  bool calls = true;          // see Recorder::AddCall

  // Whether both record the same kinds.
  bool operator==(const RecordedKinds&) const = default;
};

// Where and how to record.
struct RecordingSettings {
  // The file to write. Its directory must exist. An existing capture of that name becomes an older file.
  boost::filesystem::path file;
  // The maximum size of a file in bytes; 0: no limit. A file has at least one message, even if that exceeds the limit.
  std::uint64_t maxFileSize = 0;
  // How many files to keep, including the current one; at least 1. The older files of "port.pcapng" are
  // "port.1.pcapng", "port.2.pcapng" and so on. The oldest is removed when a new one begins.
  std::uint32_t maxFiles = 1;
  // The maximum memory for queued messages, in bytes.
  std::size_t queueSize = std::size_t{16} << 20;
  // How long Stop waits for the writer, so that a stuck disk does not keep the host from stopping.
  std::chrono::milliseconds stopTimeout{1000};
  // The kinds of messages to record.
  RecordedKinds kinds;

  // Whether all settings are equal.
  bool operator==(const RecordingSettings&) const = default;
};

// The state of the current recording, or of the last one.
struct RecordingStatus {
  bool active = false;           // between Start and Stop
  boost::filesystem::path file;  // of the settings
  std::uint64_t messages = 0;    // to be recorded: written, dropped, or queued
  std::uint64_t written = 0;     // to files
  std::uint64_t dropped = 0;     // did not fit in the queue, or could not be written
  std::uint64_t bytes = 0;       // written, in all files
  std::uint64_t files = 0;       // begun
  std::string error;             // of the last failed write; empty if none failed
};

// Thrown if a recording cannot begin; the text says why.
class RecordingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// How a host judged a notification.
struct Judgement {
  std::uint32_t decision = 0;             // what CAoArp::Evaluate returns
  std::string_view rule;                  // UTF-8: the rule that decided; may be empty
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

  // Begins a recording; connections may already be open. Throws RecordingError if a recording is active, the settings
  // are invalid, the file cannot be created, or a file with one of its names exists and is not a capture.
  void Start(const RecordingSettings& settings);
  // Writes the queued messages and closes the file. Waits at most the settings' `stopTimeout`; after that, the writer's
  // thread continues in the background. Does nothing if no recording is active.
  void Stop();
  // The counts so far.
  RecordingStatus Status() const;

  // Sets the data that the host gave the module, a JSON object, for this file and all later ones. Empty: none.
  void SetFacts(const std::string& json) noexcept;
  // Records how the host judged the notification that this thread is handling. Call it from CAoArp::Evaluate.
  void AddJudgement(const Judgement& judgement) noexcept;
  // Records a call of the host to the module or its driver interface, as a JSON object. Call it before that
  // call.
  void AddCall(const std::string& json) noexcept;

  // Private to the library: the state that the recorder shares with the port clients it wraps.
  class State;
  // Private to the library.
  const std::shared_ptr<State>& SharedState() const { return state; }

 private:
  std::shared_ptr<State> state;
};

// Creates the host's own port client with the given handler.
using RecordedClientMaker = std::function<std::shared_ptr<CPortClient>(const NotificationHandler& handler)>;

// Returns the port client that `make` returns, wrapped so that `recorder` sees its traffic; null if `make` returns
// null. The arguments are those of CWinWork::CreatePortClient. Throws only what `make` throws. If `recorder` is null,
// returns the port client itself. The wrapper may outlive the recorder. Any thread.
std::shared_ptr<CPortClient> RecordPort(const std::shared_ptr<Recorder>& recorder,
                                        const std::shared_ptr<CBuf>& connectContext, const NotificationHandler& handler,
                                        const RecordedClientMaker& make);

}  // namespace fenlux::capture
