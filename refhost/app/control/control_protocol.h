// The control protocol: one JSON object each way, each on one line.
//
//   request   {"operation":"grsp","arguments":{"mode":"1"}}
//   answer    {"done":true,"result":{...},"text":"..."}    or    {"done":false,"error":"..."}
//
// `text` is `result` for people: aligned text, unless the operation has its own format. `code` is the exit code of
// `ctl`; it is absent if that is 0.
#pragma once

#include <optional>
#include <string>

#include "refhost/app/control/control_operations.h"

namespace fenlux::refhost {

class ReferenceHost;

struct ControlRequest {
  std::string operation;
  ControlArguments arguments;
};

struct ControlAnswer {
  bool done = false;
  int code = 0;       // the exit code, if done
  std::string json;   // the result, if done
  std::string text;   // the result, if done
  std::string error;  // the reason, if not done
};

// Lines are passed without line end. Decoding returns nullopt if the line is malformed.
std::string EncodeRequest(const ControlRequest& request);
std::optional<ControlRequest> DecodeRequest(const std::string& line);
std::string EncodeResult(const Report& result);
std::string EncodeResult(const Report& result, const std::string& text, int code = 0);
std::string EncodeRefusal(const std::string& error);
std::optional<ControlAnswer> DecodeAnswer(const std::string& line);

// Runs a request on the host. Takes a request line and returns an answer line.
std::string AnswerRequest(ReferenceHost& host, const std::string& line) noexcept;

}  // namespace fenlux::refhost
