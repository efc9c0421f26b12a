#include <gtest/gtest.h>

#include <stdexcept>

#include "krx/plugins/plugin_test_support.h"
#include "runtime/commands.h"

namespace KRX::rt {
namespace {

class PluginCommandTest : public PluginFixture {
 protected:
  void SetUp() override {
    PluginFixture::SetUp();
    LoadTestPlugin();
  }
};

// "Echo Args" declares (first = empty, second = 7, third = "three") and returns the
// "Arguments" array it received.
TEST_F(PluginCommandTest, ArgumentsArriveInDeclaredOrderWithDefaults) {
  auto run = [](const CValueArray& args) {
    CValue result;
    EXPECT_EQ(ExecutePluginCommand(L"Echo Args", args, result), CStatus::OK);
    return result.GetArray();
  };
  // Nothing given: every default; leading arguments given, trailing ones defaulted; an empty
  // value in the middle stands for an argument left out.
  EXPECT_EQ(run({}), (CValueArray{CValue(), CValue(7), CValue("three")}));
  EXPECT_EQ(run({CValue("a")}), (CValueArray{CValue("a"), CValue(7), CValue("three")}));
  EXPECT_EQ(run({CValue(1.5), CValue(), CValue(false)}),
            (CValueArray{CValue(1.5), CValue(7), CValue(false)}));
  {  // More arguments than declared: refused before _Execute runs.
    CValue result = 1;
    EXPECT_NE(ExecutePluginCommand(L"EchoArgs", {1, 2, 3, 4}, result), CStatus::OK);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_TRUE(Logged(kSeverityError, {"Echo Args", "3 argument", "4 were given"}));
  }
  PluginCommandInfo info;
  ASSERT_TRUE(DescribePluginCommand(L"EchoArgs", &info));
  EXPECT_EQ(info.name, CString("Echo Args"));
  ASSERT_EQ(info.argument_names.size(), 3u);
  EXPECT_EQ(info.argument_names[1], CString("second"));
  EXPECT_TRUE(info.return_value);
}

TEST_F(PluginCommandTest, ReturnValueOnlyWhenEnabled) {
  CValue result = 5;
  ASSERT_EQ(ExecutePluginCommand(L"NoReturn", {CValue("q")}, result), CStatus::OK);
  // NoReturn stored 99 as "ReturnValue" without enabling a return value.
  EXPECT_TRUE(result.IsEmpty());
  EXPECT_EQ(Notes(), std::vector<std::string>{"NoReturn x=q"});
  PluginCommandInfo info;
  ASSERT_TRUE(DescribePluginCommand(L"NoReturn", &info));
  EXPECT_EQ(info.flags, kCommandFlagNoLogging);
}

TEST_F(PluginCommandTest, FailuresAreLoggedAndNeverThrown) {
  CValue result = 1;
  {  // A throwing _Execute; the command stays usable.
    EXPECT_EQ(ExecutePluginCommand(L"ThrowUp", {}, result), CStatus::Fail);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_TRUE(Logged(kSeverityError, {"ThrowUp_Execute", "boom"}));
    EXPECT_EQ(ExecutePluginCommand(L"ThrowUp", {}, result), CStatus::Fail);
  }
  {  // A failing _Init: _Execute never runs.
    EXPECT_NE(ExecutePluginCommand(L"BadInit", {}, result), CStatus::OK);
    EXPECT_TRUE(Logged(kSeverityError, {"BadInit", "initialisation failed"}));
    EXPECT_FALSE(DescribePluginCommand(L"BadInit", nullptr));
  }
  EXPECT_EQ(ExecutePluginCommand(L"NoExecute", {}, result), CStatus::Fail);
  EXPECT_TRUE(Logged(kSeverityError, {"NoExecute", "no _Execute"}));
  EXPECT_EQ(ExecutePluginCommand(L"Nope", {}, result), CStatus::Fail);
  EXPECT_TRUE(Notes().empty());  // BadInit_Execute did not run
}

TEST_F(PluginCommandTest, HostCommandsRunByName) {
  RegisterHostCommand(L"ZzTestSum", [](const CValueArray& args, CValue& result) {
    double sum = 0;
    for (const CValue& v : args) sum += v.GetDouble();
    result = sum;
    return CStatus::OK;
  });
  RegisterHostCommand(L"ZzTestThrow", [](const CValueArray&, CValue&) -> CStatus {
    throw std::logic_error("host bug");
  });
  EXPECT_FALSE(IsHostCommand(L"zztestsum"));
  CValue result;
  ASSERT_EQ(ExecuteHostCommand(L"ZzTestSum", {1, 2.5, CValue("4")}, result), CStatus::OK);
  EXPECT_DOUBLE_EQ(result.GetDouble(), 7.5);
  EXPECT_EQ(ExecuteHostCommand(L"ZzTestThrow", {}, result), CStatus::Fail);
  EXPECT_TRUE(result.IsEmpty());
  EXPECT_TRUE(Logged(kSeverityError, {"ZzTestThrow", "host bug"}));
  EXPECT_EQ(ExecuteHostCommand(L"ZzTestMissing", {}, result), CStatus::Fail);
}

}  // namespace
}  // namespace KRX::rt
