// The host's callbacks of the retarget operators and of the adjustment property.
#include <cstdint>
#include <new>

#include "kavor/operators/adjust_property.h"
#include "kavor/operators/chain_solvers.h"
#include "kavor/operators/retarget_solve.h"
#include "krx/krx.h"
#include "krx/plugin.h"

namespace kavor {

namespace {

// A chain operator's own state: whether its first evaluation is still to come. The first
// evaluation after creation or a scene load writes nothing.
struct ChainOpState {
  uint8_t first_pending = 1;
};

RetargetOpContext* MainContext(KRX::OperatorContext& op) {
  return static_cast<RetargetOpContext*>(op.GetUserData());
}

void MainUpdate(KRX::OperatorContext& op) {
  RetargetOpContext* context = MainContext(op);
  if (context == nullptr) return;
  const double time = op.GetTime();
  const KRX::UserDataBlob blob(op.GetInputTarget(1));
  if (context->bound && (!(context->blob == blob) || !RefreshBlobView(*context))) {
    // The blob was replaced or rewritten: bind again.
    RemoveLiveContext(context);
    *context = RetargetOpContext();
  }
  if (!context->bound && !BindRetargetOp(*context, blob, time)) return;
  // The model's own placement: the motion is solved in the model's space.
  const KRX::KinematicState local(op.GetOutputTarget());
  const KRX::X3DObject parent(local.GetObject().GetParent());
  context->model_global = op.GetOutputTransform();
  if (parent.IsValid()) {
    context->model_global = KRX::MATH::CTransformation::Mul(
        context->model_global, parent.GetKinematics().GetGlobal().GetTransform(time));
  }
  MapTime(*context, time);
  SolveFrame(*context);
}

// The live context of the blob on input `port`, once this chain operator's first
// evaluation has passed.
RetargetOpContext* ChainContext(KRX::OperatorContext& op, int port) {
  auto* state = static_cast<ChainOpState*>(op.GetUserData());
  if (state == nullptr) return nullptr;
  if (state->first_pending != 0) {
    state->first_pending = 0;
    return nullptr;
  }
  RetargetOpContext* context = LiveContextOf(KRX::UserDataBlob(op.GetInputTarget(port)));
  // Chain operators read the solve of their own time only.
  if (context != nullptr && context->time != op.GetTime()) return nullptr;
  return context;
}

int32_t Index(KRX::OperatorContext& op, int port) { return op.GetInputValue(port).GetInt(); }

KRX::MATH::CTransformation InputGlobal(KRX::OperatorContext& op, int port) {
  return KRX::KinematicState(op.GetInputTarget(port)).GetTransform(op.GetTime());
}

KRX::CStatus ChainInit(KRX::CRef& ref) {
  KRX::Context(ref).PutUserData(new (std::nothrow) ChainOpState);
  return KRX::CStatus::OK;
}

KRX::CStatus ChainTerm(KRX::CRef& ref) {
  KRX::Context context(ref);
  delete static_cast<ChainOpState*>(context.GetUserData());
  context.PutUserData(nullptr);
  return KRX::CStatus::OK;
}

}  // namespace

}  // namespace kavor

using kavor::RetargetOpContext;

KRX_PLUGIN_EXPORT KRX::CStatus RetargetOp_Init(KRX::CRef& ref) {
  KRX::Context(ref).PutUserData(new (std::nothrow) RetargetOpContext);
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetOp_Term(KRX::CRef& ref) {
  KRX::Context context(ref);
  auto* state = static_cast<RetargetOpContext*>(context.GetUserData());
  if (state != nullptr) kavor::RemoveLiveContext(state);
  delete state;
  context.PutUserData(nullptr);
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetOp_Update(KRX::CRef& ref) {
  KRX::OperatorContext op(ref);
  kavor::MainUpdate(op);
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetGlobalOp_Update(KRX::CRef& ref) {
  KRX::OperatorContext op(ref);
  if (RetargetOpContext* context = kavor::ChainContext(op, 2)) {
    kavor::SolveGlobalOp(*context, op, kavor::Index(op, 1));
  }
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetUpVOp_Update(KRX::CRef& ref) {
  KRX::OperatorContext op(ref);
  if (RetargetOpContext* context = kavor::ChainContext(op, 2)) {
    kavor::SolveUpVectorOp(*context, op, kavor::Index(op, 1));
  }
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetDecompOp_Update(KRX::CRef& ref) {
  KRX::OperatorContext op(ref);
  if (RetargetOpContext* context = kavor::ChainContext(op, 3)) {
    kavor::SolveDecompOp(*context, op, kavor::InputGlobal(op, 0), kavor::Index(op, 1),
                         kavor::Index(op, 2));
  }
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetSpineOp_Update(KRX::CRef& ref) {
  KRX::OperatorContext op(ref);
  if (RetargetOpContext* context = kavor::ChainContext(op, 3)) {
    kavor::SolveSpineOp(*context, op, kavor::InputGlobal(op, 0), kavor::Index(op, 1),
                        kavor::Index(op, 2));
  }
  return KRX::CStatus::OK;
}

#define KAVOR_CHAIN_LIFE(Name)                                                                 \
  KRX_PLUGIN_EXPORT KRX::CStatus Name##_Init(KRX::CRef& ref) { return kavor::ChainInit(ref); } \
  KRX_PLUGIN_EXPORT KRX::CStatus Name##_Term(KRX::CRef& ref) { return kavor::ChainTerm(ref); }
KAVOR_CHAIN_LIFE(RetargetGlobalOp)
KAVOR_CHAIN_LIFE(RetargetUpVOp)
KAVOR_CHAIN_LIFE(RetargetDecompOp)
KAVOR_CHAIN_LIFE(RetargetSpineOp)
#undef KAVOR_CHAIN_LIFE

KRX_PLUGIN_EXPORT KRX::CStatus RetargetAdjustPPG_Define(KRX::CRef& ref) {
  KRX::CustomProperty property(KRX::Context(ref).GetSource());
  kavor::DefineAdjustmentParameters(property);
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetAdjustPPG_DefineLayout(KRX::CRef& ref) {
  KRX::PPGLayout(KRX::Context(ref).GetSource()).Clear();
  return KRX::CStatus::OK;
}
