// The settings as the module sees them, before and after they are replaced.
#include "refhost/services/configuration.h"

#include <gtest/gtest.h>

#include "host/buf.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/services/record_register.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::TemporaryDirectory;

std::string TextOf(const std::shared_ptr<CBuf>& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer->GetData()), buffer->GetSize());
}

struct Read {
  explicit Read(std::string_view text, const boost::filesystem::path& file = "/d/c.toml") {
    const ConfigDocument document(text, file, errors);
    const ConfigTable root = document.Root();
    fixed = ReadFixedSettings(root);
    live = ReadLiveSettings(root);
    root.Finish();
  }
  ConfigErrors errors;
  FixedSettings fixed;
  LiveSettings live;
};

TEST(Configuration, ReturnsTheValuesOfTheFile) {
  const Read read(
      "[module]\nenabled = false\nport_value = 7\nrecord_value1 = 8\nrecord_value2 = 9\ndriver_interface_flag = true\n"
      "client_type = 2\nmonitor_object_type = 1\nversion_flag = true\nbypass_process_cache = true\n"
      "identity_text = false\nmeasure = true\nrefresh_interval_ms = 250\nconfig_block = 'block'\n"
      "[spsp]\nflag1 = 1\nflag2 = 2\nflag3 = 3\nflag4 = 255\n[policy]\ndirectories = ['/a', 'b']\n");
  ASSERT_EQ(read.errors.Text(), "");
  EXPECT_TRUE(read.fixed.versionFlag);
  Configuration configuration(read.fixed, read.live, std::make_shared<RecordRegister>());
  EXPECT_FALSE(configuration.IsEnabled());
  EXPECT_EQ(configuration.GetPortValue(), 7U);
  EXPECT_EQ(configuration.GetRecordValue1(), 8U);
  EXPECT_EQ(configuration.GetRecordValue2(), 9U);
  EXPECT_TRUE(configuration.GetDriverInterfaceFlag());
  EXPECT_TRUE(configuration.GetClientTypeFlag());
  EXPECT_TRUE(configuration.GetMonitorObjectFlag());
  EXPECT_TRUE(configuration.IsCacheBypassed());
  EXPECT_FALSE(configuration.IsIdentityTextAdded());
  EXPECT_TRUE(configuration.IsMeasuringEnabled(0, 0));
  EXPECT_EQ(configuration.GetRefreshInterval(), 250U);
  EXPECT_EQ(TextOf(configuration.GetDriverConfigBlock()), "block");
  const std::shared_ptr<CSpspSettings>& spsp = configuration.GetSpspSettings();
  EXPECT_EQ(spsp->GetSpspFlag1(), 1);
  EXPECT_EQ(spsp->GetReservedFlag(), 0);
  EXPECT_EQ(spsp->GetSpspFlag2(), 2);
  EXPECT_EQ(spsp->GetSpspFlag3(), 3);
  EXPECT_EQ(spsp->GetSpspFlag4(), 255);
  std::shared_ptr<MonitorPolicy> policy;
  ASSERT_NE(configuration.GetMonitorPolicy(policy), nullptr);
  ASSERT_EQ(policy->size(), 2U);
  EXPECT_EQ((*policy)[0]->GetMonitorPath(), testing::Rooted("/a"));
  EXPECT_EQ((*policy)[1]->GetMonitorPath(), testing::Rooted("/d/b"));
}

TEST(Configuration, HasNoPolicyAndNoBlockByDefault) {
  const Read read("");
  Configuration configuration(read.fixed, read.live, nullptr);
  std::shared_ptr<MonitorPolicy> policy = std::make_shared<MonitorPolicy>();
  EXPECT_EQ(configuration.GetMonitorPolicy(policy), nullptr);
  EXPECT_EQ(configuration.GetDriverConfigBlock(), nullptr);
  EXPECT_TRUE(configuration.IsEnabled());
  EXPECT_FALSE(configuration.GetClientTypeFlag());
  EXPECT_FALSE(configuration.GetMonitorObjectFlag());
}

TEST(Configuration, AnEmptyPolicyDiffersFromNoPolicy) {
  const Read read("[policy]\n");
  Configuration configuration(read.fixed, read.live, nullptr);
  std::shared_ptr<MonitorPolicy> policy;
  ASSERT_NE(configuration.GetMonitorPolicy(policy), nullptr);
  EXPECT_TRUE(policy->empty());
}

TEST(Configuration, ReplacingThePolicyDoesNotChangeAListInUse) {
  Configuration configuration({}, Read("[policy]\ndirectories = ['/a']\n").live, nullptr);
  std::shared_ptr<MonitorPolicy> held;
  configuration.GetMonitorPolicy(held);
  configuration.Replace(Read("[policy]\ndirectories = ['/b', '/c']\n[spsp]\nflag2 = 4\n").live);
  std::shared_ptr<MonitorPolicy> next;
  configuration.GetMonitorPolicy(next);
  ASSERT_EQ(held->size(), 1U);
  EXPECT_EQ((*held)[0]->GetMonitorPath(), testing::Rooted("/a"));
  ASSERT_EQ(next->size(), 2U);
  EXPECT_EQ(configuration.GetSpspSettings()->GetSpspFlag2(), 4);
}

TEST(Configuration, AReferenceToAReplacedBlockStaysValid) {
  Configuration configuration({}, Read("[module]\nconfig_block = 'one'\n").live, nullptr);
  const std::shared_ptr<CBuf>& first = configuration.GetDriverConfigBlock();
  configuration.Replace(Read("[module]\nconfig_block = 'two'\n").live);
  configuration.Replace(Read("").live);
  EXPECT_EQ(TextOf(first), "one");
  EXPECT_EQ(configuration.GetDriverConfigBlock(), nullptr);
}

TEST(Configuration, ReadsTheBlockFromAFile) {
  const TemporaryDirectory directory;
  directory.Write("block.bin", std::string_view("\0\1\2", 3));
  const Read read("[module]\nconfig_block_file = 'block.bin'\n", directory.Path() / "c.toml");
  EXPECT_EQ(read.errors.Text(), "");
  EXPECT_EQ(read.live.configBlock, (std::vector<std::uint8_t>{0, 1, 2}));
}

TEST(Configuration, RejectsABlockThatDoesNotFitInTheRequest) {
  EXPECT_TRUE(Read("[module]\nconfig_block = '" + std::string(65549, 'x') + "'\n").errors.Empty());
  const Read read("[module]\nconfig_block = '" + std::string(65550, 'x') + "'\n");
  EXPECT_EQ(read.errors.Text(),
            "/d/c.toml:2:16: module.config_block: has 65550 bytes; the driver accepts at most 65549\n");
}

TEST(Configuration, RejectsTwoBlocksAndAMissingFile) {
  const Read read("[module]\nconfig_block = 'x'\nconfig_block_file = '/no/such/file'\n");
  EXPECT_EQ(read.errors.Text().find(
                std::string("/d/c.toml:3:21: module.config_block_file: cannot be combined with config_block\n") +
                "/d/c.toml:3:21: module.config_block_file: " + testing::Rooted("/no/such/file").string() +
                " cannot be read: "),
            0U)
      << read.errors.Text();
}

TEST(Configuration, KeepsTheReportedDriverVersion) {
  Configuration configuration({}, {}, nullptr);
  EXPECT_EQ(configuration.LastDriverVersion().reports, 0U);
  configuration.ReportDriverVersion(1, true, 19072701);
  EXPECT_EQ(configuration.LastDriverVersion().reports, 1U);
  EXPECT_EQ(configuration.LastDriverVersion().version, 19072701U);
}

TEST(Configuration, RecordsWhenThePolicyWasRead) {
  Configuration configuration({}, {}, nullptr);
  const auto before = Configuration::Clock::now();
  EXPECT_LT(configuration.LastPolicyRead(), before);
  std::shared_ptr<MonitorPolicy> policy;
  configuration.GetMonitorPolicy(policy);
  EXPECT_GE(configuration.LastPolicyRead(), before);
  EXPECT_EQ(configuration.PolicyReads(), 1U);
}

}  // namespace
}  // namespace fenlux::refhost
