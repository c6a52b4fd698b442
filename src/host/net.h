// The host's network objects: one per driver interface, held for the life of the interface.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CNetObject {
 public:
  // Releases the object's resources. Called at most once, with 0, when the interface shuts down. The module ignores
  // what is written into `out`. Any thread.
  virtual std::shared_ptr<CNetObject>& Release(std::shared_ptr<CNetObject>& out, std::uint32_t reserved) = 0;

 protected:
  ~CNetObject() = default;
};

class CNet {
 public:
  // Creates the object of a driver interface in `out` from GetRecordValue1 and GetRecordValue2 of CCfgEx, and returns
  // it; an empty handle means none. Connection worker.
  virtual std::shared_ptr<CNetObject>& CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t value1,
                                                    std::uint32_t value2) = 0;

 protected:
  ~CNet() = default;
};

}  // namespace fenlux
