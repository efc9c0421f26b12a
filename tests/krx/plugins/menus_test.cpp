#include "plugins/menus.h"

#include <gtest/gtest.h>

#include "krx/plugins/plugin_test_support.h"

namespace KRX::rt {
namespace {

class PluginMenuTest : public PluginFixture {};

TEST_F(PluginMenuTest, InitAddsItemsAndClicksRunTheirCallbacks) {
  EXPECT_TRUE(Menus().empty());
  LoadTestPlugin();
  const std::vector<MenuRecord> menus = Menus();
  ASSERT_EQ(menus.size(), 2u);
  EXPECT_EQ(menus[0].name, CString("Test Menu"));
  EXPECT_EQ(menus[0].anchor, 218);
  ASSERT_EQ(menus[0].items.size(), 1u);
  EXPECT_EQ(menus[0].items[0].label, CString("Do Test"));
  EXPECT_EQ(menus[0].items[0].callback, CString("TestMenuItem"));
  EXPECT_EQ(menus[1].name, CString("Second Menu"));
  EXPECT_TRUE(menus[1].submenu && menus[1].dynamic);
  ASSERT_EQ(menus[1].items.size(), 2u);
  EXPECT_EQ(menus[1].items[0].label, CString("Alpha"));
  EXPECT_EQ(menus[1].items[1].callback, CString("ThrowingItem"));

  {  // The item callback's context has the menu as its source.
    EXPECT_EQ(InvokeMenuItem(L"Do Test"), CStatus::OK);
    EXPECT_EQ(Notes(), std::vector<std::string>{"menu item source=Test Menu"});
  }
  {  // The callback's status comes back as it is.
    EXPECT_EQ(InvokeMenuItem(L"Alpha"), CStatus::Abort);
  }
  {  // A throwing item (it throws an int) is logged.
    ClearLog();
    EXPECT_EQ(InvokeMenuItem(L"Beta"), CStatus::Fail);
    EXPECT_TRUE(Logged(kSeverityError, {"ThrowingItem", "unknown exception"}));
  }
  {
    ClearLog();
    EXPECT_NE(InvokeMenuItem(L"Gamma"), CStatus::OK);
    EXPECT_TRUE(Logged(kSeverityError, {"Gamma"}));
  }
  UnloadAllPlugins();
  EXPECT_TRUE(Menus().empty());
}

}  // namespace
}  // namespace KRX::rt
