// Writing is our own report's; reading is the JSON library's, which is large and met here only.
#include "refhost/app/control/control_protocol.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <sstream>

#include "refhost/base/exception_text.h"

namespace fenlux::refhost {
namespace {

// The object of a line; empty where it is none.
Poco::JSON::Object::Ptr ParseObject(const std::string& line) {
  try {
    Poco::JSON::ParseHandler::Ptr handler = new Poco::JSON::ParseHandler(true);  // keeps the order of names
    Poco::JSON::Parser parser(handler);
    parser.setDepth(16);
    return parser.parse(line).extract<Poco::JSON::Object::Ptr>();
  } catch (const Poco::Exception&) {
    return nullptr;
  }
}

std::string RefusalAnswer(const std::string& error) {
  ControlAnswer answer;
  answer.error = error;
  return EncodeAnswer(answer);
}

}  // namespace

std::string EncodeRequest(const ControlRequest& request) {
  Report arguments;
  for (const auto& [name, value] : request.arguments) arguments.Add(name, value);
  Report object;
  object.Add("operation", request.operation);
  object.Add("arguments", std::move(arguments));
  return object.Json();
}

std::optional<ControlRequest> DecodeRequest(const std::string& line) {
  const Poco::JSON::Object::Ptr object = ParseObject(line);
  if (object.isNull() || !object->has("operation")) return std::nullopt;
  try {
    ControlRequest request;
    request.operation = object->getValue<std::string>("operation");
    if (object->has("arguments")) {
      const Poco::JSON::Object::Ptr arguments = object->getObject("arguments");
      if (arguments.isNull()) return std::nullopt;
      for (const auto& [name, value] : *arguments) request.arguments[name] = value.convert<std::string>();
    }
    return request;
  } catch (const Poco::Exception&) {
    return std::nullopt;
  }
}

std::string EncodeAnswer(const ControlAnswer& answer) {
  if (!answer.done) return R"({"done":false,"error":)" + JsonString(answer.error) + "}";
  return R"({"done":true,"result":)" + answer.json + R"(,"text":)" + JsonString(answer.text) + "}";
}

std::optional<ControlAnswer> DecodeAnswer(const std::string& line) {
  const Poco::JSON::Object::Ptr object = ParseObject(line);
  if (object.isNull()) return std::nullopt;
  try {
    ControlAnswer answer;
    answer.done = object->getValue<bool>("done");
    if (answer.done) {
      std::ostringstream json;
      object->getObject("result")->stringify(json);
      answer.json = json.str();
      answer.text = object->getValue<std::string>("text");
    } else {
      answer.error = object->getValue<std::string>("error");
    }
    return answer;
  } catch (const Poco::Exception&) {
    return std::nullopt;
  }
}

std::string AnswerRequest(ReferenceHost& host, const std::string& line) noexcept {
  try {
    const std::optional<ControlRequest> request = DecodeRequest(line);
    if (!request) return RefusalAnswer("the request is no JSON object with an operation");
    const ControlOperation* const operation = FindControlOperation(request->operation);
    if (operation == nullptr) return RefusalAnswer("there is no operation " + request->operation);
    const Report result = operation->carryOut(host, request->arguments);
    return EncodeAnswer({.done = true, .json = result.Json(), .text = result.Text(), .error = {}});
  } catch (...) {
    try {
      return RefusalAnswer(CurrentExceptionText());
    } catch (...) {  // no memory for a longer answer
      return {};
    }
  }
}

}  // namespace fenlux::refhost
