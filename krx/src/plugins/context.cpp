// Context and PPGEventContext: what a callback receives.
#include "krx/operator.h"
#include "krx/plugin.h"
#include "plugins/plugin_items.h"

namespace KRX {

CRef Context::GetSource() const {
  auto item = rt::ItemAs<rt::ContextItem>(*this);
  return item ? CRef(item->source) : CRef();
}

CValue Context::GetAttribute(const CString& name) const {
  auto item = rt::ItemAs<rt::ContextItem>(*this);
  if (!item) return CValue();
  auto it = item->attributes.find(name.GetWideString());
  return it == item->attributes.end() ? CValue() : it->second;
}

CStatus Context::PutAttribute(const CString& name, const CValue& value) {
  auto item = rt::ItemAs<rt::ContextItem>(*this);
  if (!item) return CStatus::Fail;
  item->attributes[name.GetWideString()] = value;
  return CStatus::OK;
}

void* Context::GetUserData() const {
  auto item = rt::ItemAs<rt::ContextItem>(*this);
  if (!item) return nullptr;
  return item->op ? item->op->user_data : item->user_data;
}

CStatus Context::PutUserData(void* data) {
  auto item = rt::ItemAs<rt::ContextItem>(*this);
  if (!item) return CStatus::Fail;
  (item->op ? item->op->user_data : item->user_data) = data;
  return CStatus::OK;
}

PPGEvent PPGEventContext::GetEventID() const {
  auto item = rt::ItemAs<rt::PageContextItem>(*this);
  return item ? item->event : PPGEvent::OnInit;
}

PPGLayout PPGEventContext::GetLayout() const {
  auto item = rt::ItemAs<rt::PageContextItem>(*this);
  return item && item->layout ? PPGLayout(rt::RefTo(item->layout)) : PPGLayout();
}

}  // namespace KRX
