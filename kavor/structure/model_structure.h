// ModelStructure: the abstract skeleton that every rig is tagged against.
//
// A structure is an ordered set of named nodes with a parent hierarchy (parents come
// before their children; node 0 is the hip node), each with an align and a roll direction
// describing the structure's rest pose in world space, a rest offset and rotation limits;
// plus the limb planes (anchor, middle and end node of each two-bone chain) and the
// decomposed nodes whose channels are split over several controls. Node order is the index
// space of every per-node array in the plug-in.
//
// Structures are read from ".structure" files (structure_parser.h), stored on models and
// read back from them. The structure owns everything it holds and is freely copyable: the
// binding of a source to a target edits a copy's parent links.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "krx/math.h"

namespace kavor {

// Upper bounds that every reader enforces: the largest node count and the deepest parent
// chain (node 0 at depth 0) a structure may have.
inline constexpr int32_t kMaxStructureNodes = 512;
inline constexpr int32_t kMaxStructureDepth = 256;

// Node kinds. The values are stored on models and in motion files: be careful when
// changing them.
enum class StructureNodeType : int32_t {
  kHip = 0,    // "hip"
  kChild = 1,  // "child" and "anchor"
  kIk = 2,     // "ik" and "friction": the end node of a limb plane
  kFree = 3,   // "free": a spine node
};

struct StructureNode {
  int32_t parent = -1;         // parent node index; -1 for none
  int32_t mirror_index = -1;   // left/right counterpart; -1 for none
  int32_t offset_parent = -1;  // node that `offset` is measured from; -1 for the world
  std::string name;
  KRX::MATH::CVector3 align;  // rest align direction, world space
  KRX::MATH::CVector3 roll;   // rest roll direction, world space
  StructureNodeType type = StructureNodeType::kChild;
  bool friction = false;              // a foot: only for "friction" nodes
  bool obj_is_valid = false;          // only in structures read from motion files
  KRX::MATH::CVector3 offset;         // rest offset from the offset parent, as written
  KRX::MATH::CVector3 rest_position;  // offsets accumulated along the offset parents
  KRX::MATH::CVector3 min_limits;     // radians
  KRX::MATH::CVector3 max_limits;     // radians; below min_limits means "no limit"
};

// A limb plane: the two-bone chain from the anchor node through the middle node
// (anchor_index + 1) to the end node (span).
struct StructurePlane {
  std::string name;  // name of the middle node
  int32_t anchor_index = -1;
  int32_t mid = -1;
  int32_t span = -1;
  std::vector<int32_t> chain;  // span, span - 1, ..., anchor_index
};

// One node entry of a group as written in the file. Limits are in degrees; a lower limit
// above the upper one means that the node has no limit.
struct StructureGroupNode {
  std::string name;
  std::string type;  // the type word: "hip", "child", "anchor", "ik", "friction", "free"
  KRX::MATH::CVector3 align;
  KRX::MATH::CVector3 roll;
  KRX::MATH::CVector3 offset;
  KRX::MATH::CVector3 min_limits{1.0, 1.0, 1.0};
  KRX::MATH::CVector3 max_limits{-1.0, -1.0, -1.0};
};

struct StructureGroup {
  std::string name;
  std::string parent;  // "world" or the name of a node defined in an earlier group
  std::vector<StructureGroupNode> nodes;
};

// The nine channel slots of a decomposed node, in file order. The values index
// StructureDecomp::slots and give channel bit numbers: be careful when changing them.
enum DecompSlot : int {
  kDecompPX = 0,
  kDecompPY,
  kDecompPZ,
  kDecompRX,
  kDecompRY,
  kDecompRZ,
  kDecompRtoPX,
  kDecompRtoPY,
  kDecompRtoPZ,
  kDecompSlotCount,
};
// Slot names as tables and pages label them: "PX", ..., "RtoP_Z".
extern const std::array<std::string_view, kDecompSlotCount> kDecompSlotNames;

// A decompose block: which sub-control drives each channel of one node.
struct StructureDecomp {
  std::string name;                                 // the block name
  std::string src_name;                             // the decomposed node
  std::array<std::string, kDecompSlotCount> slots;  // sub-control per slot; empty: unused
  std::vector<std::string> channels;  // the distinct sub-control names, first use first
};

struct ModelStructure {
  std::vector<StructureNode> nodes;
  std::vector<StructurePlane> planes;
  std::string type;    // the base file name: structures of one type share their node names
  std::string source;  // the structure name that was parsed (no folder, no extension)
  std::vector<StructureGroup> base_groups;  // groups of the base file, in file order
  std::vector<StructureGroup> groups;       // groups of the structure file, in file order
  std::vector<StructureDecomp> decomps;

  int32_t NumNodes() const { return static_cast<int32_t>(nodes.size()); }
  int32_t NumPlanes() const { return static_cast<int32_t>(planes.size()); }
};

// Index of the first node named exactly `name` (case counts); -1 when there is none.
int32_t FindNodeIndex(const ModelStructure& structure, std::string_view name);

// The node type of a type word, or nothing for an unknown word (exact case).
std::optional<StructureNodeType> NodeTypeFromWord(std::string_view word);

// The name of a node's left/right counterpart: "left"/"right" (any case) as the first four
// or five characters swap with each other, otherwise a first "l"/"r" (either case) swaps
// with a lower-case "r"/"l"; nothing when the name starts with neither.
std::optional<std::string> MirrorNodeName(std::string_view name);

// Pairs nodes with their counterparts (MirrorNodeName, names compared without regard to
// case), in node order. Every mirror_index ends symmetric: a node whose counterpart was
// taken over by a later pairing goes back to -1.
void AssignMirrors(ModelStructure& structure);

// rest_position of every node from the offsets along the offset parents. Offset parents
// must come before their nodes.
void ComputeRestPositions(ModelStructure& structure);

// Checks the invariants that the rest of the plug-in relies on, for a structure as it was
// read (from a file, a model or a motion file, before any binding edits it): node count and
// depth within the bounds above; every node named (names may repeat: a look-up by name
// finds the first); parent and offset parent -1 or an earlier node; known types; mirrors in
// range and symmetric; finite vectors; planes with anchor_index < span < node count,
// mid = anchor_index + 1 <= span and the chain running from span down to anchor_index.
// Returns what is wrong, or empty text.
[[nodiscard]] std::string CheckModelStructure(const ModelStructure& structure);

}  // namespace kavor
