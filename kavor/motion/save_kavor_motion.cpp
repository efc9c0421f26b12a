#include "kavor/motion/save_kavor_motion.h"

#include <optional>
#include <string>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/structure/structure_property.h"

namespace kavor {

bool SaveKavorMotion(const KRX::Model& source, const KRX::CString& path, int32_t start,
                     int32_t end) {
  std::optional<ModelStructure> structure = ReadStructureProperty(source);
  if (!structure) {
    ShowWarning(L"Cannot create structure.");
    return false;
  }
  RetargetModel rig(source, &*structure);
  ReadModelMap(rig);
  if (!rig.valid) {
    ShowWarning(L"Failed to read the map from the source model.");
    return false;
  }
  if (!WriteKavorFile(rig, path, start, end)) return false;
  // A save from a script otherwise passes without a word.
  LogInfo(L"Saved frames " + KRX::CString(std::to_string(start)) + L" to " +
          KRX::CString(std::to_string(end)) + L" of " + source.GetName() + L" as " + path + L".");
  return true;
}

}  // namespace kavor
