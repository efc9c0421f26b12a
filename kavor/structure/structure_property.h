// A model's structure stored on the model itself, in the custom property "ZRKStructure",
// so that everything done later with a tagged model can rebuild its structure from the
// scene alone.
//
// The property holds six plain parameters (Version, Type, Source, numNodes, numPlanes,
// numDecomps) and grid tables: "Nodes" (one row per node), "Planes", "Decomps" (only when
// there are decompose blocks), "BaseGroups" and "Groups" with one table per group
// ("BaseGroup_<name>", "Group_<name>"). Offsets, rest positions and limits of the nodes are
// not in the node table: they survive only in the group tables, as the files write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kavor/structure/model_structure.h"
#include "krx/krx.h"

namespace kavor {

inline constexpr const wchar_t* kStructureProperty = L"ZRKStructure";
inline constexpr int32_t kStructurePropertyVersion = 8;
// Properties written before mirrors were stored (version 7) still read.
inline constexpr int32_t kOldestStructurePropertyVersion = 7;

// Replaces the model's "ZRKStructure" with `structure`.
void WriteStructureProperty(const ModelStructure& structure, const KRX::X3DObject& model);

// The structure stored on the model; nothing without the property (silently), for an
// outdated version (with a note in the log) or for damaged data (logged as an error).
std::optional<ModelStructure> ReadStructureProperty(const KRX::X3DObject& model);

// The first group entry named `name` (case counts): the base groups first, then the
// structure's own groups. Null when there is none.
const StructureGroupNode* FindGroupNode(const ModelStructure& structure, std::string_view name);

// "x,y,z" -> the vector. Any other number of fields is logged and gives the zero vector.
KRX::MATH::CVector3 TextToVector(std::string_view text);
// The vector as the host writes one: three numbers separated by ",".
std::string VectorToText(const KRX::MATH::CVector3& v);

}  // namespace kavor
