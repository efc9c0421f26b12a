// Kinematic composition: local parameters, rotation orders, neutral pose, parents,
// constraints and puts on local and global states.
#include <gtest/gtest.h>

#include <cmath>

#include "krx/scene/scene_test_support.h"

namespace KRX::rt::testing {
namespace {

using MATH::CTransformation;
using MATH::CVector3;

class Kinematics : public SceneTest {};

TEST_F(Kinematics, GlobalIsLocalComposedWithParentGlobal) {
  X3DObject parent = root_.AddNull(L"parent");
  X3DObject child = parent.AddNull(L"child");
  Put(parent, L"posx", 1.0);
  Put(parent, L"rotz", 90.0);
  Put(child, L"posx", 1.0);
  {  // Parent at (1, 0, 0) turned 90 degrees about Z: the child's (1, 0, 0) lands on (1, 1, 0).
    ExpectNear(GlobalPosition(child), CVector3(1, 1, 0));
    // The child inherits the turn: its own x axis points along world y.
    const CTransformation g = Global(child).GetTransform();
    ExpectNear(g.MapPoint(CVector3(1, 0, 0)) - g.GetTranslation(), CVector3(0, 1, 0));
  }
  {  // Parent scaling 2 doubles the child's offset; a grandchild adds its own.
    Put(parent, L"sclx", 2.0);
    Put(parent, L"scly", 2.0);
    Put(parent, L"sclz", 2.0);
    ExpectNear(GlobalPosition(child), CVector3(1, 2, 0));
    X3DObject grandchild = child.AddNull(L"grandchild");
    Put(grandchild, L"posy", 1.0);
    // Child's y axis is world -x (scaled 2): (1, 2, 0) + (-2, 0, 0).
    ExpectNear(GlobalPosition(grandchild), CVector3(-1, 2, 0));
  }
  // The local state gives the local transform, unchanged by the parent.
  ExpectNear(Local(child).GetTransform().GetTranslation(), CVector3(1, 0, 0));
}

TEST_F(Kinematics, EveryRotationOrderAppliesItsAxesInTurn) {
  // 90 degrees about each axis, applied to (1, 2, 3) one axis at a time by hand:
  // X turns (x, y, z) to (x, -z, y), Y to (z, y, -x), Z to (-y, x, z).
  struct Case {
    int order;
    CVector3 expected;
  };
  const Case cases[] = {{0, CVector3(3, 2, -1)}, {1, CVector3(2, 1, -3)}, {2, CVector3(-1, 3, 2)},
                        {3, CVector3(-2, 1, 3)}, {4, CVector3(1, -3, 2)}, {5, CVector3(3, -2, 1)}};
  X3DObject o = root_.AddNull(L"o");
  Put(o, L"rotx", 90.0);
  Put(o, L"roty", 90.0);
  Put(o, L"rotz", 90.0);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.order);
    Put(o, L"rotorder", c.order);
    ExpectNear(Global(o).GetTransform().MapPoint(CVector3(1, 2, 3)), c.expected);
  }
}

TEST_F(Kinematics, NeutralPoseComposesAfterTheValues) {
  X3DObject o = root_.AddNull(L"o");
  Put(o, L"nposz", 5.0);
  Put(o, L"nrotz", 90.0);
  Put(o, L"posx", 1.0);
  // Values first: (1, 0, 0), then the neutral pose turns it to (0, 1, 0) and lifts it by 5.
  ExpectNear(GlobalPosition(o), CVector3(0, 1, 5));
  {  // A put of the local transform is taken back through the neutral pose.
    CTransformation t = Local(o).GetTransform();
    t.SetTranslation(CVector3(0, 2, 5));
    ASSERT_TRUE(Succeeded(Local(o).PutTransform(t)));
    EXPECT_NEAR(Local(o).GetParameterValue(L"posx").GetDouble(), 2.0, 1e-9);
    EXPECT_NEAR(Local(o).GetParameterValue(L"posy").GetDouble(), 0.0, 1e-9);
    EXPECT_NEAR(Local(o).GetParameterValue(L"rotz").GetDouble(), 0.0, 1e-9);
  }
}

TEST_F(Kinematics, GlobalPutUnderRotatedParentDerivesTheLocal) {
  X3DObject parent = root_.AddNull(L"parent");
  X3DObject child = parent.AddNull(L"child");
  Put(parent, L"posx", 1.0);
  Put(parent, L"rotz", 90.0);
  {  // World (1, 1, 0) without rotation is local (1, 0, 0) turned -90 degrees about Z.
    CTransformation g;
    g.SetTranslation(CVector3(1, 1, 0));
    ASSERT_TRUE(Succeeded(Global(child).PutTransform(g)));
    EXPECT_NEAR(Local(child).GetParameterValue(L"posx").GetDouble(), 1.0, 1e-9);
    EXPECT_NEAR(Local(child).GetParameterValue(L"posy").GetDouble(), 0.0, 1e-9);
    EXPECT_NEAR(Local(child).GetParameterValue(L"rotz").GetDouble(), -90.0, 1e-9);
    const CTransformation back = Global(child).GetTransform();
    ExpectNear(back.GetTranslation(), CVector3(1, 1, 0));
    EXPECT_TRUE(back.GetRotationQuaternion().SameRotation(MATH::CQuaternion(), 1e-9));
  }
  {  // Moving below another object keeps the global pose.
    X3DObject other = root_.AddNull(L"other");
    Put(other, L"posz", -4.0);
    ASSERT_TRUE(Succeeded(other.AddChild(child)));
    EXPECT_EQ(child.GetParent(), other.GetRef());
    ExpectNear(GlobalPosition(child), CVector3(1, 1, 0));
    EXPECT_NEAR(Local(child).GetParameterValue(L"posz").GetDouble(), 4.0, 1e-9);
    // An object cannot go below itself.
    EXPECT_FALSE(Succeeded(child.AddChild(other)));
  }
}

TEST_F(Kinematics, ConstraintsDriveGlobalPositionAndOrientation) {
  X3DObject target = root_.AddNull(L"target");
  Put(target, L"posx", 3.0);
  Put(target, L"roty", 90.0);
  X3DObject parent = root_.AddNull(L"parent");
  Put(parent, L"posz", 1.0);
  X3DObject follower = parent.AddNull(L"follower");
  Put(follower, L"posy", 2.0);
  {  // Position only: the follower's rotation stays its own.
    Constraint c = follower.AddConstraint(L"Position", target);
    EXPECT_EQ(c.GetType(), CString(L"Position Cns"));
    ExpectNear(GlobalPosition(follower), CVector3(3, 0, 0));
    EXPECT_TRUE(
        Global(follower).GetTransform().GetRotationQuaternion().SameRotation(MATH::CQuaternion()));
    // The local is derived against the parent.
    ExpectNear(Local(follower).GetTransform().GetTranslation(), CVector3(3, 0, -1));
  }
  {  // The constraint follows the target at every time.
    Local(target).GetParameter(L"posx").AddFCurve({Key(1, 0), Key(11, 10)});
    ExpectNear(GlobalPosition(follower, 6.0), CVector3(5, 0, 0));
  }
  {  // Orientation: now also turned as the target.
    follower.AddConstraint(L"Orientation", target);
    const CTransformation g = Global(follower).GetTransform(6.0);
    ExpectNear(g.GetTranslation(), CVector3(5, 0, 0));
    ExpectNear(g.GetRotation().GetQuaternion().Rotate(CVector3(1, 0, 0)), CVector3(0, 0, -1));
  }
  {  // Two objects constraining each other: reported once, values stay finite.
    X3DObject a = root_.AddNull(L"a");
    X3DObject b = root_.AddNull(L"b");
    a.AddConstraint(L"Position", b);
    b.AddConstraint(L"Position", a);
    for (double frame : {1.0, 2.0, 3.0})
      EXPECT_TRUE(std::isfinite(GlobalPosition(a, frame).GetX()));
    EXPECT_EQ(CountLogged(kSeverityError, "cycle"), 1);
  }
}

}  // namespace
}  // namespace KRX::rt::testing
