// Cost of plotting a live retarget: a 31-joint CMU capture retargeted onto a copy of it 1.2
// times its size with 50 objects below its model, then baked over the first N frames.
// - BM_PlotEveryFrame: every frame a key (linear curves).
// - BM_PlotReduced: peaks, valleys and inflections marked, Bezier segments fitted.
// - BM_PlotWithinTolerance: keys added until every curve lies within 0.5 degrees and 0.1 %
//   of the leg length of its samples.
// One iteration is one whole plot; the import and the retarget before it are not timed.
#include <benchmark/benchmark.h>

#include <string>

#include "kavor/operators/retarget_context.h"
#include "kavor/operators/retarget_flows.h"
#include "kavor/plot/motion_plotter.h"
#include "tests/kavor/motion/capture_rig_support.h"
#include "tests/kavor/operators/in_process_plugin.h"

namespace {

namespace ct = kavor::capturetest;

// A fresh retarget over frames 1..frames; an invalid model (with the reason) when the
// shared capture is missing or the retarget did not build.
KRX::Model RetargetLongTake(int frames, std::string& why) {
  if (!kavor::inprocess::LoadPlugInInProcess()) {
    why = "the plug-in did not load";
    return KRX::Model();
  }
  const std::optional<ct::CapturePair> pair = ct::ImportTaggedCmuPair(50, why, "cmu_01_01.bvh");
  if (!pair) return KRX::Model();
  if (!kavor::RetargetRigToRig(pair->source, pair->target, 1, frames)) {
    why = "the retarget did not build";
    return KRX::Model();
  }
  return pair->target;
}

void Plot(benchmark::State& state, bool inflection, double rotation_tolerance,
          double position_tolerance) {
  const int frames = static_cast<int>(state.range(0));
  kavor::PlotSummary summary;
  for (auto _ : state) {
    state.PauseTiming();
    std::string why;
    const KRX::Model target = RetargetLongTake(frames, why);
    if (!target.IsValid()) {
      state.SkipWithError(why.c_str());
      return;
    }
    kavor::PlotSettings settings;
    settings.start = 1;
    settings.end = frames + 1;
    settings.inflection = inflection;
    settings.interval = !inflection;
    settings.interval_step = 1;
    settings.options.rotation_tolerance = rotation_tolerance;
    settings.options.position_tolerance = position_tolerance;
    kavor::MotionPlotter plotter(target, settings);
    state.ResumeTiming();
    summary = plotter.Run();
  }
  const double iterations = static_cast<double>(state.iterations());
  state.counters["frames_per_second"] =
      benchmark::Counter(frames * iterations, benchmark::Counter::kIsRate);
  state.counters["objects"] = summary.objects;
  const auto per_key = [&](const kavor::ChannelKeyer::KindFigures& kind) {
    return kind.keys > 0 ? static_cast<double>(kind.curves) * frames / kind.keys : 0.0;
  };
  state.counters["rotation_frames_per_key"] = per_key(summary.rotations);
  state.counters["position_frames_per_key"] = per_key(summary.positions);
}

void BM_PlotEveryFrame(benchmark::State& state) { Plot(state, false, 0.0, 0.0); }
void BM_PlotReduced(benchmark::State& state) { Plot(state, true, 0.0, 0.0); }
void BM_PlotWithinTolerance(benchmark::State& state) { Plot(state, true, 0.5, 0.001); }

BENCHMARK(BM_PlotEveryFrame)->Arg(500)->Arg(2000)->Iterations(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlotReduced)
    ->Arg(500)
    ->Arg(1000)
    ->Arg(2000)
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlotWithinTolerance)->Arg(2000)->Iterations(2)->Unit(benchmark::kMillisecond);

}  // namespace
BENCHMARK_MAIN();
