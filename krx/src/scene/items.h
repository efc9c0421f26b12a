// Building scene items: objects with their kinematics, the project, property presets.
// Internal to krx/src/scene (scene_edit.h has what other areas use).
#pragma once

#include <memory>

#include "runtime/item.h"

namespace KRX::rt {

// Names of the local kinematic parameters, in KineBinding order; the first
// kGlobalKineParamCount are also the global state's.
extern const wchar_t* const kKineParamNames[kLocalKineParamCount];
inline constexpr size_t kRotOrderIndex = 9;

// The project item with its "Play Control" property (Current 1, In 1, Out 100, Rate 30).
std::shared_ptr<Item> MakeProjectItem();

// A property of a host preset attached to `owner` under a unique name (empty `name`: the
// preset's default name): "CustomProperty" (empty custom property), "UserDataBlob",
// "Display Property" ("wirecol"), or a property type a plug-in registered (its _Define
// callback runs with the new property as the context's source). Null for an unknown
// preset.
std::shared_ptr<Item> AddPropertyPreset(Item& owner, const CString& preset, const CString& name);
std::shared_ptr<Item> AddCustomPropertyItem(Item& owner, const CString& name);

// A primitive ("Sphere": "radius" 1; "Cube": "length" 8, on a geometry property named after
// the primitive) or null for an unknown preset.
std::shared_ptr<ObjectItem> AddPrimitiveItem(ObjectItem& parent, const CString& preset,
                                             const CString& name);

// Attaches a new parameter to `owner` under `name`; null when the name is taken.
std::shared_ptr<ParamItem> AddParamTo(Item& owner, const CString& name, ValueType type,
                                      const CValue& value, int capabilities);

}  // namespace KRX::rt
