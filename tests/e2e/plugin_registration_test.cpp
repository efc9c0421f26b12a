// The module's registration as the host's loader records it, and the callbacks it exports.
#include <string>
#include <vector>

#include "e2e/kavor_module.h"

namespace kavor::e2e {
namespace {

using KRX::rt::RegistrationKind;

const std::vector<std::string> kExpectedCommands = {
    "Retarget",
    "RetargetBVH",
    "RetargetC3DData",
    "ImportC3DFile",
    "SaveC3DPoseMap",
    "SetTagValue",
    "SaveTagTemplateFile",
    "LoadTagTemplateFile",
    "InheritRetargetSetup",
    "ApplyTagsToRig",
    "CleanTagsFromRig",
    "SetStructureFile",
    "RetargetExtractStartFrame",
    "RetargetExtractEndFrame",
    "LoadKavorFile",
    "SaveKavorFile",
    "RemoveAllKavorPropsAndOps",
    "PlotRetargetMotion",
    "RemoveKAVOROperators",
    "SaveKAVORAdjustmentPresetFile",
    "LoadKAVORAdjustmentPresetFile",
};

const std::vector<std::string> kExpectedProperties = {
    "MocapToRig",      "TagPPG",   "RetargetAdjustPPG", "KavorFilePPG", "RotationOffsetPPG",
    "PlotRetargetPPG", "MocapPPG", "TagRigPPG",         "RigToRigPPG",  "MocapToRigPPG",
};

const std::vector<std::string> kExpectedMenus = {
    "Tag Rig", "Rig to Rig", "Mocap to Rig", "SaveKavorFileMenu", "LoadKavorFileMenu",
};

const std::vector<std::string> kExpectedOperators = {
    "RetargetOp",         "RetargetUpVOp",   "RetargetGlobalOp",
    "RetargetDecompOp",   "RetargetSpineOp", "RetargetSymmetrySpecialOp",
    "RetargetSymmetryOp",
};

std::vector<std::string> Narrow(const std::vector<KRX::CString>& texts) {
  std::vector<std::string> out;
  for (const KRX::CString& text : texts) out.push_back(text.GetAsciiString());
  return out;
}

using RegistrationTest = KavorModuleTest;

TEST_F(RegistrationTest, RegistersEverythingOnceInOrder) {
  const KRX::rt::LoadedPluginInfo& info = *module_;
  EXPECT_FALSE(info.author.IsEmpty());
  EXPECT_EQ(info.name.GetAsciiString(), "KAVOR Plug-in");
  EXPECT_EQ(info.version_major, 3);
  EXPECT_EQ(info.version_minor, 0);

  {  // Commands, each with its script name equal to its name.
    std::vector<std::string> names;
    for (const KRX::rt::RegisteredCommand& command : info.commands) {
      names.push_back(command.name.GetAsciiString());
      EXPECT_EQ(command.script_name, command.name);
    }
    EXPECT_EQ(names, kExpectedCommands);
  }
  EXPECT_EQ(Narrow(info.properties), kExpectedProperties);
  {  // Menus: one anchor, plain menus.
    std::vector<std::string> names;
    for (const KRX::rt::RegisteredMenu& menu : info.menus) {
      names.push_back(menu.name.GetAsciiString());
      EXPECT_EQ(menu.anchor, 218) << names.back();
      EXPECT_FALSE(menu.submenu) << names.back();
      EXPECT_FALSE(menu.dynamic) << names.back();
    }
    EXPECT_EQ(names, kExpectedMenus);
  }
  EXPECT_EQ(Narrow(info.operators), kExpectedOperators);
  EXPECT_TRUE(info.events.empty());

  {  // The registrar saw author, name and version first, then each family as a block.
    std::vector<RegistrationKind> expected = {RegistrationKind::Author, RegistrationKind::Name,
                                              RegistrationKind::Version};
    expected.insert(expected.end(), 21, RegistrationKind::Command);
    expected.insert(expected.end(), 10, RegistrationKind::Property);
    expected.insert(expected.end(), 5, RegistrationKind::Menu);
    expected.insert(expected.end(), 7, RegistrationKind::Operator);
    std::vector<RegistrationKind> kinds;
    for (const KRX::rt::RegistrationStep& step : info.steps) kinds.push_back(step.kind);
    EXPECT_EQ(kinds, expected);
    ASSERT_EQ(info.steps.size(), expected.size());
    EXPECT_EQ(info.steps[1].name.GetAsciiString(), "KAVOR Plug-in");
    EXPECT_EQ(info.steps[2].name.GetAsciiString(), "3.0");
  }
}

}  // namespace
}  // namespace kavor::e2e
