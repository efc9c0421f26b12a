// The finishing path of characters with more than two feet: limb-end paths fitted to the
// source's, then the feet that hang below the spine aligned to the grounded one.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "kavor/maps/model_map.h"
#include "kavor/motion/finish.h"

namespace kavor {

namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

// A piece whose source moves by at most this many leg lengths keeps the source's path
// unscaled: a ratio of two such small moves says nothing.
constexpr double kStillPiece = 1e-7;
// A move shorter than this many leg lengths may not be made longer on the target than the
// source's.
constexpr double kShortMove = 0.25;
constexpr double kMinBoneLength = 0.0001;

void AddHeight(std::vector<CTransformation>& poses, double height) {
  for (CTransformation& pose : poses) {
    const CVector3 t = pose.GetTranslation();
    pose.SetTranslation(CVector3(t.GetX(), t.GetY() + height, t.GetZ()));
  }
}

int Sign(double value) { return (value > 0.0) - (value < 0.0); }

// The largest |anchor.y - end.y| over the motion. With `reach` >= 0 a frame where the end
// lies beyond reach counts as if it were pulled back onto it, the vertical offset shrinking
// in proportion.
double LimbHeight(const std::vector<CTransformation>& anchor,
                  const std::vector<CTransformation>& end, double reach) {
  double height = 0.0;
  for (size_t f = 0; f < end.size(); ++f) {
    const CVector3 offset = anchor[f].GetTranslation() - end[f].GetTranslation();
    double dy = offset.GetY();
    const double distance = offset.GetLength();
    if (reach >= 0.0 && distance > reach && distance > 0.0) dy *= reach / distance;
    height = std::max(height, std::abs(dy));
  }
  return height;
}

// The key frames of one axis of a source path: 0, the minimum and maximum frames in order
// and the last frame, each once. A maximum is only looked for in frames that set no new
// minimum; a path that falls in every frame sets none and has its maximum at frame 0.
std::vector<int32_t> KeyFrames(const std::vector<CVector3>& path, int axis) {
  double lowest = std::numeric_limits<double>::max();
  double highest = std::numeric_limits<double>::lowest();
  int32_t min_frame = 0;
  int32_t max_frame = 0;
  const auto frames = static_cast<int32_t>(path.size());
  for (int32_t f = 0; f < frames; ++f) {
    const double value = path[static_cast<size_t>(f)][axis];
    if (value < lowest) {
      lowest = value;
      min_frame = f;
    } else if (value > highest) {
      highest = value;
      max_frame = f;
    }
  }
  std::vector<int32_t> keys = {0};
  const int32_t earlier = std::min(min_frame, max_frame);
  if (earlier > 0) keys.push_back(earlier);
  keys.push_back(std::max(min_frame, max_frame));
  keys.push_back(frames - 1);
  // The extremes may fall on frame 0, on each other or on the last frame; a key listed
  // twice would leave a piece that ends where it starts and stalls the walk.
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

// One axis's current piece: the target value is (source - source_base) * factor +
// target_base until frame keys[end_key].
struct Piece {
  size_t end_key = 0;
  double source_base = 0.0;
  double target_base = 0.0;
  double factor = 1.0;
};

// The piece from frame `from` (already rewritten) to the next key frame `to`.
Piece NextPiece(const std::vector<CVector3>& path, const std::vector<CTransformation>& poses,
                int axis, int32_t from, int32_t to, const LegLengths& legs, size_t end_key) {
  const double s0 = path[static_cast<size_t>(from)][axis];
  const double s1 = path[static_cast<size_t>(to)][axis];
  const double t0 = AxisAt(poses, from, axis);
  double t1 = AxisAt(poses, to, axis);
  const double ds = (s1 - s0) / legs.source;
  const double dt = (t1 - t0) / legs.target;
  // Never against the source, and on short moves never further than the source.
  if ((std::abs(dt) > std::abs(ds) && std::abs(ds) < kShortMove) || Sign(ds) != Sign(dt)) {
    t1 = t0 + legs.target * ds;
  }
  Piece piece;
  piece.end_key = end_key;
  piece.source_base = s0;
  piece.target_base = t0;
  piece.factor = std::abs(ds) > kStillPiece && s1 != s0 ? (t1 - t0) / (s1 - s0) : 1.0;
  return piece;
}

void FitPath(const std::vector<CVector3>& path, std::vector<CTransformation>& poses,
             const LegLengths& legs) {
  const auto frames = static_cast<int32_t>(poses.size());
  std::array<std::vector<int32_t>, 3> keys;
  std::array<Piece, 3> pieces;
  for (int axis = 0; axis < 3; ++axis) {
    const auto a = static_cast<size_t>(axis);
    keys[a] = KeyFrames(path, axis);
    // The first piece ends at frame 0 and maps frame 0 onto itself.
    pieces[a].source_base = path[0][axis];
    pieces[a].target_base = AxisAt(poses, 0, axis);
  }
  for (int32_t f = 0; f < frames; ++f) {
    for (int axis = 0; axis < 3; ++axis) {
      const Piece& piece = pieces[static_cast<size_t>(axis)];
      const double source = path[static_cast<size_t>(f)][axis];
      SetAxisAt(poses, f, axis, (source - piece.source_base) * piece.factor + piece.target_base);
    }
    for (int axis = 0; axis < 3; ++axis) {
      const auto a = static_cast<size_t>(axis);
      const size_t next = pieces[a].end_key + 1;
      if (keys[a][pieces[a].end_key] != f || next >= keys[a].size()) continue;
      pieces[a] = NextPiece(path, poses, axis, f, keys[a][next], legs, next);
    }
  }
}

// The first frame at which the y of the positions is lowest.
template <typename At>
int32_t LowestFrame(int32_t frames, At y_at) {
  int32_t lowest_frame = 0;
  for (int32_t f = 1; f < frames; ++f) {
    if (y_at(f) < y_at(lowest_frame)) lowest_frame = f;
  }
  return lowest_frame;
}

// The parent of the first free node on the way up from `node` (itself included); 0 when
// the way reaches node 0 (or leaves the hierarchy) first. The walk stops after as many
// steps as there are nodes, whatever shape the parent links have.
int32_t SpineCarrier(const ModelStructure& structure, int32_t node) {
  for (int32_t steps = 0; node > 0 && steps < structure.NumNodes(); ++steps) {
    const StructureNode& entry = structure.nodes[static_cast<size_t>(node)];
    if (entry.type == StructureNodeType::kFree) return entry.parent;
    node = entry.parent;
  }
  return 0;
}

// Target over source bone length of a node, or the leg-length ratio when the source's
// bone has no usable length.
double BoneRatio(const NormalizedMotion& motion, int32_t node, const LegLengths& legs) {
  if (node >= motion.source->NumNodes()) return legs.Ratio();
  const double source = motion.source->Node(node).length;
  const double target = motion.target->Node(node).length;
  if (!std::isfinite(source) || source <= kMinBoneLength || !std::isfinite(target)) {
    return legs.Ratio();
  }
  return target / source;
}

}  // namespace

void FitLimbEndPaths(NormalizedMotion& motion) {
  if (!CanFinish(motion)) return;
  const ModelStructure& structure = *motion.target->structure;
  const LegLengths legs = FinishLegLengths(motion);
  for (int32_t p = 0; p < structure.NumPlanes(); ++p) {
    const StructurePlane& plane = structure.planes[static_cast<size_t>(p)];
    std::vector<CTransformation>& end = motion.global_poses[static_cast<size_t>(plane.span)];
    // Measured for every plane, from the target's own poses, so that a limb end without a
    // source still has a height for AlignOtherFeet to compare with.
    motion.limb_heights[static_cast<size_t>(p)] =
        LimbHeight(motion.global_poses[static_cast<size_t>(plane.anchor_index)], end,
                   motion.target->Node(plane.span).length);
    if (SourceOf(motion, plane.span) < 0) continue;
    FitPath(motion.effector_positions[static_cast<size_t>(p)], end, legs);
  }
}

void AlignOtherFeet(NormalizedMotion& motion) {
  if (!CanFinish(motion)) return;
  const ModelStructure& structure = *motion.target->structure;
  const int32_t frames = motion.frame_count;
  int32_t reference = -1;
  for (int32_t p = 0; p < structure.NumPlanes() && reference < 0; ++p) {
    if (IsGroundedFoot(motion, structure.planes[static_cast<size_t>(p)].span)) reference = p;
  }
  if (reference < 0) return;
  const LegLengths legs = FinishLegLengths(motion);
  const int32_t reference_end = structure.planes[static_cast<size_t>(reference)].span;
  const std::vector<CVector3>& reference_path =
      motion.effector_positions[static_cast<size_t>(reference)];
  const std::vector<CTransformation>& reference_poses =
      motion.global_poses[static_cast<size_t>(reference_end)];
  const int32_t reference_low =
      LowestFrame(frames, [&](int32_t f) { return reference_path[static_cast<size_t>(f)].GetY(); });
  const double foot_ratio = BoneRatio(motion, reference_end, legs);

  std::vector<double> lift(static_cast<size_t>(structure.NumNodes()), 0.0);
  for (int32_t p = 0; p < structure.NumPlanes(); ++p) {
    const StructurePlane& plane = structure.planes[static_cast<size_t>(p)];
    const int32_t end_node = plane.span;
    if (p == reference || !structure.nodes[static_cast<size_t>(end_node)].friction ||
        HasNoFrictionOrFreeAncestor(*motion.target, end_node)) {
      continue;
    }
    std::vector<CTransformation>& end = motion.global_poses[static_cast<size_t>(end_node)];
    const std::vector<CVector3>& path = motion.effector_positions[static_cast<size_t>(p)];
    const int32_t low = LowestFrame(frames, [&](int32_t f) { return AxisAt(end, f, 1); });
    const double source_gap = path[static_cast<size_t>(low)].GetY() -
                              reference_path[static_cast<size_t>(reference_low)].GetY();
    const double target_gap = AxisAt(end, low, 1) - AxisAt(reference_poses, reference_low, 1);
    AddHeight(end, foot_ratio * source_gap - target_gap);

    const int32_t carrier = SpineCarrier(structure, end_node);
    if (carrier <= 0) continue;
    const double height =
        LimbHeight(motion.global_poses[static_cast<size_t>(plane.anchor_index)], end, -1.0);
    const double candidate = motion.limb_heights[static_cast<size_t>(p)] - height;
    double& carrier_lift = lift[static_cast<size_t>(carrier)];
    if (carrier_lift == 0.0 || candidate < carrier_lift) carrier_lift = candidate;
  }

  double reference_lowest = std::numeric_limits<double>::max();
  double source_lowest = std::numeric_limits<double>::max();
  for (int32_t f = 0; f < frames; ++f) {
    reference_lowest = std::min(reference_lowest, AxisAt(reference_poses, f, 1));
    source_lowest = std::min(source_lowest, reference_path[static_cast<size_t>(f)].GetY());
  }
  const double ground = legs.target * source_lowest / legs.source - reference_lowest;
  for (size_t i = 0; i < lift.size(); ++i) {
    if (lift[i] > 0.0) AddHeight(motion.global_poses[i], lift[i]);
  }
  for (std::vector<CTransformation>& poses : motion.global_poses) AddHeight(poses, ground);
}

}  // namespace kavor
