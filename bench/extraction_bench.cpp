// Cost of carrying a take over from one character to another: a 31-joint capture (tagged
// with the shipped template) onto a copy of it 1.2 times its size with 50 objects below its
// model. One iteration is one frame: move the current frame, let the source evaluate, read
// its pose and give it to the target, store the frame.
#include <benchmark/benchmark.h>

#include "kavor/motion/extraction.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/normalized_motion.h"
#include "kavor/motion/play_control.h"
#include "tests/kavor/motion/capture_rig_support.h"

namespace {

namespace ct = kavor::capturetest;

constexpr int kTargetObjects = 50;

struct Setup {
  ct::TaggedModel source;
  ct::TaggedModel target;
  int frames = 0;
};

// False (with the reason in `why`) when the shared capture is not on this machine.
bool Prepare(Setup& setup, std::string& why) {
  const std::optional<ct::CapturePair> pair = ct::ImportTaggedCmuPair(kTargetObjects, why);
  if (!pair) return false;
  setup.source = ct::ReadTagged(pair->source);
  setup.target = ct::ReadTagged(pair->target);
  if (!setup.source.retarget || !setup.target.retarget || !setup.target.glue) {
    why = "the tagged capture did not read back";
    return false;
  }
  setup.frames = static_cast<int>(KRX::Application().GetActiveProject().GetPlayControl()
                                      .GetParameterValue(L"Out").GetDouble());
  return kavor::BindSource(*setup.target.retarget, *setup.source.retarget, *setup.target.glue);
}

void BM_ExtractFrames(benchmark::State& state) {
  Setup setup;
  std::string why;
  if (!Prepare(setup, why)) {
    state.SkipWithError(why.c_str());
    return;
  }
  kavor::RetargetModel& source = *setup.source.retarget;
  kavor::RetargetModel& target = *setup.target.retarget;
  kavor::NormalizedMotion motion(setup.frames, &target, &source);
  int frame = 1;
  for (auto _ : state) {
    kavor::SetCurrentFrame(frame);
    kavor::RefreshModel(source.model);
    kavor::ExtractFrame(target, source, frame);
    motion.StoreFrame(frame - 1);
    frame = frame % setup.frames + 1;
  }
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["source_nodes"] = source.NumNodes();
}
BENCHMARK(BM_ExtractFrames)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
