// PPGLayout and PPGItem: a property page's layout, recorded entry by entry.
#include <memory>

#include "krx/plugin.h"
#include "plugins/plugin_items.h"

namespace KRX {

namespace {

using rt::LayoutEntryItem;
using rt::LayoutEntryKind;
using rt::LayoutItem;

std::shared_ptr<LayoutEntryItem> Append(const PPGLayout& layout, LayoutEntryKind kind,
                                        const CString& name, const CString& label) {
  auto item = rt::ItemAs<LayoutItem>(layout);
  if (!item) return nullptr;
  auto entry = std::make_shared<LayoutEntryItem>();
  entry->kind = kind;
  entry->name = name;
  entry->label = label;
  item->entries.push_back(entry);
  return entry;
}

PPGItem HandleOf(const std::shared_ptr<LayoutEntryItem>& entry) {
  return entry ? PPGItem(rt::RefTo(entry)) : PPGItem();
}

bool IsNamedControl(LayoutEntryKind kind) {
  return kind == LayoutEntryKind::Item || kind == LayoutEntryKind::Button ||
         kind == LayoutEntryKind::EnumControl;
}

}  // namespace

CStatus PPGLayout::Clear() {
  auto item = rt::ItemAs<LayoutItem>(*this);
  if (!item) return CStatus::Fail;
  item->entries.clear();
  item->attributes.clear();
  return CStatus::OK;
}

PPGItem PPGLayout::AddTab(const CString& label) {
  return HandleOf(Append(*this, LayoutEntryKind::Tab, label, label));
}

PPGItem PPGLayout::AddGroup(const CString& label, bool border) {
  auto entry = Append(*this, LayoutEntryKind::Group, label, label);
  if (entry) entry->border = border;
  return HandleOf(entry);
}

CStatus PPGLayout::EndGroup() {
  return Append(*this, LayoutEntryKind::EndGroup, L"", L"") ? CStatus::OK : CStatus::Fail;
}

PPGItem PPGLayout::AddRow() { return HandleOf(Append(*this, LayoutEntryKind::Row, L"", L"")); }

CStatus PPGLayout::EndRow() {
  return Append(*this, LayoutEntryKind::EndRow, L"", L"") ? CStatus::OK : CStatus::Fail;
}

PPGItem PPGLayout::AddItem(const CString& name, const CString& label, const CString& control) {
  auto entry = Append(*this, LayoutEntryKind::Item, name, label);
  if (entry) entry->control = control;
  return HandleOf(entry);
}

PPGItem PPGLayout::AddButton(const CString& name, const CString& label) {
  return HandleOf(Append(*this, LayoutEntryKind::Button, name, label));
}

PPGItem PPGLayout::AddEnumControl(const CString& name, const CValueArray& items,
                                  const CString& label, const CString& control) {
  auto entry = Append(*this, LayoutEntryKind::EnumControl, name, label);
  if (entry) {
    entry->enum_items = items;
    entry->control = control;
  }
  return HandleOf(entry);
}

PPGItem PPGLayout::AddStaticText(const CString& text) {
  return HandleOf(Append(*this, LayoutEntryKind::StaticText, text, text));
}

CStatus PPGLayout::AddSpacer(int width, int height) {
  auto entry = Append(*this, LayoutEntryKind::Spacer, L"", L"");
  if (!entry) return CStatus::Fail;
  entry->width = width;
  entry->height = height;
  return CStatus::OK;
}

CStatus PPGLayout::PutAttribute(const CString& name, const CValue& value) {
  auto item = rt::ItemAs<LayoutItem>(*this);
  if (!item) return CStatus::Fail;
  item->attributes[name.GetWideString()] = value;
  return CStatus::OK;
}

int PPGLayout::GetCount() const {
  auto item = rt::ItemAs<LayoutItem>(*this);
  return item ? static_cast<int>(item->entries.size()) : 0;
}

PPGItem PPGLayout::GetItem(int index) const {
  auto item = rt::ItemAs<LayoutItem>(*this);
  if (!item || index < 0 || index >= static_cast<int>(item->entries.size())) return PPGItem();
  return HandleOf(item->entries[static_cast<size_t>(index)]);
}

PPGItem PPGLayout::FindItem(const CString& name) const {
  auto item = rt::ItemAs<LayoutItem>(*this);
  if (!item) return PPGItem();
  for (const auto& entry : item->entries) {
    if (IsNamedControl(entry->kind) && entry->name == name) return HandleOf(entry);
  }
  return PPGItem();
}

CStatus PPGItem::PutAttribute(const CString& name, const CValue& value) {
  auto entry = rt::ItemAs<LayoutEntryItem>(*this);
  if (!entry) return CStatus::Fail;
  entry->attributes[name.GetWideString()] = value;
  return CStatus::OK;
}

CValue PPGItem::GetAttribute(const CString& name) const {
  auto entry = rt::ItemAs<LayoutEntryItem>(*this);
  if (!entry) return CValue();
  auto it = entry->attributes.find(name.GetWideString());
  return it == entry->attributes.end() ? CValue() : it->second;
}

CString PPGItem::GetName() const {
  auto entry = rt::ItemAs<LayoutEntryItem>(*this);
  return entry ? entry->name : CString();
}

CString PPGItem::GetLabel() const {
  auto entry = rt::ItemAs<LayoutEntryItem>(*this);
  return entry ? entry->label : CString();
}

CStatus PPGItem::PutLabel(const CString& label) {
  auto entry = rt::ItemAs<LayoutEntryItem>(*this);
  if (!entry) return CStatus::Fail;
  entry->label = label;
  return CStatus::OK;
}

}  // namespace KRX
