// One tag as a tag template or map file records it: which rig object plays which
// structure node, with the tag's directions and override.
#pragma once

#include <string>

#include "krx/math.h"

namespace kavor {

struct TemplateTag {
  std::string tag_name;        // the structure node, also the tag's "tagname"
  std::string condition_node;  // when not empty: use node_name if an object of this name
                               // exists under the model, else alternative_node
  std::string node_name;       // the rig object (or joint) that receives the tag
  std::string alternative_node;
  std::string override;  // empty when the tag has none
  KRX::MATH::CVector3 align;
  KRX::MATH::CVector3 roll;
};

// The object name a record applies to, given whether an object named `condition_node`
// exists: node_name when the condition is empty or holds, alternative_node otherwise.
inline const std::string& ChosenNodeName(const TemplateTag& tag, bool condition_object_exists) {
  if (tag.condition_node.empty() || condition_object_exists) return tag.node_name;
  return tag.alternative_node;
}

}  // namespace kavor
