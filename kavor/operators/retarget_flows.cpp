#include "kavor/operators/retarget_flows.h"

#include <memory>
#include <optional>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/command_logging.h"
#include "kavor/io/messages.h"
#include "kavor/io/progress_bar.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/model_map.h"
#include "kavor/motion/apply_motion.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/normalize.h"
#include "kavor/operators/motion_blob.h"
#include "kavor/operators/retarget_context.h"
#include "kavor/operators/retarget_setup.h"
#include "kavor/plot/plot_page.h"
#include "kavor/plugin/retarget_frame_range.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

// A tagged model as a retarget reads it: its structure and its RetargetModel with the map.
struct ReadRig {
  std::unique_ptr<ModelStructure> structure;
  std::unique_ptr<RetargetModel> model;
};

// Null members, after the warning, when the model has no structure or its map does not
// read.
ReadRig ReadTaggedRig(const KRX::Model& model, const wchar_t* map_failure) {
  ReadRig rig;
  std::optional<ModelStructure> structure = ReadStructureProperty(model);
  if (!structure) {
    ShowWarning(L"Cannot create structure.");
    return rig;
  }
  rig.structure = std::make_unique<ModelStructure>(std::move(*structure));
  rig.model = std::make_unique<RetargetModel>(model, rig.structure.get());
  ReadModelMap(*rig.model);
  if (!rig.model->valid) {
    ShowWarning(map_failure);
    rig.model.reset();
  }
  return rig;
}

// The target's glue, resolved; null when it does not read (the reader has said why).
std::unique_ptr<GlueMap> ReadResolvedGlue(const KRX::Model& model, RetargetModel& retarget) {
  std::unique_ptr<GlueMap> glue = ReadGlueMap(model);
  if (glue) ResolveGlueMap(*glue, model, retarget);
  return glue;
}

}  // namespace

bool RetargetRigToRig(const KRX::Model& source, const KRX::Model& target, int32_t start,
                      int32_t end) {
  ReadRig from = ReadTaggedRig(source, L"Failed to read model map from source model.");
  if (!from.model) return false;
  ReadRig to = ReadTaggedRig(target, L"Failed to read model map from target model.");
  if (!to.model) return false;
  std::unique_ptr<GlueMap> glue = ReadResolvedGlue(target, *to.model);
  if (!glue) return false;
  const bool done =
      ApplyRigMotion(*to.model, *from.model, *glue, start, end + 1, CreateRetargetOperators,
                     PreferredExtractOptions());
  RestoreModelTransforms(*to.model, *from.model);
  return done;
}

bool LoadKavorMotion(const KRX::CString& path, const KRX::Model& target, int32_t insertion_frame) {
  std::unique_ptr<KavorMotion> motion = ReadKavorMotionFile(path);
  if (!motion) return false;
  ReadRig to = ReadTaggedRig(target, L"Failed to read destmodel map from source model.");
  if (!to.model) return false;
  std::unique_ptr<GlueMap> glue = ReadResolvedGlue(target, *to.model);
  if (!glue) return false;
  return ApplyFileMotion(*to.model, *motion->model, *glue, insertion_frame,
                         CreateRetargetOperators, PreferredExtractOptions());
}

bool GetRetargetFrameRange(const KRX::Model& model, int32_t* start, int32_t* end) {
  *start = kNoStartFrame;
  *end = kNoEndFrame;
  const KRX::UserDataBlob blob = FindMotionBlob(model);
  if (blob.IsValid()) {
    // Read from the blob itself: the operator may not have bound yet (a scene just opened).
    const std::vector<uint8_t>* bytes = blob.GetBytes();
    std::optional<MotionBlobLayout> layout;
    if (bytes != nullptr) {
      if (IsOldMotionBlobLayout(*bytes)) {
        std::optional<std::vector<uint8_t>> upgraded = UpgradeOldMotionBlob(*bytes);
        if (upgraded) layout = DecodeMotionBlob(*upgraded, -1, -1);
      } else {
        layout = DecodeMotionBlob(*bytes, -1, -1);
      }
    }
    if (layout) {
      *start = layout->insertion_frame;
      *end = layout->insertion_frame + layout->frame_count;
      return true;
    }
  }
  return GetKeyFrameRange(model, start, end);
}

void RemoveAllKavorSetup(const KRX::Model& model) {
  ScopedCommandLoggingOff logging_off;
  ScopedProgressBar progress(L"Removing KAVOR setup data from model ....", 7);
  RemoveRetargetSetup(model);
  progress.Increment();
  DeletePropertyByName(model, L"TagData");
  KRX::Property page;
  if (FindPropertyByName(model, L"TagPPG", &page)) {
    KRX::CustomProperty tag_page(page.GetRef());
    const std::vector<KRX::Parameter> parameters = tag_page.GetParameters();
    for (size_t i = kFirstNodeParameter; i < parameters.size(); ++i) {
      tag_page.RemoveParameter(parameters[i]);
    }
  }
  progress.Increment();
  RemoveTags(model);
  progress.Increment();
  DeletePropertyByName(model, L"ZRKGlue");
  progress.Increment();
  DeletePropertyByName(model, L"ZRKMap");
  progress.Increment();
  DeletePropertyByName(model, L"ZRKStructure");
  DeletePropertyByName(model, L"ZRKStructTag");
  progress.Increment();
  RemovePlotPage(model);
  progress.Increment();
}

}  // namespace kavor
