// The host's network side: one object per driver interface, held for the interface's life.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CNetObject {
 public:
  // Lets go of what the object stands for. Called at most once, with 0; what is written into `out` is dropped. Host
  // thread or connection worker.
  virtual std::shared_ptr<CNetObject>& Release(std::shared_ptr<CNetObject>& out, std::uint32_t reserved) = 0;

 protected:
  ~CNetObject() = default;
};

class CNet {
 public:
  // Makes the object of one driver interface from the two record values of CCfgEx. Connection worker.
  virtual std::shared_ptr<CNetObject>& CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t value1,
                                                    std::uint32_t value2) = 0;

 protected:
  ~CNet() = default;
};

}  // namespace fenlux
