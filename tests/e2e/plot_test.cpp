// Plotting a live retarget by command, on real captures of two naming conventions: the
// curves alone then play what the operators played, every frame or key-reduced, and the
// plot page offers the live motion's frame range.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "e2e/capture_scene_test.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/motion/capture_rig_support.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

namespace kavor::e2e {
namespace {

namespace fs = std::filesystem;
namespace ct = capturetest;
using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

constexpr int32_t kPlotFirst = 1;
constexpr int32_t kPlotLast = 120;

KRX::Model SceneModel(const wchar_t* name) {
  return KRX::Model(KRX::Application().GetActiveSceneRoot().FindChild(name, L"", false));
}

std::vector<KRX::X3DObject> RetargetedObjects(const KRX::Model& model) {
  std::vector<KRX::X3DObject> driven;
  for (const KRX::X3DObject& object : model.FindChildren(L"", L"", true)) {
    if (FindOperatorByName(object.GetKinematics().GetGlobal().GetFullName(), L"RetargetGlobalOp",
                           nullptr)) {
      driven.push_back(object);
    }
  }
  return driven;
}

using Motion = std::vector<std::vector<CTransformation>>;  // [object][frame]

Motion RecordMotion(const std::vector<KRX::X3DObject>& objects) {
  // A chain operator's first evaluation after it was made writes nothing.
  for (const KRX::X3DObject& object : objects) {
    (void)object.GetKinematics().GetGlobal().GetTransform(kPlotFirst);
  }
  Motion motion(objects.size());
  for (int32_t f = kPlotFirst; f <= kPlotLast; ++f) {
    for (size_t o = 0; o < objects.size(); ++o) {
      motion[o].push_back(objects[o].GetKinematics().GetGlobal().GetTransform(f));
    }
  }
  return motion;
}

// Largest position distance and largest rotation angle (degrees) between two recordings.
std::pair<double, double> LargestDeviation(const Motion& a, const Motion& b) {
  double position = 0.0, angle = 0.0;
  for (size_t o = 0; o < a.size(); ++o) {
    for (size_t f = 0; f < a[o].size(); ++f) {
      position =
          std::max(position, (a[o][f].GetTranslation() - b[o][f].GetTranslation()).GetLength());
      const CQuaternion p = a[o][f].GetRotationQuaternion();
      const CQuaternion q = b[o][f].GetRotationQuaternion();
      const double dot = std::abs(p.GetW() * q.GetW() + p.GetX() * q.GetX() + p.GetY() * q.GetY() +
                                  p.GetZ() * q.GetZ());
      angle = std::max(angle, 2.0 * std::acos(std::min(1.0, dot)) * 180.0 / M_PI);
    }
  }
  return {position, angle};
}

class PlotTest : public CaptureSceneTest {
 protected:
  struct PlotFigures {
    double rotation_frames_per_key = 0.0, rotation_deviation = -1.0;
    double position_frames_per_key = 0.0, position_deviation = -1.0;
  };

  // The CMU walk retargeted onto a capture rig of another naming convention; false when the
  // shared captures are absent. `neutral_pose`: the target's chest gets a neutral pose under
  // its values first, so that keyed values must take it into account.
  bool RetargetWalk(bool neutral_pose = false) {
    const fs::path cmu = ct::SharedCapture("cmu_02_01.bvh");
    const fs::path other = ct::SharedCapture("dataset-1_walk_normal_001.bvh");
    if (cmu.empty() || other.empty()) return false;
    for (const auto& [path, name, tags] : {std::tuple{cmu, L"Source", "CmuJointNames.tagt"},
                                           std::tuple{other, L"Target", "JointRootNames.tagt"}}) {
      RunCommand(L"ImportBVH", {KRX::CValue(path.wstring()), KRX::CValue(name)});
      EXPECT_TRUE(RunCommand(L"LoadTagTemplateFile",
                             {KRX::CValue(name), KRX::CValue(ct::ShippedTemplate(tags).wstring())})
                      .GetBool());
    }
    if (neutral_pose) {
      for (const auto& [parameter, value] : {std::pair{L"Target.Chest.kine.local.nrotz", 30.0},
                                             std::pair{L"Target.Chest.kine.local.nposx", 2.0}}) {
        RunCommand(L"SetValue", {KRX::CValue(parameter), KRX::CValue(value)});
      }
    }
    return RunCommand(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Target"),
                                    KRX::CValue(kPlotFirst), KRX::CValue(kPlotLast)})
        .GetBool();
  }

  static bool Plot(bool preserve, bool inflection, bool interval, int step) {
    RunCommand(L"PlotRetargetMotion",
               {KRX::CValue(L"Target"), KRX::CValue(preserve), KRX::CValue(inflection),
                KRX::CValue(interval), KRX::CValue(step), KRX::CValue(kPlotFirst),
                KRX::CValue(kPlotLast + 1)});
    return !RetargetedObjects(SceneModel(L"Target")).empty() ? false : true;
  }
};

// Plotted straight after a scene is reopened, before anything evaluated the retarget.
TEST_F(PlotTest, EveryFramePlotPlaysTheLiveMotionWithNoOperatorLeft) {
  if (!RetargetWalk(true)) GTEST_SKIP() << "the shared captures are not here";
  std::vector<std::wstring> names;
  for (const KRX::X3DObject& object : RetargetedObjects(SceneModel(L"Target"))) {
    names.push_back(object.GetName().GetWideString());
  }
  ASSERT_GE(names.size(), 10u);
  const Motion live = RecordMotion(RetargetedObjects(SceneModel(L"Target")));
  const fs::path scene = fs::temp_directory_path() / "kavor_plot_reopen.scn";
  ASSERT_TRUE(RunCommand(L"SaveScene", {KRX::CValue(scene.wstring())}).GetBool());
  ASSERT_TRUE(RunCommand(L"OpenScene", {KRX::CValue(scene.wstring())}).GetBool());
  fs::remove(scene);
  const KRX::Model target = SceneModel(L"Target");
  std::vector<KRX::X3DObject> objects;
  for (const std::wstring& name : names) objects.push_back(target.FindChild(name, L"", true));

  ASSERT_TRUE(Plot(false, false, true, 1));
  KRX::Property adjust;
  EXPECT_FALSE(FindPropertyByName(target, L"RetargetAdjustPPG", &adjust));
  const Motion baked = RecordMotion(objects);
  const auto [position, angle] = LargestDeviation(live, baked);
  EXPECT_LT(position, 1e-6);
  EXPECT_LT(angle, 1e-4);
  // Every frame is a key, joined by lines, and angles never jump by half a turn or more.
  int32_t rotations = 0;
  for (const KRX::X3DObject& object : objects) {
    for (const wchar_t* name : {L"rotx", L"roty", L"rotz"}) {
      const KRX::FCurve curve = object.GetKinematics().GetLocal().GetParameter(name).GetFCurve();
      if (!curve.IsValid()) continue;
      ++rotations;
      const std::vector<KRX::FCurveKeyData> keys = curve.GetKeys();
      ASSERT_EQ(keys.size(), static_cast<size_t>(kPlotLast - kPlotFirst + 1));
      EXPECT_EQ(keys[0].interpolation, KRX::Interpolation::Linear);
      for (size_t k = 1; k < keys.size(); ++k) {
        EXPECT_LT(std::abs(keys[k].value - keys[k - 1].value), 180.0)
            << object.GetName().GetAsciiString() << " frame " << keys[k].time;
      }
    }
  }
  EXPECT_GE(rotations, 30);
}

// Under the default rules and with the tolerance options: frames per key and the largest
// deviation of the curves from the samples by channel kind (from the plot's report), the
// whole pose's deviation, and foot drift where the live foot stands still.
TEST_F(PlotTest, ReducedPlotKeepsFewKeysCloseToTheLiveMotion) {
  for (const bool within_tolerance : {false, true}) {
    SCOPED_TRACE(within_tolerance ? "with tolerances" : "default rules");
    KRX::rt::ResetScene();
    ct::NewSceneWithShippedData();
    if (within_tolerance) {
      ASSERT_TRUE(UsePreference(L"PLOT", L"ROTATION_TOLERANCE_MILLIDEGREES", 500));
      ASSERT_TRUE(UsePreference(L"PLOT", L"POSITION_TOLERANCE_PPM_OF_LEG", 1000));
    }
    if (!RetargetWalk()) GTEST_SKIP() << "the shared captures are not here";
    const KRX::Model target = SceneModel(L"Target");
    const std::vector<KRX::X3DObject> objects = RetargetedObjects(target);
    ASSERT_GE(objects.size(), 10u);
    const Motion live = RecordMotion(objects);
    const double leg =
        RunCommand(L"GetValue", {KRX::CValue(L"Target.ZRKMap.LegLength")}).GetDouble();
    KRX::rt::ClearLog();
    ASSERT_TRUE(Plot(false, true, false, 1));
    const Motion baked = RecordMotion(objects);
    const auto [position, angle] = LargestDeviation(live, baked);

    PlotFigures figures;
    for (const std::string& line : LoggedTexts(KRX::kSeverityInfo)) {
      std::sscanf(line.c_str(),
                  "Plotted %*d objects over %*d frames: rotations %lf frames per key (largest "
                  "deviation %lf degrees), positions %lf frames per key (largest deviation %lf",
                  &figures.rotation_frames_per_key, &figures.rotation_deviation,
                  &figures.position_frames_per_key, &figures.position_deviation);
    }
    double live_drift = 0.0, baked_drift = 0.0;
    int planted = 0;
    for (size_t o = 0; o < objects.size(); ++o) {
      const std::string name = objects[o].GetName().GetAsciiString();
      if (name.rfind("Foot_", 0) != 0) continue;
      for (size_t f = 1; f < live[o].size(); ++f) {
        const CVector3 step = live[o][f].GetTranslation() - live[o][f - 1].GetTranslation();
        if (std::hypot(step.GetX(), step.GetZ()) > 0.002 * leg) continue;
        ++planted;
        live_drift = std::max(live_drift, step.GetLength());
        baked_drift =
            std::max(baked_drift,
                     (baked[o][f].GetTranslation() - baked[o][f - 1].GetTranslation()).GetLength());
      }
    }
    std::printf(
        "[ figures  ] %s: rotations %.2f frames/key, %.4f deg; positions %.2f frames/key, "
        "%.5f leg; whole pose %.4f leg, %.3f deg; planted frames %d, foot drift %.6f leg live, "
        "%.6f leg plotted\n",
        within_tolerance ? "tolerances" : "default", figures.rotation_frames_per_key,
        figures.rotation_deviation, figures.position_frames_per_key, figures.position_deviation,
        position / leg, angle, planted, live_drift / leg, baked_drift / leg);
    EXPECT_GT(figures.rotation_frames_per_key, 2.0);
    EXPECT_GT(planted, 10);
    if (within_tolerance) {
      EXPECT_LE(figures.rotation_deviation, 0.5 + 1e-9);
      EXPECT_LE(figures.position_deviation, 0.001 + 1e-9);
    }
  }
}

// Planted frames force keys on the limb's position curves only; a one-frame plot is one key;
// preserving source keys without a running retarget keys only the first and last frames.
TEST_F(PlotTest, PlantedFramesOneFrameAndPreserveWithoutARetarget) {
  if (!RetargetWalk()) GTEST_SKIP() << "the shared captures are not here";
  const KRX::Model target = SceneModel(L"Target");
  const KRX::X3DObject foot = target.FindChild(L"Foot_L", L"", true);
  ASSERT_TRUE(foot.IsValid());
  {
    // An interval longer than the take: only the ends and the planted frames are keys.
    ASSERT_TRUE(Plot(false, false, true, 1000));
    const KRX::FCurve position = foot.GetKinematics().GetLocal().GetParameter(L"posx").GetFCurve();
    const KRX::FCurve rotation = foot.GetKinematics().GetLocal().GetParameter(L"rotx").GetFCurve();
    ASSERT_TRUE(position.IsValid() && rotation.IsValid());
    EXPECT_GT(position.GetNumKeys(), 10);
    EXPECT_EQ(rotation.GetNumKeys(), 2);
  }
  {
    // The source was never retargeted: nothing runs on it, so preserve has nothing to keep.
    RunCommand(L"PlotRetargetMotion",
               {KRX::CValue(L"Source"), KRX::CValue(true), KRX::CValue(false), KRX::CValue(false),
                KRX::CValue(1), KRX::CValue(kPlotFirst), KRX::CValue(kPlotLast + 1)});
    const KRX::X3DObject hips = SceneModel(L"Source").FindChild(L"Hips", L"", true);
    const KRX::FCurve curve = hips.GetKinematics().GetLocal().GetParameter(L"posy").GetFCurve();
    ASSERT_TRUE(curve.IsValid());
    ASSERT_EQ(curve.GetNumKeys(), 2);
    EXPECT_EQ(curve.GetKey(0).time, kPlotFirst);
    EXPECT_EQ(curve.GetKey(1).time, kPlotLast);
  }
  {
    RunCommand(L"PlotRetargetMotion",
               {KRX::CValue(L"Source"), KRX::CValue(false), KRX::CValue(true), KRX::CValue(false),
                KRX::CValue(1), KRX::CValue(7), KRX::CValue(8)});
    const KRX::X3DObject hips = SceneModel(L"Source").FindChild(L"Hips", L"", true);
    const KRX::FCurve curve = hips.GetKinematics().GetLocal().GetParameter(L"posy").GetFCurve();
    ASSERT_TRUE(curve.IsValid());
    ASSERT_EQ(curve.GetNumKeys(), 1);
    EXPECT_EQ(curve.GetKey(0).time, 7.0);
  }
}

// The page offers the live motion's range, ending where Speed makes the motion end.
TEST_F(PlotTest, PlotPageShowsTheLiveRange) {
  if (!RetargetWalk()) GTEST_SKIP() << "the shared captures are not here";
  KRX::Model target = SceneModel(L"Target");
  for (const auto& [speed, end] : {std::pair{1.0, kPlotLast}, std::pair{2.0, 61}}) {
    RunCommand(L"SetValue", {KRX::CValue(L"Target.RetargetAdjustPPG.Speed"), KRX::CValue(speed)});
    KRX::Property page;
    if (!FindPropertyByName(target, L"PlotRetargetPPG", &page)) {
      page = target.AddProperty(L"PlotRetargetPPG");
    }
    ASSERT_TRUE(page.IsValid());
    KRX::rt::QueueAnswer({KRX::rt::AnswerKind::Ok, 0, KRX::CString()});
    RunCommand(L"InspectObj",
               {KRX::CValue(page.GetFullName()), KRX::CValue(L""),
                KRX::CValue(L"Plot KAVOR Keyframes"), KRX::CValue(4), KRX::CValue(false)});
    const KRX::CustomProperty plot(page.GetRef());
    ASSERT_TRUE(plot.GetParameter(L"Start").IsValid());
    EXPECT_EQ(plot.GetParameterValue(L"Start").GetInt(), kPlotFirst);
    EXPECT_EQ(plot.GetParameterValue(L"End").GetInt(), end) << "speed " << speed;
    EXPECT_TRUE(plot.GetParameterValue(L"Interval").GetBool());
  }
}

}  // namespace
}  // namespace kavor::e2e
