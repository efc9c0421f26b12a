// Cost of evaluating a function curve: one call per sample time over a long curve, as a
// scene evaluation does for each animated parameter at each frame; full key records against
// the compact form of a curve with a key on every frame.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "anim/fcurve_edit.h"
#include "anim/fcurve_eval.h"
#include "anim/sampled_curve.h"

namespace {

using KRX::FCurveKeyData;
using KRX::Interpolation;

constexpr int kSampleCount = 10000;

// One key per frame with values in the range of a joint rotation in degrees, smooth
// tangents, as an importer builds curves from captured samples.
std::vector<FCurveKeyData> MakeCurve(int key_count, Interpolation interpolation) {
  std::vector<FCurveKeyData> keys(static_cast<size_t>(key_count));
  for (int i = 0; i < key_count; ++i) {
    FCurveKeyData& k = keys[static_cast<size_t>(i)];
    k.time = i;
    k.value = 40.0 * std::sin(i * 0.05) + 7.0 * std::sin(i * 0.73);
    k.interpolation = interpolation;
  }
  KRX::rt::ComputeAutoTangents(keys);
  return keys;
}

// Sample times between keys, in a scrambled order so the segment search is not helped by
// the caches of the previous call.
std::vector<double> MakeSampleTimes(int key_count) {
  std::vector<double> times(kSampleCount);
  uint32_t state = 12345u;
  for (double& t : times) {
    state = state * 1664525u + 1013904223u;
    t = (state >> 8) * (1.0 / 16777216.0) * (key_count - 1);
  }
  return times;
}

void EvaluateCurve(benchmark::State& state, Interpolation interpolation) {
  const int key_count = static_cast<int>(state.range(0));
  const std::vector<FCurveKeyData> keys = MakeCurve(key_count, interpolation);
  const std::vector<double> times = MakeSampleTimes(key_count);
  for (auto _ : state) {
    double sum = 0.0;
    for (double t : times) sum += KRX::rt::EvaluateFCurve(keys, t);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kSampleCount);
}

// The same linear curve with default handles, as imports make it, held compactly.
void BM_EvaluateSampledLinear(benchmark::State& state) {
  const int key_count = static_cast<int>(state.range(0));
  std::vector<FCurveKeyData> keys = MakeCurve(key_count, Interpolation::Linear);
  for (FCurveKeyData& key : keys)
    key = {.time = key.time, .value = key.value, .interpolation = key.interpolation};
  const KRX::rt::SampledCurve curve = KRX::rt::ToSampledCurve(keys);
  const std::vector<double> times = MakeSampleTimes(key_count);
  for (auto _ : state) {
    double sum = 0.0;
    for (double t : times) sum += KRX::rt::EvaluateSampledCurve(curve, t);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kSampleCount);
}

void BM_EvaluateBezier(benchmark::State& state) { EvaluateCurve(state, Interpolation::Bezier); }
void BM_EvaluateLinear(benchmark::State& state) { EvaluateCurve(state, Interpolation::Linear); }

BENCHMARK(BM_EvaluateBezier)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EvaluateLinear)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EvaluateSampledLinear)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
