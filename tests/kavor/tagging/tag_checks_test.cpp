// The tag page's checks: each rule of a single choice with its message, the mirror fill,
// and the checks of a whole tagging.
#include "kavor/tagging/tag_checks.h"

#include <gtest/gtest.h>

#include "kavor/maps/rig_test_support.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

using rigtest::RigTest;

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
  std::unique_ptr<ModelStructure> structure_;
  rigtest::Rig rig_;
  KRX::CustomProperty page_;
};

// Each rule of a single choice: the page's values before it, the choice, and the warning
// box that refuses it ("" when it is taken) or the logged warning of a missing object.
TEST_F(TagChecks, SingleChoiceRules) {
  const int kControl = kTagModeControl, kExtract = kTagModeExtraction;
  const struct {
    std::vector<std::pair<const char*, const char*>> before;
    const char *node, *object;
    int mode;
    std::string box, logged = "", value = "";
    // clang-format off
  } cases[] = {
      {{}, "Hips", "", kControl, ""},  // nothing chosen: nothing changes
      {{}, "lKnee", "LeftLeg", kExtract,
       "The animation control for the lKnee node must be set before specifying the extraction node."},
      {{{"lKnee", "LeftLeg"}}, "lKnee", "Chest", kExtract, "", "", "LeftLeg|Chest"},
      {{}, "lKnee", "Ghost", kControl, "", "The Ghost node does not exist"},
      {{{"Hips", "Hips"}}, "lHip", "Hips", kControl,
       "The rig node Hips is already associated with the base node Hips."},
      {{{"lToes", "LeftToe"}}, "Hips", "LeftToe", kControl,
       "The base node Hips requires a rig node that has not been selected."},
      // An end effector may take its child's object, and its child (only) may share its own.
      {{{"lToes", "LeftToe"}}, "lAnkle", "LeftToe", kControl, "", "", "LeftToe"},
      {{{"lAnkle", "LeftFoot"}}, "lToes", "LeftFoot", kControl, "", "", "LeftFoot"},
      {{{"lAnkle", "LeftFoot"}}, "lKnee", "LeftFoot", kControl,
       "The rig node LeftFoot is already associated with the end effector lAnkle.\n"
       "Only the child of lAnkle can be tagged to the same node."},
      {{{"lKnee", "LeftLeg"}}, "lAnkle", "LeftLeg", kControl,
       "The rig node LeftLeg is already associated with node lKnee.\nThe end effector requires a "
       "unique node for tagging (although it can share a node with its child)."},
      {{{"lHip", "LeftUpLeg"}}, "lKnee", "LeftUpLeg", kControl,
       "The rig node LeftUpLeg is already associated with the ik anchor lHip."},
      {{{"lKnee", "LeftLeg"}}, "lHip", "LeftLeg", kControl,
       "The rig node LeftLeg is already associated with node lKnee.\n"
       "The ik anchor requires a unique node for tagging."},
      {{{"Spine", "Spine"}}, "Chest", "Spine", kControl,
       "The rig node Spine is already associated with the spine node Spine."},
      {{{"lToes", "Chest"}}, "Spine", "Chest", kControl,
       "The rig node Chest is already associated with node lToes.\n"
       "The spine node requires a unique node for tagging."},
      // Sub-controls: an existing object no other sub-control has; no extraction rules.
      {{{"Hips", "Hips"}}, "cog", "Hips", kControl, "", "", "Hips"},
      {{}, "cog", "NoSuchObject", kControl, "", "The NoSuchObject node does not exist."},
      {{{"cog", "Hips"}}, "pelvis", "Hips", kControl,
       "The Hips node is already assigned to a sub controller."},
      {{{"cog", "Hips"}}, "Hips", "Hips", kControl,
       "The base node Hips requires a rig node that has not been selected."},
      {{}, "pelvis", "Spine", kExtract, "", "", "Spine"},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.node) + " <- " + c.object);
    for (KRX::Parameter p : page_.GetParameters()) p.PutValue(KRX::CValue(L""));
    for (const auto& [node, object] : c.before) {
      page_.PutParameterValue(ToWide(node), KRX::CValue(ToWide(object)));
    }
    KRX::rt::ResetInteraction();
    KRX::rt::ClearLog();
    const bool refused = !c.box.empty() || !c.logged.empty();
    EXPECT_EQ(
        CheckTagValue(page_, c.node, c.object, *structure_, rig_.model, Value(c.node), c.mode),
        !refused);
    if (c.box.empty()) {
      EXPECT_TRUE(KRX::rt::MessageBoxes().empty());
    } else {
      ASSERT_EQ(KRX::rt::MessageBoxes().size(), 1u);
      EXPECT_EQ(KRX::rt::MessageBoxes().back().text.GetAsciiString(), c.box);
    }
    EXPECT_EQ(rigtest::LoggedLine(4, c.logged), !c.logged.empty());
    if (!refused) {
      EXPECT_EQ(Value(c.node), c.value);
    }
  }
}

// The mirror of a picked object: the most similar name at the same depth below a common
// ancestor, filled into the empty mirror node only.
TEST_F(TagChecks, MirrorNodeFillsItself) {
  KRX::X3DObject body = rigtest::AddNullAt(rig_.model, "Body", 0, 0, 0);
  KRX::X3DObject left = rigtest::AddNullAt(body, "L_Arm_ctl", 1, 0, 0);
  rigtest::AddNullAt(body, "R_Arm_ctl", -1, 0, 0);
  KRX::X3DObject left_leg = rigtest::AddNullAt(body, "L_Leg_ctl", 1, 0, 0);
  rigtest::AddNullAt(rigtest::AddNullAt(body, "Holder", 0, 0, 0), "R_Leg_ctl", 0, 0, 0);
  // One character different scores the whole length; the best look-alike of L_Leg_ctl
  // (R_Leg_ctl, 9) sits one level deeper, so the next best wins.
  for (const auto& [picked, name, score] :
       {std::tuple{left, "R_Arm_ctl", 9}, std::tuple{left_leg, "L_Arm_ctl", 6}}) {
    std::string found;
    int best = 2;
    FindMirrorObject(rig_.model, picked, rig_.model, found, best);
    EXPECT_EQ(found, name);
    EXPECT_EQ(best, score);
  }
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

// A whole tagging: an untagged child node right above a tagged one is allowed, two in a
// row are not; a chain is tagged whole or not at all.
TEST(TagValidity, HierarchyAndChains) {
  KRX::rt::ResetScene();
  StructureParseResult parsed = ParseStructureText(
      "B\narm { Hips a child 1 0 0 0 1 0 1 0 0  b child 1 0 0 0 1 0 1 0 0  c child 1 0 0 0 1 0 1 0 "
      "0 }"
      "\nleg { Hips h anchor 0 -1 0 0 0 1 0 -1 0  k child 0 -1 0 0 0 1 0 -1 0"
      "  f friction 0 0 1 0 1 0 0 -1 0 }\n",
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
  const struct {
    std::vector<const wchar_t*> tagged;
    std::string box;
  } cases[] = {
      {{L"Hips", L"a", L"c"}, ""},
      {{L"Hips", L"c"},
       "Because you tagged the c then you must also tag the a because it is higher in the "
       "hierarchy."},
      {{L"Hips", L"h", L"f"},
       "Incomplete tagging of a bone chain. 'k' must be assigned a rig node."},
      {{L"Hips"}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.box);
    KRX::rt::ResetInteraction();
    for (const wchar_t* name : {L"Hips", L"a", L"b", L"c", L"h", L"k", L"f"}) {
      page.PutParameterValue(name, KRX::CValue(L""));
    }
    for (const wchar_t* name : c.tagged) page.PutParameterValue(name, KRX::CValue(L"obj"));
    EXPECT_EQ(CheckTagValidity(*parsed.structure, page), c.box.empty());
    ASSERT_EQ(KRX::rt::MessageBoxes().size(), c.box.empty() ? 0u : 1u);
    if (!c.box.empty()) {
      EXPECT_EQ(KRX::rt::MessageBoxes().back().text.GetAsciiString(), c.box);
    }
  }
  KRX::rt::ResetScene();
}

}  // namespace
}  // namespace kavor
