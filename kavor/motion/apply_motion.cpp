#include "kavor/motion/apply_motion.h"

#include <algorithm>
#include <climits>

#include "kavor/io/progress_bar.h"
#include "kavor/maps/mocap_skeleton.h"
#include "kavor/motion/extraction.h"
#include "kavor/motion/finish.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/play_control.h"

namespace kavor {

namespace {

// Extracts `frames` source frames (source time = first + f) into a finished motion and
// hands it over.
bool ExtractAll(RetargetModel& target, RetargetModel& source, GlueMap& glue, int32_t frames,
                const KRX::CString& caption, int32_t insertion_frame,
                const MotionHandOver& hand_over, const ExtractOptions& options) {
  NormalizedMotion motion(frames, &target, &source);
  {
    ScopedProgressBar progress(caption, frames);
    for (int32_t f = 0; f < frames; ++f) {
      ExtractFrame(target, source, f, options);
      motion.StoreFrame(f);
      progress.Increment();
    }
  }
  Finish(motion, options.contact_blend);
  return !hand_over || hand_over(glue, motion, insertion_frame);
}

}  // namespace

bool ApplyRigMotion(RetargetModel& target, RetargetModel& source, GlueMap& glue, int32_t first,
                    int32_t end, const MotionHandOver& hand_over, const ExtractOptions& options) {
  if (!BindSource(target, source, glue)) return false;
  const int32_t frames = end > first ? end - first : 0;
  NormalizedMotion motion(frames, &target, &source);
  const double current = CurrentFrame();
  {
    ScopedProgressBar progress(L"Processing FCurves ...", frames);
    for (int32_t f = first; f < end; ++f) {
      SetCurrentFrame(f);
      RefreshModel(source.model);
      ExtractFrame(target, source, f, options);
      motion.StoreFrame(f - first);
      progress.Increment();
    }
  }
  SetCurrentFrame(current);
  RefreshModel(source.model);
  Finish(motion, options.contact_blend);
  CollectCurveKeys(source, first, end - 1);
  const bool handed = !hand_over || hand_over(glue, motion, first);
  RefreshModel(target.model);
  return handed;
}

bool ApplyFileMotion(RetargetModel& target, RetargetModel& source, GlueMap& glue,
                     int32_t insertion_frame, const MotionHandOver& hand_over,
                     const ExtractOptions& options) {
  if (source.poses.empty()) return false;
  if (!BindSource(target, source, glue)) return false;
  const bool handed = ExtractAll(target, source, glue, source.frame_count,
                                 L"Processing KAVOR Data ...", insertion_frame, hand_over, options);
  RestoreModelTransforms(target, source);
  RefreshModel(target.model);
  return handed;
}

bool ApplyMocapMotion(RetargetModel& target, RetargetModel& source, GlueMap& glue,
                      const MotionHandOver& hand_over, const ExtractOptions& options) {
  if (!source.skeleton) return false;
  if (!BindSource(target, source, glue)) return false;
  size_t samples = 0;
  if (!source.skeleton->joints.empty()) {
    const MocapJoint& first = source.skeleton->joints[0];
    samples = std::max(first.rotations.size(), first.translations.size());
  }
  const auto frames = static_cast<int32_t>(std::min<size_t>(samples, INT_MAX));
  const bool handed =
      ExtractAll(target, source, glue, frames, L"Processing Mocap Data ...", 1, hand_over, options);
  RestoreModelTransforms(target, source);
  RefreshModel(target.model);
  return handed;
}

}  // namespace kavor
