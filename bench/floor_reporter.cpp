// Runs the benchmarks and closes with what they are for: each operation's ratio to its floor, from medians of runs that
// took turns.
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
      Figures& figures = figures_[name.substr(0, slash)];
      const auto allocations = run.counters.find("allocations");
      (name.substr(slash + 1) == "floor" ? figures.floor : figures.module) = {
          run.GetAdjustedCPUTime(), allocations == run.counters.end() ? 0.0 : allocations->second.value};
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [name, figures] : figures_) {
      if (figures.floor.time == 0 || figures.module.time == 0) continue;
      std::printf("%s: %.2f times its floor; heap allocations of the module itself: %.2f\n", name.c_str(),
                  figures.module.time / figures.floor.time, figures.module.allocations - figures.floor.allocations);
    }
  }

 private:
  struct Figure {
    double time = 0;
    double allocations = 0;
  };
  struct Figures {
    Figure floor;
    Figure module;
  };
  std::map<std::string, Figures> figures_;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + argc);
  // Defaults; what stands on the command line comes later and wins.
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
