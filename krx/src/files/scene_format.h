// The scene file format, shared by the writer and the reader.
//
// A scene file is one JSON document (UTF-8):
//
//   {"format": "krx scene", "version": 1,
//    "objects":   [object, ...],    the scene root first, then every 3D object in depth-first
//                                   order; each names its parent by index (always an earlier
//                                   object), so the hierarchy never nests in the document
//    "project":   item,             the project item with its properties ("Play Control")
//    "operators": [operator, ...],  in the order their owners hold them
//    "selection": ["full name", ...]}
//
//   item     = {"class": ClassID, "type": "host type", "name": "...",
//               "params": [param, ...], "properties": [item, ...], ...class-specific fields}
//   object   = item + {"parent": index (absent for the scene root), "curve_points": [[x,y,z]..]}
//              whose first property is its kinematics:
//              item + {"local": item, "global": item} (the local state holds posx..nsclz)
//   blob     = item + {"bytes": "base64"}
//   constraint = item + {"constraining": ["full name", ...]}
//   param    = {"name", "value_type", "capabilities", "label", "description",
//               "value", "default", "min", "max", "suggested_min", "suggested_max",
//               optional "fcurve": [[time, value, left_dx, left_dy, right_dx, right_dy,
//               interpolation, computed, constraints], ...] (computed: 1 when the key's
//               tangents are computed ones, else 0; constraints: KeyConstraint bits,
//               written only when not 0), with the curve's "fcurve_type" (FCurveType;
//               20 when absent) and "fcurve_interpolation" (what keys added without one
//               get; 3 when absent), optional "expression": "text",
//               optional "grid": {"columns", "rows", "column_labels", "column_types",
//               "row_labels", "cells" (row-major)}}
//   value    = null (empty) | true/false | integer (32-bit) | number with a fraction or
//              exponent (double) | "text" | {"ref": "full name" or null} | [value, ...]
//   operator = item + {"op_type", "scripted", "script", "language", "current_group",
//               "always_evaluate", "construction_mode",
//               "ports": [{"group", "name", "output", "target": "full name"}, ...]}
//
// References are full names in the scene being read; one that names nothing, or more than
// one item, makes the file unreadable. Numbers are written in the shortest form that reads
// back to the same double; NaN and infinity are refused on write and on read.
//
// Be careful when changing names or values here: they are what files on disk contain.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KRX::rt::files {

inline constexpr const char* kSceneFormatName = "krx scene";
inline constexpr int kSceneFormatVersion = 1;

// Limits of the reader. A file beyond them is refused with a message.
inline constexpr uint64_t kMaxSceneFileBytes = uint64_t{1} << 30;
inline constexpr int kMaxJsonDepth = 64;                   // nesting of JSON arrays and objects
inline constexpr int kMaxHierarchyDepth = 512;             // 3D objects below the scene root
inline constexpr int kMaxPropertyNesting = 4;              // properties held by properties
inline constexpr size_t kMaxNameLength = 256;              // item names and type texts
inline constexpr size_t kMaxTextLength = size_t{1} << 24;  // labels, scripts, values
inline constexpr int32_t kMaxGridColumns = 4096;
inline constexpr int64_t kMaxGridCells = int64_t{1} << 26;

}  // namespace KRX::rt::files
