#include "kavor/tagging/tag_templates.h"

#include <memory>
#include <optional>
#include <sstream>

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
#include "kavor/plot/plot_page.h"
#include "kavor/plugin/operations.h"
#include "kavor/structure/read_options.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/map_file.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tag_template_file.h"
#include "kavor/tagging/tags.h"
#include "kavor/xml/xml_file.h"

namespace kavor {

namespace {

constexpr int32_t kOldestTemplateVersion = 7;

void MarkDirty(KRX::CustomProperty& page) { page.PutParameterValue(L"dirty", KRX::CValue(true)); }

bool HasChild(const KRX::Model& model, const std::string& name) {
  return !name.empty() && model.FindChild(ToWide(name)).IsValid();
}

// What the two inherit orders share: the model, its page, the progress bar and the
// template's text.
struct TemplateFlow {
  const KRX::Model& model;
  KRX::CustomProperty& page;
  ScopedProgressBar& progress;
  Tokenizer& tokenizer;
};

bool Refuse(KRX::CustomProperty& page, const wchar_t* message) {
  ShowWarning(message);
  MarkDirty(page);
  return false;
}

constexpr const wchar_t* kOutOfDate =
    L"Failed to inherit the template data. Template is out of date.";
constexpr const wchar_t* kDoesNotMatch =
    L"Failed to inherit the template data.  Template does not match the rig.";

// What depends on the old tagging goes: the retarget setup, the plot page and the glue.
void TakeDownOldSetup(const KRX::Model& model) {
  ops::RemoveRetargetSetup(model);
  RemovePlotPage(model);
  DeleteGlueMap(model);
}

// The structure a template was made for, or nothing after the message.
std::unique_ptr<ModelStructure> TemplateStructure(const TagTemplateHead& head) {
  std::unique_ptr<ModelStructure> structure =
      ParseStructure(ToWide(StructureNameOf(head.structure_source)));
  if (!structure)
    ShowWarning(ToWide("Cannot find orriginal structure file :" + head.structure_source));
  return structure;
}

// Stores the structure and gives the page its node parameters.
void UseStructure(const TemplateFlow& flow, const ModelStructure& structure) {
  WriteStructureProperty(structure, flow.model);
  PrepareTagPage(flow.model, structure);
  flow.page.PutParameterValue(L"StructureFile", KRX::CValue(ToWide(structure.source)));
}

// The template's page values, in order, each shortened to the objects the rig has.
void PutPageValues(const TemplateFlow& flow, const TagTemplateHead& head) {
  flow.progress.SetCaption(L"Applying Tags to Model ...");
  flow.progress.SetMaximum(static_cast<int>(head.values.size()));
  flow.progress.SetValue(0);
  const std::vector<KRX::Parameter> parameters = flow.page.GetParameters();
  for (size_t i = 0; i < head.values.size(); ++i) {
    const TagValue& value = head.values[i];
    std::string text;
    if (!value.control.empty()) {
      if (!HasChild(flow.model, value.control)) {
        LogInfo(ToWide("Node " + value.control + " is missing."));
      } else if (!value.extraction.empty() && !HasChild(flow.model, value.extraction)) {
        LogInfo(ToWide("Extraction node " + value.extraction + " is missing."));
        text = value.control;
      } else {
        text = value.extraction.empty() ? value.control : value.control + "|" + value.extraction;
      }
    }
    const size_t index = i + kFirstNodeParameter;
    if (index < parameters.size()) {
      if (ToNarrow(parameters[index].GetScriptName()) != value.tag_name) {
        ShowWarning(
            ToWide("Failed to load template file: Tag name " + value.tag_name + " is missing."));
      }
      KRX::Parameter(parameters[index]).PutValue(KRX::CValue(ToWide(text)));
    }
    flow.progress.Increment();
  }
  flow.progress.SetMaximum(4);
  flow.progress.SetValue(0);
}

// After the map's tags are on the rig: tags for page values the map left out, then the rest
// data, model map, structure and glue from the template's model-map section.
bool FinishInherit(const TemplateFlow& flow, const std::string& file, const TagTemplateHead& head,
                   const ModelStructure& structure) {
  for (const TagValue& value : head.values) {
    // Page values that name one object and got no tag from the map: the object plays the
    // node all the same.
    if (value.control.empty() || !value.extraction.empty()) continue;
    KRX::X3DObject object = flow.model.FindChild(ToWide(value.control));
    if (!object.IsValid() || FindPropertyByName(object, kTagProperty, nullptr)) continue;
    object.AddCustomProperty(kTagProperty)
        .AddParameter(L"tagname", KRX::ValueType::String, 6, L"", L"",
                      KRX::CValue(ToWide(value.tag_name)));
  }
  flow.progress.Increment();
  ModelStructure bound = structure;
  RetargetModel retarget(flow.model, &bound);
  ReadModelMapText(retarget, flow.tokenizer);
  flow.progress.Increment();
  SnapChainEffectors(retarget);
  ComputeLengths(retarget);
  ComputeLegLength(retarget);
  ComputeHipOffset(retarget);
  WriteModelMap(retarget);
  WriteStructureProperty(structure, flow.model);
  flow.progress.Increment();
  if (std::unique_ptr<GlueMap> glue = BuildGlueMap(flow.model, retarget))
    WriteGlueMap(*glue, flow.model);
  flow.progress.Increment();
  flow.page.PutParameterValue(L"TemplateFile", KRX::CValue(ToWide(file)));
  flow.page.PutParameterValue(L"dirty", KRX::CValue(false));
  return true;
}

// The steps in file order: each change is made as its part of the template is read, and a
// failure stops the flow where it is met.
bool InheritInFileOrder(const TemplateFlow& flow, const std::string& file) {
  TakeDownOldSetup(flow.model);
  const std::optional<TagTemplateHead> head =
      ReadTagTemplateHead(flow.tokenizer, PreferredStructureReadOptions());
  if (!head) return Refuse(flow.page, kOutOfDate);
  flow.progress.Increment();
  const std::unique_ptr<ModelStructure> structure = TemplateStructure(*head);
  if (!structure) return false;
  UseStructure(flow, *structure);
  flow.progress.Increment();
  PutPageValues(flow, *head);
  if (head->version < kOldestTemplateVersion) return Refuse(flow.page, kOutOfDate);
  // A map section that does not read (its parse error is logged) matches no rig either.
  const std::optional<MapFile> map = ReadMapSection(flow.tokenizer);
  if (!map || !ApplyTemplateTags(map->entries, flow.model)) return Refuse(flow.page, kDoesNotMatch);
  return FinishInherit(flow, file, *head, *structure);
}

// The whole template is read and checked against the rig before anything changes.
bool InheritCheckedFirst(const TemplateFlow& flow, const std::string& file) {
  const std::optional<TagTemplateHead> head =
      ReadTagTemplateHead(flow.tokenizer, PreferredStructureReadOptions());
  if (!head) return Refuse(flow.page, kOutOfDate);
  flow.progress.Increment();
  if (head->version < kOldestTemplateVersion) return Refuse(flow.page, kOutOfDate);
  const std::optional<MapFile> map = ReadMapSection(flow.tokenizer);
  bool matches = map.has_value();
  for (size_t i = 0; matches && i < map->entries.size(); ++i) {
    const TemplateTag& tag = map->entries[i];
    const bool condition = !tag.condition_node.empty() && HasChild(flow.model, tag.condition_node);
    const std::string& name = ChosenNodeName(tag, condition);
    matches = HasChild(flow.model, name);
    // Say which object is missing: the message box alone does not tell the user what to fix.
    if (!matches) LogInfo(ToWide("Node " + name + " is missing."));
  }
  if (!matches) return Refuse(flow.page, kDoesNotMatch);
  const std::unique_ptr<ModelStructure> structure = TemplateStructure(*head);
  if (!structure) return false;
  flow.progress.Increment();
  TakeDownOldSetup(flow.model);
  UseStructure(flow, *structure);
  PutPageValues(flow, *head);
  ApplyTemplateTags(map->entries, flow.model);
  return FinishInherit(flow, file, *head, *structure);
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
  std::ostringstream out;
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
  KRX::CString why;
  if (!ReplaceFileContents(ToWide(file), out.view(), &why)) {
    LogWarning(why);
    LogWarning(L"You do not have permission to save to this directory.  File not saved.");
    return false;
  }
  page.PutParameterValue(L"TemplateFile", KRX::CValue(ToWide(file)));
  return true;
}

InheritOptions PreferredInheritOptions() {
  return InheritOptions{ReadingSwitchIsOn(kStrictInheritKey)};
}

bool InheritTagTemplate(const KRX::Model& model, const std::string& file) {
  return InheritTagTemplate(model, file, PreferredInheritOptions());
}

bool InheritTagTemplate(const KRX::Model& model, const std::string& file,
                        const InheritOptions& options) {
  if (!model.IsValid()) {
    ShowWarning(
        L"It is ambiguous which character is to receive the inheritance.  Please select the "
        L"desired character.");
    return false;
  }
  if (file.empty()) {
    ShowWarning(L"Please specify a tag template file (*.tagt)");
    return false;
  }
  ReadFileStatus status = ReadFileStatus::kOk;
  const FileBuffer buffer = ReadWholeFile(ToWide(file), &status, kMaxSmallTextFileBytes);
  if (buffer.Text().substr(0, 5) == "<?xml") return true;
  // An oversized file was refused with a warning naming it and the limit; the rig stays.
  if (status == ReadFileStatus::kTooLarge) return false;
  ScopedProgressBar progress(L"Reading Tag Template File ...", 8);
  KRX::CustomProperty page = GetOrAddTagPage(model);
  if (status != ReadFileStatus::kOk) {
    page.PutParameterValue(L"TemplateFile", KRX::CValue(ToWide(file)));
    return true;
  }
  Tokenizer tokenizer(buffer.Text());
  const TemplateFlow flow{model, page, progress, tokenizer};
  return options.strict ? InheritCheckedFirst(flow, file) : InheritInFileOrder(flow, file);
}

}  // namespace kavor
