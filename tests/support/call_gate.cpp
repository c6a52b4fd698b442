// Journals a call, runs its hook and decides whether it fails; calls are processed one at a time.
#include "tests/support/call_gate.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "tests/support/test_timeout.h"

namespace fenlux::testing {
namespace {

constexpr std::size_t kAlwaysEmpty = std::numeric_limits<std::size_t>::max();

bool BeginsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool BeginsWithAny(const std::string& text, const std::vector<std::string>& prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&text](const std::string& prefix) { return BeginsWith(text, prefix); });
}

std::string HexText(std::uint64_t value) {
  char digits[16];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), value, 16);
  return "0x" + std::string(std::begin(digits), end.ptr);
}

void AppendCodePoint(std::string& out, std::uint32_t code) {
  const auto byte = [&out](std::uint32_t value) { out += static_cast<char>(static_cast<unsigned char>(value)); };
  if (code >= 0xD800 && code <= 0xDFFF) {
    char digits[8];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), code, 16);
    out += "\\u";
    std::transform(std::begin(digits), end.ptr, std::back_inserter(out),
                   [](char digit) { return digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit; });
  } else if (code < 0x80) {
    byte(code);
  } else if (code < 0x800) {
    byte(0xC0 | (code >> 6));
    byte(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    byte(0xE0 | (code >> 12));
    byte(0x80 | ((code >> 6) & 0x3F));
    byte(0x80 | (code & 0x3F));
  } else {
    byte(0xF0 | (code >> 18));
    byte(0x80 | ((code >> 12) & 0x3F));
    byte(0x80 | ((code >> 6) & 0x3F));
    byte(0x80 | (code & 0x3F));
  }
}

}  // namespace

std::string Display(const std::wstring& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto code = static_cast<std::uint32_t>(text[i]);
    if constexpr (sizeof(wchar_t) == 2) {
      const bool high = code >= 0xD800 && code <= 0xDBFF;
      if (high && i + 1 < text.size()) {
        const auto low = static_cast<std::uint32_t>(text[i + 1]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        }
      }
    }
    AppendCodePoint(out, code);
  }
  return out;
}

CallGate::CallGate() : mode(kJournal) {}

void CallGate::Append(std::string& out, bool value) { out += value ? "true" : "false"; }
void CallGate::Append(std::string& out, int value) { out += std::to_string(value); }
void CallGate::Append(std::string& out, std::uint32_t value) { out += std::to_string(value); }
void CallGate::Append(std::string& out, std::uint64_t value) { out += std::to_string(value); }
void CallGate::Append(std::string& out, Hex value) { out += HexText(value.value); }
void CallGate::Append(std::string& out, const char* value) { out += value; }
void CallGate::Append(std::string& out, const std::string& value) { out += value; }
void CallGate::Append(std::string& out, const std::wstring& value) { out += Display(value); }
void CallGate::Append(std::string& out, const boost::filesystem::path& value) { out += value.string(); }

bool CallGate::PassWatched(const char* operation, const std::string& entry) {
  std::function<void()> hook;
  bool fails = false;
  bool gives = true;
  Failure failure{};
  {
    // One critical section: a failure that a test plans once it has seen the entry applies to the next call.
    const std::lock_guard lock(mutex);
    if (!entry.empty()) {
      entries.push_back(entry);
      changed.notify_all();
    }
    if (!hooks.empty()) {
      const auto found = hooks.find(operation);
      if (found != hooks.end()) hook = found->second;
    }
    for (auto planned = failures.begin(); planned != failures.end(); ++planned) {
      if (planned->operation.empty() ? uncounted.count(operation) != 0 : planned->operation != operation) continue;
      if (planned->remaining > 0) {
        --planned->remaining;
        continue;
      }
      failure = planned->failure;
      fails = true;
      failedOperation = operation;
      if (!planned->always) failures.erase(planned);
      break;
    }
    if (!fails && !empties.empty()) {
      const auto found = empties.find(operation);
      if (found != empties.end()) {
        if (found->second == kAlwaysEmpty) {
          gives = false;
        } else if (found->second-- == 0) {
          gives = false;
          empties.erase(found);
        }
      }
    }
  }
  if (hook) hook();
  if (fails) Throw(failure);
  return gives;
}

void CallGate::UpdateWatch() {
  const bool watch = !failures.empty() || !empties.empty() || !hooks.empty();
  if (watch) {
    mode.fetch_or(kWatch, std::memory_order_release);
  } else {
    mode.fetch_and(~kWatch, std::memory_order_release);
  }
}

void CallGate::SetJournal(bool on) {
  if (on) {
    mode.fetch_or(kJournal, std::memory_order_release);
  } else {
    mode.fetch_and(~kJournal, std::memory_order_release);
  }
}

void CallGate::ClearJournal() {
  const std::lock_guard lock(mutex);
  entries.clear();
}

std::vector<std::string> CallGate::Entries() const {
  const std::lock_guard lock(mutex);
  return entries;
}

std::vector<std::string> CallGate::EntriesOf(const std::vector<std::string>& prefixes) const {
  const std::lock_guard lock(mutex);
  std::vector<std::string> kept;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(kept),
               [&prefixes](const std::string& entry) { return BeginsWithAny(entry, prefixes); });
  return kept;
}

std::vector<std::string> CallGate::EntriesWithout(const std::vector<std::string>& prefixes) const {
  const std::lock_guard lock(mutex);
  std::vector<std::string> kept;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(kept),
               [&prefixes](const std::string& entry) { return !BeginsWithAny(entry, prefixes); });
  return kept;
}

std::size_t CallGate::Count(const std::string& prefix) const {
  const std::lock_guard lock(mutex);
  return static_cast<std::size_t>(std::count_if(
      entries.begin(), entries.end(), [&prefix](const std::string& entry) { return BeginsWith(entry, prefix); }));
}

bool CallGate::AwaitCount(const std::string& prefix, std::size_t count) const {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, kTestTimeout, [&] {
    return static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), [&](const std::string& entry) {
             return BeginsWith(entry, prefix);
           })) >= count;
  });
}

void CallGate::FailAt(std::size_t n, Failure failure) { FailAt({}, n, failure); }

void CallGate::FailAt(const std::string& operation, std::size_t n, Failure failure) {
  const std::lock_guard lock(mutex);
  failedOperation.clear();
  failures.push_back({operation, n - 1, false, failure});
  UpdateWatch();
}

void CallGate::FailFrom(std::size_t n, Failure failure) {
  const std::lock_guard lock(mutex);
  failedOperation.clear();
  failures.push_back({{}, n - 1, true, failure});
  UpdateWatch();
}

void CallGate::FailAlways(const std::string& operation, Failure failure) {
  const std::lock_guard lock(mutex);
  failedOperation.clear();
  failures.push_back({operation, 0, true, failure});
  UpdateWatch();
}

void CallGate::StopFailing() {
  const std::lock_guard lock(mutex);
  failures.clear();
  UpdateWatch();
}

void CallGate::ExcludeFromCount(const std::string& operation) {
  const std::lock_guard lock(mutex);
  uncounted.insert(operation);
}

std::string CallGate::FailedOperation() const {
  const std::lock_guard lock(mutex);
  return failedOperation;
}

void CallGate::GiveEmpty(const std::string& operation) {
  const std::lock_guard lock(mutex);
  empties[operation] = kAlwaysEmpty;
  UpdateWatch();
}

void CallGate::GiveEmptyAt(const std::string& operation, std::size_t n) {
  const std::lock_guard lock(mutex);
  empties[operation] = n - 1;
  UpdateWatch();
}

void CallGate::StopGivingEmpty(const std::string& operation) {
  const std::lock_guard lock(mutex);
  empties.erase(operation);
  UpdateWatch();
}

void CallGate::OnCall(const std::string& operation, std::function<void()> hook) {
  const std::lock_guard lock(mutex);
  hooks[operation] = std::move(hook);
  UpdateWatch();
}

void CallGate::RemoveHook(const std::string& operation) {
  const std::lock_guard lock(mutex);
  hooks.erase(operation);
  UpdateWatch();
}

void CallGate::RemoveHooks() {
  const std::lock_guard lock(mutex);
  hooks.clear();
  UpdateWatch();
}

}  // namespace fenlux::testing
