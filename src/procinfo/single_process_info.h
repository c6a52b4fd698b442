// What the module knows about one process.
#pragma once

#include <cstdint>
#include <string>

#include "common/thread_group.h"
#include "host/win_work.h"

namespace fenlux {

// Never changes once it is in the cache: a refresh replaces it, so a reader's handle stays a consistent snapshot.
// Aligned, so that delivery threads that copy handles of different processes do not write to the same cache line.
struct alignas(kCacheLine) CSingleProcessInfo {
  std::uint32_t sessionId = kUnknownProcess;  // CWinWork::QueryProcessValue
  std::string narrowInfo;
  std::wstring wideInfo;
};

}  // namespace fenlux
