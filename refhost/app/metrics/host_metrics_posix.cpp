// Renders the host's own counts at each scrape. The library keeps no state, and threads that deliver notifications
// never call it.
#include <prometheus/collectable.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "fenlux/version.h"
#include "refhost/app/metrics/host_metrics.h"
#include "refhost/app/status/health.h"

namespace fenlux::refhost {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;
using Families = std::vector<MetricFamily>;

double Number(std::uint64_t value) { return static_cast<double>(value); }

double Seconds(std::chrono::system_clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

// Bounds of the latency metric: powers of two, which are edges of LatencyCounts.
constexpr unsigned kMinBoundExponent = 12;  // 4.1 microseconds
constexpr unsigned kMaxBoundExponent = 30;  // 1.07 seconds

class HostMetrics final : public prometheus::Collectable {
 public:
  explicit HostMetrics(const StatusFacts& statusFacts) : facts(statusFacts), summary(statusFacts.summary) {}

  Families Collect() const override {
    Families families;
    AddHost(families);
    AddConnection(families);
    AddNotifications(families);
    AddLatency(families);
    AddQueues(families);
    return families;
  }

 private:
  static MetricFamily& Family(Families& families, const char* name, const char* help, MetricType type) {
    MetricFamily family;
    family.name = name;
    family.help = help;
    family.type = type;
    families.push_back(std::move(family));
    return families.back();
  }

  static void Add(MetricFamily& family, double value, Labels labels = {}) {
    ClientMetric metric;
    metric.label = std::move(labels);
    (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
    family.metric.push_back(std::move(metric));
  }

  static void Gauge(Families& families, const char* name, const char* help, double value) {
    Add(Family(families, name, help, MetricType::Gauge), value);
  }
  static void Counter(Families& families, const char* name, const char* help, std::uint64_t value) {
    Add(Family(families, name, help, MetricType::Counter), Number(value));
  }

  void AddHost(Families& families) const {
    Add(Family(families, "fenlux_build_info", "Always 1; the labels say which versions run.", MetricType::Gauge), 1,
        {{"version", std::string(kPackageVersionText)},
         {"module_version", std::to_string(facts.moduleVersion)},
         {"interface_version", std::to_string(kInterfaceVersion)}});
    Gauge(families, "fenlux_start_time_seconds", "When the host started, in seconds since 1970.",
          Seconds(facts.started));
    Gauge(families, "fenlux_healthy", "1 if `ctl health` says healthy, 0 if it says degraded.",
          HealthProblems(facts).empty() ? 1 : 0);
    Counter(families, "fenlux_reloads_total", "Reloads of the configuration that took effect.", facts.reloads);
    Counter(families, "fenlux_reloads_refused_total", "Reloads that errors in the file prevented.",
            facts.refusedReloads);
    Gauge(families, "fenlux_configuration_loaded_time_seconds",
          "When the settings in force were read, in seconds since 1970.", Seconds(facts.configurationLoaded));
    Gauge(families, "fenlux_process_cache_entries", "Processes in the module's cache after its last refresh.",
          Number(facts.cachedProcesses));
  }

  void AddConnection(Families& families) const {
    const EmulatorState& driver = summary.driver;
    Gauge(families, "fenlux_connected", "1 while the module has a connection to the driver that it can use.",
          facts.ready ? 1 : 0);
    Counter(families, "fenlux_connections_total", "Connections to the driver that were opened.", driver.connects);
    Counter(families, "fenlux_connections_refused_total", "Connections that the driver refused.",
            driver.refusedConnects);
    Counter(families, "fenlux_protocol_violations_total", "Violations of the driver's protocol.",
            driver.protocolViolations);
    const auto missing = static_cast<std::uint64_t>(std::ranges::count_if(
        facts.policy, [](const PolicyDirectory& directory) { return !directory.missing.empty(); }));
    MetricFamily& policy =
        Family(families, "fenlux_policy_directories", "Directories of the policy.", MetricType::Gauge);
    Add(policy, Number(facts.policy.size() - missing), {{"state", "watched"}});
    Add(policy, Number(missing), {{"state", "not watched"}});
  }

  void AddNotifications(Families& families) const {
    const EmulatorTotals& totals = summary.totals;
    MetricFamily& delivered = Family(families, "fenlux_notifications_total",
                                     "Notifications that were passed to the module.", MetricType::Counter);
    for (const auto& [code, count] : totals.byCode) Add(delivered, Number(count), {{"code", std::to_string(code)}});
    MetricFamily& answered =
        Family(families, "fenlux_verdicts_total", "Notifications that were answered in time.", MetricType::Counter);
    for (const auto& [code, verdicts] : totals.byCodeAndVerdict) {
      for (const auto& [verdict, count] : verdicts) {
        Add(answered, Number(count), {{"code", std::to_string(code)}, {"verdict", std::to_string(verdict)}});
      }
    }
    AddDecisions(families);
    MetricFamily& unjudged =
        Family(families, "fenlux_unjudged_total", "Operations without a judgement by the module.", MetricType::Counter);
    for (std::size_t index = 0; index < kUnjudgedCauses; ++index) {
      Add(unjudged, Number(totals.unjudged[index]),
          {{"cause", std::string(UnjudgedCauseName(static_cast<UnjudgedCause>(index)))}});
    }
    Counter(families, "fenlux_unjudged_refused_total", "Of these, operations that were refused.",
            totals.kernelRefusedUnjudged);
    MetricFamily& operations = Family(families, "fenlux_kernel_operations_total",
                                      "Operations that the kernel asked about.", MetricType::Counter);
    Add(operations, Number(totals.kernelAllowed), {{"outcome", "allowed"}});
    Add(operations, Number(totals.kernelRefused), {{"outcome", "refused"}});
    Gauge(families, "fenlux_notifications_in_flight", "Notifications that the module works on.",
          Number(totals.inFlight));
  }

  void AddDecisions(Families& families) const {
    MetricFamily& family = Family(families, "fenlux_decisions_total",
                                  "Decisions by rule, since the rules came into force.", MetricType::Counter);
    if (summary.rules == nullptr) return;
    const RulesInForce& current = *summary.rules;
    const auto add = [&](const Rule* rule, const std::string& name, std::size_t number, Decision decision) {
      Add(family, Number(current.HitsOf(rule).Hits()),
          {{"rule", name},
           {"number", std::to_string(number)},
           {"decision", std::to_string(static_cast<std::uint32_t>(decision))}});
    };
    for (const Rule& rule : current.rules.ordered) add(&rule, rule.name, rule.number, rule.decision);
    add(nullptr, "default", 0, current.rules.defaultDecision);
  }

  void AddLatency(Families& families) const {
    MetricFamily& family =
        Family(families, "fenlux_latency_seconds",
               "Time from the delivery of a notification until its reply was received.", MetricType::Histogram);
    ClientMetric metric;
    ClientMetric::Histogram& histogram = metric.histogram;
    std::uint64_t count = 0;
    std::size_t bucket = 0;
    for (unsigned exponent = kMinBoundExponent; exponent <= kMaxBoundExponent; ++exponent) {
      const std::chrono::nanoseconds bound(std::int64_t{1} << exponent);
      for (; LatencyCounts::UpperEdge(bucket) < bound; ++bucket) count += facts.latencies.buckets[bucket];
      ClientMetric::Bucket row;
      row.cumulative_count = static_cast<decltype(row.cumulative_count)>(count);
      row.upper_bound = std::chrono::duration<double>(bound).count();
      histogram.bucket.push_back(row);
    }
    histogram.sample_count = static_cast<decltype(histogram.sample_count)>(facts.latencies.Count());
    histogram.sample_sum = Number(facts.latencies.sumNanoseconds) * 1e-9;
    family.metric.push_back(std::move(metric));
  }

  void AddQueues(Families& families) const {
    const LogTotals& log = summary.log;
    Gauge(families, "fenlux_log_queue_lines", "Log lines that wait to be written.", Number(log.waiting));
    Gauge(families, "fenlux_log_queue_capacity_lines", "Log lines that may wait.", Number(facts.logQueueLines));
    MetricFamily& lines =
        Family(families, "fenlux_log_lines_total", "Log lines of the module and the host.", MetricType::Counter);
    for (std::size_t level = 0; level < kSeverities; ++level) {
      Add(lines, Number(log.bySeverity[level]),
          {{"severity", std::string(SeverityName(static_cast<Severity>(level)))}});
    }
    Counter(families, "fenlux_log_lines_lost_total", "Log lines that were not written.", log.dropped);
    Counter(families, "fenlux_recording_messages_lost_total", "Messages that the recording left out.",
            summary.recording.dropped);
  }

  const StatusFacts& facts;
  const SummaryFacts& summary;
};

}  // namespace

std::string MetricsText(const StatusFacts& facts) {
  return prometheus::TextSerializer().Serialize(HostMetrics(facts).Collect());
}

}  // namespace fenlux::refhost
