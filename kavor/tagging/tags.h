// Tags: the custom properties that mark which rig object plays which structure node.
//
// "ZRKTag" on a rig object names its node ("tagname"), a second node the same object plays
// ("override"), the node's align and roll directions in the object's local frame, the
// object's rest transform ("tpose_transform") and the object the node's motion is read
// from when that is another one ("extractNode"). That other object carries
// "ZRKExtractionTag" with the directions in its own frame. Everything later built for a
// character is derived from its tags.
//
// Transforms are measured in the model's own space (see model_space.h).
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kavor/maps/retarget_model.h"
#include "kavor/tagging/template_tag.h"

namespace kavor {

inline constexpr const wchar_t* kTagProperty = L"ZRKTag";
inline constexpr const wchar_t* kExtractionTagProperty = L"ZRKExtractionTag";
// The tag page's node parameters follow its four fixed ones (StructureTag, StructureFile,
// TemplateFile, dirty).
inline constexpr size_t kFirstNodeParameter = 4;
// The host's "not keyable" capability flag, which the tag page's parameters clear.
inline constexpr int kCapNotKeyable = 2048;

// The structure's directions for `node_name` (its group entry) expressed in the object's
// local frame, negated when the object is mirrored (negative x scale). Leaves `align` and
// `roll` untouched when the structure has no entry of that name.
void ComputeTagAxes(std::string_view node_name, const ModelStructure& structure,
                    const KRX::X3DObject& object, const KRX::X3DObject& model,
                    KRX::MATH::CVector3& align, KRX::MATH::CVector3& roll);

// Tags the model from the tag page's node parameters (every parameter from index 4 on):
// each value names the control object, optionally followed by "|" and the extraction
// object. With `names_are_objects` the parameter's own name is the control object's name.
// Removes the model's old tags first. Returns true.
bool CreateTagsFromPage(const KRX::Model& model, const ModelStructure& structure,
                        const KRX::CustomProperty& page, bool names_are_objects);

// Tags the model from template records, the last record first. Removes the model's old
// tags first; stops with a warning and false at the first record whose object is missing.
bool ApplyTemplateTags(const std::vector<TemplateTag>& tags, const KRX::Model& model);

// Deletes every tag and extraction tag below the model, at any depth.
void RemoveTags(const KRX::X3DObject& model);

// Reads the tags of the RetargetModel's model into its node map: objects, directions,
// overrides, rest transforms, extraction entries, the planes' rest end directions and the
// decomposition sub-controls. Nodes without a tagged object leave the structure's
// hierarchy (their children take their parent). Returns the model's valid flag.
bool ReadTags(RetargetModel& model);

// Marks the joints of a capture skeleton that template records name: the joint plays the
// record's node with the record's directions. Joint names match without regard to case,
// and a "_" in the wanted name matches any one character. A record whose joint is missing
// is logged and skipped. Returns true.
bool ApplyTagsToSkeleton(const std::vector<TemplateTag>& tags, MocapSkeleton& skeleton);
// The skeleton's first joint matching `wanted` by that rule, or null.
MocapJoint* FindSkeletonJoint(MocapSkeleton& skeleton, std::string_view wanted);

// Field `which` (1 or 2) of a tag page value "control|extraction". Field 2 exists only
// when the value has exactly two fields.
std::string SplitTagValue(std::string_view value, int which);

// The tags of a model as a map section (see map_file.h).
void WriteTagTemplate(std::ostream& out, const RetargetModel& model);

// The text of a rest transform: rotation axis x, y, z, angle (radians), translation x, y,
// z, separated by ","; and back. A text that does not hold seven numbers gives nothing.
std::string FormatTposeTransform(const KRX::MATH::CTransformation& transform);
bool ParseTposeTransform(std::string_view text, KRX::MATH::CTransformation& transform);

}  // namespace kavor
