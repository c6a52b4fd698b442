// A small ordered tree of named values that is shown to a person as aligned text and to a program as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace fenlux::refhost {

// `text` as a JSON string, quotes included; what is no valid UTF-8 in it becomes U+FFFD.
std::string JsonString(std::string_view text);

class Report {
 public:
  // Names stay in the order in which they are added.
  void Add(std::string name, std::string value) { Put(std::move(name), std::move(value)); }
  void Add(std::string name, const char* value) { Put(std::move(name), std::string(value)); }
  void Add(std::string name, bool value) { Put(std::move(name), value); }
  void Add(std::string name, double value) { Put(std::move(name), value); }
  template <typename Number>
  requires(std::is_unsigned_v<Number> && !std::is_same_v<Number, bool>) void Add(std::string name, Number value) {
    Put(std::move(name), static_cast<std::uint64_t>(value));
  }
  void Add(std::string name, Report value) { Put(std::move(name), std::vector<Report>{std::move(value)}); }
  void Add(std::string name, std::vector<std::string> values) { Put(std::move(name), std::move(values)); }

  bool Empty() const { return entries.empty(); }
  // One object on one line, without a line end.
  std::string Json() const;
  // One value a line, the values of one level aligned, inner levels indented; every line ended.
  std::string Text() const;

 private:
  // An inner report is a vector of one, since it is not complete yet here.
  using Value = std::variant<std::string, bool, double, std::uint64_t, std::vector<std::string>, std::vector<Report>>;

  // Made in its place: moving a finished Value there sets off a false alarm of the compiler (maybe-uninitialized).
  template <typename Held>
  void Put(std::string name, Held value) {
    entries.emplace_back(std::move(name), std::move(value));
  }
  void AppendJson(std::string& out) const;
  void AppendText(std::string& out, std::size_t indent) const;

  std::vector<std::pair<std::string, Value>> entries;
};

}  // namespace fenlux::refhost
