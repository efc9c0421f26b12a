// The ".kavor" motion file: the normalized motion of a tagged rig, kept so that it can be
// applied later to any rig tagged with a structure of the same type.
//
// A file holds the frame count, leg length and hip offset, an outline of the rig's
// structure (node names, whether the rig had an object for each node, rest lengths,
// limb planes), one normalized global transform per frame and node, and the key times of
// the rig's own function curves, which plotting uses to keep the source's keys.
//
// Files are written as XML:
//   ROOT
//     HEADER        text "KAVOR file Saved out from Zorvane using KAVOR", then the child
//                   elements VERSION, AnimationLength, legLength, hipOffset, numNodes,
//                   numPlanes and structure_type, each holding its value as text
//     NODES         one NODE per node: obj_IsValid ("true"/"false"), name, length
//     PLANES        one PLANE per plane: name, span, mid, anchor_index, numbones, with one
//                   Bone child (boneindex) per chain entry
//     POSE_VALUES   one POSE (time) per frame, with one NODE per node: name (the rig
//                   object), global (transformation text, see xml_values.h), id
//     FCURVE_KEYS   num_nodes_with_fcurve_keys; one NODE (name) per curve record holding a
//                   CURVE (name = channel, numkeys) per function-curve channel, with one
//                   KEY (keytime, relative to the first frame) per selected key time
// An older whitespace-separated text form starting with the word "NormMotion5.0" is still
// read (ReadKavorText describes it). Element and attribute names are stored in files: be
// careful when changing them.
//
// Files come from users and are untrusted: every count is checked against the bounds
// below and against what the file really holds before anything is allocated, and every
// index is checked against the node count.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kavor/maps/retarget_model.h"
#include "kavor/structure/model_structure.h"
#include "krx/krx.h"

namespace kavor {

// The largest frame count a motion file may hold, and the largest number of stored
// transforms (frames x nodes, 80 bytes each: about 670 MB at the limit).
inline constexpr int64_t kMaxMotionFrames = 1'000'000;
inline constexpr int64_t kMaxMotionPoses = int64_t{1} << 23;
// The most key times a motion file may hold over all its curve key records.
inline constexpr int64_t kMaxCurveKeys = int64_t{1} << 24;

// The channel names of a curve key record, in CurveKeyRecord::channels order. Stored in
// files: be careful when changing them.
inline constexpr std::array<std::string_view, 6> kCurveChannelNames = {"posx", "posy", "posz",
                                                                       "rotx", "roty", "rotz"};

// A motion read from a file: the structure outline the file carries and the model-less
// RetargetModel bound to it, which serves as a motion source (its `poses`, `frame_count`,
// `leg_length`, `hip_offset`, `curves` and each node's `length` are filled). The record
// owns both; the structure is held by pointer so that the RetargetModel's pointer to it
// stays valid when the record moves. Of the structure only the node names, `obj_is_valid`,
// the type name and the planes are filled; every node's parent is -1.
struct KavorMotion {
  std::unique_ptr<ModelStructure> structure;
  std::unique_ptr<RetargetModel> model;
};

// ---- key times ----

// How a key lying exactly on the first frame, after keys before it, is listed.
enum class KeyOnFirstFrame {
  // The start boundary 0 and then the key's own time 0: two entries, as for a key after
  // the first frame.
  kBoundaryAndKey,
  // One entry 0: the key is the boundary itself, so a plot keeps one key there, not two.
  kKeyIsBoundary,
};

// The key times that one function curve contributes to a motion of frames `first` to
// `last`, relative to `first`. `key_times` are the curve's key times in increasing order;
// keys are taken in order:
//  - a key inside [first, last] gives its time; before it comes the start boundary 0 when
//    the key is the curve's first key and lies after `first`, or when the key before it
//    lies before `first` (`on_first` tells what a key on `first` gives then);
//  - the first key after `last` gives the end boundary last - first when there is a key
//    before it that lies before `last`; nothing after it is taken;
//  - a key before `first` gives nothing.
// So a curve keyed at 1, 5 and 20 over frames 3 to 10 gives 0, 2 and 7, and one keyed at
// 2, 3 and 5 gives 0, 0 and 2 (kKeyIsBoundary: 0 and 2).
std::vector<double> SelectKeyTimes(std::span<const double> key_times, double first, double last,
                                   KeyOnFirstFrame on_first = KeyOnFirstFrame::kBoundaryAndKey);

// ---- curve key records ----

// One rig object's curve key record and which of its six channels a function curve drives
// (a driven channel whose keys all lie outside the range is still written, with no keys).
struct ObjectCurveKeys {
  CurveKeyRecord record;
  std::array<bool, 6> driven{};
};

// True when the object follows another one: it has a constraint named "Position Cns" or
// "Orientation Cns" with exactly one constraining object, and following such constraints
// from object to object ends at another object (a loop counts as constrained).
bool IsConstrained(const KRX::X3DObject& object);

// The curve key records of a rig for frames `start` to `end`, in this order: one for the
// object of each node that has one, under the node's name; then, for each plane whose
// anchor node's object is a chain bone with an up-vector reference, one for that reference
// under the plane's name followed by "_Up_Vector_Node_Tag_TRVL". Constrained objects get
// no record. Channels are the object's local posx .. rotz; key times follow SelectKeyTimes.
std::vector<ObjectCurveKeys> GatherCurveKeys(
    const RetargetModel& source, int32_t start, int32_t end,
    KeyOnFirstFrame on_first = KeyOnFirstFrame::kBoundaryAndKey);

// Replaces source.curves with the records GatherCurveKeys gives. The motion file writer
// writes these same records (it leaves them all out for a model that carries an
// adjustment page, which this function does not look at).
void CollectCurveKeys(RetargetModel& source, int32_t start, int32_t end,
                      KeyOnFirstFrame on_first = KeyOnFirstFrame::kBoundaryAndKey);

// ---- writing ----

// Writes the motion of `source`, a RetargetModel bound to a rig whose model map has been
// read, for the frames `start` to `end` (both included), as an XML motion file at `path`.
// Each frame's poses are read with the extraction objects and normalized. When the model
// carries its model map, limbs that fall short of their rest length are stretched back to
// it, except planted feet (a foot with no limb end or spine node above it); instead, the
// rest of the character is lifted by as much as the planted leg fell short on the frame
// where a foot hangs deepest below its hip, so the body keeps its proportions while the
// feet stay on the ground. The scene's current frame moves through the range and is put
// back. The curve key records take `on_first` for keys on the start frame. False (with a
// logged or shown message) for a source that is not a rig, an empty or outsized range, or
// a file that cannot be written.
bool WriteKavorFile(RetargetModel& source, const KRX::CString& path, int32_t start, int32_t end,
                    KeyOnFirstFrame on_first = KeyOnFirstFrame::kBoundaryAndKey);

// ---- reading ----

// Reads an XML motion file into `motion`. False when the file does not parse or has no
// HEADER, or when a count is out of bounds: node count 1 .. kMaxStructureNodes, plane count
// 0 .. kMaxStructureNodes, frame count 0 .. kMaxMotionFrames and frames x nodes up to
// kMaxMotionPoses. Missing elements and attributes, values that are not numbers, indices
// outside the node table (read as -1), counts larger than the elements present (only the
// elements present are read), more curve key records than nodes and planes together or
// more than kMaxCurveKeys key times (the rest is left out) are collected as errors and
// shown in one warning when the document closes; the reader then still returns true. Past
// a hundred errors the rest of the poses and keys is not read. Elements of POSE_VALUES and
// FCURVE_KEYS are taken by position, not by name. `motion` is replaced only on success.
bool ReadKavorXml(KavorMotion& motion, const KRX::CString& path);
// The same over bytes already read; `path` names the file in messages.
bool ParseKavorXml(KavorMotion& motion, const KRX::CString& path, std::string_view bytes);

// Reads a motion file in the older text form into `motion`. The text is words and numbers
// separated by blanks:
//   NormMotion5.0
//   frames legLength hipOffset nodes planes structureType
//   per node:   validity ("v": the rig had an object) name length
//   per plane:  name span mid anchor boneCount boneIndex...
//   per frame, per node: rotation about x, y, z (radians, XYZ order), translation x, y, z
//   records, then per record: name, then channel blocks "posx" count time... while the
//   next word is a channel name
// A leading UTF-8 byte order mark is skipped. An empty file gives false without a message;
// a wrong first word is logged, followed by "Can't parse the Kavor file."; anything else
// that does not read (a missing or malformed value, a count out of the bounds above or
// larger than the bytes left could hold, an index outside the node table, more records than
// nodes and planes together) logs what and where, then the same line, and gives false. A
// file that ends where the record count would start has no records. `motion` is replaced
// only on success.
bool ReadKavorText(KavorMotion& motion, const KRX::CString& path);
// The same over text already read.
bool ParseKavorText(KavorMotion& motion, std::string_view text);

// Reads a motion file in either form (IsXmlFile chooses). Null when the reader fails.
std::unique_ptr<KavorMotion> ReadKavorMotionFile(const KRX::CString& path);

// A new, empty motion of that shape: a structure of `num_nodes` unnamed nodes and
// `num_planes` planes of type `type`, and a model-less RetargetModel on it. The readers
// build on it; the counts must already be within bounds.
KavorMotion MakeKavorMotion(int32_t num_nodes, int32_t num_planes, std::string type);

}  // namespace kavor
