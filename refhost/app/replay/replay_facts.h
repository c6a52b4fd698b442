// What the recording host provided to the module, so that the host of a replay can provide it again.
//
// A capture by the reference host contains it as facts. Missing facts are derived from the requests that
// the module made.
#pragma once

#include <boost/filesystem/path.hpp>
#include <map>
#include <string>

#include "refhost/capture/replay/capture_outline.h"
#include "refhost/services/configuration.h"

namespace fenlux::refhost {

// The policy's paths need not exist on this machine, but the module checks each one. So it gets a stand-in: a path of
// this machine that exists or not, as the recorded one did. The text is replaced by the recorded path where the module
// has the host convert the path to narrow text.
class StandInPaths {
 public:
  enum class Type { kDirectory, kOther, kMissing };

  // A path of the wanted type that stands for `recorded` (UTF-8).
  boost::filesystem::path Add(const std::string& recorded, Type type);

  // The recorded path that a text stands for; null if it stands for none.
  const std::string* RecordedOf(const std::wstring& standIn) const;
  // Whether the path counts as a directory. A path that is not a stand-in always does.
  bool IsDirectory(const boost::filesystem::path& path) const;

 private:
  struct Entry {
    std::string recorded;
    Type type;
  };
  std::map<std::wstring, Entry> entries;
};

struct ReplayFacts {
  FixedSettings fixed;
  LiveSettings live;
  StandInPaths paths;
  bool complete = false;      // everything that requests depend on is stated
  bool samePlatform = false;  // recorded on a system with the same path syntax
};

// `text` is the JSON object of the capture; it may be empty. Throws std::runtime_error if it is malformed.
ReplayFacts ReadReplayFacts(const std::string& text, const capture::ObservedSettings& observed);

}  // namespace fenlux::refhost
