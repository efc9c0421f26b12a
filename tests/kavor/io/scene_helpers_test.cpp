#include "kavor/io/scene_helpers.h"

#include <gtest/gtest.h>

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

void ExpectNear(const CVector3& got, const CVector3& want) {
  EXPECT_NEAR(got.GetX(), want.GetX(), 1e-8);
  EXPECT_NEAR(got.GetY(), want.GetY(), 1e-8);
  EXPECT_NEAR(got.GetZ(), want.GetZ(), 1e-8);
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
  const auto put = [&](std::initializer_list<std::pair<const wchar_t*, KRX::CValue>> values) {
    for (const auto& [name, value] : values) {
      ASSERT_TRUE(KRX::Succeeded(local.PutParameterValue(name, value)));
    }
  };
  // Scale 2, 90 degrees about Z, then (1, 2, 3): the point (1, 0, 0) scales to (2, 0, 0),
  // turns to (0, 2, 0) and lands on (1, 4, 3).
  put({{L"nsclx", 2.0}, {L"nscly", 2.0}, {L"nsclz", 2.0}, {L"nrotz", 90.0}});
  put({{L"nposx", 1.0}, {L"nposy", 2.0}, {L"nposz", 3.0}});
  ExpectNear(NeutralPose(object).MapPoint(CVector3(1, 0, 0)), CVector3(1, 4, 3));
  ExpectNear(NeutralPose(object).MapPoint(CVector3(0, 0, 1)), CVector3(1, 2, 5));
  // The rotation order comes from "rotorder": 90 degrees about X and Y take (0, 1, 0) to
  // (1, 0, 0) when X turns first, and to (0, 0, 1) when Y turns first.
  put({{L"nsclx", 1.0}, {L"nscly", 1.0}, {L"nsclz", 1.0}, {L"nposx", 0.0}, {L"nposy", 0.0}});
  put({{L"nposz", 0.0}, {L"nrotx", 90.0}, {L"nroty", 90.0}, {L"nrotz", 0.0}, {L"rotorder", 0}});
  ExpectNear(NeutralPose(object).MapPoint(CVector3(0, 1, 0)), CVector3(1, 0, 0));
  put({{L"rotorder", 5}});  // ZYX
  ExpectNear(NeutralPose(object).MapPoint(CVector3(0, 1, 0)), CVector3(0, 0, 1));
  // An invalid object has the identity as its neutral pose.
  ExpectNear(NeutralPose(KRX::X3DObject()).MapPoint(CVector3(1, 2, 3)), CVector3(1, 2, 3));
}

// The line starts and stays between the two objects, in its parent's space: its operator
// reads both objects' global states and the line's own. The ports carry their names and
// groups, and the line is coloured and not selectable.
TEST_F(SceneHelpersTest, ConnectionLineIsWiredToBothObjects) {
  KRX::X3DObject parent = root_.AddNull(L"lines");
  PutLocal(parent, CVector3(10, 0, 0));  // the line's space differs from the world
  KRX::X3DObject p1 = root_.AddNull(L"p1");
  KRX::X3DObject p2 = root_.AddNull(L"p2");
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
  std::vector<std::string> ports;
  for (const auto& port : op->ports) {
    ports.push_back(port.group.GetAsciiString() + (port.output ? " > " : " < ") +
                    port.name.GetAsciiString());
  }
  EXPECT_EQ(ports,
            (std::vector<std::string>{"MainGroup > OutCurve", "MainGroup < InLineGlobal",
                                      "ObjectGroup < InGlobal1", "ObjectGroup < InGlobal2"}));
  ASSERT_EQ(op->ports.size(), 4u);  // the line's own global state, not its parent's
  EXPECT_TRUE(KRX::CRef(op->ports[1].target) == curve.GetKinematics().GetGlobal().GetRef());

  bool coloured = false;
  for (const KRX::Property& property : curve.GetProperties()) {
    coloured = coloured || property.GetParameterValue(L"wirecol") == KRX::CValue(7);
  }
  EXPECT_TRUE(coloured);
  const KRX::CValue selectable =
      RunCommand(L"GetValue", {curve.GetFullName() + L".visibility.selectability"});
  EXPECT_TRUE(selectable == KRX::CValue(false));
}

// Deleting by name below a model, removing a branch's animation, finding a position or
// orientation constraint.
TEST_F(SceneHelpersTest, BranchEdits) {
  KRX::X3DObject a = root_.AddModel(L"A");
  KRX::X3DObject b = root_.AddModel(L"B");
  {  // Deleted deep below A only; B's object of the same name stays.
    KRX::X3DObject a_deep = a.AddNull(L"hips").AddNull(L"Spine");
    KRX::X3DObject b_spine = b.AddNull(L"Spine");
    EXPECT_FALSE(DeleteChildByName(a, L"Nowhere"));
    EXPECT_FALSE(DeleteChildByName(a, L""));
    EXPECT_TRUE(a_deep.IsValid());
    EXPECT_TRUE(DeleteChildByName(a, L"Spine"));
    EXPECT_FALSE(a_deep.IsValid());
    EXPECT_TRUE(b_spine.IsValid());
  }
  {  // The model's own and its branch's animation goes; another model's stays.
    const KRX::Parameter deep = AnimatePosX(a.AddNull(L"arm").AddNull(L"hand"));
    const KRX::Parameter own = AnimatePosX(a);
    const KRX::Parameter kept = AnimatePosX(b.AddNull(L"hips"));
    ASSERT_TRUE(deep.IsAnimated(KRX::AnimationSource::FCurve));
    RemoveAnimation(KRX::Model(a.GetRef()));
    EXPECT_FALSE(deep.IsAnimated(KRX::AnimationSource::FCurve));
    EXPECT_FALSE(own.IsAnimated(KRX::AnimationSource::FCurve));
    EXPECT_TRUE(kept.IsAnimated(KRX::AnimationSource::FCurve));
    EXPECT_TRUE(KRX::Application().GetSelection().empty());
  }
  {  // The first position or orientation constraint.
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
}

// Framing what is found (with the argument 0) or nothing (without one), then clearing the
// selection; inspecting a page and telling whether it was confirmed.
TEST_F(SceneHelpersTest, FramingAndInspecting) {
  KRX::X3DObject model = root_.AddModel(L"A");
  model.AddCustomProperty(L"ZRKStructure");
  FrameModels(L"ZRKStructure");
  FrameModels(L"Missing");
  const std::vector<std::string> notes = KRX::rt::InteractionNotes();
  ASSERT_GE(notes.size(), 2u);
  EXPECT_EQ(notes[notes.size() - 2], "frame all 0");
  EXPECT_EQ(notes.back(), "frame all");
  EXPECT_TRUE(KRX::Application().GetSelection().empty());

  KRX::CustomProperty page = model.AddCustomProperty(L"Settings");
  page.AddParameter(L"Speed", KRX::ValueType::Double, 5, L"Speed", L"", 1.0);
  KRX::rt::QueueAnswers(
      {{KRX::rt::AnswerKind::Ok, 0, CString()}, {KRX::rt::AnswerKind::Cancel, 0, CString()}});
  EXPECT_TRUE(InspectProperty(page));
  EXPECT_FALSE(InspectProperty(page));
  EXPECT_FALSE(InspectProperty(KRX::Property()));
}

TEST_F(SceneHelpersTest, FindOperatorByNameLooksAtWhatWritesAState) {
  KRX::X3DObject model = root_.AddModel(L"M");
  KRX::X3DObject other = root_.AddModel(L"O");
  const CString path = model.GetKinematics().GetLocal().GetFullName();
  KRX::CustomOperator found;
  // Nothing writes the state yet; no path finds nothing either.
  EXPECT_FALSE(FindOperatorByName(path, L"ConnectionLine", &found));
  EXPECT_FALSE(FindOperatorByName(L"", L"ConnectionLine", &found));
  EXPECT_FALSE(found.IsValid());
  // An operator that writes the model's local state (it is never evaluated here).
  KRX::CustomOperator op = KRX::Application().CreateScriptedOp(L"ConnectionLine", L"", L"JScript");
  op.AddOutputPort(model.GetKinematics().GetLocal().GetRef(), L"Out");
  op.AddInputPort(other.GetKinematics().GetGlobal().GetRef(), L"In");
  ASSERT_TRUE(KRX::Succeeded(op.Connect()));
  const CString name = op.GetName();
  ASSERT_FALSE(name.IsEmpty());
  EXPECT_TRUE(FindOperatorByName(path, name, &found));
  EXPECT_EQ(found, op);
  // Exact names only, and only on the state it writes.
  EXPECT_FALSE(FindOperatorByName(path, name.Lower() + L"x", nullptr));
  EXPECT_FALSE(FindOperatorByName(other.GetKinematics().GetLocal().GetFullName(), name, nullptr));
}

}  // namespace
}  // namespace kavor
