// Host cost of custom operators: a chain of nulls below a model, each driven by a trivial
// operator that reads its parent's global state at the context's time and an 8-byte slot of
// a user-data blob, and writes the null's global state, as a retargeted rig is driven. Each
// iteration sets a new current frame and reads every global, as playback and the plot pass
// do. The same scene without operators gives the cost of the scene itself; the difference
// over the operator count is the cost per operator call.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "krx/krx.h"
#include "plugins/plugin_loader.h"
#include "runtime/scene_state.h"
#include "scene/scene_edit.h"

namespace {

using KRX::Application;
using KRX::CRef;
using KRX::CStatus;
using KRX::CString;
using KRX::CValue;
using KRX::X3DObject;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

constexpr int kFrames = 200;

// Global = (blob slot's offset along X, turned by the time) composed with the parent's
// global: the shape of a chain operator, with no work of its own worth measuring.
CStatus ChainStepUpdate(CRef& ref) {
  KRX::OperatorContext ctx(ref);
  const double time = ctx.GetTime();
  const KRX::KinematicState parent(ctx.GetInputTarget(0));
  const KRX::UserDataBlob blob(ctx.GetInputTarget(1));
  double offset = 0.0;
  if (const std::vector<uint8_t>* bytes = blob.GetBytes(); bytes && bytes->size() >= 8) {
    std::memcpy(&offset, bytes->data(), sizeof offset);
  }
  CTransformation local;
  local.SetTranslation(CVector3(offset, 0.0, 0.0));
  local.SetRotationFromXYZAngles(CVector3(0.0, 0.0, 0.01 * time));
  return ctx.PutOutputTransform(CTransformation::Mul(local, parent.GetTransform(time)));
}

struct Rig {
  std::vector<KRX::KinematicState> globals;
};

// `count` nulls below a model, each below the previous one; `animated`: function curves on
// the three local rotations of each; `operators`: one chain operator per null.
Rig BuildChain(int count, bool animated, bool operators) {
  KRX::rt::UnloadAllPlugins();
  KRX::rt::ClearInProcessCallbacks();
  KRX::rt::ResetScene();
  KRX::rt::RegisterInProcessCallback("ChainStepOp_Update", &ChainStepUpdate);
  X3DObject model = Application().GetActiveSceneRoot().AddModel(L"Character");
  KRX::UserDataBlob blob(model.AddProperty(L"UserDataBlob", false, L"Slots"));
  const double offset = 5.0;
  std::vector<uint8_t> bytes(8);
  std::memcpy(bytes.data(), &offset, sizeof offset);
  blob.PutValue(bytes.data(), bytes.size());
  Rig rig;
  X3DObject parent = model;
  for (int i = 0; i < count; ++i) {
    X3DObject joint = parent.AddNull(CString(L"joint") + CString(std::to_string(i)));
    KRX::KinematicState local = joint.GetKinematics().GetLocal();
    local.GetParameter(L"posx").PutValue(CValue(5.0));
    if (animated) {
      for (const wchar_t* name : {L"rotx", L"roty", L"rotz"}) {
        std::vector<KRX::FCurveKeyData> keys(kFrames);
        for (int f = 0; f < kFrames; ++f) {
          keys[static_cast<size_t>(f)].time = f + 1;
          keys[static_cast<size_t>(f)].value = 30.0 * std::sin(0.1 * f + i + name[3]);
          keys[static_cast<size_t>(f)].interpolation = KRX::Interpolation::Linear;
        }
        local.GetParameter(name).AddFCurve(keys);
      }
    }
    if (operators) {
      KRX::CustomOperator op(
          CRef(std::weak_ptr<KRX::rt::Item>(KRX::rt::CreateOperatorItem(L"ChainStepOp"))));
      op.AddOutputPort(joint.GetKinematics().GetGlobal().GetRef());
      op.AddInputPort(parent.GetKinematics().GetGlobal().GetRef());
      op.AddInputPort(blob.GetRef());
      op.Connect();
    }
    rig.globals.push_back(joint.GetKinematics().GetGlobal());
    parent = joint;
  }
  return rig;
}

// Arguments: object count, animated (0/1), operators (0/1).
void BM_ChainFrames(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const Rig rig = BuildChain(count, state.range(1) != 0, state.range(2) != 0);
  KRX::Parameter current =
      Application().GetActiveProject().GetPlayControl().GetParameter(L"Current");
  int frame = 1;
  for (auto _ : state) {
    current.PutValue(CValue(frame));
    for (const KRX::KinematicState& g : rig.globals)
      benchmark::DoNotOptimize(g.GetTransform(KRX::kCurrentTime));
    frame = frame % kFrames + 1;
  }
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["ns_per_object"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * count,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  KRX::rt::ClearInProcessCallbacks();
  KRX::rt::ResetScene();
}
BENCHMARK(BM_ChainFrames)
    ->ArgNames({"objects", "animated", "operators"})
    ->Args({50, 0, 0})
    ->Args({50, 0, 1})
    ->Args({50, 1, 0})
    ->Args({50, 1, 1})
    ->Args({100, 1, 1});

}  // namespace

BENCHMARK_MAIN();
