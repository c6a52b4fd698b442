// Text conversion, buffers, measurements, and a plain log.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <string>

namespace fenlux {

class CBuf;

// One performance measurement, which starts when CUtility creates it.
class CMeasurement {
 public:
  // Writes the result so far, as narrow text for a log line ("[PFM final]=" and the text), into `out` and returns
  // `out`. Called once, on the thread that created the measurement.
  virtual std::string& GetResultText(std::string& out) = 0;

 protected:
  ~CMeasurement() = default;
};

// Operations with an `out` argument write their result into it and return a reference to it. Threads, where listed, may
// call concurrently.
class CUtility {
 public:
  // Returns whether to add 1 to the module's version before it is logged and compared with the driver's. False unless
  // the agent and the driver agree on the higher number. Connection worker.
  virtual bool QueryVersionFlag() = 0;
  // Converts wide text to narrow text. The encoding of narrow text is the host's choice (the reference host: UTF-8),
  // but ToWideString must be its inverse: the module converts paths to narrow text and back. Connection worker, policy
  // worker, host threads, delivery threads.
  virtual std::string& ToNarrowString(std::string& out, const std::wstring& text) = 0;
  // Never called; declared to keep the order of the table.
  virtual std::string& TransformPath(std::string& out, const std::string& path) = 0;
  // Makes the message of a system error, which is in the system's own encoding, readable in a log line: writes it as
  // narrow text into `out`. If it throws, the message is logged as it is. Connection worker, delivery threads.
  virtual std::string& ConvertText(std::string& out, const std::string& message) = 0;
  // Starts a measurement in `out`; an empty handle means that nothing is measured. Called if CCfg::IsMeasuringEnabled
  // is true. Delivery threads.
  virtual std::shared_ptr<CMeasurement>& CreateMeasurement(std::shared_ptr<CMeasurement>& out) = 0;
  // Writes `text` to `destination` in the encoding that the driver expects, truncated to `limit` bytes; writes nothing
  // beyond `limit`. For the root name of command 1 (8 bytes) and its path (65536 bytes). The encoding is an agreement
  // between the agent and the driver; the driver emulator and the driver kit read UTF-16, little-endian, up to a NUL or
  // the end of the field, and a full field has no NUL. The field has the bytes that CreateBuffer put there, so if
  // CreateBuffer fills with zeros, the NUL need not be written. Policy worker, host threads.
  virtual void CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) = 0;
  // Converts narrow text to wide text, the inverse of ToNarrowString. Policy worker, host threads, delivery threads.
  virtual std::wstring& ToWideString(std::wstring& out, const std::string& text) = 0;
  // Converts a path from the driver's form to the form that event records keep and the judge compares. The form is the
  // host's choice; a copy is enough (the reference host drops the prefixes `\??\` and `\\?\` and repeated separators).
  // Delivery threads.
  virtual std::wstring& ToRecordString(std::wstring& out, const std::wstring& path) = 0;
  // Creates a buffer of exactly `size` bytes. The module passes true as `first` and false as `last`, and writes `size`
  // bytes without checking the buffer's size. It does not write unused bytes, so zero them to keep old memory from the
  // driver. On delivery threads, creates the reply of every notification; a failure there is the only one that reaches
  // the port client. Any thread.
  virtual std::shared_ptr<CBuf>& CreateBuffer(std::shared_ptr<CBuf>& out, bool first, std::uint32_t size,
                                              bool last) = 0;
  // Returns whether the path may be monitored: whether it is a directory, links followed. Policy objects that may not
  // be monitored are skipped, and the path flag of command 1 has this result. Policy worker, host threads.
  virtual bool TestPath(const boost::filesystem::path& path) = 0;
  // Copies `length` bytes, at least one, into a new buffer in `out`. A null buffer gives verdict 8. Delivery threads.
  virtual std::shared_ptr<CBuf>& BufferFromBytes(std::shared_ptr<CBuf>& out, const void* bytes,
                                                 std::uint32_t length) = 0;
  // Logs that the refresh thread starts or ends: `code` is 0x10003 and `category` 7, both numbers of the host's log.
  // Exceptions are ignored. Refresh thread.
  virtual void WriteLog(std::uint32_t code, const std::string& line, std::uint32_t category) = 0;

 protected:
  ~CUtility() = default;
};

}  // namespace fenlux
