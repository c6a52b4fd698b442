// The addresses at which metrics may be served.
#include "refhost/app/metrics/metrics_settings.h"

#include <gtest/gtest.h>

#include "refhost/app/metrics/metrics_server.h"
#include "refhost/base/config/config_reader.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

struct Reading {
  MetricsSettings settings;
  std::string errors;  // without the file and the place
};

Reading Read(const std::string& text) {
  const testing::TemporaryDirectory directory;
  const boost::filesystem::path file = directory.Write("host.toml", text);
  ConfigErrors errors;
  const ConfigDocument document(file, errors);
  Reading reading;
  reading.settings = ReadMetricsSettings(document.Root().Table("metrics"));
  document.Root().Finish();
  reading.errors = errors.Text();
  return reading;
}

bool Reports(const std::string& listen, const std::string& text) {
  const Reading reading = Read("[metrics]\nlisten = '" + listen + "'\n");
  return reading.errors.find("metrics.listen: ") != std::string::npos && reading.errors.find(text) != std::string::npos;
}

TEST(MetricsSettings, AreOffByDefault) {
  EXPECT_EQ(Read("").settings, MetricsSettings());
  EXPECT_EQ(Read("").errors, "");
  EXPECT_TRUE(Reports("", "must not be empty"));
}

TEST(MetricsSettings, AcceptANumericAddressAndAPort) {
  if (!MetricsExist()) GTEST_SKIP() << "there are no metrics on Windows";
  EXPECT_EQ(Read("[metrics]\nlisten = '127.0.0.1:9464'\n").settings, (MetricsSettings{"127.0.0.1", 9464}));
  EXPECT_EQ(Read("[metrics]\nlisten = '[::1]:0'\n").settings, (MetricsSettings{"::1", 0}));
  for (const char* wrong : {"localhost:9464", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:x", "::1:9464",
                            "[127.0.0.1]:9464", ":9464", "127.0.0.1:94 64"}) {
    EXPECT_TRUE(Reports(wrong, "must be a numeric address and a port")) << wrong;
  }
}

TEST(MetricsSettings, NeedPermissionForAnAddressThatOtherMachinesCanReach) {
  if (!MetricsExist()) GTEST_SKIP() << "there are no metrics on Windows";
  EXPECT_TRUE(Reports("0.0.0.0:9464", "allow_remote = true"));
  EXPECT_TRUE(Reports("[::]:9464", "allow_remote = true"));
  const Reading reading = Read("[metrics]\nlisten = '0.0.0.0:9464'\nallow_remote = true\n");
  EXPECT_EQ(reading.errors, "");
  EXPECT_EQ(reading.settings, (MetricsSettings{"0.0.0.0", 9464}));
}
TEST(MetricsSettings, SayWhichSystemsHaveNoMetrics) {
  EXPECT_EQ(Reports("127.0.0.1:9464", "metrics are available on Linux only"), !MetricsExist());
}

}  // namespace
}  // namespace fenlux::refhost
