// What `drive` found: how many records each check examined, and what was wrong.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "refhost/app/drive/drive_rules.h"

namespace fenlux::refhost {

// Where a record is in the capture.
struct DrivePlace {
  std::uint32_t connection = 0;  // 0: no particular connection
  std::uint64_t exchange = 0;    // 0: no particular exchange
  std::uint64_t offset = 0;      // of the message's block in the file
};

// Records with the same mistake are one finding.
struct DriveFinding {
  DriveRule rule{};
  std::string record = {};        // "notification 4098"
  std::string field = {};         // "second path, length at 34"; empty: the record as a whole
  std::string wrong = {};         // what the driver did
  std::string circumstance = {};  // of the first record; may be empty
  DrivePlace first = {};          // the first of these records
  std::uint64_t count = 1;        // number of records
};

// One thread.
class DriveFindings {
 public:
  // Counts what the check examined.
  void Saw(DriveCheck check, std::uint64_t count = 1) { seen[static_cast<std::size_t>(check)] += count; }
  // Adds `finding.count` records with this mistake.
  void Add(DriveFinding finding);

  std::uint64_t Seen(DriveCheck check) const { return seen[static_cast<std::size_t>(check)]; }
  // How many of them were wrong.
  std::uint64_t Wrong(DriveCheck check) const { return wrongs[static_cast<std::size_t>(check)]; }
  // In the order of the checks, and within a check in the order in which they were found.
  std::vector<DriveFinding> All() const;
  // How many findings were not kept because there were too many.
  std::uint64_t NotKept() const { return notKept; }
  bool Clean() const { return findings.empty(); }

 private:
  using Key = std::tuple<DriveRule, std::string, std::string, std::string>;

  std::array<std::uint64_t, kDriveChecks> seen{};
  std::array<std::uint64_t, kDriveChecks> wrongs{};
  std::vector<DriveFinding> findings;
  std::map<Key, std::size_t> index;
  std::uint64_t notKept = 0;
};

}  // namespace fenlux::refhost
