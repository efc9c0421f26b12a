// Cost of importing a long BVH take as an animated rig (the ImportBVH command: reading the
// file, parsing it and building the joints and their curves), at about 11,000 and 44,000
// frames of a 31-joint capture. Figures: time, MB/s of file text, and the peak memory of
// the import alone - resident (VmHWM above what the process held before) and heap (the most
// bytes live at once through operator new) - each measured once per size in a child
// process, so that nothing freed earlier in this process hides or inflates it.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <string>

#include "krx/krx.h"
#include "runtime/scene_state.h"

// ---- heap accounting: every operator new of the process, the runtime library's included ----

namespace {
std::atomic<size_t> g_heap_live{0};
std::atomic<size_t> g_heap_peak{0};

void* CountedAlloc(size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (!p) throw std::bad_alloc();
  const size_t live = g_heap_live.fetch_add(malloc_usable_size(p)) + malloc_usable_size(p);
  size_t peak = g_heap_peak.load();
  while (live > peak && !g_heap_peak.compare_exchange_weak(peak, live)) {
  }
  return p;
}

void CountedFree(void* p) {
  if (!p) return;
  g_heap_live.fetch_sub(malloc_usable_size(p));
  std::free(p);
}
}  // namespace

void* operator new(size_t size) { return CountedAlloc(size); }
void* operator new[](size_t size) { return CountedAlloc(size); }
void operator delete(void* p) noexcept { CountedFree(p); }
void operator delete[](void* p) noexcept { CountedFree(p); }
void operator delete(void* p, size_t) noexcept { CountedFree(p); }
void operator delete[](void* p, size_t) noexcept { CountedFree(p); }

namespace {

namespace fs = std::filesystem;

// The capture whose motion is repeated; 31 joints, 2,752 frames at 120 frames per second.
constexpr const char* kCapture = "cmu_01_01.bvh";

fs::path SharedCapture() {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  if (!source) return {};
  const fs::path path = fs::path(source) / ".." / "shared" / "data" / "bvh" / kCapture;
  return fs::exists(path) ? path : fs::path();
}

// A 31-joint chain (a root with six channels, the rest with three) whose angles follow
// slow sines: the stand-in when the shared capture is not on this machine.
std::string SyntheticTake(size_t frames) {
  std::ostringstream out;
  out << "HIERARCHY\nROOT Hips\n{\n OFFSET 0 0 0\n CHANNELS 6 Xposition Yposition Zposition "
         "Zrotation Yrotation Xrotation\n";
  for (int j = 1; j < 31; ++j)
    out << "JOINT J" << j << "\n{\n OFFSET 0 1.5 0.25\n CHANNELS 3 Zrotation Yrotation Xrotation\n";
  out << "End Site\n{\n OFFSET 0 1 0\n}\n";
  for (int j = 0; j < 31; ++j) out << "}\n";
  out << "MOTION\nFrames: " << frames << "\nFrame Time: .0083333\n";
  char number[32];
  for (size_t f = 0; f < frames; ++f) {
    for (int c = 0; c < 96; ++c) {
      std::snprintf(number, sizeof(number), "%.5f ",
                    40.0 * std::sin(0.01 * static_cast<double>(f) + c));
      out << number;
    }
    out << "\n";
  }
  return out.str();
}

// The shared capture's hierarchy followed by its motion lines repeated until the take has
// at least `min_frames` frames; the synthetic take when the capture is missing.
std::string MakeTake(size_t min_frames, size_t* frames) {
  const fs::path capture = SharedCapture();
  if (capture.empty()) {
    *frames = min_frames;
    return SyntheticTake(min_frames);
  }
  std::ifstream in(capture, std::ios::binary);
  std::string line, header, motion;
  size_t lines_seen = 0;
  bool in_motion = false;
  while (std::getline(in, line)) {
    if (!in_motion) {
      if (line.rfind("Frames:", 0) == 0) continue;
      header += line + "\n";
      in_motion = line.rfind("Frame Time:", 0) == 0;
    } else if (line.find_first_not_of(" \t\r") != std::string::npos) {
      motion += line + "\n";
      ++lines_seen;
    }
  }
  const size_t copies = (min_frames + lines_seen - 1) / lines_seen;
  *frames = copies * lines_seen;
  std::string take;
  take.reserve(header.size() + copies * motion.size() + 32);
  const size_t at = header.find("Frame Time:");
  take += header.substr(0, at) + "Frames: " + std::to_string(*frames) + "\n" + header.substr(at);
  for (size_t i = 0; i < copies; ++i) take += motion;
  return take;
}

struct Take {
  std::string path;
  size_t frames = 0;
  double megabytes = 0.0;
};

Take WriteTake(size_t min_frames) {
  Take take;
  const std::string text = MakeTake(min_frames, &take.frames);
  take.path = (fs::temp_directory_path() / ("krx_bvh_bench_" + std::to_string(getpid()) + "_" +
                                            std::to_string(min_frames) + ".bvh"))
                  .string();
  std::ofstream(take.path, std::ios::binary) << text;
  take.megabytes = static_cast<double>(text.size()) / (1024.0 * 1024.0);
  return take;
}

bool Import(const std::string& path) {
  KRX::CValue result;
  KRX::Application().ExecuteCommand(L"ImportBVH", {KRX::CValue(path), KRX::CValue(L"Take")},
                                    result);
  return result.GetType() == KRX::ValueType::String;
}

double StatusMegabytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const size_t length = std::char_traits<char>::length(field);
  while (std::getline(status, line)) {
    if (line.compare(0, length, field) == 0) return std::stod(line.substr(length)) / 1024.0;
  }
  return -1.0;
}

struct Peak {
  double resident_mb = -1.0;
  double heap_mb = -1.0;
};

// One import in a child process: the resident peak is reset just before it (where the
// kernel allows; otherwise the child's whole life counts) and read just after.
Peak MeasurePeak(const std::string& path) {
  int fds[2];
  if (pipe(fds) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    KRX::rt::ResetScene();
    std::ofstream("/proc/self/clear_refs") << "5";
    const double before = StatusMegabytes("VmRSS:");
    const size_t heap_before = g_heap_live.load();
    g_heap_peak.store(heap_before);
    Peak peak;
    if (Import(path)) {
      peak.resident_mb = StatusMegabytes("VmHWM:") - before;
      peak.heap_mb = static_cast<double>(g_heap_peak.load() - heap_before) / (1024.0 * 1024.0);
    }
    const ssize_t written = write(fds[1], &peak, sizeof(peak));
    _exit(written == sizeof(peak) ? 0 : 1);
  }
  close(fds[1]);
  Peak peak;
  if (child < 0 || read(fds[0], &peak, sizeof(peak)) != sizeof(peak)) peak = Peak();
  close(fds[0]);
  if (child > 0) waitpid(child, nullptr, 0);
  return peak;
}

void BM_ImportBvh(benchmark::State& state) {
  const Take take = WriteTake(static_cast<size_t>(state.range(0)));
  const Peak peak = MeasurePeak(take.path);
  if (peak.resident_mb < 0.0) {
    fs::remove(take.path);
    state.SkipWithError("the take did not import");
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();
    KRX::rt::ResetScene();
    state.ResumeTiming();
    benchmark::DoNotOptimize(Import(take.path));
  }
  KRX::rt::ResetScene();
  fs::remove(take.path);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(take.megabytes * 1024.0 * 1024.0));
  state.counters["frames"] = static_cast<double>(take.frames);
  state.counters["file_MB"] = take.megabytes;
  state.counters["peak_MB"] = peak.resident_mb;
  state.counters["heap_peak_MB"] = peak.heap_mb;
  state.counters["peak_per_file"] = peak.resident_mb / take.megabytes;
}

BENCHMARK(BM_ImportBvh)->Arg(11000)->Arg(44000)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
