#include "plugins/pages.h"

#include <cwctype>
#include <memory>
#include <optional>

#include "plugins/plugin_items.h"
#include "plugins/plugin_registry.h"
#include "runtime/callbacks.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

namespace KRX::rt {

namespace {

// Bounds nested page events (a button handler that clicks another button, ...).
constexpr int kMaxEventDepth = 4;

struct PageState {
  std::weak_ptr<Item> property;
  std::shared_ptr<LayoutItem> layout;
  bool open = false;
  int refreshes = 0;
  int event_depth = 0;
};

struct PageTable {
  // Shared pointers: a handler may open other pages while its own state is in use.
  std::vector<std::shared_ptr<PageState>> pages;
  std::vector<ShownPage> shown;
};

PageTable& Pages() {
  static PageTable* table = new PageTable;
  return *table;
}

std::shared_ptr<Item> LiveItem(const CRef& ref) {
  std::shared_ptr<Item> item = ref.Lock();
  return item && !item->deleted ? item : nullptr;
}

std::shared_ptr<PageState> FindPage(const Item* property) {
  std::vector<std::shared_ptr<PageState>>& pages = Pages().pages;
  std::erase_if(pages, [](const auto& p) { return p->property.expired(); });
  for (const auto& page : pages) {
    if (page->property.lock().get() == property) return page;
  }
  return nullptr;
}

std::shared_ptr<PageState> PageFor(const std::shared_ptr<Item>& property) {
  if (auto page = FindPage(property.get())) return page;
  auto page = std::make_shared<PageState>();
  page->property = property;
  Pages().pages.push_back(page);
  return page;
}

std::shared_ptr<PageContextItem> NewPageContext(const std::shared_ptr<Item>& source,
                                                const std::shared_ptr<LayoutItem>& layout,
                                                PPGEvent event) {
  auto context = std::make_shared<PageContextItem>();
  context->source = source;
  context->layout = layout;
  context->event = event;
  return context;
}

// A fresh layout, filled by the property's _DefineLayout (whose context source is the
// layout, as the layout is what that callback describes). A property without one shows
// each of its parameters in order.
CStatus DefineLayout(PageState& page, const CString& class_name) {
  page.layout = std::make_shared<LayoutItem>();
  auto context = NewPageContext(page.layout, page.layout, PPGEvent::OnInit);
  CRef ref = RefTo(context);
  bool found = false;
  CStatus status = InvokeCallback(class_name, "_DefineLayout", ref, &found);
  if (!found) {
    PPGLayout layout(RefTo(page.layout));
    if (std::shared_ptr<Item> property = page.property.lock()) {
      for (const std::shared_ptr<Item>& param : property->params) layout.AddItem(param->name);
    }
  }
  return status;
}

struct EventDepthGuard {
  explicit EventDepthGuard(PageState& p) : page(p) { ++page.event_depth; }
  ~EventDepthGuard() { --page.event_depth; }
  EventDepthGuard(const EventDepthGuard&) = delete;
  EventDepthGuard& operator=(const EventDepthGuard&) = delete;
  PageState& page;
};

CStatus FireEvent(const std::shared_ptr<PageState>& page, const std::shared_ptr<Item>& property,
                  const std::shared_ptr<Item>& source, PPGEvent id, const wchar_t* attribute,
                  const CString& item_name) {
  if (id == PPGEvent::ParameterChange && page->event_depth > 0) return CStatus::OK;
  if (page->event_depth >= kMaxEventDepth) {
    Log(CString("Page events of ") + property->name + CString(" nested too deeply; ignored."),
        kSeverityWarning);
    return CStatus::Abort;
  }
  const CString class_name = PageClassName(RefTo(property));
  if (!page->layout) DefineLayout(*page, class_name);
  auto context = NewPageContext(source, page->layout, id);
  if (attribute) context->attributes[attribute] = CValue(item_name);
  CRef ref = RefTo(context);
  CStatus status;
  {
    EventDepthGuard guard(*page);
    status = InvokeCallback(class_name, "_PPGEvent", ref);
  }
  auto refresh = context->attributes.find(L"Refresh");
  if (refresh != context->attributes.end() && refresh->second.GetBool()) ++page->refreshes;
  return status;
}

std::string Quote(const CString& text) { return "\"" + text.GetAsciiString() + "\""; }

std::string EntryLine(const LayoutEntryItem& e) {
  static constexpr const char* kKindNames[] = {"tab",  "group",  "endgroup", "row",  "endrow",
                                               "item", "button", "enum",     "text", "spacer"};
  std::string line = kKindNames[static_cast<int>(e.kind)];
  switch (e.kind) {
    case LayoutEntryKind::EndGroup:
    case LayoutEntryKind::Row:
    case LayoutEntryKind::EndRow:
      break;
    case LayoutEntryKind::Spacer:
      line += " " + std::to_string(e.width) + " " + std::to_string(e.height);
      break;
    case LayoutEntryKind::Tab:
    case LayoutEntryKind::StaticText:
      line += " " + Quote(e.label);
      break;
    case LayoutEntryKind::Group:
      line += " " + Quote(e.label);
      if (!e.border) line += " noborder";
      break;
    default:
      line += " " + e.name.GetAsciiString();
      if (!e.label.IsEmpty()) line += " label=" + Quote(e.label);
      break;
  }
  if (e.kind == LayoutEntryKind::EnumControl) {
    line += " items=[";
    for (size_t i = 0; i + 1 < e.enum_items.size(); i += 2) {
      if (i > 0) line += ",";
      line += e.enum_items[i].GetString().GetAsciiString() + ":" +
              e.enum_items[i + 1].GetString().GetAsciiString();
    }
    line += "]";
  }
  if (!e.control.IsEmpty()) line += " control=" + Quote(e.control);
  for (const auto& [key, value] : e.attributes) {
    line += " " + CString(key).GetAsciiString() + "=" + value.GetString().GetAsciiString();
  }
  return line;
}

}  // namespace

CString PageClassName(const CRef& property) {
  std::shared_ptr<Item> item = property.Lock();
  if (!item) return CString();
  if (IsRegisteredProperty(item->name)) return item->name;
  std::wstring base = item->name.GetWideString();
  while (!base.empty() && std::iswdigit(static_cast<wint_t>(base.back()))) base.pop_back();
  if (!base.empty() && IsRegisteredProperty(CString(base))) return CString(base);
  return item->name;
}

bool InspectProperty(const CRef& property, bool modal) {
  std::shared_ptr<Item> item = LiveItem(property);
  if (!item) return false;
  std::shared_ptr<PageState> page = PageFor(item);
  DefineLayout(*page, PageClassName(property));
  page->open = true;
  const CString full_name = SIObject(property).GetFullName();
  Pages().shown.push_back({full_name, modal, true});
  const size_t shown_index = Pages().shown.size() - 1;
  FireEvent(page, item, item, PPGEvent::OnInit, nullptr, CString());
  if (!modal) return true;
  // Without an answer the page is cancelled.
  const std::optional<CValue> answer = NextAnswer("page");
  const bool accepted = answer && answer->GetBool();
  if (shown_index < Pages().shown.size()) Pages().shown[shown_index].accepted = accepted;
  if (page->open) {
    FireEvent(page, item, item, PPGEvent::OnClosed, nullptr, CString());
    page->open = false;
  }
  return accepted;
}

CStatus FirePPGEvent(const CRef& property, PPGEvent id, const CString& item_name) {
  std::shared_ptr<Item> item = LiveItem(property);
  if (!item) return CStatus::InvalidArgument;
  std::shared_ptr<PageState> page = PageFor(item);
  std::shared_ptr<Item> source = item;
  const wchar_t* attribute = nullptr;
  switch (id) {
    case PPGEvent::ButtonClicked:
      attribute = L"Button";
      break;
    case PPGEvent::ParameterChange:
      attribute = L"Parameter";
      for (const std::shared_ptr<Item>& param : item->params) {
        if (param->name == item_name) source = param;
      }
      break;
    case PPGEvent::TabChange:
      attribute = L"Tab";
      break;
    default:
      break;
  }
  CStatus status = FireEvent(page, item, source, id, attribute, item_name);
  if (id == PPGEvent::OnClosed) page->open = false;
  return status;
}

void NotifyParameterChanged(const CRef& parameter) {
  std::shared_ptr<Item> param = LiveItem(parameter);
  if (!param || !param->owner) return;
  std::shared_ptr<PageState> page = FindPage(param->owner);
  if (page && page->open) {
    std::shared_ptr<Item> property = page->property.lock();
    if (property) FireEvent(page, property, param, PPGEvent::ParameterChange, L"Parameter",
                            param->name);
    return;
  }
  // No open page: the property's class hears of the change through _ParameterChanged.
  if (param->owner->cls != ClassID::CustomProperty) return;
  auto context = std::make_shared<ContextItem>();
  context->source = param;
  context->attributes[L"Parameter"] = CValue(param->name);
  CRef ref = RefTo(context);
  InvokeCallback(PageClassName(RefTo(param->owner->shared_from_this())), "_ParameterChanged",
                 ref);
}

CStatus ClosePage(const CRef& property) {
  std::shared_ptr<Item> item = LiveItem(property);
  if (!item) return CStatus::InvalidArgument;
  std::shared_ptr<PageState> page = FindPage(item.get());
  if (!page || !page->open) return CStatus::OK;
  CStatus status = FireEvent(page, item, item, PPGEvent::OnClosed, nullptr, CString());
  page->open = false;
  return status;
}

bool IsPageOpen(const CRef& property) {
  std::shared_ptr<Item> item = LiveItem(property);
  std::shared_ptr<PageState> page = item ? FindPage(item.get()) : nullptr;
  return page && page->open;
}

PPGLayout PageLayout(const CRef& property) {
  std::shared_ptr<Item> item = LiveItem(property);
  std::shared_ptr<PageState> page = item ? FindPage(item.get()) : nullptr;
  return page && page->layout ? PPGLayout(RefTo(page->layout)) : PPGLayout();
}

int PageRefreshCount(const CRef& property) {
  std::shared_ptr<Item> item = LiveItem(property);
  std::shared_ptr<PageState> page = item ? FindPage(item.get()) : nullptr;
  return page ? page->refreshes : 0;
}

const std::vector<ShownPage>& ShownPages() { return Pages().shown; }

void ClearShownPages() { Pages().shown.clear(); }

void ForgetPages() {
  Pages().pages.clear();
  Pages().shown.clear();
}

std::vector<std::string> LayoutLines(const CRef& layout) {
  std::vector<std::string> lines;
  auto item = ItemAs<LayoutItem>(layout);
  if (!item) return lines;
  if (!item->attributes.empty()) {
    std::string head = "layout";
    for (const auto& [key, value] : item->attributes) {
      head += " " + CString(key).GetAsciiString() + "=" + value.GetString().GetAsciiString();
    }
    lines.push_back(head);
  }
  for (const auto& entry : item->entries) lines.push_back(EntryLine(*entry));
  return lines;
}

}  // namespace KRX::rt

namespace KRX {

PPGLayout CustomProperty::GetPPGLayout() const { return rt::PageLayout(*this); }

}  // namespace KRX
