#include "kavor/io/scene_helpers.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kavor/host/host.h"
#include "runtime/interaction.h"
#include "runtime/item.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

using KRX::CString;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

void ExpectNear(const CVector3& got, const CVector3& want, double tolerance = 1e-9) {
  EXPECT_NEAR(got.GetX(), want.GetX(), tolerance);
  EXPECT_NEAR(got.GetY(), want.GetY(), tolerance);
  EXPECT_NEAR(got.GetZ(), want.GetZ(), tolerance);
}

class SceneHelpersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KRX::rt::ResetScene();
    KRX::rt::ResetInteraction();
    root_ = KRX::Application().GetActiveSceneRoot();
  }
  void TearDown() override {
    KRX::rt::ResetScene();
    KRX::rt::ResetInteraction();
  }

  static void PutLocal(KRX::X3DObject& object, const CVector3& position) {
    CTransformation t;
    t.SetTranslation(position);
    object.GetKinematics().GetLocal().PutTransform(t);
  }
  // Animates the object's local posx with two keys and gives the parameter.
  static KRX::Parameter AnimatePosX(const KRX::X3DObject& object) {
    KRX::Parameter posx = object.GetKinematics().GetLocal().GetParameter(L"posx");
    posx.AddFCurve({{.time = 1, .value = 0}, {.time = 10, .value = 5}});
    return posx;
  }

  KRX::Model root_;
};

TEST_F(SceneHelpersTest, NeutralPoseComposesScalingRotationTranslation) {
  KRX::X3DObject object = root_.AddNull(L"n");
  KRX::KinematicState local = object.GetKinematics().GetLocal();
  const auto put = [&](const wchar_t* name, const KRX::CValue& v) {
    ASSERT_TRUE(KRX::Succeeded(local.PutParameterValue(name, v))) << CString(name).GetAsciiString();
  };
  {  // Scale 2, 90 degrees about Z, then (1, 2, 3): the point (1, 0, 0) scales to
     // (2, 0, 0), turns to (0, 2, 0) and lands on (1, 4, 3).
    put(L"nsclx", 2.0); put(L"nscly", 2.0); put(L"nsclz", 2.0);
    put(L"nrotz", 90.0);
    put(L"nposx", 1.0); put(L"nposy", 2.0); put(L"nposz", 3.0);
    const CTransformation pose = NeutralPose(object);
    ExpectNear(pose.MapPoint(CVector3(1, 0, 0)), CVector3(1, 4, 3), 1e-8);
    ExpectNear(pose.MapPoint(CVector3(0, 0, 1)), CVector3(1, 2, 5), 1e-8);
    ExpectNear(pose.GetScaling(), CVector3(2, 2, 2));
  }
  {  // The rotation order comes from "rotorder": 90 degrees about X and Y take (0, 1, 0)
     // to (1, 0, 0) when X turns first, and to (0, 0, 1) when Y turns first.
    put(L"nsclx", 1.0); put(L"nscly", 1.0); put(L"nsclz", 1.0);
    put(L"nposx", 0.0); put(L"nposy", 0.0); put(L"nposz", 0.0);
    put(L"nrotx", 90.0); put(L"nroty", 90.0); put(L"nrotz", 0.0);
    put(L"rotorder", 0);  // XYZ
    ExpectNear(NeutralPose(object).MapPoint(CVector3(0, 1, 0)), CVector3(1, 0, 0), 1e-8);
    put(L"rotorder", 5);  // ZYX
    ExpectNear(NeutralPose(object).MapPoint(CVector3(0, 1, 0)), CVector3(0, 0, 1), 1e-8);
  }
  {  // An invalid object has the identity as its neutral pose.
    const CTransformation pose = NeutralPose(KRX::X3DObject());
    ExpectNear(pose.MapPoint(CVector3(1, 2, 3)), CVector3(1, 2, 3));
  }
}

// The line's points follow the host's connection-line operator (its own behaviour is the
// host's); here: the operator is wired to the right states under the right port names, and
// the line is coloured and not selectable.
TEST_F(SceneHelpersTest, ConnectionLineIsWiredToBothObjects) {
  KRX::X3DObject parent = root_.AddNull(L"lines");
  PutLocal(parent, CVector3(10, 0, 0));  // the line's space differs from the world
  KRX::X3DObject p1 = root_.AddNull(L"p1");
  KRX::X3DObject p2 = root_.AddNull(L"p2");
  PutLocal(p1, CVector3(1, 2, 3));
  PutLocal(p2, CVector3(-4, 5, 6));
  KRX::X3DObject curve = AddConnectionLine(parent, p1, p2, 7);
  ASSERT_TRUE(curve.IsValid());
  EXPECT_EQ(curve.GetParent(), parent.GetRef());
  PutLocal(p1, CVector3(7, 7, 7));
  const CTransformation line_global = curve.GetKinematics().GetGlobal().GetTransform();
  const std::vector<CVector3> points = curve.GetCurvePoints();
  ASSERT_EQ(points.size(), 2u);
  ExpectNear(line_global.MapPoint(points[0]), CVector3(7, 7, 7));
  ExpectNear(line_global.MapPoint(points[1]), CVector3(-4, 5, 6));

  // The operator is kept with its first output, the curve.
  const auto item = curve.GetRef().Lock();
  ASSERT_TRUE(item);
  ASSERT_EQ(item->operators.size(), 1u);
  const auto* op = dynamic_cast<const KRX::rt::OperatorItem*>(item->operators[0].get());
  ASSERT_NE(op, nullptr);
  EXPECT_EQ(op->op_type, CString(L"ConnectionLine"));
  EXPECT_EQ(op->language, CString(L"JScript"));
  EXPECT_TRUE(op->connected);
  const struct {
    const wchar_t* name;
    const wchar_t* group;
    bool output;
    KRX::CRef target;
  } expected[] = {
      {L"OutCurve", L"MainGroup", true, curve.GetRef()},
      {L"InLineGlobal", L"MainGroup", false, curve.GetKinematics().GetGlobal().GetRef()},
      {L"InGlobal1", L"ObjectGroup", false, p1.GetKinematics().GetGlobal().GetRef()},
      {L"InGlobal2", L"ObjectGroup", false, p2.GetKinematics().GetGlobal().GetRef()}};
  ASSERT_EQ(op->ports.size(), std::size(expected));
  for (size_t i = 0; i < op->ports.size(); ++i) {
    SCOPED_TRACE(CString(expected[i].name).GetAsciiString());
    EXPECT_EQ(op->ports[i].name, CString(expected[i].name));
    EXPECT_EQ(op->ports[i].group, CString(expected[i].group));
    EXPECT_EQ(op->ports[i].output, expected[i].output);
    EXPECT_TRUE(KRX::CRef(op->ports[i].target) == expected[i].target);
  }

  bool coloured = false;
  for (const KRX::Property& property : curve.GetProperties()) {
    const KRX::CValue colour = property.GetParameterValue(L"wirecol");
    if (!colour.IsEmpty()) coloured = colour.GetInt() == 7;
  }
  EXPECT_TRUE(coloured);
  const KRX::CValue selectable =
      RunCommand(L"GetValue", {curve.GetFullName() + L".visibility.selectability"});
  EXPECT_FALSE(selectable.IsEmpty());
  EXPECT_FALSE(selectable.GetBool());
}

TEST_F(SceneHelpersTest, DeleteChildByNameDeletesBelowTheModelOnly) {
  KRX::X3DObject a = root_.AddModel(L"A");
  KRX::X3DObject b = root_.AddModel(L"B");
  KRX::X3DObject a_deep = a.AddNull(L"hips").AddNull(L"Spine");
  KRX::X3DObject b_spine = b.AddNull(L"Spine");
  {  // Not below the model: nothing is deleted.
    EXPECT_FALSE(DeleteChildByName(a, L"Nowhere"));
    EXPECT_FALSE(DeleteChildByName(a, L""));
    EXPECT_TRUE(a_deep.IsValid());
  }
  {  // Found deep below A; B's object of the same name stays.
    EXPECT_TRUE(DeleteChildByName(a, L"Spine"));
    EXPECT_FALSE(a_deep.IsValid());
    EXPECT_TRUE(b_spine.IsValid());
  }
}

TEST_F(SceneHelpersTest, FindPositionOrientationConstraint) {
  KRX::X3DObject target = root_.AddNull(L"target");
  KRX::X3DObject driven = root_.AddNull(L"driven");
  KRX::X3DObject other = root_.AddNull(L"other");
  EXPECT_FALSE(FindPositionOrientationConstraint(driven).IsValid());
  driven.AddConstraint(L"Orientation", target);
  other.AddConstraint(L"Position", target);
  const KRX::Constraint found = FindPositionOrientationConstraint(driven);
  ASSERT_TRUE(found.IsValid());
  EXPECT_EQ(found.GetType(), CString(L"Orientation Cns"));
  EXPECT_EQ(found.GetConstrained(), driven);
  EXPECT_EQ(FindPositionOrientationConstraint(other).GetType(), CString(L"Position Cns"));
}

TEST_F(SceneHelpersTest, RemoveAnimationClearsTheModelsBranchOnly) {
  KRX::X3DObject model = root_.AddModel(L"M");
  KRX::X3DObject other = root_.AddModel(L"O");
  const KRX::Parameter deep = AnimatePosX(model.AddNull(L"hips").AddNull(L"spine"));
  const KRX::Parameter own = AnimatePosX(model);
  const KRX::Parameter kept = AnimatePosX(other.AddNull(L"hips"));
  ASSERT_TRUE(deep.IsAnimated(KRX::AnimationSource::FCurve));

  RemoveAnimation(KRX::Model(model.GetRef()));
  EXPECT_FALSE(deep.IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_FALSE(own.IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_TRUE(kept.IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_TRUE(KRX::Application().GetSelection().empty());
}

TEST_F(SceneHelpersTest, FrameModelsFramesWhatItFinds) {
  KRX::X3DObject a = root_.AddModel(L"A");
  a.AddCustomProperty(L"ZRKStructure");
  {  // A model found: framed with the argument 0, selection cleared afterwards.
    FrameModels(L"ZRKStructure");
    EXPECT_EQ(KRX::rt::InteractionNotes().back(), "frame all 0");
    EXPECT_TRUE(KRX::Application().GetSelection().empty());
  }
  {  // None found: framed without an argument.
    FrameModels(L"Missing");
    EXPECT_EQ(KRX::rt::InteractionNotes().back(), "frame all");
  }
}

TEST_F(SceneHelpersTest, InspectPropertyTellsWhetherThePageWasConfirmed) {
  KRX::X3DObject model = root_.AddModel(L"M");
  KRX::CustomProperty page = model.AddCustomProperty(L"Settings");
  page.AddParameter(L"Speed", KRX::ValueType::Double, 5, L"Speed", L"", 1.0);
  KRX::rt::QueueAnswers({{KRX::rt::AnswerKind::Ok, 0, CString()},
                         {KRX::rt::AnswerKind::Cancel, 0, CString()}});
  EXPECT_TRUE(InspectProperty(page));
  EXPECT_FALSE(InspectProperty(page));
  EXPECT_FALSE(InspectProperty(KRX::Property()));
}

TEST_F(SceneHelpersTest, FindOperatorByNameLooksAtWhatWritesAState) {
  KRX::X3DObject model = root_.AddModel(L"M");
  KRX::X3DObject other = root_.AddModel(L"O");
  const CString path = model.GetKinematics().GetLocal().GetFullName();
  KRX::CustomOperator found;
  {  // Nothing writes the state yet; no path finds nothing either.
    EXPECT_FALSE(FindOperatorByName(path, L"ConnectionLine", &found));
    EXPECT_FALSE(FindOperatorByName(L"", L"ConnectionLine", &found));
    EXPECT_FALSE(found.IsValid());
  }
  // An operator that writes the model's local state (it is never evaluated here).
  KRX::CustomOperator op = KRX::Application().CreateScriptedOp(L"ConnectionLine", L"", L"JScript");
  op.AddOutputPort(model.GetKinematics().GetLocal().GetRef(), L"Out");
  op.AddInputPort(other.GetKinematics().GetGlobal().GetRef(), L"In");
  ASSERT_TRUE(KRX::Succeeded(op.Connect()));
  const CString name = op.GetName();
  ASSERT_FALSE(name.IsEmpty());
  {
    EXPECT_TRUE(FindOperatorByName(path, name, &found));
    EXPECT_EQ(found, op);
  }
  {  // Exact names only, and only on the state it writes.
    EXPECT_FALSE(FindOperatorByName(path, name.Lower() + L"x", nullptr));
    EXPECT_FALSE(
        FindOperatorByName(other.GetKinematics().GetLocal().GetFullName(), name, nullptr));
  }
}

}  // namespace
}  // namespace kavor
