// A recorder with the host's settings.
#include "refhost/app/recording/port_recording.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "refhost/app/recording/host_facts.h"

namespace fenlux::refhost {

PortRecording::PortRecording(capture::RecordingSettings recordingSettings) : settings(std::move(recordingSettings)) {
  if (!settings.file.empty()) recorder->Start(settings);
}

void PortRecording::Start(const boost::filesystem::path& file) {
  capture::RecordingSettings named = settings;
  named.file = file;
  recorder->Start(named);
}

PortClientMaker PortRecording::Recorded(PortClientMaker make) const {
  return [recorder = recorder, make = std::move(make)](
             const std::string& portName, const std::shared_ptr<CBuf>& connectContext, std::uint32_t maxMessageSize,
             const NotificationHandler& handler, std::uint32_t portValue) {
    return capture::RecordPort(recorder, connectContext, handler, [&](const NotificationHandler& recorded) {
      return make(portName, connectContext, maxMessageSize, recorded, portValue);
    });
  };
}

void PortRecording::AddCall(const std::string& operation, const Report& arguments) {
  if (recorder->Status().active) recorder->AddCall(HostCall(operation, arguments));
}

}  // namespace fenlux::refhost
