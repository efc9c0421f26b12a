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
  const ct::fs::path capture = ct::SharedCapture("cmu_02_01.bvh");
  if (capture.empty()) {
    why = "set KAVOR_SOURCE_DIR to the source folder, beside the shared captures";
    return false;
  }
  ct::NewSceneWithShippedData();
  const KRX::Model source = ct::ImportCapture(capture, L"Source");
  const KRX::Model target = ct::ImportCapture(capture, L"Target", 1.2);
  for (int extra = static_cast<int>(target.FindChildren().size()); extra < kTargetObjects; ++extra) {
    KRX::X3DObject(target).AddNull(KRX::CString(L"prop") + KRX::CString(std::to_string(extra)));
  }
  const ct::fs::path tags = ct::ShippedTemplate("CmuJointNames.tagt");
  if (!ct::TagInBindPose(source, tags) || !ct::TagInBindPose(target, tags)) {
    why = "the shipped template did not tag the capture";
    return false;
  }
  setup.source = ct::ReadTagged(source);
  setup.target = ct::ReadTagged(target);
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
