// Decodes a capture without output, compared with reading the same file in the same run, so that the ratio holds on any
// machine.
//
// Writes a capture, then reads and decodes it in turn. Prints the best time of each, their ratio, and the memory that
// decoding took.
#include <fmt/format.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <cstring>
#include <exception>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "kdi/driver_records.h"
#include "refhost/capture/decode/capture_decoder.h"
#include "refhost/capture/format/block_writer.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::bench {
namespace {

using namespace capture;
using Clock = std::chrono::steady_clock;
using Message = std::vector<std::uint8_t>;

constexpr int kRounds = 5;

void Append(Bytes& out, Kind kind, std::uint64_t exchange, std::uint64_t time, const void* message, std::size_t size) {
  Packet packet;
  packet.header = {kind, 1, exchange};
  packet.time = time;
  packet.message = {static_cast<const std::uint8_t*>(message), size};
  packet.originalSize = size;
  AppendPacket(out, packet);
}

// Exchanges as the reference host records them: a notification, its judgement, and its reply.
void WriteCapture(const std::string& file, std::uint64_t size) {
  const std::u16string path = u"C:\\Users\\someone\\Documents\\Projects\\a file of usual length.txt";
  records::Notification fixed{};
  fixed.processId = 4711;
  fixed.code = records::code::kPlain;
  fixed.item1Size = static_cast<std::uint32_t>(2 * (path.size() + 1));
  Message notification(sizeof(fixed) + 2 * (path.size() + 1));
  std::memcpy(notification.data(), &fixed, sizeof(fixed));
  std::memcpy(notification.data() + sizeof(fixed), path.c_str(), 2 * (path.size() + 1));
  records::Reply reply{};
  reply.magic = records::kReplyMagic;
  reply.fixedSize = records::kReplyFixedSize;
  reply.verdict = 3;
  const std::string_view judgement = R"({"decision":2,"rule":"documents are allowed","microseconds":3})";

  std::ofstream stream(file, std::ios::binary);
  Bytes bytes;
  AppendFileHeader(bytes);
  std::uint64_t written = 0;
  for (std::uint64_t exchange = 1; written < size; ++exchange) {
    Append(bytes, Kind::kNotification, exchange, exchange * 10000, notification.data(), notification.size());
    Append(bytes, Kind::kJudgement, exchange, exchange * 10000 + 1000, judgement.data(), judgement.size());
    Append(bytes, Kind::kNotificationReply, exchange, exchange * 10000 + 2000, &reply, sizeof(reply));
    if (bytes.size() < (std::size_t{1} << 20)) continue;
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    written += bytes.size();
    bytes.clear();
  }
  if (!stream.flush()) throw std::runtime_error("the capture cannot be written");
}

std::uint64_t ReadAll(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  std::vector<char> piece(std::size_t{1} << 20);
  std::uint64_t size = 0;
  while (stream.read(piece.data(), static_cast<std::streamsize>(piece.size())) || stream.gcount() > 0) {
    size += static_cast<std::uint64_t>(stream.gcount());
  }
  return size;
}

// Pairs and filters every exchange, but shows none.
void DecodeAll(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  CaptureReader reader(stream);
  ExchangeFilter nothing;
  nothing.code = records::code::kUnused;
  std::uint64_t shown = 0;
  CaptureDecoder decoder(nothing, false,
                         {.exchange = [&](const refhost::Report&) { ++shown; },
                          .problem = [](const Problem& problem) { throw std::runtime_error(problem.text); }});
  decoder.Read(reader);
  decoder.Finish();
  if (shown != 0) throw std::runtime_error("the filter let something through");
}

template <typename Work>
double Seconds(const Work& work) {
  const Clock::time_point begin = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

long PeakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

void Run(std::uint64_t mebibytes) {
  const testing::TemporaryDirectory folder;
  const std::string file = (folder.Path() / "port.pcapng").string();
  WriteCapture(file, mebibytes << 20);
  const std::uint64_t size = ReadAll(file);  // brings it into the page cache
  const long before = PeakMemory();
  double reading = std::numeric_limits<double>::max();
  double decoding = std::numeric_limits<double>::max();
  for (int round = 0; round < kRounds; ++round) {
    reading = std::min(reading, Seconds([&] { ReadAll(file); }));
    decoding = std::min(decoding, Seconds([&] { DecodeAll(file); }));
  }
  fmt::print("capture of {} MB: reading {:.3f} s, decoding into nothing {:.3f} s\n", size / 1'000'000, reading,
             decoding);
  fmt::print("decoding / reading = {:.2f}; decoding took {} KiB of memory\n", decoding / reading,
             PeakMemory() - before);
  boost::filesystem::remove_all(folder.Path());
}

}  // namespace
}  // namespace fenlux::bench

int main(int count, char** arguments) {
  CLI::App line("What decoding of a capture costs, compared with reading the file.");
  std::uint64_t mebibytes = 64;
  line.add_option("mebibytes", mebibytes, "the size of the capture (64)")->check(CLI::Range(1, 65536));
  CLI11_PARSE(line, count, arguments);
  try {
    fenlux::bench::Run(mebibytes);
  } catch (const std::exception& error) {
    fmt::print(stderr, "fenlux_decode_bench: {}\n", error.what());
    return 1;
  }
  return 0;
}
