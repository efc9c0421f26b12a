#include "plugins/pages.h"

#include <gtest/gtest.h>

#include "krx/plugins/plugin_test_support.h"
#include "plugins/plugin_items.h"
#include "runtime/callbacks.h"
#include "runtime/interaction.h"

namespace KRX::rt {
namespace {

// A custom property item with the given parameters, outside any scene.
std::shared_ptr<Item> MakeProperty(const wchar_t* name, std::vector<const wchar_t*> params) {
  auto property = std::make_shared<Item>(ClassID::CustomProperty);
  property->type = L"customparamset";
  property->name = name;
  for (const wchar_t* p : params) {
    auto param = std::make_shared<ParamItem>();
    param->name = p;
    param->owner = property.get();
    property->params.push_back(param);
  }
  return property;
}

class PageTest : public PluginFixture {
 protected:
  void SetUp() override {
    PluginFixture::SetUp();
    ClearAnswers();
    LoadTestPlugin();
  }
  std::shared_ptr<Item> property_ = MakeProperty(L"Test Page12", {L"Speed", L"Mode"});
  CRef ref_ = RefTo(property_);
};

TEST_F(PageTest, InspectionDefinesTheLayoutThenInitialises) {
  const std::vector<std::string> expected = {
      "layout helpfile=page.htm",  // attributes first
      "group \"Defined\"",         // from _DefineLayout
      "endgroup",
      "tab \"Main\"",  // from the OnInit event
      "group \"Settings\"",
      "item Speed label=\"Speed\"",
      "row",
      "button Go label=\"Go!\" width=70",
      "endrow",
      "enum Mode label=\"Mode\" items=[A:0,B:1] control=\"combo\"",
      "spacer 0 5",
      "endgroup",
  };
  // The unique number on the property's name does not change its page's callbacks.
  EXPECT_EQ(PageClassName(ref_), CString("Test Page"));
  EXPECT_EQ(PageClassName(RefTo(MakeProperty(L"Other3", {}))), CString("Other3"));
  ASSERT_TRUE(InspectProperty(ref_, false));
  EXPECT_EQ(LayoutLines(PageLayout(ref_)), expected);
  EXPECT_EQ(Notes(), (std::vector<std::string>{"DefineLayout", "init source=Test Page12"}));
  EXPECT_EQ(PageRefreshCount(ref_), 1);
  ASSERT_EQ(ShownPages().size(), 1u);
  EXPECT_FALSE(ShownPages()[0].modal);
  EXPECT_EQ(PageLayout(ref_).FindItem(L"Go").GetAttribute(L"width").GetInt(), 70);
  EXPECT_FALSE(PageLayout(ref_).FindItem(L"Main").IsValid());  // a tab is not a control
  // Inspecting again starts from a fresh layout rather than adding to the old one.
  ASSERT_TRUE(InspectProperty(ref_, false));
  EXPECT_EQ(LayoutLines(PageLayout(ref_)), expected);
}

TEST_F(PageTest, EventsNameTheirButtonOrParameter) {
  ASSERT_TRUE(InspectProperty(ref_, false));
  ClearLog();
  EXPECT_EQ(FirePPGEvent(ref_, PPGEvent::ButtonClicked, L"Go"), CStatus::OK);
  EXPECT_EQ(PageRefreshCount(ref_), 2);  // the Go handler asked for a redraw
  EXPECT_EQ(FirePPGEvent(ref_, PPGEvent::ButtonClicked, L"Stop"), CStatus::OK);
  EXPECT_EQ(PageRefreshCount(ref_), 2);
  // A parameter change has the parameter as source; an unknown name falls back to the page.
  EXPECT_EQ(FirePPGEvent(ref_, PPGEvent::ParameterChange, L"Speed"), CStatus::OK);
  EXPECT_EQ(FirePPGEvent(ref_, PPGEvent::ParameterChange, L"Nope"), CStatus::OK);
  EXPECT_EQ(ClosePage(ref_), CStatus::OK);
  EXPECT_EQ(ClosePage(ref_), CStatus::OK);  // already closed: no second event
  EXPECT_EQ(Notes(),
            (std::vector<std::string>{"button Go", "button Stop", "changed Speed source=Speed",
                                      "changed Nope source=Test Page12", "closed"}));
  // A deleted property has no page.
  property_->deleted = true;
  EXPECT_FALSE(InspectProperty(ref_, false));
  EXPECT_EQ(FirePPGEvent(ref_, PPGEvent::OnInit), CStatus::InvalidArgument);
}

TEST_F(PageTest, ModalPageTakesTheScriptedAnswer) {
  QueueAnswer({AnswerKind::Ok, 0, CString()});
  EXPECT_TRUE(InspectProperty(ref_, true));
  ClearLog();
  EXPECT_FALSE(InspectProperty(ref_, true));  // no answer: cancelled, and closed
  EXPECT_EQ(Notes(),
            (std::vector<std::string>{"DefineLayout", "init source=Test Page12", "closed"}));
  ASSERT_EQ(ShownPages().size(), 2u);
  EXPECT_TRUE(ShownPages()[0].accepted);
  EXPECT_TRUE(ShownPages()[1].modal);
  EXPECT_FALSE(ShownPages()[1].accepted);
  EXPECT_FALSE(IsPageOpen(ref_));
  {  // A property without _DefineLayout shows its parameters in order.
    std::shared_ptr<Item> bare = MakeProperty(L"BareProp", {L"b", L"a"});
    EXPECT_FALSE(InspectProperty(RefTo(bare), true));
    EXPECT_EQ(LayoutLines(PageLayout(RefTo(bare))), (std::vector<std::string>{"item b", "item a"}));
  }
}

// A page whose handlers fire events on their own page, as a handler that writes its own
// parameters or clicks its own button would.
CRef g_loop_property;
int g_parameter_events = 0;
int g_button_events = 0;

CStatus LoopPageEvent(CRef& ctxt) {
  const PPGEvent id = PPGEventContext(ctxt).GetEventID();
  if (id == PPGEvent::ParameterChange) {
    ++g_parameter_events;
    FirePPGEvent(g_loop_property, PPGEvent::ParameterChange, L"Speed");
  } else if (id == PPGEvent::ButtonClicked) {
    ++g_button_events;
    FirePPGEvent(g_loop_property, PPGEvent::ButtonClicked, L"Again");
  }
  return CStatus::OK;
}

// The parameter names that _ParameterChanged heard of, checked against its source.
std::vector<std::string> g_changed;
CStatus LoopParameterChanged(CRef& ctxt) {
  const Context context(ctxt);
  const CString name = context.GetAttribute(L"Parameter").GetString();
  if (Parameter(context.GetSource()).GetName() == name) g_changed.push_back(name.GetAsciiString());
  return CStatus::OK;
}

TEST_F(PageTest, HandlersDoNotFireThemselvesEndlessly) {
  std::shared_ptr<Item> loop = MakeProperty(L"LoopPage", {L"Speed"});
  g_loop_property = RefTo(loop);
  g_parameter_events = g_button_events = 0;
  RegisterInProcessCallback("LoopPage_PPGEvent", &LoopPageEvent);
  EXPECT_EQ(FirePPGEvent(g_loop_property, PPGEvent::ParameterChange, L"Speed"), CStatus::OK);
  EXPECT_EQ(g_parameter_events, 1);
  EXPECT_EQ(FirePPGEvent(g_loop_property, PPGEvent::ButtonClicked, L"Again"), CStatus::OK);
  EXPECT_EQ(g_button_events, 4);
  EXPECT_TRUE(Logged(kSeverityWarning, {"LoopPage", "nested too deeply"}));
  {  // Parameter writes reach the page while it is open, _ParameterChanged otherwise:
     // each write is heard once.
    RegisterInProcessCallback("LoopPage_ParameterChanged", &LoopParameterChanged);
    g_changed.clear();
    CRef speed = RefTo(loop->params[0]);
    NotifyParameterChanged(speed);
    EXPECT_EQ(g_parameter_events, 1);
    EXPECT_EQ(g_changed, (std::vector<std::string>{"Speed"}));
    ASSERT_TRUE(InspectProperty(g_loop_property, false));
    NotifyParameterChanged(speed);
    EXPECT_EQ(g_parameter_events, 2);
    EXPECT_EQ(g_changed.size(), 1u);
  }
  g_loop_property = CRef();
}

}  // namespace
}  // namespace KRX::rt
