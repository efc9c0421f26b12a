// The host's commands on real scenes: DeleteObj, SelectObj, DeselectAll, EnumElements,
// RemoveAllAnimation; GetValue, SetValue, SaveKey, AddExpr, SetExpr; PickObject, InspectObj
// and ShowFileForEdit.
#include <gtest/gtest.h>

#include "krx/app/app_test_support.h"
#include "plugins/pages.h"
#include "plugins/plugin_loader.h"

namespace KRX::rt {
namespace {

class HostCommandTest : public AppFixture {
 protected:
  void SetUp() override {
    UnloadAllPlugins();
    AppFixture::SetUp();
    root_ = Application().GetActiveSceneRoot();
    AddHero();
    settings_ = hero_.AddCustomProperty(L"Settings");
    speed_ = settings_.AddParameter(L"speed", ValueType::Double, kCapAnimatable, L"", L"", 0.0);
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
  // Linear keys 0 at frame 1 and 9 at frame 10: the value at frame f is f - 1.
  static void Animate(Parameter param) {
    FCurve curve = param.AddFCurve();
    curve.AddKey(1, 0, Interpolation::Linear);
    curve.AddKey(10, 9, Interpolation::Linear);
  }

  Model root_;
  CustomProperty settings_;
  Parameter speed_;
};

TEST_F(HostCommandTest, DeleteObjRemovesItemsAndInvalidatesTheirHandles) {
  {  // a parameter of a custom property, by reference
    Run(L"DeleteObj", {CValue(speed_.GetRef())});
    EXPECT_FALSE(speed_.IsValid());
    EXPECT_TRUE(settings_.IsValid());
  }
  {  // an object by name takes everything below it along
    const KinematicState hand_local = hand_.GetKinematics().GetLocal();
    Run(L"DeleteObj", {L"Hero.hips"});
    EXPECT_FALSE(hand_.IsValid());
    EXPECT_FALSE(hand_local.IsValid());
    EXPECT_FALSE(CRef::FromText(L"Hero.hand").IsValid());
  }
  {  // several at once, one unknown, one gone with the first: the others go, the command fails
    X3DObject a = root_.AddNull(L"a");
    a.AddNull(L"c");
    X3DObject b = root_.AddNull(L"b");
    Run(L"DeleteObj", {L"a, c, Nobody,b"}, CStatus::Fail);
    EXPECT_FALSE(a.IsValid());
    EXPECT_FALSE(b.IsValid());
    EXPECT_TRUE(Logged(kSeverityError, "DeleteObj: nothing is named 'Nobody'"));
  }
  {  // what the scene does not allow to delete
    Run(L"DeleteObj", {CValue(hero_.GetKinematics().GetRef())}, CStatus::Fail);
    EXPECT_TRUE(hero_.GetKinematics().IsValid());
    EXPECT_TRUE(Logged(kSeverityError, "DeleteObj: cannot delete"));
  }
}

TEST_F(HostCommandTest, SelectObjAddsInOrderAndMarksBranches) {
  Run(L"SelectObj", {L"Hero", L"BRANCH"});
  Run(L"SelectObj", {CValue(hand_.GetRef())});
  Run(L"SelectObj", {L"Hero", CValue(), true});  // already selected: not twice
  Run(L"SelectObj", {L"Nobody"}, CStatus::Fail);
  const std::vector<CRef> selection = Application().GetSelection();
  EXPECT_EQ(selection, (std::vector<CRef>{hero_.GetRef(), hand_.GetRef()}));
  const Item& hero_item = *hero_.Lock();
  EXPECT_TRUE(IsBranchSelected(hero_item));
  EXPECT_FALSE(IsBranchSelected(*hand_.Lock()));
  Run(L"DeselectAll", {});
  EXPECT_TRUE(Application().GetSelection().empty());
  Run(L"SelectObj", {L"Hero"});  // a node selection after a branch selection
  EXPECT_FALSE(IsBranchSelected(hero_item));
}

TEST_F(HostCommandTest, EnumElementsListsWhatAnItemHolds) {
  settings_.AddParameter(L"mode", ValueType::Int, 0, L"", L"", 0);
  {  // an object: children first, then properties; a property: its parameters in order
    const std::vector<CString> names = Names(Run(L"EnumElements", {L"Hero"}));
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.front(), CString("Hero.hips"));
    EXPECT_NE(std::find(names.begin(), names.end(), CString("Hero.Settings")), names.end());
    EXPECT_EQ(Names(Run(L"EnumElements", {L"Hero.Settings"})),
              (std::vector<CString>{L"Hero.Settings.speed", L"Hero.Settings.mode"}));
  }
  {  // no mixer here: an empty list; an unknown name fails
    EXPECT_TRUE(Run(L"EnumElements", {L"Hero.Mixer.AnimTracks"}).GetArray().empty());
    EXPECT_TRUE(Run(L"EnumElements", {L"Nobody"}, CStatus::Fail).GetArray().empty());
  }
  {  // a kinematic state: the operators writing it, in connection order, not those reading it
    std::string error;
    ASSERT_TRUE(LoadPlugin(KRX_TEST_PLUGIN_PATH, &error)) << error;
    const KinematicState hips_global = hips_.GetKinematics().GetGlobal();
    const KinematicState hand_global = hand_.GetKinematics().GetGlobal();
    CustomOperator first(Application().CreateObject(L"Test Op"));
    first.AddOutputPort(hips_global.GetRef(), L"out");
    first.AddInputPort(hand_global.GetRef(), L"in");
    ASSERT_EQ(first.Connect(), CStatus::OK);
    CustomOperator second(Application().CreateObject(L"OtherOp"));
    second.AddOutputPort(hand_.GetKinematics().GetLocal().GetRef(), L"out1");
    second.AddOutputPort(hips_global.GetRef(), L"out2");
    ASSERT_EQ(second.Connect(), CStatus::OK);
    const CValue on_hips = Run(L"EnumElements", {hips_global.GetFullName()});
    EXPECT_EQ(on_hips, CValue(CValueArray{CValue(first.GetRef()), CValue(second.GetRef())}));
    EXPECT_TRUE(Run(L"EnumElements", {hand_global.GetFullName()}).GetArray().empty());
  }
}

TEST_F(HostCommandTest, RemoveAllAnimationClearsTheSelectionsParameters) {
  Application().PutCurrentFrame(5);
  const KinematicState hips_local = hips_.GetKinematics().GetLocal();
  Parameter roty = hand_.GetKinematics().GetLocal().GetParameter(L"roty");
  Animate(hips_local.GetParameter(L"posx"));
  Animate(speed_);
  ASSERT_EQ(roty.AddExpression(L"Hero.hips.kine.local.posx * 2"), CStatus::OK);
  {  // a node selection: the object's own parameters only; the value at frame 5 stays
    Run(L"SelectObj", {L"Hero.hips"});
    Run(L"RemoveAllAnimation", {CValue(), CValue(), 3, 3, 128});
    EXPECT_FALSE(hips_local.GetParameter(L"posx").IsAnimated(AnimationSource::FCurve));
    EXPECT_DOUBLE_EQ(hips_local.GetParameterValue(L"posx").GetDouble(), 4.0);
    EXPECT_TRUE(roty.IsAnimated(AnimationSource::Expression));
    EXPECT_TRUE(speed_.IsAnimated(AnimationSource::FCurve));
  }
  {  // a branch selection: everything below the model, its properties included
    Run(L"DeselectAll", {});
    Run(L"SelectObj", {L"Hero", L"BRANCH"});
    Run(L"RemoveAllAnimation", {CValue(), CValue(), 3, 3, 128});
    EXPECT_EQ(roty.GetSourceKind(), AnimationSource::None);
    EXPECT_DOUBLE_EQ(roty.GetValue().GetDouble(), 8.0);
    EXPECT_EQ(speed_.GetSourceKind(), AnimationSource::None);
    EXPECT_DOUBLE_EQ(speed_.GetValue().GetDouble(), 4.0);
  }
  {  // an object named in the command rather than selected
    Animate(hips_local.GetParameter(L"posz"));
    Run(L"DeselectAll", {});
    Run(L"RemoveAllAnimation", {L"Hero.hips"});
    EXPECT_EQ(hips_local.GetParameter(L"posz").GetSourceKind(), AnimationSource::None);
  }
  {  // "B:" names a branch: the named model alone would keep its children's animation
    Animate(hips_local.GetParameter(L"posy"));
    Animate(speed_);
    Run(L"RemoveAllAnimation", {L"Hero"});
    EXPECT_TRUE(hips_local.GetParameter(L"posy").IsAnimated(AnimationSource::FCurve));
    Run(L"RemoveAllAnimation", {L"B:Hero"});
    EXPECT_EQ(hips_local.GetParameter(L"posy").GetSourceKind(), AnimationSource::None);
    EXPECT_EQ(speed_.GetSourceKind(), AnimationSource::None);
  }
}

TEST_F(HostCommandTest, ValuesAreReadAndWrittenByFullName) {
  {  // a parameter by name or reference; the hand follows its parent
    const CString posx = hips_.GetKinematics().GetLocal().GetFullName() + L".posx";
    Run(L"SetValue", {posx, 2.5});
    EXPECT_DOUBLE_EQ(Run(L"GetValue", {posx}).GetDouble(), 2.5);
    EXPECT_DOUBLE_EQ(hand_.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetX(), 2.5);
    Run(L"SetValue", {CValue(speed_.GetRef()), -1.0});
    EXPECT_DOUBLE_EQ(Run(L"GetValue", {CValue(speed_.GetRef())}).GetDouble(), -1.0);
  }
  {  // preferences: names ignore case; others exist once set
    const CString name(kCommandLogPreference);
    EXPECT_EQ(Run(L"GetValue", {name}), CValue(true));  // on by default
    Run(L"SetValue", {L"Preferences.Scripting.CmdLog", false});
    EXPECT_EQ(Run(L"GetValue", {name}), CValue(false));
    Run(L"GetValue", {L"preferences.other.thing"}, CStatus::Fail);
    Run(L"SetValue", {L"preferences.other.thing", L"abc"});
    EXPECT_EQ(Run(L"GetValue", {L"preferences.other.thing"}), CValue("abc"));
  }
  {  // something that is not a parameter, and nothing at all
    Run(L"GetValue", {L"Hero.hips"}, CStatus::Fail);
    EXPECT_TRUE(Logged(kSeverityError, "GetValue: 'Hero.hips' is not a parameter"));
    Run(L"SetValue", {L"Nobody.kine.local.posx", 1.0}, CStatus::Fail);
    EXPECT_TRUE(Logged(kSeverityError, "SetValue: nothing is named 'Nobody.kine.local.posx'"));
  }
  {  // values without a parameter are kept on the item and go with it
    Run(L"SetValue", {L"Hero.hips.display.lod", 3});
    EXPECT_EQ(Run(L"GetValue", {L"Hero.hips.display.lod"}), CValue(3));
    Run(L"DeleteObj", {L"Hero.hips"});
    hero_.AddNull(L"hips");  // a new object of the same name does not inherit them
    Run(L"GetValue", {L"Hero.hips.display.lod"}, CStatus::Fail);
  }
}

TEST_F(HostCommandTest, ExpressionsDriveAndReleaseParameters) {
  KinematicState hips_local = hips_.GetKinematics().GetLocal();
  const CString hand_posy = hand_.GetKinematics().GetLocal().GetFullName() + L".posy";
  Run(L"AddExpr", {hand_posy, hips_local.GetFullName() + L".posx * 2 + 1", true});
  hips_local.PutParameterValue(L"posx", 3.0);
  EXPECT_DOUBLE_EQ(Run(L"GetValue", {hand_posy}).GetDouble(), 7.0);
  Run(L"SetExpr", {hand_posy, hips_local.GetFullName() + L".posx"});  // replaces it
  EXPECT_DOUBLE_EQ(Run(L"GetValue", {hand_posy}).GetDouble(), 3.0);
  {  // SetExpr without an expression removes it; the value stays
    Run(L"SetExpr", {hand_posy});
    hips_local.PutParameterValue(L"posx", 10.0);
    EXPECT_DOUBLE_EQ(Run(L"GetValue", {hand_posy}).GetDouble(), 3.0);
    Run(L"SetExpr", {hand_posy});  // nothing to remove: fine
  }
  Run(L"AddExpr", {hand_posy, L""}, CStatus::InvalidArgument);
  Run(L"AddExpr", {L"Hero.hips", L"Hero.hand.kine.local.posx"}, CStatus::Fail);
}

TEST_F(HostCommandTest, SaveKeyKeysTheCurrentValuesAtTheFrame) {
  Parameter on =
      settings_.AddParameter(L"on", ValueType::Bool, kCapAnimatable, L"", L"", false);
  const CString speed = speed_.GetFullName();
  const CString both = speed + L"," + on.GetFullName();
  Application().PutCurrentFrame(3);
  Run(L"SetValue", {speed, 2.0});
  Run(L"SaveKey", {speed});  // a new curve, keyed at the current frame
  ASSERT_TRUE(speed_.GetFCurve().IsValid());
  Run(L"SetValue", {speed, 5.0});  // on the curve now: held until the frame changes
  Run(L"SetValue", {on.GetFullName(), true});
  Run(L"SaveKey", {both, 9});
  std::vector<FCurveKeyData> keys = speed_.GetFCurve().GetKeys();
  ASSERT_EQ(keys.size(), 2u);
  EXPECT_EQ(std::vector<double>({keys[0].time, keys[0].value, keys[1].time, keys[1].value}),
            std::vector<double>({3, 2, 9, 5}));
  ASSERT_EQ(on.GetFCurve().GetNumKeys(), 1);
  EXPECT_EQ(on.GetFCurve().GetKey(0).interpolation, Interpolation::Constant);
  EXPECT_EQ(on.GetValue(1.0), CValue(true));
  // A name that is not a parameter keys none of the list.
  Run(L"SaveKey", {speed + L",Hero.hips", 20}, CStatus::Fail);
  EXPECT_TRUE(Logged(kSeverityError, "SaveKey: 'Hero.hips' is not a parameter"));
  Run(L"SaveKey", {L"Nobody.x"}, CStatus::Fail);
  EXPECT_TRUE(Logged(kSeverityError, "SaveKey: nothing is named 'Nobody.x'"));
  Run(L"SaveKey", {L""}, CStatus::InvalidArgument);
  EXPECT_EQ(speed_.GetFCurve().GetNumKeys(), 2);
}

// The plug-in's tagging page picks with the first button and cancels through the same
// command; here the second button and a name that is nowhere.
TEST_F(HostCommandTest, PickObjectGivesTheButtonAndThePickedItem) {
  QueueAnswers({{AnswerKind::Pick, 2, CString("Hero")}, {AnswerKind::Pick, 1, CString("Nobody")}});
  const std::pair<int, CRef> expected[] = {{2, hero_.GetRef()}, {0, CRef()}};
  for (const auto& [button, picked] : expected) {
    const CValueArray result =
        Run(L"PickObject", {L"Select Control Node", L"Select Extraction Node"}).GetArray();
    ASSERT_EQ(result.size(), 3u);
    EXPECT_EQ(result[0], CValue(button));
    EXPECT_TRUE(button == 0 ? result[2].IsEmpty() : result[2].GetRef() == picked) << button;
  }
  EXPECT_TRUE(Logged(kSeverityError, "nothing is named 'Nobody'"));
  ASSERT_EQ(Picks().size(), 2u);
  EXPECT_EQ(Picks()[0].second_prompt, CString("Select Extraction Node"));
  EXPECT_EQ(Picks()[0].picked, CString("Hero"));
}

TEST_F(HostCommandTest, InspectObjAndShowFileForEdit) {
  const CString name = settings_.GetFullName();
  EXPECT_EQ(Run(L"InspectObj", {name}), CValue(false));  // modal, nobody answers
  EXPECT_FALSE(IsPageOpen(settings_.GetRef()));
  {  // another mode opens the page and leaves it open
    EXPECT_EQ(Run(L"InspectObj", {name, L"", L"Tool", 3, false}), CValue(true));
    EXPECT_TRUE(IsPageOpen(settings_.GetRef()));
    ClosePage(settings_.GetRef());
  }
  Run(L"InspectObj", {L"Hero.Nothing"}, CStatus::Fail);
  Run(L"ShowFileForEdit", {L"/data/Structures/human.structure"});
  Run(L"ShowFileForEdit", {}, CStatus::InvalidArgument);
  EXPECT_EQ(FilesShownForEdit(), (std::vector<CString>{L"/data/Structures/human.structure"}));
  EXPECT_EQ(InteractionNotes(),
            (std::vector<std::string>{"edit file /data/Structures/human.structure"}));
}

}  // namespace
}  // namespace KRX::rt
