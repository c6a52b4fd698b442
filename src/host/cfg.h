// The host's base configuration, as far as the module reads it.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CRecordFactory;

// The switches that the module hands to the driver once per connection. Connection worker, host threads.
class CSpspSettings {
 public:
  virtual std::uint8_t GetSpspFlag1() = 0;
  // Declared for the order of the table; the module never calls it.
  virtual std::uint8_t GetReservedFlag() = 0;
  virtual std::uint8_t GetSpspFlag2() = 0;
  virtual std::uint8_t GetSpspFlag3() = 0;
  virtual std::uint8_t GetSpspFlag4() = 0;

 protected:
  ~CSpspSettings() = default;
};

// The only kind of version that CCfg::ReportDriverVersion is given.
inline constexpr std::uint32_t kDriverVersionKind = 1;

class CCfg {
 public:
  // The maker of registration records; an empty handle means that none is registered. Connection worker.
  virtual const std::shared_ptr<CRecordFactory>& GetRecordFactory() = 0;
  // The driver's switches; an empty handle is reported and none are sent. Connection worker, host threads.
  virtual const std::shared_ptr<CSpspSettings>& GetSpspSettings() = 0;
  // Receives the driver's version once per connection, with kind 1 and true; 0 means that the driver gave none.
  // Connection worker.
  virtual void ReportDriverVersion(std::uint32_t kind, bool current, std::uint32_t version) = 0;
  // Whether notifications are measured; the module passes 0 and 0. Delivery threads, once per notification.
  virtual bool IsMeasuringEnabled(std::uint32_t first, std::uint32_t second) = 0;

 protected:
  ~CCfg() = default;
};

}  // namespace fenlux
