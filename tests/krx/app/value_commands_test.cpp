// GetValue, SetValue, AddExpr and SetExpr.
#include <gtest/gtest.h>

#include "krx/app/app_test_support.h"

namespace KRX::rt {
namespace {

class ValueCommandTest : public AppFixture {
 protected:
  void SetUp() override {
    AppFixture::SetUp();
    hero_ = Model(Application().GetActiveSceneRoot().AddModel(L"Hero"));
    hips_ = hero_.AddNull(L"hips");
    hand_ = hips_.AddNull(L"hand");
  }
  Model hero_;
  X3DObject hips_;
  X3DObject hand_;
};

TEST_F(ValueCommandTest, CommandLogPreferenceRoundTrips) {
  const CString name(kCommandLogPreference);
  EXPECT_EQ(Run(L"GetValue", {name}), CValue(true));  // on by default
  Run(L"SetValue", {name, false});
  EXPECT_EQ(Run(L"GetValue", {name}), CValue(false));
  Run(L"SetValue", {L"Preferences.Scripting.CmdLog", 1});  // names ignore case
  EXPECT_EQ(Run(L"GetValue", {name}), CValue(true));
  {  // other preferences exist once set
    Run(L"GetValue", {L"preferences.other.thing"}, CStatus::Fail);
    Run(L"SetValue", {L"preferences.other.thing", L"abc"});
    EXPECT_EQ(Run(L"GetValue", {L"preferences.other.thing"}), CValue("abc"));
  }
}

TEST_F(ValueCommandTest, ParametersAreReadAndWrittenByFullName) {
  const CString posx = hips_.GetKinematics().GetLocal().GetFullName() + L".posx";
  Run(L"SetValue", {posx, 2.5});
  EXPECT_DOUBLE_EQ(hips_.GetKinematics().GetLocal().GetParameterValue(L"posx").GetDouble(), 2.5);
  EXPECT_DOUBLE_EQ(Run(L"GetValue", {posx}).GetDouble(), 2.5);
  // The hand follows its parent: its global x is the hips' local x.
  EXPECT_DOUBLE_EQ(hand_.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetX(), 2.5);
  {  // a reference to the parameter works as well
    const Parameter p = hips_.GetKinematics().GetLocal().GetParameter(L"posy");
    Run(L"SetValue", {CValue(p.GetRef()), -1.0});
    EXPECT_DOUBLE_EQ(Run(L"GetValue", {CValue(p.GetRef())}).GetDouble(), -1.0);
  }
  {  // something that is not a parameter, and nothing at all
    Run(L"GetValue", {L"Hero.hips"}, CStatus::Fail);
    EXPECT_TRUE(Logged(kSeverityError, "GetValue: 'Hero.hips' is not a parameter"));
    Run(L"SetValue", {L"Nobody.kine.local.posx", 1.0}, CStatus::Fail);
    EXPECT_TRUE(Logged(kSeverityError, "SetValue: nothing is named 'Nobody.kine.local.posx'"));
  }
}

TEST_F(ValueCommandTest, ValuesWithoutAParameterAreKeptOnTheItem) {
  X3DObject curve = hero_.AddLinearCurve({{0, 0, 0}, {1, 0, 0}}, L"line");
  const CString selectability = curve.GetFullName() + L".visibility.selectability";
  Run(L"SetValue", {selectability, false});
  EXPECT_EQ(Run(L"GetValue", {selectability}).GetBool(), false);
  Run(L"SetValue", {L"Hero.hips.display.lod", 3});
  EXPECT_EQ(Run(L"GetValue", {L"Hero.hips.display.lod"}), CValue(3));
  {  // an item's values go with it
    Run(L"DeleteObj", {L"Hero.hips"});
    Run(L"GetValue", {L"Hero.hips.display.lod"}, CStatus::Fail);
  }
  {  // an object of the same name later does not inherit them
    hero_.AddNull(L"hips");
    Run(L"GetValue", {L"Hero.hips.display.lod"}, CStatus::Fail);
  }
}

TEST_F(ValueCommandTest, ExpressionsDriveAndReleaseParameters) {
  KinematicState hips_local = hips_.GetKinematics().GetLocal();
  const KinematicState hand_local = hand_.GetKinematics().GetLocal();
  const CString hand_posy = hand_local.GetFullName() + L".posy";
  Run(L"AddExpr", {hand_posy, hips_local.GetFullName() + L".posx * 2 + 1", true});
  hips_local.PutParameterValue(L"posx", 3.0);
  EXPECT_DOUBLE_EQ(Run(L"GetValue", {hand_posy}).GetDouble(), 7.0);
  {  // SetExpr replaces the expression
    Run(L"SetExpr", {hand_posy, hips_local.GetFullName() + L".posx"});
    EXPECT_DOUBLE_EQ(Run(L"GetValue", {hand_posy}).GetDouble(), 3.0);
  }
  {  // SetExpr without an expression removes it; the value stays
    Run(L"SetExpr", {hand_posy});
    EXPECT_EQ(hand_local.GetParameter(L"posy").GetSourceKind(), AnimationSource::None);
    hips_local.PutParameterValue(L"posx", 10.0);
    EXPECT_DOUBLE_EQ(Run(L"GetValue", {hand_posy}).GetDouble(), 3.0);
    Run(L"SetExpr", {hand_posy});  // nothing to remove: fine
  }
  {  // no expression, no parameter
    Run(L"AddExpr", {hand_posy, L""}, CStatus::InvalidArgument);
    Run(L"AddExpr", {L"Hero.hips", L"Hero.hand.kine.local.posx"}, CStatus::Fail);
  }
}

}  // namespace
}  // namespace KRX::rt
