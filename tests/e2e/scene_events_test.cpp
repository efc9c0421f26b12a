// The scene-event callbacks of the loaded module, fired by the host as on a new or opened
// scene: pages of the old scene are closed or re-pointed. Re-evaluating adjusted models is
// driven in tests/kavor/plugin/scene_events_test.cpp.
#include "plugins/scene_events.h"

#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor::e2e {
namespace {

using SceneEventTest = KavorModuleTest;

// A closed view leaves the layout.
bool IsOpen(const KRX::View& view) {
  for (const KRX::View& open : KRX::Application().GetDesktop().GetActiveLayout().GetViews()) {
    if (open == view) return open.GetState() == 0;
  }
  return false;
}

KRX::View NewView(const wchar_t* type, const std::wstring& name, const KRX::CString& content) {
  KRX::View view = KRX::Application().GetDesktop().GetActiveLayout().CreateView(type, name);
  EXPECT_TRUE(view.IsValid());
  view.PutAttributeValue(L"targetcontent", content);
  EXPECT_EQ(view.GetState(), 0);
  return view;
}

TEST_F(SceneEventTest, RotationOffsetPagesClose) {
  for (const bool opened : {false, true}) {
    SCOPED_TRACE(opened ? "open scene" : "new scene");
    const std::wstring tag = opened ? L"open" : L"new";
    KRX::View offsets =
        NewView(L"Property Panel", L"offsets_" + tag, L"Hero.hip.RotationOffsetPPG");
    KRX::View offsets2 =
        NewView(L"Property Panel", L"offsets2_" + tag, L"Villain.arm.RotationOffsetPPG1");
    KRX::View tags = NewView(L"Property Panel", L"tags_" + tag, L"Hero.TagPPG");
    // Only property pages are closed, whatever another view shows.
    KRX::View explorer = NewView(L"Explorer", L"explorer_" + tag, L"Hero.hip.RotationOffsetPPG");

    KRX::rt::FireSceneEvent(opened);
    EXPECT_FALSE(IsOpen(offsets));
    EXPECT_FALSE(IsOpen(offsets2));
    EXPECT_TRUE(IsOpen(tags));
    EXPECT_TRUE(IsOpen(explorer));
    EXPECT_TRUE(LoggedTexts(KRX::kSeverityError).empty());
  }
}

// An open Mocap to Rig page is pointed at the new scene's property, which is made when the
// scene has none.
TEST_F(SceneEventTest, MocapToRigPageFollowsTheScene) {
  KRX::View page = NewView(L"Property Panel", L"mocap_page", L"MocapToRig");
  KRX::View other = NewView(L"Property Panel", L"other_page", L"MocapToRigs");
  KRX::Model root = KRX::Application().GetActiveSceneRoot();

  KRX::rt::FireSceneEvent(false);
  KRX::Property made;
  for (const KRX::Property& property : root.GetProperties()) {
    if (property.GetName() == KRX::CString(L"MocapToRig")) made = property;
  }
  ASSERT_TRUE(made.IsValid());
  EXPECT_EQ(page.GetAttributeValue(L"targetcontent").GetString(), made.GetFullName());
  int width = 0;
  int height = 0;
  page.GetSize(width, height);
  EXPECT_EQ(width, 393);
  EXPECT_EQ(height, 395);
  EXPECT_TRUE(IsOpen(page));
  // A page whose content merely starts with the name is left alone.
  EXPECT_EQ(other.GetAttributeValue(L"targetcontent").GetString(), KRX::CString(L"MocapToRigs"));

  {  // With no such page the scene is not touched.
    KRX::rt::ResetScene();
    KRX::rt::FireSceneEvent(true);
    for (const KRX::Property& property : KRX::Application().GetActiveSceneRoot().GetProperties()) {
      EXPECT_NE(property.GetName(), KRX::CString(L"MocapToRig"));
    }
  }
}

}  // namespace
}  // namespace kavor::e2e
