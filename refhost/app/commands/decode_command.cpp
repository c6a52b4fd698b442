// The `decode` command: shows the exchanges of a capture one by one.
#include <fmt/format.h>

#include <boost/filesystem/path.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/signals.h"
#include "refhost/app/problem_output.h"
#include "refhost/base/file_bytes.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/progress_bar.h"
#include "refhost/capture/decode/capture_decoder.h"

namespace fenlux::refhost {
namespace {

// How often a growing file is checked for new data.
constexpr std::chrono::milliseconds kFollowInterval{100};

// How many of its first bytes identify a file, to notice when another one takes its name.
constexpr std::size_t kBeginning = 512;

std::ifstream OpenFile(const boost::filesystem::path& file) {
  return std::ifstream(std::filesystem::path(file.native()), std::ios::binary);
}

// Keeps the stream's position.
std::string BeginningOf(std::istream& stream) {
  stream.clear();
  const std::istream::pos_type position = stream.tellg();
  stream.seekg(0);
  std::string bytes(kBeginning, '\0');
  stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(stream.gcount()));
  stream.clear();
  stream.seekg(position);
  return bytes;
}

// Whether the name now belongs to a different file, because the recorder has begun a new one. The named file is read
// first: a file only grows, so if it is still the same, the opened one has these bytes too.
bool IsReplaced(const boost::filesystem::path& file, std::istream& opened) {
  std::ifstream named = OpenFile(file);
  const std::string now = BeginningOf(named);
  return BeginningOf(opened).compare(0, now.size(), now) != 0;
}

class Output {
 public:
  explicit Output(bool asJson) : json(asJson) {}

  capture::DecodeSinks Sinks() {
    return {.exchange = [this](const Report& report) { Show(report); },
            .problem = [this](const capture::Problem& problem) { Show(problem); }};
  }
  void Flush() {
    std::cout << text << std::flush;
    if (!std::cout && failure.empty()) failure = OutputFailure();
    text.clear();
  }
  std::uint64_t Problems() const { return problems; }
  // Success if all output was written; otherwise reports why not.
  int Code() const {
    if (failure.empty()) return kExitSuccess;
    std::cerr << ProblemLines("fenlux-host: " + failure, json);
    return kExitOutput;
  }

  void Note(std::uint64_t offset, const std::string& what) {
    Flush();
    std::cerr << fmt::format("fenlux-host: offset {}: {}\n", offset, what) << std::flush;
  }

 private:
  void Show(const Report& report) {
    text += json ? JsonText(report) + '\n' : capture::ExchangeText(report);
    if (text.size() > kMaxText) Flush();
  }
  void Show(const capture::Problem& problem) {
    ++problems;
    if (!json) {
      Note(problem.offset, problem.text);
      return;
    }
    Report report = Report::object();
    report["offset"] = problem.offset;
    report["error"] = problem.text;
    Show(report);
  }

  static constexpr std::size_t kMaxText = 65536;

  const bool json;
  std::string text;
  std::string failure;  // of the first write that failed
  std::uint64_t problems = 0;
};

int Fail(const DecodeOptions& options, const std::string& text) {
  std::cerr << ProblemLines("fenlux-host: " + text, options.json);
  return kExitUsage;
}

capture::ExchangeFilter FilterOf(const DecodeOptions& options) {
  capture::ExchangeFilter filter;
  filter.code = options.code;
  filter.verdict = options.verdict;
  if (options.path) filter.path = Glob(*options.path);
  if (options.slowMicroseconds) filter.slowerThan = static_cast<std::uint64_t>(*options.slowMicroseconds * 1000);
  return filter;
}

// Reads the file as it grows, and its successors, until a signal arrives.
void Follow(const boost::filesystem::path& file, capture::CaptureDecoder& decoder, Output& output) {
  for (;;) {
    std::ifstream stream = OpenFile(file);
    capture::CaptureReader reader(stream);
    reader.SetGrowing(true);
    bool replaced = false;
    for (;;) {
      decoder.Read(reader);
      output.Flush();
      if (replaced) break;
      if (WaitForSignal(kFollowInterval) == HostSignal::kStop) return;
      replaced = IsReplaced(file, stream);  // then read the rest of the old file first
    }
  }
}

}  // namespace

int DecodeCapture(const DecodeOptions& options) {
  std::ifstream stream = OpenFile(options.file);
  if (!stream) return Fail(options, fmt::format("{} cannot be opened: {}", options.file.string(), LastErrorText()));
  Output output(options.json);
  std::optional<ProgressBar> progress(FileSizeOrZero(options.file));
  capture::DecodeSinks sinks = output.Sinks();
  sinks.progress = [&](std::uint64_t offset) { progress->Show(offset); };
  if (options.follow) sinks.progress = nullptr;
  capture::CaptureDecoder decoder(FilterOf(options), options.hex, std::move(sinks));
  if (options.follow) {
    BlockSignals();
    stream.close();
    Follow(options.file, decoder, output);
    decoder.Finish();
    output.Flush();
    return output.Code();
  }
  capture::CaptureReader reader(stream);
  decoder.Read(reader);
  decoder.Finish();
  output.Flush();
  progress.reset();
  if (stream.bad()) return Fail(options, fmt::format("{} cannot be read: {}", options.file.string(), LastErrorText()));
  if (!reader.IsCapture()) return Fail(options, options.file.string() + " is not a capture");
  if (reader.CutOff()) output.Note(reader.Offset(), "the file ends in the middle of a block, which is left out");
  return output.Problems() == 0 ? output.Code() : kExitUsage;
}

}  // namespace fenlux::refhost
