// The plug-in's menus as the host recorded them, and what their items do.
#include "plugins/menus.h"

#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "runtime/log.h"

namespace kavor::e2e {
namespace {

using MenuTest = KavorModuleTest;

struct ExpectedMenu {
  std::string name;
  std::string label;
  std::string callback;
  std::string note;  // the warning choosing the item gives with nothing selected
};

const std::vector<ExpectedMenu> kMenus = {
    {"Tag Rig", "Tag Rig", "TagMenuItem", "Please select the desired character."},
    {"Rig to Rig", "Rig to Rig", "RigToRigMenuItem", "The Rig to Rig page is not available yet."},
    {"Mocap to Rig", "Mocap to Rig", "MocapToRigMenuItem",
     "The Mocap to Rig page is not available yet."},
    {"SaveKavorFileMenu", "Save Motion", "SaveKavorFileMenuItem",
     "The motion file page is not available yet."},
    {"LoadKavorFileMenu", "Load Motion", "LoadKavorFileMenuItem",
     "The motion file page is not available yet."},
};

TEST_F(MenuTest, EachMenuHasOneItem) {
  std::vector<KRX::rt::MenuRecord> ours;
  for (const KRX::rt::MenuRecord& menu : KRX::rt::Menus()) {
    if (menu.anchor == 218) ours.push_back(menu);
  }
  ASSERT_EQ(ours.size(), kMenus.size());
  for (size_t i = 0; i < kMenus.size(); ++i) {
    SCOPED_TRACE(kMenus[i].name);
    EXPECT_EQ(ours[i].name.GetAsciiString(), kMenus[i].name);
    EXPECT_FALSE(ours[i].submenu);
    EXPECT_FALSE(ours[i].dynamic);
    ASSERT_EQ(ours[i].items.size(), 1u);
    EXPECT_EQ(ours[i].items[0].label.GetAsciiString(), kMenus[i].label);
    EXPECT_EQ(ours[i].items[0].callback.GetAsciiString(), kMenus[i].callback);
  }
}

TEST_F(MenuTest, ItemsSucceedWhateverThePageDoes) {
  for (const ExpectedMenu& menu : kMenus) {
    SCOPED_TRACE(menu.label);
    KRX::rt::ClearLog();
    EXPECT_EQ(KRX::rt::InvokeMenuItem(KRX::CString(menu.label)), KRX::CStatus::OK);
    EXPECT_EQ(LoggedTexts(KRX::kSeverityWarning), std::vector<std::string>{menu.note});
    EXPECT_TRUE(LoggedTexts(KRX::kSeverityError).empty());
  }
}

}  // namespace
}  // namespace kavor::e2e
