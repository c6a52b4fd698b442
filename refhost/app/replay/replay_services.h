// The host of a replay: services that provide to the module what the recording host provided.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/mutex.h"
#include "host/utility.h"
#include "host/win_work.h"
#include "refhost/app/replay/played_port.h"
#include "refhost/app/replay/replay_facts.h"
#include "refhost/services/host_context.h"

namespace fenlux::refhost {

class Configuration;

// Any thread.
class ReplayHost {
 public:
  // `driver` makes the module's port clients.
  ReplayHost(const ReplayFacts& facts, std::shared_ptr<PlayedDriver> driver);
  ~ReplayHost();
  ReplayHost(const ReplayHost&) = delete;
  ReplayHost& operator=(const ReplayHost&) = delete;

  const std::shared_ptr<HostContext>& Context() const { return context; }
  // Puts new facts into effect, except for settings that the module has already read.
  void Replace(ReplayFacts facts);
  // The ids of the system's processes, by the kind that the module registers them as.
  void SetSystemProcesses(std::map<std::uint32_t, std::uint64_t> processes);

 private:
  class Utility;
  class Work;

  std::shared_ptr<Configuration> configuration;
  std::shared_ptr<Utility> utility;
  std::shared_ptr<Work> work;
  std::shared_ptr<HostContext> context;
};

}  // namespace fenlux::refhost
