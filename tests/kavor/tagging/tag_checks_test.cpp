// The tag page's checks: each rule of a single choice with its message, the mirror fill,
// and the checks of a whole tagging.
#include <gtest/gtest.h>

#include "kavor/maps/rig_test_support.h"
#include "kavor/tagging/tag_checks.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

using rigtest::RigTest;

bool LoggedLine(int severity, const std::string& text) {
  for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
    if (line.severity == severity && line.text.GetAsciiString() == text) return true;
  }
  return false;
}

class TagChecks : public RigTest {
 protected:
  void SetUp() override {
    RigTest::SetUp();
    KRX::rt::ResetInteraction();
    structure_ = rigtest::MakeStructure();
    rig_ = rigtest::BuildRig("Walker");
    page_ = rig_.model.AddCustomProperty(L"TagPage");
    for (const wchar_t* fixed : {L"StructureTag", L"StructureFile", L"TemplateFile", L"dirty"}) {
      page_.AddParameter(fixed, KRX::ValueType::String, 4, L"", L"", KRX::CValue(L""));
    }
    for (const StructureNode& node : structure_->nodes) AddNodeParameter(node.name);
    AddNodeParameter("cog");
    AddNodeParameter("pelvis");
  }
  void AddNodeParameter(const std::string& name) {
    page_.AddParameter(ToWide(name), KRX::ValueType::String, 4, L"", L"", KRX::CValue(L""));
  }
  std::string Value(const char* node) const {
    return ToNarrow(page_.GetParameterValue(ToWide(node)).GetString());
  }
  // Sets the node as the tag page command does: checks, and on failure puts back the
  // value it had.
  bool Set(const char* node, const char* object, int mode = kTagModeControl) {
    const std::string before = Value(node);
    const bool ok = CheckTagValue(page_, node, object, *structure_, rig_.model, before, mode);
    if (!ok) page_.PutParameterValue(ToWide(node), KRX::CValue(ToWide(before)));
    return ok;
  }
  std::string LastBox() const {
    return KRX::rt::MessageBoxes().empty() ? "" : KRX::rt::MessageBoxes().back().text.GetAsciiString();
  }

  std::unique_ptr<ModelStructure> structure_;
  rigtest::Rig rig_;
  KRX::CustomProperty page_;
};

TEST_F(TagChecks, SingleChoiceRules) {
  EXPECT_TRUE(Set("Hips", ""));  // nothing chosen: nothing changes
  EXPECT_EQ(Value("Hips"), "");

  EXPECT_FALSE(Set("lKnee", "LeftLeg", kTagModeExtraction));
  EXPECT_EQ(LastBox(),
            "The animation control for the lKnee node must be set before specifying the extraction node.");

  ASSERT_TRUE(Set("Hips", "Hips"));
  EXPECT_FALSE(Set("lHip", "Hips"));
  EXPECT_EQ(LastBox(), "The rig node Hips is already associated with the base node Hips.");

  ASSERT_TRUE(Set("lToes", "LeftToe"));
  EXPECT_FALSE(Set("Hips", "LeftToe"));
  EXPECT_EQ(LastBox(), "The base node Hips requires a rig node that has not been selected.");
  EXPECT_EQ(Value("Hips"), "Hips");  // the refused choice left the page as it was
  EXPECT_TRUE(Set("lAnkle", "LeftToe"));  // an end effector may take its child's object

  ASSERT_TRUE(Set("lAnkle", "LeftFoot"));
  EXPECT_TRUE(Set("lToes", "LeftFoot"));  // the end effector's child may share its object
  EXPECT_FALSE(Set("lKnee", "LeftFoot"));
  EXPECT_EQ(LastBox(),
            "The rig node LeftFoot is already associated with the end effector lAnkle.\n"
            "Only the child of lAnkle can be tagged to the same node.");

  ASSERT_TRUE(Set("Spine", "Spine"));
  EXPECT_FALSE(Set("Chest", "Spine"));
  EXPECT_EQ(LastBox(), "The rig node Spine is already associated with the spine node Spine.");

  EXPECT_FALSE(Set("lKnee", "Ghost"));
  EXPECT_TRUE(LoggedLine(4, "The Ghost node does not exist"));
  EXPECT_EQ(Value("lKnee"), "");

  ASSERT_TRUE(Set("lKnee", "LeftLeg"));
  ASSERT_TRUE(Set("lKnee", "Chest", kTagModeExtraction));
  EXPECT_EQ(Value("lKnee"), "LeftLeg|Chest");
}

TEST_F(TagChecks, LimbAndSpineNodesNeedObjectsOfTheirOwn) {
  ASSERT_TRUE(Set("lHip", "LeftUpLeg"));
  EXPECT_FALSE(Set("lKnee", "LeftUpLeg"));
  EXPECT_EQ(LastBox(), "The rig node LeftUpLeg is already associated with the ik anchor lHip.");

  ASSERT_TRUE(Set("lKnee", "LeftLeg"));
  EXPECT_FALSE(Set("lAnkle", "LeftLeg"));
  EXPECT_EQ(LastBox(),
            "The rig node LeftLeg is already associated with node lKnee.\n"
            "The end effector requires a unique node for tagging (although it can share a node with its child).");
  EXPECT_FALSE(Set("lHip", "LeftLeg"));
  EXPECT_EQ(LastBox(),
            "The rig node LeftLeg is already associated with node lKnee.\n"
            "The ik anchor requires a unique node for tagging.");
  EXPECT_EQ(Value("lHip"), "LeftUpLeg");

  ASSERT_TRUE(Set("lToes", "Chest"));
  EXPECT_FALSE(Set("Spine", "Chest"));
  EXPECT_EQ(LastBox(),
            "The rig node Chest is already associated with node lToes.\n"
            "The spine node requires a unique node for tagging.");
}

TEST_F(TagChecks, SubControls) {
  ASSERT_TRUE(Set("Hips", "Hips"));
  EXPECT_FALSE(Set("cog", "NoSuchObject"));
  EXPECT_TRUE(LoggedLine(4, "The NoSuchObject node does not exist."));
  ASSERT_TRUE(Set("cog", "Hips"));
  EXPECT_EQ(Value("cog"), "Hips");
  EXPECT_FALSE(Set("pelvis", "Hips"));
  EXPECT_EQ(LastBox(), "The Hips node is already assigned to a sub controller.");
  // The base node takes no object another node or sub-control already has.
  EXPECT_FALSE(Set("Hips", "Hips"));
  EXPECT_EQ(LastBox(), "The base node Hips requires a rig node that has not been selected.");
  EXPECT_TRUE(Set("pelvis", "Spine", kTagModeExtraction));  // no extraction rules: a plain write
  EXPECT_EQ(Value("pelvis"), "Spine");
}

TEST_F(TagChecks, MirrorNodeFillsItself) {
  // Two arms at the same depth below a body; a deeper look-alike that must not win.
  KRX::X3DObject body = rigtest::AddNullAt(rig_.model, "Body", 0, 0, 0);
  KRX::X3DObject left = rigtest::AddNullAt(body, "L_Arm_ctl", 1, 0, 0);
  KRX::X3DObject right = rigtest::AddNullAt(body, "R_Arm_ctl", -1, 0, 0);
  KRX::X3DObject left_leg = rigtest::AddNullAt(body, "L_Leg_ctl", 1, 0, 0);
  rigtest::AddNullAt(rigtest::AddNullAt(body, "Holder", 0, 0, 0), "R_Leg_ctl", 0, 0, 0);
  {  // One character different scores the whole length.
    std::string name;
    int score = 2;
    FindMirrorObject(rig_.model, left, rig_.model, name, score);
    EXPECT_EQ(name, "R_Arm_ctl");
    EXPECT_EQ(score, 9);
  }
  {  // The best look-alike (R_Leg_ctl, 9) sits one level deeper: the next best wins.
    std::string name;
    int score = 2;
    FindMirrorObject(rig_.model, left_leg, rig_.model, name, score);
    EXPECT_EQ(name, "L_Arm_ctl");
    EXPECT_EQ(score, 6);
  }
  {  // Through the page: tagging lArm fills the empty rArm; a filled mirror is left alone.
    AddNodeParameter("lArm");
    AddNodeParameter("rArm");
    FillMirrorTag(page_, "lArm", left, rig_.model, kTagModeControl);
    EXPECT_EQ(Value("rArm"), "R_Arm_ctl");
    page_.PutParameterValue(L"rArm", KRX::CValue(L"Other"));
    FillMirrorTag(page_, "lArm", left, rig_.model, kTagModeControl);
    EXPECT_EQ(Value("rArm"), "Other");
    // Extraction: written after the mirror's control object.
    FillMirrorTag(page_, "lArm", left, rig_.model, kTagModeExtraction);
    EXPECT_EQ(Value("rArm"), "Other|R_Arm_ctl");
  }
}

TEST(TagValidity, HierarchyAndChains) {
  KRX::rt::ResetScene();
  KRX::rt::ResetInteraction();
  StructureParseResult parsed = ParseStructureText(
      "B\narm { Hips a child 1 0 0 0 1 0 1 0 0  b child 1 0 0 0 1 0 1 0 0  c child 1 0 0 0 1 0 1 0 0 }\n"
      "leg { Hips h anchor 0 -1 0 0 0 1 0 -1 0  k child 0 -1 0 0 0 1 0 -1 0  f friction 0 0 1 0 1 0 0 -1 0 }\n",
      "Test", [](std::string_view) -> std::optional<std::string> {
        return std::string("hips { world Hips hip 0 1 0 0 0 1 0 1 0 }");
      });
  ASSERT_TRUE(parsed.structure) << parsed.message;
  KRX::Model model(KRX::Application().GetActiveSceneRoot().AddModel(L"M"));
  KRX::CustomProperty page = model.AddCustomProperty(L"TagPage");
  for (const wchar_t* name : {L"StructureTag", L"StructureFile", L"TemplateFile", L"dirty", L"Hips",
                              L"a", L"b", L"c", L"h", L"k", L"f"}) {
    page.AddParameter(name, KRX::ValueType::String, 4, L"", L"", KRX::CValue(L""));
  }
  auto set = [&](std::initializer_list<const wchar_t*> tagged) {
    for (const wchar_t* name : {L"Hips", L"a", L"b", L"c", L"h", L"k", L"f"}) {
      page.PutParameterValue(name, KRX::CValue(L""));
    }
    for (const wchar_t* name : tagged) page.PutParameterValue(name, KRX::CValue(L"obj"));
  };
  set({L"Hips", L"a", L"c"});  // one untagged child ancestor right above a tagged node
  EXPECT_TRUE(CheckTagValidity(*parsed.structure, page));
  set({L"Hips", L"c"});  // two in a row
  EXPECT_FALSE(CheckTagValidity(*parsed.structure, page));
  ASSERT_EQ(KRX::rt::MessageBoxes().size(), 1u);
  EXPECT_EQ(KRX::rt::MessageBoxes().back().text.GetAsciiString(),
            "Because you tagged the c then you must also tag the a because it is higher in the hierarchy.");
  set({L"Hips", L"h", L"f"});  // a chain with a gap
  EXPECT_FALSE(CheckTagValidity(*parsed.structure, page));
  ASSERT_EQ(KRX::rt::MessageBoxes().size(), 2u);
  EXPECT_EQ(KRX::rt::MessageBoxes().back().text.GetAsciiString(),
            "Incomplete tagging of a bone chain. 'k' must be assigned a rig node.");
  set({L"Hips"});  // an untouched chain is not used
  EXPECT_TRUE(CheckTagValidity(*parsed.structure, page));
  KRX::rt::ResetScene();
}

}  // namespace
}  // namespace kavor
