// Application: command dispatch, the command history, installation paths, the current
// frame and object creation.
#include <gtest/gtest.h>

#include <cstdlib>

#include "krx/app/app_test_support.h"
#include "plugins/plugin_loader.h"
#include "runtime/commands.h"

namespace KRX::rt {
namespace {

class ApplicationTest : public AppFixture {
 protected:
  void SetUp() override {
    UnloadAllPlugins();
    AppFixture::SetUp();
    std::string error;
    ASSERT_TRUE(LoadPlugin(KRX_TEST_PLUGIN_PATH, &error)) << error;
  }
  void TearDown() override {
    AppFixture::TearDown();
    UnloadAllPlugins();
  }
};

TEST_F(ApplicationTest, UnknownCommandFailsWithAMessage) {
  CValue result = CValue(5);
  EXPECT_EQ(Application().ExecuteCommand(L"NoSuchCommand", {1, L"x"}, result), CStatus::Fail);
  EXPECT_TRUE(result.IsEmpty());
  ASSERT_EQ(LogLines().size(), 1u);
  EXPECT_EQ(LogLines()[0].text, CString("unknown command: NoSuchCommand"));
  EXPECT_EQ(LogLines()[0].severity, kSeverityError);
}

TEST_F(ApplicationTest, CommandHistoryFollowsTheCommandLogPreference) {
  RegisterHostCommand(L"TestNested", [](const CValueArray&, CValue&) {
    CValue ignored;
    return Application().ExecuteCommand(L"DeselectAll", {}, ignored);
  });
  Run(L"TestNested", {});
  // A plug-in command runs by name, its defaults filled in, and gives back its value.
  EXPECT_EQ(Run(L"Echo Args", {L"x\"y", CValue(), true}),
            CValue(CValueArray{CValue("x\"y"), CValue(7), CValue(true)}));
  Run(L"NoReturn", {1});  // flagged: never written
  Run(L"SetValue", {CString(kCommandLogPreference), false});
  Run(L"DeselectAll", {});  // logging is off now
  Run(L"SetValue", {CString(kCommandLogPreference), 1});
  Run(L"DeselectAll", {});
  EXPECT_EQ(CommandHistory(),
            (std::vector<std::string>{"TestNested()",  // the DeselectAll it ran is not written
                                      "Echo Args(\"x\\\"y\", null, true)",
                                      "SetValue(\"preferences.scripting.cmdlog\", false)",
                                      "DeselectAll()"}));
}

// Paths set by the application are read by the plug-in suites; the environment is the
// fallback, and indices past the last slot give nothing.
TEST_F(ApplicationTest, InstallationPathsFallBackOnTheEnvironment) {
  ::setenv("KRX_INSTALL_PATH_4", "/opt/krx/factory", 1);
  EXPECT_EQ(Application().GetInstallationPath(4), CString("/opt/krx/factory"));
  EXPECT_EQ(Application().GetInstallationPath(5), CString());
}

TEST_F(ApplicationTest, CreateObjectMakesScriptingObjectsAndRegisteredOperators) {
  const Application app;
  EXPECT_TRUE(ScriptingObject(app.CreateObject(L"KRX.UIToolkit")).IsValid());
  EXPECT_FALSE(app.CreateObject(L"Unregistered Op").IsValid());
  EXPECT_TRUE(Logged(kSeverityError, "Unregistered Op"));
  const CustomOperator op(app.CreateObject(L"Test Op"));
  ASSERT_TRUE(op.IsValid());
  EXPECT_FALSE(op.IsConnected());
  const CustomOperator line = app.CreateScriptedOp(L"ConnectionLine", L"// script", L"JScript");
  EXPECT_EQ(line.GetName(), CString("ConnectionLine"));
}

}  // namespace
}  // namespace KRX::rt
