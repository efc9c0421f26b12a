#include "kavor/tagging/tag_checks.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

std::string Value(const KRX::CustomProperty& page, const std::string& name) {
  return ToNarrow(page.GetParameterValue(ToWide(name)).GetString());
}

void Put(const KRX::CustomProperty& page, const std::string& name, const std::string& value) {
  KRX::CustomProperty(page).PutParameterValue(ToWide(name), KRX::CValue(ToWide(value)));
}

bool Refuse(const std::string& message) {
  ShowWarning(ToWide(message));
  return false;
}

std::string AlreadyWith(const std::string& object) {
  return "The rig node " + object + " is already associated with ";
}

// The rule that forbids node `k` to share its object with node `p` (both structure
// indices; `p` may be -1 for a sub-control), or nothing when sharing is allowed.
std::optional<std::string> SharingRule(const ModelStructure& structure, int32_t k, int32_t p,
                                       const std::string& node, const std::string& other,
                                       const std::string& object) {
  const std::string with = AlreadyWith(object);
  if (p == 0) return with + "the base node " + other + ".";
  if (k == 0) return "The base node " + node + " requires a rig node that has not been selected.";
  for (const StructurePlane& plane : structure.planes) {
    if (p == plane.span && k < plane.span) {
      return with + "the end effector " + other + ".\nOnly the child of " + other +
             " can be tagged to the same node.";
    }
    if (p == plane.anchor_index) return with + "the ik anchor " + other + ".";
    if (k == plane.span && p != k + 1) {
      return with + "node " + other +
             ".\nThe end effector requires a unique node for tagging (although it can share a "
             "node with its child).";
    }
    if (k == plane.anchor_index) {
      return with + "node " + other + ".\nThe ik anchor requires a unique node for tagging.";
    }
  }
  for (int32_t s = 0; s < structure.NumNodes(); ++s) {
    if (structure.nodes[static_cast<size_t>(s)].type != StructureNodeType::kFree) continue;
    const int32_t base = structure.nodes[static_cast<size_t>(s)].parent;
    if (p == s) return with + "the spine node " + other + ".";
    if (base >= 0 && p == base) return with + "the spine base " + other + ".";
    if (k == s)
      return with + "node " + other + ".\nThe spine node requires a unique node for tagging.";
    if (base >= 0 && k == base) {
      return with + "node " + other + ".\nThe spine base requires a unique node for tagging.";
    }
  }
  return std::nullopt;
}

size_t CommonPrefix(const std::string& a, const std::string& b) {
  const size_t n = std::min(a.size(), b.size());
  size_t i = 0;
  while (i < n && a[i] == b[i]) ++i;
  return i;
}

size_t CommonSuffix(const std::string& a, const std::string& b) {
  const size_t n = std::min(a.size(), b.size());
  size_t i = 0;
  while (i < n && a[a.size() - 1 - i] == b[b.size() - 1 - i]) ++i;
  return i;
}

KRX::X3DObject ParentOf(const KRX::X3DObject& object) { return KRX::X3DObject(object.GetParent()); }

bool IsInside(const KRX::X3DObject& object, const KRX::X3DObject& model) {
  KRX::X3DObject up = object;
  for (int depth = 0; up.IsValid() && depth < 100000; ++depth) {
    if (up == model) return true;
    up = ParentOf(up);
  }
  return false;
}

// Walking up one parent at a time from both, the walks meet inside the model.
bool SameDepthBelowCommonAncestor(const KRX::X3DObject& a_in, const KRX::X3DObject& b_in,
                                  const KRX::X3DObject& model) {
  KRX::X3DObject a = a_in;
  KRX::X3DObject b = b_in;
  for (int depth = 0; depth < 100000; ++depth) {
    if (a == model || b == model) return false;  // the next step leaves the model
    a = ParentOf(a);
    b = ParentOf(b);
    if (!a.IsValid() || !b.IsValid() || !IsInside(a, model) || !IsInside(b, model)) return false;
    if (a == b) return true;
  }
  return false;
}

}  // namespace

void FindMirrorObject(const KRX::X3DObject& candidate, const KRX::X3DObject& picked,
                      const KRX::X3DObject& model, std::string& best_name, int& best_score) {
  const std::string c = ToNarrow(candidate.GetName());
  const std::string x = ToNarrow(picked.GetName());
  if (c == x) return;
  const size_t prefix = CommonPrefix(c, x);
  const size_t suffix = CommonSuffix(c, x);
  if (prefix > 0 || suffix >= 1) {
    size_t total = prefix + suffix;
    // One name is the other with characters added: never a mirror, nor anything below it.
    if (total >= c.size() || total >= x.size()) return;
    if (std::min(c.size(), x.size()) - total == 1) ++total;
    if (static_cast<int>(total) > best_score &&
        SameDepthBelowCommonAncestor(candidate, picked, model)) {
      best_score = static_cast<int>(total);
      best_name = c;
    }
  }
  for (const KRX::X3DObject& child : candidate.GetChildren()) {
    FindMirrorObject(child, picked, model, best_name, best_score);
  }
}

void FillMirrorTag(const KRX::CustomProperty& page, const std::string& node_name,
                   const KRX::X3DObject& object, const KRX::X3DObject& model, int mode) {
  if (node_name.empty() || (node_name[0] != 'l' && node_name[0] != 'r')) return;
  const std::string mirror = (node_name[0] == 'l' ? "r" : "l") + node_name.substr(1);
  if (!page.GetParameter(ToWide(mirror)).IsValid()) return;
  const std::string value = Value(page, mirror);
  if (mode == kTagModeControl ? !value.empty() : !SplitTagValue(value, 2).empty()) return;
  std::string best_name;
  int best_score = 2;
  FindMirrorObject(model, object, model, best_name, best_score);
  if (best_name.empty()) return;
  if (mode == kTagModeControl) {
    Put(page, mirror, best_name);
    return;
  }
  const std::string control = SplitTagValue(value, 1);
  if (!control.empty()) Put(page, mirror, control + "|" + best_name);
}

bool CheckTagValue(const KRX::CustomProperty& page, const std::string& node_name,
                   const std::string& object_name, const ModelStructure& structure,
                   const KRX::X3DObject& model, const std::string& current, int mode) {
  if (object_name.empty()) return true;
  const int32_t k = FindNodeIndex(structure, node_name);
  std::string control;
  if (k >= 0 && mode == kTagModeExtraction) {
    control = SplitTagValue(current, 1);
    if (control.empty()) {
      return Refuse("The animation control for the " + node_name +
                    " node must be set before specifying the extraction node.");
    }
  }
  const std::vector<KRX::Parameter> parameters = page.GetParameters();
  if (k < 0) {  // a sub-control of a decomposed node
    if (!model.FindChild(ToWide(object_name)).IsValid()) {
      Put(page, node_name, "");
      LogWarning(ToWide("The " + object_name + " node does not exist."));
      return false;
    }
    for (const KRX::Parameter& parameter : parameters) {
      const std::string name = ToNarrow(parameter.GetScriptName());
      if (name != node_name && FindNodeIndex(structure, name) < 0 &&
          ToNarrow(parameter.GetValue().GetString()) == object_name) {
        return Refuse("The " + object_name + " node is already assigned to a sub controller.");
      }
    }
    Put(page, node_name, object_name);
    return true;
  }
  for (size_t i = kFirstNodeParameter; i < parameters.size(); ++i) {
    const std::string other = ToNarrow(parameters[i].GetScriptName());
    if (other == node_name ||
        SplitTagValue(ToNarrow(parameters[i].GetValue().GetString()), mode) != object_name) {
      continue;
    }
    const std::optional<std::string> rule =
        SharingRule(structure, k, FindNodeIndex(structure, other), node_name, other, object_name);
    if (rule) return Refuse(*rule);
  }
  const KRX::X3DObject object = model.FindChild(ToWide(object_name));
  if (!object.IsValid()) {
    Put(page, node_name, "");
    LogWarning(ToWide("The " + object_name + " node does not exist"));
    return false;
  }
  Put(page, node_name, mode == kTagModeControl ? object_name : control + "|" + object_name);
  FillMirrorTag(page, node_name, object, model, mode);
  return true;
}

bool CheckTagValidity(const ModelStructure& structure, const KRX::CustomProperty& page) {
  std::vector<bool> tagged(static_cast<size_t>(structure.NumNodes()));
  for (int32_t i = 0; i < structure.NumNodes(); ++i) {
    tagged[static_cast<size_t>(i)] =
        !Value(page, structure.nodes[static_cast<size_t>(i)].name).empty();
  }
  for (int32_t i = 0; i < structure.NumNodes(); ++i) {
    if (!tagged[static_cast<size_t>(i)]) continue;
    int32_t previous = i;
    int32_t j = structure.nodes[static_cast<size_t>(i)].parent;
    for (int32_t steps = 0; j >= 0 && steps < structure.NumNodes(); ++steps) {
      const StructureNode& ancestor = structure.nodes[static_cast<size_t>(j)];
      const bool tolerated =
          ancestor.type == StructureNodeType::kChild && tagged[static_cast<size_t>(previous)];
      if (!tagged[static_cast<size_t>(j)] && !tolerated) {
        return Refuse("Because you tagged the " + structure.nodes[static_cast<size_t>(i)].name +
                      " then you must also tag the " + ancestor.name +
                      " because it is higher in the hierarchy.");
      }
      previous = j;
      j = ancestor.parent;
    }
  }
  for (const StructurePlane& plane : structure.planes) {
    const bool used = std::any_of(plane.chain.begin(), plane.chain.end(),
                                  [&](int32_t n) { return tagged[static_cast<size_t>(n)]; });
    if (!used) continue;
    for (int32_t n : plane.chain) {
      if (!tagged[static_cast<size_t>(n)]) {
        return Refuse("Incomplete tagging of a bone chain. '" +
                      structure.nodes[static_cast<size_t>(n)].name +
                      "' must be assigned a rig node.");
      }
    }
  }
  return true;
}

}  // namespace kavor
