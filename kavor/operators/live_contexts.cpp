#include <algorithm>
#include <vector>

#include "kavor/io/scene_helpers.h"
#include "kavor/operators/retarget_context.h"

namespace kavor {

namespace {

// Few retargets run at once: a plain list is the fastest look-up.
std::vector<RetargetOpContext*>& LiveContexts() {
  static std::vector<RetargetOpContext*> contexts;
  return contexts;
}

}  // namespace

void AddLiveContext(RetargetOpContext* context) {
  std::vector<RetargetOpContext*>& contexts = LiveContexts();
  if (std::find(contexts.begin(), contexts.end(), context) == contexts.end()) {
    contexts.push_back(context);
  }
}

void RemoveLiveContext(RetargetOpContext* context) {
  std::vector<RetargetOpContext*>& contexts = LiveContexts();
  contexts.erase(std::remove(contexts.begin(), contexts.end(), context), contexts.end());
}

RetargetOpContext* LiveContextOf(const KRX::UserDataBlob& blob) {
  if (!blob.IsValid()) return nullptr;
  const std::vector<uint8_t>* bytes = blob.GetBytes();
  if (bytes == nullptr) return nullptr;
  const uint64_t slot = ReadLiveSlot(*bytes);
  if (slot == 0) return nullptr;
  // The slot is compared as a number with the addresses of live contexts; it is never
  // turned into a pointer before a match.
  for (RetargetOpContext* context : LiveContexts()) {
    if (reinterpret_cast<uintptr_t>(context) == slot && context->bound && context->blob == blob) {
      return context;
    }
  }
  return nullptr;
}

KRX::UserDataBlob FindMotionBlob(const KRX::Model& model) {
  KRX::Property property;
  if (!model.IsValid() || !FindPropertyByName(model, kMotionBlobProperty, &property)) {
    return KRX::UserDataBlob();
  }
  return KRX::UserDataBlob(property.GetRef());
}

RetargetOpContext* FindLiveContext(const KRX::Model& model) {
  return LiveContextOf(FindMotionBlob(model));
}

void PingRetarget(RetargetOpContext& context) {
  if (!context.adjust_property.IsValid()) return;
  KRX::Parameter ping = context.adjust_property.GetParameter(L"Ping");
  if (!ping.IsValid()) return;
  ping.PutValue(KRX::CValue(ping.GetValue().GetInt() + 1));
}

}  // namespace kavor
