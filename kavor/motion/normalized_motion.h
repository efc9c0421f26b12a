// NormalizedMotion: the retargeted motion of one target character, frame by frame.
//
// An extraction flow binds a source to a target, then for every frame transfers the source
// pose onto the target's RetargetModel and stores the target's poses here. The finishing
// stage (finish.h) then fits the feet and fills undefined limb up-vectors, in place, before
// the operators take the motion over. All arrays are sized once, when the motion is built.
#pragma once

#include <cstdint>
#include <vector>

#include "kavor/maps/retarget_model.h"
#include "krx/math.h"

namespace kavor {

class NormalizedMotion {
 public:
  // Arrays for `frame_count` frames of every node and plane of the target's structure:
  // identity transforms and zero vectors.
  NormalizedMotion(int32_t frame_count, RetargetModel* target, RetargetModel* source);

  // Copies the target's current poses and up-vectors into frame `frame`, and the source
  // position of every plane's end effector that has a source. A frame outside the motion
  // is ignored.
  void StoreFrame(int32_t frame);

  int32_t NumNodes() const { return static_cast<int32_t>(global_poses.size()); }
  int32_t NumPlanes() const { return static_cast<int32_t>(up_vectors.size()); }

  int32_t frame_count = 0;
  // [node][frame]: the target node's global and local pose after each frame's transfer.
  std::vector<std::vector<KRX::MATH::CTransformation>> global_poses;
  std::vector<std::vector<KRX::MATH::CTransformation>> local_poses;
  // [plane][frame]: the limb plane's normal; zero where the limb was straight.
  std::vector<std::vector<KRX::MATH::CVector3>> up_vectors;
  // [plane][frame]: global position of the source node driving the plane's end effector.
  std::vector<std::vector<KRX::MATH::CVector3>> effector_positions;
  RetargetModel* target = nullptr;  // not owned
  RetargetModel* source = nullptr;  // not owned
  // [plane]: the largest vertical offset of the end effector from the IK anchor.
  std::vector<double> limb_heights;
};

}  // namespace kavor
