// Reads any line as the answer to a control request, as `ctl` does. An accepted answer must contain everything that
// `ctl` shows, and must survive a round trip.
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "fuzz/support/fuzzing.h"
#include "refhost/app/control/control_protocol.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::refhost;
  using fenlux::testing::Require;
  const std::optional<ControlAnswer> answer = DecodeAnswer(std::string(data, data + size));
  if (!answer) return 0;
  if (!answer->done) {
    Require(answer->json.empty() && answer->text.empty(), "a refusal has no result");
    const std::optional<ControlAnswer> again = DecodeAnswer(EncodeRefusal(answer->error));
    Require(again && !again->done && again->error == answer->error, "an encoded refusal decodes to itself");
    return 0;
  }
  Require(answer->error.empty() && answer->json.find('\n') == std::string::npos, "a result is one line of JSON");
  const Report result = Report::parse(answer->json, nullptr, false);
  Require(result.is_object(), "a result is an object");
  Require(JsonText(result) == answer->json, "a result is shown as it was sent");
  return 0;
}
