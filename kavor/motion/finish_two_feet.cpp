// The finishing path of characters with at most two feet: foot heights, then contacts.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "kavor/motion/finish.h"

namespace kavor {

namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

// A source limb end that moves by less than this share of its bone length in a frame,
// along one axis, stands still along that axis.
constexpr double kContactStepShare = 0.005;
// The most frames over which a limb end blends back onto its own path after a contact.
constexpr int32_t kBlendFrames = 4;

// Positions to per-frame steps in place: frame 0 a zero step, frame f the move from f - 1.
void ToSteps(std::vector<CVector3>& path) {
  for (size_t f = path.size(); f-- > 1;) path[f] -= path[f - 1];
  if (!path.empty()) path[0] = CVector3();
}

// Moves the limb end back onto the segment from the anchor of length `reach` when it lies
// farther out; a limb end on its anchor has no direction and stays.
void PullWithinReach(CTransformation& end, const CVector3& anchor, double reach) {
  const CVector3 offset = end.GetTranslation() - anchor;
  const double distance = offset.GetLength();
  const double limit = std::max(reach, 0.0);
  if (distance <= limit || distance <= 0.0) return;
  end.SetTranslation(anchor + offset * (limit / distance));
}

// The frames `first` to `end` - 1 of one axis follow the source's steps, scaled, from the
// value of the frame before the run (`first` >= 1).
void Reintegrate(std::vector<CTransformation>& poses, const std::vector<CVector3>& steps, int axis,
                 int32_t first, int32_t end, double ratio) {
  for (int32_t r = first; r < end; ++r) {
    const double step = steps[static_cast<size_t>(r)][axis];
    SetAxisAt(poses, r, axis, AxisAt(poses, r - 1, axis) + ratio * step);
  }
}

// Frames `from` to `from` + count - 1 of one axis go back onto the limb end's own path,
// each kept within reach of the anchor: in a straight line from the value before `from` to
// the value of the last of them, or, blending the drift only, along the own path plus the
// drift `drift` (the value before `from` less its own value there) fading out.
void BlendBack(std::vector<CTransformation>& poses, const std::vector<CTransformation>& anchor,
               int axis, int32_t from, int32_t count, double reach, ContactBlendRule blend,
               double drift) {
  const double start = AxisAt(poses, from - 1, axis);
  const double goal = AxisAt(poses, from + count - 1, axis);
  for (int32_t r = from; r < from + count; ++r) {
    const double t = static_cast<double>(r - from + 1) / static_cast<double>(count);
    const double value = blend == ContactBlendRule::kDriftOnly
                             ? AxisAt(poses, r, axis) + (1.0 - t) * drift
                             : start + t * (goal - start);
    SetAxisAt(poses, r, axis, value);
    const auto frame = static_cast<size_t>(r);
    PullWithinReach(poses[frame], anchor[frame].GetTranslation(), reach);
  }
}

}  // namespace

void SetFootHeights(NormalizedMotion& motion) {
  if (!CanFinish(motion)) return;
  const double ratio = FinishLegLengths(motion).Ratio();
  const ModelStructure& structure = *motion.target->structure;
  for (int32_t j = 0; j < structure.NumPlanes(); ++j) {
    const int32_t effector = structure.planes[static_cast<size_t>(j)].span;
    // A foot without a source has no source height: it keeps the height the transfer gave
    // it instead of being dropped to the zero path stored for it.
    if (!IsGroundedFoot(motion, effector) || SourceOf(motion, effector) < 0) continue;
    std::vector<CTransformation>& poses = motion.global_poses[static_cast<size_t>(effector)];
    const std::vector<CVector3>& path = motion.effector_positions[static_cast<size_t>(j)];
    for (int32_t f = 0; f < motion.frame_count; ++f) {
      SetAxisAt(poses, f, 1, ratio * path[static_cast<size_t>(f)].GetY());
    }
  }
}

void ProcessContacts(NormalizedMotion& motion, ContactBlendRule blend) {
  if (!CanFinish(motion)) return;
  const ModelStructure& structure = *motion.target->structure;
  const int32_t frames = motion.frame_count;
  for (int32_t j = 0; j < structure.NumPlanes(); ++j) {
    if (SourceOf(motion, structure.planes[static_cast<size_t>(j)].span) < 0) continue;
    ToSteps(motion.effector_positions[static_cast<size_t>(j)]);
  }
  const double ratio = FinishLegLengths(motion).Ratio();
  for (int32_t j = 0; j < structure.NumPlanes(); ++j) {
    const StructurePlane& plane = structure.planes[static_cast<size_t>(j)];
    const int32_t source = SourceOf(motion, plane.span);
    if (source < 0) continue;
    const double threshold = kContactStepShare * motion.source->Node(source).length;
    const double reach = motion.target->Node(plane.span).length;
    std::vector<CTransformation>& poses = motion.global_poses[static_cast<size_t>(plane.span)];
    const std::vector<CTransformation>& anchor =
        motion.global_poses[static_cast<size_t>(plane.anchor_index)];
    const std::vector<CVector3>& steps = motion.effector_positions[static_cast<size_t>(j)];
    // First frame of the open contact run of each axis; -1 when none is open.
    std::array<int32_t, 3> run_start = {-1, -1, -1};
    // One frame past the end, where no step is read: a contact still open there is closed
    // by the re-integration alone, with nothing left to blend into.
    for (int32_t f = 1; f <= frames; ++f) {
      for (int axis = 0; axis < 3; ++axis) {
        int32_t& start = run_start[static_cast<size_t>(axis)];
        if (f < frames && std::abs(steps[static_cast<size_t>(f)][axis]) < threshold) {
          if (start < 0) start = f;
          continue;
        }
        if (start < 0) continue;
        const double own = AxisAt(poses, f - 1, axis);
        Reintegrate(poses, steps, axis, start, f, ratio);
        if (f < frames) {
          BlendBack(poses, anchor, axis, f, std::min(kBlendFrames, frames - f), reach, blend,
                    AxisAt(poses, f - 1, axis) - own);
        }
        start = -1;
      }
    }
  }
}

}  // namespace kavor
