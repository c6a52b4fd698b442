// Records the host's port: starts and stops recordings, and adds the host's facts, calls and judgements to them.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>

#include "refhost/base/report.h"
#include "refhost/capture/recording_port_client.h"
#include "refhost/services/processes/work_service.h"

namespace fenlux::refhost {

// Any thread.
class PortRecording {
 public:
  // Starts if the settings name a file. Throws capture::RecordingError.
  explicit PortRecording(capture::RecordingSettings recordingSettings);

  // Starts a recording with the settings, into `file`. Throws capture::RecordingError.
  void Start(const boost::filesystem::path& file);
  void Stop() { recorder->Stop(); }
  capture::RecordingStatus Status() const { return recorder->Status(); }

  // Wraps `make` so that its port clients are recorded.
  PortClientMaker Recorded(PortClientMaker make) const;
  // See Recorder::SetFacts.
  void SetFacts(const std::string& json) { recorder->SetFacts(json); }
  // Records an operation with the name and arguments that `ctl` uses. Call it before the operation.
  void AddCall(const std::string& operation, const Report& arguments);
  void AddJudgement(const capture::Judgement& judgement) { recorder->AddJudgement(judgement); }

 private:
  const capture::RecordingSettings settings;
  const std::shared_ptr<capture::Recorder> recorder = std::make_shared<capture::Recorder>();
};

}  // namespace fenlux::refhost
