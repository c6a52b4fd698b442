// Text conversion, buffers, measurements and the plain log of the host.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <string>

namespace fenlux {

class CBuf;

// One performance measurement; it starts when CUtility makes it.
class CMeasurement {
 public:
  // Writes what was measured so far, as text for a log line, into `out` and returns it. Called once, on the thread
  // that had the measurement made.
  virtual std::string& GetResultText(std::string& out) = 0;

 protected:
  ~CMeasurement() = default;
};

// Operations that give text or a handle write it into the caller's `out` and return a reference to it. All of them:
// any thread, several at once.
class CUtility {
 public:
  // Adds 1 to the module's version where true. Connection worker.
  virtual bool QueryVersionFlag() = 0;
  // Wide text to narrow text. Connection worker, policy worker, host threads, delivery threads.
  virtual std::string& ToNarrowString(std::string& out, const std::wstring& text) = 0;
  // Declared for the order of the table; the module never calls it.
  virtual std::string& TransformPath(std::string& out, const std::string& path) = 0;
  // Makes the message of a system error readable in a log line. Connection worker, delivery threads.
  virtual std::string& ConvertText(std::string& out, const std::string& message) = 0;
  // Starts a measurement; an empty handle means that nothing is measured. Delivery threads.
  virtual std::shared_ptr<CMeasurement>& CreateMeasurement(std::shared_ptr<CMeasurement>& out) = 0;
  // Lays `text` into `limit` bytes at `destination` in the driver's encoding, cut where it does not fit, and never
  // writes beyond the limit. Policy worker, host threads.
  virtual void CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) = 0;
  // Narrow text to wide text. Policy worker, host threads, delivery threads.
  virtual std::wstring& ToWideString(std::wstring& out, const std::string& text) = 0;
  // The form of a path that event records keep. Delivery threads.
  virtual std::wstring& ToRecordString(std::wstring& out, const std::wstring& path) = 0;
  // Makes a buffer of exactly `size` bytes. The module passes true and false; whether the bytes are zero is the host's
  // choice, and a host that zeroes them never shows old memory to the driver. Any thread; on delivery threads it makes
  // the reply of every notification, and a failure there is the one that reaches the port client. The module writes
  // records of `size` bytes without asking the buffer again.
  virtual std::shared_ptr<CBuf>& CreateBuffer(std::shared_ptr<CBuf>& out, bool first, std::uint32_t size,
                                              bool last) = 0;
  // Whether the path may be monitored: a directory. Policy worker, host threads.
  virtual bool TestPath(const boost::filesystem::path& path) = 0;
  // Copies `length` bytes into a new buffer. Delivery threads.
  virtual std::shared_ptr<CBuf>& BufferFromBytes(std::shared_ptr<CBuf>& out, const void* bytes,
                                                 std::uint32_t length) = 0;
  // Writes a line of the process-information thread: log code 0x10003, category 7. Refresh thread.
  virtual void WriteLog(std::uint32_t code, const std::string& line, std::uint32_t category) = 0;

 protected:
  ~CUtility() = default;
};

}  // namespace fenlux
