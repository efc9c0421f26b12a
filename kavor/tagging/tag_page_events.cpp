// The tag page's events: opening and closing it, typed values, the structure choice and
// its buttons (load, save, apply, clean, edit, select, pick).
#include <filesystem>
#include <optional>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/command_logging.h"
#include "kavor/io/data_files.h"
#include "kavor/io/messages.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/io/whole_file.h"
#include "kavor/structure/structure_property.h"
#include "kavor/structure/tokenizer.h"
#include "kavor/tagging/tag_checks.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tags.h"
#include "kavor/xml/preferences.h"
#include "kavor/xml/remembered_folder.h"

namespace kavor {

namespace {

KRX::Model ModelOfPage(const KRX::CustomProperty& page) { return KRX::Model(page.GetParent()); }

std::string Text(const KRX::CustomProperty& page, const wchar_t* name) {
  return ToNarrow(page.GetParameterValue(name).GetString());
}

bool Exists(const KRX::Model& model, const std::string& name) {
  return !name.empty() && model.FindChild(ToWide(name)).IsValid();
}

// The structure file `name` names (a bare name or a file), found in the data folders.
std::optional<KRX::CString> StructurePath(const std::string& name) {
  KRX::CString path;
  const KRX::CString bare = ToWide(StructureNameOf(name));
  if (FindDataFile(DataFileKind::kStructure, bare, kFirstDataRoot, &path) ||
      FindDataFile(DataFileKind::kMocapStructure, bare, kFirstDataRoot, &path)) {
    return path;
  }
  return std::nullopt;
}

void EditStructureFile(const KRX::CustomProperty& page, bool base) {
  std::optional<KRX::CString> path = StructurePath(Text(page, L"StructureFile"));
  if (!path) return;
  if (base) {
    const FileBuffer buffer = ReadWholeFile(*path, nullptr, kMaxSmallTextFileBytes);
    Tokenizer tokenizer(buffer.Text());
    KRX::CString base_path;
    if (!FindDataFile(DataFileKind::kStructureBase, ToWide(tokenizer.ReadWord()), kFirstDataRoot,
                      &base_path)) {
      return;
    }
    path = base_path;
  }
  RunCommand(L"ShowFileForEdit", {KRX::CValue(*path)});
}

void SelectAssigned(const KRX::CustomProperty& page, const KRX::Model& model,
                    const std::string& node) {
  const std::string value = ToNarrow(page.GetParameterValue(ToWide(node)).GetString());
  const KRX::X3DObject control = Exists(model, SplitTagValue(value, 1))
                                     ? model.FindChild(ToWide(SplitTagValue(value, 1)))
                                     : KRX::X3DObject();
  if (!control.IsValid()) return;
  KRX::CString selection = control.GetFullName();
  const std::string extraction = SplitTagValue(value, 2);
  if (Exists(model, extraction))
    selection += KRX::CString(L",") + model.FindChild(ToWide(extraction)).GetFullName();
  RunCommand(L"SelectObj", {KRX::CValue(selection)});
}

// A template saved from a capture's reference model is the map file the scene's
// Mocap-to-Rig page retargets that capture with.
void OfferTemplateToMocapPage(const KRX::Model& model, const KRX::CString& file) {
  if (!FindPropertyByName(model, L"ZRKMocapRef", nullptr)) return;
  KRX::Property mocap_page;
  if (!FindPropertyByName(KRX::Application().GetActiveSceneRoot(), L"MocapToRig", &mocap_page))
    return;
  KRX::CustomProperty page(mocap_page);
  if (page.GetParameter(L"MocapMapFile").IsValid())
    page.PutParameterValue(L"MocapMapFile", KRX::CValue(file));
}

void OnButton(KRX::CustomProperty& page, const std::string& button, KRX::PPGEventContext& context) {
  const KRX::Model model = ModelOfPage(page);
  const KRX::CValue model_name(model.GetFullName());
  if (button == "Load1" || button == "Load2" || button == "Save1" || button == "Save2") {
    const bool load = button[0] == 'L';
    // The page's own template's folder first: the user most likely works beside it.
    const std::string current = ToNarrow(page.GetParameterValue(L"TemplateFile").GetString());
    const std::string current_folder = std::filesystem::path(current).parent_path().string();
    const KRX::CString file = BrowseInRememberedFolder(
        kTagTemplateFilesKey,
        load ? L"Load Template (*.tagt)|*.tagt||" : L"Save Template (*.tagt)|*.tagt||",
        load ? L"Load Template File" : L"Save Template File", load, ToWide(current_folder));
    if (file.IsEmpty()) return;
    RunCommand(load ? L"LoadTagTemplateFile" : L"SaveTagTemplateFile",
               {model_name, KRX::CValue(file)});
    if (!load) OfferTemplateToMocapPage(model, file);
  } else if (button == "Apply1" || button == "Apply2") {
    RunCommand(L"ApplyTagsToRig", {model_name});
  } else if (button == "Clean1" || button == "Clean2") {
    ScopedCommandLoggingOff logging_off;
    RunCommand(L"CleanTagsFromRig", {model_name});
  } else if (button == "EditStructure" || button == "EditBase") {
    EditStructureFile(page, button == "EditBase");
    return;
  } else if (button.rfind("Select_", 0) == 0) {
    SelectAssigned(page, model, button.substr(7));
    return;
  } else {
    PickTagObject(page, model, button);
  }
  RefreshTagPage(page, context);
}

void OnParameter(KRX::CustomProperty& page, const std::string& name, KRX::PPGEventContext& context,
                 KRX::CStatus* status) {
  if (name == "StructureTag") {
    ChooseStructureFile(page);
    RefreshTagPage(page, context);
    return;
  }
  if (name == "StructureFile" || name == "TemplateFile" || name == "dirty") return;
  const KRX::Model model = ModelOfPage(page);
  const std::optional<ModelStructure> structure = ReadStructureProperty(model);
  if (!structure) {
    *status = KRX::CStatus::Fail;
    return;
  }
  const std::string value = ToNarrow(page.GetParameterValue(ToWide(name)).GetString());
  const std::string control = SplitTagValue(value, 1);
  const std::string extraction = SplitTagValue(value, 2);
  if (extraction.empty()) {
    CheckTagValue(page, name, value, *structure, model, control, kTagModeControl);
  } else {
    CheckTagValue(page, name, extraction, *structure, model, control, kTagModeExtraction);
  }
  page.PutParameterValue(L"dirty", KRX::CValue(true));
  RefreshTagPage(page, context);
}

}  // namespace

void ChooseStructureFile(const KRX::CustomProperty& page) {
  std::vector<KRX::CString> files;
  ListDataFiles(DataFileKind::kStructure, kFirstDataRoot, &files);
  if (files.empty()) ShowWarning(L"No Structure Files found.");
  const int index = page.GetParameterValue(L"StructureTag").GetInt();
  if (index < 0 || static_cast<size_t>(index) >= files.size()) {
    ShowWarning(L"Structure File not found.");
    return;
  }
  const std::optional<KRX::CString> path =
      StructurePath(ToNarrow(files[static_cast<size_t>(index)]));
  if (!path) {
    ShowWarning(L"Structure File not found.");
    return;
  }
  const KRX::Model model = ModelOfPage(page);
  if (ToNarrow(*path) == Text(page, L"StructureFile")) {
    BuildTagPageLayout(model, ToNarrow(*path));
  } else {
    RunCommand(L"SetStructureFile", {KRX::CValue(model.GetFullName()), KRX::CValue(*path)});
  }
}

void RefreshTagPage(const KRX::CustomProperty& page, KRX::PPGEventContext& context) {
  const KRX::Model model = ModelOfPage(page);
  KRX::PPGLayout layout = context.GetLayout();
  if (layout.IsValid()) {
    const bool dirty = page.GetParameterValue(L"dirty").GetBool();
    for (const wchar_t* apply : {L"Apply1", L"Apply2"}) {
      KRX::PPGItem item = layout.FindItem(apply);
      if (item.IsValid()) item.PutAttribute(L"buttondisable", KRX::CValue(!dirty));
    }
    const std::vector<KRX::Parameter> parameters = page.GetParameters();
    for (size_t i = kFirstNodeParameter; i < parameters.size(); ++i) {
      const std::string value = ToNarrow(parameters[i].GetValue().GetString());
      const bool assigned =
          Exists(model, SplitTagValue(value, 1)) || Exists(model, SplitTagValue(value, 2));
      KRX::PPGItem item = layout.FindItem(KRX::CString(L"Select_") + parameters[i].GetScriptName());
      if (item.IsValid()) item.PutAttribute(L"buttondisable", KRX::CValue(!assigned));
    }
  }
  context.PutAttribute(L"Refresh", KRX::CValue(true));
}

}  // namespace kavor

KRX_PLUGIN_EXPORT KRX::CStatus TagPPG_PPGEvent(KRX::CRef& in_context) {
  KRX::PPGEventContext context(in_context);
  KRX::CStatus status = KRX::CStatus::OK;
  KRX::CRef source = context.GetSource();
  // A parameter change names the parameter; the page is its owner.
  KRX::CustomProperty page(source);
  if (!page.IsValid()) page = KRX::CustomProperty(KRX::SIObject(source).GetParent());
  if (!page.IsValid()) return KRX::CStatus::Fail;
  switch (context.GetEventID()) {
    case KRX::PPGEvent::OnInit:
      kavor::ChooseStructureFile(page);
      kavor::RefreshTagPage(page, context);
      break;
    case KRX::PPGEvent::OnClosed:
      if (page.GetParameterValue(L"dirty").GetBool()) {
        kavor::RunCommand(L"ApplyTagsToRig",
                          {KRX::CValue(KRX::SIObject(page.GetParent()).GetFullName())});
      }
      break;
    case KRX::PPGEvent::ParameterChange:
      kavor::OnParameter(page, kavor::ToNarrow(context.GetAttribute(L"Parameter").GetString()),
                         context, &status);
      break;
    case KRX::PPGEvent::ButtonClicked:
      kavor::OnButton(page, kavor::ToNarrow(context.GetAttribute(L"Button").GetString()), context);
      break;
    default:
      break;
  }
  return status;
}

KRX_PLUGIN_EXPORT KRX::CStatus TagPPG_Term(KRX::CRef&) { return KRX::CStatus::OK; }
