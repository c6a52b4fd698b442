// `fenlux-host run` with unusable modules: exit code 3 and the reason.
#include <gtest/gtest.h>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

std::string BadModule(const std::string& name) {
  return FENLUX_PROGRAM_DIRECTORY "/libfenlux_bad_module_" + name + ".so";
}

Outcome RunWith(const std::string& module) {
  const HostSetup setup;
  setup.WriteHost("");
  return setup.Run(RunArguments(setup, {"--module", module, "--duration", "5"}));
}

TEST(ModuleLoading, SaysThatTheLibraryIsMissing) {
  const Outcome outcome = RunWith("/no/such/module.so");
  EXPECT_EQ(outcome.code, 3);
  EXPECT_TRUE(Contains(outcome.err, "fenlux-host: cannot load the module: /no/such/module.so: ")) << outcome.err;
}

TEST(ModuleLoading, SaysThatTheFileIsNotALibrary) {
  const HostSetup setup;
  setup.WriteHost("");
  const std::string file = setup.Write("module.so", "this is text\n");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--module", file}));
  EXPECT_EQ(outcome.code, 3);
  EXPECT_TRUE(Contains(outcome.err, "fenlux-host: cannot load the module: " + file)) << outcome.err;
}

TEST(ModuleLoading, SaysThatTheLibraryHasNoInit) {
  const Outcome outcome = RunWith(BadModule("no_init"));
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.err, "fenlux-host: the module " + BadModule("no_init") + " has no init\n");
}

TEST(ModuleLoading, RepeatsTheMessageOfAFailingInit) {
  const Outcome outcome = RunWith(BadModule("init_throws"));
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.err, "fenlux-host: the module's init failed: bad log init!\n");
}

TEST(ModuleLoading, SurvivesAnInitThatThrowsAnInt) {
  const Outcome outcome = RunWith(BadModule("init_throws_an_int"));
  EXPECT_EQ(outcome.code, 3);
  EXPECT_TRUE(Contains(outcome.err, "fenlux-host: the module's init failed: ")) << outcome.err;
}

TEST(ModuleLoading, SaysThatNoModuleWasRegistered) {
  const Outcome outcome = RunWith(BadModule("init_registers_nothing"));
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.err, "fenlux-host: the module's init did not register a module\n");
}

TEST(ModuleLoading, RepeatsTheMessageOfAFailingStart) {
  const Outcome outcome = RunWith(BadModule("start_work_throws"));
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.err, "fenlux-host: the module failed to start its work: no thread today\n");
}

TEST(ModuleLoading, TakesTheLibraryFromTheConfiguration) {
  const HostSetup setup;
  setup.WriteHost("[module]\nlibrary = '" + BadModule("init_throws") + "'\n");
  EXPECT_EQ(setup.Run(RunArguments(setup)).err, "fenlux-host: the module's init failed: bad log init!\n");
}

}  // namespace
}  // namespace fenlux::testing
