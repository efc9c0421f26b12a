// The desktop: one active layout holding the views that were opened. Without a screen a
// view is a record (type, name, attributes, state, position and size), but it behaves
// as the user would see it: a property panel whose "targetcontent" names a property
// shows that property's page (its layout is built and it gets OnInit), and closing the
// view (state 1) closes the page and removes the view from the layout.
#include <algorithm>
#include <memory>
#include <string>

#include "app/app_items.h"
#include "krx/application.h"
#include "plugins/pages.h"

namespace KRX {

namespace rt {

namespace {

constexpr const wchar_t* kTargetContent = L"targetcontent";
constexpr int kViewClosed = 1;

std::wstring AttributeKey(const CString& name) { return name.Lower().GetWideString(); }

// True when another open view still shows `property`.
bool ShownElsewhere(const DesktopViewItem& view, const std::shared_ptr<Item>& property) {
  for (const auto& other : TheDesktop()->active_layout->views) {
    if (other.get() != &view && other->shown_property.lock() == property) return true;
  }
  return false;
}

// Closes the page the view shows, unless another view shows it too.
void ReleasePage(DesktopViewItem& view) {
  std::shared_ptr<Item> shown = view.shown_property.lock();
  view.shown_property.reset();
  if (!shown || shown->deleted || ShownElsewhere(view, shown)) return;
  const CRef ref = RefToItem(shown);
  if (IsPageOpen(ref)) ClosePage(ref);
}

}  // namespace

std::shared_ptr<DesktopItem> TheDesktop() {
  static auto* desktop = new std::shared_ptr<DesktopItem>([] {
    auto item = std::make_shared<DesktopItem>();
    item->active_layout = std::make_shared<DesktopLayoutItem>();
    item->active_layout->owner = item.get();
    return item;
  }());
  return *desktop;
}

void ResetDesktop() {
  std::vector<std::shared_ptr<DesktopViewItem>> views;
  views.swap(TheDesktop()->active_layout->views);
  for (const auto& view : views) {
    ReleasePage(*view);
    view->deleted = true;
  }
}

std::vector<ViewRecord> DesktopViews() {
  std::vector<ViewRecord> records;
  for (const auto& view : TheDesktop()->active_layout->views) {
    ViewRecord r;
    r.name = view->name;
    r.type = view->view_type;
    auto it = view->attributes.find(kTargetContent);
    if (it != view->attributes.end()) r.target_content = it->second.GetString();
    r.state = view->state;
    r.x = view->x;
    r.y = view->y;
    r.width = view->width;
    r.height = view->height;
    records.push_back(r);
  }
  return records;
}

namespace {

// Shows the page of the property a property panel's "targetcontent" names.
void ShowTargetContent(DesktopViewItem& view, const CValue& value) {
  if (view.view_type != CString(L"Property Panel")) return;
  const CRef target =
      value.GetType() == ValueType::Ref ? value.GetRef() : CRef::FromText(value.GetString());
  std::shared_ptr<Item> property = Property(target).IsValid() ? target.Lock() : nullptr;
  if (property && view.shown_property.lock() == property) return;
  ReleasePage(view);
  if (!property) return;
  view.shown_property = property;
  InspectProperty(RefToItem(property), false);
}

}  // namespace

}  // namespace rt

namespace {

using rt::DesktopViewItem;

std::shared_ptr<DesktopViewItem> ViewOf(const View& view) {
  auto item = std::dynamic_pointer_cast<DesktopViewItem>(view.Lock());
  return item && !item->deleted ? item : nullptr;
}

std::string Text(const CString& s) { return s.GetAsciiString(); }

}  // namespace

CString View::GetName() const {
  auto item = ViewOf(*this);
  return item ? item->name : CString();
}

CString View::GetType() const {
  auto item = ViewOf(*this);
  return item ? item->view_type : CString();
}

CValue View::GetAttributeValue(const CString& name) const {
  auto item = ViewOf(*this);
  if (!item) return CValue();
  auto it = item->attributes.find(rt::AttributeKey(name));
  return it == item->attributes.end() ? CValue() : it->second;
}

CStatus View::PutAttributeValue(const CString& name, const CValue& value) {
  auto item = ViewOf(*this);
  if (!item) return CStatus::Fail;
  const std::wstring key = rt::AttributeKey(name);
  item->attributes[key] = value;
  rt::NoteInteraction("view attribute " + Text(item->name) + " " + Text(name) + " " +
                      Text(value.GetString()));
  if (key == rt::kTargetContent) rt::ShowTargetContent(*item, value);
  return CStatus::OK;
}

int View::GetState() const {
  auto item = ViewOf(*this);
  return item ? item->state : 0;
}

CStatus View::PutState(int state) {
  auto item = ViewOf(*this);
  if (!item) return CStatus::Fail;
  item->state = state;
  rt::NoteInteraction("view state " + Text(item->name) + " " + std::to_string(state));
  if (state == rt::kViewClosed) {
    rt::ReleasePage(*item);
    auto& views = rt::TheDesktop()->active_layout->views;
    views.erase(std::remove(views.begin(), views.end(), item), views.end());
    item->deleted = true;
  }
  return CStatus::OK;
}

CStatus View::Move(int x, int y) {
  auto item = ViewOf(*this);
  if (!item) return CStatus::Fail;
  item->x = x;
  item->y = y;
  rt::NoteInteraction("view move " + Text(item->name) + " " + std::to_string(x) + " " +
                      std::to_string(y));
  return CStatus::OK;
}

CStatus View::Resize(int width, int height) {
  auto item = ViewOf(*this);
  if (!item) return CStatus::Fail;
  if (width < 0 || height < 0) return CStatus::InvalidArgument;
  item->width = width;
  item->height = height;
  rt::NoteInteraction("view resize " + Text(item->name) + " " + std::to_string(width) + " " +
                      std::to_string(height));
  return CStatus::OK;
}

void View::GetSize(int& width, int& height) const {
  auto item = ViewOf(*this);
  width = item ? item->width : 0;
  height = item ? item->height : 0;
}

std::vector<View> Layout::GetViews() const {
  auto layout = std::dynamic_pointer_cast<rt::DesktopLayoutItem>(Lock());
  std::vector<View> views;
  if (!layout || layout->deleted) return views;
  for (const auto& view : layout->views) views.emplace_back(rt::RefToItem(view));
  return views;
}

View Layout::CreateView(const CString& type, const CString& name) {
  auto layout = std::dynamic_pointer_cast<rt::DesktopLayoutItem>(Lock());
  if (!layout || layout->deleted || type.IsEmpty()) return View();
  auto view = std::make_shared<DesktopViewItem>();
  view->view_type = type;
  view->name = name.IsEmpty() ? type : name;
  view->owner = layout.get();
  layout->views.push_back(view);
  rt::NoteInteraction("view create " + Text(type) + " " + Text(view->name));
  return View(rt::RefToItem(view));
}

Layout Desktop::GetActiveLayout() const {
  auto desktop = std::dynamic_pointer_cast<rt::DesktopItem>(Lock());
  if (!desktop || desktop->deleted) return Layout();
  return Layout(rt::RefToItem(desktop->active_layout));
}

}  // namespace KRX
