// The glue map: which channels each rig object takes, spines, limb planes and their signs,
// and the "ZRKGlue" property read back, refused when old and survived when damaged.
#include "kavor/maps/glue_map.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
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

  KRX::X3DObject Null(KRX::X3DObject parent, const wchar_t* name, CVector3 at = CVector3()) {
    KRX::X3DObject object = parent.AddNull(name);
    CTransformation t;
    t.SetTranslation(at);
    object.GetKinematics().GetGlobal().PutTransform(t);
    return object;
  }
  void Tag(int32_t node, const KRX::X3DObject& object) { retarget_->Node(node).object = object; }

  std::unique_ptr<GlueMap> Build() { return BuildGlueMap(model_, *retarget_); }

  std::map<std::string, GlueMocapType> Types(const GlueMap& glue) {
    std::map<std::string, GlueMocapType> types;
    for (const GlueMocapEntry& entry : glue.mocaps) types[entry.tag_obj] = entry.type;
    return types;
  }

  std::unique_ptr<ModelStructure> structure_;
  std::unique_ptr<RetargetModel> retarget_;
  KRX::Model model_;
};

TEST_F(GlueMapTest, MocapTypes) {
  using enum GlueMocapType;
  {
    KRX::X3DObject hips = Null(model_, L"Hips");
    KRX::Parameter(hips.GetKinematics().GetLocal().GetParameter(L"rotx"))
        .AddExpression(L"Rig.Hips.kine.local.roty");
    Tag(0, hips);
    Tag(1, Null(model_, L"Thigh"));  // "anchor": always rotation only
    Tag(2, Null(model_, L"Shin"));   // "child"
    KRX::X3DObject foot = Null(model_, L"Foot");
    foot.AddConstraint(L"Position", hips);
    foot.AddConstraint(L"Orientation", hips);
    Tag(3, foot);
    KRX::X3DObject spine = Null(model_, L"Spine");
    spine.AddConstraint(L"Orientation", hips);
    Tag(4, spine);
    Tag(5, Null(spine, L"Chest"));  // parented as in the structure
    const std::unique_ptr<GlueMap> glue = Build();
    const std::map<std::string, GlueMocapType> expected = {
        {"Hips", kPositionOnly},   {"lHip", kRotationOnly},  {"lKnee", kRotationOnly},
        {"lAnkle", kRotationOnly}, {"Spine", kPositionOnly}, {"Chest", kRotationOnly}};
    EXPECT_EQ(Types(*glue), expected);
    EXPECT_TRUE(glue->spines.empty());  // Chest hangs directly below Spine
    EXPECT_TRUE(glue->planes.empty());
  }
  {  // Nothing drives it and it hangs elsewhere: both channels. Untagged nodes: no entry.
    Reset();
    Tag(3, Null(model_, L"Foot"));
    const std::unique_ptr<GlueMap> glue = Build();
    EXPECT_EQ(Types(*glue),
              (std::map<std::string, GlueMocapType>{{"lAnkle", kPositionAndRotation}}));
  }
}

TEST_F(GlueMapTest, Spines) {
  {  // Two steps from Chest up to Spine: a spine from Spine1 to Chest, Chest not glued.
    KRX::X3DObject spine = Null(model_, L"Spine");
    KRX::X3DObject chest = Null(Null(spine, L"Spine1"), L"Chest");
    Tag(4, spine);
    Tag(5, chest);
    retarget_->Node(4).align = CVector3(0, 1, 0);
    retarget_->Node(5).align = CVector3(0, 0, 1);
    retarget_->Node(5).length = 2.0;
    const std::unique_ptr<GlueMap> glue = Build();
    ASSERT_EQ(glue->spines.size(), 1u);
    const GlueSpineEntry& entry = glue->spines[0];
    EXPECT_EQ(entry.anchor_name, "Spine");
    EXPECT_EQ(entry.base_name, "Spine1");
    EXPECT_EQ(entry.end_name, "Chest");
    EXPECT_EQ(entry.goal_node, 5);
    EXPECT_TRUE(entry.anchor_tangent.Equals(CVector3(0, 0.7, 0)));
    EXPECT_TRUE(entry.goal_tangent.Equals(CVector3(0, 0, -0.7)));
    ASSERT_EQ(entry.Count(), 2);
    EXPECT_EQ(entry.nodes[0].object.GetName(), L"Spine1");
    EXPECT_TRUE(entry.nodes[1].object == chest);
    EXPECT_EQ(Types(*glue).count("Chest"), 0u);
  }
  {  // Chest outside the branch of Spine: neither a spine nor a mocap entry.
    Reset();
    Tag(4, Null(model_, L"Spine"));
    Tag(5, Null(model_, L"Chest"));
    const std::unique_ptr<GlueMap> glue = Build();
    EXPECT_TRUE(glue->spines.empty());
    EXPECT_EQ(Types(*glue).count("Chest"), 0u);
    EXPECT_EQ(Types(*glue).count("Spine"), 1u);
  }
  {  // A stored spine whose base is not above its end resolves to no nodes.
    Reset();
    Null(model_, L"A");
    Null(model_, L"B");
    GlueMap glue;
    glue.spines.emplace_back();
    glue.spines[0].base_name = "A";
    glue.spines[0].end_name = "B";
    ResolveGlueMap(glue, model_, *retarget_);
    EXPECT_EQ(glue.spines[0].Count(), 0);
    EXPECT_TRUE(rigtest::LoggedLine(8, "Bad nodes for the spine constraint."));
  }
}

TEST_F(GlueMapTest, PlaneSignAndRestTransform) {
  // A limb of plain objects bent towards +y: anchor turned a quarter about z at the origin,
  // middle at (1, 1, 0), end at (2, 0, 0).
  KRX::X3DObject anchor = Null(model_, L"A");
  CTransformation turned;
  turned.SetRotationFromXYZAngles(CVector3(0, 0, std::numbers::pi / 2));
  anchor.GetKinematics().GetGlobal().PutTransform(turned);
  Tag(1, anchor);
  Tag(2, Null(model_, L"B", CVector3(1, 1, 0)));
  KRX::X3DObject end = Null(model_, L"E", CVector3(2, 0, 0));
  Tag(3, end);
  for (const auto& [up_y, sign] : {std::pair{3.0, 1}, std::pair{-3.0, -1}}) {
    const std::wstring name = up_y > 0 ? L"UpPlus" : L"UpMinus";
    Null(model_, name.c_str(), CVector3(1, up_y, 0));
    GlueMap glue;
    glue.planes.emplace_back();
    glue.planes[0].rig_node_name = ToNarrow(name);
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
    Tag(1, bones[0]);
    Tag(2, bones[1]);
    Tag(3, root.GetEffector());
    retarget_->Node(3).length = 4.0;
    if (up) KRX::ChainBone(bones[0]).PutUpVectorReference(Null(model_, L"Up", *up));
    return bones;
  };
  {  // No up-vector: no plane, and of the chain only its end takes motion.
    build_chain(nullptr);
    const std::unique_ptr<GlueMap> glue = Build();
    EXPECT_TRUE(glue->planes.empty());
    EXPECT_EQ(
        Types(*glue),
        (std::map<std::string, GlueMocapType>{{"lAnkle", GlueMocapType::kPositionAndRotation}}));
  }
  // Above or below, rolled or not: the knee bends towards the up-vector, so it always lies
  // on the bend side once the roll is turned back.
  for (const double up_y : {3.0, -3.0}) {
    for (const double roll_deg : {0.0, 90.0}) {
      Reset();
      const CVector3 up(2, up_y, 0);
      const std::vector<KRX::X3DObject> bones = build_chain(&up);
      RunCommand(L"SetValue", {bones[0].GetFullName() + L".joint.roll", roll_deg});
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

// The six stored vectors of a spine, in column order.
std::array<CVector3*, 6> SpineVectors(GlueSpineEntry& e) {
  return {&e.anchor_axis, &e.anchor_roll,    &e.axis,
          &e.roll_axis,   &e.anchor_tangent, &e.goal_tangent};
}

TEST_F(GlueMapTest, PropertyRoundTrip) {
  GlueMap glue;
  glue.mocaps.emplace_back();
  glue.mocaps[0].rig_node_name = "Hips";
  glue.mocaps[0].type = GlueMocapType::kPositionOnly;
  glue.planes.emplace_back();
  glue.planes[0].plane_name = "lKnee";
  glue.planes[0].sign = -1;
  glue.planes[0].up_length = 4.25;
  glue.planes[0].rest_transform.SetTranslationFromValues(0.5, -1.5, 2.0);
  glue.spines.emplace_back();
  glue.spines[0].base_name = "Spine1";
  glue.spines[0].goal_name = "Chest";
  double value = 1.0;
  for (CVector3* v : SpineVectors(glue.spines[0])) {
    v->Set(value, value + 1, value + 2.125);
    value += 3;
  }
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
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(*SpineVectors(read->spines[0])[i], *SpineVectors(glue.spines[0])[i]) << i;
  }

  DeleteGlueMap(model_);
  KRX::rt::ClearLog();
  EXPECT_FALSE(ReadGlueMap(model_));
  EXPECT_TRUE(rigtest::LoggedLine(8, "GlueMap data is outdated - please re-tag."));
}

TEST_F(GlueMapTest, RefusesOldAndDamagedProperties) {
  GlueMap glue;
  glue.mocaps.emplace_back();
  glue.planes.emplace_back();
  const auto property = [&] {
    KRX::Property p;
    FindPropertyByName(model_, kGlueProperty, &p);
    return KRX::CustomProperty(p);
  };
  {
    WriteGlueMap(glue, model_);
    property().PutParameterValue(L"Version", KRX::CString(L"3"));
    EXPECT_FALSE(ReadGlueMap(model_));
    EXPECT_TRUE(rigtest::LoggedLine(8, "GlueMap data is outdated - please re-tag."));
  }
  const auto damaged = [&](auto&& damage) {  // refused, with the message
    WriteGlueMap(glue, model_);
    damage(property());
    KRX::rt::ClearLog();
    const bool refused = ReadGlueMap(model_) == nullptr;
    EXPECT_EQ(refused, rigtest::LoggedLine(4, "GlueMap data is damaged - please re-tag."));
    return refused;
  };
  const auto grid = [](KRX::CustomProperty p, const wchar_t* name) {
    return KRX::Parameter(p.GetParameter(name)).GetGridData();
  };
  EXPECT_TRUE(damaged([](KRX::CustomProperty p) { p.PutParameterValue(L"numMocaps", 2); }));
  EXPECT_TRUE(damaged([](KRX::CustomProperty p) { p.PutParameterValue(L"numPlanes", -1); }));
  EXPECT_TRUE(damaged([&](KRX::CustomProperty p) { grid(p, L"Planes").PutColumnCount(6); }));
  EXPECT_TRUE(damaged([&](KRX::CustomProperty p) { p.RemoveParameter(p.GetParameter(L"Mocap")); }));
  // A type other than 0 and 1 reads as rotation only; a number that is not finite as 0.
  EXPECT_FALSE(damaged([&](KRX::CustomProperty p) {
    grid(p, L"Mocap").PutCell(2, 0, 7);
    grid(p, L"Planes").PutCell(3, 0, NAN);
  }));
  const std::unique_ptr<GlueMap> read = ReadGlueMap(model_);
  ASSERT_TRUE(read && read->mocaps.size() == 1 && read->planes.size() == 1);
  EXPECT_EQ(read->mocaps[0].type, GlueMocapType::kRotationOnly);
  EXPECT_EQ(read->planes[0].up_length, 0.0);
}

}  // namespace
}  // namespace kavor
