// Cost of playing a live retarget: a 31-joint capture (tagged with the shipped template)
// retargeted onto a copy of it 1.2 times its size with 50 objects below its model, every
// driven object under its chain operator and the main operator solving each frame.
// - BM_PlayRetargetedRig: one iteration is one scene frame: move the current frame and read
//   every object's global transform, as playback and plotting do. All operators run.
// - BM_SolveFrame: the main operator's solve alone for one frame, without the host.
// - BM_PlayRigWithoutOperators: the same rig playing its imported curves, no operators.
// Playing the retargeted rig less the solve and less the rig without operators, over the
// operator calls of a frame, bounds the host's cost per operator call (it also holds the
// chain operators' own small work).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "kavor/io/scene_helpers.h"
#include "kavor/motion/play_control.h"
#include "kavor/operators/adjust_events.h"
#include "kavor/operators/retarget_context.h"
#include "kavor/operators/retarget_flows.h"
#include "kavor/operators/retarget_solve.h"
#include "kavor/operators/rotation_offset.h"
#include "runtime/log.h"
#include "tests/kavor/motion/capture_rig_support.h"
#include "tests/kavor/operators/in_process_plugin.h"

namespace {

namespace ct = kavor::capturetest;

constexpr int kTargetObjects = 50;

struct Setup {
  KRX::Model target;
  std::vector<KRX::KinematicState> globals;  // every object below the target's model
  int operators = 0;
  int frames = 0;
};

// False (with the reason in `why`) when the shared capture is not on this machine or the
// retarget did not build.
bool Prepare(Setup& setup, std::string& why, bool retarget = true) {
  if (!kavor::inprocess::LoadPlugInInProcess()) {
    why = "the plug-in did not load";
    return false;
  }
  const std::optional<ct::CapturePair> pair = ct::ImportTaggedCmuPair(kTargetObjects, why);
  if (!pair) return false;
  const KRX::Model& source = pair->source;
  const KRX::Model& target = pair->target;
  setup.frames = static_cast<int>(KRX::Application().GetActiveProject().GetPlayControl()
                                      .GetParameterValue(L"Out").GetDouble());
  if (retarget && !kavor::RetargetRigToRig(source, target, 1, setup.frames)) {
    why = "the retarget did not build";
    for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
      why += "\n  " + line.text.GetAsciiString();
    }
    return false;
  }
  setup.target = target;
  for (const KRX::X3DObject& object : target.FindChildren(L"", L"", true)) {
    setup.globals.push_back(object.GetKinematics().GetGlobal());
    const KRX::CString state = object.GetKinematics().GetGlobal().GetFullName();
    for (const wchar_t* name :
         {L"RetargetGlobalOp", L"RetargetUpVOp", L"RetargetDecompOp", L"RetargetSpineOp"}) {
      if (kavor::FindOperatorByName(state, name, nullptr)) ++setup.operators;
    }
  }
  // The main operator sits on the model's own local state.
  ++setup.operators;
  // The first evaluation binds the operators.
  for (KRX::KinematicState& global : setup.globals) (void)global.GetTransform(1.0);
  return !retarget || kavor::FindLiveContext(target) != nullptr;
}

// Prepare, or the benchmark skipped with the reason.
bool PrepareOrSkip(benchmark::State& state, Setup& setup, bool retarget = true) {
  std::string why;
  if (Prepare(setup, why, retarget)) return true;
  state.SkipWithError(why.c_str());
  return false;
}

// Plays every frame of `setup`'s take, reading each object's global transform.
void Play(benchmark::State& state, Setup& setup) {
  int frame = 1;
  double sum = 0.0;
  kavor::inprocess::Updates() = {};
  for (auto _ : state) {
    kavor::SetCurrentFrame(frame);
    for (KRX::KinematicState& global : setup.globals) {
      sum += global.GetTransform(frame).GetTranslation().GetX();
    }
    frame = frame % setup.frames + 1;
  }
  benchmark::DoNotOptimize(sum);
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["objects"] = static_cast<double>(setup.globals.size());
  state.counters["operators"] = setup.operators;
  // The operators' own work, and what remains per operator call once it and the same rig's
  // cost without operators are taken off: the host's cost of calling an operator.
  const kavor::inprocess::UpdateTally& updates = kavor::inprocess::Updates();
  const double iterations = static_cast<double>(state.iterations());
  state.counters["update_us_per_frame"] = 1e-3 * static_cast<double>(updates.nanoseconds) /
                                          (iterations > 0 ? iterations : 1.0);
  state.counters["update_calls_per_frame"] =
      static_cast<double>(updates.calls) / (iterations > 0 ? iterations : 1.0);
}

// The same rig playing its own imported animation, with no operators: the scene's own cost.
void BM_PlayRigWithoutOperators(benchmark::State& state) {
  Setup setup;
  if (!PrepareOrSkip(state, setup, false)) return;
  Play(state, setup);
}
BENCHMARK(BM_PlayRigWithoutOperators)->Unit(benchmark::kMicrosecond);

void BM_PlayRetargetedRig(benchmark::State& state) {
  Setup setup;
  if (!PrepareOrSkip(state, setup)) return;
  Play(state, setup);
}
BENCHMARK(BM_PlayRetargetedRig)->Unit(benchmark::kMicrosecond);

// A typical set of adjustments: speed, a hip offset, two keyed foot clamps, a root offset.
void BM_PlayAdjustedRig(benchmark::State& state) {
  Setup setup;
  if (!PrepareOrSkip(state, setup)) return;
  kavor::RetargetOpContext& context = *kavor::FindLiveContext(setup.target);
  KRX::CustomProperty adjust = context.adjust_property;
  auto change = [&](const wchar_t* name, const KRX::CValue& value) {
    KRX::Parameter parameter = adjust.GetParameter(name);
    parameter.PutValue(value, 1.0);
    kavor::OnAdjustmentChanged(context, parameter, 1.0);
  };
  change(L"Speed", KRX::CValue(1.5));
  change(L"hipY", KRX::CValue(0.5));
  int clamps = 0;
  for (int k = 0; k < 64 && clamps < 2; ++k) {
    const KRX::Parameter name =
        adjust.GetParameter(KRX::CString(L"name") + KRX::CString(std::to_string(k)));
    if (!name.IsValid()) continue;
    const KRX::CString end = name.GetValue().GetString();
    if (!adjust.GetParameterValue(end + KRX::CString(L"Foot")).GetBool()) continue;
    adjust.GetParameter(end + KRX::CString(L"Clamp"))
        .AddFCurve({{10.0, 1.0}, {30.0, 0.0}, {60.0, 1.0}, {80.0, 0.0}});
    change((end + KRX::CString(L"BlendBack")).GetWideString().c_str(), KRX::CValue(5));
    ++clamps;
  }
  KRX::X3DObject hips = setup.target.FindChild(L"Hips", L"", true);
  KRX::CustomProperty offset = kavor::EnsureRotationOffset(hips, 0, false);
  offset.PutParameterValue(L"Y", KRX::CValue(20.0));
  kavor::RegisterRotationOffset(offset);
  state.counters["clamps"] = clamps;
  Play(state, setup);
}
BENCHMARK(BM_PlayAdjustedRig)->Unit(benchmark::kMicrosecond);

void BM_SolveFrame(benchmark::State& state) {
  Setup setup;
  if (!PrepareOrSkip(state, setup)) return;
  kavor::RetargetOpContext& context = *kavor::FindLiveContext(setup.target);
  int frame = 1;
  for (auto _ : state) {
    kavor::MapTime(context, frame);
    kavor::SolveFrame(context);
    benchmark::ClobberMemory();
    frame = frame % setup.frames + 1;
  }
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["nodes"] = context.model ? context.model->NumNodes() : 0;
}
BENCHMARK(BM_SolveFrame)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
