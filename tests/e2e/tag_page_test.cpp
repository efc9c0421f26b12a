// Tagging the way a person does: the Tag Rig page of the loaded plug-in on an imported
// rig, objects picked through the host's scripted interaction, a value typed, the page
// closed.
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "app/app_settings.h"
#include "e2e/kavor_module.h"
#include "plugins/pages.h"
#include "runtime/interaction.h"

namespace kavor::e2e {
namespace {

using TagPageTest = KavorModuleTest;

std::string Value(const KRX::CustomProperty& page, const wchar_t* name) {
  return page.GetParameterValue(name).GetString().GetAsciiString();
}

// The loaded module keeps its own data roots, computed from the installation paths on
// first use: another end-to-end test may already have had them computed with no path set.
// Makes the module compute them again.
void ResetModuleDataRoots(const std::string& module_path) {
  void* module = dlopen(module_path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(module, nullptr) << module_path;
  void* reset = dlsym(module, "_ZN5kavor14ResetDataRootsEv");  // kavor::ResetDataRoots()
  if (reset != nullptr) reinterpret_cast<void (*)()>(reset)();
  dlclose(module);
  ASSERT_NE(reset, nullptr);
}

// Installation path 3 on the shipped data for one test, given back (with the module's
// roots reset again) when the test ends.
class ShippedDataPath {
 public:
  ShippedDataPath(const std::filesystem::path& source, std::string module_path)
      : module_path_(std::move(module_path)), previous_(KRX::rt::GetInstallationPathText(3)) {
    KRX::rt::SetInstallationPath(3, (source / "data").string());
    ResetModuleDataRoots(module_path_);
  }
  ~ShippedDataPath() {
    KRX::rt::SetInstallationPath(3, previous_);
    ResetModuleDataRoots(module_path_);
  }

 private:
  std::string module_path_, previous_;
};

TEST_F(TagPageTest, PickTypeAndClose) {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  if (!source) GTEST_SKIP() << "KAVOR_SOURCE_DIR is not set";
  const ShippedDataPath data(source, module_->path);
  KRX::rt::ResetInteraction();
  const std::string walker = (std::filesystem::path(source) / "examples" / "walker.bvh").string();
  ASSERT_EQ(RunCommand(L"ImportBVH", {KRX::CValue(walker), KRX::CValue(L"Walker")}).GetString(),
            KRX::CString(L"Walker"));
  ASSERT_TRUE(RunCommand(L"SetStructureFile", {KRX::CValue(L"Walker"), KRX::CValue(L"Humanoid")})
                  .GetBool());
  const KRX::X3DObject model =
      KRX::Application().GetActiveSceneRoot().FindChild(L"Walker", L"", false);
  KRX::CustomProperty page;
  for (const KRX::Property& p : model.GetProperties()) {
    if (p.GetName() == KRX::CString(L"TagPPG")) page = KRX::CustomProperty(p);
  }
  ASSERT_TRUE(page.IsValid());
  ASSERT_TRUE(KRX::rt::InspectProperty(page, false));
  // Opening keeps the chosen structure and builds the layout with a row per node.
  EXPECT_TRUE(KRX::rt::PageLayout(page).FindItem(L"Select_lShoulder").IsValid());
  EXPECT_EQ(Value(page, L"lShoulder"), "");

  // Pick the upper arm.
  KRX::rt::QueueAnswer({KRX::rt::AnswerKind::Pick, 1, KRX::CString(L"Walker.LeftArm")});
  EXPECT_EQ(KRX::rt::FirePPGEvent(page, KRX::PPGEvent::ButtonClicked, L"lShoulder"),
            KRX::CStatus::OK);
  EXPECT_EQ(Value(page, L"lShoulder"), "LeftArm");
  EXPECT_TRUE(page.GetParameterValue(L"dirty").GetBool());
  {  // A cancelled pick changes nothing.
    KRX::rt::FirePPGEvent(page, KRX::PPGEvent::ButtonClicked, L"lElbow");
    EXPECT_EQ(Value(page, L"lElbow"), "");
  }
  {  // Typed: checked as a pick would be; the other side fills itself.
    page.PutParameterValue(L"lElbow", KRX::CValue(L"LeftForeArm"));
    KRX::rt::FirePPGEvent(page, KRX::PPGEvent::ParameterChange, L"lElbow");
    EXPECT_EQ(Value(page, L"rElbow"), "RightForeArm");
    page.PutParameterValue(L"lWrist", KRX::CValue(L"NoSuchJoint"));
    KRX::rt::FirePPGEvent(page, KRX::PPGEvent::ParameterChange, L"lWrist");
    EXPECT_EQ(Value(page, L"lWrist"), "");
  }
  {  // The template buttons browse beside the page's own template; a cancelled browse does
     // nothing.
    page.PutParameterValue(L"TemplateFile", KRX::CValue(L"/projects/walkers/walker.tagt"));
    KRX::rt::FirePPGEvent(page, KRX::PPGEvent::ButtonClicked, L"Load1");
    ASSERT_FALSE(KRX::rt::FileBrowsers().empty());
    EXPECT_EQ(KRX::rt::FileBrowsers().back().initial_directory, KRX::CString(L"/projects/walkers"));
    EXPECT_EQ(KRX::rt::FileBrowsers().back().title, KRX::CString(L"Load Template File"));
    EXPECT_EQ(Value(page, L"lShoulder"), "LeftArm");
  }
  // Closing a changed page applies it; an incomplete tagging is refused with its reason.
  EXPECT_EQ(KRX::rt::ClosePage(page), KRX::CStatus::OK);
  ASSERT_FALSE(KRX::rt::MessageBoxes().empty());
  EXPECT_EQ(
      KRX::rt::MessageBoxes().back().text.GetAsciiString(),
      "Because you tagged the lShoulder then you must also tag the Spine2 because it is higher in "
      "the hierarchy.");
  bool has_map = false;
  for (const KRX::Property& p : model.GetProperties())
    has_map = has_map || p.GetName() == KRX::CString(L"ZRKMap");
  EXPECT_FALSE(has_map);
}

}  // namespace
}  // namespace kavor::e2e
