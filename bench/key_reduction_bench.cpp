// Cost and quality of reducing a sampled channel to keys: marking peaks, valleys and
// inflection points, fitting the Bezier segments between the keys (the handle search of
// 27 x 27 candidates per segment is the cost), and the error-driven key choice.
//
// The quality runs reduce every rotation channel of real captures (degrees, unrolled as a
// plot unrolls them) and report the frames per key and the largest deviation of the fitted
// curves from the samples at whole frames; they are skipped when the shared captures are
// not there (set KAVOR_SOURCE_DIR to the source tree).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "files/bvh_file.h"
#include "kavor/host/host.h"
#include "kavor/plot/key_marks.h"
#include "kavor/plot/segment_fit.h"

namespace {

namespace fs = std::filesystem;
using KRX::rt::files::BvhChannel;

// A joint angle in degrees: two slow sines and capture noise of 0.05 degrees.
std::vector<double> NoisySine(int frames) {
  std::mt19937 random(11);
  std::normal_distribution<double> noise(0.0, 0.05);
  std::vector<double> v(static_cast<size_t>(frames));
  for (int i = 0; i < frames; ++i) {
    v[static_cast<size_t>(i)] =
        40.0 * std::sin(0.021 * i) + 12.0 * std::sin(0.13 * i) + noise(random);
  }
  return v;
}

std::vector<double> MarkedKeys(const std::vector<double>& v, bool inflection, int interval) {
  std::vector<uint8_t> marks(v.size(), 0);
  if (inflection) kavor::MarkPeaksValleysInflections(v, kavor::MarkTolerance(v), marks);
  if (interval > 0) kavor::MarkInterval(interval, marks);
  return kavor::BuildKeyList(marks);
}

void BM_MarkKeys(benchmark::State& state) {
  const std::vector<double> v = NoisySine(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(MarkedKeys(v, true, 0));
  state.SetItemsProcessed(state.iterations() * state.range(0));  // frames
}
BENCHMARK(BM_MarkKeys)->Arg(2000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// Marking and fitting one channel as a reduced plot does; items are frames.
void BM_MarkAndFit(benchmark::State& state) {
  const std::vector<double> v = NoisySine(static_cast<int>(state.range(0)));
  size_t segments = 0;
  for (auto _ : state) {
    const std::vector<kavor::SegmentFit> fits = kavor::FitKeys(v, MarkedKeys(v, true, 0), 1.0);
    segments += fits.size();
    benchmark::DoNotOptimize(fits.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.counters["segments"] =
      benchmark::Counter(static_cast<double>(segments), benchmark::Counter::kIsRate);
  state.counters["frames_per_key"] =
      static_cast<double>(v.size()) / (static_cast<double>(segments) / state.iterations() + 1.0);
}
BENCHMARK(BM_MarkAndFit)->Arg(2000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// The error-driven key choice at 0.5 degrees; it refits every split segment.
void BM_FitWithinTolerance(benchmark::State& state) {
  const std::vector<double> v = NoisySine(static_cast<int>(state.range(0)));
  size_t keys = 0;
  for (auto _ : state) {
    const std::vector<double> k = kavor::FitWithinTolerance(v, {}, 0.5);
    keys = k.size();
    benchmark::DoNotOptimize(k.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.counters["frames_per_key"] = static_cast<double>(v.size()) / static_cast<double>(keys);
}
BENCHMARK(BM_FitWithinTolerance)->Arg(2000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// ---- quality on real captures ----

// Every rotation channel of a shared capture, unrolled and in degrees; empty when the
// file is not there.
std::vector<std::vector<double>> CaptureRotations(const char* name) {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  const fs::path root = source ? fs::path(source) : fs::path(__FILE__).parent_path().parent_path();
  std::ifstream in(root / ".." / "shared" / "data" / "bvh" / name, std::ios::binary);
  if (!in) return {};
  std::stringstream text;
  text << in.rdbuf();
  std::string error;
  const auto file = KRX::rt::files::ParseBvh(text.str(), &error);
  if (!file) return {};
  constexpr double kRadians = 1.0 / kavor::kRadiansToDegrees;
  std::vector<std::vector<double>> channels;
  for (const auto& joint : file->joints) {
    for (size_t c = 0; c < joint.channels.size(); ++c) {
      if (joint.channels[c] < BvhChannel::kXrotation) continue;
      std::vector<double> v = file->columns[joint.first_channel + c];
      for (size_t i = 1; i < v.size(); ++i) {
        v[i] = kavor::UnrollAngle(v[i] * kRadians, v[i - 1] * kRadians) * kavor::kRadiansToDegrees;
      }
      channels.push_back(std::move(v));
    }
  }
  return channels;
}

enum class KeyRule {
  kInflection,
  kInterval,
  kInflectionAndInterval,
  kWithinTolerance,
  kInflectionThenTolerance
};

void CaptureQuality(benchmark::State& state, const char* capture, KeyRule rule, int interval) {
  const std::vector<std::vector<double>> channels = CaptureRotations(capture);
  if (channels.empty()) {
    state.SkipWithError("shared capture not found");
    return;
  }
  double frames = 0, keys = 0, worst = 0, worst_sum = 0;
  for (auto _ : state) {
    frames = keys = worst = worst_sum = 0;
    for (const std::vector<double>& v : channels) {
      std::vector<double> k;
      switch (rule) {
        case KeyRule::kInflection:
          k = MarkedKeys(v, true, 0);
          break;
        case KeyRule::kInterval:
          k = MarkedKeys(v, false, interval);
          break;
        case KeyRule::kInflectionAndInterval:
          k = MarkedKeys(v, true, interval);
          break;
        case KeyRule::kWithinTolerance:
          k = kavor::FitWithinTolerance(v, {}, 0.5);
          break;
        case KeyRule::kInflectionThenTolerance:
          k = kavor::FitWithinTolerance(v, MarkedKeys(v, true, 0), 0.5);
          break;
      }
      const double deviation = kavor::LargestDeviation(v, kavor::FitKeys(v, k, 0), 0);
      frames += static_cast<double>(v.size());
      keys += static_cast<double>(k.size());
      worst = std::max(worst, deviation);
      worst_sum += deviation;
    }
  }
  state.counters["channels"] = static_cast<double>(channels.size());
  state.counters["frames_per_key"] = frames / keys;
  state.counters["max_dev_deg"] = worst;
  state.counters["mean_channel_max_dev_deg"] = worst_sum / static_cast<double>(channels.size());
}

#define KAVOR_QUALITY(capture, tag)                                                          \
  BENCHMARK_CAPTURE(CaptureQuality, tag##_inflection, capture, KeyRule::kInflection, 0)      \
      ->Unit(benchmark::kMillisecond);                                                       \
  BENCHMARK_CAPTURE(CaptureQuality, tag##_interval4, capture, KeyRule::kInterval, 4)         \
      ->Unit(benchmark::kMillisecond);                                                       \
  BENCHMARK_CAPTURE(CaptureQuality, tag##_inflection_interval8, capture,                     \
                    KeyRule::kInflectionAndInterval, 8)                                      \
      ->Unit(benchmark::kMillisecond);                                                       \
  BENCHMARK_CAPTURE(CaptureQuality, tag##_within_0_5, capture, KeyRule::kWithinTolerance, 0) \
      ->Unit(benchmark::kMillisecond);                                                       \
  BENCHMARK_CAPTURE(CaptureQuality, tag##_inflection_then_0_5, capture,                      \
                    KeyRule::kInflectionThenTolerance, 0)                                    \
      ->Unit(benchmark::kMillisecond)

KAVOR_QUALITY("cmu_01_01.bvh", cmu_01_01);
KAVOR_QUALITY("dataset-1_dance-short_normal_001.bvh", dance);

}  // namespace

BENCHMARK_MAIN();
