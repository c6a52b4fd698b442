// Network-control items in an operator's file and in a control request.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <string_view>

#include "kdi/drvx_control.h"

namespace fenlux::refhost {

class ConfigErrors;
class ConfigTable;

// Reads a TOML file of [[items]] tables, each with `value` and either `opaque` (96 hexadecimal digits) or `opaque_text`
// (up to 48 bytes, padded with zeros).
NetControlItems LoadNetItems(const boost::filesystem::path& file, ConfigErrors& errors);
// Reads the items from the root table of such a file.
NetControlItems ReadNetItems(const ConfigTable& root);

// Converts items to one text and back. Decoding throws std::invalid_argument if the text is malformed.
std::string EncodeNetItems(const NetControlItems& items);
NetControlItems DecodeNetItems(std::string_view text);

}  // namespace fenlux::refhost
