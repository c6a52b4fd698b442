// The words of the control channel: one JSON object each way.
//
//   request   {"operation":"grsp","arguments":{"mode":"1"}}
//   answer    {"done":true,"result":{...},"text":"..."}    or    {"done":false,"error":"..."}
//
// `text` is the result as a person reads it.
#pragma once

#include <optional>
#include <string>

#include "refhost/app/control/control_operations.h"

namespace fenlux::refhost {

struct ControlRequest {
  std::string operation;
  ControlArguments arguments;
};

struct ControlAnswer {
  bool done = false;
  std::string json;   // of the result, where done
  std::string text;   // of the result, where done
  std::string error;  // otherwise
};

// The encoded forms are one line without its end; what does not decode gives nothing.
std::string EncodeRequest(const ControlRequest& request);
std::optional<ControlRequest> DecodeRequest(const std::string& line);
std::string EncodeAnswer(const ControlAnswer& answer);
std::optional<ControlAnswer> DecodeAnswer(const std::string& line);

// Carries a request out and gives its answer, both encoded; never throws.
std::string AnswerRequest(ReferenceHost& host, const std::string& line) noexcept;

}  // namespace fenlux::refhost
