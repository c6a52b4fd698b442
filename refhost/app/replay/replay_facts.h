// What the recording host gave the module, for the host of a replay to give it again.
//
// A capture of the reference host states it as facts. What they lack follows from the requests that the module made of
// it.
#pragma once

#include <boost/filesystem/path.hpp>
#include <map>
#include <string>

#include "refhost/capture/replay/capture_outline.h"
#include "refhost/services/configuration.h"

namespace fenlux::refhost {

// The policy's paths need not exist on this machine, but the module looks at each. So it is given a path of this
// machine that is there or not, like the recorded one, and its text is replaced where the module asks the host to
// narrow it.
class StandInPaths {
 public:
  enum class Type { kDirectory, kOther, kMissing };

  // A path of the wanted type that stands for `recorded` (UTF-8).
  boost::filesystem::path Add(const std::string& recorded, Type type);

  // The recorded path that a text stands for; null if it stands for none.
  const std::string* RecordedOf(const std::wstring& standIn) const;
  // Whether the path is to be taken for a directory. Every path that stands for none is.
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
  bool samePlatform = false;  // recorded on a system with this one's rules for paths
};

// `text` is the JSON object of the capture; it may be empty. Throws std::runtime_error if it is malformed.
ReplayFacts ReadReplayFacts(const std::string& text, const capture::ObservedSettings& observed);

}  // namespace fenlux::refhost
