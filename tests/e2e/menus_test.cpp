// The plug-in's menus as the host recorded them, and what their items do.
#include "plugins/menus.h"

#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "runtime/log.h"

namespace kavor::e2e {
namespace {

using MenuTest = KavorModuleTest;

// In registration order, all plain menus at anchor 218, each with one item that succeeds
// whatever its page does.
TEST_F(MenuTest, EachMenuHasOneItem) {
  const struct {
    std::string name;
    std::string label;
    std::string callback;
    std::string note;  // the warning choosing the item gives with nothing selected
  } expected[] = {
      {"Tag Rig", "Tag Rig", "TagMenuItem", "Please select the desired character."},
      {"Rig to Rig", "Rig to Rig", "RigToRigMenuItem", "The Rig to Rig page is not available yet."},
      {"Mocap to Rig", "Mocap to Rig", "MocapToRigMenuItem",
       "The Mocap to Rig page is not available yet."},
      {"SaveKavorFileMenu", "Save Motion", "SaveKavorFileMenuItem",
       "The motion file page is not available yet."},
      {"LoadKavorFileMenu", "Load Motion", "LoadKavorFileMenuItem",
       "The motion file page is not available yet."},
  };
  const std::vector<KRX::rt::MenuRecord> menus = KRX::rt::Menus();
  ASSERT_EQ(menus.size(), std::size(expected));
  for (size_t i = 0; i < menus.size(); ++i) {
    SCOPED_TRACE(expected[i].name);
    EXPECT_EQ(menus[i].name.GetAsciiString(), expected[i].name);
    EXPECT_EQ(menus[i].anchor, 218);
    EXPECT_FALSE(menus[i].submenu);
    EXPECT_FALSE(menus[i].dynamic);
    ASSERT_EQ(menus[i].items.size(), 1u);
    EXPECT_EQ(menus[i].items[0].label.GetAsciiString(), expected[i].label);
    EXPECT_EQ(menus[i].items[0].callback.GetAsciiString(), expected[i].callback);

    KRX::rt::ClearLog();
    EXPECT_EQ(KRX::rt::InvokeMenuItem(KRX::CString(expected[i].label)), KRX::CStatus::OK);
    EXPECT_EQ(LoggedTexts(KRX::kSeverityWarning), std::vector<std::string>{expected[i].note});
    EXPECT_TRUE(LoggedTexts(KRX::kSeverityError).empty());
  }
}

}  // namespace
}  // namespace kavor::e2e
