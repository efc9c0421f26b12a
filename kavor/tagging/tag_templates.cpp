#include "kavor/tagging/tag_templates.h"

#include <fstream>
#include <memory>
#include <optional>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/io/progress_bar.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/io/whole_file.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/model_map_text.h"
#include "kavor/maps/rest_data.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/map_file.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tag_template_file.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

constexpr int kFirstNodeParameter = 4;
constexpr int32_t kOldestTemplateVersion = 7;

void MarkDirty(KRX::CustomProperty& page) { page.PutParameterValue(L"dirty", KRX::CValue(true)); }

bool HasChild(const KRX::Model& model, const std::string& name) {
  return !name.empty() && model.FindChild(ToWide(name)).IsValid();
}

}  // namespace

bool SaveTagTemplate(const KRX::Model& model, const std::string& file) {
  KRX::Property found;
  if (!FindPropertyByName(model, kTagPage, &found)) {
    LogWarning(L"Model not tagged. Please tag the model.");
    return false;
  }
  KRX::CustomProperty page(found);
  if (page.GetParameterValue(L"dirty").GetBool()) ApplyTagsToRig(model);
  if (!FindPropertyByName(model, kModelMapProperty, nullptr)) {
    LogWarning(L"Incorrect tagging. Please re-tag.");
    return false;
  }
  std::optional<ModelStructure> structure = ReadStructureProperty(model);
  if (!structure) {
    LogWarning(L"Incorrect tagging. Please re-tag.");
    return false;
  }
  const ModelStructure stored = *structure;
  RetargetModel retarget(model, &*structure);
  ReadModelMap(retarget);
  if (file.empty()) return false;
  std::ofstream out(file);
  if (!out) {
    LogWarning(L"You do not have permission to save to this directory.  File not saved.");
    return false;
  }
  TagTemplateHead head;
  head.structure_type = stored.type;
  head.structure_source = stored.source;
  head.version = kTagTemplateVersion;
  const std::vector<KRX::Parameter> parameters = page.GetParameters();
  for (size_t i = kFirstNodeParameter; i < parameters.size(); ++i) {
    head.values.push_back(SplitTagTemplateValue(ToNarrow(parameters[i].GetScriptName()),
                                                ToNarrow(parameters[i].GetValue().GetString())));
  }
  WriteTagTemplateHead(out, head);
  WriteTagTemplate(out, retarget);
  WriteModelMapSection(out, retarget);
  out.close();
  if (!out) {
    LogWarning(L"You do not have permission to save to this directory.  File not saved.");
    return false;
  }
  page.PutParameterValue(L"TemplateFile", KRX::CValue(ToWide(file)));
  return true;
}

bool InheritTagTemplate(const KRX::Model& model, const std::string& file) {
  if (!model.IsValid()) {
    ShowWarning(L"It is ambiguous which character is to receive the inheritance.  Please select the desired character.");
    return false;
  }
  if (file.empty()) {
    ShowWarning(L"Please specify a tag template file (*.tagt)");
    return false;
  }
  ReadFileStatus status = ReadFileStatus::kOk;
  const FileBuffer buffer = ReadWholeFile(ToWide(file), &status);
  if (buffer.Text().substr(0, 5) == "<?xml") return true;
  ScopedProgressBar progress(L"Reading Tag Template File ...", 8);
  KRX::CustomProperty page = GetOrAddTagPage(model);
  if (status != ReadFileStatus::kOk) {
    page.PutParameterValue(L"TemplateFile", KRX::CValue(ToWide(file)));
    return true;
  }
  // Read the whole template first.
  Tokenizer tokenizer(buffer.Text());
  const std::optional<TagTemplateHead> head = ReadTagTemplateHead(tokenizer);
  if (!head) {
    ShowWarning(L"Failed to inherit the template data. Template is out of date.");
    MarkDirty(page);
    return false;
  }
  progress.Increment();
  if (head->version < kOldestTemplateVersion) {
    ShowWarning(L"Failed to inherit the template data. Template is out of date.");
    MarkDirty(page);
    return false;
  }
  const std::optional<MapFile> map = ReadMapSection(tokenizer);
  bool matches = map.has_value();
  for (size_t i = 0; matches && i < map->entries.size(); ++i) {
    const TemplateTag& tag = map->entries[i];
    const bool condition = !tag.condition_node.empty() && HasChild(model, tag.condition_node);
    const std::string& name = ChosenNodeName(tag, condition);
    matches = HasChild(model, name);
    // Say which object is missing: the message box alone does not tell the user what to fix.
    if (!matches) LogInfo(ToWide("Node " + name + " is missing."));
  }
  if (!matches) {
    ShowWarning(L"Failed to inherit the template data.  Template does not match the rig.");
    MarkDirty(page);
    return false;
  }
  std::unique_ptr<ModelStructure> structure = ParseStructure(ToWide(StructureNameOf(head->structure_source)));
  if (!structure) {
    ShowWarning(ToWide("Cannot find orriginal structure file :" + head->structure_source));
    return false;
  }
  progress.Increment();

  // What depends on the old tagging goes.
  DeleteGlueMap(model);
  KRX::Property plot;
  if (FindPropertyByName(model, L"PlotRetargetPPG", &plot)) DeleteByName(plot.GetFullName());
  WriteStructureProperty(*structure, model);
  PrepareTagPage(model, *structure);
  page.PutParameterValue(L"StructureFile", KRX::CValue(ToWide(structure->source)));

  progress.SetCaption(L"Applying Tags to Model ...");
  progress.SetMaximum(static_cast<int>(head->values.size()));
  progress.SetValue(0);
  const std::vector<KRX::Parameter> parameters = page.GetParameters();
  for (size_t i = 0; i < head->values.size(); ++i) {
    const TagValue& value = head->values[i];
    std::string text;
    if (!value.control.empty()) {
      if (!HasChild(model, value.control)) {
        LogInfo(ToWide("Node " + value.control + " is missing."));
      } else if (!value.extraction.empty() && !HasChild(model, value.extraction)) {
        LogInfo(ToWide("Extraction node " + value.extraction + " is missing."));
        text = value.control;
      } else {
        text = value.extraction.empty() ? value.control : value.control + "|" + value.extraction;
      }
    }
    const size_t index = i + kFirstNodeParameter;
    if (index < parameters.size()) {
      if (ToNarrow(parameters[index].GetScriptName()) != value.tag_name) {
        ShowWarning(ToWide("Failed to load template file: Tag name " + value.tag_name + " is missing."));
      }
      KRX::Parameter(parameters[index]).PutValue(KRX::CValue(ToWide(text)));
    }
    progress.Increment();
  }

  progress.SetMaximum(4);
  progress.SetValue(0);
  ApplyTemplateTags(map->entries, model);
  for (const TagValue& value : head->values) {
    // Page values that name one object and got no tag from the map: the object plays the
    // node all the same.
    if (value.control.empty() || !value.extraction.empty()) continue;
    KRX::X3DObject object = model.FindChild(ToWide(value.control));
    if (!object.IsValid() || FindPropertyByName(object, kTagProperty, nullptr)) continue;
    object.AddCustomProperty(kTagProperty)
        .AddParameter(L"tagname", KRX::ValueType::String, 6, L"", L"", KRX::CValue(ToWide(value.tag_name)));
  }
  progress.Increment();
  ModelStructure bound = *structure;
  RetargetModel retarget(model, &bound);
  ReadModelMapText(retarget, tokenizer);
  progress.Increment();
  SnapChainEffectors(retarget);
  ComputeLengths(retarget);
  ComputeLegLength(retarget);
  ComputeHipOffset(retarget);
  WriteModelMap(retarget);
  WriteStructureProperty(*structure, model);
  progress.Increment();
  if (std::unique_ptr<GlueMap> glue = BuildGlueMap(model, retarget)) WriteGlueMap(*glue, model);
  progress.Increment();
  page.PutParameterValue(L"TemplateFile", KRX::CValue(ToWide(file)));
  page.PutParameterValue(L"dirty", KRX::CValue(false));
  return true;
}

}  // namespace kavor
