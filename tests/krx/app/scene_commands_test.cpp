// DeleteObj, SelectObj, DeselectAll, EnumElements and RemoveAllAnimation on real scenes.
#include <gtest/gtest.h>

#include "krx/app/app_test_support.h"
#include "plugins/plugin_loader.h"

namespace KRX::rt {
namespace {

class SceneCommandTest : public AppFixture {
 protected:
  void SetUp() override {
    UnloadAllPlugins();
    AppFixture::SetUp();
    root_ = Application().GetActiveSceneRoot();
    hero_ = Model(root_.AddModel(L"Hero"));
    hips_ = hero_.AddNull(L"hips");
    hand_ = hips_.AddNull(L"hand");
    ASSERT_TRUE(hand_.IsValid());
  }
  void TearDown() override {
    AppFixture::TearDown();
    UnloadAllPlugins();
  }

  static std::vector<CString> Names(const CValue& refs) {
    std::vector<CString> names;
    for (const CValue& v : refs.GetArray()) names.push_back(SIObject(v.GetRef()).GetFullName());
    return names;
  }
  static std::vector<CString> SelectionNames() {
    std::vector<CString> names;
    for (const CRef& r : Application().GetSelection()) names.push_back(SIObject(r).GetFullName());
    return names;
  }
  // Linear keys 0 at frame 1 and 9 at frame 10: the value at frame f is f - 1.
  static void Animate(Parameter param) {
    FCurve curve = param.AddFCurve();
    curve.AddKey(1, 0, Interpolation::Linear);
    curve.AddKey(10, 9, Interpolation::Linear);
  }

  Model root_;
  Model hero_;
  X3DObject hips_;
  X3DObject hand_;
};

TEST_F(SceneCommandTest, DeleteObjRemovesItemsAndInvalidatesTheirHandles) {
  CustomProperty settings = hero_.AddCustomProperty(L"Settings");
  Parameter speed =
      settings.AddParameter(L"speed", ValueType::Double, kCapAnimatable, L"", L"", 1.0);
  {  // a parameter of a custom property, by reference
    Run(L"DeleteObj", {CValue(speed.GetRef())});
    EXPECT_FALSE(speed.IsValid());
    EXPECT_TRUE(settings.IsValid());
  }
  {  // an object by name takes everything below it along
    const KinematicState hand_local = hand_.GetKinematics().GetLocal();
    Run(L"DeleteObj", {L"Hero.hips"});
    EXPECT_FALSE(hips_.IsValid());
    EXPECT_FALSE(hand_.IsValid());
    EXPECT_FALSE(hand_local.IsValid());
    EXPECT_TRUE(hero_.GetChildren().empty());
    EXPECT_FALSE(CRef::FromText(L"Hero.hand").IsValid());
  }
  {  // several at once, one of them unknown: the others go, the command fails
    X3DObject a = root_.AddNull(L"a");
    X3DObject b = root_.AddNull(L"b");
    Run(L"DeleteObj", {L"a, Nobody,b"}, CStatus::Fail);
    EXPECT_FALSE(a.IsValid());
    EXPECT_FALSE(b.IsValid());
    EXPECT_TRUE(Logged(kSeverityError, "DeleteObj: nothing is named 'Nobody'"));
  }
  {  // what the scene does not allow to delete
    ClearLog();
    Run(L"DeleteObj", {CValue(hero_.GetKinematics().GetRef())}, CStatus::Fail);
    EXPECT_TRUE(hero_.GetKinematics().IsValid());
    EXPECT_TRUE(Logged(kSeverityError, "DeleteObj: cannot delete"));
  }
}

TEST_F(SceneCommandTest, SelectObjAddsInOrderAndMarksBranches) {
  Run(L"SelectObj", {L"Hero", L"BRANCH"});
  Run(L"SelectObj", {CValue(hand_.GetRef())});
  Run(L"SelectObj", {L"Hero", CValue(), true});  // already selected: not twice
  EXPECT_EQ(SelectionNames(), (std::vector<CString>{L"Hero", L"Hero.hand"}));
  const Item& hero_item = *hero_.Lock();
  const Item& hand_item = *hand_.Lock();
  EXPECT_TRUE(IsBranchSelected(hero_item));
  EXPECT_FALSE(IsBranchSelected(hand_item));
  {  // an unknown name fails and selects nothing more
    Run(L"SelectObj", {L"Nobody"}, CStatus::Fail);
    EXPECT_EQ(SelectionNames().size(), 2u);
  }
  Run(L"DeselectAll", {});
  EXPECT_TRUE(Application().GetSelection().empty());
  EXPECT_FALSE(IsBranchSelected(hero_item));
  {  // a node selection after a branch selection is no branch selection
    Run(L"SelectObj", {L"Hero"});
    EXPECT_FALSE(IsBranchSelected(hero_item));
  }
}

TEST_F(SceneCommandTest, EnumElementsListsWhatAnItemHolds) {
  CustomProperty settings = hero_.AddCustomProperty(L"Settings");
  settings.AddParameter(L"speed", ValueType::Double, 0, L"", L"", 1.0);
  settings.AddParameter(L"mode", ValueType::Int, 0, L"", L"", 0);
  {  // an object: children first, then properties
    const std::vector<CString> names = Names(Run(L"EnumElements", {L"Hero"}));
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.front(), CString("Hero.hips"));
    EXPECT_NE(std::find(names.begin(), names.end(), CString("Hero.Settings")), names.end());
  }
  {  // a property: its parameters in order
    EXPECT_EQ(Names(Run(L"EnumElements", {L"Hero.Settings"})),
              (std::vector<CString>{L"Hero.Settings.speed", L"Hero.Settings.mode"}));
  }
  {  // no mixer here: an empty list; an unknown name fails
    EXPECT_TRUE(Run(L"EnumElements", {L"Hero.Mixer.AnimTracks"}).GetArray().empty());
    EXPECT_TRUE(Run(L"EnumElements", {L"Nobody"}, CStatus::Fail).GetArray().empty());
  }
}

TEST_F(SceneCommandTest, EnumElementsOnAKinematicStateListsTheOperatorsWritingIt) {
  std::string error;
  ASSERT_TRUE(LoadPlugin(KRX_TEST_PLUGIN_PATH, &error)) << error;
  const KinematicState hips_global = hips_.GetKinematics().GetGlobal();
  const KinematicState hand_global = hand_.GetKinematics().GetGlobal();
  const KinematicState hand_local = hand_.GetKinematics().GetLocal();
  CustomOperator first(Application().CreateObject(L"Test Op"));
  first.AddOutputPort(hips_global.GetRef(), L"out");
  first.AddInputPort(hand_global.GetRef(), L"in");
  ASSERT_EQ(first.Connect(), CStatus::OK);
  // Writes the hand first and the hips second.
  CustomOperator second(Application().CreateObject(L"OtherOp"));
  second.AddOutputPort(hand_local.GetRef(), L"out1");
  second.AddOutputPort(hips_global.GetRef(), L"out2");
  ASSERT_EQ(second.Connect(), CStatus::OK);

  const CValue on_hips = Run(L"EnumElements", {hips_global.GetFullName()});
  ASSERT_EQ(on_hips.GetArray().size(), 2u);
  EXPECT_EQ(on_hips.GetArray()[0].GetRef(), first.GetRef());
  EXPECT_EQ(on_hips.GetArray()[1].GetRef(), second.GetRef());
  const CValue on_hand_local = Run(L"EnumElements", {hand_local.GetFullName()});
  ASSERT_EQ(on_hand_local.GetArray().size(), 1u);
  EXPECT_EQ(on_hand_local.GetArray()[0].GetRef(), second.GetRef());
  // Reading a state does not make the operator reading it one of its elements.
  EXPECT_TRUE(Run(L"EnumElements", {hand_global.GetFullName()}).GetArray().empty());
}

TEST_F(SceneCommandTest, RemoveAllAnimationClearsTheSelectionsParameters) {
  Application().PutCurrentFrame(5);
  const KinematicState hips_local = hips_.GetKinematics().GetLocal();
  const KinematicState hand_local = hand_.GetKinematics().GetLocal();
  CustomProperty settings = hero_.AddCustomProperty(L"Settings");
  Parameter speed =
      settings.AddParameter(L"speed", ValueType::Double, kCapAnimatable, L"", L"", 0.0);
  Animate(hips_local.GetParameter(L"posx"));
  Animate(speed);
  ASSERT_EQ(hand_local.GetParameter(L"roty").AddExpression(L"Hero.hips.kine.local.posx * 2"),
            CStatus::OK);
  {  // a node selection: the object's own parameters only
    Run(L"SelectObj", {L"Hero.hips"});
    Run(L"RemoveAllAnimation", {CValue(), CValue(), 3, 3, 128});
    EXPECT_FALSE(hips_local.GetParameter(L"posx").IsAnimated(AnimationSource::FCurve));
    // The value at the current frame stays: 5 - 1.
    EXPECT_DOUBLE_EQ(hips_local.GetParameterValue(L"posx").GetDouble(), 4.0);
    EXPECT_TRUE(hand_local.GetParameter(L"roty").IsAnimated(AnimationSource::Expression));
    EXPECT_TRUE(speed.IsAnimated(AnimationSource::FCurve));
  }
  {  // a branch selection: everything below the model, its properties included
    Run(L"DeselectAll", {});
    Run(L"SelectObj", {L"Hero", L"BRANCH"});
    Run(L"RemoveAllAnimation", {CValue(), CValue(), 3, 3, 128});
    EXPECT_EQ(hand_local.GetParameter(L"roty").GetSourceKind(), AnimationSource::None);
    EXPECT_DOUBLE_EQ(hand_local.GetParameterValue(L"roty").GetDouble(), 8.0);
    EXPECT_EQ(speed.GetSourceKind(), AnimationSource::None);
    EXPECT_DOUBLE_EQ(speed.GetValue().GetDouble(), 4.0);
  }
  {  // an object named in the command rather than selected
    Animate(hips_local.GetParameter(L"posz"));
    Run(L"DeselectAll", {});
    Run(L"RemoveAllAnimation", {L"Hero.hips"});
    EXPECT_EQ(hips_local.GetParameter(L"posz").GetSourceKind(), AnimationSource::None);
  }
}

}  // namespace
}  // namespace KRX::rt
