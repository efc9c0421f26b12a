#include "kavor/tagging/tag_flows.h"

#include <memory>
#include <optional>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/command_logging.h"
#include "kavor/io/file_names.h"
#include "kavor/io/messages.h"
#include "kavor/io/progress_bar.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/rest_data.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/plot/plot_page.h"
#include "kavor/plugin/operations.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tag_checks.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

std::string PageText(const KRX::CustomProperty& page, const wchar_t* name) {
  return ToNarrow(page.GetParameterValue(name).GetString());
}

void AddNodeParameter(KRX::CustomProperty& page, const std::string& name) {
  KRX::Parameter parameter =
      page.AddParameter(ToWide(name), KRX::ValueType::String, 4, L"", L"", KRX::CValue(L""));
  parameter.PutCapabilityFlag(kCapNotKeyable, false);
}

}  // namespace

std::string StructureNameOf(const std::string& choice) {
  const size_t slash = choice.find_last_of("/\\");
  const std::string file = slash == std::string::npos ? choice : choice.substr(slash + 1);
  return ToNarrow(StripStructureExtension(ToWide(file)));
}

KRX::CustomProperty GetOrAddTagPage(const KRX::Model& model) {
  KRX::Property page;
  if (FindPropertyByName(model, kTagPage, &page)) return KRX::CustomProperty(page);
  KRX::CustomProperty added(KRX::Model(model).AddProperty(kTagPage));
  if (added.IsValid()) return added;
  // Without the plug-in's registration (the plug-in's code used directly): the same page.
  added = KRX::Model(model).AddCustomProperty(kTagPage);
  DefineTagPageParameters(added);
  return added;
}

bool OpenTagPage(const KRX::Model& model_in) {
  KRX::Model model = model_in;
  if (!model.IsValid()) {
    const std::vector<KRX::Model> selected = SelectedModels();
    if (selected.empty()) {
      ShowWarning(L"Please select the desired character.");
      return false;
    }
    model = selected.front();
  }
  if (!model.IsValid()) {
    ShowWarning(
        L"It is ambiguous which character is to be tagged.  Please select the desired character.");
    return false;
  }
  const KRX::CustomProperty page = GetOrAddTagPage(model);
  RunCommand(L"InspectObj", {page.GetFullName(), KRX::CValue(L""), KRX::CValue(L"Rig Tagging Tool"),
                             KRX::CValue(3), KRX::CValue(false)});
  return true;
}

bool PrepareTagPage(const KRX::Model& model, const ModelStructure& structure) {
  KRX::Property existing;
  KRX::CustomProperty page;
  if (FindPropertyByName(model, kTagPage, &existing)) {
    page = KRX::CustomProperty(existing);
    std::vector<KRX::Parameter> parameters = page.GetParameters();
    for (size_t i = parameters.size(); i > kFirstNodeParameter; --i)
      page.RemoveParameter(parameters[i - 1]);
  } else {
    page = GetOrAddTagPage(model);
    KRX::Parameter file = page.GetParameter(L"StructureFile");
    if (!file.IsValid()) {
      file = page.AddParameter(L"StructureFile", KRX::ValueType::String, 4, L"", L"",
                               KRX::CValue(L"*.structure"));
    }
    file.PutCapabilityFlag(kCapNotKeyable, false);
    file.PutValue(KRX::CValue(ToWide(structure.source)));
  }
  for (const StructureNode& node : structure.nodes) AddNodeParameter(page, node.name);
  for (const StructureDecomp& decomp : structure.decomps) {
    for (const std::string& channel : decomp.channels) AddNodeParameter(page, channel);
  }
  return true;
}

void PickTagObject(const KRX::CustomProperty& page_in, const KRX::Model& model,
                   const std::string& node_name) {
  KRX::CustomProperty page = page_in;
  const KRX::CString node = ToWide(node_name);
  const KRX::CValue remembered = page.GetParameterValue(node);
  page.PutParameterValue(node, KRX::CValue(L"<pick mode>"));
  const KRX::CValue result = RunCommand(
      L"PickObject", {KRX::CValue(L"Select Control Node"), KRX::CValue(L"Select Extraction Node")});
  page.PutParameterValue(node, remembered);
  const KRX::CValueArray& picked = result.GetArray();
  if (picked.size() < 3 || picked[0].GetInt() <= 0) return;
  const KRX::CRef object = picked[2].GetRef();
  RunCommand(L"SetTagValue",
             {KRX::CValue(model.GetFullName()), KRX::CValue(node),
              KRX::CValue(KRX::SIObject(object).GetName()), KRX::CValue(picked[0].GetInt())});
}

bool SetTagValue(const KRX::Model& model, const std::string& node_name,
                 const std::string& object_name, int mode) {
  KRX::CustomProperty page = GetOrAddTagPage(model);
  const std::optional<ModelStructure> structure = ReadStructureProperty(model);
  if (!structure) {
    LogWarning(L"SetTagValue: the model has no structure; choose a structure file first.");
    return false;
  }
  const KRX::CString node = ToWide(node_name);
  const KRX::CValue remembered = page.GetParameterValue(node);
  if (CheckTagValue(page, node_name, object_name, *structure, model,
                    ToNarrow(remembered.GetString()), mode)) {
    page.PutParameterValue(L"dirty", KRX::CValue(true));
    return true;
  }
  page.PutParameterValue(node, remembered);
  return false;
}

void WriteRigSetup(const KRX::Model& model, const ModelStructure& structure,
                   ScopedProgressBar* progress) {
  auto step = [progress] {
    if (progress) progress->Increment();
  };
  // Reading the tags re-links the parents of untagged nodes: work on a copy, store the
  // structure as its file defines it.
  ModelStructure bound = structure;
  RetargetModel retarget(model, &bound);
  step();
  ComputeRestData(retarget);
  step();
  WriteModelMap(retarget);
  step();
  WriteStructureProperty(structure, model);
  step();
  std::unique_ptr<GlueMap> glue = BuildGlueMap(model, retarget);
  step();
  if (glue) WriteGlueMap(*glue, model);
  step();
}

bool ApplyTagsToRig(const KRX::Model& model) {
  KRX::Property found;
  if (!FindPropertyByName(model, kTagPage, &found)) {
    LogError(L"No TagPPG found on Model. Please apply TagPPG");
    return false;
  }
  KRX::CustomProperty page(found);
  std::unique_ptr<ModelStructure> structure =
      ParseStructure(ToWide(StructureNameOf(PageText(page, L"StructureFile"))));
  if (!structure) {
    LogError(L"No Structure Files found.");
    return false;
  }
  ScopedProgressBar progress(L"Check Tag Validity ...", 8);
  if (!CheckTagValidity(*structure, page)) return true;
  ScopedCommandLoggingOff logging_off;
  progress.SetCaption(L"Applying tags to Model ...");
  CreateTagsFromPage(model, *structure, page, false);
  progress.Increment();
  WriteRigSetup(model, *structure, &progress);
  page.PutParameterValue(L"dirty", KRX::CValue(false));
  return true;
}

bool CleanTagsFromRig(const KRX::Model& model) {
  KRX::CustomProperty page = GetOrAddTagPage(model);
  ScopedProgressBar progress(L"Removing KAVOR setup data from model ...", 6);
  const std::vector<KRX::Parameter> parameters = page.GetParameters();
  for (size_t i = kFirstNodeParameter; i < parameters.size(); ++i) {
    KRX::Parameter(parameters[i]).PutValue(KRX::CValue(L""));
  }
  ops::RemoveRetargetSetup(model);
  progress.Increment();
  progress.Increment();
  RemoveTags(model);
  progress.Increment();
  DeleteGlueMap(model);
  progress.Increment();
  KRX::Property property;
  if (FindPropertyByName(model, L"ZRKMap", &property)) DeleteByName(property.GetFullName());
  progress.Increment();
  RemovePlotPage(model);
  progress.Increment();
  return true;
}

}  // namespace kavor
