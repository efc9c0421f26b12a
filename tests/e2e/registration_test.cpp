// The module's registration as the host's loader records it: identity, properties,
// operators, the order of the families, and the menus with what their items do. The
// commands are checked with their arguments in command_checks_test.cpp.
#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "plugins/menus.h"
#include "runtime/log.h"

namespace kavor::e2e {
namespace {

using KRX::rt::RegistrationKind;
using Texts = std::vector<std::string>;

Texts Narrow(const std::vector<KRX::CString>& texts) {
  Texts out;
  for (const KRX::CString& text : texts) out.push_back(text.GetAsciiString());
  return out;
}

using RegistrationTest = KavorModuleTest;

TEST_F(RegistrationTest, RegistersEverythingOnceInOrder) {
  const KRX::rt::LoadedPluginInfo& info = *module_;
  EXPECT_FALSE(info.author.IsEmpty());
  EXPECT_EQ(info.name.GetAsciiString(), "KAVOR Plug-in");
  EXPECT_EQ(info.version_major * 100 + info.version_minor, 300);
  EXPECT_EQ(Narrow(info.properties),
            (Texts{"MocapToRig", "TagPPG", "RetargetAdjustPPG", "KavorFilePPG", "RotationOffsetPPG",
                   "PlotRetargetPPG", "MocapPPG", "TagRigPPG", "RigToRigPPG", "MocapToRigPPG"}));
  EXPECT_EQ(Narrow(info.operators),
            (Texts{"RetargetOp", "RetargetUpVOp", "RetargetGlobalOp", "RetargetDecompOp",
                   "RetargetSpineOp", "RetargetSymmetrySpecialOp", "RetargetSymmetryOp"}));
  EXPECT_TRUE(info.events.empty());
  // Author, name and version first, then each family as a block.
  std::vector<RegistrationKind> expected = {RegistrationKind::Author, RegistrationKind::Name,
                                            RegistrationKind::Version};
  expected.insert(expected.end(), 21, RegistrationKind::Command);
  expected.insert(expected.end(), 10, RegistrationKind::Property);
  expected.insert(expected.end(), 5, RegistrationKind::Menu);
  expected.insert(expected.end(), 7, RegistrationKind::Operator);
  std::vector<RegistrationKind> kinds;
  for (const KRX::rt::RegistrationStep& step : info.steps) kinds.push_back(step.kind);
  EXPECT_EQ(kinds, expected);
}

// Plain menus at anchor 218, in order, each with one item that succeeds whatever its page
// does; with nothing selected each item says why it shows nothing.
TEST_F(RegistrationTest, EachMenuHasOneItem) {
  const struct {
    std::string name, label, callback, note;
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
    EXPECT_FALSE(menus[i].submenu || menus[i].dynamic);
    ASSERT_EQ(menus[i].items.size(), 1u);
    EXPECT_EQ(menus[i].items[0].label.GetAsciiString(), expected[i].label);
    EXPECT_EQ(menus[i].items[0].callback.GetAsciiString(), expected[i].callback);
    KRX::rt::ClearLog();
    EXPECT_EQ(KRX::rt::InvokeMenuItem(KRX::CString(expected[i].label)), KRX::CStatus::OK);
    EXPECT_EQ(LoggedTexts(KRX::kSeverityWarning), Texts{expected[i].note});
    EXPECT_TRUE(LoggedTexts(KRX::kSeverityError).empty());
  }
}

}  // namespace
}  // namespace kavor::e2e
