// Cost of motion files for a tagged 31-node humanoid with a curve on every rotation:
// writing (posing, normalizing and correcting every frame, then the XML document), reading
// the XML back, and reading the older text form, over 1,000 and 10,000 frames. Figures are
// frames per second, the file size and the peak resident memory while the benchmark ran
// (scene and rig included).
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
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

// The process's peak resident memory (VmHWM) in megabytes, and its reset, so that each
// benchmark reports its own peak rather than the largest one so far. Where the reset is
// not available the peak stays the process's.
void ResetPeakResident() { std::ofstream("/proc/self/clear_refs") << "5"; }

double PeakResidentMegabytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;  // kB
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

std::string TempPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("kavor_motion_bench_" + std::to_string(getpid()) + "_" + name))
      .string();
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

void Report(benchmark::State& state, int frames, const std::string& path) {
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(frames) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
  std::error_code error;
  state.counters["file_MB"] =
      static_cast<double>(std::filesystem::file_size(path, error)) / (1024.0 * 1024.0);
  state.counters["peak_rss_MB"] = PeakResidentMegabytes();
}

void BM_WriteMotionFile(benchmark::State& state) {
  const int frames = static_cast<int>(state.range(0));
  const KRX::Model model = BuildCharacter(frames);
  const std::string path = TempPath("write.kavor");
  ResetPeakResident();
  for (auto _ : state) {
    if (!kavor::SaveKavorMotion(model, kavor::ToWide(path), 1, frames)) {
      state.SkipWithError("the motion was not saved");
      break;
    }
  }
  Report(state, frames, path);
  std::filesystem::remove(path);
}
BENCHMARK(BM_WriteMotionFile)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(2);

// Reads the motion file at `path` once per iteration, from an empty scene, and reports;
// the file is removed afterwards.
void TimeReading(benchmark::State& state, int frames, const std::string& path) {
  KRX::rt::ResetScene();
  ResetPeakResident();
  for (auto _ : state) {
    std::unique_ptr<kavor::KavorMotion> motion = kavor::ReadKavorMotionFile(kavor::ToWide(path));
    if (!motion) {
      state.SkipWithError("the motion was not read");
      break;
    }
    benchmark::DoNotOptimize(motion->model->poses.data());
  }
  Report(state, frames, path);
  std::filesystem::remove(path);
}

void BM_ReadMotionFile(benchmark::State& state) {
  const int frames = static_cast<int>(state.range(0));
  const std::string path = TempPath("read.kavor");
  if (!kavor::SaveKavorMotion(BuildCharacter(frames), kavor::ToWide(path), 1, frames)) {
    state.SkipWithError("the motion was not saved");
    return;
  }
  TimeReading(state, frames, path);
}
BENCHMARK(BM_ReadMotionFile)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(3);

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
  TimeReading(state, frames, path);
}
BENCHMARK(BM_ReadMotionText)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
