// The driver emulator and the header accept and refuse the same records: the vectors, and every value near a limit.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fenlux/driver_protocol.h"
#include "refhost/emulator/driver/reply_check.h"
#include "refhost/emulator/driver/shared/driver_model.h"
#include "refhost/emulator/driver/shared/hook_caller.h"

namespace fenlux::testing {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Vector {
  std::string name;
  Bytes bytes;
};

// The vectors of one kind of record, including the malformed ones.
std::vector<Vector> VectorsOf(const std::string& kind) {
  const std::string folder = FENLUX_VECTORS;
  std::ifstream index(folder + "/index.txt");
  std::vector<Vector> vectors;
  for (std::string record, name; index >> record >> name;) {
    if (record != kind) continue;
    std::ifstream in(folder + "/" + name + ".bin", std::ios::binary);
    EXPECT_TRUE(in) << name;
    vectors.push_back({name, Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())});
  }
  EXPECT_FALSE(vectors.empty()) << kind;
  return vectors;
}

// The violation that a newly connected emulator reports for the request; empty if none. Begins the list first if the
// request is a list item or the end of a list.
std::string EmulatorsViolation(const Bytes& request) {
  refhost::HookCaller hooks{{}};
  refhost::DriverModel model(hooks);
  const std::uint32_t command = request.size() >= 16 ? FenluxLoadU32(request.data() + 8) : 0;
  std::uint32_t clientType = FENLUX_CLIENT_TYPE_1;
  if (command == FENLUX_COMMAND_GRPM_SWITCH || command == FENLUX_COMMAND_GRSP_SWITCH) {
    // The client type of the request: only the driver can compare it with that of the connection.
    if (FenluxLoadU32(request.data() + 12) == FENLUX_CLIENT_TYPE_2) clientType = FENLUX_CLIENT_TYPE_2;
  }
  const std::uint64_t connection = model.Open(clientType, 0);
  if (command == FENLUX_COMMAND_NET_ITEM || command == FENLUX_COMMAND_NET_ITEM_LIST_END) {
    Bytes begin = request;
    begin[8] = FENLUX_COMMAND_NET_ITEM_LIST_BEGIN;
    model.CarryOut(connection, begin.data(), begin.size());
  }
  const std::uint8_t none = 0;
  const auto effect = model.CarryOut(connection, request.empty() ? &none : request.data(), request.size());
  EXPECT_TRUE(effect.has_value());
  return effect ? effect->violation : std::string();
}

// Checks that the header parses what the emulator accepts, and nothing else.
::testing::AssertionResult SameAnswer(const Bytes& request) {
  FenluxRequestView view = {};
  const std::uint8_t none = 0;  // an empty vector has no memory
  const FenluxError error = FenluxParseRequest(request.empty() ? &none : request.data(), request.size(), &view);
  const std::string violation = EmulatorsViolation(request);
  if ((error == FENLUX_OK) == violation.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "header: " << FenluxErrorText(error) << "; emulator: \"" << violation << '"';
}

}  // namespace

TEST(DriverEmulatorAgreement, OnRequestVectors) {
  for (const Vector& vector : VectorsOf("request")) {
    EXPECT_TRUE(SameAnswer(vector.bytes)) << vector.name;
  }
}

TEST(DriverEmulatorAgreement, OnEveryCommandAndSmallValue) {
  Bytes request(FENLUX_REQUEST_SIZE);
  FenluxStoreU64(request.data(), FENLUX_REQUEST_MAGIC);
  request[25] = 'x';  // a path
  for (std::uint32_t command = 0; command <= 32; ++command) {
    FenluxStoreU32(request.data() + 8, command);
    for (const std::uint32_t value : {0u, 1u, 2u, 3u, 4u, 5u, 0x101u, 0xFFFFFFFFu}) {
      FenluxStoreU32(request.data() + 12, value);
      for (const unsigned next : {0u, 1u, 2u}) {
        request[16] = static_cast<std::uint8_t>(next);
        EXPECT_TRUE(SameAnswer(request)) << "command " << command << ", " << value << ", " << next;
      }
    }
  }
}

TEST(DriverEmulatorAgreement, OnReplyVectors) {
  for (const Vector& vector : VectorsOf("reply")) {
    FenluxReplyView view = {};
    const FenluxError error = FenluxParseReply(vector.bytes.data(), vector.bytes.size(), &view);
    const auto finding = refhost::CheckReply(vector.bytes.data(), vector.bytes.size(), refhost::ReplyDue());
    EXPECT_EQ(error == FENLUX_OK, finding.violation.empty()) << vector.name << ": " << finding.violation;
    if (error == FENLUX_OK) {
      EXPECT_EQ(finding.verdict, view.verdict) << vector.name;
    }
  }
}

TEST(DriverEmulatorAgreement, OnNotificationCodes) {
  for (std::uint32_t code = 0; code < 20000; ++code) {
    EXPECT_EQ(FenluxIsNotificationCode(code) != 0, refhost::IsKnownCode(code)) << code;
    if (FenluxIsNotificationCode(code) == 0) continue;
    Bytes message(FENLUX_NOTIFICATION_FIXED_SIZE);
    FenluxStoreU32(message.data() + 20, code);
    const auto due = refhost::DueReply(refhost::NotificationView(message), FENLUX_CLIENT_TYPE_1);
    EXPECT_EQ(FenluxIsReplyExpected(code) == 0, due.none) << code;
  }
}

}  // namespace fenlux::testing
