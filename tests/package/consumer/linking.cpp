// Links the module instead of loading it, and shows that its init is reached.
#include <cstdio>
#include <exception>

#include "core/fenlux.h"

int main() try {
  init(nullptr);
  return 1;
} catch (const std::exception& error) {
  std::puts(error.what());
  return 0;
}
