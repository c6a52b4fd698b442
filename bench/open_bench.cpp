// Measures the guarded open: the cost of opening a file with no monitor, with a minimal monitor, and with a host and
// the module. All are measured in turn in one run, so that their ratios hold on any machine.
//
// Needs Linux and root. Prints the median of each and their ratios; with --json, also writes them with their quartiles.
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/URI.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/bare_monitor.h"
#include "bench/bind_mount.h"
#include "bench/cores.h"
#include "bench/guarding_host.h"
#include "bench/opener.h"
#include "refhost/app/metrics/host_metrics.h"
#include "refhost/app/metrics/metrics_server.h"
#include "refhost/app/platform/process_end.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/reference_host.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/emulator/sources/kernel/event_paths.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::bench {
namespace {

using refhost::EventPaths;
using testing::TemporaryDirectory;

// One way to open a file.
struct Variant {
  const char* name;
  std::string file;
  std::vector<std::uint64_t> times;
  bool recorded = false;
  bool metrics = false;               // served, and read during every round
  const char* decisionLog = nullptr;  // value of the setting [judging] log for this variant; null: unchanged

  // In microseconds.
  double Quartile(std::size_t number) {
    const auto place = times.begin() + static_cast<std::ptrdiff_t>(times.size() * number / 4);
    std::nth_element(times.begin(), place, times.end());
    return static_cast<double>(*place) / 1000;
  }
  double Median() { return Quartile(2); }
};

void WriteJson(std::ostream& stream, std::vector<Variant>& variants) {
  nlohmann::ordered_json json = nlohmann::ordered_json::array();
  for (Variant& variant : variants) {
    json.push_back({{"name", variant.name},
                    {"opens", variant.times.size()},
                    {"median_us", variant.Median()},
                    {"quartiles_us", {variant.Quartile(1), variant.Quartile(3)}}});
  }
  stream << json.dump(2) << '\n' << std::flush;
}

// Where the opener and everything else run; not set: where the caller does.
struct Cores {
  std::optional<int> monitors;
  std::optional<int> opener;
};

// Looks up the path like a monitor that trusts what /proc shows.
void ReadLink(int file) {
  char path[4096];
  [[maybe_unused]] const ssize_t length = ::readlink(fmt::format("/proc/self/fd/{}", file).c_str(), path, sizeof(path));
}

std::unique_ptr<EventPaths> PathsOf(const std::string& directory) {
  const refhost::FoundDirectory found = refhost::FindDirectory(directory);
  if (found.directory == nullptr) throw std::runtime_error(directory + ": " + found.refusal);
  auto paths = std::make_unique<EventPaths>();
  paths->Replace({{found.directory->identity, {found.directory->path, found.directory}}},
                 std::chrono::steady_clock::now());
  return paths;
}

// The pause after a reload, in which the module applies its policy again.
constexpr std::chrono::milliseconds kPolicyPause{50};

// The configuration of a host that judges every open in the directory by rules, one of which names a program if
// `programs` is set.
boost::filesystem::path WriteConfig(const TemporaryDirectory& files, const std::string& directory,
                                    std::uint32_t readers, bool programs, const char* decisionLog) {
  const std::string rule = "[[judging.rules]]\npath = '*.secret'\ndecision = 3\n";
  const std::string programRule = "[[judging.rules]]\npath = '*.txt'\nprocess = 'no-such-program'\ndecision = 3\n";
  return files.Write("host.toml", "[emulator]\nsource = 'fanotify'\n[emulator.kernel]\ndirectories = ['" + directory +
                                      "']\nthreads = " + std::to_string(readers) +
                                      "\n[log]\nconsole = 'problem'\n[judging]\nlog = '" + decisionLog + "'\n" + rule +
                                      (programs ? programRule : std::string()));
}

// Serves the host's metrics over HTTP and reads them on another thread, far more often than Prometheus does.
class ReadMetrics {
 public:
  explicit ReadMetrics(const refhost::ReferenceHost& host) {
    server.Start([&host] { return refhost::MetricsText(host.Status()); });
    reading = std::async(std::launch::async, [url = server.Url()] { return TextAt(url); });
  }
  // Waits for the reader. Throws std::runtime_error if there were no metrics.
  void Finish() {
    if (reading.get().find("fenlux_notifications_total") == std::string::npos) {
      throw std::runtime_error("the host serves no metrics");
    }
  }

 private:
  static std::string TextAt(const std::string& url) {
    const Poco::URI place(url);
    Poco::Net::HTTPClientSession session(place.getHost(), place.getPort());
    Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, place.getPath());
    session.sendRequest(request);
    Poco::Net::HTTPResponse response;
    std::istream& body = session.receiveResponse(response);
    return {std::istreambuf_iterator<char>(body), std::istreambuf_iterator<char>()};
  }

  refhost::MetricsServer server{{"127.0.0.1", 0}};
  std::future<std::string> reading;
};

// The times of one round of opens, in nanoseconds. Throws if a recording of them is not complete.
std::vector<std::uint64_t> Opens(const Variant& variant, Opener& opener, refhost::ReferenceHost& host,
                                 const boost::filesystem::path& capture) {
  if (variant.recorded) host.Recording().Start(capture);
  std::optional<ReadMetrics> metrics;
  if (variant.metrics) metrics.emplace(host);
  std::vector<std::uint64_t> times = opener.Open(variant.file);
  if (metrics) metrics->Finish();
  if (variant.recorded) {
    host.Recording().Stop();
    const auto status = host.Recording().Status();
    if (status.dropped != 0 || status.written != status.messages)
      throw std::runtime_error("the recording has lost messages");
  }
  return times;
}

// Ends the process: neither the monitors' threads nor the module's can be joined.
[[noreturn]] void Run(std::size_t rounds, std::string_view mode, const Cores& cores, std::uint32_t readers,
                      const std::string& json) {
  std::ofstream jsonFile;
  if (!json.empty()) {
    jsonFile.open(json);
    if (!jsonFile) throw std::runtime_error(fmt::format("{} cannot be written: {}", json, refhost::LastErrorText()));
  }
  KeepMountsPrivate();
  if (cores.opener) RunOn({*cores.opener});
  Opener opener;  // inherits the core
  if (cores.monitors) RunOn({*cores.monitors});
  const TemporaryDirectory files;
  const auto directory = [&files](const char* name) { return files.MakeDirectory(name).string(); };
  std::vector<Variant> variants;
  const auto add = [&](const char* name, const char* folder) {
    variants.push_back({.name = name, .file = files.MakeFile(std::string(folder) + "/file.txt").string(), .times = {}});
  };

  directory("none");
  add("no monitor", "none");
  const BareMonitor bare(directory("bare"), {});
  add("bare monitor", "bare");
  const BareMonitor linked(directory("link"), &ReadLink);
  add("bare monitor, path as /proc shows it", "link");
  const std::string checkedDirectory = directory("checked");
  const std::unique_ptr<EventPaths> paths = PathsOf(checkedDirectory);
  const BareMonitor checked(checkedDirectory, [&paths](int file) { static_cast<void>(paths->PathOf(file)); });
  add("bare monitor, path established", "checked");

  const std::string guarded = directory("guarded");
  add("host with the module", "guarded");
  const bool programs = mode == "programs";
  const auto host = HostOf(WriteConfig(files, guarded, readers, programs, "refused"));
  AwaitJudging(*host, opener, variants.back().file);
  Variant further = variants.back();
  further.recorded = mode == "recorded";
  further.metrics = mode == "observed";
  if (further.recorded) further.name = "host with the module, recorded";
  if (mode == "logged" || mode == "observed") {
    further.name = further.metrics ? "the same, with decision log and metrics" : "the same, with the decision log";
    further.decisionLog = "refused";
    variants.back().decisionLog = "off";
  }
  if (further.recorded || further.decisionLog != nullptr) variants.push_back(further);
  const auto prepare = [&](const Variant& variant) {
    if (variant.decisionLog == nullptr) return;
    WriteConfig(files, guarded, readers, programs, variant.decisionLog);
    if (!host->Reload().errors.empty()) throw std::runtime_error("the host does not reload its configuration");
    std::this_thread::sleep_for(kPolicyPause);
  };
  const boost::filesystem::path capture = files.Path() / "port.pcapng";
  // The file of "path established", opened through another mount: its path is looked up by its handle.
  Variant mounted = variants[3];
  mounted.name = "the path established, other mount";
  const std::string view = directory("mounted");
  std::optional<BindMount> otherMount(std::in_place, checkedDirectory, view);
  mounted.file = view + "/file.txt";
  variants.push_back(mounted);

  for (std::size_t round = 0; round < rounds; ++round) {
    for (Variant& variant : variants) {
      prepare(variant);
      for (const std::uint64_t time : Opens(variant, opener, *host, capture)) {
        if (time == 0) throw std::runtime_error(std::string(variant.name) + ": an open failed");
        variant.times.push_back(time);
      }
    }
  }
  if (!host->Facts().totals.AddsUp()) throw std::runtime_error("the host's totals do not add up");

  const double none = variants[0].Median();
  const double floor = variants[1].Median();
  fmt::print("{:40} {:>9} {:>12} {:>14}\n", "median of an open", "us", "no monitor", "bare monitor");
  for (Variant& variant : variants) {
    const double median = variant.Median();
    fmt::print("{:40} {:9.2f} {:11.2f}x {:13.2f}x\n", variant.name, median, median / none, median / floor);
  }
  const double established = variants[3].Median() - floor;
  fmt::print("establishing the path costs {:.2f} us, {:.3f} of a bare monitor's open\n", established,
             established / floor);
  const double byHandle = variants.back().Median() - floor;
  fmt::print("through another mount it costs {:.2f} us, {:.3f} of a bare monitor's open\n", byHandle, byHandle / floor);
  if (variants.size() > 6) {
    const double factor = variants[5].Median() / variants[4].Median();
    const std::size_t opens = variants[5].times.size();
    if (mode == "recorded")
      fmt::print("recording costs a factor of {:.3f} in {} opens, without a lost message\n", factor, opens);
    if (mode == "logged") fmt::print("the decision log costs a factor of {:.3f} in {} opens\n", factor, opens);
    if (mode == "observed") fmt::print("decision log and metrics cost a factor of {:.3f} in {} opens\n", factor, opens);
  }
  if (!json.empty()) WriteJson(jsonFile, variants);
  host->Stop();
  otherMount.reset();
  boost::filesystem::remove_all(files.Path());
  std::fflush(nullptr);
  if (!jsonFile) {
    fmt::print(stderr, "fenlux_open_bench: {} could not be written completely\n", json);
    std::fflush(nullptr);
    refhost::EndProcess(1);
  }
  refhost::EndProcess(0);
}

}  // namespace
}  // namespace fenlux::bench

int main(int count, char** arguments) {
  CLI::App line("What opening a file costs with no monitor, bare monitors, and a host with the module. Needs root.");
  std::size_t rounds = 40;
  std::string mode;
  line.add_option("rounds", rounds, "rounds of 500 opens of each kind (40)")->check(CLI::PositiveNumber);
  line.add_option("mode", mode,
                  "programs: a rule of the host names a program, so that every event's program is established, too\n"
                  "recorded: also while the host records its port\n"
                  "logged: without the decision log, and with the one of refusals, which is the default\n"
                  "observed: without decision log and metrics, and with both; the metrics are read in every round")
      ->check(CLI::IsMember({"programs", "recorded", "logged", "observed"}));
  fenlux::bench::Cores cores;
  line.add_option("--core", cores.monitors, "the core of the monitors and the host")->check(CLI::NonNegativeNumber);
  line.add_option("--opener-core", cores.opener, "the core of the process that opens the files")
      ->check(CLI::NonNegativeNumber);
  std::uint32_t readers = fenlux::refhost::KernelEventSettings{}.threads;
  line.add_option("--readers", readers, fmt::format("threads of the host that read events ({})", readers))
      ->check(CLI::PositiveNumber);
  std::string json;
  line.add_option("--json", json, "also write medians and quartiles to this file");
  CLI11_PARSE(line, count, arguments);
  try {
    fenlux::bench::Run(rounds, mode, cores, readers, json);
  } catch (const std::exception& error) {
    fmt::print(stderr, "fenlux_open_bench: {}\n", error.what());
  }
  std::fflush(nullptr);
  fenlux::refhost::EndProcess(1);
}
