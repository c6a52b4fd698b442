// Shared by the tests of driver_protocol.h: checks that count failures, and byte buffers.
//
// Each test program is compiled as C11 and, included by its own .cpp file, as C++20. Buffers have exactly the
// required size, so that the address sanitizer detects every access beyond it.
#ifndef FENLUX_DRIVER_TESTS_CHECK_H
#define FENLUX_DRIVER_TESTS_CHECK_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "fenlux/driver_protocol.h"

static int tests = 0;
static int failures = 0;
static const char* test = "";

#define CHECK(condition)                                                             \
  do {                                                                               \
    if (!(condition)) {                                                              \
      printf("%s:%d: %s: %s does not hold\n", __FILE__, __LINE__, test, #condition); \
      ++failures;                                                                    \
    }                                                                                \
  } while (0)

#define CHECK_EQUAL(expected, actual)                                                                             \
  do {                                                                                                            \
    const unsigned long long expectedValue = (unsigned long long)(expected);                                      \
    const unsigned long long actualValue = (unsigned long long)(actual);                                          \
    if (expectedValue != actualValue) {                                                                           \
      printf("%s:%d: %s: %s is %llu, not %llu\n", __FILE__, __LINE__, test, #actual, actualValue, expectedValue); \
      ++failures;                                                                                                 \
    }                                                                                                             \
  } while (0)

// `size` bytes of the value `filling`.
static inline uint8_t* Allocate(size_t size, int filling) {
  uint8_t* bytes = (uint8_t*)malloc(size != 0 ? size : 1);
  if (!bytes) abort();
  memset(bytes, filling, size);
  return bytes;
}

static inline FenluxUnits Units(const uint16_t* units, size_t count) {
  FenluxUnits text;
  text.units = units;
  text.count = count;
  return text;
}

static inline FenluxBytes Bytes(const uint8_t* data, size_t size) {
  FenluxBytes bytes;
  bytes.data = data;
  bytes.size = size;
  return bytes;
}

#define RUN(name) \
  do {            \
    test = #name; \
    name();       \
    ++tests;      \
  } while (0)

// Prints the counts and returns the exit code.
static inline int Report(void) {
  printf("%d tests, %d failures\n", tests, failures);
  return failures == 0 ? 0 : 1;
}

#endif  // FENLUX_DRIVER_TESTS_CHECK_H
