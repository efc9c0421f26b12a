#include "kavor/structure/model_structure.h"

#include <cmath>

#include "kavor/structure/name_rules.h"

namespace kavor {
namespace {

bool StartsWithNoCase(std::string_view name, std::string_view prefix) {
  return name.size() >= prefix.size() && EqualNoCase(name.substr(0, prefix.size()), prefix);
}

bool IsFinite(const KRX::MATH::CVector3& v) {
  return std::isfinite(v.GetX()) && std::isfinite(v.GetY()) && std::isfinite(v.GetZ());
}

std::string NodeLabel(const ModelStructure& s, size_t i) {
  return "node " + std::to_string(i) + " (" + s.nodes[i].name + ")";
}

std::string CheckNodes(const ModelStructure& s) {
  const int32_t n = s.NumNodes();
  if (s.nodes.size() > static_cast<size_t>(kMaxStructureNodes)) {
    return "the structure has " + std::to_string(s.nodes.size()) + " nodes, more than " +
           std::to_string(kMaxStructureNodes);
  }
  std::vector<int32_t> depth(s.nodes.size(), 0);
  for (int32_t i = 0; i < n; ++i) {
    const StructureNode& node = s.nodes[i];
    if (node.name.empty()) return "node " + std::to_string(i) + " has no name";
    if (node.parent < -1 || node.parent >= i) {
      return NodeLabel(s, i) + " has the parent " + std::to_string(node.parent) +
             ", which is not an earlier node";
    }
    if (node.offset_parent < -1 || node.offset_parent >= i) {
      return NodeLabel(s, i) + " has the offset parent " + std::to_string(node.offset_parent) +
             ", which is not an earlier node";
    }
    depth[i] = node.parent < 0 ? 0 : depth[node.parent] + 1;
    if (depth[i] > kMaxStructureDepth) {
      return NodeLabel(s, i) + " lies more than " + std::to_string(kMaxStructureDepth) +
             " levels deep";
    }
    const int32_t type = static_cast<int32_t>(node.type);
    if (type < 0 || type > 3)
      return NodeLabel(s, i) + " has the unknown type " + std::to_string(type);
    if (node.friction && node.type != StructureNodeType::kIk) {
      return NodeLabel(s, i) + " is a foot but not the end node of a limb";
    }
    if (node.mirror_index != -1) {
      if (node.mirror_index < 0 || node.mirror_index >= n || node.mirror_index == i ||
          s.nodes[node.mirror_index].mirror_index != i) {
        return NodeLabel(s, i) + " has the mirror " + std::to_string(node.mirror_index) +
               ", which does not mirror it back";
      }
    }
    if (!IsFinite(node.align) || !IsFinite(node.roll) || !IsFinite(node.offset) ||
        !IsFinite(node.rest_position) || !IsFinite(node.min_limits) || !IsFinite(node.max_limits)) {
      return NodeLabel(s, i) + " has a vector that is not finite";
    }
  }
  return {};
}

std::string CheckPlanes(const ModelStructure& s) {
  const int32_t n = s.NumNodes();
  for (size_t p = 0; p < s.planes.size(); ++p) {
    const StructurePlane& plane = s.planes[p];
    const std::string label = "plane " + std::to_string(p) + " (" + plane.name + ")";
    if (plane.anchor_index < 0 || plane.span <= plane.anchor_index || plane.span >= n) {
      return label + " needs 0 <= anchor " + std::to_string(plane.anchor_index) + " < end " +
             std::to_string(plane.span) + " < node count " + std::to_string(n);
    }
    if (plane.mid != plane.anchor_index + 1) {
      return label + " has the middle node " + std::to_string(plane.mid) +
             ", which does not follow its anchor";
    }
    bool chain_ok = plane.chain.size() == static_cast<size_t>(plane.span - plane.anchor_index + 1);
    for (size_t k = 0; chain_ok && k < plane.chain.size(); ++k) {
      chain_ok = plane.chain[k] == plane.span - static_cast<int32_t>(k);
    }
    if (!chain_ok) return label + " has a chain that does not run from its end to its anchor";
  }
  return {};
}

}  // namespace

const std::array<std::string_view, kDecompSlotCount> kDecompSlotNames = {
    "PX", "PY", "PZ", "RX", "RY", "RZ", "RtoP_X", "RtoP_Y", "RtoP_Z"};

int32_t FindNodeIndex(const ModelStructure& structure, std::string_view name) {
  for (size_t i = 0; i < structure.nodes.size(); ++i) {
    if (structure.nodes[i].name == name) return static_cast<int32_t>(i);
  }
  return -1;
}

std::optional<StructureNodeType> NodeTypeFromWord(std::string_view word) {
  if (word == "hip") return StructureNodeType::kHip;
  if (word == "child" || word == "anchor") return StructureNodeType::kChild;
  if (word == "ik" || word == "friction") return StructureNodeType::kIk;
  if (word == "free") return StructureNodeType::kFree;
  return std::nullopt;
}

std::optional<std::string> MirrorNodeName(std::string_view name) {
  if (StartsWithNoCase(name, "left")) return "right" + std::string(name.substr(4));
  if (StartsWithNoCase(name, "right")) return "left" + std::string(name.substr(5));
  if (StartsWithNoCase(name, "l")) return "r" + std::string(name.substr(1));
  if (StartsWithNoCase(name, "r")) return "l" + std::string(name.substr(1));
  return std::nullopt;
}

void AssignMirrors(ModelStructure& structure) {
  std::vector<StructureNode>& nodes = structure.nodes;
  for (size_t i = 0; i < nodes.size(); ++i) {
    // A node paired by an earlier one is skipped. Node 0 (the hip) can be a counterpart
    // only in odd structures; its partner then simply looks again and finds it again.
    if (nodes[i].mirror_index > 0) continue;
    const std::optional<std::string> wanted = MirrorNodeName(nodes[i].name);
    if (!wanted) continue;
    for (size_t j = 0; j < nodes.size(); ++j) {
      if (j != i && EqualNoCase(nodes[j].name, *wanted)) {
        nodes[i].mirror_index = static_cast<int32_t>(j);
        nodes[j].mirror_index = static_cast<int32_t>(i);
        break;
      }
    }
  }
  // Names that differ only in case, or a name like "lightArm" that points at "rightArm"
  // while "rightArm" points at "leftArm", let a later pairing take a node that already had
  // a partner. The last pairing wins; the partner it replaced loses its link.
  for (size_t i = 0; i < nodes.size(); ++i) {
    const int32_t m = nodes[i].mirror_index;
    if (m >= 0 && static_cast<size_t>(m) < nodes.size() &&
        nodes[m].mirror_index != static_cast<int32_t>(i))
      nodes[i].mirror_index = -1;
  }
}

void ComputeRestPositions(ModelStructure& structure) {
  std::vector<StructureNode>& nodes = structure.nodes;
  for (size_t i = 0; i < nodes.size(); ++i) {
    nodes[i].rest_position = nodes[i].offset;
    const int32_t p = nodes[i].offset_parent;
    if (p >= 0 && static_cast<size_t>(p) < i) nodes[i].rest_position += nodes[p].rest_position;
  }
}

std::string CheckModelStructure(const ModelStructure& structure) {
  std::string problem = CheckNodes(structure);
  if (problem.empty()) problem = CheckPlanes(structure);
  return problem;
}

}  // namespace kavor
