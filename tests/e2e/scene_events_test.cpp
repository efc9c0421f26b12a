// The Mocap to Rig page across scenes, through the loaded module (which registers the
// page's property) and the host's scene events: an open page is pointed at the new scene's
// property. The other scene-event steps are driven in tests/kavor/plugin/scene_events_test.cpp.
#include "plugins/scene_events.h"

#include <string>

#include "e2e/kavor_module.h"
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

KRX::View NewView(const std::wstring& name, const KRX::CString& content) {
  KRX::View view =
      KRX::Application().GetDesktop().GetActiveLayout().CreateView(L"Property Panel", name);
  view.PutAttributeValue(L"targetcontent", content);
  return view;
}

// An open Mocap to Rig page is pointed at the new scene's property, which is made when the
// scene has none; a page whose content merely starts with the name is left alone.
TEST_F(SceneEventTest, MocapToRigPageFollowsTheScene) {
  KRX::View page = NewView(L"mocap_page", L"MocapToRig");
  KRX::View other = NewView(L"other_page", L"MocapToRigs");
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
  EXPECT_EQ(other.GetAttributeValue(L"targetcontent").GetString(), KRX::CString(L"MocapToRigs"));
  {  // A property from an older plug-in (no "C3DSymmetry") is made afresh; a current one stays.
    for (const bool current : {false, true}) {
      KRX::rt::ResetScene();
      KRX::CustomProperty old =
          KRX::Application().GetActiveSceneRoot().AddCustomProperty(L"MocapToRig");
      old.AddParameter(L"Marker", KRX::ValueType::Double, 0, L"", L"", 1.0);
      if (current) old.AddParameter(L"C3DSymmetry", KRX::ValueType::Bool, 0, L"", L"", false);
      NewView(L"mocap_again", L"MocapToRig");
      KRX::rt::FireSceneEvent(true);
      KRX::Property kept;
      for (const KRX::Property& property :
           KRX::Application().GetActiveSceneRoot().GetProperties()) {
        if (property.GetName() == KRX::CString(L"MocapToRig")) kept = property;
      }
      ASSERT_TRUE(kept.IsValid());
      EXPECT_EQ(kept.GetParameter(L"Marker").IsValid(), current);
    }
  }
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
