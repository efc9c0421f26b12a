// Loading plug-in modules: what they register, finding their callbacks, refusing bad
// modules, their menus and scene events.
#include "plugins/plugin_loader.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "krx/plugins/plugin_test_support.h"
#include "plugins/menus.h"
#include "plugins/scene_events.h"
#include "runtime/callbacks.h"
#include "runtime/commands.h"

namespace KRX::rt {
namespace {

class PluginLoaderTest : public PluginFixture {};

// The order of registration steps is checked on the real module by the end-to-end suite.
TEST_F(PluginLoaderTest, RegistrationsAndCallbacksAreFoundByNameUntilUnloaded) {
  EXPECT_EQ(CallbackPrefix(L"Rig to Rig"), "RigtoRig");
  EXPECT_EQ(CallbackPrefix(L" Tag\tRig "), "TagRig");
  EXPECT_EQ(FindCallback(L"Echo Args", "_Init"), nullptr);  // nothing loaded yet
  LoadTestPlugin();
  ASSERT_EQ(LoadedPlugins().size(), 1u);
  EXPECT_EQ(LoadedPlugins()[0].path, KRX_TEST_PLUGIN_PATH);
  ASSERT_EQ(LoadedPlugins()[0].events.size(), 1u);
  EXPECT_EQ(LoadedPlugins()[0].events[0].event_id, 5);
  EXPECT_TRUE(IsRegisteredOperator(L"Test Op"));
  EXPECT_FALSE(IsRegisteredOperator(L"TestOp"));  // names match exactly
  EXPECT_TRUE(IsRegisteredProperty(L"BareProp"));
  EXPECT_FALSE(IsRegisteredProperty(L"Echo Args"));
  EXPECT_TRUE(IsPluginCommand(L"Echo Args"));  // by its name and by its script name
  EXPECT_TRUE(IsPluginCommand(L"EchoArgs"));
  CallbackFn init = FindCallback(L"Echo Args", "_Init");
  ASSERT_NE(init, nullptr);
  EXPECT_EQ(init, FindCallbackSymbol("EchoArgs_Init"));
  EXPECT_EQ(FindCallback(L"Test Op", "_Define"), nullptr);
  {  // A callback that does not exist is not an error.
    CRef context;
    bool found = true;
    EXPECT_EQ(InvokeCallback(L"OtherOp", "_Term", context, &found), CStatus::OK);
    EXPECT_FALSE(found);
  }
  UnloadAllPlugins();
  EXPECT_EQ(FindCallback(L"Echo Args", "_Init"), nullptr);
  EXPECT_FALSE(IsPluginCommand(L"Echo Args"));
  EXPECT_FALSE(IsRegisteredOperator(L"Test Op"));
}

// The registrar a refused plug-in saw, kept to show that it is inert afterwards.
PluginRegistrar g_kept_registrar;

CStatus FailingEntry(PluginRegistrar& reg) {
  reg.PutName(L"Failing");
  reg.RegisterCommand(L"Orphan", L"Orphan");
  return CStatus::Fail;
}

CStatus ThrowingEntry(PluginRegistrar& reg) {
  reg.PutName(L"Throwing");
  throw std::runtime_error("entry exploded");
}

CStatus KeepingEntry(PluginRegistrar& reg) {
  reg.PutName(L"Keeper");
  g_kept_registrar = reg;
  return CStatus::OK;
}

TEST_F(PluginLoaderTest, RefusesBadModulesAndLeavesNothingBehind) {
  std::string error;
  EXPECT_FALSE(LoadPlugin("/nonexistent/libnothing.so", &error));
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(LoadPlugin("libm.so.6", &error));  // no entry point
  EXPECT_NE(error.find("KRXLoadPlugin"), std::string::npos) << error;
  EXPECT_FALSE(LoadInProcessPlugin(&FailingEntry, nullptr, &error));
  EXPECT_NE(error.find("status 1"), std::string::npos) << error;
  EXPECT_FALSE(IsPluginCommand(L"Orphan"));
  EXPECT_FALSE(LoadInProcessPlugin(&ThrowingEntry, nullptr, &error));
  EXPECT_NE(error.find("entry exploded"), std::string::npos) << error;
  EXPECT_TRUE(LoadedPlugins().empty());
  {  // The same module twice.
    LoadTestPlugin();
    EXPECT_FALSE(LoadPlugin(KRX_TEST_PLUGIN_PATH, &error));
    EXPECT_NE(error.find("already loaded"), std::string::npos) << error;
    EXPECT_EQ(LoadedPlugins().size(), 1u);
  }
  {  // A registrar kept past the entry point registers nothing.
    ASSERT_TRUE(LoadInProcessPlugin(&KeepingEntry, nullptr));
    EXPECT_NE(g_kept_registrar.RegisterCommand(L"Late", L"Late"), CStatus::OK);
    EXPECT_FALSE(IsPluginCommand(L"Late"));
  }
}

CStatus LocalEntry(PluginRegistrar& reg) {
  reg.PutName(L"Local");
  reg.RegisterCommand(L"Local Cmd", L"LocalCmd");
  return CStatus::OK;
}

CStatus LocalCmdInit(CRef& ctxt) {
  return Command(Context(ctxt).GetSource()).EnableReturnValue(true);
}

CStatus LocalCmdExecute(CRef& ctxt) { return Context(ctxt).PutAttribute(L"ReturnValue", 11); }

CStatus LocalCmdOverride(CRef& ctxt) { return Context(ctxt).PutAttribute(L"ReturnValue", 22); }

TEST_F(PluginLoaderTest, InProcessPluginsResolveThroughTheirTable) {
  ASSERT_TRUE(LoadInProcessPlugin(&LocalEntry, ResolveFromTable({
                                                   {"LocalCmd_Init", &LocalCmdInit},
                                                   {"LocalCmd_Execute", &LocalCmdExecute},
                                               })));
  CValue result;
  ASSERT_EQ(ExecutePluginCommand(L"Local Cmd", {}, result), CStatus::OK);
  EXPECT_EQ(result.GetInt(), 11);
  // An in-process callback is found before any plug-in's own.
  RegisterInProcessCallback("LocalCmd_Execute", &LocalCmdOverride);
  ASSERT_EQ(ExecutePluginCommand(L"LocalCmd", {}, result), CStatus::OK);
  EXPECT_EQ(result.GetInt(), 22);
  ClearInProcessCallbacks();
  ASSERT_EQ(ExecutePluginCommand(L"LocalCmd", {}, result), CStatus::OK);
  EXPECT_EQ(result.GetInt(), 11);
}

TEST_F(PluginLoaderTest, MenuItemsRunTheirCallbacksAndGiveTheirStatus) {
  LoadTestPlugin();
  const std::vector<MenuRecord> menus = Menus();
  ASSERT_EQ(menus.size(), 2u);
  EXPECT_TRUE(menus[1].submenu && menus[1].dynamic);
  EXPECT_EQ(menus[1].items.size(), 2u);
  // An item runs its own callback, with the menu as the context's source; the callback's
  // status comes back as it is; a throwing item (it throws an int) and an unknown item are
  // logged.
  EXPECT_EQ(InvokeMenuItem(L"Do Test"), CStatus::OK);
  EXPECT_EQ(Notes(), std::vector<std::string>{"menu item source=Test Menu"});
  EXPECT_EQ(InvokeMenuItem(L"Alpha"), CStatus::Abort);
  EXPECT_EQ(InvokeMenuItem(L"Beta"), CStatus::Fail);
  EXPECT_TRUE(Logged(kSeverityError, {"ThrowingItem", "unknown exception"}));
  EXPECT_NE(InvokeMenuItem(L"Gamma"), CStatus::OK);
  EXPECT_TRUE(Logged(kSeverityError, {"Gamma"}));
  UnloadAllPlugins();
  EXPECT_TRUE(Menus().empty());
}

int g_open_scene_calls = 0;

CStatus CountOpenScene(CRef&) {
  ++g_open_scene_calls;
  return CStatus::OK;
}

TEST_F(PluginLoaderTest, SceneEventsReachEveryModuleOnce) {
  LoadTestPlugin();
  g_open_scene_calls = 0;
  RegisterInProcessCallback(kOpenSceneCallback, &CountOpenScene);
  FireSceneEvent(false);
  EXPECT_EQ(Notes(), std::vector<std::string>{"new scene, source valid=no"});
  EXPECT_EQ(g_open_scene_calls, 0);
  ClearLog();
  FireSceneEvent(true);
  // The module's own callback and the in-process one both run, each once.
  EXPECT_EQ(Notes(), std::vector<std::string>{"open scene"});
  EXPECT_EQ(g_open_scene_calls, 1);

  {  // The same function reached by two routes still runs once.
    RegisterInProcessCallback(kNewSceneCallback, FindCallbackSymbol(kNewSceneCallback));
    ClearLog();
    FireSceneEvent(false);
    EXPECT_EQ(Notes().size(), 1u);
  }
}

}  // namespace
}  // namespace KRX::rt
