#include "scene/connection_line.h"

#include <optional>

#include "scene/evaluation.h"

namespace KRX::rt {

namespace {

// The input port named `name`, or else the input at `fallback_index`.
std::shared_ptr<Item> Input(const OperatorItem& op, const wchar_t* name, int fallback_index) {
  for (const PortData& port : op.ports) {
    if (port.output || port.name != CString(name)) continue;
    std::shared_ptr<Item> target = port.target.lock();
    if (target && !target->deleted) return target;
  }
  return InputTargetOf(op, fallback_index);
}

std::optional<MATH::CTransformation> StateTransform(const std::shared_ptr<Item>& target, double time) {
  auto* state = dynamic_cast<KineStateItem*>(target.get());
  if (!state || !state->object) return std::nullopt;
  const Pose pose = EvaluateObject(*state->object, time);
  return state->global ? pose.global : pose.local;
}

}  // namespace

bool IsNativeConnectionLine(const OperatorItem& op) {
  return op.scripted && op.op_type == CString(L"ConnectionLine");
}

void UpdateConnectionLine(const OperatorItem& op, ContextItem& context, double time) {
  const auto line = StateTransform(Input(op, L"InLineGlobal", 0), time);
  const auto end1 = StateTransform(Input(op, L"InGlobal1", 1), time);
  const auto end2 = StateTransform(Input(op, L"InGlobal2", 2), time);
  if (!line || !end1 || !end2) return;
  context.output_points = std::vector<MATH::CVector3>{
      MATH::MapWorldPositionToObjectSpace(*line, end1->GetTranslation()),
      MATH::MapWorldPositionToObjectSpace(*line, end2->GetTranslation())};
}

}  // namespace KRX::rt
