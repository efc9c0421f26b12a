// Filling the limb up-vectors of frames where a limb was straight: a straight limb spans no
// plane, so the transfer stored a zero vector there, and the limb solve needs a bend
// direction in every frame.
#include <vector>

#include "kavor/motion/finish.h"

namespace kavor {

namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

// Stored up-vectors are unit or zero; anything shorter than this is not a direction.
constexpr double kDefinedLengthSquared = 0.5 * 0.5;
// Blends shorter than this come from (nearly) opposite vectors and have no direction.
constexpr double kMinBlendLength = 1e-6;

// Written so that a non-finite entry counts as undefined too.
bool IsDefined(const CVector3& v) { return v.GetLengthSquared() >= kDefinedLengthSquared; }

// Frames `first` to `end` - 1 between the defined frames `first` - 1 and `end`.
void Interpolate(std::vector<CVector3>& ups, size_t first, size_t end) {
  const CVector3 before = ups[first - 1];
  const CVector3 after = ups[end];
  const auto span = static_cast<double>(end - first + 1);
  for (size_t r = first; r < end; ++r) {
    const double t = static_cast<double>(r - first + 1) / span;
    CVector3 blend = before * (1.0 - t) + after * t;
    // The plane flips over here; keeping the previous frame's normal is as good a guess
    // as any and stays a direction.
    if (!blend.NormalizeInPlace(kMinBlendLength)) blend = ups[r - 1];
    ups[r] = blend;
  }
}

// Frames 0 to `end` - 1 before the first defined frame `end`: that frame's up-vector kept
// fixed in the anchor's frame, so that it turns with the anchor.
void CarryAlongAnchor(std::vector<CVector3>& ups, const std::vector<CTransformation>& anchor,
                      size_t end) {
  const CQuaternion at_end = anchor[end].GetRotationQuaternion();
  const CVector3 in_anchor = at_end.Conjugate().Rotate(ups[end]);
  for (size_t r = 0; r < end; ++r) ups[r] = anchor[r].GetRotationQuaternion().Rotate(in_anchor);
}

void FillPlane(std::vector<CVector3>& ups, const std::vector<CTransformation>& anchor) {
  bool open = false;  // a run of undefined frames is open from run_start
  size_t run_start = 0;
  for (size_t f = 0; f < ups.size(); ++f) {
    if (!IsDefined(ups[f])) {
      if (!open) run_start = f;
      open = true;
      continue;
    }
    if (open && run_start == 0) CarryAlongAnchor(ups, anchor, f);
    if (open && run_start > 0) Interpolate(ups, run_start, f);
    open = false;
  }
  // A run to the last frame keeps the last defined value; one that is the whole motion
  // has none and stays as it is.
  if (open && run_start > 0) {
    for (size_t r = run_start; r < ups.size(); ++r) ups[r] = ups[run_start - 1];
  }
}

}  // namespace

void FillUpVectors(NormalizedMotion& motion) {
  if (!CanFinish(motion)) return;
  const ModelStructure& structure = *motion.target->structure;
  for (int32_t p = 0; p < structure.NumPlanes(); ++p) {
    const int32_t anchor = structure.planes[static_cast<size_t>(p)].anchor_index;
    FillPlane(motion.up_vectors[static_cast<size_t>(p)],
              motion.global_poses[static_cast<size_t>(anchor)]);
  }
}

}  // namespace kavor
