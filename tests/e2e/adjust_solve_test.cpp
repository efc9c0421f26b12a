// Adjustments that reshape a live retarget's solve, measured on a real capture through
// commands by name: stride, foot clamps with their release, rotation offsets with
// "Reduce", and adjustment presets carried from one retarget to another.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/motion/capture_rig_support.h"

namespace kavor::e2e::adjust_solve {
namespace {

namespace fs = std::filesystem;
namespace ct = capturetest;
using KRX::MATH::CVector3;

constexpr int32_t kFirst = 1;
constexpr int32_t kLast = 120;

bool Set(const std::wstring& path, const KRX::CValue& value) {
  KRX::CValue ignored;
  return KRX::Succeeded(
      KRX::Application().ExecuteCommand(L"SetValue", {KRX::CValue(path), value}, ignored));
}

// Imports the capture as `name`, tags it and, given a source, retargets it onto it.
KRX::Model Rig(const fs::path& capture, const wchar_t* name, const wchar_t* source) {
  RunCommand(L"ImportBVH", {KRX::CValue(capture.wstring()), KRX::CValue(name)});
  const std::wstring tags = ct::ShippedTemplate("CmuJointNames.tagt").wstring();
  EXPECT_TRUE(RunCommand(L"LoadTagTemplateFile", {KRX::CValue(name), KRX::CValue(tags)}).GetBool());
  if (source != nullptr) {
    EXPECT_TRUE(RunCommand(L"Retarget", {KRX::CValue(source), KRX::CValue(name),
                                         KRX::CValue(kFirst), KRX::CValue(kLast)})
                    .GetBool());
  }
  return KRX::Model(KRX::Application().GetActiveSceneRoot().FindChild(name, L"", false));
}

KRX::MATH::CTransformation GlobalOf(const KRX::Model& model, const std::wstring& joint,
                                    double frame) {
  return model.FindChild(joint, L"", true).GetKinematics().GetGlobal().GetTransform(frame);
}

double Gap(const CVector3& a, const CVector3& b) { return (a - b).GetLength(); }

// Every frame's place of each joint (all of the rig's when none are named), from kFirst.
using Paths = std::map<std::wstring, std::vector<CVector3>>;
Paths Play(const KRX::Model& model, std::vector<std::wstring> joints = {}) {
  if (joints.empty()) {
    for (const KRX::X3DObject& object : model.FindChildren(L"", L"", true)) {
      joints.push_back(object.GetName().GetWideString());
    }
  }
  for (const std::wstring& joint : joints) GlobalOf(model, joint, kFirst);
  Paths paths;
  for (int32_t f = kFirst; f <= kLast; ++f) {
    for (const std::wstring& joint : joints) {
      paths[joint].push_back(GlobalOf(model, joint, f).GetTranslation());
    }
  }
  return paths;
}

KRX::CustomProperty Adjustments(const KRX::Model& model) {
  KRX::Property property;
  FindPropertyByName(model, L"RetargetAdjustPPG", &property);
  return KRX::CustomProperty(property.GetRef());
}

class AdjustSolveTest : public KavorModuleTest {
 protected:
  void SetUp() override {
    KavorModuleTest::SetUp();
    ct::NewSceneWithShippedData();
    capture_ = ct::SharedCapture("cmu_02_01.bvh");
    if (capture_.empty()) GTEST_SKIP() << "the shared captures are not here";
    source_ = Rig(capture_, L"Source", nullptr);
    target_ = Rig(capture_, L"Target", L"Source");
    leg_ = RunCommand(L"GetValue", {KRX::CValue(L"Target.ZRKMap.LegLength")}).GetDouble();
    ASSERT_GT(leg_, 0.0);
    // The first limb plane marked as a foot: its end node's name and its rig object.
    const KRX::CustomProperty adjust = Adjustments(target_);
    for (int k = 0; k < 64 && foot_.empty(); ++k) {
      const KRX::Parameter name = adjust.GetParameter(L"name" + std::to_wstring(k));
      end_ = name.IsValid() ? name.GetValue().GetString().GetWideString() : L"";
      if (!end_.empty() && adjust.GetParameterValue(end_ + L"Foot").GetBool()) {
        foot_ = adjust.GetParameterValue(L"obj" + std::to_wstring(k)).GetString().GetWideString();
      }
    }
    ASSERT_FALSE(foot_.empty());
  }
  void TearDown() override { KRX::rt::ResetScene(); }

  fs::path capture_;
  KRX::Model source_, target_;
  double leg_ = 0.0;
  std::wstring end_, foot_;
};

TEST_F(AdjustSolveTest, StrideScalesOnlyTheTravelAlongItsDirection) {
  const std::vector<CVector3> walked = Play(target_, {L"Hips"}).at(L"Hips");
  ASSERT_EQ(walked.size(), static_cast<size_t>(kLast - kFirst + 1));
  // With stride 1 the root walks the capture's own path.
  const std::vector<CVector3> captured = Play(source_, {L"Hips"}).at(L"Hips");
  for (size_t f = 0; f < walked.size(); ++f) EXPECT_LT(Gap(walked[f], captured[f]), 1e-9 * leg_);
  CVector3 travel = walked.back() - walked.front();
  travel.PutY(0.0);
  ASSERT_TRUE(travel.NormalizeInPlace());
  for (const double stride : {0.0, 2.0}) {
    ASSERT_TRUE(Set(L"Target.RetargetAdjustPPG.Stride", KRX::CValue(stride)));
    const Paths both = Play(target_, {L"Hips", foot_});
    const std::vector<CVector3>& played = both.at(L"Hips");
    for (size_t f = 0; f < played.size(); ++f) {
      const CVector3 step = played[f] - played[0], walked_step = walked[f] - walked[0];
      const double along = step.Dot(travel), walked_along = walked_step.Dot(travel);
      EXPECT_NEAR(along, stride * walked_along, 1e-6 * leg_) << stride << " frame " << f;
      // Sideways and up and down the root moves as before.
      EXPECT_LT(Gap(step - travel * along, walked_step - travel * walked_along), 1e-6 * leg_) << f;
      // Feet take the same stride: with none they stay level with the root (but where the
      // limb cannot reach).
      const double foot_along = (both.at(foot_)[f] - played[f]).Dot(travel);
      EXPECT_TRUE(stride != 0.0 || std::abs(foot_along) < 1e-4 * leg_) << foot_along;
    }
  }
  // Keyed 1 at the first frame, then set to 0 without a key at frame 61: the stride falls
  // in a straight line by 1/60 a frame, on past the frame shown.
  ASSERT_TRUE(Adjustments(target_).GetParameter(L"Stride").AddFCurve({{kFirst, 1.0}}).IsValid());
  KRX::Application().PutCurrentFrame(61);
  ASSERT_TRUE(Set(L"Target.RetargetAdjustPPG.Stride", KRX::CValue(0.0)));
  const std::vector<CVector3> ramped = Play(target_, {L"Hips"}).at(L"Hips");
  double along = 0.0;
  for (size_t f = 1; f < ramped.size(); ++f) {
    along += (1.0 - f / 60.0) * (walked[f] - walked[f - 1]).Dot(travel);
    EXPECT_NEAR((ramped[f] - ramped[0]).Dot(travel), along, 1e-6 * leg_) << "frame " << f;
  }
}

// Keyed through SaveKey (as the page keys), the hip offset follows its curve frame by
// frame; without "offsetFeet" the feet keep their places and only the body moves.
TEST_F(AdjustSolveTest, AKeyedHipOffsetMovesTheBodyAndTheFeetOnlyWithOffsetFeet) {
  const std::wstring hip_x = L"Target.RetargetAdjustPPG.hipX";
  const Paths base = Play(target_);
  ASSERT_EQ(base.at(foot_).size(), static_cast<size_t>(kLast - kFirst + 1));
  {  // Keyed through SaveKey, a clamp plants the foot from its key on (the page hears of it).
    const std::wstring clamp = L"Target.RetargetAdjustPPG." + end_ + L"Clamp";
    KRX::Application().PutCurrentFrame(41);
    ASSERT_TRUE(Set(clamp, KRX::CValue(true)));
    RunCommand(L"SaveKey", {KRX::CValue(clamp)});
    double held = 0.0;
    for (int32_t f = kFirst; f <= 60; ++f) {
      const double moved =
          Gap(GlobalOf(target_, foot_, f).GetTranslation(), base.at(foot_)[f - kFirst]);
      EXPECT_TRUE(f >= 41 || moved < 1e-6 * leg_) << f;
      held = std::max(held, moved);
    }
    EXPECT_GT(held, 0.01 * leg_);
    Adjustments(target_).GetParameter(end_ + L"Clamp").RemoveAnimation();
    ASSERT_TRUE(Set(clamp, KRX::CValue(false)));
  }
  KRX::Application().PutCurrentFrame(21);
  RunCommand(L"SaveKey", {KRX::CValue(hip_x)});  // 0 at frame 21
  KRX::Application().PutCurrentFrame(81);
  ASSERT_TRUE(Set(hip_x, KRX::CValue(0.2 * leg_)));
  RunCommand(L"SaveKey", {KRX::CValue(hip_x), KRX::CValue(81)});
  const KRX::FCurve curve = Adjustments(target_).GetParameter(L"hipX").GetFCurve();
  ASSERT_EQ(curve.GetNumKeys(), 2);
  EXPECT_NEAR(curve.Eval(51), 0.1 * leg_, 0.05 * leg_);
  const auto offset = [&](size_t f) { return CVector3(curve.Eval(kFirst + f), 0.0, 0.0); };
  const Paths keyed = Play(target_);
  for (const auto& [joint, path] : base) {
    for (size_t f = 0; f < path.size(); ++f) {
      EXPECT_LT(Gap(keyed.at(joint)[f], path[f] + offset(f)), 1e-6 * leg_) << f;
    }
  }
  ASSERT_TRUE(Set(L"Target.RetargetAdjustPPG.offsetFeet", KRX::CValue(false)));
  const std::wstring hand = L"LeftHand", hip = L"LeftUpLeg";
  const Paths kept = Play(target_, {L"Hips", hand, hip, foot_});
  const double reach =
      Gap(base.at(hip)[0], base.at(L"LeftLeg")[0]) + Gap(base.at(L"LeftLeg")[0], base.at(foot_)[0]);
  int planted = 0;
  for (size_t f = 0; f < kept.at(foot_).size(); ++f) {
    EXPECT_LT(Gap(kept.at(L"Hips")[f], base.at(L"Hips")[f] + offset(f)), 1e-6 * leg_) << f;
    EXPECT_LT(Gap(kept.at(hand)[f], base.at(hand)[f] + offset(f)), 1e-6 * leg_) << f;
    // The foot stays where the limb reaches it.
    if (Gap(kept.at(hip)[f], base.at(foot_)[f]) < reach * 0.99) {
      EXPECT_LT(Gap(kept.at(foot_)[f], base.at(foot_)[f]), 1e-6 * leg_) << f;
      planted += offset(f).GetX() > 0.05 * leg_;
    }
  }
  EXPECT_GT(planted, 10);
}

TEST_F(AdjustSolveTest, AClampKeyPlantsTheFootAndAReleaseKeyBlendsItBack) {
  const auto at = [&](const std::wstring& joint, double f) {
    return GlobalOf(target_, joint, f).GetTranslation();
  };
  const std::vector<CVector3> free = Play(target_, {foot_}).at(foot_);
  ASSERT_EQ(free.size(), static_cast<size_t>(kLast - kFirst + 1));
  constexpr int32_t kPlant = 31, kRelease = 61, kBlend = 6;
  const CVector3 free_between = at(foot_, kRelease + 1.5);
  KRX::Parameter clamp = Adjustments(target_).GetParameter(end_ + L"Clamp");
  ASSERT_TRUE(clamp.AddFCurve({{kPlant, 1.0}, {kRelease, 0.0}}).IsValid());
  ASSERT_TRUE(Set(L"Target.RetargetAdjustPPG." + end_ + L"BlendBack", KRX::CValue(kBlend)));
  const std::vector<CVector3> clamped = Play(target_, {foot_}).at(foot_);
  const CVector3 planted = free[kPlant - kFirst];
  EXPECT_GT(Gap(free[kRelease - 1 - kFirst], planted), 0.01 * leg_);
  // The limb cannot reach past its stretched-out length: a place farther from the hip is
  // pulled back onto that sphere.
  const KRX::X3DObject knee(target_.FindChild(foot_, L"", true).GetParent());
  const std::wstring hip = KRX::X3DObject(knee.GetParent()).GetName().GetWideString();
  const CVector3 knee_at_rest = at(knee.GetName().GetWideString(), kFirst);
  const double reach = Gap(knee_at_rest, at(hip, kFirst)) + Gap(free[0], knee_at_rest);
  const auto expect_at = [&](double time, const CVector3& place, const CVector3& found) {
    const CVector3 from_hip = place - at(hip, time);
    const double d = from_hip.GetLength();
    const CVector3 reached = d > reach ? at(hip, time) + from_hip * (reach / d) : place;
    EXPECT_LT(Gap(found, reached), 1e-6 * leg_) << "frame " << time;
  };
  for (int32_t f = kFirst; f <= kLast; ++f) {
    const size_t i = static_cast<size_t>(f - kFirst);
    CVector3 expected = free[i];
    if (f >= kPlant && f < kRelease) expected = planted;
    if (f >= kRelease && f < kRelease + kBlend) {
      const double t = static_cast<double>(f - kRelease) / kBlend;
      expected = planted * (1.0 - t) + free[i] * t;
    }
    expect_at(f, expected, clamped[i]);
  }
  // Between frames the blend goes by the fraction too: a quarter of the way 1.5 frames in.
  expect_at(kRelease + 1.5, planted * 0.75 + free_between * 0.25, at(foot_, kRelease + 1.5));
  // Planted in the space of clamp target 1 (the hips), the foot goes where the hips go.
  ASSERT_TRUE(Set(L"Target.RetargetAdjustPPG." + end_ + L"Frame", KRX::CValue(1)));
  const auto in_hips = [&](int32_t f) {
    return KRX::MATH::MapWorldPositionToObjectSpace(GlobalOf(target_, L"Hips", f), at(foot_, f));
  };
  for (int32_t f = kPlant; f < kRelease; ++f)
    EXPECT_LT(Gap(in_hips(f), in_hips(kPlant)), 1e-6 * leg_);
  EXPECT_GT(Gap(at(foot_, kRelease - 1), at(foot_, kPlant)), 0.05 * leg_);
}

TEST_F(AdjustSolveTest, ARootRotationOffsetTurnsTheBodyAndReduceGivesTheRestRotation) {
  const Paths plain = Play(target_);
  std::vector<KRX::MATH::CTransformation> hips, head;
  for (int32_t f = kFirst; f <= kLast; f += 7) {
    hips.push_back(GlobalOf(target_, L"Hips", f));
    head.push_back(GlobalOf(target_, L"Head", f));
  }
  ASSERT_TRUE(target_.FindChild(L"Hips", L"", true).AddProperty(L"RotationOffsetPPG").IsValid());
  const KRX::Parameter ping = Adjustments(target_).GetParameter(L"Ping");
  const int32_t pinged = ping.GetValue().GetInt();
  ASSERT_TRUE(Set(L"Target.Hips.RotationOffsetPPG.Y", KRX::CValue(90.0)));
  EXPECT_GT(ping.GetValue().GetInt(), pinged);  // the retarget evaluates again
  // A turn of 90 degrees about Y takes (x, y, z) to (z, y, -x), limbs bending with the body.
  const Paths turned = Play(target_);
  for (const auto& [joint, path] : plain) {
    for (size_t f = 0; f < path.size(); ++f) {
      const CVector3 expected(path[f].GetZ(), path[f].GetY(), -path[f].GetX());
      EXPECT_LT(Gap(turned.at(joint)[f], expected), 1e-6 * leg_) << f;
    }
  }
  {  // Saved and reopened, the offset still applies.
    const fs::path scene = fs::temp_directory_path() / "kavor_adjust_solve.krxs";
    ASSERT_TRUE(RunCommand(L"SaveScene", {KRX::CValue(scene.wstring())}).GetBool());
    ASSERT_TRUE(RunCommand(L"OpenScene", {KRX::CValue(scene.wstring())}).GetBool());
    fs::remove(scene);
    target_ = KRX::Model(KRX::Application().GetActiveSceneRoot().FindChild(L"Target", L"", false));
    const Paths reopened = Play(target_, {L"Hips", L"Head", foot_});
    for (const auto& [joint, path] : reopened) {
      for (size_t f = 0; f < path.size(); ++f) {
        EXPECT_LT(Gap(path[f], turned.at(joint)[f]), 1e-6 * leg_) << f;
      }
    }
  }
  ASSERT_TRUE(Set(L"Target.Hips.RotationOffsetPPG.Y", KRX::CValue(0.0)));
  // An offset on another node turns it about its own axes: 90 degrees about its X.
  ASSERT_TRUE(target_.FindChild(L"Head", L"", true).AddProperty(L"RotationOffsetPPG").IsValid());
  ASSERT_TRUE(Set(L"Target.Head.RotationOffsetPPG.X", KRX::CValue(90.0)));
  for (size_t i = 0; i < head.size(); ++i) {
    const KRX::MATH::CQuaternion turn =
        KRX::MATH::MapWorldPoseToObjectSpace(head[i], GlobalOf(target_, L"Head", kFirst + 7 * i))
            .GetRotationQuaternion();
    EXPECT_NEAR(std::abs(turn.GetW()), std::sqrt(0.5), 1e-9) << i;
    EXPECT_NEAR(std::abs(turn.GetX()), std::sqrt(0.5), 1e-9) << i;
  }
  ASSERT_TRUE(Set(L"Target.Head.RotationOffsetPPG.X", KRX::CValue(0.0)));
  ASSERT_TRUE(Set(L"Target.Hips.RotationOffsetPPG.Reduce", KRX::CValue(1.0)));
  // The capture's rest pose has no turn at its root; the nodes below keep their places
  // under it.
  for (size_t i = 0; i < hips.size(); ++i) {
    const int32_t f = kFirst + 7 * static_cast<int32_t>(i);
    const KRX::MATH::CTransformation reduced = GlobalOf(target_, L"Hips", f);
    EXPECT_NEAR(std::abs(reduced.GetRotationQuaternion().GetW()), 1.0, 1e-9) << "frame " << f;
    using KRX::MATH::MapWorldPositionToObjectSpace;
    EXPECT_LT(
        Gap(MapWorldPositionToObjectSpace(reduced, GlobalOf(target_, L"Head", f).GetTranslation()),
            MapWorldPositionToObjectSpace(hips[i], head[i].GetTranslation())),
        1e-6 * leg_);
  }
}

TEST_F(AdjustSolveTest, APresetCarriesEveryAdjustmentToAnotherRetarget) {
  const KRX::Model other = Rig(capture_, L"Other", L"Source");
  const std::wstring adjust = L"Target.RetargetAdjustPPG.";
  ASSERT_TRUE(Set(adjust + L"Stride", KRX::CValue(0.5)));
  ASSERT_TRUE(Set(adjust + L"hipX", KRX::CValue(0.1 * leg_)));
  ASSERT_TRUE(Set(adjust + end_ + L"Stretch", KRX::CValue(0.9)));
  ASSERT_TRUE(Set(adjust + end_ + L"Roll", KRX::CValue(12.5)));
  ASSERT_TRUE(target_.FindChild(L"Hips", L"", true).AddProperty(L"RotationOffsetPPG").IsValid());
  ASSERT_TRUE(Set(L"Target.Hips.RotationOffsetPPG.X", KRX::CValue(1.0 / 3.0)));

  const fs::path preset = fs::temp_directory_path() / "kavor_adjust_solve.adj";
  const KRX::CValue file(preset.wstring());
  RunCommand(L"SaveKAVORAdjustmentPresetFile", {KRX::CValue(L"Target"), file});
  RunCommand(L"LoadKAVORAdjustmentPresetFile", {KRX::CValue(L"Other"), file});
  fs::remove(preset);
  const KRX::CustomProperty to = Adjustments(other);
  for (const KRX::Parameter& parameter : Adjustments(target_).GetParameters()) {
    if (parameter.GetName() == KRX::CString(L"Ping")) continue;
    EXPECT_EQ(to.GetParameterValue(parameter.GetName()).GetString(),
              parameter.GetValue().GetString())
        << parameter.GetName().GetAsciiString();
  }
  const Paths expected = Play(target_), loaded = Play(other);
  for (const auto& [joint, path] : expected) {
    for (size_t f = 0; f < path.size(); ++f)
      EXPECT_LT(Gap(loaded.at(joint)[f], path[f]), 1e-9 * leg_);
  }
  // A model without a retarget has nothing to save.
  RunCommand(L"SaveKAVORAdjustmentPresetFile", {KRX::CValue(L"Source"), file});
  EXPECT_FALSE(fs::exists(preset));
}

}  // namespace
}  // namespace kavor::e2e::adjust_solve
