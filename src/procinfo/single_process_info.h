// What the module knows of one process.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux {

// Never changed once it stands in the cache: a refresh puts a new one in its place, so that a reader's handle stays a
// consistent snapshot.
struct CSingleProcessInfo {
  std::uint32_t sessionId = 0xFFFFFFFF;  // the process value of CWinWork
  std::string narrowInfo;
  std::wstring wideInfo;
};

}  // namespace fenlux
