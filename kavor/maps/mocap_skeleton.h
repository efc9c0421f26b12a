// A capture skeleton as the capture readers (BVH, C3D fitting) hand it to retargeting:
// joints in parent-first order with their samples per frame, and the pose of the frame
// last computed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "krx/math.h"

namespace kavor {

struct MocapJoint {
  std::string name;
  int32_t parent = -1;     // index of the parent joint, -1 for a root; parents come first
  bool tagged = false;     // a template tag named this joint
  std::string node_name;   // the structure node the tag assigned
  KRX::MATH::CVector3 align;  // tag directions, in the joint's local frame
  KRX::MATH::CVector3 roll;
  // Local samples per frame; a frame past the end keeps the last pose computed.
  std::vector<KRX::MATH::CVector3> translations;
  std::vector<KRX::MATH::CQuaternion> rotations;
  KRX::MATH::CTransformation local;
  KRX::MATH::CTransformation global;
};

struct MocapSkeleton {
  std::vector<MocapJoint> joints;
  int32_t frame_count = 0;
};

// The joints' local and global transforms at `frame` (0-based): each joint's local from its
// sample (rotation normalised), global = local composed with the parent's global. Joints
// without a sample for that frame keep their transforms.
void PoseSkeleton(MocapSkeleton& skeleton, int32_t frame);

}  // namespace kavor
