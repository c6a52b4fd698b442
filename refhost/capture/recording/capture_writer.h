// Writes encoded packets to the files of a recording, and starts a new file when one is full.
//
// Every file can be read on its own: it begins with the file header, the latest facts, and the connect contexts of the
// open connections. The writer keeps copies of these packets for the next file.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "common/mutex.h"
#include "refhost/capture/format/block_writer.h"
#include "refhost/capture/recording/capture_file.h"
#include "refhost/capture/recording/file_rotation.h"
#include "refhost/capture/recording_port_client.h"

namespace fenlux::capture {

// The writer's thread, except for the counts, which any thread may read.
class CaptureWriter {
 public:
  // Creates the first file. Throws RecordingError.
  explicit CaptureWriter(const RecordingSettings& settings);

  // Writes whole blocks of packets, at least one. Counts packets that cannot be written; the next one that can be
  // written states how many were lost. Changes the blocks' drop counts.
  void Write(std::span<std::uint8_t> blocks);
  // Counts the packets of these blocks as lost.
  void CountLost(std::span<std::uint8_t> blocks, std::string reason);
  // Appends the statistics and closes the file.
  void Finish(std::uint64_t received, std::uint64_t droppedBefore);

  std::uint64_t Written() const { return written; }
  std::uint64_t Lost() const { return lost; }
  std::uint64_t WrittenBytes() const { return bytes; }
  std::uint64_t Files() const { return files; }
  std::string Error() const;

 private:
  // Begins the next file. If the files cannot be renamed, keeps writing to the current one for a while.
  void Rotate(std::uint64_t time);
  // Creates a file unless one is open. False if that fails.
  bool EnsureOpen(std::uint64_t time);
  // Creates the current file and writes its beginning. Returns why that failed, or an empty string.
  std::string BeginFile(std::uint64_t time);
  // The beginning of a file; the kept packets get that time.
  Bytes Beginning(std::uint64_t time) const;
  bool IsFull(std::size_t more) const;
  // Appends `packets` packets to the current file, or counts them as lost.
  void Append(std::span<std::uint8_t> run, std::uint64_t packets);
  void Keep(std::span<const std::uint8_t> block);
  void SetError(std::string text);

  const std::uint64_t maxFileSize;
  const FileRotation names;
  CaptureFile file;
  std::uint64_t fullSize = 0;            // of the current file; more than maxFileSize after a rotation that failed
  bool holdsMessages = false;            // the current file has more than its initial blocks
  bool shiftNext = true;                 // an older file has the current name
  std::uint64_t lostBefore = 0;          // since the last packet that was written
  Bytes facts;                           // the latest facts' block
  std::map<std::uint32_t, Bytes> opens;  // the context blocks of open connections

  std::atomic<std::uint64_t> written{0};
  std::atomic<std::uint64_t> lost{0};
  std::atomic<std::uint64_t> bytes{0};
  std::atomic<std::uint64_t> files{0};
  mutable Mutex mutex;
  std::string error FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::capture
