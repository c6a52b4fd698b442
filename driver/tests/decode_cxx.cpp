// The same program as C++20.
#include "driver/examples/decode.c"
