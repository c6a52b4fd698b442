// The header compiles alone, as C++20 with all warnings of the project.
#include "fenlux/driver_protocol.h"

FenluxError FenluxHeaderAloneCxx(const void* bytes, size_t size, FenluxRequestView* view);

FenluxError FenluxHeaderAloneCxx(const void* bytes, size_t size, FenluxRequestView* view) {
  return FenluxParseRequest(bytes, size, view);
}
