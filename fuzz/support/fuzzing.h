// Helpers for every fuzzer: the check that reports a finding, and a reader that splits an input into values.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fenlux::testing {

// Ends the process with a finding unless the condition holds. `what` says what should have held.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "violated: %s\n", what);
  std::abort();
}

// Reads an input from its start. Numbers are little-endian; beyond the end everything is 0 or empty.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* bytes, std::size_t size) : next(bytes), left(size) {}

  bool Empty() const { return left == 0; }
  std::uint8_t U8() { return static_cast<std::uint8_t>(Number(1)); }
  std::uint16_t U16() { return static_cast<std::uint16_t>(Number(2)); }
  std::uint32_t U32() { return static_cast<std::uint32_t>(Number(4)); }
  std::uint64_t U64() { return Number(8); }
  // As many bytes as there are, at most `count`.
  std::vector<std::uint8_t> Take(std::size_t count) {
    const std::string_view text = TakeText(count);
    return {text.begin(), text.end()};
  }
  std::string_view TakeText(std::size_t count) {
    count = std::min(count, left);
    const std::string_view text(reinterpret_cast<const char*>(next), count);
    next += count;
    left -= count;
    return text;
  }
  std::vector<std::uint8_t> Rest() { return Take(left); }
  std::string_view RestText() { return TakeText(left); }

 private:
  std::uint64_t Number(std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes && left > 0; ++i, ++next, --left) value |= std::uint64_t{*next} << (8 * i);
    return value;
  }

  const std::uint8_t* next;
  std::size_t left;
};

// Memory of exactly the bytes' size, so that the address sanitizer sees every access beyond them.
class ExactBytes {
 public:
  explicit ExactBytes(const std::vector<std::uint8_t>& bytes)
      : data(new std::uint8_t[bytes.size()]), size(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), data.get());
  }
  const std::uint8_t* Data() const { return data.get(); }
  std::size_t Size() const { return size; }

 private:
  std::unique_ptr<std::uint8_t[]> data;
  std::size_t size;
};

}  // namespace fenlux::testing
