// Runs the benchmarks and prints ratios at the end, from medians of interleaved runs: of each operation to its floor,
// of the throughput on several threads to that on one, and of the 99th percentile of a time to that of its floor.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

class FloorReporter final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median") continue;
      const std::string& name = run.run_name.function_name;
      const auto slash = name.rfind('/');
      if (const auto items = run.counters.find("items_per_second"); items != run.counters.end()) {
        throughputs[name][run.threads] = items->second.value;
      }
      if (slash == std::string::npos) continue;  // has no floor
      const auto counter = [&run](const char* counterName) {
        const auto found = run.counters.find(counterName);
        return found == run.counters.end() ? 0.0 : found->second.value;
      };
      figures[name.substr(0, slash)][name.substr(slash + 1)] = {run.GetAdjustedCPUTime(), counter("allocations"),
                                                                counter("p99")};
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [operation, variants] : figures) {
      const auto floor = variants.find("floor");
      if (floor == variants.end()) continue;
      for (const auto& [name, figure] : variants) {
        if (name == "floor") continue;
        if (floor->second.p99 != 0) {
          std::printf("%s, %s: the 99th percentile is %.2f times the floor's\n", operation.c_str(), name.c_str(),
                      figure.p99 / floor->second.p99);
          continue;
        }
        std::printf("%s, %s: %.2f times the floor; heap allocations beyond the floor's: %.2f\n", operation.c_str(),
                    name.c_str(), figure.time / floor->second.time, figure.allocations - floor->second.allocations);
      }
    }
    for (const auto& [operation, byThreads] : throughputs) {
      const auto one = byThreads.find(1);
      if (one == byThreads.end()) continue;
      for (const auto& [threads, throughput] : byThreads) {
        if (threads == 1) continue;
        std::printf("%s: %lld threads have %.2f times the throughput of one\n", operation.c_str(),
                    static_cast<long long>(threads), throughput / one->second);
      }
    }
  }

 private:
  struct Figure {
    double time = 0;
    double allocations = 0;
    double p99 = 0;  // of benchmarks that measure it; 0 for the others
  };
  std::map<std::string, std::map<std::string, Figure>> figures;       // by operation, then by variant
  std::map<std::string, std::map<std::int64_t, double>> throughputs;  // by operation, then by the number of threads
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + argc);
  // Defaults; the command line comes later and overrides them.
  char repetitions[] = "--benchmark_repetitions=11";
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  char aggregates[] = "--benchmark_report_aggregates_only=true";
  char time[] = "--benchmark_min_time=0.05";
  arguments.insert(arguments.begin() + 1, {repetitions, interleaving, aggregates, time});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  FloorReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
