// Scene helpers: the neutral pose, the connection line, branch edits, framing, pages and
// operator lookups.
#include "kavor/io/scene_helpers.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
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

void ExpectSamePoint(const CVector3& got, const CVector3& want) {
  EXPECT_LT((got - want).GetLength(), 1e-8) << got.GetX() << " " << got.GetY() << " " << got.GetZ();
}

void PutLocal(KRX::X3DObject& object, const CVector3& position) {
  CTransformation t;
  t.SetTranslation(position);
  object.GetKinematics().GetLocal().PutTransform(t);
}

class SceneHelpersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KRX::rt::ResetScene();
    KRX::rt::ResetInteraction();
    root_ = KRX::Application().GetActiveSceneRoot();
  }
  void TearDown() override { KRX::rt::ResetInteraction(); }

  KRX::Model root_;
};

// Scaling, then rotation in the order "rotorder" names, then translation.
TEST_F(SceneHelpersTest, NeutralPoseComposesScalingRotationTranslation) {
  KRX::X3DObject object = root_.AddNull(L"n");
  // The nine neutral values, scaling, rotation (degrees) and translation, each X Y Z.
  const auto pose = [&](const std::vector<double>& values) {
    const wchar_t* names[] = {L"nsclx", L"nscly", L"nsclz", L"nrotx", L"nroty",
                              L"nrotz", L"nposx", L"nposy", L"nposz"};
    for (size_t i = 0; i < values.size(); ++i) {
      EXPECT_TRUE(
          KRX::Succeeded(object.GetKinematics().GetLocal().PutParameterValue(names[i], values[i])));
    }
    return NeutralPose(object);
  };
  // Scale (2, 3, 4), 90 degrees about Z, then (1, 2, 3): (1, 1, 1) lands on (-2, 4, 7).
  ExpectSamePoint(pose({2, 3, 4, 0, 0, 90, 1, 2, 3}).MapPoint(CVector3(1, 1, 1)),
                  CVector3(-2, 4, 7));
  // 90 degrees about X and Y take (0, 1, 0) to (1, 0, 0) when X turns first, and to
  // (0, 0, 1) in the order ZYX.
  ExpectSamePoint(pose({1, 1, 1, 90, 90, 0, 0, 0, 0}).MapPoint(CVector3(0, 1, 0)),
                  CVector3(1, 0, 0));
  object.GetKinematics().GetLocal().PutParameterValue(L"rotorder", 5);
  ExpectSamePoint(pose({}).MapPoint(CVector3(0, 1, 0)), CVector3(0, 0, 1));
  ExpectSamePoint(NeutralPose(KRX::X3DObject()).MapPoint(CVector3(1, 2, 3)), CVector3(1, 2, 3));
}

// The line starts and stays between the two objects, in its parent's space: its operator
// reads both objects' global states and the line's own. It is coloured and not selectable.
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
  ExpectSamePoint(line_global.MapPoint(points[0]), CVector3(7, 7, 7));
  ExpectSamePoint(line_global.MapPoint(points[1]), CVector3(-4, 5, 6));

  const auto item = curve.GetRef().Lock();
  ASSERT_TRUE(item);
  ASSERT_EQ(item->operators.size(), 1u);
  const auto* op = dynamic_cast<const KRX::rt::OperatorItem*>(item->operators[0].get());
  ASSERT_NE(op, nullptr);
  EXPECT_EQ(op->op_type + L" " + op->language, CString(L"ConnectionLine JScript"));
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
  EXPECT_TRUE(RunCommand(L"GetValue", {curve.GetFullName() + L".visibility.selectability"}) ==
              KRX::CValue(false));
}

// Deleting by name below a model, removing a branch's animation, finding a position or
// orientation constraint.
TEST_F(SceneHelpersTest, BranchEdits) {
  KRX::X3DObject a = root_.AddModel(L"A");
  KRX::X3DObject b = root_.AddModel(L"B");
  KRX::X3DObject a_deep = a.AddNull(L"hips").AddNull(L"Spine");
  KRX::X3DObject b_spine = b.AddNull(L"Spine");
  EXPECT_FALSE(DeleteChildByName(a, L"Nowhere"));
  EXPECT_TRUE(DeleteChildByName(a, L"Spine"));
  EXPECT_FALSE(a_deep.IsValid());
  EXPECT_TRUE(b_spine.IsValid());

  std::vector<KRX::Parameter> animated;
  for (KRX::X3DObject object : {a.AddNull(L"arm").AddNull(L"hand"), a, b_spine}) {
    animated.push_back(object.GetKinematics().GetLocal().GetParameter(L"posx"));
    animated.back().AddFCurve({{.time = 1, .value = 0}, {.time = 10, .value = 5}});
  }
  RemoveAnimation(KRX::Model(a.GetRef()));
  EXPECT_FALSE(animated[0].IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_FALSE(animated[1].IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_TRUE(animated[2].IsAnimated(KRX::AnimationSource::FCurve));
  EXPECT_TRUE(KRX::Application().GetSelection().empty());

  KRX::X3DObject target = root_.AddNull(L"target");
  KRX::X3DObject driven = root_.AddNull(L"driven");
  EXPECT_FALSE(FindPositionOrientationConstraint(driven).IsValid());
  driven.AddConstraint(L"Orientation", target);
  b.AddConstraint(L"Position", target);
  const KRX::Constraint found = FindPositionOrientationConstraint(driven);
  EXPECT_EQ(found.GetType(), CString(L"Orientation Cns"));
  EXPECT_EQ(found.GetConstrained(), driven);
  EXPECT_EQ(FindPositionOrientationConstraint(b).GetType(), CString(L"Position Cns"));
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
  EXPECT_EQ(std::vector<std::string>(notes.end() - 2, notes.end()),
            (std::vector<std::string>{"frame all 0", "frame all"}));
  EXPECT_TRUE(KRX::Application().GetSelection().empty());

  KRX::CustomProperty page = model.AddCustomProperty(L"Settings");
  page.AddParameter(L"Speed", KRX::ValueType::Double, 5, L"Speed", L"", 1.0);
  KRX::rt::QueueAnswers(
      {{KRX::rt::AnswerKind::Ok, 0, CString()}, {KRX::rt::AnswerKind::Cancel, 0, CString()}});
  EXPECT_TRUE(InspectProperty(page));
  EXPECT_FALSE(InspectProperty(page));
  EXPECT_FALSE(InspectProperty(KRX::Property()));
}

// Only an operator of exactly that name writing the state at `path` is found.
TEST_F(SceneHelpersTest, FindOperatorByNameLooksAtWhatWritesAState) {
  KRX::X3DObject model = root_.AddModel(L"M");
  const CString path = model.GetKinematics().GetLocal().GetFullName();
  KRX::CustomOperator op = KRX::Application().CreateScriptedOp(L"ConnectionLine", L"", L"JScript");
  op.AddOutputPort(model.GetKinematics().GetLocal().GetRef(), L"Out");
  op.AddInputPort(root_.GetKinematics().GetGlobal().GetRef(), L"In");
  ASSERT_TRUE(KRX::Succeeded(op.Connect()));
  const CString name = op.GetName();
  KRX::CustomOperator found;
  EXPECT_FALSE(FindOperatorByName(L"", name, &found));
  EXPECT_FALSE(found.IsValid());
  EXPECT_TRUE(FindOperatorByName(path, name, &found));
  EXPECT_EQ(found, op);
  EXPECT_FALSE(FindOperatorByName(path, name.Lower() + L"x", nullptr));
  EXPECT_FALSE(FindOperatorByName(root_.GetKinematics().GetLocal().GetFullName(), name, nullptr));
}

}  // namespace
}  // namespace kavor
