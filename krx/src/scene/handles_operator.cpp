// CustomOperator and OperatorContext handles (Context's own methods live with the plug-in
// boundary).
#include "krx/operator.h"
#include "scene/evaluation.h"
#include "scene/handles.h"
#include "scene/scene_edit.h"

namespace KRX {

using rt::LiveAs;
using rt::RefOf;

namespace {

// Kinematic states, parameters, blobs and curve objects (their geometry) take ports.
bool Connectable(const rt::Item& item) {
  return item.cls == ClassID::KinematicState || item.cls == ClassID::Parameter ||
         item.cls == ClassID::UserDataBlob || rt::IsObjectClass(item.cls);
}

int AddPort(rt::OperatorItem* op, const CRef& target, const CString& name, bool output) {
  std::shared_ptr<rt::Item> item = target.Lock();
  if (!op || !item || item->deleted || !Connectable(*item)) return -1;
  int index = 0;
  for (const rt::PortData& port : op->ports) index += port.output == output ? 1 : 0;
  rt::PortData port;
  port.target = item;
  port.item = item.get();
  port.name = name.IsEmpty() ? CString((output ? L"Out" : L"In") + std::to_wstring(index)) : name;
  port.group = op->current_group;
  port.output = output;
  op->ports.push_back(std::move(port));
  if (op->connected) rt::BumpTopology();
  return index;
}

std::vector<CRef> Targets(const rt::OperatorItem* op, bool output) {
  std::vector<CRef> out;
  if (!op) return out;
  for (const rt::PortData& port : op->ports) {
    if (port.output == output) out.emplace_back(port.target);
  }
  return out;
}

rt::ContextItem* OperatorContextItem(const CBase& handle) {
  auto* context = LiveAs<rt::ContextItem>(handle);
  return context && context->op ? context : nullptr;
}

}  // namespace

// ---- CustomOperator ----

int CustomOperator::AddOutputPort(const CRef& target, const CString& name) {
  return AddPort(LiveAs<rt::OperatorItem>(*this), target, name, true);
}

int CustomOperator::AddInputPort(const CRef& target, const CString& name) {
  return AddPort(LiveAs<rt::OperatorItem>(*this), target, name, false);
}

CStatus CustomOperator::AddPortGroup(const CString& name) {
  auto* op = LiveAs<rt::OperatorItem>(*this);
  if (!op) return CStatus::Fail;
  op->current_group = name;
  return CStatus::OK;
}

CStatus CustomOperator::PutAlwaysEvaluate(bool on) {
  auto* op = LiveAs<rt::OperatorItem>(*this);
  if (!op) return CStatus::Fail;
  op->always_evaluate = on;
  return CStatus::OK;
}

bool CustomOperator::GetAlwaysEvaluate() const {
  const auto* op = LiveAs<rt::OperatorItem>(*this);
  return op && op->always_evaluate;
}

CStatus CustomOperator::Connect(int construction_mode) {
  auto* op = LiveAs<rt::OperatorItem>(*this);
  return op ? rt::ConnectOperator(*op, construction_mode) : CStatus::Fail;
}

bool CustomOperator::IsConnected() const {
  const auto* op = LiveAs<rt::OperatorItem>(*this);
  return op && op->connected;
}

std::vector<CRef> CustomOperator::GetInputTargets() const {
  return Targets(LiveAs<rt::OperatorItem>(*this), false);
}

std::vector<CRef> CustomOperator::GetOutputTargets() const {
  return Targets(LiveAs<rt::OperatorItem>(*this), true);
}

void CustomOperator::Dirty() {
  auto* op = LiveAs<rt::OperatorItem>(*this);
  if (!op) return;
  rt::Invalidate(*op);
}

// ---- OperatorContext ----

double OperatorContext::GetTime() const {
  const rt::ContextItem* context = OperatorContextItem(*this);
  return context ? context->time : 0.0;
}

CValue OperatorContext::GetInputValue(int index) const {
  const rt::ContextItem* context = OperatorContextItem(*this);
  if (!context) return CValue();
  std::shared_ptr<rt::Item> target = rt::InputTargetOf(*context->op, index);
  if (!target) return CValue();
  if (target->cls == ClassID::Parameter) {
    const rt::ReadScope scope(context->time);
    return rt::EvaluateParamValue(static_cast<rt::ParamItem&>(*target), scope.time());
  }
  return CValue(RefOf(target));
}

CRef OperatorContext::GetInputTarget(int index) const {
  const rt::ContextItem* context = OperatorContextItem(*this);
  return context ? RefOf(rt::InputTargetOf(*context->op, index)) : CRef();
}

int OperatorContext::GetInputCount() const {
  const rt::ContextItem* context = OperatorContextItem(*this);
  if (!context) return 0;
  int count = 0;
  for (const rt::PortData& port : context->op->ports) count += port.output ? 0 : 1;
  return count;
}

CRef OperatorContext::GetOutputTarget() const {
  const rt::ContextItem* context = OperatorContextItem(*this);
  return context ? RefOf(rt::OutputTargetOf(*context->op, context->output_index)) : CRef();
}

MATH::CTransformation OperatorContext::GetOutputTransform() const {
  const rt::ContextItem* context = OperatorContextItem(*this);
  if (!context || !context->output_object || context->output_index < 0)
    return MATH::CTransformation();
  // Asked during the update: the object is being evaluated at the context's time and gives
  // its value so far.
  const rt::Pose pose = rt::EvaluateObject(*context->output_object, context->time);
  return context->output_global ? pose.global : pose.local;
}

CStatus OperatorContext::PutOutputTransform(const MATH::CTransformation& t) {
  rt::ContextItem* context = OperatorContextItem(*this);
  if (!context || context->output_index < 0) return CStatus::Fail;
  context->output_transform = t;
  return CStatus::OK;
}

CStatus OperatorContext::PutOutputValue(const CValue& v) {
  rt::ContextItem* context = OperatorContextItem(*this);
  if (!context || context->output_index < 0) return CStatus::Fail;
  context->output_value = v;
  return CStatus::OK;
}

CStatus OperatorContext::PutOutputCurvePoints(const std::vector<MATH::CVector3>& points) {
  rt::ContextItem* context = OperatorContextItem(*this);
  if (!context || context->output_index < 0) return CStatus::Fail;
  context->output_points = points;
  return CStatus::OK;
}

}  // namespace KRX
