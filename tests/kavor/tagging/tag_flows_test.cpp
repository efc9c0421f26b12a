// The tag page's flows on a small rig whose structure lies in a data folder of the test's
// own: applying, cleaning, saving and inheriting, with each flow's messages word for word,
// and the hand-over to the removal of the retarget setup.
#include "kavor/tagging/tag_flows.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "app/app_settings.h"
#include "kavor/io/data_files.h"
#include "kavor/io/io_test_support.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/operators/adjust_property.h"
#include "kavor/operators/motion_blob.h"
#include "kavor/plugin/retarget_frame_range.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tag_templates.h"
#include "kavor/xml/preferences.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

namespace fs = std::filesystem;

using rigtest::LoggedLine;

bool Has(const KRX::X3DObject& object, const wchar_t* property) {
  return FindPropertyByName(object, property, nullptr);
}

class TagFlows : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = temp_.path();
    const fs::path structures = folder_ / "Addons" / "Trevalin" / "Data" / "Structures";
    fs::create_directories(structures);
    std::ofstream(structures / "TestBase.base") << rigtest::kBase;
    std::ofstream(structures / "TestRig.structure") << rigtest::kStructure;
    previous_path_ = KRX::rt::GetInstallationPathText(3);
    KRX::rt::SetInstallationPath(3, folder_.string());
    ResetDataRoots();
    KRX::rt::ResetScene();
    KRX::rt::ResetInteraction();
    structure_ = rigtest::MakeStructure();
    rig_ = rigtest::BuildRig("Walker");
    KRX::rt::ClearLog();
  }
  void TearDown() override {
    KRX::rt::ResetScene();
    KRX::rt::SetInstallationPath(3, previous_path_);
    ResetDataRoots();
  }

  // A tag page for the structure with the given values, marked dirty as picking does.
  KRX::CustomProperty Page(const KRX::Model& model,
                           const std::map<std::string, std::string>& values) {
    WriteStructureProperty(*structure_, model);
    PrepareTagPage(model, *structure_);
    KRX::CustomProperty page = GetOrAddTagPage(model);
    page.PutParameterValue(L"StructureFile", KRX::CValue(L"TestRig"));
    for (const auto& [node, object] : values)
      page.PutParameterValue(ToWide(node), KRX::CValue(ToWide(object)));
    page.PutParameterValue(L"dirty", KRX::CValue(true));
    return page;
  }
  // The whole leg, hips and spine tagged and applied.
  KRX::CustomProperty TagAll(const KRX::Model& model) {
    KRX::CustomProperty page = Page(model, {{"Hips", "Hips"},
                                            {"lHip", "LeftUpLeg"},
                                            {"lKnee", "LeftLeg"},
                                            {"lAnkle", "LeftFoot"},
                                            {"lToes", "LeftToe"},
                                            {"Spine", "Spine"},
                                            {"Chest", "Chest"}});
    EXPECT_TRUE(ApplyTagsToRig(model));
    return page;
  }
  std::string LastBox() const {
    EXPECT_FALSE(KRX::rt::MessageBoxes().empty());
    return KRX::rt::MessageBoxes().empty() ? ""
                                           : KRX::rt::MessageBoxes().back().text.GetAsciiString();
  }
  // Tag name of every tagged object below the model.
  static std::map<std::string, std::string> Tags(const KRX::Model& model) {
    std::map<std::string, std::string> tags;
    for (const KRX::X3DObject& object : model.FindChildren()) {
      KRX::Property tag;
      if (FindPropertyByName(object, L"ZRKTag", &tag)) {
        tags[ToNarrow(object.GetName())] = ToNarrow(tag.GetParameterValue(L"tagname").GetString());
      }
    }
    return tags;
  }

  iotest::TempFolder temp_;
  fs::path folder_;
  std::string previous_path_;
  std::unique_ptr<ModelStructure> structure_;
  rigtest::Rig rig_;
};

TEST_F(TagFlows, ApplyTagsToRigRefusals) {
  EXPECT_FALSE(ApplyTagsToRig(rig_.model));
  EXPECT_TRUE(LoggedLine(2, "No TagPPG found on Model. Please apply TagPPG"));
  EXPECT_FALSE(Has(rig_.model, kTagPage));

  KRX::CustomProperty page = Page(rig_.model, {{"Hips", "Hips"}});
  page.PutParameterValue(L"StructureFile", KRX::CValue(L"NoSuchStructure"));
  EXPECT_FALSE(ApplyTagsToRig(rig_.model));
  EXPECT_TRUE(LoggedLine(2, "No Structure Files found."));

  // A tagging that fails its checks is reported and nothing is applied; the result is true.
  page.PutParameterValue(L"StructureFile", KRX::CValue(L"TestRig"));
  page.PutParameterValue(L"lToes", KRX::CValue(L"LeftToe"));
  EXPECT_TRUE(ApplyTagsToRig(rig_.model));
  EXPECT_EQ(LastBox(),
            "Because you tagged the lToes then you must also tag the lAnkle because it is higher "
            "in the hierarchy.");
  EXPECT_FALSE(Has(rig_.model, kModelMapProperty));
  EXPECT_TRUE(Tags(rig_.model).empty());
  EXPECT_TRUE(page.GetParameterValue(L"dirty").GetBool());
}

TEST_F(TagFlows, CleanTagsFromRig) {
  KRX::CustomProperty page = TagAll(rig_.model);
  ASSERT_TRUE(Has(rig_.model, kModelMapProperty) && Has(rig_.model, kGlueProperty));
  ASSERT_EQ(Tags(rig_.model).size(), 7u);
  rig_.model.AddCustomProperty(L"PlotRetargetPPG");
  EXPECT_TRUE(CleanTagsFromRig(rig_.model));
  EXPECT_TRUE(Tags(rig_.model).empty());
  for (const wchar_t* gone : {kModelMapProperty, kGlueProperty, L"PlotRetargetPPG"}) {
    EXPECT_FALSE(Has(rig_.model, gone)) << ToNarrow(gone);
  }
  EXPECT_TRUE(Has(rig_.model, kStructureProperty));
  ASSERT_TRUE(Has(rig_.model, kTagPage));
  const std::vector<KRX::Parameter> parameters = page.GetParameters();
  ASSERT_EQ(parameters.size(), 4u + 7u + 2u);  // the fixed four, the nodes, cog and pelvis
  EXPECT_EQ(ToNarrow(parameters[1].GetValue().GetString()), "TestRig");
  for (size_t i = 4; i < parameters.size(); ++i)
    EXPECT_EQ(parameters[i].GetValue().GetString(), KRX::CString(L""));
  // A retarget setup goes with the tags.
  rig_.model.AddCustomProperty(kAdjustProperty);
  rig_.model.AddCustomProperty(kMotionBlobProperty);
  EXPECT_TRUE(CleanTagsFromRig(rig_.model));
  EXPECT_FALSE(Has(rig_.model, kAdjustProperty));
  EXPECT_FALSE(Has(rig_.model, kMotionBlobProperty));
}

TEST_F(TagFlows, SaveTagTemplate) {
  const std::string file = (folder_ / "walker.tagt").string();
  EXPECT_FALSE(SaveTagTemplate(rig_.model, file));
  EXPECT_TRUE(LoggedLine(4, "Model not tagged. Please tag the model."));

  KRX::CustomProperty page = Page(rig_.model, {{"Hips", "Hips"}, {"Spine", "Spine"}});
  page.PutParameterValue(L"dirty", KRX::CValue(false));
  EXPECT_FALSE(SaveTagTemplate(rig_.model, file));
  EXPECT_TRUE(LoggedLine(4, "Incorrect tagging. Please re-tag."));
  EXPECT_FALSE(fs::exists(file));

  // A dirty page is applied first, then saved.
  page.PutParameterValue(L"dirty", KRX::CValue(true));
  ASSERT_TRUE(SaveTagTemplate(rig_.model, file));
  EXPECT_FALSE(page.GetParameterValue(L"dirty").GetBool());
  EXPECT_EQ(Tags(rig_.model),
            (std::map<std::string, std::string>{{"Hips", "Hips"}, {"Spine", "Spine"}}));
  EXPECT_EQ(ToNarrow(page.GetParameterValue(L"TemplateFile").GetString()), file);
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  const std::string head = "TestBase\n9 \nHips Hips\nlHip <EmptyFieldkrx>\n";
  EXPECT_EQ(text.str().substr(0, head.size()), head);

  EXPECT_FALSE(SaveTagTemplate(rig_.model, (folder_ / "no" / "such" / "folder.tagt").string()));
  EXPECT_TRUE(
      LoggedLine(4, "You do not have permission to save to this directory.  File not saved."));
}

// A template that names an object the rig lacks, inherited both ways. In file order the
// old setup is taken down and the page values put before the map section fails; the map's
// tags are written from the last entry back, so those after the missing object stay.
// Checked first, the rig keeps the setup it had.
TEST_F(TagFlows, InheritStopsWhereTheTemplateFails) {
  TagAll(rig_.model);
  const std::string file = (folder_ / "walker.tagt").string();
  ASSERT_TRUE(SaveTagTemplate(rig_.model, file));

  for (const bool strict : {false, true}) {
    SCOPED_TRACE(strict ? "checked first" : "in file order");
    const rigtest::Rig other = rigtest::BuildRig(strict ? "Strict" : "Written");
    ASSERT_TRUE(
        TryRunCommand(L"DeleteObj", {KRX::CValue(other.model.GetFullName() + L".LeftToe")}));
    KRX::CustomProperty page = Page(other.model, {{"Hips", "Hips"}});
    ASSERT_TRUE(ApplyTagsToRig(other.model));
    ASSERT_TRUE(Has(other.model, kGlueProperty));
    KRX::Model(other.model).AddCustomProperty(L"PlotRetargetPPG");
    KRX::rt::ClearLog();

    EXPECT_FALSE(InheritTagTemplate(other.model, file, InheritOptions{strict}));
    EXPECT_EQ(LastBox(), "Failed to inherit the template data.  Template does not match the rig.");
    EXPECT_TRUE(page.GetParameterValue(L"dirty").GetBool());
    if (strict) {
      EXPECT_TRUE(LoggedLine(8, "Node LeftToe is missing."));
      EXPECT_EQ(Tags(other.model), (std::map<std::string, std::string>{{"Hips", "Hips"}}));
      EXPECT_TRUE(Has(other.model, kGlueProperty) && Has(other.model, L"PlotRetargetPPG"));
      EXPECT_EQ(ToNarrow(page.GetParameterValue(L"lHip").GetString()), "");
    } else {
      EXPECT_TRUE(LoggedLine(4, "cannot apply tag lToes, node not found: LeftToe"));
      EXPECT_EQ(Tags(other.model),
                (std::map<std::string, std::string>{{"Spine", "Spine"}, {"Chest", "Chest"}}));
      EXPECT_FALSE(Has(other.model, kGlueProperty) || Has(other.model, L"PlotRetargetPPG"));
      EXPECT_EQ(ToNarrow(page.GetParameterValue(L"lHip").GetString()), "LeftUpLeg");
      EXPECT_EQ(ToNarrow(page.GetParameterValue(L"lToes").GetString()), "");
    }
  }
  {  // A complete rig inherits; one that carries a retarget setup hands it over for removal.
    const rigtest::Rig other = rigtest::BuildRig("Complete");
    ASSERT_TRUE(InheritTagTemplate(other.model, file, InheritOptions{}));
    EXPECT_EQ(Tags(other.model).size(), 7u);
    EXPECT_TRUE(Has(other.model, kGlueProperty));
    KRX::Model(other.model).AddCustomProperty(kAdjustProperty);
    ASSERT_TRUE(InheritTagTemplate(other.model, file, InheritOptions{}));
    EXPECT_FALSE(Has(other.model, kAdjustProperty));
  }
}

// The inherit order follows the plug-in's preferences when the caller gives none.
TEST_F(TagFlows, InheritOrderFromThePreferences) {
  EXPECT_FALSE(PreferredInheritOptions().strict);
  KRX::rt::SetInstallationPath(1, folder_.string());
  Preferences(PreferencesFilePath()).SetInteger(kReadingSection, kStrictInheritKey, 1);
  EXPECT_TRUE(PreferredInheritOptions().strict);
  EXPECT_FALSE(PreferredStructureReadOptions().strict);
  KRX::rt::SetInstallationPath(1, "");
  EXPECT_FALSE(PreferredInheritOptions().strict);
}

}  // namespace
}  // namespace kavor
