// Cost of motion files for a tagged 31-node humanoid with a curve on every rotation:
// writing (posing, normalizing and correcting every frame, then the XML), reading the XML
// back, and reading the older text form, over 10,000 and 20,000 frames.
//
// Each measured run happens in a child process forked from the prepared scene, so that
// its memory figures are its own: `peak_heap_MB` is the most heap the operation held at
// once beyond what was held when it started (every operator new counted), `peak_rss_MB`
// the growth of the resident set's high-water mark over the run. `peak_per_file` is
// peak_heap_MB over the file's size; `bytes_per_second` is the file's size over the time.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/save_kavor_motion.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tags.h"
#include "kavor/xml/xml_values.h"
#include "krx/krx.h"
#include "runtime/scene_state.h"

// ---- heap accounting: every operator new and delete of the process ----

namespace {

std::atomic<size_t> heap_in_use{0};
std::atomic<size_t> heap_peak{0};

void* CountedAllocate(size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  const size_t now = heap_in_use.fetch_add(malloc_usable_size(block)) + malloc_usable_size(block);
  size_t peak = heap_peak.load(std::memory_order_relaxed);
  while (now > peak && !heap_peak.compare_exchange_weak(peak, now)) {
  }
  return block;
}

void CountedFree(void* block) {
  if (block == nullptr) return;
  heap_in_use.fetch_sub(malloc_usable_size(block));
  std::free(block);
}

}  // namespace

void* operator new(size_t size) { return CountedAllocate(size); }
void* operator new[](size_t size) { return CountedAllocate(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return CountedAllocate(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* block) noexcept { CountedFree(block); }
void operator delete[](void* block) noexcept { CountedFree(block); }
void operator delete(void* block, size_t) noexcept { CountedFree(block); }
void operator delete[](void* block, size_t) noexcept { CountedFree(block); }

namespace {

using KRX::MATH::CVector3;

constexpr const char* kBase =
    "hips { world Hips hip 0 1 0 0 0 1 0 95 0 }\n"
    "leftLeg { Hips lHip anchor 0 -1 0 0 0 1 9 -4 0  lKnee child 0 -1 0 0 0 1 0 -42 1\n"
    "  lAnkle friction 0 0 1 0 1 0 0 -41 -1  lToes child 0 0 1 0 1 0 0 -6 12 }\n"
    "rightLeg { Hips rHip anchor 0 -1 0 0 0 1 -9 -4 0  rKnee child 0 -1 0 0 0 1 0 -42 1\n"
    "  rAnkle friction 0 0 1 0 1 0 0 -41 -1  rToes child 0 0 1 0 1 0 0 -6 12 }\n";
constexpr const char* kStructure =
    "BenchBase\n"
    "spine { Hips Spine free 0 1 0 0 0 1 0 8 -1  Spine1 free 0 1 0 0 0 1 0 12 0\n"
    "  Spine2 free 0 1 0 0 0 1 0 12 1 }\n"
    "neck { Spine2 Neck child 0 1 0 0 0 1 0 18 -1  Head child 0 1 0 0 0 1 0 10 1 }\n"
    "leftArm { Spine2 lClavicle child 1 0 0 0 1 0 2 13 1  lShoulder anchor 1 0 0 0 1 0 15 0 -2\n"
    "  lElbow child 1 0 0 0 1 0 28 0 -1  lWrist ik 1 0 0 0 1 0 26 0 1\n"
    "  lHand child 1 0 0 0 1 0 9 0 0 }\n"
    "rightArm { Spine2 rClavicle child -1 0 0 0 1 0 -2 13 1  rShoulder anchor -1 0 0 0 1 0 -15 0 "
    "-2\n"
    "  rElbow child -1 0 0 0 1 0 -28 0 -1  rWrist ik -1 0 0 0 1 0 -26 0 1\n"
    "  rHand child -1 0 0 0 1 0 -9 0 0 }\n"
    "tail { Hips Tail1 free 0 0 -1 0 1 0 0 0 -8  Tail2 free 0 0 -1 0 1 0 0 0 -6\n"
    "  Tail3 free 0 0 -1 0 1 0 0 0 -6  Tail4 free 0 0 -1 0 1 0 0 0 -5\n"
    "  Tail5 free 0 0 -1 0 1 0 0 0 -5  Tail6 free 0 0 -1 0 1 0 0 0 -4\n"
    "  Tail7 free 0 0 -1 0 1 0 0 0 -4 }\n";

// A line of /proc/self/status in megabytes ("VmRSS:", "VmHWM:").
double StatusMegabytes(const std::string& key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key, 0) == 0) return std::stod(line.substr(key.size())) / 1024.0;  // kB
  }
  return 0.0;
}

std::string TempPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("kavor_motion_bench_" + std::to_string(getpid()) + "_" + name))
      .string();
}

double FileMegabytes(const std::string& path) {
  std::error_code error;
  return static_cast<double>(std::filesystem::file_size(path, error)) / (1024.0 * 1024.0);
}

// A rig of nulls standing in the structure's rest pose, tagged, with its rest data stored,
// and walking: the hips move along Z and every joint turns on keys ten frames apart.
KRX::Model BuildCharacter(int frames) {
  KRX::rt::ResetScene();
  kavor::StructureParseResult parsed = kavor::ParseStructureText(
      kStructure, "Bench31", [](std::string_view) { return std::string(kBase); });
  if (!parsed.structure) return KRX::Model();
  const kavor::ModelStructure& structure = *parsed.structure;
  KRX::Model model(KRX::Application().GetActiveSceneRoot().AddModel(L"Walker"));
  std::vector<KRX::X3DObject> objects;
  std::vector<kavor::TemplateTag> tags;
  for (const kavor::StructureNode& node : structure.nodes) {
    KRX::X3DObject parent = node.offset_parent >= 0
                                ? objects[static_cast<size_t>(node.offset_parent)]
                                : KRX::X3DObject(model);
    KRX::X3DObject object = parent.AddNull(kavor::ToWide(node.name));
    KRX::MATH::CTransformation rest;
    rest.SetTranslation(node.rest_position);
    object.GetKinematics().GetGlobal().PutTransform(rest);
    objects.push_back(object);
    kavor::TemplateTag tag;
    tag.tag_name = node.name;
    tag.node_name = node.name;
    kavor::ComputeTagAxes(node.name, structure, object, model, tag.align, tag.roll);
    tags.push_back(tag);
  }
  kavor::ApplyTemplateTags(tags, model);
  kavor::WriteRigSetup(model, structure, nullptr);
  for (size_t i = 0; i < objects.size(); ++i) {
    KRX::KinematicState local = objects[i].GetKinematics().GetLocal();
    for (const wchar_t* channel : {L"rotx", L"roty", L"rotz"}) {
      std::vector<KRX::FCurveKeyData> keys;
      for (int f = 1; f <= frames + 10; f += 10) {
        KRX::FCurveKeyData key;
        key.time = f;
        key.value = 15.0 * std::sin(0.05 * f + static_cast<double>(i) + channel[3]);
        keys.push_back(key);
      }
      local.GetParameter(channel).AddFCurve(keys);
    }
  }
  objects.front().GetKinematics().GetLocal().GetParameter(L"posz").AddFCurve(
      {{1.0, 0.0}, {static_cast<double>(frames), 2.0 * frames}});
  return model;
}

std::string Number(double value) { return kavor::NumberText(value).GetAsciiString(); }

// The motion in the older text form.
std::string TextForm(const kavor::KavorMotion& motion) {
  const kavor::RetargetModel& model = *motion.model;
  std::string text = "NormMotion5.0\n" + std::to_string(model.frame_count) + " " +
                     Number(model.leg_length) + " " + Number(model.hip_offset) + " " +
                     std::to_string(model.NumNodes()) + " " + std::to_string(model.NumPlanes()) +
                     " " + motion.structure->type + "\n";
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    text += "v " + motion.structure->nodes[static_cast<size_t>(i)].name + " " +
            Number(model.Node(i).length) + "\n";
  }
  for (const kavor::StructurePlane& plane : motion.structure->planes) {
    text += plane.name + " " + std::to_string(plane.span) + " " + std::to_string(plane.mid) + " " +
            std::to_string(plane.anchor_index) + " " + std::to_string(plane.chain.size());
    for (const int32_t bone : plane.chain) text += " " + std::to_string(bone);
    text += "\n";
  }
  for (const KRX::MATH::CTransformation& pose : model.poses) {
    const CVector3 angles = pose.GetRotation().GetXYZAngles();
    const CVector3 position = pose.GetTranslation();
    text += Number(angles.GetX()) + " " + Number(angles.GetY()) + " " + Number(angles.GetZ()) +
            " " + Number(position.GetX()) + " " + Number(position.GetY()) + " " +
            Number(position.GetZ()) + "\n";
  }
  return text + "0\n";
}

// What one run in a child process measured.
struct RunFigures {
  bool ok = false;
  double seconds = 0.0;
  double peak_heap_mb = 0.0;
  double peak_rss_mb = 0.0;
};

// Runs `operation` in a child process forked from this one and gives its figures.
RunFigures RunInChild(const std::function<bool()>& operation) {
  int channel[2];
  RunFigures figures;
  if (pipe(channel) != 0) return figures;
  const pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    // The high-water mark restarts from the resident set as it is now.
    std::ofstream("/proc/self/clear_refs") << "5";
    const double rss_before = StatusMegabytes("VmRSS:");
    const size_t heap_before = heap_in_use.load();
    heap_peak.store(heap_before);
    const auto start = std::chrono::steady_clock::now();
    RunFigures measured;
    measured.ok = operation();
    measured.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    measured.peak_heap_mb = static_cast<double>(heap_peak.load() - heap_before) / (1024.0 * 1024.0);
    measured.peak_rss_mb = StatusMegabytes("VmHWM:") - rss_before;
    const ssize_t written = write(channel[1], &measured, sizeof(measured));
    _exit(written == sizeof(measured) ? 0 : 1);
  }
  close(channel[1]);
  if (child > 0) {
    if (read(channel[0], &figures, sizeof(figures)) != sizeof(figures)) figures = RunFigures();
    waitpid(child, nullptr, 0);
  }
  close(channel[0]);
  return figures;
}

// Times `operation` once per iteration, each in a child, and reports the figures of the
// last run against the file at `path`.
void Measure(benchmark::State& state, int frames, const std::string& path,
             const std::function<bool()>& operation) {
  RunFigures figures;
  for (auto _ : state) {
    figures = RunInChild(operation);
    if (!figures.ok) {
      state.SkipWithError("the operation failed");
      return;
    }
    state.SetIterationTime(figures.seconds);
  }
  const double file_mb = FileMegabytes(path);
  state.SetBytesProcessed(static_cast<int64_t>(file_mb * 1024.0 * 1024.0) *
                          static_cast<int64_t>(state.iterations()));
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(frames) / figures.seconds);
  state.counters["file_MB"] = file_mb;
  state.counters["peak_heap_MB"] = figures.peak_heap_mb;
  state.counters["peak_rss_MB"] = figures.peak_rss_mb;
  state.counters["peak_per_file"] = file_mb > 0.0 ? figures.peak_heap_mb / file_mb : 0.0;
}

void BM_WriteMotionFile(benchmark::State& state) {
  const int frames = static_cast<int>(state.range(0));
  const KRX::Model model = BuildCharacter(frames);
  const std::string path = TempPath("write.kavor");
  // One write outside the measure leaves the file whose size is reported.
  if (!kavor::SaveKavorMotion(model, kavor::ToWide(path), 1, frames)) {
    state.SkipWithError("the motion was not saved");
    return;
  }
  Measure(state, frames, path,
          [&] { return kavor::SaveKavorMotion(model, kavor::ToWide(path), 1, frames); });
  std::filesystem::remove(path);
}

// Reads the motion file at `path`, from an empty scene; the file is removed afterwards.
void MeasureReading(benchmark::State& state, int frames, const std::string& path) {
  KRX::rt::ResetScene();
  Measure(state, frames, path, [&] {
    std::unique_ptr<kavor::KavorMotion> motion = kavor::ReadKavorMotionFile(kavor::ToWide(path));
    return motion != nullptr && motion->model->frame_count == frames;
  });
  std::filesystem::remove(path);
}

void BM_ReadMotionFile(benchmark::State& state) {
  const int frames = static_cast<int>(state.range(0));
  const std::string path = TempPath("read.kavor");
  if (!kavor::SaveKavorMotion(BuildCharacter(frames), kavor::ToWide(path), 1, frames)) {
    state.SkipWithError("the motion was not saved");
    return;
  }
  MeasureReading(state, frames, path);
}

void BM_ReadMotionText(benchmark::State& state) {
  const int frames = static_cast<int>(state.range(0));
  const std::string xml_path = TempPath("convert.kavor");
  const std::string path = TempPath("read.txt");
  std::unique_ptr<kavor::KavorMotion> written;
  if (kavor::SaveKavorMotion(BuildCharacter(frames), kavor::ToWide(xml_path), 1, frames)) {
    written = kavor::ReadKavorMotionFile(kavor::ToWide(xml_path));
  }
  std::filesystem::remove(xml_path);
  if (!written) {
    state.SkipWithError("the motion was not saved");
    return;
  }
  std::ofstream(path, std::ios::binary) << TextForm(*written);
  written.reset();
  MeasureReading(state, frames, path);
}

// 31 nodes; 10,000 and 20,000 frames.
BENCHMARK(BM_WriteMotionFile)
    ->Arg(10000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK(BM_ReadMotionFile)
    ->Arg(10000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);
BENCHMARK(BM_ReadMotionText)
    ->Arg(10000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);

}  // namespace

BENCHMARK_MAIN();
