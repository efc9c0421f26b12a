#include "kavor/structure/structure_parser.h"

#include <unordered_set>

#include "kavor/structure/name_rules.h"
#include "kavor/structure/structure_reader.h"
#include "kavor/structure/tokenizer.h"

namespace kavor {
namespace {

// Limits are written in degrees.
constexpr double kRadiansPerDegree = 0.017453292519943295;

StructureParseResult Fail(std::string message) {
  return StructureParseResult{nullptr, std::move(message)};
}

bool IsLimbEndWord(std::string_view type) { return type == "ik" || type == "friction"; }

std::string At(std::string_view label, int line, const std::string& problem) {
  return std::string(label) + " line " + std::to_string(line) + ": " + problem;
}

// Every "ik" or "friction" entry needs an anchor and a middle node before it in its group.
// Returns the message for the first entry that has not, and counts the planes.
std::string CheckLimbEnds(const std::vector<ReadGroup>& groups, std::string_view label,
                          int32_t& plane_count) {
  plane_count = 0;
  for (const ReadGroup& read : groups) {
    bool has_anchor = false;
    for (size_t e = 0; e < read.group.nodes.size(); ++e) {
      const StructureGroupNode& entry = read.group.nodes[e];
      if (entry.type == "anchor") has_anchor = true;
      if (!IsLimbEndWord(entry.type)) continue;
      if (e < 2) return "the ik node " + entry.name + " is missing an anchor or midjoint";
      if (!has_anchor) {
        return At(label, read.entry_lines[e],
                  "the ik node " + entry.name + " has no anchor node before it in the " +
                      read.group.name + " group");
      }
      ++plane_count;
    }
  }
  return {};
}

// Nodes and planes from the groups, in order (see structure_parser.h).
std::string BuildNodes(const std::vector<ReadGroup>& groups, ModelStructure& s) {
  int32_t k = 0;
  for (const ReadGroup& read : groups) {
    const StructureGroup& group = read.group;
    int32_t anchor = -1;
    for (size_t e = 0; e < group.nodes.size(); ++e, ++k) {
      const StructureGroupNode& entry = group.nodes[e];
      StructureNode& node = s.nodes[k];
      node.name = entry.name;
      if (e > 0) {
        node.parent = k - 1;
      } else if (group.parent != "world") {
        node.parent = -1;
        for (int32_t j = 0; j < k && node.parent < 0; ++j) {
          if (s.nodes[j].name == group.parent) node.parent = j;
        }
        if (node.parent < 0) {
          return "group parent node " + group.parent + " must be defined before the " + group.name +
                 " group";
        }
      }
      node.offset_parent = node.parent;
      node.align = entry.align;
      node.roll = entry.roll;
      node.offset = entry.offset;
      node.min_limits = entry.min_limits * kRadiansPerDegree;
      node.max_limits = entry.max_limits * kRadiansPerDegree;
      node.type = *NodeTypeFromWord(entry.type);
      node.friction = entry.type == "friction";
      if (entry.type == "anchor") anchor = k;
      if (IsLimbEndWord(entry.type) && anchor >= 0) {
        StructurePlane plane;
        plane.anchor_index = anchor;
        plane.mid = anchor + 1;
        plane.name = s.nodes[anchor + 1].name;
        plane.span = k;
        for (int32_t c = k; c >= anchor; --c) plane.chain.push_back(c);
        s.planes.push_back(std::move(plane));
        node.parent = anchor;
      }
    }
  }
  return {};
}

// A decompose block must name a node, and its channels become tag page parameters beside
// the nodes: they must be valid names and, when reading strictly, distinct from every node,
// from the tag page's own names and from the channels of other blocks.
std::string CheckDecomps(const std::vector<ReadDecomp>& decomps, const ModelStructure& s,
                         std::string_view label, bool strict) {
  std::unordered_set<std::string> seen;
  for (const ReadDecomp& read : decomps) {
    const StructureDecomp& d = read.decomp;
    if (FindNodeIndex(s, d.src_name) < 0) {
      return At(label, read.line,
                "the decompose block " + d.name + " names the unknown node " + d.src_name);
    }
    for (const std::string& channel : d.channels) {
      std::string problem;
      if (!IsStructureNameWord(channel)) {
        problem = "may only hold letters, digits and \"_\"";
      } else if (!strict) {
        seen.insert(channel);
      } else if (IsReservedNodeName(channel)) {
        problem = "is reserved for the tag page";
      } else if (FindNodeIndex(s, channel) >= 0) {
        problem = "is also a node name";
      } else if (!seen.insert(channel).second) {
        problem = "is a channel of an earlier decompose block";
      }
      if (!problem.empty()) {
        return At(label, read.line,
                  "the channel " + channel + " of the decompose block " + d.name + " " + problem);
      }
    }
  }
  if (seen.size() > static_cast<size_t>(kMaxStructureNodes)) {
    return std::string(label) + ": more than " + std::to_string(kMaxStructureNodes) +
           " decompose channels";
  }
  return {};
}

}  // namespace

StructureParseResult ParseStructureText(std::string_view text, std::string_view source_name,
                                        const BaseFileLookup& find_base,
                                        const StructureReadOptions& options) {
  if (text.empty()) return Fail("structure input stream is invalid");
  const std::string label = "structure " + std::string(source_name);

  Tokenizer tokenizer(text);
  const std::string base_name(tokenizer.ReadWord());
  if (!base_name.empty() && !IsPlainDataFileName(base_name)) {
    return Fail(At(label, tokenizer.TokenLine(),
                   "the basefile name " + base_name + " is not a plain file name"));
  }
  std::optional<std::string> base_text;
  if (!base_name.empty() && find_base) base_text = find_base(base_name);
  if (!base_text) return Fail("cannot find basefile structure file: " + base_name);
  if (base_text->empty()) return Fail("basefile structure input stream is invalid");

  StructureReadState base_state;
  Tokenizer base_tokenizer(*base_text);
  std::string error = ReadStructureBlocks(base_tokenizer, StructureFileKind::kBase,
                                          "basefile " + base_name, options, base_state);
  if (!error.empty()) return Fail(std::move(error));

  // The structure's own groups continue the base file's numbering and name checks.
  StructureReadState state;
  state.node_names = std::move(base_state.node_names);
  state.group_names = std::move(base_state.group_names);
  state.entry_count = base_state.entry_count;
  error = ReadStructureBlocks(tokenizer, StructureFileKind::kStructure, label, options, state);
  if (!error.empty()) return Fail(std::move(error));

  std::vector<ReadGroup> all_groups = base_state.groups;
  all_groups.insert(all_groups.end(), state.groups.begin(), state.groups.end());

  int32_t plane_count = 0;
  error = CheckLimbEnds(all_groups, label, plane_count);
  if (!error.empty()) return Fail(std::move(error));

  auto structure = std::make_unique<ModelStructure>();
  structure->nodes.resize(state.entry_count);
  structure->planes.reserve(plane_count);
  structure->type = base_name;
  structure->source = source_name;
  for (ReadGroup& read : base_state.groups) structure->base_groups.push_back(std::move(read.group));
  for (ReadGroup& read : state.groups) structure->groups.push_back(std::move(read.group));
  for (const ReadDecomp& read : state.decomps) structure->decomps.push_back(read.decomp);

  error = BuildNodes(all_groups, *structure);
  if (error.empty()) error = CheckDecomps(state.decomps, *structure, label, options.strict);
  if (!error.empty()) return Fail(std::move(error));

  ComputeRestPositions(*structure);
  AssignMirrors(*structure);

  // The checks above make these invariants hold; a structure that breaks one anyway (a
  // node nested too deep) must not reach the rest of the plug-in.
  error = CheckModelStructure(*structure);
  if (!error.empty()) return Fail(label + ": " + error);
  return StructureParseResult{std::move(structure), {}};
}

}  // namespace kavor
