// Requests and answers survive encoding and decoding; malformed lines are refused.
#include "refhost/app/control/control_protocol.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

namespace fenlux::refhost {
namespace {

TEST(ControlProtocol, RequestsKeepEveryCharacterOfTheirArguments) {
  const ControlRequest request{"monitor add", {{"path", "/a \"b\"\\\n\tü"}, {"type", "2"}}};
  const std::string line = EncodeRequest(request);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  const auto decoded = DecodeRequest(line);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->operation, request.operation);
  EXPECT_EQ(decoded->arguments, request.arguments);
}

TEST(ControlProtocol, AcceptsNumbersAndBooleansAsArguments) {
  const auto decoded = DecodeRequest(R"({"operation":"grsp","arguments":{"mode":1,"not-implemented":true}})");
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->arguments, (ControlArguments{{"mode", "1"}, {"not-implemented", "true"}}));
}

// If decoding took quadratic time, this test would exceed its time limit.
TEST(ControlProtocol, DecodesAsManyArgumentsAsFitIntoARequest) {
  std::string line = R"({"operation":"x","arguments":{)";
  for (int number = 0; number < 90'000; ++number) line += '"' + std::to_string(number) + R"(":1,)";
  line.back() = '}';
  line += '}';
  const auto request = DecodeRequest(line);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->arguments.size(), 90'000U);
}

TEST(ControlProtocol, ResultsKeepTheirOrderAndBothForms) {
  Report report = Report::object();
  report["b"] = 1U;
  report["a"] = "x\ny";
  report["c"] = RoundToTenths(12);
  const std::string line = EncodeResult(report);
  EXPECT_EQ(line, R"({"done":true,"result":{"b":1,"a":"x\ny","c":12.0},"text":"b  1\na  x\\ny\nc  12.0\n"})");
  const auto decoded = DecodeAnswer(line);
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(decoded->done);
  EXPECT_EQ(decoded->json, R"({"b":1,"a":"x\ny","c":12.0})");
  EXPECT_EQ(decoded->text, AlignedText(report));
}

TEST(ControlProtocol, RefusalsKeepTheirReason) {
  const std::string reason = "[wdi,gcm] bad parameter!";
  const auto refused = DecodeAnswer(EncodeRefusal(reason));
  ASSERT_TRUE(refused);
  EXPECT_FALSE(refused->done);
  EXPECT_EQ(refused->error, reason);
}

TEST(ControlProtocol, ReplacesInvalidUtf8) {
  const auto decoded = DecodeRequest(EncodeRequest({"a", {{"path", "\xFFx"}}}));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->arguments.at("path"), "\uFFFDx");
}

TEST(ControlProtocol, MalformedLinesDecodeToNothing) {
  for (const char* line : {"", "x", "[]", "3", "{}", R"({"operation":"a","arguments":3})", R"({"operation":{}})",
                           R"({"operation":"a","arguments":{"b":[]}})", R"({"operation":"a","arguments":{"b":null}})",
                           "{\"operation\":", R"({"operation":"a"} {"operation":"b"})"}) {
    EXPECT_FALSE(DecodeRequest(line)) << line;
  }
  EXPECT_FALSE(DecodeRequest(std::string(100'000, '[')));
  EXPECT_FALSE(DecodeAnswer("{}"));
  EXPECT_FALSE(DecodeAnswer(R"({"done":true,"text":"x"})"));
  EXPECT_FALSE(DecodeAnswer(R"({"done":1,"result":{},"text":"x"})"));
  EXPECT_FALSE(DecodeAnswer(R"({"done":false})"));
  const std::string deep = std::string(20, '[') + std::string(20, ']');
  EXPECT_FALSE(DecodeAnswer(R"({"done":true,"result":{"a":)" + deep + R"(},"text":"x"})"));
}

TEST(ControlOperations, HaveUniqueNamesAndHelpForEachArgument) {
  std::set<std::string_view> names;
  for (const ControlOperation& operation : ControlOperations()) {
    EXPECT_TRUE(names.insert(operation.name).second) << operation.name;
    EXPECT_FALSE(operation.help.empty()) << operation.name;
    EXPECT_EQ(FindControlOperation(operation.name), &operation);
    const std::size_t space = operation.name.find(' ');
    if (space != std::string_view::npos) {
      EXPECT_FALSE(ControlGroupHelp(operation.name.substr(0, space)).empty()) << operation.name;
    }
    for (const ControlArgument& argument : operation.arguments) {
      EXPECT_FALSE(argument.help.empty()) << operation.name << " " << argument.name;
    }
  }
  EXPECT_EQ(FindControlOperation("monitor"), nullptr);
}

}  // namespace
}  // namespace fenlux::refhost
