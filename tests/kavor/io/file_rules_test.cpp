// The plug-in's files under the host's rules: saved through links and never over a FIFO,
// and the small text formats refused past their size limit before a byte is read.
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/app_settings.h"
#include "kavor/io/data_files.h"
#include "kavor/io/io_test_support.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/io/whole_file.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/save_kavor_motion.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tag_template_file.h"
#include "kavor/tagging/tag_templates.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

namespace fs = std::filesystem;
using FileRules = rigtest::RigTest;

// A motion file saved through a link replaces the file the link names; a tag template saved through
// a dangling link creates the file it names. Both writers refuse a FIFO with the path and the
// reason, without waiting on it.
TEST_F(FileRules, PluginFilesSaveThroughLinksNeverOverAFifo) {
  KRX::rt::ResetInteraction();
  const std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  const rigtest::Rig rig = rigtest::BuildRig("Walker");
  const KRX::Model& model = rig.model;
  rigtest::TagRig(rig, *structure);
  WriteRigSetup(model, *structure, nullptr);
  ASSERT_TRUE(PrepareTagPage(model, *structure));
  GetOrAddTagPage(model).PutParameterValue(L"dirty", KRX::CValue(false));
  iotest::TempFolder folder;
  const std::string take = folder / "takes/walk.kavor";
  iotest::WriteFile(take, "old");
  fs::create_symlink("takes/walk.kavor", folder / "latest.kavor");
  ASSERT_TRUE(SaveKavorMotion(model, KRX::CString(folder / "latest.kavor"), 1, 2));
  EXPECT_TRUE(fs::is_symlink(folder / "latest.kavor"));
  EXPECT_TRUE(ReadKavorMotionFile(KRX::CString(take)));
  fs::create_symlink("walker.tagt", folder / "latest.tagt");
  ASSERT_TRUE(SaveTagTemplate(model, folder / "latest.tagt"));
  EXPECT_TRUE(fs::is_symlink(folder / "latest.tagt"));
  EXPECT_TRUE(ReadRetargetMapFile(folder / "walker.tagt", {}));

  const std::string fifo = folder / "fifo";
  const std::string refusal = "cannot write \"" + fifo + "\": it is a FIFO, not a regular file";
  iotest::ExpectNoWaitOnFifo(fifo, [&] {
    EXPECT_FALSE(SaveKavorMotion(model, KRX::CString(fifo), 1, 2));
    EXPECT_FALSE(SaveTagTemplate(model, fifo));
  });
  ASSERT_EQ(KRX::rt::MessageBoxes().size(), 1u);
  EXPECT_NE(KRX::rt::MessageBoxes()[0].text.GetAsciiString().find(refusal), std::string::npos);
  EXPECT_TRUE(rigtest::LoggedLine(4, refusal));
  EXPECT_TRUE(fs::is_fifo(fifo));
  KRX::rt::ResetInteraction();
}

// Tag templates, map files and structures larger than the limit are refused with a warning
// naming the file and the limit, from the file's size alone (sparse files, no disk used);
// inheriting such a template leaves the rig untouched.
TEST_F(FileRules, SmallTextFormatsHaveASizeLimit) {
  iotest::TempFolder folder;
  const fs::path structures = folder.path() / "Addons" / "Trevalin" / "Data" / "Structures";
  const std::string previous_root = KRX::rt::GetInstallationPathText(3);
  KRX::rt::SetInstallationPath(3, folder.path().string());
  ResetDataRoots();
  const KRX::Model bare(KRX::Application().GetActiveSceneRoot().AddModel(L"Bare"));
  const std::string limit = "the limit is " + std::to_string(kMaxSmallTextFileBytes) + " bytes";
  for (const std::string name : {"huge.tagt", "huge.map", "Huge.structure"}) {
    const std::string path = (name == "Huge.structure" ? structures : folder.path()) / name;
    iotest::WriteFile(path, "");
    EXPECT_EQ(truncate(path.c_str(), off_t{300} << 20), 0);
    KRX::rt::ClearLog();
    if (name == "huge.tagt") {
      EXPECT_FALSE(InheritTagTemplate(bare, path));
      EXPECT_FALSE(FindPropertyByName(bare, kTagPage, nullptr));
    } else {
      EXPECT_FALSE(name == "huge.map" ? ReadRetargetMapFile(path, {}).has_value()
                                      : ParseStructure(L"Huge") != nullptr);
    }
    EXPECT_TRUE(iotest::Logged(4, {"(314572800 bytes, " + limit + "): " + path})) << name;
  }
  KRX::rt::SetInstallationPath(3, previous_root);
  ResetDataRoots();
}

}  // namespace
}  // namespace kavor
