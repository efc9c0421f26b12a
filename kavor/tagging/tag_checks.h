// The checks behind the tag page: each choice of an object for a node the moment it is
// made, the mirror node filled in after it, and the whole tagging before it is applied.
// Failures are shown to the user in a "ZRKRetarget" message box (or logged where noted).
#pragma once

#include <string>
#include <string_view>

#include "kavor/structure/model_structure.h"
#include "krx/krx.h"

namespace kavor {

// The role of a picked object: the node's control object or its extraction object.
inline constexpr int kTagModeControl = 1;
inline constexpr int kTagModeExtraction = 2;

// Checks object `object_name` for node `node_name` of the tag page in `mode` and, when it
// passes, writes it to the node's page parameter and fills the mirror node. `current`
// is the parameter's value before the pick. Returns whether the value was accepted.
bool CheckTagValue(const KRX::CustomProperty& page, const std::string& node_name,
                   const std::string& object_name, const ModelStructure& structure,
                   const KRX::X3DObject& model, const std::string& current, int mode);

// After node `node_name` was given `object` in `mode`: gives the empty mirror node ("l..."
// <-> "r...") the object of the model whose name matches the picked one best.
void FillMirrorTag(const KRX::CustomProperty& page, const std::string& node_name,
                   const KRX::X3DObject& object, const KRX::X3DObject& model, int mode);

// Depth-first search from `candidate` for the object whose name shares the longest prefix
// plus suffix with `picked`'s name and that sits at the same depth below a common
// ancestor inside `model`. Updates `best_name` and `best_score` on a strictly better match.
void FindMirrorObject(const KRX::X3DObject& candidate, const KRX::X3DObject& picked,
                      const KRX::X3DObject& model, std::string& best_name, int& best_score);

// Whether the page's assignments form a usable tagging: every tagged node's ancestors are
// tagged (one untagged "child" ancestor right above a tagged one is tolerated) and every
// limb chain is tagged whole or not at all. Shows the first problem found.
bool CheckTagValidity(const ModelStructure& structure, const KRX::CustomProperty& page);

}  // namespace kavor
