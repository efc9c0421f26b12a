// Fuzzes the adjustment preset reader: any bytes are read as a preset file and the values
// it names are set on an adjustment property of each value type, as loading a preset does.
// A preset must read as values or as nothing, and a value set must stay within its
// parameter's limits. Seeds: fuzz/corpus/adjust_preset/.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "kavor/operators/adjust_preset.h"
#include "krx/krx.h"
#include "runtime/interaction.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace {

// A model holding a property with one parameter of each type a preset sets, made once.
KRX::CustomProperty& Adjustments() {
  static KRX::CustomProperty property = [] {
    KRX::rt::SetLogSink({});
    KRX::Model root = KRX::Application().GetActiveSceneRoot();
    KRX::CustomProperty made = root.AddCustomProperty(L"RetargetAdjustPPG");
    made.AddParameter(L"Speed", KRX::ValueType::Double, 4, L"", L"", KRX::CValue(1.0),
                      KRX::CValue(0.01), KRX::CValue(4.0));
    made.AddParameter(L"InsertionFrame", KRX::ValueType::Int, 4, L"", L"", KRX::CValue(0));
    made.AddParameter(L"offsetFeet", KRX::ValueType::Bool, 4, L"", L"", KRX::CValue(true));
    made.AddParameter(L"name0", KRX::ValueType::String, 20, L"", L"", KRX::CValue(L"lAnkle"));
    return made;
  }();
  return property;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  KRX::CustomProperty& property = Adjustments();
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::optional<kavor::AdjustmentPreset> preset =
      kavor::ParseAdjustmentPreset(L"fuzz.adj", bytes);
  if (preset) {
    for (const auto& [name, text] : preset->adjustments) {
      KRX::Parameter parameter = property.GetParameter(name);
      if (parameter.IsValid()) parameter.PutValue(KRX::CValue(text));
    }
    for (const auto& [object, values] : preset->rotation_offsets) {
      if (object.IsEmpty()) __builtin_trap();  // an element always has a name
      (void)values;
    }
    const double speed = property.GetParameterValue(L"Speed").GetDouble();
    if (!(speed >= 0.01 && speed <= 4.0)) __builtin_trap();
  }
  KRX::rt::ResetInteraction();
  KRX::rt::ClearLog();
  return 0;
}
