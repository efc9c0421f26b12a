#include <gtest/gtest.h>

#include <algorithm>

#include "files/scene_file.h"
#include "krx/files/scene_file_test_support.h"
#include "runtime/item.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace KRX::rt::testing {
namespace {

using MATH::CVector3;

class SceneFileRoundTrip : public SceneFileFixture {};

TEST_F(SceneFileRoundTrip, ReopenedSceneHoldsAndEvaluatesTheSame) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  const std::vector<CString> watched = {L"Rig.hip", L"Rig.knee", L"Rig.tip", L"Rig.dst"};
  const double frames[] = {1.0, 2.5, 4.0, 10.0};
  std::vector<MATH::CTransformation> before;
  for (const CString& name : watched) {
    ASSERT_TRUE(X3DObject(CRef::FromText(name)).IsValid()) << name.GetAsciiString();
    for (double frame : frames) before.push_back(GlobalAt(name, frame));
  }
  EXPECT_EQ(Counts().op_init, 1);
  EXPECT_EQ(Counts().prop_define, 1);

  const std::vector<std::string> fingerprint = SceneFingerprint();
  ASSERT_GT(fingerprint.size(), 100u);
  const std::string first = Path("first.scene");
  ASSERT_TRUE(SaveSceneFile(first).ok);
  ResetScene();
  EXPECT_EQ(Counts().op_term, 1);
  Application().GetActiveSceneRoot().AddNull(L"decoy");

  const FileResult opened = OpenSceneFile(first);
  ASSERT_TRUE(opened.ok) << opened.message;
  EXPECT_FALSE(X3DObject(CRef::FromText(L"decoy")).IsValid());
  EXPECT_EQ(Counts().scene_opened, 1);
  {  // Every item and every field as it was, in the same order.
    const std::vector<std::string> reopened = SceneFingerprint();
    EXPECT_EQ(reopened.size(), fingerprint.size());
    for (size_t i = 0; i < std::min(reopened.size(), fingerprint.size()); ++i) {
      EXPECT_EQ(reopened[i], fingerprint[i]);
    }
  }

  {  // The operator was connected again (its _Init ran) and evaluates as before; the
     // property the plug-in defined was not defined again.
    EXPECT_EQ(Counts().op_init, 2);
    EXPECT_EQ(Counts().prop_define, 1);
    size_t i = 0;
    for (const CString& name : watched) {
      for (double frame : frames) {
        ExpectSameTransform(GlobalAt(name, frame), before[i++], 1e-12,
                            name.GetAsciiString() + " at " + std::to_string(frame));
      }
    }
    EXPECT_EQ(Counts().op_update_without_data, 0);
    // src at x = 2, shifted by amount 0.75 and the _Init data 7.
    EXPECT_TRUE(GlobalAt(L"Rig.dst", 3.0).GetTranslation().Equals(CVector3(2.0, 7.75, 0.0), 1e-12));
  }
  {  // Kinematic parameters, a function curve's keys exactly, an expression.
    KinematicState hip = X3DObject(CRef::FromText(L"Rig.hip")).GetKinematics().GetLocal();
    EXPECT_EQ(hip.GetParameterValue(L"rotorder").GetInt(), 3);
    EXPECT_EQ(hip.GetParameterValue(L"nposy").GetDouble(), 0.5);
    EXPECT_EQ(hip.GetParameterValue(L"rotx").GetDouble(), 30.0);
    const std::vector<FCurveKeyData> keys = hip.GetParameter(L"posx").GetFCurve().GetKeys();
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_EQ(keys[0].right_dx, 1.0);
    EXPECT_EQ(keys[0].right_dy, 0.75);
    EXPECT_EQ(keys[1].left_dx, -0.5);
    EXPECT_EQ(keys[1].left_dy, -0.1);
    EXPECT_EQ(keys[1].interpolation, Interpolation::Linear);
    EXPECT_EQ(keys[2].time, 10.0);
    EXPECT_EQ(keys[2].value, -1.25);
    EXPECT_EQ(keys[2].interpolation, Interpolation::Constant);
    Parameter rotz =
        X3DObject(CRef::FromText(L"Rig.knee")).GetKinematics().GetLocal().GetParameter(L"rotz");
    EXPECT_EQ(rotz.GetExpression(), hip.GetParameter(L"rotx").GetFullName() + L" * 2 + 1");
    // The expression still drives: 30 * 2 + 1 degrees.
    EXPECT_NEAR(rotz.GetValue(1.0).GetDouble(), 61.0, 1e-12);
  }
  {  // Every field of custom parameters.
    CustomProperty controls(CRef::FromText(L"Rig.ctrl.Controls"));
    ASSERT_TRUE(controls.IsValid());
    Parameter amount = controls.GetParameter(L"amount");
    EXPECT_EQ(amount.GetValueType(), ValueType::Double);
    EXPECT_EQ(amount.GetCapabilities(), kCapAnimatable | kCapPersistable);
    EXPECT_EQ(amount.GetValue().GetDouble(), 0.75);
    EXPECT_EQ(amount.GetDefault().GetDouble(), 0.25);
    EXPECT_EQ(amount.GetMin().GetDouble(), -1.0);
    EXPECT_EQ(amount.GetMax().GetDouble(), 1.0);
    EXPECT_EQ(amount.GetSuggestedMin().GetDouble(), -0.5);
    EXPECT_EQ(amount.GetSuggestedMax().GetDouble(), 0.5);
    EXPECT_EQ(amount.GetLabel(), CString(L"Amount"));
    EXPECT_EQ(amount.GetDescription(), CString(L"How far"));
    EXPECT_EQ(controls.GetParameter(L"count").GetValue().GetType(), ValueType::Int);
    EXPECT_EQ(controls.GetParameter(L"count").GetValue().GetInt(), 3);
    EXPECT_EQ(controls.GetParameter(L"title").GetValue().GetString(),
              CString(std::wstring{L'h', 0xE9, L'\"', 0x2713}));
    EXPECT_EQ(controls.GetParameter(L"flag").GetCapabilities(), kCapReadOnly | kCapNotInspectable);
    EXPECT_EQ(controls.GetParameter(L"flag").GetValue().GetType(), ValueType::Bool);
    GridData grid = controls.GetParameter(L"table").GetGridData();
    ASSERT_EQ(grid.GetColumnCount(), 2);
    ASSERT_EQ(grid.GetRowCount(), 3);
    EXPECT_EQ(grid.GetColumnLabel(1), CString(L"Weight"));
    EXPECT_EQ(grid.GetRowLabel(2), CString(L"r2"));
    EXPECT_EQ(grid.GetCell(0, 1).GetString(), CString(L"j1"));
    EXPECT_EQ(grid.GetCell(1, 2).GetDouble(), 0.1 * 3);
  }
  {  // The plug-in's property as saved, its blob bytes, "Display Property", curve points.
    EXPECT_EQ(ProjectItem(CRef::FromText(L"Rig.ctrl.FileTestProp"))
                  .GetParameterValue(L"gain")
                  .GetDouble(),
              2.5);
    UserDataBlob blob(CRef::FromText(L"Rig.ctrl.Data"));
    EXPECT_EQ(blob.GetValue(), (std::vector<uint8_t>{0, 1, 2, 255, 128, 0, 42}));
    EXPECT_TRUE(Property(CRef::FromText(L"Rig.ctrl.Display Property")).IsValid());
    const std::vector<CVector3> points = X3DObject(CRef::FromText(L"Rig.path")).GetCurvePoints();
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[2], CVector3(-1.5, 0.25, 1e-7));
  }
  {  // Hierarchy, constraint, Play Control, selection.
    X3DObject hip(CRef::FromText(L"Rig.hip"));
    ASSERT_EQ(hip.GetChildren().size(), 1u);
    EXPECT_EQ(hip.GetChildren()[0].GetName(), CString(L"knee"));
    const std::vector<Constraint> constraints =
        X3DObject(CRef::FromText(L"Rig.tip")).GetConstraints();
    ASSERT_EQ(constraints.size(), 1u);
    ASSERT_EQ(constraints[0].GetConstrainingObjects().size(), 1u);
    EXPECT_EQ(constraints[0].GetConstrainingObjects()[0].GetFullName(), CString(L"Rig.knee"));
    Property play = Application().GetActiveProject().GetPlayControl();
    EXPECT_EQ(play.GetParameterValue(L"Out").GetDouble(), 24.0);
    EXPECT_EQ(play.GetParameterValue(L"Rate").GetDouble(), 30.0);
    EXPECT_EQ(Application().GetCurrentFrame(), 5.0);
    const std::vector<CRef> selection = Application().GetSelection();
    ASSERT_EQ(selection.size(), 2u);
    EXPECT_EQ(selection[0].GetAsText(), CString(L"Rig.knee"));
    EXPECT_EQ(selection[1].GetAsText(), CString(L"Rig.ctrl"));
  }
  {  // The operator's ports, groups and settings.
    auto dst = X3DObject(CRef::FromText(L"Rig.dst")).GetKinematics().GetGlobal().Lock();
    ASSERT_EQ(dst->operators.size(), 1u);
    const auto* op = dynamic_cast<const OperatorItem*>(dst->operators[0].get());
    ASSERT_NE(op, nullptr);
    EXPECT_EQ(op->op_type, CString(L"FileTestOp"));
    EXPECT_TRUE(op->always_evaluate);
    EXPECT_TRUE(op->connected);
    EXPECT_EQ(op->construction_mode, 2);
    ASSERT_EQ(op->ports.size(), 3u);
    EXPECT_TRUE(op->ports[0].output);
    EXPECT_EQ(op->ports[1].name, CString(L"source"));
    EXPECT_EQ(op->ports[2].group, CString(L"Settings"));
    EXPECT_EQ(CRef(op->ports[2].target).GetAsText(), CString(L"Rig.ctrl.Controls.amount"));
  }
  {  // Saving the reopened scene gives the same file: nothing was lost or added.
    const std::string second = Path("second.scene");
    ASSERT_TRUE(SaveSceneFile(second).ok);
    EXPECT_EQ(FileBytes(first), FileBytes(second));
  }
}

TEST_F(SceneFileRoundTrip, HostCommands) {
  ASSERT_NO_FATAL_FAILURE(BuildReferenceScene());
  Application app;
  CValue result;
  const std::string file = Path("cmd.scene");
  {  // SaveScene then NewScene: an empty scene and the new-scene event.
    ASSERT_EQ(app.ExecuteCommand(L"SaveScene", {CString(file)}, result), CStatus::OK);
    EXPECT_TRUE(result.GetBool());
    ASSERT_EQ(app.ExecuteCommand(L"NewScene", {}, result), CStatus::OK);
    EXPECT_TRUE(app.GetActiveSceneRoot().GetChildren().empty());
    EXPECT_EQ(Counts().scene_new, 1);
    EXPECT_EQ(Counts().op_term, 1);
  }
  {  // OpenScene brings it back.
    ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(file)}, result), CStatus::OK);
    EXPECT_TRUE(result.GetBool());
    EXPECT_TRUE(X3DObject(CRef::FromText(L"Rig.knee")).IsValid());
  }
  const Item* root = ActiveScene().root.get();
  for (const std::string& bad : {std::string(), folder_.string(), Path("missing.scene")}) {
    // A folder or a missing file: false, an error in the log, the scene as it was.
    ClearLog();
    ASSERT_EQ(app.ExecuteCommand(L"OpenScene", {CString(bad)}, result), CStatus::OK);
    EXPECT_FALSE(result.GetBool()) << bad;
    EXPECT_EQ(ActiveScene().root.get(), root);
    ASSERT_FALSE(LogLines().empty());
    EXPECT_EQ(LogLines().back().severity, kSeverityError);
    EXPECT_NE(LogLines().back().text.GetAsciiString().find("OpenScene"), std::string::npos);
  }
  {  // Saving into a folder that does not exist.
    ASSERT_EQ(app.ExecuteCommand(L"SaveScene", {CString(Path("no/such.scene"))}, result),
              CStatus::OK);
    EXPECT_FALSE(result.GetBool());
  }
}

}  // namespace
}  // namespace KRX::rt::testing
