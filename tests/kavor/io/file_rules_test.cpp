// The plug-in's files under the host's rules: saved through links and never over a FIFO,
// and the small text formats refused past their size limit before a byte is read.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "app/app_settings.h"
#include "kavor/io/data_files.h"
#include "kavor/io/io_test_support.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/io/whole_file.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/save_kavor_motion.h"
#include "kavor/structure/read_options.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tag_template_file.h"
#include "kavor/tagging/tag_templates.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

namespace fs = std::filesystem;

class FileRules : public rigtest::RigTest {
 protected:
  void SetUp() override {
    RigTest::SetUp();
    KRX::rt::ResetInteraction();
    structure_ = rigtest::MakeStructure();
    rig_ = rigtest::BuildRig("Walker");
    rigtest::TagRig(rig_, *structure_);
    WriteRigSetup(rig_.model, *structure_, nullptr);
    ASSERT_TRUE(PrepareTagPage(rig_.model, *structure_));
    GetOrAddTagPage(rig_.model).PutParameterValue(L"dirty", KRX::CValue(false));
    KRX::rt::ClearLog();
  }
  void TearDown() override {
    KRX::rt::ResetInteraction();
    RigTest::TearDown();
  }

  iotest::TempFolder folder_;
  std::unique_ptr<ModelStructure> structure_;
  rigtest::Rig rig_;
};

// A motion file saved through a link replaces the file the link names, keeping its
// permissions; a tag template saved through a dangling link creates the file it names.
// Both writers refuse a FIFO with the path and the reason, without waiting on it.
TEST_F(FileRules, PluginFilesSaveThroughLinksNeverOverAFifo) {
  const std::string take = folder_ / "takes/walk.kavor";
  iotest::WriteFile(take, "old");
  fs::permissions(take, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  fs::create_symlink("takes/walk.kavor", folder_ / "latest.kavor");
  ASSERT_TRUE(SaveKavorMotion(rig_.model, KRX::CString(folder_ / "latest.kavor"), 1, 2));
  ASSERT_TRUE(fs::is_symlink(folder_ / "latest.kavor"));
  EXPECT_TRUE(ReadKavorMotionFile(KRX::CString(take)));
  EXPECT_EQ(fs::status(take).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);

  fs::create_symlink("walker.tagt", folder_ / "latest.tagt");
  ASSERT_TRUE(SaveTagTemplate(rig_.model, folder_ / "latest.tagt"));
  ASSERT_TRUE(fs::is_symlink(folder_ / "latest.tagt"));
  EXPECT_TRUE(ReadRetargetMapFile(folder_ / "walker.tagt", StructureReadOptions{}));

  const std::string fifo = folder_ / "fifo";
  const std::string refusal = "cannot write \"" + fifo + "\": it is a FIFO, not a regular file";
  iotest::ExpectNoWaitOnFifo(fifo, [&] {
    EXPECT_FALSE(SaveKavorMotion(rig_.model, KRX::CString(fifo), 1, 2));
    EXPECT_FALSE(SaveTagTemplate(rig_.model, fifo));
  });
  ASSERT_EQ(KRX::rt::MessageBoxes().size(), 1u);
  EXPECT_NE(KRX::rt::MessageBoxes()[0].text.GetAsciiString().find(refusal), std::string::npos);
  EXPECT_TRUE(rigtest::LoggedLine(4, refusal));
  EXPECT_TRUE(fs::is_fifo(fifo));
}

// Tag templates, map files and structures larger than the limit are refused with a warning
// naming the file and the limit, from the file's size alone (sparse files, no disk used);
// inheriting such a template leaves the rig untouched.
TEST_F(FileRules, SmallTextFormatsHaveASizeLimit) {
  const fs::path structures = folder_.path() / "Addons" / "Trevalin" / "Data" / "Structures";
  fs::create_directories(structures);
  const std::string previous_root = KRX::rt::GetInstallationPathText(3);
  KRX::rt::SetInstallationPath(3, folder_.path().string());
  ResetDataRoots();
  const std::string limit = "the limit is " + std::to_string(kMaxSmallTextFileBytes) + " bytes";
  for (const std::string name : {"huge.tagt", "huge.map", "Huge.structure"}) {
    const std::string path = (name == "Huge.structure" ? structures : folder_.path()) / name;
    iotest::WriteFile(path, "");
    EXPECT_EQ(truncate(path.c_str(), off_t{300} << 20), 0);
    KRX::rt::ClearLog();
    const KRX::Model bare(KRX::Application().GetActiveSceneRoot().AddModel(L"Bare"));
    if (name == "huge.tagt") {
      EXPECT_FALSE(InheritTagTemplate(bare, path));
      EXPECT_FALSE(FindPropertyByName(bare, kTagPage, nullptr));
    } else if (name == "huge.map") {
      EXPECT_FALSE(ReadRetargetMapFile(path, StructureReadOptions{}));
    } else {
      EXPECT_FALSE(ParseStructure(L"Huge"));
    }
    EXPECT_TRUE(iotest::Logged(4, {"(314572800 bytes, " + limit + "): " + path})) << name;
  }
  KRX::rt::SetInstallationPath(3, previous_root);
  ResetDataRoots();
}

}  // namespace
}  // namespace kavor
