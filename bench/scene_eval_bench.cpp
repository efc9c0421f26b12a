// Cost of walking a take: set the current frame, then read the evaluated global transform
// of every object of an animated character, as the extraction, motion-file and plotting
// passes do once per frame.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "krx/krx.h"
#include "runtime/scene_state.h"

namespace {

using KRX::Application;
using KRX::CString;
using KRX::CValue;
using KRX::X3DObject;

constexpr int kFrames = 200;

// A chain of `count` nulls below a model, each with function curves on its three local
// rotations: a character of that many joints with captured motion.
std::vector<X3DObject> BuildAnimatedChain(int count) {
  KRX::rt::ResetScene();
  X3DObject model = Application().GetActiveSceneRoot().AddModel(L"Character");
  std::vector<X3DObject> objects;
  X3DObject parent = model;
  for (int i = 0; i < count; ++i) {
    X3DObject joint = parent.AddNull(CString(L"joint") + CString(std::to_string(i)));
    KRX::KinematicState local = joint.GetKinematics().GetLocal();
    local.GetParameter(L"posx").PutValue(CValue(5.0));
    for (const wchar_t* name : {L"rotx", L"roty", L"rotz"}) {
      std::vector<KRX::FCurveKeyData> keys(kFrames);
      for (int f = 0; f < kFrames; ++f) {
        keys[static_cast<size_t>(f)].time = f + 1;
        keys[static_cast<size_t>(f)].value = 30.0 * std::sin(0.1 * f + i + name[3]);
        keys[static_cast<size_t>(f)].interpolation = KRX::Interpolation::Linear;
      }
      local.GetParameter(name).AddFCurve(keys);
    }
    objects.push_back(joint);
    parent = joint;
  }
  return objects;
}

void BM_WalkTakeGlobals(benchmark::State& state) {
  const std::vector<X3DObject> objects = BuildAnimatedChain(static_cast<int>(state.range(0)));
  KRX::Parameter current = Application().GetActiveProject().GetPlayControl().GetParameter(L"Current");
  std::vector<KRX::KinematicState> globals;
  for (const X3DObject& o : objects) globals.push_back(o.GetKinematics().GetGlobal());
  int frame = 1;
  for (auto _ : state) {
    current.PutValue(CValue(frame));
    for (const KRX::KinematicState& g : globals) {
      benchmark::DoNotOptimize(g.GetTransform(KRX::kCurrentTime));
    }
    frame = frame % kFrames + 1;
  }
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["object_reads_per_second"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * static_cast<double>(objects.size()),
      benchmark::Counter::kIsRate);
}
BENCHMARK(BM_WalkTakeGlobals)->Arg(31)->Arg(50);

}  // namespace

BENCHMARK_MAIN();
