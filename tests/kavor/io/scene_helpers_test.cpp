#include "kavor/io/scene_helpers.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kavor/host/host.h"
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
    root_ = KRX::Application().GetActiveSceneRoot();
  }
  void TearDown() override { KRX::rt::ResetScene(); }

  static void PutLocal(KRX::X3DObject& object, const CVector3& position) {
    CTransformation t;
    t.SetTranslation(position);
    object.GetKinematics().GetLocal().PutTransform(t);
  }
  static CVector3 GlobalPosition(const KRX::X3DObject& object) {
    return object.GetKinematics().GetGlobal().GetTransform().GetTranslation();
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

TEST_F(SceneHelpersTest, ConnectionLineFollowsBothObjects) {
  // The line's parent is moved and turned so that its space differs from the world.
  KRX::X3DObject parent = root_.AddNull(L"lines");
  {
    CTransformation t;
    t.SetTranslation(CVector3(10, 0, 0));
    t.SetRotationFromXYZAngles(CVector3(0, KRX::MATH::kPi / 2, 0));
    parent.GetKinematics().GetLocal().PutTransform(t);
  }
  KRX::X3DObject p1 = root_.AddNull(L"p1");
  KRX::X3DObject p2 = root_.AddNull(L"p2");
  PutLocal(p1, CVector3(1, 2, 3));
  PutLocal(p2, CVector3(-4, 5, 6));

  KRX::X3DObject curve = AddConnectionLine(parent, p1, p2, 7);
  ASSERT_TRUE(curve.IsValid());
  EXPECT_EQ(curve.GetParent(), parent.GetRef());

  const auto world_points = [&] {
    const CTransformation line_global = curve.GetKinematics().GetGlobal().GetTransform();
    std::vector<CVector3> points;
    for (const CVector3& p : curve.GetCurvePoints()) points.push_back(line_global.MapPoint(p));
    return points;
  };
  {  // Made through the objects' positions.
    const std::vector<CVector3> points = world_points();
    ASSERT_EQ(points.size(), 2u);
    ExpectNear(points[0], CVector3(1, 2, 3));
    ExpectNear(points[1], CVector3(-4, 5, 6));
  }
  {  // The objects move: the points follow.
    PutLocal(p1, CVector3(7, 7, 7));
    PutLocal(p2, CVector3(0, -1, 0));
    const std::vector<CVector3> points = world_points();
    ASSERT_EQ(points.size(), 2u);
    ExpectNear(points[0], CVector3(7, 7, 7));
    ExpectNear(points[1], CVector3(0, -1, 0));
  }
  {  // The line's parent moves: the points still sit on the objects.
    PutLocal(parent, CVector3(-3, 0, 2));
    const std::vector<CVector3> points = world_points();
    ASSERT_EQ(points.size(), 2u);
    ExpectNear(points[0], CVector3(7, 7, 7));
    ExpectNear(points[1], CVector3(0, -1, 0));
  }
  {  // Coloured through a local display property, and not selectable.
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
}

TEST_F(SceneHelpersTest, ConnectionLineOperatorPorts) {
  KRX::X3DObject parent = root_.AddNull(L"lines");
  KRX::X3DObject p1 = root_.AddNull(L"p1");
  KRX::X3DObject p2 = root_.AddNull(L"p2");
  KRX::X3DObject curve = AddConnectionLine(parent, p1, p2, 3);
  ASSERT_TRUE(curve.IsValid());

  // The operator is kept with its first output, the curve.
  const auto item = curve.GetRef().Lock();
  ASSERT_TRUE(item);
  ASSERT_EQ(item->operators.size(), 1u);
  const auto* op = dynamic_cast<const KRX::rt::OperatorItem*>(item->operators[0].get());
  ASSERT_NE(op, nullptr);
  EXPECT_EQ(op->op_type, CString(L"ConnectionLine"));
  EXPECT_EQ(op->language, CString(L"JScript"));
  EXPECT_TRUE(op->connected);
  struct Port {
    const wchar_t* name;
    const wchar_t* group;
    bool output;
    KRX::CRef target;
  };
  const std::vector<Port> expected = {
      {L"OutCurve", L"MainGroup", true, curve.GetRef()},
      {L"InLineGlobal", L"MainGroup", false, curve.GetKinematics().GetGlobal().GetRef()},
      {L"InGlobal1", L"ObjectGroup", false, p1.GetKinematics().GetGlobal().GetRef()},
      {L"InGlobal2", L"ObjectGroup", false, p2.GetKinematics().GetGlobal().GetRef()},
  };
  ASSERT_EQ(op->ports.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(CString(expected[i].name).GetAsciiString());
    EXPECT_EQ(op->ports[i].name, CString(expected[i].name));
    EXPECT_EQ(op->ports[i].group, CString(expected[i].group));
    EXPECT_EQ(op->ports[i].output, expected[i].output);
    EXPECT_TRUE(KRX::CRef(op->ports[i].target) == expected[i].target);
  }
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

}  // namespace
}  // namespace kavor
