// Records in host buffers: the one way from a CBuf to a layout's fields.
#pragma once

#include <stdexcept>

#include "host/buf.h"
#include "kdi/driver_records.h"

namespace fenlux {

// The fields of a record at the start of a buffer. The caller knows that the buffer is large enough; throws
// std::runtime_error where it has no bytes at all.
template <class Record>
Record& FieldsOf(CBuf& buffer) {
  static_assert(alignof(Record) == 1);
  std::uint8_t* const data = buffer.GetData();
  if (data == nullptr) throw std::runtime_error("[wdi] empty buffer!");
  return *reinterpret_cast<Record*>(data);
}

}  // namespace fenlux
