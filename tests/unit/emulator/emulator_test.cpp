// Builds the requests, contexts and buffers that the emulator's tests send, and sends them.
#include "tests/unit/emulator/emulator_test.h"

#include <algorithm>
#include <cstring>

namespace fenlux::testing {
namespace {

class VectorBuf final : public CBuf {
 public:
  explicit VectorBuf(Bytes contents) : bytes(std::move(contents)) {}
  std::uint8_t* GetData() override { return bytes.data(); }
  std::size_t GetSize() override { return bytes.size(); }

 private:
  Bytes bytes;
};

void PutUnits(std::uint8_t* field, std::size_t limit, std::u16string_view text) {
  const Bytes bytes = Utf16(text, text.size() * 2 < limit);
  std::copy_n(bytes.begin(), std::min(bytes.size(), limit), field);
}

}  // namespace

std::shared_ptr<CBuf> Buffer(Bytes bytes) { return std::make_shared<VectorBuf>(std::move(bytes)); }

Bytes BytesOf(const std::shared_ptr<CBuf>& buffer) {
  return buffer == nullptr ? Bytes() : Bytes(buffer->GetData(), buffer->GetData() + buffer->GetSize());
}

Bytes ConnectContext(std::uint32_t clientType) {
  return Golden(16)
      .Hex(0, "62 4c ac 34 25 d5 18 25 c8 00 00 00")
      .Put(12, {static_cast<std::uint8_t>(clientType), 0, 0, 0})
      .Get();
}

Bytes Request(std::uint32_t command, std::string_view payloadDigits) {
  return Golden(65561)
      .Hex(0, "e3 4a a3 29 e7 ff 79 8f")
      .Put(8, {static_cast<std::uint8_t>(command), static_cast<std::uint8_t>(command >> 8), 0, 0})
      .Hex(12, payloadDigits)
      .Get();
}

Bytes AddRequest(std::uint32_t type, std::u16string_view path, std::u16string_view rootName, std::uint8_t pathFlag) {
  Bytes request = Request(1);
  const Bytes typeAndFlag{static_cast<std::uint8_t>(type), 0, 0, 0, pathFlag};
  std::copy(typeAndFlag.begin(), typeAndFlag.end(), request.begin() + 12);
  PutUnits(request.data() + 17, 8, rootName);
  PutUnits(request.data() + 25, 65536, path);
  return request;
}

Bytes Reply(std::uint32_t verdict, const Bytes& context) {
  Golden reply(156 + (verdict == 6 ? context.size() + 2 : 0));
  reply.Hex(0, "e4 42 33 b1 b2 c3 65 53 9c 00 00 00").Put(12, {static_cast<std::uint8_t>(verdict), 0, 0, 0});
  if (verdict == 6) {
    const std::size_t size = context.size() + 2;
    reply.Put(16, {static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(size >> 8), 0, 0}).Put(156, context);
  }
  return reply.Get();
}

void Gate::Open() {
  {
    const std::lock_guard lock(mutex);
    open = true;
  }
  changed.notify_all();
}

void Gate::Pass() {
  std::unique_lock lock(mutex);
  ++arrivals;
  changed.notify_all();
  changed.wait(lock, [this] { return open; });
}

void Gate::AwaitArrivals(int count) {
  std::unique_lock lock(mutex);
  ASSERT_TRUE(changed.wait_for(lock, kTestTimeout, [&] { return arrivals >= count; }));
}

void EmulatorTest::TearDown() {
  if (emulator == nullptr) return;
  emulator->Stop();
  EXPECT_TRUE(emulator->Totals().AddsUp());
  EXPECT_EQ(emulator->Totals().inFlight, 0u);
  EXPECT_EQ(emulator->Totals().kernelInFlight, 0u);
}

DriverEmulator& EmulatorTest::Emulator() {
  if (emulator == nullptr) {
    refhost::EmulatorHooks hooks;
    hooks.log = [this](refhost::EmulatorLogLevel, const std::string& line) {
      const std::lock_guard lock(logMutex);
      logLines.push_back(line);
    };
    emulator = std::make_shared<DriverEmulator>(settings, scenario, std::move(hooks));
  }
  return *emulator;
}

std::shared_ptr<CPortClient> EmulatorTest::Made(std::uint32_t clientType) {
  auto port = Emulator().MakePortClient(
      kPortNameText, Buffer(ConnectContext(clientType)), 196764,
      [answer = handler](const void* message, std::uint32_t size) {
        const auto* bytes = static_cast<const std::uint8_t*>(message);
        return answer(Bytes(bytes, bytes + size));
      },
      77);
  ports.push_back(port);
  return port;
}

std::shared_ptr<CPortClient> EmulatorTest::Opened(std::uint32_t clientType) {
  auto port = Made(clientType);
  port->Connect();
  port->Start();
  return port;
}

std::shared_ptr<CBuf> EmulatorTest::Send(CPortClient& port, Bytes request, std::shared_ptr<CBuf> reply, bool flag) {
  port.Send(Buffer(std::move(request)), reply, flag);
  return reply;
}

std::string EmulatorTest::FailureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "not an exception";
  }
  return {};
}

std::vector<std::string> EmulatorTest::LogLines() {
  const std::lock_guard lock(logMutex);
  return logLines;
}

refhost::NotifyStep& EmulatorTest::AddNotifications(Bytes message, std::uint64_t count) {
  refhost::NotifyStep step;
  step.message = std::move(message);
  step.count = count;
  AddStep(std::move(step));
  return std::get<refhost::NotifyStep>(scenario.steps.back().action);
}

}  // namespace fenlux::testing
