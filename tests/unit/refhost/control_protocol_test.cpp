// Requests and answers survive the way; what is no request is refused.
#include "refhost/app/control/control_protocol.h"

#include <gtest/gtest.h>

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

TEST(ControlProtocol, AnswersKeepTheirResultOrTheirError) {
  Report report;
  report.Add("b", 1U);
  report.Add("a", "x\ny");
  ControlAnswer answer;
  answer.done = true;
  answer.json = report.Json();
  answer.text = report.Text();
  const auto decoded = DecodeAnswer(EncodeAnswer(answer));
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(decoded->done);
  EXPECT_EQ(decoded->json, R"({"b":1,"a":"x\ny"})");
  EXPECT_EQ(decoded->text, report.Text());

  ControlAnswer refusal;
  refusal.error = "[wdi,gcm] bad parameter!";
  const auto refused = DecodeAnswer(EncodeAnswer(refusal));
  ASSERT_TRUE(refused);
  EXPECT_FALSE(refused->done);
  EXPECT_EQ(refused->error, refusal.error);
}

TEST(ControlProtocol, WhatIsNoRequestDecodesToNothing) {
  for (const char* line : {"", "x", "[]", "3", "{}", R"({"operation":"a","arguments":3})",
                           "{\"operation\":", R"({"operation":"a"} {"operation":"b"})"}) {
    EXPECT_FALSE(DecodeRequest(line)) << line;
  }
  EXPECT_FALSE(DecodeRequest(std::string(100'000, '[')));
  EXPECT_FALSE(DecodeAnswer("{}"));
  EXPECT_FALSE(DecodeAnswer(R"({"done":true,"text":"x"})"));
}

TEST(ControlOperations, HaveNamesOfTheirOwnAndHelpForEachArgument) {
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
