// The host's network objects: one per driver interface, held for the life of the interface.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

// Whatever the host keeps per driver interface. The module only holds the handle and releases it; a host that needs
// nothing makes an object whose Release returns `out`.
class CNetObject {
 public:
  // Releases the object's resources and returns `out`. Called at most once, with 0 as `reserved`, when the interface
  // shuts down. The module ignores what is written into `out`. Any thread.
  virtual std::shared_ptr<CNetObject>& Release(std::shared_ptr<CNetObject>& out, std::uint32_t reserved) = 0;

 protected:
  ~CNetObject() = default;
};

// The factory of network objects. One object for the life of the host.
class CNet {
 public:
  // Creates the object of a driver interface in `out` and returns `out`; an empty handle means none. `value1` and
  // `value2` are GetRecordValue1 and GetRecordValue2 of CCfgEx. Connection worker.
  virtual std::shared_ptr<CNetObject>& CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t value1,
                                                    std::uint32_t value2) = 0;

 protected:
  ~CNet() = default;
};

}  // namespace fenlux
