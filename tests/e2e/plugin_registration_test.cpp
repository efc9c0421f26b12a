// The module's registration as the host's loader records it. The commands are checked with their
// arguments in command_checks_test.cpp, the menus with their items in menus_test.cpp.
#include <string>
#include <vector>

#include "e2e/kavor_module.h"

namespace kavor::e2e {
namespace {

using KRX::rt::RegistrationKind;

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
  EXPECT_EQ(Narrow(info.properties),
            (std::vector<std::string>{"MocapToRig", "TagPPG", "RetargetAdjustPPG", "KavorFilePPG",
                                      "RotationOffsetPPG", "PlotRetargetPPG", "MocapPPG",
                                      "TagRigPPG", "RigToRigPPG", "MocapToRigPPG"}));
  EXPECT_EQ(Narrow(info.operators),
            (std::vector<std::string>{"RetargetOp", "RetargetUpVOp", "RetargetGlobalOp",
                                      "RetargetDecompOp", "RetargetSpineOp",
                                      "RetargetSymmetrySpecialOp", "RetargetSymmetryOp"}));
  EXPECT_TRUE(info.events.empty());

  // The registrar saw author, name and version first, then each family as a block.
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

}  // namespace
}  // namespace kavor::e2e
