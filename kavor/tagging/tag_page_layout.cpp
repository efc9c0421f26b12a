// The tag page's layout: the structure choice, the template and apply buttons, and one row
// per node (pick button, the assigned objects, select button), grouped as the structure
// groups its nodes.
#include <memory>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/data_files.h"
#include "kavor/io/messages.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tag_flows.h"

namespace kavor {

namespace {

void Width(KRX::PPGItem item, int width) { item.PutAttribute(L"cx", KRX::CValue(width)); }

void NodeRow(KRX::PPGLayout& layout, const std::string& node) {
  const KRX::CString name = ToWide(node);
  layout.AddRow();
  Width(layout.AddButton(name, L""), 100);
  Width(layout.AddItem(name, L" "), 160);
  Width(layout.AddButton(KRX::CString(L"Select_") + name, L"S"), 25);
  layout.EndRow();
}

void StructureChoice(KRX::PPGLayout& layout, const KRX::CValueArray& items, const wchar_t* edit_button) {
  layout.AddGroup(L"Structure File");
  layout.AddRow();
  Width(layout.AddEnumControl(L"StructureTag", items, L" "), 250);
  if (edit_button) Width(layout.AddButton(edit_button, L"Edit"), 30);
  layout.EndRow();
  layout.EndGroup();
}

void Buttons(KRX::PPGLayout& layout, const wchar_t* suffix) {
  layout.AddGroup(L"");
  layout.AddRow();
  const std::pair<const wchar_t*, const wchar_t*> buttons[] = {
      {L"Load", L"Load"}, {L"Save", L"Save"}, {L"Apply", L"Apply"}, {L"Clean", L"Clean"}};
  for (const auto& [name, label] : buttons) Width(layout.AddButton(KRX::CString(name) + suffix, label), 70);
  layout.EndRow();
  layout.EndGroup();
}

void Groups(KRX::PPGLayout& layout, const std::vector<StructureGroup>& groups) {
  for (const StructureGroup& group : groups) {
    layout.AddGroup(ToWide(group.name));
    for (const StructureGroupNode& node : group.nodes) NodeRow(layout, node.name);
    layout.EndGroup();
  }
}

}  // namespace

bool BuildTagPageLayout(const KRX::Model& model, const std::string& structure_file) {
  KRX::CustomProperty page = GetOrAddTagPage(model);
  const std::string previous = ToNarrow(page.GetParameterValue(L"StructureFile").GetString());
  if (previous != structure_file) page.PutParameterValue(L"StructureFile", KRX::CValue(ToWide(structure_file)));
  const std::string wanted = StructureNameOf(structure_file);
  std::unique_ptr<ModelStructure> structure;
  if (!structure_file.empty()) {
    structure = ParseStructure(ToWide(wanted));
    if (!structure) {
      ShowWarning(L"Error Loading Structure File.");
    } else if (StructureNameOf(previous) != wanted || !ReadStructureProperty(model)) {
      WriteStructureProperty(*structure, model);
      PrepareTagPage(model, *structure);
    }
  }
  std::vector<KRX::CString> files;
  ListDataFiles(DataFileKind::kStructure, kFirstDataRoot, &files);
  KRX::CValueArray items;
  for (size_t i = 0; i < files.size(); ++i) {
    const std::string name = StructureNameOf(ToNarrow(files[i]));
    const KRX::CString label = ToWide(name);
    items.emplace_back(label);
    items.emplace_back(static_cast<int>(i));
    if (name == wanted) page.PutParameterValue(L"StructureTag", KRX::CValue(static_cast<int>(i)));
  }

  KRX::PPGLayout layout = page.GetPPGLayout();
  if (layout.IsValid()) {
    layout.Clear();
    layout.PutAttribute(L"helpfile", KRX::CValue(L"<FactoryPath>/Doc/<DocLangPref>/krxdocs.chm::/charanim_props_Tag.htm"));
    if (!structure) {
      StructureChoice(layout, items, nullptr);
    } else {
      layout.AddTab(L"Main Body Parts");
      StructureChoice(layout, items, L"EditBase");
      Buttons(layout, L"1");
      Groups(layout, structure->base_groups);
      layout.AddTab(L"Extra Parts");
      StructureChoice(layout, items, L"EditStructure");
      Buttons(layout, L"2");
      Groups(layout, structure->groups);
      for (const StructureDecomp& decomp : structure->decomps) {
        layout.AddGroup(ToWide(decomp.name));
        for (const std::string& channel : decomp.channels) NodeRow(layout, channel);
        layout.EndGroup();
      }
    }
  }
  return structure != nullptr;
}

}  // namespace kavor
