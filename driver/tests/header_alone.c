// The header compiles alone, as C11 with all warnings.
#include "fenlux/driver_protocol.h"
#include "fenlux/driver_protocol.h"  // and twice

FenluxError FenluxHeaderAloneC(const void* bytes, size_t size, FenluxRequestView* view);

FenluxError FenluxHeaderAloneC(const void* bytes, size_t size, FenluxRequestView* view) {
  return FenluxParseRequest(bytes, size, view);
}
