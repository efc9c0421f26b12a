// The scene-event callbacks called directly, with the process-wide names set by the test.
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

  // A closed view leaves the layout.
  static bool IsOpen(const KRX::View& view) {
    for (const KRX::View& open : KRX::Application().GetDesktop().GetActiveLayout().GetViews()) {
      if (open == view) return open.GetState() == 0;
    }
    return false;
  }

  static KRX::View NewPage(const std::wstring& name, const KRX::CString& content) {
    KRX::View view =
        KRX::Application().GetDesktop().GetActiveLayout().CreateView(L"Property Panel", name);
    view.PutAttributeValue(L"targetcontent", content);
    return view;
  }
};

TEST_F(PluginSceneEventTest, TheLastAdjustmentPageCloses) {
  KRX::CRef none;
  {  // No model adjusted yet: nothing is closed.
    KRX::View page = NewPage(L"adjust_none", L".RetargetAdjustPPG");
    EXPECT_EQ(MyNewScene_OnEvent(none), KRX::CStatus::OK);
    EXPECT_TRUE(IsOpen(page));
  }
  {  // The page of the model adjusted last closes; another model's page stays.
    SetLastAdjustedModelName(L"Hero");
    KRX::View hero = NewPage(L"adjust_hero", L"Hero.RetargetAdjustPPG");
    KRX::View villain = NewPage(L"adjust_villain", L"Villain.RetargetAdjustPPG");
    EXPECT_EQ(MyOpenScene_OnEvent(none), KRX::CStatus::OK);
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
    KRX::CRef none;
    const uint64_t before = KRX::rt::ActiveScene().revision;
    EXPECT_EQ(opened ? MyOpenScene_OnEvent(none) : MyNewScene_OnEvent(none), KRX::CStatus::OK);
    return KRX::rt::ActiveScene().revision > before;
  };
  EXPECT_FALSE(revision_moves(true));  // not adjusted
  hero.AddCustomProperty(L"RetargetAdjustPPG");
  EXPECT_FALSE(revision_moves(false));
  EXPECT_TRUE(revision_moves(true));
  EXPECT_NEAR(hero.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetX(), 2.0, 1e-12);
  EXPECT_TRUE(KRX::rt::LogLines().empty());
}

}  // namespace
}  // namespace kavor
