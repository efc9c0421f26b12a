// The native "ConnectionLine" scripted operator keeps a curve's two points on two objects.
#include <gtest/gtest.h>

#include <vector>

#include "krx/scene/scene_test_support.h"
#include "scene/scene_edit.h"

namespace KRX::rt::testing {
namespace {

using MATH::CTransformation;
using MATH::CVector3;

class ConnectionLine : public SceneTest {
 protected:
  // The curve's points in world space at `time`.
  static std::vector<CVector3> WorldPoints(const X3DObject& curve) {
    const CTransformation g = Global(curve).GetTransform();
    std::vector<CVector3> out;
    for (const CVector3& p : curve.GetCurvePoints()) out.push_back(g.MapPoint(p));
    return out;
  }
};

TEST_F(ConnectionLine, PointsFollowBothObjects) {
  // The curve's own space differs from the world: its parent is moved and turned.
  X3DObject lines = root_.AddNull(L"lines");
  Put(lines, L"posx", 10.0);
  Put(lines, L"roty", 90.0);
  X3DObject p1 = root_.AddNull(L"p1");
  X3DObject p2 = root_.AddNull(L"p2");
  Put(p1, L"posy", 2.0);
  Local(p2).GetParameter(L"posx").AddFCurve({Key(1, 0), Key(11, 10)});
  X3DObject curve = lines.AddLinearCurve({CVector3(), CVector3()});
  EXPECT_EQ(curve.GetName(), CString(L"crvlist"));
  CustomOperator op =
      Application().CreateScriptedOp(L"ConnectionLine", L"// kept, not run", L"JScript");
  ASSERT_TRUE(op.IsValid());
  op.AddPortGroup(L"MainGroup");
  op.AddOutputPort(curve.GetRef(), L"OutCurve");
  op.AddInputPort(Global(curve).GetRef(), L"InLineGlobal");
  op.AddPortGroup(L"ObjectGroup");
  op.AddInputPort(Global(p1).GetRef(), L"InGlobal1");
  op.AddInputPort(Global(p2).GetRef(), L"InGlobal2");
  ASSERT_TRUE(Succeeded(op.Connect()));
  {
    const std::vector<CVector3> points = WorldPoints(curve);
    ASSERT_EQ(points.size(), 2u);
    ExpectNear(points[0], CVector3(0, 2, 0));
    ExpectNear(points[1], CVector3(0, 0, 0));
    // In the curve's own space: the parent turned +90 about Y maps world x to its -z.
    ASSERT_FALSE(curve.GetCurvePoints().empty());
    ExpectNear(curve.GetCurvePoints()[0], CVector3(0, 2, -10));
  }
  {  // An object moved by a put, another by its curve at a new frame, and the curve's
     // parent moved: the points stay on the objects.
    Put(p1, L"posz", -1.0);
    Application().PutCurrentFrame(6.0);
    Put(lines, L"posy", 7.0);
    Put(lines, L"roty", 0.0);
    const std::vector<CVector3> points = WorldPoints(curve);
    ExpectNear(points[0], CVector3(0, 2, -1));
    ExpectNear(points[1], CVector3(5, 0, 0));
  }
  {  // Deleting an end object removes the operator; the curve keeps its last points.
    ASSERT_TRUE(Succeeded(DeleteItem(p2.Lock())));
    EXPECT_FALSE(op.IsValid());
    EXPECT_EQ(curve.GetCurvePoints().size(), 2u);
  }
}

}  // namespace
}  // namespace KRX::rt::testing
