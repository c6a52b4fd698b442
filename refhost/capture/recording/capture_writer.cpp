// Writes consecutive packets for the same file with one call.
#include "refhost/capture/recording/capture_writer.h"

#include <boost/filesystem/operations.hpp>
#include <utility>

#include "refhost/capture/recording/packet_queue.h"

namespace fenlux::capture {
namespace {

// The most connections whose contexts are kept; beyond that, the oldest one is dropped.
constexpr std::size_t kMaxOpenConnections = 16;

// The number of times a failed rotation is retried before the file reaches twice its maximum size.
constexpr std::uint64_t kRotationRetries = 16;

}  // namespace

CaptureWriter::CaptureWriter(const RecordingSettings& settings)
    : maxFileSize(settings.maxFileSize), names(settings.file, settings.maxFiles) {
  if (const std::string obstacle = names.FindObstacle(); !obstacle.empty()) throw RecordingError(obstacle);
  if (!EnsureOpen(CurrentTime())) throw RecordingError(Error());
}

void CaptureWriter::Write(std::span<std::uint8_t> blocks) {
  std::size_t run = 0;  // size of the unwritten blocks before the next one
  std::uint64_t packets = 0;
  if (!file.IsOpen()) EnsureOpen(BlockTime(FirstBlock(blocks)));
  while (run < blocks.size()) {
    const std::span<std::uint8_t> block = FirstBlock(blocks.subspan(run));
    if (file.IsOpen() && IsFull(run + block.size()) && (holdsMessages || packets > 0)) {
      Append(blocks.first(run), packets);
      blocks = blocks.subspan(run);
      run = 0;
      packets = 0;
      Rotate(BlockTime(block));
    }
    Keep(block);
    run += block.size();
    ++packets;
  }
  Append(blocks, packets);
}

void CaptureWriter::Finish(std::uint64_t received, std::uint64_t droppedBefore) {
  if (!file.IsOpen()) return;
  Bytes statistics;
  AppendStatistics(statistics, CurrentTime(), received, droppedBefore + lost);
  if (const auto failure = file.Append(statistics)) SetError(failure.message());
  file.Close();
}

void CaptureWriter::Rotate(std::uint64_t time) {
  if (std::string failure = names.Shift(); !failure.empty()) {
    // For example, another program has one of the files open. Prefer a large file to lost messages.
    SetError(std::move(failure));
    fullSize = file.Size() + maxFileSize / kRotationRetries;
    return;
  }
  file.Close();
  shiftNext = false;
  EnsureOpen(time);
}

bool CaptureWriter::EnsureOpen(std::uint64_t time) {
  std::string failure;
  if (shiftNext) failure = names.Shift();
  if (failure.empty()) {
    shiftNext = false;
    failure = BeginFile(time);
  }
  if (failure.empty()) return true;
  SetError(std::move(failure));
  return false;
}

std::string CaptureWriter::BeginFile(std::uint64_t time) {
  const boost::filesystem::path current = names.NameOf(0);
  if (const auto failure = file.Create(current)) {
    return current.string() + " cannot be created: " + failure.message();
  }
  const Bytes beginning = Beginning(time);
  if (const auto failure = file.Append(beginning)) {
    file.Close();
    boost::system::error_code ignored;
    boost::filesystem::remove(current, ignored);  // it was just created, and the next attempt needs the name
    return current.string() + " cannot be written: " + failure.message();
  }
  holdsMessages = false;
  fullSize = maxFileSize;
  bytes += beginning.size();
  ++files;
  return {};
}

Bytes CaptureWriter::Beginning(std::uint64_t time) const {
  Bytes beginning;
  AppendFileHeader(beginning);
  const auto append = [&](const Bytes& block) {
    const std::size_t at = beginning.size();
    beginning.insert(beginning.end(), block.begin(), block.end());
    const std::span<std::uint8_t> copy = std::span(beginning).subspan(at);
    SetBlockTime(copy, time);
    SetBlockDropCount(copy, 0);
  };
  if (!facts.empty()) append(facts);
  for (const auto& [connection, block] : opens) append(block);
  return beginning;
}

bool CaptureWriter::IsFull(std::size_t more) const { return maxFileSize != 0 && file.Size() + more > fullSize; }

void CaptureWriter::Append(std::span<std::uint8_t> run, std::uint64_t packets) {
  if (packets == 0) return;
  const std::span<std::uint8_t> first = FirstBlock(run);
  SetBlockDropCount(first, BlockDropCount(first) + std::exchange(lostBefore, 0));
  if (file.IsOpen()) {
    const auto failure = file.Append(run);
    if (!failure) {
      holdsMessages = true;
      written += packets;
      bytes += run.size();
      return;
    }
    SetError(names.NameOf(0).string() + " cannot be written: " + failure.message());
    shiftNext = !file.IsOpen();
  }
  CountLost(run, Error());
}

void CaptureWriter::CountLost(std::span<std::uint8_t> blocks, std::string reason) {
  SetError(std::move(reason));
  for (std::span<std::uint8_t> rest = blocks; !rest.empty(); rest = rest.subspan(FirstBlock(rest).size())) {
    ++lost;
    lostBefore += 1 + BlockDropCount(FirstBlock(rest));
  }
}

void CaptureWriter::Keep(std::span<const std::uint8_t> block) {
  const PacketHeader header = HeaderOfBlock(block);
  switch (header.kind) {
    case Kind::kFacts:
      facts.assign(block.begin(), block.end());
      break;
    case Kind::kConnectContext:
      opens[header.connection].assign(block.begin(), block.end());
      if (opens.size() > kMaxOpenConnections) opens.erase(opens.begin());
      break;
    case Kind::kClosed:
      opens.erase(header.connection);
      break;
    default:
      break;
  }
}

std::string CaptureWriter::Error() const {
  const MutexLock lock(mutex);
  return error;
}

void CaptureWriter::SetError(std::string text) {
  const MutexLock lock(mutex);
  error = std::move(text);
}

}  // namespace fenlux::capture
