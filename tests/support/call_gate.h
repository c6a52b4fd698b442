// The gate that every call of the fake host passes: it keeps the journal, runs hooks, throws and gives empty handles
// where a test asked for it. With nothing asked and the journal off, a call costs one atomic load.
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

namespace fenlux::testing {

// What a failing call throws.
enum class Failure { kStandard, kPoco, kBoostSystem, kInt };

inline constexpr Failure kAllFailures[] = {Failure::kStandard, Failure::kPoco, Failure::kBoostSystem, Failure::kInt};

const char* NameOf(Failure failure);

// Throws what `failure` names: std::runtime_error("standard failure"), Poco::IOException("poco failure", 42),
// boost::system::system_error(permission_denied) or the int 7.
[[noreturn]] void Throw(Failure failure);

// The message of the thrown exception where it is a standard one, as a report gives it after "info=".
std::string MessageOf(Failure failure);

// The module's report of a failure where it tells the kinds of exceptions apart.
std::string ReportByKind(const std::string& tag, Failure failure);

// Text as a test prints and compares it: UTF-8, a lone surrogate as \uD800.
std::string Display(const std::wstring& text);

// A number that the journal writes in hexadecimal.
struct Hex {
  std::uint64_t value;
};

class CallGate {
 public:
  CallGate();

  // Notes the call, runs its hook and throws if it is its turn. False: the call is to give an empty handle.
  template <class... Args>
  bool Pass(const char* operation, const Args&... args) {
    const std::uint32_t current = mode.load(std::memory_order_acquire);
    if (current == 0) return true;
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
  // The entries whose text begins with one of the prefixes, or with none of them.
  std::vector<std::string> EntriesOf(const std::vector<std::string>& prefixes) const;
  std::vector<std::string> EntriesWithout(const std::vector<std::string>& prefixes) const;
  std::size_t Count(const std::string& prefix) const;
  // Blocks until `count` entries begin with the prefix; false when that does not come about in a minute.
  bool AwaitCount(const std::string& prefix, std::size_t count) const;

  // --- failures
  // The n-th call from now on (of the operation, where one is named) throws, once.
  void FailAt(std::size_t n, Failure failure);
  void FailAt(const std::string& operation, std::size_t n, Failure failure);
  // The n-th call from now on and every one after it throw.
  void FailFrom(std::size_t n, Failure failure);
  // Every call of the operation throws.
  void FailAlways(const std::string& operation, Failure failure);
  void StopFailing();
  // Calls of this operation are not counted where no operation is named: those of a thread beside the one under test.
  void LeaveOutOfCount(const std::string& operation);
  // The operation that was made to throw last; empty where none was.
  std::string FailedOperation() const;

  // --- empty handles
  // The operation gives an empty handle: always, or in its n-th call from now on.
  void GiveEmpty(const std::string& operation);
  void GiveEmptyAt(const std::string& operation, std::size_t n);
  void GiveAgain(const std::string& operation);

  // --- hooks, run inside the call, before it can fail, on the calling thread and without a lock of the gate
  void OnCall(const std::string& operation, std::function<void()> hook);
  void NoHook(const std::string& operation);
  void NoHooks();

 private:
  static constexpr std::uint32_t kJournal = 1;
  static constexpr std::uint32_t kWatch = 2;

  struct PlannedFailure {
    std::string operation;    // empty: any
    std::size_t remaining{};  // calls before the failing one
    bool always{};            // the calls after it fail too
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
  void SetWatch();

  std::atomic<std::uint32_t> mode;
  mutable std::mutex mutex;
  mutable std::condition_variable grown;
  std::vector<std::string> entries;
  std::vector<PlannedFailure> failures;
  std::set<std::string> leftOut;
  std::string failedOperation;
  std::map<std::string, std::size_t> empties;  // operation -> calls before the empty one; kAlwaysEmpty
  std::map<std::string, std::function<void()>> hooks;
};

// Threads stop here until the test opens it. Used as a hook: gate.OnCall("...", [&] { turnstile.Pass(); }).
class Turnstile {
 public:
  void Pass();
  // Blocks until `count` threads have come; false when that does not come about in a minute.
  bool AwaitArrivals(std::size_t count);
  std::size_t Arrivals();
  // Lets everyone through, now and later.
  void Open();

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t arrivals = 0;
  bool open = false;
};

}  // namespace fenlux::testing
