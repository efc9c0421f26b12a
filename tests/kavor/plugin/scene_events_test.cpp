// The scene-event callbacks called directly, with the last adjusted model set by the test:
// pages that showed the old scene are closed, and an opened scene re-evaluates the adjusted
// models. The Mocap to Rig page, whose property the loaded module registers, is followed in
// tests/e2e/scene_events_test.cpp.
#include <gtest/gtest.h>

#include <string>

#include "kavor/plugin/shared_names.h"
#include "krx/krx.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

extern "C" KRX::CStatus MyNewScene_OnEvent(KRX::CRef& context);
extern "C" KRX::CStatus MyOpenScene_OnEvent(KRX::CRef& context);

namespace kavor {
namespace {

class PluginSceneEventTest : public ::testing::Test {
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

  // A closed view leaves the layout.
  static bool IsOpen(const KRX::View& view) {
    for (const KRX::View& open : KRX::Application().GetDesktop().GetActiveLayout().GetViews()) {
      if (open == view) return open.GetState() == 0;
    }
    return false;
  }

  static KRX::View NewView(const std::wstring& name, const KRX::CString& content,
                           const wchar_t* type = L"Property Panel") {
    KRX::View view = KRX::Application().GetDesktop().GetActiveLayout().CreateView(type, name);
    view.PutAttributeValue(L"targetcontent", content);
    EXPECT_TRUE(IsOpen(view));
    return view;
  }
};

// On a new and on an opened scene: every rotation-offset property page closes (only
// property pages, whatever another view shows), and the adjustment page of the model
// adjusted last, when there is one.
TEST_F(PluginSceneEventTest, PagesOfTheOldSceneClose) {
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
    EXPECT_FALSE(IsOpen(offsets));
    EXPECT_FALSE(IsOpen(offsets2));
    EXPECT_TRUE(IsOpen(tags));
    EXPECT_TRUE(IsOpen(explorer));
    EXPECT_TRUE(IsOpen(unnamed));  // no model adjusted yet

    SetLastAdjustedModelName(L"Hero");
    KRX::View hero = NewView(L"adjust_hero_" + tag, L"Hero.RetargetAdjustPPG");
    KRX::View villain = NewView(L"adjust_villain_" + tag, L"Villain.RetargetAdjustPPG");
    Fire(opened);
    EXPECT_FALSE(IsOpen(hero));
    EXPECT_TRUE(IsOpen(villain));
  }
}

// Opening a scene reads and writes back the global transform of each adjusted model at
// the current frame, models inside other models included. On an animated model the write
// is a put at that frame (the scene's revision moves) and the pose stays where the
// animation puts it.
TEST_F(PluginSceneEventTest, OpeningTouchesAdjustedModelsOnly) {
  KRX::X3DObject hero =
      KRX::Application().GetActiveSceneRoot().AddModel(L"Group").AddModel(L"Hero");
  hero.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(
      {{.time = 0.0, .value = 2.0}, {.time = 100.0, .value = 2.0}});
  const auto revision_moves = [](bool opened) {
    const uint64_t before = KRX::rt::ActiveScene().revision;
    Fire(opened);
    return KRX::rt::ActiveScene().revision > before;
  };
  EXPECT_FALSE(revision_moves(true));  // not adjusted
  hero.AddCustomProperty(L"RetargetAdjustPPG");
  EXPECT_FALSE(revision_moves(false));
  EXPECT_TRUE(revision_moves(true));
  EXPECT_NEAR(hero.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetX(), 2.0, 1e-12);
}

}  // namespace
}  // namespace kavor
