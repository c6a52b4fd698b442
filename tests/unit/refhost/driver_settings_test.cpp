// The [driver] table, with and without a Filter Manager.
#include "refhost/port/driver_settings.h"

#include <gtest/gtest.h>

#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

struct Read {
  explicit Read(std::string_view text) {
    const ConfigDocument document(text, "c.toml", errors);
    settings = ReadDriverSettings(document.Root().Table("driver"));
    document.Root().Finish();
  }

  ConfigErrors errors;
  DriverSettings settings;
};

TEST(DriverSettings, SelectsTheEmulatorByDefault) {
  const Read read("");
  EXPECT_EQ(read.errors.Text(), "");
  EXPECT_EQ(read.settings, DriverSettings());
  EXPECT_EQ(read.settings.port, DriverPortKind::kEmulator);
}

TEST(DriverSettings, SelectsTheFilterManagerIfThereIsOne) {
  const Read read("[driver]\nport = 'filter-manager'\nthreads = 5\n");
  EXPECT_EQ(read.settings.port, DriverPortKind::kFilterManager);
  EXPECT_EQ(read.settings.filter.threads, 5U);
  EXPECT_EQ(read.settings.filter.buffers, 10U);
  EXPECT_EQ(read.errors.Text(), FilterPortExists()
                                    ? ""
                                    : "c.toml:2:8: driver.port: the Filter Manager exists on Windows only; set port = "
                                      "\"emulator\"\n");
}

TEST(DriverSettings, RejectsSettingsOfTheFilterManagerForTheEmulator) {
  EXPECT_EQ(Read("[driver]\nbuffers = 9\nthreads = 3\nfilter_library = 'x.dll'\n").errors.Text(),
            "c.toml:2:11: driver.buffers: requires port = \"filter-manager\"\n"
            "c.toml:3:11: driver.threads: requires port = \"filter-manager\"\n"
            "c.toml:4:18: driver.filter_library: requires port = \"filter-manager\"\n");
}

TEST(DriverSettings, ReportsUnknownPortsAndTooFewBuffers) {
  EXPECT_NE(Read("[driver]\nport = 'serial'\n").errors.Text(), "");
  const std::string errors = Read("[driver]\nport = 'filter-manager'\nthreads = 6\nbuffers = 5\n").errors.Text();
  EXPECT_NE(errors.find("c.toml:4:11: driver.buffers: must be at least threads, which is 6\n"), std::string::npos);
}

}  // namespace
}  // namespace fenlux::refhost
