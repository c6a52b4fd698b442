// The gate that every call of the fake host passes. It keeps a journal of the calls, runs hooks, and makes calls throw
// or return empty handles as the test plans. With the journal off and nothing planned, a call costs one atomic load.
#pragma once

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "common/random_yield.h"
#include "tests/support/allocation_exemption.h"
#include "tests/support/failure.h"

namespace fenlux::testing {

// Wide text as tests print and compare it: UTF-8, a lone surrogate as \uD800.
std::string Display(const std::wstring& text);

// A number that the journal shows in hexadecimal.
struct Hex {
  std::uint64_t value;
};

class CallGate {
 public:
  CallGate();

  // Journals the call, runs its hook, and throws if a failure is planned for it. False: the call must return an empty
  // handle.
  template <class... Args>
  bool Pass(const char* operation, const Args&... args) {
    YieldAtRandom();
    const std::uint32_t current = mode.load(std::memory_order_acquire);
    if (current == 0) return true;
    const AllocationExemption exempt;
    std::string entry;
    if ((current & kJournal) != 0) {
      entry = operation;
      entry += '(';
      (AppendArgument(entry, args), ...);
      entry += ')';
    }
    return PassWatched(operation, entry);
  }

  // --- the journal
  void SetJournal(bool on);
  void ClearJournal();
  std::vector<std::string> Entries() const;
  // The entries that begin with one of the prefixes, or with none of them.
  std::vector<std::string> EntriesOf(const std::vector<std::string>& prefixes) const;
  std::vector<std::string> EntriesWithout(const std::vector<std::string>& prefixes) const;
  std::size_t Count(const std::string& prefix) const;
  // Waits until `count` entries begin with the prefix. False: timed out.
  bool AwaitCount(const std::string& prefix, std::size_t count) const;

  // --- failures
  // Makes the n-th call from now on throw, once; if an operation is named, the n-th call of that operation.
  void FailAt(std::size_t n, Failure failure);
  void FailAt(const std::string& operation, std::size_t n, Failure failure);
  // Makes the n-th call from now on and all later calls throw.
  void FailFrom(std::size_t n, Failure failure);
  // Makes every call of the operation throw.
  void FailAlways(const std::string& operation, Failure failure);
  void StopFailing();
  // Excludes the operation from failures that name no operation, because a thread that is not under test calls it.
  void ExcludeFromCount(const std::string& operation);
  // The operation that threw last; empty if none did.
  std::string FailedOperation() const;

  // --- empty handles
  // Makes the operation return an empty handle: always, or in its n-th call from now on.
  void GiveEmpty(const std::string& operation);
  void GiveEmptyAt(const std::string& operation, std::size_t n);
  void StopGivingEmpty(const std::string& operation);

  // --- hooks: run inside the call, before it can fail, on the calling thread, with no lock of the gate held
  void OnCall(const std::string& operation, std::function<void()> hook);
  void RemoveHook(const std::string& operation);
  void RemoveHooks();

 private:
  static constexpr std::uint32_t kJournal = 1;
  static constexpr std::uint32_t kWatch = 2;

  struct PlannedFailure {
    std::string operation;    // empty: any
    std::size_t remaining{};  // calls before the failing one
    bool always{};            // later calls fail too
    Failure failure{};
  };

  static void Append(std::string& out, bool value);
  static void Append(std::string& out, int value);
  static void Append(std::string& out, std::uint32_t value);
  static void Append(std::string& out, std::uint64_t value);
  static void Append(std::string& out, Hex value);
  static void Append(std::string& out, const char* value);
  static void Append(std::string& out, const std::string& value);
  static void Append(std::string& out, const std::wstring& value);
  static void Append(std::string& out, const boost::filesystem::path& value);

  template <class Arg>
  static void AppendArgument(std::string& entry, const Arg& arg) {
    if (entry.back() != '(') entry += ", ";
    Append(entry, arg);
  }

  bool PassWatched(const char* operation, const std::string& entry);
  void UpdateWatch();

  std::atomic<std::uint32_t> mode;
  mutable std::mutex mutex;
  mutable std::condition_variable changed;  // an entry was added
  std::vector<std::string> entries;
  std::vector<PlannedFailure> failures;
  std::set<std::string> uncounted;
  std::string failedOperation;
  std::map<std::string, std::size_t> empties;  // operation -> calls before the empty one; kAlwaysEmpty
  std::map<std::string, std::function<void()>> hooks;
};

}  // namespace fenlux::testing
