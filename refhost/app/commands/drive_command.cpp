// The `drive` command: tests a driver with the module, and shows what the driver does wrong.
#include <fmt/format.h>

#include <boost/filesystem/operations.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "kdi/driver_records.h"
#include "refhost/app/commands/commands.h"
#include "refhost/app/commands/host_polling.h"
#include "refhost/app/drive/drive_player.h"
#include "refhost/app/drive/drive_report.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/process_end.h"
#include "refhost/app/platform/signals.h"
#include "refhost/app/problem_output.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/reference_host.h"
#include "refhost/app/security/privileges.h"
#include "refhost/app/security/run_files.h"
#include "refhost/app/security/trusted_log.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/capture/format/capture_reader.h"
#include "refhost/capture/format/packet_loop.h"

namespace fenlux::refhost {
namespace {

using std::chrono::milliseconds;

// Large enough that a fast driver does not overflow the recording.
constexpr std::size_t kQueueSize = std::size_t{64} << 20;
constexpr milliseconds kLogTimeout{1000};
// For writing the rest of the recording, which the results depend on.
constexpr milliseconds kWriteTimeout{60'000};

int Fail(int code, const DriveOptions& options, const std::string& text) {
  std::cerr << ProblemLines("fenlux-host: " + text, options.json) << std::flush;
  return code;
}

// The file that receives the recording: the user's, or a temporary one that is removed at the end.
class CaptureFile {
 public:
  explicit CaptureFile(const boost::filesystem::path& kept) : file(kept) {
    if (!file.empty()) return;
    directory = boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("fenlux-drive-%%%%%%%%%%%%");
    boost::filesystem::create_directory(directory);
    file = directory / "port.pcapng";
  }
  ~CaptureFile() {
    boost::system::error_code ignored;
    if (!directory.empty()) boost::filesystem::remove_all(directory, ignored);
  }
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;

  const boost::filesystem::path& Path() const { return file; }

 private:
  boost::filesystem::path file;
  boost::filesystem::path directory;  // empty: the file is kept
};

DriveLimits LimitsOf(const DriveOptions& options, const HostConfig& config) {
  return {.request = options.requestLimit,
          .version = records::kModuleVersion + (config.start.module.versionFlag ? 1U : 0U)};
}

void Examine(const boost::filesystem::path& file, DriverExamination& examination) {
  std::ifstream stream(std::filesystem::path(file.native()), std::ios::binary);
  capture::CaptureReader reader(stream);
  capture::ExchangePairing pairing([&](const capture::Exchange& exchange) { examination.Add(exchange); });
  capture::PacketSinks sinks;
  sinks.packet = [&](const capture::Packet& packet) { pairing.Add(packet); };
  sinks.problem = [&](const capture::Problem& problem) {
    throw std::runtime_error(
        fmt::format("{} is damaged at offset {}: {}", file.string(), problem.offset, problem.text));
  };
  capture::ReadPackets(reader, sinks);
  pairing.Flush();
  if (stream.bad() || !reader.IsCapture()) throw std::runtime_error(file.string() + " cannot be read again");
}

// Runs the test and prints the results. Returns the exit code.
int Play(ReferenceHost& host, const DriveOptions& options, const CaptureFile& captureFile, const DriveLimits& limits,
         bool emulated) {
  StartPolling([&host] { host.Poll(); });  // ensures that every connection gets the policy
  const DriveSettings settings{.timeout = options.timeout,
                               .notifications = options.notifications,
                               .reconnect = options.reconnect,
                               .emulated = emulated};
  const DriveOutcome outcome =
      PlayDrive(host, settings, [](milliseconds time) { return WaitForSignal(time) != HostSignal::kStop; });
  // What happens when the host stops is not part of the test.
  host.Recording().Stop();
  const capture::RecordingStatus recorded = host.Recording().Status();
  host.Stop();
  host.DrainLog(kLogTimeout);
  if (!recorded.error.empty()) throw std::runtime_error("the port cannot be recorded: " + recorded.error);

  DriverExamination examination(limits);
  Examine(captureFile.Path(), examination);
  examination.Finish(outcome);
  std::cout << (options.json ? DriveJson(examination, outcome)
                             : DriveText(examination, outcome, !options.record.empty()))
            << std::flush;
  if (!std::cout) return Fail(kExitOutput, options, OutputFailure());
  return examination.Findings().Clean() ? kExitSuccess : kExitFaults;
}

}  // namespace

int DriveDriver(const DriveOptions& options) {
  ConfigErrors errors;
  HostConfig config = LoadHostConfig(options.config, errors);
  BlockSignals();
  if (!errors.Empty()) {
    std::cerr << ProblemLines(errors, options.json) << std::flush;
    return kExitUsage;
  }
  if (!config.start.module.enabled) {
    return Fail(kExitUsage, options,
                options.config.string() + ": [module] enabled = false: the module would not connect to the driver");
  }
  config.start.log.json = options.json;
  config.start.insecurePermissions = options.insecurePermissions;
  const DriveLimits limits = LimitsOf(options, config);
  const bool emulated = config.start.driver.port == DriverPortKind::kEmulator;
  int code = kExitSuccess;
  // Never destroyed once it has started: the module's threads are not joined, and use it until the process ends.
  std::unique_ptr<ReferenceHost> host;
  try {
    if (!options.insecurePermissions) {
      const std::string reason = UntrustedFile(options.config, options.module, config);
      if (!reason.empty()) return Fail(kExitUsage, options, reason);
    }
    const CaptureFile captureFile(options.record);
    config.start.recording = capture::RecordingSettings();
    config.start.recording.file = captureFile.Path();
    config.start.recording.queueSize = kQueueSize;
    config.start.recording.stopTimeout = kWriteTimeout;
    LogFile logFile = OpenTrustedLog(config.start.log.file, options.insecurePermissions);
    LimitPrivileges(config.emulator.source == EventSourceKind::kFanotify);
    host = std::make_unique<ReferenceHost>(options.config, std::move(config), std::move(logFile));
    try {
      host->Start(options.module);
      code = Play(*host, options, captureFile, limits, emulated);
    } catch (const ModuleError& error) {
      host->Recording().Stop();
      code = Fail(kExitModule, options, error.what());
    }
  } catch (const std::runtime_error& error) {
    code = Fail(kExitUsage, options, error.what());
  } catch (const std::bad_alloc&) {
    code = Fail(kExitNoMemory, options, kOutOfMemory);
  }
  EndProcess(code);
}

}  // namespace fenlux::refhost
