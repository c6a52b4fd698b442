// The fixture for tests of notification dispatch.
#pragma once

#include "tests/unit/module/module_test.h"

namespace fenlux::testing {

class NotificationTest : public ModuleTest {
 protected:
  // A reply of 156 bytes; the bytes after the verdict keep the buffer's filling.
  static Bytes GoldenReply(std::uint8_t verdict) {
    return Golden(156).Hex(0, "e4 42 33 b1 b2 c3 65 53  9c 00 00 00").Put(12, {verdict, 0, 0, 0}).Get();
  }

  // Dispatches on `interact`; by default a driver interface without a connection whose process cache is not started.
  std::shared_ptr<CBuf> Dispatch(const Bytes& message) {
    if (!interact) interact = NewInteract();
    Forget();
    // A copy of exactly the message's size, so that the address sanitizer sees reads beyond it.
    const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[message.size()]);
    std::copy(message.begin(), message.end(), copy.get());
    return interact->DispatchNotification(copy.get(), static_cast<std::uint32_t>(message.size()));
  }
  std::shared_ptr<CBuf> Dispatch(const NotificationBuilder& message) { return Dispatch(message.Build()); }

  std::uint32_t VerdictOf(const NotificationBuilder& message) {
    const auto reply = Dispatch(message);
    return reply ? BytesOf(reply).at(12) : 0;
  }

  // The calls on the record, its conversions and its evaluation.
  Lines RecordCalls() const {
    return Gate().EntriesOf({"CArpRecord::", "CArpProcess::", "CAoArp::", "CUtility::ToRecordString",
                             "CUtility::ToNarrowString", "CUtility::ToWideString", "CUtility::BufferFromBytes",
                             "CWinWork::"});
  }
  // RecordCalls without the calls that every notification starts with.
  Lines RecordCallsAfterProcess() const {
    Lines calls = RecordCalls();
    EXPECT_GE(calls.size(), 4u);
    if (calls.size() >= 4) calls.erase(calls.begin(), calls.begin() + 4);
    return calls;
  }

  static std::string BadSize() { return Problem("[wdi,wdaokd,STDE] info=[wdi,wdaokd-1]bad size!"); }
  static std::string UnknownCode() { return Problem("[wdi,wdaokd,STDE] info=[wdi,wdaokd] Unknown pos value!"); }

  std::shared_ptr<CWinDriverInteract> interact;
};

}  // namespace fenlux::testing
