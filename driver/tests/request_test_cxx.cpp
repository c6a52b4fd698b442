// The same test as C++20.
#include "driver/tests/request_test.c"
