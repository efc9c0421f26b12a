// Desktop views: what they record, and a property panel showing its property's page.
#include <gtest/gtest.h>

#include "krx/app/app_test_support.h"
#include "plugins/pages.h"
#include "plugins/plugin_loader.h"

namespace KRX::rt {
namespace {

std::vector<std::string>& PageEvents() {
  static std::vector<std::string> events;
  return events;
}

CStatus ViewPagePPGEvent(CRef& context) {
  const PPGEvent id = PPGEventContext(context).GetEventID();
  if (id == PPGEvent::OnInit) PageEvents().push_back("init");
  if (id == PPGEvent::OnClosed) PageEvents().push_back("closed");
  return CStatus::OK;
}

class DesktopTest : public AppFixture {
 protected:
  void SetUp() override {
    AppFixture::SetUp();
    PageEvents().clear();
    ClearInProcessCallbacks();
    RegisterInProcessCallback("ViewPage_PPGEvent", ViewPagePPGEvent);
  }
  void TearDown() override {
    AppFixture::TearDown();
    ClearInProcessCallbacks();
  }

  static Layout ActiveLayout() { return Application().GetDesktop().GetActiveLayout(); }
};

TEST_F(DesktopTest, ViewsRecordWhatIsDoneToThemUntilClosed) {
  View view = ActiveLayout().CreateView(L"Property Panel", L"RotateNode");
  View other = ActiveLayout().CreateView(L"Explorer", L"B");
  EXPECT_EQ(view.Move(110, 769), CStatus::OK);
  EXPECT_EQ(view.Resize(400, 145), CStatus::OK);
  EXPECT_EQ(view.Resize(-1, 10), CStatus::InvalidArgument);
  // Attribute names are not case sensitive; unknown ones are empty.
  view.PutAttributeValue(L"TargetContent", L"Hero.RotationOffsetPPG");
  EXPECT_EQ(view.GetAttributeValue(L"targetcontent").GetString(),
            CString("Hero.RotationOffsetPPG"));
  EXPECT_TRUE(view.GetAttributeValue(L"nothing").IsEmpty());
  view.PutState(2);  // minimised views stay in the layout
  ASSERT_EQ(DesktopViews().size(), 2u);
  EXPECT_EQ(DesktopViews()[0].state, 2);
  EXPECT_EQ(
      InteractionNotes(),
      (std::vector<std::string>{"view create Property Panel RotateNode", "view create Explorer B",
                                "view move RotateNode 110 769", "view resize RotateNode 400 145",
                                "view attribute RotateNode TargetContent Hero.RotationOffsetPPG",
                                "view state RotateNode 2"}));
  {  // closing removes it; its handle then does nothing
    EXPECT_EQ(view.PutState(1), CStatus::OK);
    const std::vector<View> left = ActiveLayout().GetViews();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].GetName(), CString("B"));
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(view.Move(1, 2), CStatus::Fail);
  }
  EXPECT_FALSE(ProgressBar(other.GetRef()).IsValid());  // a view is no progress bar
}

TEST_F(DesktopTest, PropertyPanelShowsThePageItsTargetNames) {
  // A custom property outside any scene; views are given it as a reference.
  auto property = std::make_shared<Item>(ClassID::CustomProperty);
  property->type = L"customparamset";
  property->name = L"ViewPage";
  const CRef page{std::weak_ptr<Item>(property)};
  View one = ActiveLayout().CreateView(L"Property Panel", L"One");
  View two = ActiveLayout().CreateView(L"Property Panel", L"Two");
  View explorer = ActiveLayout().CreateView(L"Explorer", L"Three");
  {  // targeting the property shows its page once; a view of another type shows none
    one.PutAttributeValue(L"targetcontent", CValue(page));
    one.PutAttributeValue(L"targetcontent", CValue(page));
    explorer.PutAttributeValue(L"targetcontent", CValue(page));
    EXPECT_EQ(PageEvents(), (std::vector<std::string>{"init"}));
    EXPECT_TRUE(IsPageOpen(page));
  }
  {  // the page closes with the last panel showing it
    two.PutAttributeValue(L"targetcontent", CValue(page));
    one.PutState(1);
    EXPECT_TRUE(IsPageOpen(page));
    two.PutAttributeValue(L"targetcontent", L"");  // another target closes it too
    EXPECT_FALSE(IsPageOpen(page));
    EXPECT_EQ(PageEvents(), (std::vector<std::string>{"init", "init", "closed"}));
  }
}

}  // namespace
}  // namespace KRX::rt
