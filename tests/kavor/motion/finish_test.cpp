// The finishing stage: foot heights and contacts for two feet, limb-end paths and foot
// alignment for more, and the filling of undefined limb up-vectors.
#include "kavor/motion/finish.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "runtime/log.h"

namespace kavor {
namespace {

using KRX::MATH::CVector3;
using Vector = std::vector<double>;

// kBiped: legs from nodes 1 and 4 to the feet 3 and 6 (planes 0, 1). kQuadruped: an arm
// from node 3 to the hand 5 below the free nodes 1 and 2 (plane 0), legs from nodes 6 and
// 9 to the feet 8 and 11 (planes 1, 2).
enum Body { kBiped, kQuadruped };

// A target and a source sharing one structure, every node driven by its namesake, bones
// and legs of length 1, and a motion of identity poses and zero vectors.
struct Character {
  Character(Body body, int32_t frames) {
    // h the hips, c a child, s a free spine node, f a foot ending a plane; each node hangs
    // below the one before it, or below the hips after a foot.
    const std::string kinds = body == kBiped ? "hccfccf" : "hssccfccfccf";
    for (size_t i = 0; i < kinds.size(); ++i) {
      StructureNode& node = structure.nodes.emplace_back();
      node.parent = kinds[i] == 'h'                              ? -1
                    : kinds[i - 1] == 'f' || kinds[i - 1] == 'h' ? 0
                                                                 : int32_t(i) - 1;
      node.friction = kinds[i] == 'f';
      node.type = kinds[i] == 'f'   ? StructureNodeType::kIk
                  : kinds[i] == 's' ? StructureNodeType::kFree
                  : kinds[i] == 'h' ? StructureNodeType::kHip
                                    : StructureNodeType::kChild;
      if (kinds[i] == 'f') {
        const auto span = static_cast<int32_t>(i);
        structure.planes.push_back({"", span - 2, span - 1, span, {span, span - 1, span - 2}});
      }
    }
    target = std::make_unique<RetargetModel>(&structure);
    source = std::make_unique<RetargetModel>(&structure);
    for (int32_t i = 0; i < structure.NumNodes(); ++i) {
      target->Node(i).source_index = i;
      target->Node(i).length = source->Node(i).length = 1.0;
    }
    target->leg_length = source->leg_length = 1.0;
    motion = std::make_unique<NormalizedMotion>(frames, target.get(), source.get());
  }
  KRX::MATH::CTransformation& Pose(int32_t node, int32_t f) const {
    return motion->global_poses[size_t(node)][size_t(f)];
  }
  CVector3 At(int32_t node, int32_t f) const { return Pose(node, f).GetTranslation(); }
  void Put(int32_t node, int32_t f, const CVector3& v) { Pose(node, f).SetTranslation(v); }
  CVector3& Path(int32_t plane, int32_t f) const {
    return motion->effector_positions[size_t(plane)][size_t(f)];
  }
  CVector3& Up(int32_t plane, int32_t f) const {
    return motion->up_vectors[size_t(plane)][size_t(f)];
  }
  // Frame by frame: the source path's and the limb end's x (or y when `axis` is 1).
  void Fill(int32_t plane, int32_t node, const Vector& source_v, const Vector& target_v,
            int axis = 0) {
    for (size_t f = 0; f < source_v.size(); ++f) {
      Path(plane, int32_t(f)) =
          axis == 0 ? CVector3(source_v[f], 0, 0) : CVector3(0, source_v[f], 0);
      Put(node, int32_t(f), axis == 0 ? CVector3(target_v[f], 0, 0) : CVector3(0, target_v[f], 0));
    }
  }

  ModelStructure structure;
  std::unique_ptr<RetargetModel> target, source;
  std::unique_ptr<NormalizedMotion> motion;
};

bool AllFinite(const NormalizedMotion& motion) {
  double sum = 0.0;  // any NaN or infinity makes the sum non-finite
  for (const auto& poses : motion.global_poses) {
    for (const auto& pose : poses) sum += pose.GetTranslation().GetLength();
  }
  for (const auto* table : {&motion.up_vectors, &motion.effector_positions}) {
    for (const auto& vectors : *table) {
      for (const CVector3& v : vectors) sum += v.GetLength();
    }
  }
  for (double height : motion.limb_heights) sum += height;
  return std::isfinite(sum);
}

TEST(Finish, FootCountChoosesThePath) {
  {  // Two feet: source heights scaled by the leg ratio, source paths turned into steps.
    Character s(kBiped, 3);
    s.target->leg_length = 2.0;
    s.Fill(0, 3, {0.5, 0.75, 1}, {3, 3, 3}, 1);
    Finish(*s.motion);
    EXPECT_NEAR(s.At(3, 0).GetY(), 1.0, 1e-12);
    EXPECT_NEAR(s.At(3, 2).GetY(), 2.0, 1e-12);
    EXPECT_TRUE(s.Path(0, 1).Equals(CVector3(0, 0.25, 0), 1e-12));
    EXPECT_EQ(s.motion->limb_heights[1], 0.0);
  }
  {  // Three feet: limb heights measured, source paths left as positions.
    Character s(kQuadruped, 3);
    s.Fill(1, 8, {0, 0, 0.5}, {-0.5, -0.5, -0.5}, 1);
    Finish(*s.motion);
    EXPECT_NEAR(s.motion->limb_heights[1], 0.5, 1e-12);
    EXPECT_TRUE(s.Path(1, 2).Equals(CVector3(0, 0.5, 0)));
  }
}

TEST(ProcessContacts, TargetFollowsThePlantedSourceFoot) {
  {  // Positions 5, 6, 8 become steps 0, 1, 2; a plane without a source keeps its path.
    Character s(kBiped, 3);
    s.target->Node(6).source_index = -1;
    s.Fill(0, 3, {5, 6, 8}, {0, 0, 0});
    s.Fill(1, 6, {5, 6, 8}, {0, 0, 0});
    ProcessContacts(*s.motion);
    for (int32_t f = 0; f < 3; ++f) EXPECT_EQ(s.Path(0, f).GetX(), double(f));
    EXPECT_EQ(s.Path(1, 2).GetX(), 8.0);
  }
  {  // The source foot stands (jitter below 0.5 % of its bone) from frame 3 to 7 while the
     // target's slides; leg ratio 2. Then back onto its own path over four frames.
    Character s(kBiped, 12);
    s.target->leg_length = 2.0;
    s.target->Node(3).length = 100.0;
    const Vector source_x = {0, .5, 1, 1.001, 1.002, 1.001, 1.003, 1.002, 1.5, 2, 2.5, 3};
    s.Fill(0, 3, source_x, {0, .3, .6, .9, 1.2, 1.5, 1.8, 2.1, 2.4, 2.7, 3, 3.3});
    ProcessContacts(*s.motion);
    for (int32_t r = 2; r <= 7; ++r) {  // planted: the source's drift, scaled
      EXPECT_NEAR(s.At(3, r).GetX(), 0.6 + 2 * (source_x[size_t(r)] - 1), 1e-12);
    }
    const double from = s.At(3, 7).GetX();
    for (int32_t r = 8; r < 12; ++r) {
      EXPECT_NEAR(s.At(3, r).GetX(), from + (r - 7) / 4.0 * (3.3 - from), 1e-12) << r;
    }
  }
  {  // A contact lasting to the last frame: re-integrated, not blended back.
    Character s(kBiped, 8);
    s.target->leg_length = 2.0;
    s.Fill(0, 3, {0, .5, 1, 1.5, 1.501, 1.502, 1.503, 1.504}, {0, .3, .6, .9, 1.2, 1.5, 1.8, 2.1});
    ProcessContacts(*s.motion);
    for (int32_t r = 4; r < 8; ++r) EXPECT_NEAR(s.At(3, r).GetX(), 0.9 + 0.002 * (r - 3), 1e-12);
  }
  {  // The blend back keeps the foot within reach (1) of its anchor at the origin.
    Character s(kBiped, 8);
    s.Fill(0, 3, {0, .001, .002, .003, 1, 2, 3, 4}, {2, 2, 2, 2, 2, 2, 2, 2});
    ProcessContacts(*s.motion);
    EXPECT_NEAR(s.At(3, 3).GetX(), 2.003, 1e-12);
    for (int32_t r = 4; r < 8; ++r) EXPECT_TRUE(s.At(3, r).Equals(CVector3(1, 0, 0), 1e-12)) << r;
  }
  {  // A step under 0.5 % of the foot bone (1) is a contact to the end, one over it is not.
    for (const double step : {0.0049, 0.0051}) {
      Character s(kBiped, 3);
      s.Fill(0, 3, {0, step, 2 * step}, {0, 1, 2});
      ProcessContacts(*s.motion);
      EXPECT_NEAR(s.At(3, 2).GetX(), step < 0.005 ? 2 * step : 2.0, 1e-12) << step;
    }
  }
}

TEST(FitLimbEndPaths, PiecesFollowTheSourceNeverAgainstIt) {
  struct Case {
    const char* what;
    Vector source, target, expected;
  };
  // Source leg 1, target leg 2; frame 0 always keeps its value. A move under a quarter leg
  // is no longer than the source's, one over it the target's own; a still source has
  // factor 1; extremes are reached at their key frames; a maximum counts only on a frame
  // without a new minimum.
  const Case cases[] = {
      {"against the source", {0, .1, .2, .3, .4}, {.7, .6, .5, .4, .3}, {.7, .9, 1.1, 1.3, 1.5}},
      {"under a quarter leg", {0, .24}, {.7, 1.7}, {.7, 1.18}},
      {"over a quarter leg", {0, .26}, {.7, 1.7}, {.7, 1.7}},
      {"still", {0, 3e-8, 5e-8}, {.7, .7 + 1e-8, .7 + 2e-8}, {.7, .7 + 3e-8, .7 + 5e-8}},
      {"extremes",
       {0, -1, -2, -1, 0, 1, 2, 1},
       {.7, -3, -8, -5, 0, 4, 9, 5},
       {.7, -3.65, -8, -3.75, .5, 4.75, 9, 5}},
      {"max without a new min", {0, -1, -.5, -2}, {.7, 0, .2, -3.3}, {.7, -.3, .2, -3.3}},
      {"min on the last frame", {0, -.1, -.2, -.3}, {.7, .5, .4, .1}, {.7, .5, .3, .1}},
      {"a single frame", {4}, {.7}, {.7}},
  };
  for (const Case& c : cases) {
    Character s(kQuadruped, int32_t(c.source.size()));
    s.target->leg_length = 2.0;
    s.Fill(1, 8, c.source, c.target);
    FitLimbEndPaths(*s.motion);
    for (size_t f = 0; f < c.source.size(); ++f) {
      EXPECT_NEAR(s.At(8, int32_t(f)).GetX(), c.expected[f], 1e-12) << c.what << f;
    }
  }
  {  // Limb heights: a frame beyond reach counts as pulled back onto it; a limb end without
     // a source is measured too, and not moved.
    Character s(kQuadruped, 2);
    s.target->Node(8).length = 1.5;
    s.target->Node(5).source_index = -1;
    s.Fill(1, 6, {0, 0}, {1, 1}, 1);
    s.Fill(1, 8, {0, 0}, {-1, 0}, 1);
    s.Fill(0, 5, {0, 0}, {-0.4, -0.4}, 1);
    FitLimbEndPaths(*s.motion);
    EXPECT_NEAR(s.motion->limb_heights[1], 1.5, 1e-12);
    EXPECT_NEAR(s.motion->limb_heights[0], 0.4, 1e-12);
    EXPECT_TRUE(s.At(5, 1).Equals(CVector3(0, -0.4, 0)));
  }
}

TEST(AlignOtherFeet, FeetMeetTheGroundAsTheSourcesDo) {
  {  // No grounded foot (every foot below a free node): nothing changes.
    Character s(kQuadruped, 2);
    s.structure.nodes[6].type = s.structure.nodes[9].type = StructureNodeType::kFree;
    for (int32_t p = 0; p < 3; ++p) s.Fill(p, 3 * p + 5, {1, 2}, {3, 4}, 1);
    const auto before = s.motion->global_poses;
    AlignOtherFeet(*s.motion);
    for (int32_t i = 0; i < 12; ++i) EXPECT_EQ(s.At(i, 1), before[size_t(i)][1].GetTranslation());
  }
  {  // Two feet below the same spine node (the hand and, re-parented, foot 11), each put
     // level with the grounded foot: the spine node rises by the smaller shortfall.
    Character s(kQuadruped, 1);
    s.structure.nodes[9].parent = 3;
    s.motion->limb_heights = {1.0, 0.0, 1.0};
    s.Put(3, 0, CVector3(0, 0.2, 0));
    s.Put(9, 0, CVector3(0, 0.5, 0));
    AlignOtherFeet(*s.motion);
    EXPECT_NEAR(s.At(1, 0).GetY(), 1.0 - 0.5, 1e-12);
  }
  {  // Hand (plane 0) against the grounded left foot (plane 1); target leg 2, foot bone 2
     // on the target and 1 on the source.
    Character s(kQuadruped, 3);
    s.target->leg_length = 2.0;
    s.target->Node(8).length = 2.0;
    s.motion->limb_heights[0] = 1.0;
    s.Fill(1, 8, {0.6, 0.5, 0.7}, {0.5, 0.3, 0.4}, 1);
    s.Fill(0, 5, {0.8, 1.0, 0.9}, {1.0, 0.8, 0.9}, 1);
    s.Fill(2, 3, {0, 0, 0}, {2, 2, 2}, 1);  // the arm's anchor
    AlignOtherFeet(*s.motion);
    // Grounded foot's lowest point: target leg x source lowest / source leg = 1.0.
    EXPECT_NEAR(s.At(8, 1).GetY(), 1.0, 1e-12);
    // Hand's lowest point over the foot's at the source's lowest frame: 2 x (1.0 - 0.5).
    EXPECT_NEAR(s.At(5, 1).GetY() - s.At(8, 1).GetY(), 1.0, 1e-12);
    EXPECT_NEAR(s.At(5, 0).GetY() - s.At(5, 1).GetY(), 0.2, 1e-12);
    // The spine node carrying the arm rises by the recorded limb height 1.0 less the 0.7
    // that the arm now spans; every node moves with the ground.
    EXPECT_NEAR(s.At(1, 2).GetY() - s.At(0, 2).GetY(), 0.3, 1e-12);
    EXPECT_NEAR(s.At(0, 2).GetY(), 0.7, 1e-12);
  }
}

TEST(FillUpVectors, StraightLimbFramesGetADirection) {
  {  // Between defined frames a normalised blend (a short entry counts as undefined), of
     // opposite vectors the previous frame's; a tail keeps the last value; a plane never
     // defined stays zero.
    Character s(kBiped, 9);
    s.Up(0, 0) = CVector3(1, 0, 0);
    s.Up(0, 2) = CVector3(0.3, 0, 0);
    s.Up(0, 4) = CVector3(0, 1, 0);
    s.Up(0, 6) = CVector3(0, -1, 0);
    FillUpVectors(*s.motion);
    EXPECT_TRUE(s.Up(0, 1).Equals(CVector3(3, 1, 0) * (1 / std::sqrt(10.0)), 1e-12));
    EXPECT_TRUE(s.Up(0, 2).Equals(CVector3(1, 1, 0) * std::sqrt(0.5), 1e-12));
    EXPECT_TRUE(s.Up(0, 5).Equals(CVector3(0, 1, 0)));
    EXPECT_TRUE(s.Up(0, 8).Equals(CVector3(0, -1, 0)));
    EXPECT_TRUE(s.Up(1, 3).Equals(CVector3()));
  }
  {  // Undefined from the start: the first defined up-vector turns with the anchor, which
     // turns 30 degrees about +Y per frame.
    Character s(kBiped, 4);
    for (int32_t f = 0; f < 4; ++f) {
      s.Pose(1, f).SetRotation(
          KRX::MATH::CRotation::FromAxisAngle(CVector3(0, 1, 0), f * KRX::MATH::kPi / 6));
    }
    s.Up(0, 3) = CVector3(0, 0, 1);
    FillUpVectors(*s.motion);
    EXPECT_TRUE(s.Up(0, 0).Equals(CVector3(-1, 0, 0), 1e-12));
    EXPECT_TRUE(s.Up(0, 2).Equals(CVector3(-0.5, 0, std::sqrt(0.75)), 1e-12));
  }
}

TEST(Finish, DegenerateInputsStayFinite) {
  for (Body body : {kBiped, kQuadruped}) {  // zero source leg and bones, feet on anchors
    Character s(body, 5);
    s.source->leg_length = 0.0;
    s.target->leg_length = 2.0;
    for (int32_t i = 0; i < s.structure.NumNodes(); ++i) {
      s.source->Node(i).length = s.target->Node(i).length = 0.0;
    }
    s.Fill(1, 6, {0, .1, .2, .3, .4}, {0, 0, 0, 0, 0}, 1);
    Finish(*s.motion);
    EXPECT_TRUE(AllFinite(*s.motion));
    if (body == kBiped) {  // the leg ratio is taken as 1
      EXPECT_NEAR(s.At(6, 4).GetY(), 0.4, 1e-12);
    }
  }
  {  // Parent links in a loop that reaches neither node 0 nor a free node: walks end.
    Character s(kQuadruped, 2);
    s.structure.nodes[1].type = s.structure.nodes[2].type = StructureNodeType::kChild;
    s.structure.nodes[1].parent = 2;
    Finish(*s.motion);
    EXPECT_TRUE(AllFinite(*s.motion));
  }
  {  // Arrays that do not match the structure: left as they are, with a warning.
    Character s(kBiped, 3);
    s.motion->global_poses[2].pop_back();
    s.Path(0, 1) = CVector3(1, 2, 3);
    KRX::rt::ClearLog();
    Finish(*s.motion);
    EXPECT_TRUE(s.Path(0, 1).Equals(CVector3(1, 2, 3)));
    EXPECT_EQ(KRX::rt::LogLines().size(), 1u);
  }
}

}  // namespace
}  // namespace kavor
