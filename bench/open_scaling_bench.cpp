// Measures how many guarded opens two openers and two readers on two cores make, compared with one of each on one core:
// for a minimal monitor, and for a host and the module. All are measured in turn in one run.
//
// Needs Linux, root and two cores. With --json, also writes the figures.
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/bare_monitor.h"
#include "bench/cores.h"
#include "bench/guarding_host.h"
#include "bench/opener.h"
#include "refhost/app/platform/process_end.h"
#include "refhost/app/reference_host.h"
#include "refhost/base/platform/descriptor_posix.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::bench {
namespace {

using testing::TemporaryDirectory;

// As many readers as openers; opener i opens file i.
struct Variant {
  std::string name;
  std::string directory;
  std::vector<int> cores;  // of the readers
  std::vector<std::string> files;
  std::vector<double> rates;  // opens in a millisecond, of all openers together

  bool IsHost() const { return name.starts_with("host"); }

  double Quartile(std::size_t number) {
    std::ranges::sort(rates);
    return rates[rates.size() * number / 4];
  }
};

// Opens the variant's files with one opener for each, at the same time.
double Rate(const Variant& variant, std::vector<std::unique_ptr<Opener>>& openers) {
  std::size_t opens = 0;
  const auto begin = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i < variant.files.size(); ++i) openers[i]->Begin(variant.files[i]);
  for (std::size_t i = 0; i < variant.files.size(); ++i) {
    const std::vector<std::uint64_t> times = openers[i]->End();
    if (std::ranges::count(times, 0u) > 0) throw std::runtime_error(variant.name + ": an open failed");
    opens += times.size();
  }
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
  return static_cast<double>(opens) / time.count();
}

// A host in a process of its own, because a process has only one. Create it before any thread is started.
class HostProcess {
 public:
  // The host judges the opens in `directory` with this many readers, on these cores.
  HostProcess(const TemporaryDirectory& files, const std::string& directory, const std::vector<int>& cores) {
    const auto file =
        files.Write(fmt::format("host{}.toml", cores.size()),
                    fmt::format("[emulator]\nsource = 'fanotify'\n[emulator.kernel]\ndirectories = ['{}']\n"
                                "threads = {}\n[log]\nconsole = 'problem'\n[[judging.rules]]\n"
                                "path = '*.secret'\ndecision = 3\n",
                                directory, cores.size()));
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) throw std::runtime_error("no socket pair");
    process = ::fork();
    if (process < 0) throw std::runtime_error("cannot create a process");
    channel = refhost::Descriptor(pair[process == 0 ? 1 : 0]);
    ::close(pair[process == 0 ? 0 : 1]);
    if (process == 0) Serve(file, cores);
  }
  ~HostProcess() {
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  // Opens the file until the host has judged it.
  void AwaitJudging(Opener& opener, const std::string& file) {
    pollfd judging{channel.Get(), POLLIN, 0};
    for (int i = 0; i < 1000; ++i) {
      opener.Open(file);
      if (::poll(&judging, 1, 10) == 1) return Expect(kJudging);
    }
    throw std::runtime_error("the host judges nothing");
  }
  // Stops the host and checks its totals.
  void Stop() {
    ::shutdown(channel.Get(), SHUT_WR);
    Expect(kAddsUp);
  }

 private:
  static constexpr char kJudging = 'j';
  static constexpr char kAddsUp = 'a';

  void Expect(char answer) const {
    char byte = 0;
    if (::read(channel.Get(), &byte, 1) != 1 || byte != answer) throw std::runtime_error("the host has failed");
  }
  void Say(char answer) const { [[maybe_unused]] const ssize_t written = ::write(channel.Get(), &answer, 1); }

  [[noreturn]] void Serve(const boost::filesystem::path& file, const std::vector<int>& cores) {
    try {
      RunOn(cores);
      const auto host = HostOf(file);
      while (host->Facts().totals.answered == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
      Say(kJudging);
      char none = 0;
      [[maybe_unused]] const ssize_t end = ::read(channel.Get(), &none, 1);
      host->Stop();
      if (host->Facts().totals.AddsUp()) Say(kAddsUp);
    } catch (const std::exception& error) {
      fmt::print(stderr, "fenlux_open_scaling_bench: {}\n", error.what());
    }
    std::fflush(nullptr);
    refhost::EndProcess(0);
  }

  pid_t process = -1;
  refhost::Descriptor channel;
};

void Print(std::vector<Variant>& variants, const std::string& json) {
  fmt::print("{:32} {:>12} {:>10}\n", "opens of all openers", "in a ms", "one reader");
  nlohmann::ordered_json figures = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < variants.size(); ++i) {
    Variant& variant = variants[i];
    fmt::print("{:32} {:12.1f} {:9.2f}x\n", variant.name, variant.Quartile(2),
               variant.Quartile(2) / variants[i - i % 2].Quartile(2));
    figures.push_back({{"name", variant.name},
                       {"per_ms", variant.Quartile(2)},
                       {"quartiles_per_ms", {variant.Quartile(1), variant.Quartile(3)}}});
  }
  if (json.empty()) return;
  std::ofstream file(json);
  file << figures.dump(2) << '\n' << std::flush;
  if (!file) throw std::runtime_error(json + " could not be written completely");
}

// Ends the process, because the monitors' threads cannot be joined.
[[noreturn]] void Run(std::size_t rounds, const std::vector<int>& cores, const std::string& json) {
  const TemporaryDirectory files;
  std::vector<Variant> variants;
  for (const std::string kind : {"bare monitor", "host with the module"}) {
    for (std::size_t count = 1; count <= cores.size(); ++count) {
      Variant variant;
      variant.name = kind + (count == 1 ? ", one reader" : ", two readers");
      const std::string folder = fmt::format("{}{}", kind.front(), count);
      variant.directory = files.MakeDirectory(folder).string();
      variant.cores = {cores.begin(), cores.begin() + static_cast<std::ptrdiff_t>(count)};
      for (std::size_t i = 0; i < count; ++i) {
        variant.files.push_back(files.MakeFile(fmt::format("{}/file{}.txt", folder, i)).string());
      }
      variants.push_back(std::move(variant));
    }
  }

  // The processes come first, then the threads.
  std::vector<std::unique_ptr<Opener>> openers;
  for (const int core : cores) {
    RunOn({core});
    openers.push_back(std::make_unique<Opener>());  // inherits the core
  }
  RunOn(cores);
  std::vector<std::unique_ptr<HostProcess>> hosts;
  for (const Variant& variant : variants) {
    if (!variant.IsHost()) continue;
    hosts.push_back(std::make_unique<HostProcess>(files, variant.directory, variant.cores));
    hosts.back()->AwaitJudging(*openers.front(), variant.files.front());
  }
  // Never destroyed, because their threads use them until the process ends, even if this function throws.
  auto& monitors = *new std::vector<std::unique_ptr<BareMonitor>>;
  for (const Variant& variant : variants) {
    if (variant.IsHost()) continue;
    RunOn(variant.cores);
    const auto readers = static_cast<unsigned>(variant.cores.size());
    monitors.push_back(std::make_unique<BareMonitor>(variant.directory, BareMonitor::Look(), readers));
  }
  RunOn(cores);

  for (std::size_t round = 0; round < rounds; ++round) {
    for (Variant& variant : variants) variant.rates.push_back(Rate(variant, openers));
  }
  for (const auto& host : hosts) host->Stop();
  Print(variants, json);
  hosts.clear();
  openers.clear();
  boost::filesystem::remove_all(files.Path());
  std::fflush(nullptr);
  refhost::EndProcess(0);
}

}  // namespace
}  // namespace fenlux::bench

int main(int count, char** arguments) {
  CLI::App line("How many guarded opens two openers and two readers make, compared with one of each. Needs root.");
  std::size_t rounds = 40;
  line.add_option("rounds", rounds, "rounds of 500 opens of each opener (40)")->check(CLI::PositiveNumber);
  std::vector<int> cores{0, 1};
  line.add_option("--cores", cores, "the two cores (0 1)")->expected(2)->check(CLI::NonNegativeNumber);
  std::string json;
  line.add_option("--json", json, "also write medians and quartiles to this file");
  CLI11_PARSE(line, count, arguments);
  try {
    fenlux::bench::Run(rounds, cores, json);
  } catch (const std::exception& error) {
    fmt::print(stderr, "fenlux_open_scaling_bench: {}\n", error.what());
  }
  std::fflush(nullptr);
  fenlux::refhost::EndProcess(1);
}
