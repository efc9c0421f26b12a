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
  switch (PPGEventContext(context).GetEventID()) {
    case PPGEvent::OnInit:
      PageEvents().push_back("init");
      break;
    case PPGEvent::OnClosed:
      PageEvents().push_back("closed");
      break;
    default:
      break;
  }
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

  // A custom property outside any scene; views are given it as a reference.
  std::shared_ptr<Item> property_ = [] {
    auto item = std::make_shared<Item>(ClassID::CustomProperty);
    item->type = L"customparamset";
    item->name = L"ViewPage";
    return item;
  }();
  CValue property_ref_ = CValue(CRef(std::weak_ptr<Item>(property_)));
};

TEST_F(DesktopTest, ViewsRecordPlacementSizeAndAttributes) {
  View view = ActiveLayout().CreateView(L"Property Panel", L"RotateNode");
  ASSERT_TRUE(view.IsValid());
  EXPECT_EQ(view.GetState(), 0);  // shown
  EXPECT_EQ(view.Move(110, 769), CStatus::OK);
  EXPECT_EQ(view.Resize(400, 145), CStatus::OK);
  EXPECT_EQ(view.Resize(-1, 10), CStatus::InvalidArgument);
  int width = 0, height = 0;
  view.GetSize(width, height);
  EXPECT_EQ(height, 145);
  // Attribute names are not case sensitive; unknown ones are empty.
  view.PutAttributeValue(L"TargetContent", L"Hero.RotationOffsetPPG");
  EXPECT_EQ(view.GetAttributeValue(L"targetcontent").GetString(),
            CString("Hero.RotationOffsetPPG"));
  EXPECT_TRUE(view.GetAttributeValue(L"nothing").IsEmpty());
  // Minimised views stay in the layout.
  view.PutState(2);
  ASSERT_EQ(DesktopViews().size(), 1u);
  EXPECT_EQ(DesktopViews()[0].state, 2);
  EXPECT_EQ(DesktopViews()[0].target_content, CString("Hero.RotationOffsetPPG"));
  EXPECT_EQ(
      InteractionNotes(),
      (std::vector<std::string>{"view create Property Panel RotateNode",
                                "view move RotateNode 110 769", "view resize RotateNode 400 145",
                                "view attribute RotateNode TargetContent Hero.RotationOffsetPPG",
                                "view state RotateNode 2"}));
}

TEST_F(DesktopTest, ClosingAViewRemovesItFromTheLayout) {
  View first = ActiveLayout().CreateView(L"Property Panel", L"A");
  View second = ActiveLayout().CreateView(L"Explorer", L"B");
  ASSERT_EQ(ActiveLayout().GetViews().size(), 2u);
  EXPECT_EQ(first.PutState(1), CStatus::OK);
  const std::vector<View> left = ActiveLayout().GetViews();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].GetName(), CString("B"));
  EXPECT_FALSE(first.IsValid());
  EXPECT_EQ(first.GetName(), CString());
  EXPECT_EQ(first.Move(1, 2), CStatus::Fail);
  EXPECT_TRUE(second.IsValid());
  // A handle of another family on a view is no handle on it.
  EXPECT_FALSE(ProgressBar(second.GetRef()).IsValid());
  EXPECT_TRUE(Application().GetUIToolkit().GetProgressBar().IsValid());
}

TEST_F(DesktopTest, PropertyPanelShowsThePageItsTargetNames) {
  View one = ActiveLayout().CreateView(L"Property Panel", L"One");
  View two = ActiveLayout().CreateView(L"Property Panel", L"Two");
  View explorer = ActiveLayout().CreateView(L"Explorer", L"Three");
  const CRef page{std::weak_ptr<Item>(property_)};
  {  // targeting the property shows its page once
    one.PutAttributeValue(L"targetcontent", property_ref_);
    one.PutAttributeValue(L"targetcontent", property_ref_);
    EXPECT_EQ(PageEvents(), (std::vector<std::string>{"init"}));
    EXPECT_TRUE(IsPageOpen(page));
  }
  {  // a view of another type shows no page
    explorer.PutAttributeValue(L"targetcontent", property_ref_);
    EXPECT_EQ(PageEvents().size(), 1u);
  }
  {  // the page closes with the last panel showing it
    two.PutAttributeValue(L"targetcontent", property_ref_);
    one.PutState(1);
    EXPECT_TRUE(IsPageOpen(page));
    two.PutAttributeValue(L"targetcontent", L"");  // another target closes it too
    EXPECT_FALSE(IsPageOpen(page));
    EXPECT_EQ(PageEvents(), (std::vector<std::string>{"init", "init", "closed"}));
  }
}

}  // namespace
}  // namespace KRX::rt
