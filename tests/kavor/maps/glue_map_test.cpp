// The glue map: which channels each rig object takes, spines, limb planes and their signs,
// and the "ZRKGlue" property read back or refused.
#include "kavor/maps/glue_map.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <numbers>
#include <string>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/rig_test_support.h"

namespace kavor {
namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using rigtest::AddNullAt;

// Nodes: 0 Hips, 1 lHip, 2 lKnee, 3 lAnkle (one limb plane "lKnee"), 4 Spine, 5 Chest.
constexpr const char* kBase =
    "hips { world Hips hip 0 1 0 0 0 1 0 10 0 }\n"
    "leg { Hips lHip anchor 1 0 0 0 1 0 1 0 0\n"
    "  lKnee child 1 0 0 0 1 0 2 0 0\n"
    "  lAnkle friction 1 0 0 0 1 0 2 0 0 }\n";
constexpr const char* kStructure =
    "GlueBase\n"
    "spine { Hips Spine free 0 1 0 0 0 1 0 2 0  Chest free 0 1 0 0 0 1 0 2 0 }\n";

class GlueMapTest : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { KRX::rt::ResetScene(); }

  void Reset() {
    KRX::rt::ResetScene();
    KRX::rt::ClearLog();
    StructureParseResult parsed = ParseStructureText(
        kStructure, "Glue", [](std::string_view) { return std::optional<std::string>(kBase); });
    ASSERT_TRUE(parsed.structure) << parsed.message;
    structure_ = std::move(parsed.structure);
    retarget_ = std::make_unique<RetargetModel>(structure_.get());
    model_ = KRX::Model(KRX::Application().GetActiveSceneRoot().AddModel(L"Rig"));
    retarget_->model = model_;
  }
  KRX::X3DObject Tag(int32_t node, const KRX::X3DObject& object) {
    return retarget_->Node(node).object = object;
  }
  std::unique_ptr<GlueMap> Build() { return BuildGlueMap(model_, *retarget_); }
  // Each glued node with the channels it takes: B both, P position only, R rotation only.
  static std::string TypesOf(const GlueMap& glue) {
    std::map<std::string, char> types;
    for (const GlueMocapEntry& entry : glue.mocaps) types[entry.tag_obj] = "BPR"[int(entry.type)];
    std::string text;
    for (const auto& [node, type] : types) text += node + ":" + type + " ";
    return text;
  }

  std::unique_ptr<ModelStructure> structure_;
  std::unique_ptr<RetargetModel> retarget_;
  KRX::Model model_;
};

TEST_F(GlueMapTest, MocapTypes) {
  {
    KRX::X3DObject hips = Tag(0, AddNullAt(model_, "Hips", 0, 0, 0));
    KRX::Parameter(hips.GetKinematics().GetLocal().GetParameter(L"rotx"))
        .AddExpression(L"Rig.Hips.kine.local.roty");
    Tag(1, AddNullAt(model_, "Thigh", 0, 0, 0));  // "anchor": always rotation only
    Tag(2, AddNullAt(model_, "Shin", 0, 0, 0));   // "child"
    KRX::X3DObject foot = Tag(3, AddNullAt(model_, "Foot", 0, 0, 0));
    foot.AddConstraint(L"Position", hips);
    foot.AddConstraint(L"Orientation", hips);
    KRX::X3DObject spine = Tag(4, AddNullAt(model_, "Spine", 0, 0, 0));
    spine.AddConstraint(L"Orientation", hips);
    Tag(5, AddNullAt(spine, "Chest", 0, 0, 0));  // parented as in the structure
    const std::unique_ptr<GlueMap> glue = Build();
    EXPECT_EQ(TypesOf(*glue), "Chest:R Hips:P Spine:P lAnkle:R lHip:R lKnee:R ");
    EXPECT_TRUE(glue->spines.empty() && glue->planes.empty());  // Chest hangs right below Spine
  }
  {  // Nothing drives it and it hangs elsewhere: both channels. Untagged nodes: no entry.
    Reset();
    Tag(3, AddNullAt(model_, "Foot", 0, 0, 0));
    EXPECT_EQ(TypesOf(*Build()), "lAnkle:B ");
  }
}

TEST_F(GlueMapTest, Spines) {
  {  // Two steps from Chest up to Spine: a spine from Spine1 to Chest, Chest not glued.
    KRX::X3DObject spine = Tag(4, AddNullAt(model_, "Spine", 0, 0, 0));
    KRX::X3DObject chest = Tag(5, AddNullAt(AddNullAt(spine, "Spine1", 0, 0, 0), "Chest", 0, 0, 0));
    retarget_->Node(4).align = CVector3(0, 1, 0);
    retarget_->Node(5).align = CVector3(0, 0, 1);
    retarget_->Node(5).length = 2.0;
    const std::unique_ptr<GlueMap> glue = Build();
    ASSERT_EQ(glue->spines.size(), 1u);
    const GlueSpineEntry& entry = glue->spines[0];
    EXPECT_EQ(entry.anchor_name + " " + entry.base_name + " " + entry.end_name,
              "Spine Spine1 Chest");
    EXPECT_EQ(entry.goal_node, 5);
    EXPECT_TRUE(entry.anchor_tangent.Equals(CVector3(0, 0.7, 0)));
    EXPECT_TRUE(entry.goal_tangent.Equals(CVector3(0, 0, -0.7)));
    ASSERT_EQ(entry.Count(), 2);
    EXPECT_EQ(entry.nodes[0].object.GetName(), L"Spine1");
    EXPECT_TRUE(entry.nodes[1].object == chest);
    EXPECT_EQ(TypesOf(*glue), "Spine:B ");
  }
  {  // Chest outside the branch of Spine: neither a spine nor a mocap entry.
    Reset();
    Tag(4, AddNullAt(model_, "Spine", 0, 0, 0));
    Tag(5, AddNullAt(model_, "Chest", 0, 0, 0));
    const std::unique_ptr<GlueMap> glue = Build();
    EXPECT_TRUE(glue->spines.empty());
    EXPECT_EQ(TypesOf(*glue), "Spine:B ");
  }
  {  // A stored spine whose base is not above its end resolves to no nodes.
    Reset();
    AddNullAt(model_, "A", 0, 0, 0);
    AddNullAt(model_, "B", 0, 0, 0);
    GlueMap glue;
    glue.spines.emplace_back().base_name = "A";
    glue.spines[0].end_name = "B";
    ResolveGlueMap(glue, model_, *retarget_);
    EXPECT_EQ(glue.spines[0].Count(), 0);
    EXPECT_TRUE(rigtest::LoggedLine(8, "Bad nodes for the spine constraint."));
  }
}

TEST_F(GlueMapTest, PlaneSignAndRestTransform) {
  // A limb of plain objects bent towards +y: anchor turned a quarter about z at the origin,
  // middle at (1, 1, 0), end at (2, 0, 0).
  CTransformation turned;
  turned.SetRotationFromXYZAngles(CVector3(0, 0, std::numbers::pi / 2));
  Tag(1, AddNullAt(model_, "A", 0, 0, 0)).GetKinematics().GetGlobal().PutTransform(turned);
  Tag(2, AddNullAt(model_, "B", 1, 1, 0));
  KRX::X3DObject end = Tag(3, AddNullAt(model_, "E", 2, 0, 0));
  for (const auto& [up_y, sign] : {std::pair{3.0, 1}, std::pair{-3.0, -1}}) {
    const std::string name = up_y > 0 ? "UpPlus" : "UpMinus";
    AddNullAt(model_, name.c_str(), 1, up_y, 0);
    GlueMap glue;
    glue.planes.emplace_back().rig_node_name = name;
    glue.planes[0].plane_name = "lKnee";
    FinishGlueMap(glue, model_, *retarget_);
    EXPECT_EQ(glue.planes[0].sign, sign);
    // (1, y, 0) seen from a frame turned a quarter about z is (y, -1, 0).
    EXPECT_TRUE(glue.planes[0].rest_transform.GetTranslation().Equals(CVector3(up_y, -1, 0), 1e-9));
    EXPECT_TRUE(end.GetKinematics().GetGlobal().GetTransform().GetTranslation().Equals(
        CVector3(2, 0, 0), 1e-12));
  }
}

TEST_F(GlueMapTest, Chains) {
  // A limb along +x bent towards +y; the chain bends towards its up-vector object.
  const auto build_chain = [&](const CVector3* up) {
    KRX::ChainRoot root(model_.Add2DChain(CVector3(0, 0, 0), CVector3(2, 0.5, 0)));
    root.AddBone(CVector3(4, 0, 0));
    const std::vector<KRX::X3DObject> bones = root.GetBones();
    EXPECT_EQ(bones.size(), 2u);
    Tag(1, bones.at(0));
    Tag(2, bones.at(1));
    Tag(3, root.GetEffector());
    retarget_->Node(3).length = 4.0;
    if (up) {
      KRX::ChainBone(bones.at(0))
          .PutUpVectorReference(AddNullAt(model_, "Up", up->GetX(), up->GetY(), up->GetZ()));
    }
    return bones.at(0);
  };
  {  // No up-vector: no plane, and of the chain only its end takes motion.
    build_chain(nullptr);
    const std::unique_ptr<GlueMap> glue = Build();
    EXPECT_TRUE(glue->planes.empty());
    EXPECT_EQ(TypesOf(*glue), "lAnkle:B ");
  }
  // Above or below, rolled or not: the knee bends towards the up-vector, so it always lies
  // on the bend side once the roll is turned back.
  for (const double up_y : {3.0, -3.0}) {
    for (const double roll_deg : {0.0, 90.0}) {
      Reset();
      const CVector3 up(2, up_y, 0);
      RunCommand(L"SetValue", {build_chain(&up).GetFullName() + L".joint.roll", roll_deg});
      const KRX::X3DObject effector = retarget_->Node(3).object;
      const std::unique_ptr<GlueMap> glue = Build();
      ASSERT_EQ(glue->planes.size(), 1u);
      const GluePlaneEntry& plane = glue->planes[0];
      EXPECT_EQ(plane.rig_node_name, "Up");
      EXPECT_EQ(plane.plane_index, 0);
      EXPECT_DOUBLE_EQ(plane.up_length, 4.0);
      EXPECT_NEAR(plane.roll_angle, -roll_deg * 0.017453293, 1e-12);
      EXPECT_EQ(plane.sign, 1) << up_y << " " << roll_deg;
      EXPECT_TRUE(effector.GetKinematics().GetGlobal().GetTransform().GetTranslation().Equals(
          CVector3(4, 0, 0), 1e-9));
    }
  }
}

TEST_F(GlueMapTest, PropertyRoundTrip) {
  GlueMap glue;
  glue.mocaps.emplace_back().rig_node_name = "Hips";
  glue.mocaps[0].type = GlueMocapType::kPositionOnly;
  GluePlaneEntry& plane = glue.planes.emplace_back();
  plane.plane_name = "lKnee";
  plane.sign = -1;
  plane.up_length = 4.25;
  plane.rest_transform.SetTranslationFromValues(0.5, -1.5, 2.0);
  GlueSpineEntry& spine = glue.spines.emplace_back();
  spine.base_name = "Spine1";
  spine.goal_name = "Chest";
  const std::array<CVector3 GlueSpineEntry::*, 6> vectors = {
      &GlueSpineEntry::anchor_axis, &GlueSpineEntry::anchor_roll,    &GlueSpineEntry::axis,
      &GlueSpineEntry::roll_axis,   &GlueSpineEntry::anchor_tangent, &GlueSpineEntry::goal_tangent};
  for (size_t i = 0; i < vectors.size(); ++i)
    (spine.*vectors[i]).Set(3.0 * i, 3.0 * i + 1, i + 0.125);
  WriteGlueMap(glue, model_);
  WriteGlueMap(glue, model_);  // replaces, never adds a second one
  int found = 0;
  for (const KRX::Property& p : model_.GetProperties()) found += p.GetName() == kGlueProperty;
  EXPECT_EQ(found, 1);

  std::unique_ptr<GlueMap> read = ReadGlueMap(model_);
  ASSERT_TRUE(read);
  ASSERT_EQ(read->mocaps.size(), 1u);
  EXPECT_EQ(read->mocaps[0].rig_node_name, "Hips");
  EXPECT_EQ(read->mocaps[0].type, GlueMocapType::kPositionOnly);
  ASSERT_EQ(read->planes.size(), 1u);
  EXPECT_EQ(read->planes[0].plane_name, "lKnee");
  EXPECT_EQ(read->planes[0].sign, -1);
  EXPECT_EQ(read->planes[0].up_length, 4.25);
  EXPECT_EQ(read->planes[0].rest_transform.GetTranslation(), CVector3(0.5, -1.5, 2.0));
  ASSERT_EQ(read->spines.size(), 1u);
  EXPECT_EQ(read->spines[0].base_name, "Spine1");
  EXPECT_EQ(read->spines[0].goal_name, "Chest");
  for (size_t i = 0; i < vectors.size(); ++i) {
    EXPECT_EQ(read->spines[0].*vectors[i], spine.*vectors[i]) << i;
  }
}

TEST_F(GlueMapTest, RefusesMissingOldAndDamagedProperties) {
  GlueMap glue;
  glue.mocaps.emplace_back();
  glue.planes.emplace_back();
  const auto grid = [](KRX::CustomProperty p, const wchar_t* name) {
    return KRX::Parameter(p.GetParameter(name)).GetGridData();
  };
  const auto written = [&] {
    WriteGlueMap(glue, model_);
    KRX::Property p;
    FindPropertyByName(model_, kGlueProperty, &p);
    return KRX::CustomProperty(p);
  };
  const std::string outdated = "GlueMap data is outdated - please re-tag.";
  const std::string damaged = "GlueMap data is damaged - please re-tag.";
  const std::function<void(KRX::CustomProperty)> damage[] = {
      [&](KRX::CustomProperty) { DeleteGlueMap(model_); },
      [](KRX::CustomProperty p) { p.PutParameterValue(L"Version", KRX::CString(L"3")); },
      [](KRX::CustomProperty p) { p.PutParameterValue(L"numMocaps", 2); },
      [](KRX::CustomProperty p) { p.PutParameterValue(L"numPlanes", -1); },
      [&](KRX::CustomProperty p) { grid(p, L"Planes").PutColumnCount(6); },
      [](KRX::CustomProperty p) { p.RemoveParameter(p.GetParameter(L"Mocap")); },
  };
  for (size_t i = 0; i < std::size(damage); ++i) {
    damage[i](written());
    KRX::rt::ClearLog();
    EXPECT_FALSE(ReadGlueMap(model_)) << i;
    EXPECT_TRUE(i < 2 ? rigtest::LoggedLine(8, outdated) : rigtest::LoggedLine(4, damaged)) << i;
  }
  // A type other than 0 and 1 reads as rotation only; a number that is not finite as 0.
  KRX::CustomProperty p = written();
  grid(p, L"Mocap").PutCell(2, 0, 7);
  grid(p, L"Planes").PutCell(3, 0, NAN);
  const std::unique_ptr<GlueMap> read = ReadGlueMap(model_);
  ASSERT_TRUE(read && read->mocaps.size() == 1 && read->planes.size() == 1);
  EXPECT_EQ(read->mocaps[0].type, GlueMocapType::kRotationOnly);
  EXPECT_EQ(read->planes[0].up_length, 0.0);
}

}  // namespace
}  // namespace kavor
