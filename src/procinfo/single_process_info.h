// What the module knows of one process.
#pragma once

#include <cstdint>
#include <string>

#include "host/win_work.h"

namespace fenlux {

// Never changed once it stands in the cache: a refresh puts a new one in its place, so that a reader's handle stays a
// consistent snapshot.
struct CSingleProcessInfo {
  std::uint32_t sessionId = kUnknownProcess;  // CWinWork::QueryProcessValue
  std::string narrowInfo;
  std::wstring wideInfo;
};

}  // namespace fenlux
