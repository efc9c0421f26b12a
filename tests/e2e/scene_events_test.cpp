// What the plug-in does on a new or an opened scene. The Mocap to Rig page needs the
// property the loaded module registers, so it goes through the host's scene events; the
// other steps read the last adjusted model, which the test sets, and are called directly.
#include "plugins/scene_events.h"

#include <string>

#include "e2e/kavor_module.h"
#include "kavor/plugin/shared_names.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

extern "C" KRX::CStatus MyNewScene_OnEvent(KRX::CRef& context);
extern "C" KRX::CStatus MyOpenScene_OnEvent(KRX::CRef& context);

namespace kavor::e2e {
namespace {

// A closed view leaves the layout.
bool IsOpen(const KRX::View& view) {
  for (const KRX::View& open : KRX::Application().GetDesktop().GetActiveLayout().GetViews()) {
    if (open == view) return open.GetState() == 0;
  }
  return false;
}

KRX::View NewView(const std::wstring& name, const KRX::CString& content,
                  const wchar_t* type = L"Property Panel") {
  KRX::View view = KRX::Application().GetDesktop().GetActiveLayout().CreateView(type, name);
  view.PutAttributeValue(L"targetcontent", content);
  return view;
}

KRX::Property RootProperty(const wchar_t* name) {
  for (const KRX::Property& property : KRX::Application().GetActiveSceneRoot().GetProperties()) {
    if (property.GetName() == KRX::CString(name)) return property;
  }
  return {};
}

using SceneEventTest = KavorModuleTest;

// An open Mocap to Rig page is pointed at the new scene's property, which is made when the
// scene has none or only one from an older plug-in (no "C3DSymmetry"); a page whose
// content merely starts with the name is left alone; without such a page nothing is made.
TEST_F(SceneEventTest, MocapToRigPageFollowsTheScene) {
  KRX::View page = NewView(L"mocap_page", L"MocapToRig");
  KRX::View other = NewView(L"other_page", L"MocapToRigs");
  KRX::rt::FireSceneEvent(false);
  const KRX::Property made = RootProperty(L"MocapToRig");
  ASSERT_TRUE(made.IsValid());
  EXPECT_EQ(page.GetAttributeValue(L"targetcontent").GetString(), made.GetFullName());
  int width = 0;
  int height = 0;
  page.GetSize(width, height);
  EXPECT_EQ(width * 1000 + height, 393395);
  EXPECT_TRUE(IsOpen(page));
  EXPECT_EQ(other.GetAttributeValue(L"targetcontent").GetString(), KRX::CString(L"MocapToRigs"));
  for (const bool current : {false, true}) {
    KRX::rt::ResetScene();
    KRX::CustomProperty old =
        KRX::Application().GetActiveSceneRoot().AddCustomProperty(L"MocapToRig");
    old.AddParameter(L"Marker", KRX::ValueType::Double, 0, L"", L"", 1.0);
    if (current) old.AddParameter(L"C3DSymmetry", KRX::ValueType::Bool, 0, L"", L"", false);
    NewView(L"mocap_again", L"MocapToRig");
    KRX::rt::FireSceneEvent(true);
    ASSERT_TRUE(RootProperty(L"MocapToRig").IsValid());
    EXPECT_EQ(RootProperty(L"MocapToRig").GetParameter(L"Marker").IsValid(), current);
  }
  KRX::rt::ResetScene();
  KRX::rt::FireSceneEvent(true);
  EXPECT_FALSE(RootProperty(L"MocapToRig").IsValid());
}

class DirectSceneEventTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KRX::rt::ResetScene();
    KRX::rt::ClearLog();
    SetLastAdjustedModelName(KRX::CString());
  }
  void TearDown() override { SetLastAdjustedModelName(KRX::CString()); }

  static void Fire(bool opened) {
    KRX::CRef none;
    EXPECT_EQ(opened ? MyOpenScene_OnEvent(none) : MyNewScene_OnEvent(none), KRX::CStatus::OK);
    EXPECT_TRUE(KRX::rt::LogLines().empty());
  }
};

// Both events close every rotation-offset property page (only property pages, whatever
// another view shows) and the adjustment page of the model adjusted last, if any.
TEST_F(DirectSceneEventTest, PagesOfTheOldSceneClose) {
  for (const bool opened : {false, true}) {
    SCOPED_TRACE(opened ? "open scene" : "new scene");
    const std::wstring tag = opened ? L"open" : L"new";
    SetLastAdjustedModelName(KRX::CString());
    KRX::View offsets = NewView(L"offsets_" + tag, L"Hero.hip.RotationOffsetPPG");
    KRX::View offsets2 = NewView(L"offsets2_" + tag, L"Villain.arm.RotationOffsetPPG1");
    KRX::View tags = NewView(L"tags_" + tag, L"Hero.TagPPG");
    KRX::View explorer = NewView(L"explorer_" + tag, L"Hero.hip.RotationOffsetPPG", L"Explorer");
    KRX::View unnamed = NewView(L"adjust_none_" + tag, L".RetargetAdjustPPG");
    Fire(opened);
    EXPECT_FALSE(IsOpen(offsets) || IsOpen(offsets2));
    EXPECT_TRUE(IsOpen(tags) && IsOpen(explorer) && IsOpen(unnamed));

    SetLastAdjustedModelName(L"Hero");
    KRX::View hero = NewView(L"adjust_hero_" + tag, L"Hero.RetargetAdjustPPG");
    KRX::View villain = NewView(L"adjust_villain_" + tag, L"Villain.RetargetAdjustPPG");
    Fire(opened);
    EXPECT_FALSE(IsOpen(hero));
    EXPECT_TRUE(IsOpen(villain));
  }
}

// Opening a scene (only) puts each adjusted model's global transform back at the current
// frame, nested models included: the put is held as a transient one on the animated
// parameter, the animated pose stays.
TEST_F(DirectSceneEventTest, OpeningTouchesAdjustedModelsOnly) {
  KRX::X3DObject hero =
      KRX::Application().GetActiveSceneRoot().AddModel(L"Group").AddModel(L"Hero");
  hero.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(
      {{.time = 0.0, .value = 2.0}, {.time = 100.0, .value = 2.0}});
  const auto puts_back = [](bool opened) {
    KRX::rt::ActiveScene().eval.transients.clear();
    Fire(opened);
    return !KRX::rt::ActiveScene().eval.transients.empty();
  };
  EXPECT_FALSE(puts_back(true));  // not adjusted
  hero.AddCustomProperty(L"RetargetAdjustPPG");
  EXPECT_FALSE(puts_back(false));
  EXPECT_TRUE(puts_back(true));
  EXPECT_NEAR(hero.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetX(), 2.0, 1e-12);
}

}  // namespace
}  // namespace kavor::e2e
