// A reference host in this process that judges the opens in a directory.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "bench/opener.h"
#include "refhost/app/reference_host.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::bench {

// Starts a host with the configuration in this file. Throws std::runtime_error if it has errors.
inline std::unique_ptr<refhost::ReferenceHost> HostOf(const boost::filesystem::path& file) {
  refhost::ConfigErrors errors;
  refhost::HostConfig config = refhost::LoadHostConfig(file, errors);
  if (!errors.Empty()) throw std::runtime_error(errors.Text());
  auto host = std::make_unique<refhost::ReferenceHost>(file, std::move(config));
  host->Start(FENLUX_MODULE_FILE);
  return host;
}

// Waits until the host judges opens of this file.
inline void AwaitJudging(const refhost::ReferenceHost& host, Opener& opener, const std::string& file) {
  for (int i = 0; i < 1000; ++i) {
    opener.Open(file);
    if (host.Facts().totals.answered > 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  throw std::runtime_error("the host judges nothing");
}

}  // namespace fenlux::bench
