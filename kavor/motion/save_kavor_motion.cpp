#include "kavor/motion/save_kavor_motion.h"

#include <optional>

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
  return WriteKavorFile(rig, path, start, end);
}

}  // namespace kavor
