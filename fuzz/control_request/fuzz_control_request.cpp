// Runs any line as a control request on a running host: the real operations, the real module and the emulated driver.
// Every request must get one answer line, and no request of a control client may make the module break the driver's
// protocol.
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "core/fenlux.h"
#include "fuzz/support/fuzzing.h"
#include "kdi/kdi_base.h"
#include "refhost/app/control/control_protocol.h"
#include "refhost/app/reference_host.h"

namespace fenlux::refhost {
namespace {

using testing::Require;

// These end the connection; the module would reconnect only after five seconds.
bool EndsConnection(const std::string& operation) { return operation == "stop" || operation == "interface stop"; }

// The module does not check the kind of a system process or whether a path is empty. It passes both on, and the driver
// refuses the request.
bool PassesOnNonsense(const ControlRequest& request) {
  try {
    if (request.operation == "register-process") {
      const std::uint32_t kind = Uint32Argument(request.arguments, "kind");
      return kind != 2 && kind != 3;
    }
    if (request.operation != "monitor add") return false;
    const std::string_view path = TextArgument(request.arguments, "path");
    return path.empty() || path.front() == '\0';
  } catch (const ControlRefusal&) {
    return false;
  }
}

class RunningHost {
 public:
  RunningHost() : host("/nowhere/fuzzed.toml", Config()) {
    host.Start(FENLUX_MODULE);
    for (int i = 0; i < 1000 && Driver() == nullptr; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    Require(Driver() != nullptr, "the module connects");
  }

  void Run(const std::string& line) {
    const std::optional<ControlRequest> request = DecodeRequest(line);
    if (request) CheckRoundTrip(*request);
    if (request && EndsConnection(request->operation)) return;
    const std::string answerLine = AnswerRequest(host, line);
    Require(!answerLine.empty() && answerLine.find('\n') == std::string::npos, "an answer is one line");
    const std::optional<ControlAnswer> answer = DecodeAnswer(answerLine);
    Require(answer.has_value(), "an answer can be decoded");
    Require(answer->done || !answer->error.empty(), "a refusal has a reason");
    const bool known = request && FindControlOperation(request->operation) != nullptr;
    Require(known || !answer->done, "only a known operation is performed");
    if (known && request->operation.starts_with("monitor")) Forget();
    const std::uint64_t now = host.DriverState().protocolViolations;
    Require(now == violations || (now == violations + 1 && request && PassesOnNonsense(*request)),
            "a request makes the module break the driver's protocol only by its own nonsense");
    violations = now;
  }

 private:
  static HostConfig Config() {
    HostConfig config;
    config.start.log.consoleLevel = config.start.log.fileLevel = kSeverities;
    return config;
  }

  static void CheckRoundTrip(const ControlRequest& request) {
    const std::string line = EncodeRequest(request);
    Require(line.find('\n') == std::string::npos, "a request is one line");
    const std::optional<ControlRequest> again = DecodeRequest(line);
    Require(again && again->operation == request.operation && again->arguments == request.arguments,
            "an encoded request decodes to itself");
  }

  std::shared_ptr<CKDIBase> Driver() const { return host.Module()->GetDriverInteract(); }

  // Sends and clears what requests queued, so that the memory does not grow with the number of runs.
  void Forget() const {
    const auto driver = Driver();
    Require(driver != nullptr, "the connection is still open");
    for (const int type : {1, 2, 3}) {
      driver->SendMonitorObjects(type);
      driver->ClearMonitorObjects(type);
    }
  }

  ReferenceHost host;
  std::uint64_t violations = 0;
};

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Never destroyed: the module's threads use it to the end.
  static auto& host = *new fenlux::refhost::RunningHost;
  host.Run(std::string(data, data + size));
  return 0;
}
