// Reads any bytes as a capture, at once and as a file that grows, and decodes what the reader finds.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "refhost/capture/decode/capture_decoder.h"
#include "refhost/capture/format/capture_reader.h"

namespace fenlux::capture {
namespace {

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "fuzz_capture: failed: %s\n", what);
  std::abort();
}

// Everything that a reader returns, as text.
using Results = std::vector<std::string>;

void ReadTo(CaptureReader& reader, std::size_t size, Results& results) {
  for (;;) {
    switch (reader.Next()) {
      case CaptureReader::Result::kEnd:
        return;
      case CaptureReader::Result::kProblem:
        Require(reader.CurrentProblem().offset < size, "a problem lies within the file");
        Require(!reader.CurrentProblem().text.empty(), "a problem says what it is");
        results.push_back(std::to_string(reader.CurrentProblem().offset) + reader.CurrentProblem().text);
        break;
      case CaptureReader::Result::kPacket: {
        const Packet& packet = reader.CurrentPacket();
        Require(packet.offset < size, "a packet lies within the file");
        Require(packet.message.size() <= packet.originalSize, "a message has no more bytes than it had");
        results.push_back(std::to_string(packet.offset) + std::string(packet.Text()) + std::string(packet.comment));
        break;
      }
    }
    Require(results.size() <= size, "reading ends");
  }
}

Results ReadAtOnce(const std::string& bytes) {
  std::istringstream stream(bytes);
  CaptureReader reader(stream);
  Results results;
  ReadTo(reader, bytes.size(), results);
  return results;
}

Results ReadGrowing(const std::string& bytes, std::size_t split) {
  std::stringstream stream;
  CaptureReader reader(stream);
  reader.SetGrowing(true);
  Results results;
  for (const std::string& piece : {bytes.substr(0, split), bytes.substr(split)}) {
    stream.clear();
    stream << piece;
    ReadTo(reader, bytes.size(), results);
  }
  reader.SetGrowing(false);
  ReadTo(reader, bytes.size(), results);
  return results;
}

bool IsOneLine(const std::string& text) {
  for (const char character : text) {
    if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F) return false;
  }
  return true;
}

void CheckReport(const refhost::Report& report) {
  const std::string json = refhost::JsonText(report);
  Require(IsOneLine(json), "JSON is one line");
  Require(!refhost::Report::parse(json, nullptr, false).is_discarded(), "JSON can be read");
  std::istringstream lines(ExchangeText(report));
  for (std::string line; std::getline(lines, line);) Require(IsOneLine(line), "text has no control characters");
}

void DecodeAll(const std::string& bytes) {
  CaptureDecoder decoder({}, true, {.exchange = CheckReport, .problem = [](const Problem&) {}});
  std::istringstream stream(bytes);
  CaptureReader reader(stream);
  decoder.Read(reader);
  decoder.Finish();
}

}  // namespace

// The first two bytes say where the growing file is interrupted.
void RunInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return;
  const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::size_t split = bytes.empty() ? 0 : (std::size_t{data[0]} << 8 | data[1]) % bytes.size();
  Require(ReadAtOnce(bytes) == ReadGrowing(bytes, split), "a file that grows reads like one that does not");
  DecodeAll(bytes);
}

}  // namespace fenlux::capture

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fenlux::capture::RunInput(data, size);
  return 0;
}
