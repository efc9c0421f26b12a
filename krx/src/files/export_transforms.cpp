#include "files/export_transforms.h"

#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "files/file_io.h"
#include "files/text_codec.h"
#include "krx/application.h"

namespace KRX::rt {

namespace {

using Sample = std::array<double, 7>;  // px, py, pz, qw, qx, qy, qz

void CollectBelow(const X3DObject& object, std::vector<X3DObject>& out) {
  for (const X3DObject& child : object.GetChildren()) {
    out.push_back(child);
    CollectBelow(child, out);
  }
}

void AppendNumber(std::string& out, double v) {
  char buffer[64];
  // Shortest text that reads back to exactly this double; locale-independent.
  const std::to_chars_result r = std::to_chars(buffer, buffer + sizeof(buffer), v);
  out.append(buffer, r.ptr);
}

void AppendFrame(std::string& out, double frame) {
  // Whole frames are written as integers ("frames": [1, 2, 3]).
  if (frame == std::floor(frame) && std::fabs(frame) < 9007199254740992.0) {
    out += std::to_string(static_cast<int64_t>(frame));
  } else {
    AppendNumber(out, frame);
  }
}

void AppendText(std::string& out, const CString& text) {
  out += nlohmann::json(files::WideToUtf8(text.GetWideString())).dump();
}

// Restores the current frame when the export ends, however it ends.
class CurrentFrameGuard {
 public:
  CurrentFrameGuard() : frame_(Application().GetCurrentFrame()) {}
  ~CurrentFrameGuard() { Application().PutCurrentFrame(frame_); }
  CurrentFrameGuard(const CurrentFrameGuard&) = delete;
  CurrentFrameGuard& operator=(const CurrentFrameGuard&) = delete;

 private:
  double frame_;
};

}  // namespace

FileResult ExportTransforms(const X3DObject& model, const std::string& path, double start,
                            double end) {
  auto fail = [&path](const std::string& why) {
    return FileResult::Failure("cannot export transforms to \"" + path + "\": " + why);
  };
  if (!model.IsValid()) return fail("the model is not a 3D object of the scene");
  if (!std::isfinite(start) || !std::isfinite(end)) return fail("the frame range is not finite");
  if (end < start) return fail("the last frame comes before the first");
  if (end - start >= static_cast<double>(kMaxExportFrames)) {
    return fail("more than " + std::to_string(kMaxExportFrames) + " frames");
  }
  const auto frame_count = static_cast<int64_t>(std::floor(end - start)) + 1;

  std::vector<X3DObject> objects;
  CollectBelow(model, objects);
  const auto object_count = static_cast<int64_t>(objects.size());
  if (object_count * frame_count > kMaxExportSamples) {
    return fail(std::to_string(object_count) + " objects at " + std::to_string(frame_count) +
                " frames are more than " + std::to_string(kMaxExportSamples) + " samples");
  }
  std::vector<KinematicState> globals;
  globals.reserve(objects.size());
  for (const X3DObject& object : objects) globals.push_back(object.GetKinematics().GetGlobal());

  // samples[frame * objects + object]
  std::vector<Sample> samples(static_cast<size_t>(object_count * frame_count));
  {
    CurrentFrameGuard restore;
    for (int64_t f = 0; f < frame_count; ++f) {
      const double frame = start + static_cast<double>(f);
      Application().PutCurrentFrame(frame);
      for (int64_t o = 0; o < object_count; ++o) {
        const MATH::CTransformation global = globals[static_cast<size_t>(o)].GetTransform();
        const MATH::CVector3 p = global.GetTranslation();
        const MATH::CQuaternion q = global.GetRotationQuaternion();
        Sample& sample = samples[static_cast<size_t>(f * object_count + o)];
        sample = {p.GetX(), p.GetY(), p.GetZ(), q.GetW(), q.GetX(), q.GetY(), q.GetZ()};
        for (double v : sample) {
          if (!std::isfinite(v)) {
            return fail("the transform of \"" +
                        objects[static_cast<size_t>(o)].GetFullName().GetAsciiString() +
                        "\" at frame " + std::to_string(frame) + " is not finite");
          }
        }
      }
    }
  }

  std::string out = "{\"frames\": [";
  for (int64_t f = 0; f < frame_count; ++f) {
    if (f) out += ", ";
    AppendFrame(out, start + static_cast<double>(f));
  }
  out += "],\n \"objects\": [";
  for (int64_t o = 0; o < object_count; ++o) {
    const X3DObject& object = objects[static_cast<size_t>(o)];
    out += o ? ",\n  {\"name\": " : "\n  {\"name\": ";
    AppendText(out, object.GetName());
    out += ", \"parent\": ";
    AppendText(out, SIObject(object.GetParent()).GetName());
    out += ",\n   \"global\": [";
    for (int64_t f = 0; f < frame_count; ++f) {
      out += f ? ", [" : "[";
      const Sample& sample = samples[static_cast<size_t>(f * object_count + o)];
      for (size_t k = 0; k < sample.size(); ++k) {
        if (k) out += ", ";
        AppendNumber(out, sample[k]);
      }
      out += "]";
    }
    out += "]}";
  }
  out += object_count ? "\n ]}\n" : "]}\n";

  std::string error;
  if (!ReplaceFile(path, out, &error)) {
    return FileResult::Failure("cannot export transforms: " + error);
  }
  return FileResult::Success();
}

}  // namespace KRX::rt
