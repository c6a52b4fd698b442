// Network-control items, as an operator's file holds them and as they travel to the host.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <string_view>

#include "kdi/drvx_control.h"

namespace fenlux::refhost {

class ConfigErrors;

// Reads a TOML file of [[items]] tables, each with `opaque` (96 hexadecimal digits, or a text that is filled up with
// zeros under `opaque_text`) and `value`.
NetControlItems LoadNetItems(const boost::filesystem::path& file, ConfigErrors& errors);

// All items in one text, and back; std::invalid_argument for a text that holds none.
std::string EncodeNetItems(const NetControlItems& items);
NetControlItems DecodeNetItems(std::string_view text);

}  // namespace fenlux::refhost
