// Gives the module any answer to the version request: in its own buffer, in another one, none, or an exception. The
// version must be what the driver's header reads from the same bytes, and nothing may be read beyond them.
//
// The first byte of an input selects how the driver answers (see the README); the rest are the bytes.
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include "fenlux/driver_protocol.h"
#include "fuzz/support/fuzzing.h"
#include "kdi/win_driver_interact.h"
#include "tests/support/fake_host/fake_host.h"
#include "tests/support/manual_clock.h"

namespace fenlux::testing {
namespace {

constexpr std::chrono::milliseconds kRefreshInterval(3'600'000);

enum class Manner { kFill, kReplace, kFull, kLonger, kNone, kThrow };
constexpr std::uint8_t kManners = 6;

class Version {
 public:
  Version() {
    HostSettings& settings = host.Settings();
    host.Gate().SetJournal(false);
    settings.recordedRequestBytes = 0;
    settings.refreshInterval = static_cast<std::uint32_t>(kRefreshInterval.count());
    settings.answer = [this](const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>& reply) {
      if (reply != nullptr) Answer(reply);
    };
    interact = std::make_shared<CWinDriverInteract>(host.Context());
    interact->RunDriverConnection();
    Require(ManualClock::Instance().AwaitParked(kRefreshInterval, 1), "the refresh thread waits");
    host.Gate().OnCall("CLog::LogProblem", [this] { ++problems; });
  }

  void Run(Manner how, Bytes content) {
    manner = how;
    bytes = std::move(content);
    expected = 0;
    problems = 0;
    Require(interact->GetDriverVersion() == expected, "the version is the one in the answer, or 0");
    Require(problems == (manner == Manner::kThrow ? 1 : 0), "only an exception is a problem");
  }

 private:
  void Answer(std::shared_ptr<CBuf>& reply) {
    switch (manner) {
      case Manner::kFill:
        std::copy(bytes.begin(), bytes.end(), reply->GetData());
        break;
      case Manner::kReplace:
        reply = host.MakeBuffer(bytes);
        break;
      case Manner::kFull:
        bytes.resize(FENLUX_REQUEST_SIZE);
        reply = host.MakeBuffer(bytes);
        break;
      case Manner::kLonger:
        bytes.resize(FENLUX_REQUEST_SIZE + 1 + bytes.size());
        reply = host.MakeBuffer(bytes);
        break;
      case Manner::kNone:
        reply = nullptr;
        return;
      case Manner::kThrow:
        throw std::runtime_error("the driver fails");
    }
    if (reply->GetSize() < FENLUX_REQUEST_SIZE) return;  // too short to count
    expected = FenluxReadVersionReply(reply->GetData(), reply->GetSize());
  }

  FakeHost host;
  std::shared_ptr<CWinDriverInteract> interact;
  Manner manner = Manner::kFill;
  Bytes bytes;
  std::uint32_t expected = 0;
  int problems = 0;
};

}  // namespace
}  // namespace fenlux::testing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::testing;
  if (size == 0) return 0;
  // Never destroyed: the parked refresh thread uses it to the end.
  static auto& version = *new Version;
  version.Run(static_cast<Manner>(data[0] % kManners), {data + 1, data + size});
  return 0;
}
