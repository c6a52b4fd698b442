// Collects findings. A mistake that a driver repeats a million times is one finding.
#include "refhost/app/drive/drive_findings.h"

#include <algorithm>
#include <utility>

namespace fenlux::refhost {
namespace {

constexpr std::size_t kMaxFindings = 1000;

}  // namespace

void DriveFindings::Add(DriveFinding finding) {
  wrongs[static_cast<std::size_t>(TextOf(finding.rule).check)] += finding.count;
  Key key(finding.rule, finding.record, finding.field, finding.wrong);
  if (const auto known = index.find(key); known != index.end()) {
    findings[known->second].count += finding.count;
  } else if (findings.size() == kMaxFindings) {
    ++notKept;
  } else {
    index.emplace(std::move(key), findings.size());
    findings.push_back(std::move(finding));
  }
}

std::vector<DriveFinding> DriveFindings::All() const {
  std::vector<DriveFinding> all = findings;
  std::ranges::stable_sort(all, {}, [](const DriveFinding& finding) { return TextOf(finding.rule).check; });
  return all;
}

}  // namespace fenlux::refhost
