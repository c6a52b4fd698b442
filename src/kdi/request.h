// Access to the fields of a record in a host buffer.
#pragma once

#include <stdexcept>

#include "host/buf.h"
#include "kdi/driver_records.h"

namespace fenlux {

// Returns the record at the start of a buffer, which must be large enough for it. Throws std::runtime_error if the
// buffer has no bytes at all.
template <class Record>
Record& FieldsOf(CBuf& buffer) {
  static_assert(alignof(Record) == 1);
  std::uint8_t* const data = buffer.GetData();
  if (data == nullptr) throw std::runtime_error("[wdi] empty buffer!");
  return *reinterpret_cast<Record*>(data);
}

}  // namespace fenlux
