// Parameter values at a time: function curves, transient puts, expressions, conversions.
#include <gtest/gtest.h>

#include <cmath>

#include "krx/scene/scene_test_support.h"
#include "scene/expression.h"

namespace KRX::rt::testing {
namespace {

using MATH::CVector3;

class ParameterEval : public SceneTest {};

TEST_F(ParameterEval, FunctionCurveDrivesTheParameterAtEveryTime) {
  X3DObject o = root_.AddNull(L"o");
  Parameter posx = Local(o).GetParameter(L"posx");
  FCurve curve = posx.AddFCurve({Key(11, 10), Key(1, 0)});  // given out of order
  ASSERT_TRUE(curve.IsValid());
  EXPECT_EQ(curve.GetKey(0).time, 1.0);
  EXPECT_EQ(posx.GetSourceKind(), AnimationSource::FCurve);
  {  // Linear between the keys, constant outside; the transform follows.
    const std::pair<double, double> samples[] = {{0, 0}, {1, 0},   {3.5, 2.5},
                                                 {6, 5}, {11, 10}, {20, 10}};
    for (const auto& [frame, value] : samples) {
      EXPECT_DOUBLE_EQ(posx.GetValue(frame).GetDouble(), value) << frame;
      EXPECT_DOUBLE_EQ(GlobalPosition(o, frame).GetX(), value) << frame;
    }
  }
  Application().PutCurrentFrame(6.0);  // the current time is "Current" of Play Control
  EXPECT_DOUBLE_EQ(GlobalPosition(o).GetX(), 5.0);
  {  // A key edit is seen by the next read at the same time.
    ASSERT_TRUE(Succeeded(curve.SetKey(1, Key(11, 20))));
    EXPECT_DOUBLE_EQ(GlobalPosition(o, 6.0).GetX(), 10.0);
    EXPECT_EQ(curve.AddKey(6.0, -1.0), 1);
    EXPECT_DOUBLE_EQ(GlobalPosition(o, 6.0).GetX(), -1.0);
  }
  {  // Removing the animation keeps the value at the current frame (6).
    ASSERT_TRUE(Succeeded(posx.RemoveAnimation()));
    EXPECT_FALSE(curve.IsValid());
    EXPECT_DOUBLE_EQ(posx.GetValue(100.0).GetDouble(), -1.0);
  }
}

TEST_F(ParameterEval, PutOnAnimatedParameterIsTransient) {
  X3DObject o = root_.AddNull(L"o");
  Parameter posx = Local(o).GetParameter(L"posx");
  posx.AddFCurve({Key(1, 0), Key(11, 10)});
  {  // Seen by the reads that follow at that frame, not a key.
    EXPECT_DOUBLE_EQ(GlobalPosition(o).GetX(), 0.0);
    ASSERT_TRUE(Succeeded(posx.PutValue(7.0)));
    EXPECT_DOUBLE_EQ(GlobalPosition(o).GetX(), 7.0);
    EXPECT_EQ(posx.GetFCurve().GetNumKeys(), 2);
  }
  {  // A parameter read at another frame leaves it.
    CustomProperty p = root_.AddCustomProperty(L"P");
    p.AddParameter(L"x", ValueType::Double, kCapAnimatable, L"", L"", 0.0)
        .AddFCurve({Key(1, 0), Key(9, 8)});
    EXPECT_DOUBLE_EQ(p.GetParameterValue(L"x", 5.0).GetDouble(), 4.0);
    EXPECT_DOUBLE_EQ(posx.GetValue(3.0).GetDouble(), 2.0);
    EXPECT_DOUBLE_EQ(GlobalPosition(o).GetX(), 7.0);
  }
  {  // Gone once the scene is evaluated at another frame, also back at the first one.
    EXPECT_DOUBLE_EQ(GlobalPosition(o, 3.0).GetX(), 2.0);
    EXPECT_DOUBLE_EQ(GlobalPosition(o, 1.0).GetX(), 0.0);
  }
  {  // The same through a new current frame; a put of the whole transform likewise.
    MATH::CTransformation t;
    t.SetTranslation(CVector3(4, 5, 6));
    ASSERT_TRUE(Succeeded(Local(o).PutTransform(t)));
    ExpectNear(GlobalPosition(o), CVector3(4, 5, 6));
    Application().PutCurrentFrame(2.0);
    ExpectNear(GlobalPosition(o), CVector3(1, 5, 6));  // posy, posz are not animated: kept
  }
  {  // A parameter without animation keeps a put at every frame.
    ASSERT_TRUE(Succeeded(Local(o).PutParameterValue(L"posz", -3.0, 9.0)));
    EXPECT_DOUBLE_EQ(GlobalPosition(o, 50.0).GetZ(), -3.0);
  }
}

TEST_F(ParameterEval, ExpressionsReadAnotherParameterAtTheSameTime) {
  X3DObject hip = root_.AddNull(L"hip");
  X3DObject knee = hip.AddNull(L"knee");
  Local(hip).GetParameter(L"rotx").AddFCurve({Key(1, 0), Key(11, 40)});
  Parameter rotz = Local(knee).GetParameter(L"rotz");
  const CString source = L"hip.kine.local.rotx";
  {  // name * k + c, evaluated at the time asked; the knee turns about its own Z.
    ASSERT_TRUE(Succeeded(rotz.AddExpression(source + L" * 2 + 1")));
    EXPECT_TRUE(rotz.IsAnimated(AnimationSource::Expression));
    EXPECT_DOUBLE_EQ(rotz.GetValue(1.0).GetDouble(), 1.0);
    EXPECT_DOUBLE_EQ(rotz.GetValue(6.0).GetDouble(), 41.0);
    EXPECT_NEAR(Local(knee).GetTransform(6.0).GetRotation().GetXYZAngles().GetZ(),
                MATH::DegreesToRadians(41.0), 1e-9);
    ASSERT_TRUE(Succeeded(rotz.AddExpression(L"0.25 * " + source + L" - 0.5")));
    EXPECT_DOUBLE_EQ(rotz.GetValue(6.0).GetDouble(), 4.5);
    EXPECT_FALSE(Succeeded(rotz.AddExpression(L"nothing.kine.local.rotx")));
  }
  {  // A global parameter follows another object's global rotation.
    X3DObject lead = root_.AddNull(L"lead");
    X3DObject follower = root_.AddNull(L"follower");
    Put(lead, L"roty", 30.0);
    Parameter roty = Global(follower).GetParameter(L"roty");
    ASSERT_TRUE(Succeeded(roty.AddExpression(L"lead.kine.global.roty")));
    EXPECT_NEAR(Global(follower).GetTransform().GetRotation().GetXYZAngles().GetY(),
                MATH::DegreesToRadians(30.0), 1e-9);
    EXPECT_NEAR(Local(follower).GetParameterValue(L"roty").GetDouble(), 30.0, 1e-9);
  }
  {  // Two expressions reading each other: reported once, never looped.
    Parameter a = Local(hip).GetParameter(L"posy");
    Parameter b = Local(knee).GetParameter(L"posy");
    ASSERT_TRUE(Succeeded(a.AddExpression(b.GetFullName())));
    ASSERT_TRUE(Succeeded(b.AddExpression(a.GetFullName() + L" + 1")));
    for (double frame : {1.0, 2.0, 3.0}) EXPECT_TRUE(std::isfinite(a.GetValue(frame).GetDouble()));
    EXPECT_EQ(CountLogged(kSeverityError, "cycle"), 1);
  }
}

TEST_F(ParameterEval, ExpressionTextParsing) {
  const struct {
    const wchar_t* text;
    bool ok;
    const wchar_t* source;
    double scale, offset;
  } cases[] = {{L"a.b*-3-4", true, L"a.b", -3, -4},
               {L"a.b * 1e-3", true, L"a.b", 1e-3, 0},
               {L"left-arm.posx", true, L"left-arm.posx", 1, 0},
               {L"7", true, L"", 1, 7},
               {L"2 * 3 + 1", true, L"", 1, 7},
               {L"a * b", false, L"", 1, 0},
               {L"* 2", false, L"", 1, 0},
               {L"", false, L"", 1, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(CString(c.text).GetAsciiString());
    ParsedExpression parsed;
    ASSERT_EQ(ParseExpression(c.text, &parsed), c.ok);
    if (!c.ok) continue;
    EXPECT_EQ(parsed.source, std::wstring(c.source));
    EXPECT_DOUBLE_EQ(parsed.scale, c.scale);
    EXPECT_DOUBLE_EQ(parsed.offset, c.offset);
  }
}

TEST_F(ParameterEval, PutsConvertToTheTypeAndLimits) {
  CustomProperty p = root_.AddCustomProperty(L"Settings");
  Parameter count = p.AddParameter(L"count", ValueType::Int, 0, L"", L"", 3, 0, 10);
  Parameter gain =
      p.AddParameter(L"gain", ValueType::Double, kCapAnimatable, L"", L"", 0.5, -1.0, 1.0);
  Parameter on = p.AddParameter(L"on", ValueType::Bool, 0, L"", L"", 0);
  Parameter text = p.AddParameter(L"text", ValueType::String, 0, L"", L"", 12);
  EXPECT_EQ(text.GetValue().GetString(), CString(L"12"));
  EXPECT_EQ(on.GetValue(), CValue(false));
  count.PutValue(CString(L"7.6"));
  EXPECT_EQ(count.GetValue(), CValue(8));
  count.PutValue(25);
  EXPECT_EQ(count.GetValue(), CValue(10));
  gain.PutValue(-3.0);
  EXPECT_EQ(gain.GetValue(), CValue(-1.0));
  on.PutValue(CString(L"true"));
  EXPECT_EQ(on.GetValue(), CValue(true));
  text.PutValue(Application().GetActiveSceneRoot().GetRef());
  EXPECT_EQ(text.GetValue().GetString(), CString(L"Scene_Root"));
  // A second parameter of the same name is refused; string parameters take no curve.
  EXPECT_FALSE(p.AddParameter(L"gain", ValueType::Double, 0, L"", L"", 0.0).IsValid());
  EXPECT_FALSE(text.AddFCurve({Key(1, 1)}).IsValid());
}

}  // namespace
}  // namespace KRX::rt::testing
