// The `report` command: a capture as an HTML page.
#include <fmt/format.h>

#include <boost/filesystem/operations.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/base/file_bytes.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/progress_bar.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/capture/report/report_page.h"

namespace fenlux::refhost {
namespace {

int Fail(const std::string& text) {
  std::cerr << PrintableLines("fenlux-host: " + text + "\n") << std::flush;
  return kExitUsage;
}

// Whether both name the same existing file.
bool SameFile(const boost::filesystem::path& one, const boost::filesystem::path& other) {
  boost::system::error_code error;
  return boost::filesystem::equivalent(one, other, error) && !error;
}

}  // namespace

int ReportCapture(const ReportOptions& options) {
  const std::string name = options.file.string();
  std::ifstream stream(std::filesystem::path(options.file.native()), std::ios::binary);
  if (!stream) return Fail(fmt::format("{} cannot be opened: {}", name, LastErrorText()));
  if (SameFile(options.file, options.html)) return Fail("the report would replace the capture; name another file");
  capture::CaptureStatistics statistics;
  {
    ProgressBar progress(FileSizeOrZero(options.file));
    statistics = capture::CollectStatistics(stream, [&](std::uint64_t offset) { progress.Show(offset); });
  }
  if (stream.bad()) return Fail(fmt::format("{} cannot be read: {}", name, LastErrorText()));
  if (!statistics.isCapture) return Fail(name + " is not a capture");
  const std::string title = options.title.empty() ? "Capture " + options.file.filename().string() : options.title;
  std::ofstream page(std::filesystem::path(options.html.native()), std::ios::binary | std::ios::trunc);
  if (page) page << capture::ReportPage(statistics, title, name) << std::flush;
  if (!page) return Fail(fmt::format("{} cannot be written: {}", options.html.string(), LastErrorText()));
  return statistics.damages == 0 ? kExitSuccess : kExitUsage;
}

}  // namespace fenlux::refhost
