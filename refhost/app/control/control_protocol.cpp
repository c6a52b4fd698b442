// Encodes and decodes requests and answers, and runs requests.
#include "refhost/app/control/control_protocol.h"

#include <nlohmann/json.hpp>

#include "refhost/app/control/control_operations.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/reference_host.h"
#include "refhost/base/exception_text.h"

namespace fenlux::refhost {
namespace {

// Answers keep the order of their members. Requests do not: they can have very many, and an ordered object compares
// each new member with all earlier ones.
using Json = Report;
using RequestJson = nlohmann::json;

// Valid messages are not nested as deeply. Deeper ones are refused, because some of the library's functions recurse.
constexpr int kMaxDepth = 16;

// The discarded value if the line is malformed.
template <typename Value>
Value Parse(const std::string& line) {
  bool tooDeep = false;
  const auto checkDepth = [&tooDeep](int depth, typename Value::parse_event_t, const Value&) {
    tooDeep = tooDeep || depth > kMaxDepth;
    return !tooDeep;
  };
  Value json = Value::parse(line, checkDepth, /*allow_exceptions=*/false);
  return tooDeep ? Value(Value::value_t::discarded) : json;
}

// Null if the object has no such member, or one of another type.
template <typename Value, typename Object>
const Value* Find(const Object& object, const char* name) {
  const auto found = object.find(name);
  return found == object.end() ? nullptr : found->template get_ptr<const Value*>();
}

}  // namespace

std::string EncodeRequest(const ControlRequest& request) {
  Json json = Json::object();
  json["operation"] = request.operation;
  json["arguments"] = request.arguments;
  return JsonText(json);
}

std::optional<ControlRequest> DecodeRequest(const std::string& line) {
  const auto json = Parse<RequestJson>(line);
  const auto* const operation = Find<std::string>(json, "operation");
  if (operation == nullptr) return std::nullopt;
  ControlRequest request{.operation = *operation, .arguments = {}};
  if (!json.contains("arguments")) return request;
  const RequestJson& arguments = json["arguments"];
  if (!arguments.is_object()) return std::nullopt;
  for (const auto& [name, value] : arguments.items()) {
    if (value.is_null() || value.is_structured()) return std::nullopt;
    request.arguments[name] = value.is_string() ? value.get<std::string>() : value.dump();
  }
  return request;
}

std::string EncodeResult(const Report& result) { return EncodeResult(result, AlignedText(result)); }

std::string EncodeResult(const Report& result, const std::string& text, int code) {
  Json json = Json::object();
  json["done"] = true;
  json["result"] = result;
  json["text"] = text;
  if (code != 0) json["code"] = code;
  return JsonText(json);
}

std::string EncodeRefusal(const std::string& error) {
  Json json = Json::object();
  json["done"] = false;
  json["error"] = error;
  return JsonText(json);
}

std::optional<ControlAnswer> DecodeAnswer(const std::string& line) {
  const Json json = Parse<Json>(line);
  const bool* const done = Find<bool>(json, "done");
  if (done == nullptr) return std::nullopt;
  if (!*done) {
    const auto* const error = Find<std::string>(json, "error");
    if (error == nullptr) return std::nullopt;
    return ControlAnswer{.done = false, .code = 0, .json = {}, .text = {}, .error = *error};
  }
  const auto* const text = Find<std::string>(json, "text");
  if (text == nullptr || !json.contains("result") || !json["result"].is_object()) return std::nullopt;
  const auto* const code = Find<std::int64_t>(json, "code");
  return ControlAnswer{.done = true,
                       .code = code == nullptr ? 0 : static_cast<int>(*code),
                       .json = JsonText(json["result"]),
                       .text = *text,
                       .error = {}};
}

std::string AnswerRequest(ReferenceHost& host, const std::string& line) noexcept {
  try {
    const std::optional<ControlRequest> request = DecodeRequest(line);
    if (!request) return EncodeRefusal("the request is not a JSON object with an operation");
    const ControlOperation* const operation = FindControlOperation(request->operation);
    if (operation == nullptr) return EncodeRefusal("unknown operation " + request->operation);
    if (!operation->hostOnly) host.Recording().AddCall(request->operation, request->arguments);
    const Report result = operation->run(host, request->arguments);
    return EncodeResult(result, operation->text == nullptr ? AlignedText(result) : operation->text(result),
                        operation->exitCode == nullptr ? 0 : operation->exitCode(result));
  } catch (...) {
    try {
      return EncodeRefusal(CurrentExceptionText());
    } catch (...) {  // out of memory
      return {};
    }
  }
}

}  // namespace fenlux::refhost
