// The same test as C++20.
#include "driver/tests/notification_test.c"
