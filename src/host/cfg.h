// The part of the host's base configuration that the module reads.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CRecordFactory;

// The four switches of command 12, which the module sends to the driver unread, once per connection and for each
// CKDIBase::SetSpspState. Their values are an agreement between the agent and the driver: the driver emulator accepts
// any. Connection worker, host threads.
class CSpspSettings {
 public:
  // Returns switch 1.
  virtual std::uint8_t GetSpspFlag1() = 0;
  // Never called; declared to keep the order of the table.
  virtual std::uint8_t GetReservedFlag() = 0;
  // Returns switch 2. Not called if the middle switches are skipped; the module then sends 0.
  virtual std::uint8_t GetSpspFlag2() = 0;
  // Returns switch 3. Not called if the middle switches are skipped; the module then sends 0.
  virtual std::uint8_t GetSpspFlag3() = 0;
  // Returns switch 4.
  virtual std::uint8_t GetSpspFlag4() = 0;

 protected:
  ~CSpspSettings() = default;
};

// The only kind that the module passes to CCfg::ReportDriverVersion.
inline constexpr std::uint32_t kDriverVersionKind = 1;

// The base configuration. One object for the life of the host.
class CCfg {
 public:
  // Returns the factory of registration records, or an empty handle to register none. Connection worker.
  virtual const std::shared_ptr<CRecordFactory>& GetRecordFactory() = 0;
  // Returns the driver's switches. With an empty handle, the module logs an error and sends none. Connection worker,
  // host threads.
  virtual const std::shared_ptr<CSpspSettings>& GetSpspSettings() = 0;
  // Receives the driver's version once per connection, with kDriverVersionKind as `kind` and true as `current`. Version
  // 0 means that the driver did not answer. For a driver of the same release, `version` is FENLUX_MODULE_VERSION of
  // fenlux/version.h; with any other, the module logs a warning and the connection goes on. If it throws, the
  // connection ends. Connection worker.
  virtual void ReportDriverVersion(std::uint32_t kind, bool current, std::uint32_t version) = 0;
  // Returns whether to measure notifications. The module passes 0 and 0. If it throws, the notification is not
  // measured. Delivery threads, concurrently, once per notification.
  virtual bool IsMeasuringEnabled(std::uint32_t first, std::uint32_t second) = 0;

 protected:
  ~CCfg() = default;
};

}  // namespace fenlux
