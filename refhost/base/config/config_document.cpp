// Parses a file and reports its syntax error, if it has one.
#include <optional>
#include <utility>

#include "refhost/base/config/config_node.h"
#include "refhost/base/config/toml_text.h"
#include "refhost/base/file_bytes.h"

namespace fenlux::refhost {

ConfigDocument::ConfigDocument(const boost::filesystem::path& file, ConfigErrors& errors)
    : source(std::make_shared<Source>()) {
  source->file = file;
  source->errors = &errors;
  FileBytes content = ReadFileBytes(file);
  if (content.failure.empty()) {
    Parse(content.bytes);
  } else {
    errors.Add({file.string(), 1, 1, "(file)", std::move(content.failure)});
  }
  MakeRoot();
}

ConfigDocument::ConfigDocument(std::string_view text, const boost::filesystem::path& file, ConfigErrors& errors)
    : source(std::make_shared<Source>()) {
  source->file = file;
  source->errors = &errors;
  Parse(text);
  MakeRoot();
}

void ConfigDocument::Parse(std::string_view text) {
  if (const std::optional<TextPlace> stray = FindStrayCharacter(text)) {
    ReportSyntax(stray->line, stray->column,
                 "only printable ASCII characters are allowed outside strings and comments, and after a backslash");
    return;
  }
  try {
    source->root = toml::parse(text, source->file.string());
    parsed = true;
  } catch (const toml::parse_error& error) {
    const toml::source_position where = error.source().begin;
    ReportSyntax(PlaceOf(where.line), PlaceOf(where.column), std::string(error.description()));
  }
}

void ConfigDocument::ReportSyntax(std::uint32_t line, std::uint32_t column, std::string reason) {
  source->errors->Add({source->file.string(), line, column, "(syntax)", std::move(reason)});
}

void ConfigDocument::MakeRoot() {
  auto node = std::make_shared<ConfigTable::Node>();
  node->source = source;
  node->table = &source->root;
  node->place = {1, 1};
  node->quiet = !parsed;
  root = std::make_shared<ConfigTable>(ConfigTable(std::move(node)));
}

}  // namespace fenlux::refhost
