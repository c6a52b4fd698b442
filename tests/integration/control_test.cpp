// `fenlux-host ctl`: every operation on a running host, and the module's own message if it refuses one.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

class Control : public ::testing::Test {
 protected:
  void SetUp() override {
    setup.WriteHost(
        "[module]\nport_value = 7\nrecord_value1 = 8\nrecord_value2 = 9\nconfig_block = 'AB'\n"
        "[spsp]\nflag1 = 1\nflag2 = 2\nflag3 = 3\nflag4 = 4\n");
    host = std::make_unique<HostProcess>(setup, RunArguments(setup));
    ASSERT_TRUE(host->WaitForError("Driver Interact Ready."));
    // Once the policy worker is done, only operations change the driver's state.
    ASSERT_TRUE(Eventually([&] { return Driver("config_block") == "4142"; }));
    // The version is the last request of the connection's thread, because there are no system processes.
    ASSERT_TRUE(Eventually([&] { return JsonValue(setup.ControlJson({"status"}), "driver_version") == "19072701"; }));
  }

  std::string Driver(const std::string& path) { return JsonValue(setup.ControlJson({"driver"}), path); }
  std::string Done(const Arguments& arguments) {
    const Outcome outcome = setup.Control(arguments);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    return outcome.out;
  }
  // Returns the reason for the refusal.
  std::string Refused(const Arguments& arguments) {
    const Outcome outcome = setup.Control(arguments);
    EXPECT_EQ(outcome.code, 1) << outcome.out;
    return outcome.err;
  }

  HostSetup setup;
  std::unique_ptr<HostProcess> host;
};

TEST_F(Control, ShowsTheStatusAsTextAndAsJson) {
  EXPECT_TRUE(Contains(Done({"status"}), "\nready                  yes\n"));
  EXPECT_TRUE(Contains(Done({"status"}), "  KDIB, port value 7, values 8 and 9\n"));
  const std::string json = setup.ControlJson({"status"});
  EXPECT_EQ(JsonValue(json, "ready"), "true");
  EXPECT_EQ(JsonValue(json, "driver_version"), "19072701");
  EXPECT_EQ(JsonValue(setup.ControlJson({"summary"}), "notifications.adds_up"), "true");
}

TEST_F(Control, ShowsVersionPortValueAndFeatures) {
  EXPECT_EQ(Done({"version"}), "driver_version  19072701\n");
  EXPECT_EQ(Done({"port-value"}), "port_value  7\n");
  EXPECT_EQ(Done({"debug-dump"}), "advice  Please use Dbgview to get result.\n");
  EXPECT_EQ(Driver("dumps"), "1");
  const std::string features = setup.ControlJson({"features"});
  EXPECT_EQ(JsonValue(features, "optional_feature"), "false");
  EXPECT_EQ(JsonValue(features, "supported_feature"), "true");
  EXPECT_EQ(JsonValue(features, "implementation_code"), "7");
}

TEST_F(Control, SetsTheSwitches) {
  EXPECT_EQ(Done({"grsp", "1"}), "returned  1\n");
  EXPECT_EQ(Driver("grsp_switch"), "false");
  EXPECT_EQ(Done({"grsp", "3"}), "returned  3\n");
  EXPECT_EQ(Driver("grsp_switch"), "true");
  EXPECT_EQ(Done({"grpm", "1"}), "returned  1\n");
  EXPECT_EQ(Driver("grpm_switch"), "true");
  EXPECT_EQ(Done({"grpm", "3"}), "returned  1\n");
  EXPECT_EQ(Driver("grpm_switch"), "false");
  EXPECT_EQ(Done({"grdto", "4294967295"}), "returned  0\n");
  EXPECT_EQ(Driver("grdto_value"), "4294967295");
  EXPECT_EQ(Done({"grhara", "on"}), "returned  yes\n");
  EXPECT_EQ(Driver("grhara_off"), "false");
  EXPECT_EQ(Done({"grhara", "off"}), "returned  yes\n");
  EXPECT_EQ(Driver("grhara_off"), "true");
  EXPECT_EQ(Done({"spsp", "--skip-middle"}), "done\n");
  EXPECT_NE(Driver("spsp_switches.switch1"), "(none)");
  EXPECT_EQ(Driver("spsp_switches.switch2"), "0");
  EXPECT_EQ(Done({"spsp"}), "done\n");
  EXPECT_NE(Driver("spsp_switches.switch2"), "0");
}

TEST_F(Control, RepeatsTheMessageOfARefusal) {
  EXPECT_EQ(Refused({"grsp", "2"}), "[wdi,granra]Not supported-1.\n");
  EXPECT_EQ(Refused({"grsp", "4"}), "[wdi,granra]Not supported-2.\n");
  EXPECT_EQ(Refused({"grsp", "1", "--not-implemented"}), "[wdi,grsp]Not implemented.\n");
  EXPECT_EQ(Refused({"grpm", "2"}), "[wdi,grpm]Not supported-1.\n");
  EXPECT_EQ(Refused({"grpm", "0"}), "[wdi,grpm]Not supported-2.\n");
  EXPECT_EQ(Refused({"grpm", "1", "--not-implemented"}), "[wdi,grpm]Not implemented.\n");
  EXPECT_EQ(Refused({"grdto", "1", "--not-implemented"}), "[wdi,grdto]Not implemented.\n");
  EXPECT_EQ(Refused({"grhara", "on", "--not-implemented"}), "[wdi,grhara]Not implemented.\n");
  EXPECT_EQ(Refused({"monitor", "add", "4", "/x"}), "[wdi,aodm] bad parameter!\n");
  EXPECT_EQ(Refused({"monitor", "add", "1", "/x", "--kernel-side"}), "NOT supported under windows driver!\n");
  EXPECT_EQ(Refused({"monitor", "send", "-1"}), "[wdi,samtd] bad parameter!\n");
  EXPECT_EQ(Refused({"monitor", "clear", "0"}), "[wdi,gcm] bad parameter!\n");
  EXPECT_EQ(Refused({"net-control", "add", "3", setup.Write("empty.toml", "")}), "[wdi,ncadp] bad para!\n");
  EXPECT_EQ(Refused({"interface", "ltrkd"}), "[wdi,ltrkd]Windows MUST NOT trigger here!\n");
  EXPECT_EQ(Driver("grsp_switch"), "(none)");
  EXPECT_EQ(Driver("grpm_switch"), "(none)");
}

TEST_F(Control, MalformedNumbersAreBadUsage) {
  const auto misused = [this](const Arguments& arguments) {
    const Outcome outcome = setup.Control(arguments);
    EXPECT_EQ(outcome.code, 2) << outcome.out;
    return outcome.err;
  };
  EXPECT_EQ(misused({"grsp", "x"}), "fenlux-host: mode: must be an integer from 0 to 4294967295, not \"x\"\n");
  EXPECT_EQ(misused({"grdto", "4294967296"}),
            "fenlux-host: value: must be an integer from 0 to 4294967295, not \"4294967296\"\n");
  EXPECT_EQ(misused({"monitor", "send", "2x"}),
            "fenlux-host: type: must be an integer from -2147483648 to 2147483647, not \"2x\"\n");
}

TEST_F(Control, QueuesSendsAndClearsMonitorObjects) {
  EXPECT_EQ(Done({"monitor", "add", "1", "/a"}), "queued  yes\n");
  EXPECT_EQ(Done({"monitor", "add", "3", "/b"}), "queued  yes\n");
  EXPECT_EQ(Driver("monitored_type1.commits"), "0");
  EXPECT_EQ(Done({"monitor", "send", "1"}), "done\n");
  EXPECT_EQ(Driver("monitored_type1.committed"), R"(["/a"])");
  EXPECT_EQ(Driver("monitored_type3.committed"), "[]");
  EXPECT_EQ(Done({"monitor", "send", "3"}), "done\n");
  EXPECT_EQ(Driver("monitored_type3.committed"), R"(["/b"])");
  EXPECT_EQ(Done({"monitor", "clear", "1"}), "cleared  yes\n");
  EXPECT_EQ(Driver("monitored_type1.committed"), "[]");
  EXPECT_EQ(Driver("monitored_type3.committed"), R"(["/b"])");
}

TEST_F(Control, LoadsNetworkControlItemsFromAFileAndChangesTheMode) {
  const std::string digits = std::string(94, '0');
  const std::string file =
      setup.Write("items.toml", "[[items]]\nopaque = '" + digits + "a1'\nvalue = 5\n[[items]]\nopaque = '" + digits +
                                    "a2'\nvalue = 6\n");
  const std::string both = "[\"" + digits + "a1 5\",\"" + digits + "a2 6\"]";
  EXPECT_EQ(Done({"net-control", "add", "1", file}), "done\n");
  EXPECT_EQ(Driver("net_control_list1"), both);
  EXPECT_EQ(Driver("net_control_mode"), "0");
  EXPECT_EQ(Done({"net-control", "apply", file}), "done\n");
  EXPECT_EQ(Driver("net_control_list3"), both);
  EXPECT_EQ(Driver("net_control_mode"), "2");
  EXPECT_EQ(Done({"net-control", "apply", file, "--alternate"}), "done\n");
  EXPECT_EQ(Driver("net_control_mode"), "4");
  EXPECT_EQ(Done({"net-control", "mode1"}), "done\n");
  EXPECT_EQ(Driver("net_control_mode"), "1");
  EXPECT_EQ(Driver("net_control_list1"), "[]");
  EXPECT_EQ(Driver("net_control_list3"), "[]");
  EXPECT_EQ(Done({"net-control", "mode3"}), "done\n");
  EXPECT_EQ(Driver("net_control_mode"), "3");
}

TEST_F(Control, ReportsErrorsInAFileOfItemsAndSendsNothing) {
  const std::string file = setup.Write("items.toml", "[[items]]\nopaque = 'zz'\n");
  const Outcome outcome = setup.Control({"net-control", "apply", file});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.err, file + ":1:1: items[0].value: is missing\n" + file +
                             ":2:10: items[0].opaque: must be 96 hexadecimal digits\n");
  EXPECT_EQ(Driver("net_control_mode"), "0");
}

TEST_F(Control, RegistersSystemProcessesAndSendsTheConfiguration) {
  EXPECT_EQ(Done({"register-process", "2", "4711"}), "done\n");
  EXPECT_EQ(Driver("system_processes.2"), "4711");
  EXPECT_EQ(Done({"register-process", "3", "18446744073709551615"}), "done\n");
  EXPECT_EQ(Driver("system_processes.3"), "(none)");
  const std::string before = Driver("requests.24");
  EXPECT_EQ(Done({"send-config"}), "done\n");
  EXPECT_EQ(Driver("requests.24"), std::to_string(std::stoi(before) + 1));
  EXPECT_EQ(Done({"interface", "kernel-data", "5"}), "done\n");
}

TEST_F(Control, TheModuleReconnectsAfterAStop) {
  EXPECT_EQ(Done({"monitor", "add", "2", "/a"}), "queued  yes\n");
  EXPECT_EQ(Done({"monitor", "send", "2"}), "done\n");
  EXPECT_EQ(Done({"stop", "--clear"}), "done\n");
  EXPECT_EQ(Driver("monitored_type2.committed"), "[]");
  EXPECT_EQ(Refused({"version"}), "no driver connection is ready; the module retries every 5 seconds\n");
  EXPECT_EQ(Refused({"port-value"}), "DCI,Driver Interact NOT ready.\n");
  EXPECT_EQ(JsonValue(setup.ControlJson({"status"}), "registered_interfaces"), "[]");
  EXPECT_TRUE(host->WaitForError("Driver Interact Ready.", 2));
  EXPECT_TRUE(Eventually([&] { return Driver("config_block") == "4142"; }));
  EXPECT_EQ(Done({"interface", "stop"}), "done\n");
  EXPECT_TRUE(host->WaitForError("Driver interact exit.", 2));
  EXPECT_EQ(host->Stop().code, 0);
}

TEST(ControlWithoutAHost, ExitsWithThree) {
  const HostSetup setup;
  const Outcome outcome = setup.Control({"status"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.err, "fenlux-host: no host reachable on the control socket " + setup.Path().string() +
                             "/control/host.sock: No such file or directory\n");
}

TEST(ControlWithoutAHost, NamesEverySocketThatItTried) {
  if (::access("/run/fenlux/host.sock", F_OK) == 0) GTEST_SKIP() << "skipped, because this machine runs the service";
  const HostSetup setup;
  const Outcome outcome = setup.Run({"ctl", "status"});
  EXPECT_EQ(outcome.code, 3);
  const std::string own = "fenlux-host: no host reachable on the control socket " + setup.Path().string() +
                          "/fenlux/host.sock: No such file or directory; no host reachable on the control socket "
                          "/run/fenlux/host.sock: ";
  EXPECT_EQ(outcome.err.find(own), 0U) << outcome.err;
}

TEST(ControlSocket, IsTheUsersDefaultUnlessConfigured) {
  const HostSetup setup;
  setup.Write("host.toml", "");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  EXPECT_EQ(setup.Run({"ctl", "status"}).code, 0);
  EXPECT_EQ(setup.Run({"ctl", "--config", (setup.Path() / "host.toml").string(), "status"}).code, 0);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(ControlSocket, AFailureAtItsDefaultPathDoesNotStopTheHost) {
  const HostSetup setup;
  setup.Write("host.toml", "");
  setup.Write("fenlux", "");  // a file in place of the socket's directory
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready.")) << host.Err();
  EXPECT_TRUE(Contains(host.Err(),
                       "[host] running without a control socket, so `fenlux-host ctl` cannot reach this "
                       "host: the directory " +
                           setup.Path().string() + "/fenlux of the control socket must be owned by you"))
      << host.Err();
  // With --socket, because ctl would otherwise try the service's host next.
  const std::string socket = (setup.Path() / "fenlux/host.sock").string();
  EXPECT_EQ(setup.Run({"ctl", "--socket", socket, "status"}).code, 3);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(ControlSocket, AFailureAtAConfiguredPathIsAnError) {
  const HostSetup setup;
  setup.Write("host.toml", "");
  const std::string file = setup.Write("file", "text\n");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--socket", file, "--duration", "5"}));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "fenlux-host: cannot open the control socket " + file)) << outcome.err;
}

TEST(ControlSocket, CannotBeSharedByTwoHostsAtItsDefaultPath) {
  const HostSetup setup;
  setup.Write("host.toml", "");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  const Outcome second = setup.Run(RunArguments(setup));
  EXPECT_EQ(second.code, 2);
  EXPECT_TRUE(Contains(second.err, "another host is listening on the control socket ")) << second.err;
  EXPECT_EQ(host.Stop().code, 0);
}

TEST_F(Control, RefusesARequestBeyondTheLimitBeforeSendingIt) {
  std::string items;
  for (int count = 0; count < 11'000; ++count)
    items += "[[items]]\nopaque = '" + std::string(96, '0') + "'\nvalue = 5\n";
  const Outcome outcome = setup.Control({"net-control", "add", "1", setup.Write("items.toml", items)});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "a host accepts no more than 1048576; send fewer items at once")) << outcome.err;
}

TEST(ControlSocket, CannotBeSharedByTwoHosts) {
  const HostSetup setup;
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  const Outcome second = setup.Run(RunArguments(setup));
  EXPECT_EQ(second.code, 2);
  EXPECT_TRUE(Contains(second.err, "another host is listening on the control socket ")) << second.err;
  EXPECT_EQ(setup.Control({"status"}).code, 0);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(ControlSocket, OnTheCommandLineOverridesTheConfiguration) {
  const HostSetup setup;
  setup.WriteHost("");
  HostProcess first(setup, RunArguments(setup));
  ASSERT_TRUE(first.WaitForError("Driver Interact Ready."));
  const std::string socket = (setup.Path() / "other/host.sock").string();
  HostProcess second(setup, RunArguments(setup, {"--socket", socket}));
  ASSERT_TRUE(second.WaitForError("Driver Interact Ready."));
  EXPECT_EQ(setup.Run({"ctl", "--socket", socket, "monitor", "add", "1", "/a"}).code, 0);
  EXPECT_EQ(setup.Run({"ctl", "--socket", socket, "monitor", "send", "1"}).code, 0);
  const Outcome other = setup.Run({"ctl", "--socket", socket, "--json", "driver"});
  EXPECT_EQ(JsonValue(other.out, "monitored_type1.committed"), R"(["/a"])");
  EXPECT_EQ(JsonValue(setup.ControlJson({"driver"}), "monitored_type1.committed"), "[]");
  EXPECT_EQ(first.Stop().code, 0);
  EXPECT_EQ(second.Stop().code, 0);
}

TEST(ControlSocket, OnTheCommandLineConflictsWithADisabledChannel) {
  const HostSetup setup;
  setup.Write("host.toml", "[control]\nenabled = false\n");
  const Outcome outcome =
      setup.Run(RunArguments(setup, {"--socket", (setup.Path() / "host.sock").string(), "--duration", "5"}));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.err, "fenlux-host: --socket conflicts with [control] enabled = false\n");
}

TEST(ControlWithoutADriver, TheHostStaysUsable) {
  const HostSetup setup;
  setup.WriteHost("[emulator.faults]\nrefuse_connects = 1000\n");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[dci,tiwk,STDE] info="));
  EXPECT_EQ(JsonValue(setup.ControlJson({"status"}), "ready"), "false");
  EXPECT_EQ(setup.Control({"grsp", "1"}).code, 1);
  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
}

}  // namespace
}  // namespace fenlux::testing
