// The pose of one frame of a character, read into its RetargetModel.
#pragma once

#include "kavor/maps/retarget_model.h"

namespace kavor {

// Every node's global_pose at `time` (frames; kCurrentTime = the current frame) and its
// local_pose relative to its structure parent.
//
// For a rig, a node's pose is its object's transform in the model's space (or, with
// `use_extraction`, its extraction object's) with unit scaling, and its rotation rebuilt
// as a proper rotation from the object's axes: the axes that the tag's align and roll
// directions point along most are kept and the third is their cross product, so that
// a scaled, sheared or mirrored object still gives a rotation whose align and roll axes
// follow the object. An untagged node's pose is the identity.
//
// For a capture skeleton, the joints are posed at the sample `time` truncated to an integer
// (0 is the first sample) and each bound node takes its joint's global transform with unit
// scaling. A time past the samples, before them or kCurrentTime keeps the joints' last
// pose (for a skeleton not posed yet: the pose its reader set up).
void ComputePose(RetargetModel& model, double time, bool use_extraction);

// local_pose of every node from the global poses: node 0 keeps its global pose, the others
// are expressed in their structure parent's frame.
void ComputeLocalPoses(RetargetModel& model);

}  // namespace kavor
