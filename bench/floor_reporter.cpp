// Runs the benchmarks and prints the ratio of each operation to its floor at the end, from medians of interleaved runs.
#include <benchmark/benchmark.h>

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
      const auto allocations = run.counters.find("allocations");
      figures[name.substr(0, slash)][name.substr(slash + 1)] = {
          run.GetAdjustedCPUTime(), allocations == run.counters.end() ? 0.0 : allocations->second.value};
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [operation, variants] : figures) {
      const auto floor = variants.find("floor");
      if (floor == variants.end()) continue;
      for (const auto& [name, figure] : variants) {
        if (name == "floor") continue;
        std::printf("%s, %s: %.2f times the floor; heap allocations beyond the floor's: %.2f\n", operation.c_str(),
                    name.c_str(), figure.time / floor->second.time, figure.allocations - floor->second.allocations);
      }
    }
  }

 private:
  struct Figure {
    double time = 0;
    double allocations = 0;
  };
  std::map<std::string, std::map<std::string, Figure>> figures;  // by operation, then by variant
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
