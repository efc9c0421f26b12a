// The plain record of what a rig plays: evaluated global transforms per frame as JSON.
#pragma once

#include <string>

#include "files/scene_file.h"
#include "krx/scene.h"

namespace KRX::rt {

// Limits of one export: frames in the range, and frames times objects.
inline constexpr int64_t kMaxExportFrames = 1'000'000;
inline constexpr int64_t kMaxExportSamples = int64_t{1} << 22;

// Writes, for every 3D object below `model` in depth-first order (children in order; the
// model itself is not included), its evaluated global transform at each frame from
// `start` to `end` (start, start + 1, ... up to end):
//   {"frames": [1, 2, ...],
//    "objects": [{"name": "hip", "parent": "Walker",
//                 "global": [[px, py, pz, qw, qx, qy, qz], ...one per frame]}, ...]}
// "name" and "parent" are object names (an object right below the model names the model as
// its parent). Each frame is made the current frame of "Play Control" before the objects
// are evaluated; the current frame is restored afterwards. Numbers are written in the
// shortest form that reads back to the same double. The file is written atomically.
// Fails on a model that is not a 3D object, a range that is not finite or runs backwards,
// more than kMaxExportFrames frames or kMaxExportSamples samples, or a transform that
// does not evaluate to finite numbers.
FileResult ExportTransforms(const X3DObject& model, const std::string& path, double start,
                            double end);

}  // namespace KRX::rt
