// Every command driven by name through the host, as a script or a page runs it: its
// registration and _Init, each check with the message it logs, what the command hands
// back, and the operation it hands its work to.
#include <cctype>
#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "runtime/commands.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor::e2e {
namespace {

// What a command hands back: a value stored as "ReturnValue", or nothing at all.
const KRX::CValue kFalse(false);
const KRX::CValue kTrue(true);
const KRX::CValue kZero(0);
const KRX::CValue kNothing;

// One letter per argument, in order:
//   M  model: refused when missing, then right away when it names no model
//   m  model: refused when missing; naming no model is refused after every other check
//   T I F  text, integer, flag: refused when missing
//   t i f  optional: never refused
//   W  text refused when missing while the argument before it is given
struct CommandCase {
  const char* command;
  std::vector<std::string> arguments;
  const char* kinds;
  // The messages of the checks in order, after "<command> command ".
  std::vector<std::string> checks;
  // The first warning of the operation called with every argument valid on the test
  // scene (a model without tags, a file that does not exist; "" when it logs none), and
  // what the command then hands back. A failed check hands back false, or nothing where
  // the command stores nothing.
  std::string handed_over;
  KRX::CValue back;
};

// clang-format off
const std::vector<CommandCase> kCommands = {
    {"Retarget", {"sourcemodel", "targetmodel", "strarttime", "endtime"}, "MMII",
     {"missing source model.", "invalid source model.", "missing destination model.",
      "invalid destination model.", "missing start frame.", "missing end frame."},
     "Cannot create structure.", kFalse},
    {"RetargetBVH", {"targetmodel", "bvhfile", "mapfile"}, "MTT",
     {"missing destination model.", "invalid destination model.", "missing bvhfile.",
      "missing mapfile."}, "RetargetBvh is not available yet.", kFalse},
    {"RetargetC3DData", {"c3dfile", "mapfile"}, "TT",
     {"missing the c3d file.", "missing the map  file."}, "RetargetC3dData is not available yet.",
     kFalse},
    {"ImportC3DFile", {"c3dfile", "updir", "create_esr_Optional", "esr_structuretemplate_Optional"},
     "TifW", {"missing the c3d file.", "missing the structure file for ESR model."},
     "ImportC3dFile is not available yet.", kFalse},
    {"SaveC3DPoseMap", {"c3dmodel", "ESR_rig", "Map_file"}, "MMT",
     {"missing the c3dmodel", "invalid c3dmodel", "missing the ESR rig", "invalid ESR rig",
      "missing the Map file"}, "SaveC3dPoseMap is not available yet.", kFalse},
    {"SetTagValue", {"model", "tagname", "tagvalue", "tagtype"}, "MTTI",
     {"missing model.", "invalid model.", "missing tagname.", "missing tagvalue.",
      "missing tagtype."}, "SetTagValue: the model has no structure; choose a structure file first.",
     kFalse},
    {"SaveTagTemplateFile", {"model", "tag_template_filename"}, "MT",
     {"missing model.", "invalid model.", "missing template file."},
     "Incorrect tagging. Please re-tag.", kFalse},
    {"LoadTagTemplateFile", {"targetmodel", "template"}, "MT",
     {"missing model.", "invalid model.", "missing template file."}, "", kTrue},
    {"InheritRetargetSetup", {"targetmodel", "template"}, "MT",
     {"missing destination model.", "invalid destination model.", "missing template file."}, "",
     kTrue},
    {"ApplyTagsToRig", {"targetmodel"}, "M", {"missing model.", "invalid model."},
     "cannot find structure file: *", kFalse},
    {"CleanTagsFromRig", {"targetmodel"}, "M", {"missing model.", "invalid model."}, "", kTrue},
    {"SetStructureFile", {"targetmodel", "structurefile"}, "MT",
     {"missing model.", "invalid model.", "missing structure file."},
     "cannot find structure file: file.txt", kFalse},
    // A model without motion has no range: the integer 0, and nothing logged.
    {"RetargetExtractStartFrame", {"model"}, "M", {"missing source model.", "invalid source model."},
     "", kZero},
    {"RetargetExtractEndFrame", {"model"}, "M", {"missing source model.", "invalid source model."},
     "", kZero},
    {"LoadKavorFile", {"targetmodel", "kavorfile", "start"}, "MTi",
     {"missing destination model.", "invalid destination model.", "missing kavorfile."},
     "", kFalse},
    {"SaveKavorFile", {"model", "kavorfile", "start", "end"}, "MTII",
     {"missing source model.", "invalid source model.", "missing kavorfile.",
      "missing start frame.", "missing end frame."}, "Cannot create structure.", kFalse},
    {"RemoveAllKavorPropsAndOps", {"model"}, "M", {"missing target model.", "invalid target model."},
     "", kNothing},
    {"PlotRetargetMotion", {"model", "preserve", "inflection", "interval", "step", "start", "end"},
     "MFFFIII",
     {"missing target model.", "invalid target model.", "missing preserve.", "missing inflection.",
      "missing interval.", "missing step.", "missing start.", "missing end."},
     "Cannot create structure.", kNothing},
    // A model that was only tagged has no retarget setup to remove.
    {"RemoveKAVOROperators", {"model"}, "M", {"missing target model.", "invalid target model."},
     "", kNothing},
    // The file is checked before the model's validity; a model only tagged has no
    // adjustments.
    {"SaveKAVORAdjustmentPresetFile", {"model", "filename"}, "mT",
     {"missing target model.", "missing file path.", "invalid target model."},
     "No KAVOR Data loaded onto model.", kNothing},
    {"LoadKAVORAdjustmentPresetFile", {"model", "filename"}, "mT",
     {"missing target model.", "missing file path.", "invalid target model."},
     "No KAVOR Data loaded onto model.", kNothing},
};
// clang-format on

// Argument values. "Hero" names a model of the test scene, "Nobody" nothing at all.
const KRX::CValue kMissing;
const KRX::CValue kHero(L"Hero");
const KRX::CValue kNobody(L"Nobody");
const KRX::CValue kFile(L"/tmp/kavor-e2e/missing/file.txt");
const KRX::CValue kTen(10);
const KRX::CValue kNo(false);  // a flag given as false still counts as given

KRX::CValue ValidArgument(char kind) {
  switch (std::tolower(static_cast<unsigned char>(kind))) {
    case 'm':
      return kHero;
    case 'i':
      return kTen;
    case 'f':
      return kNo;
    default:
      return kFile;
  }
}

class CommandCheckTest : public KavorModuleTest {
 protected:
  void SetUp() override {
    KavorModuleTest::SetUp();
    KRX::Application().GetActiveSceneRoot().AddModel(L"Hero");
    KRX::rt::ClearLog();
  }

  // Runs the command and checks what it logs and hands back. A failed check logs its
  // message alone and no error; an operation, once handed over, is known by its first
  // warning and may go on to report more.
  static void Expect(const std::string& command, const KRX::CValueArray& arguments,
                     const std::string& warning, const KRX::CValue& back,
                     bool handed_over = false) {
    SCOPED_TRACE(command + " with " + std::to_string(arguments.size()) +
                 " argument(s), expecting \"" + warning + "\"");
    KRX::rt::ClearLog();
    KRX::CValue result(L"untouched");
    EXPECT_EQ(KRX::Application().ExecuteCommand(KRX::CString(command), arguments, result),
              KRX::CStatus::OK);
    std::vector<std::string> warnings = LoggedTexts(KRX::kSeverityWarning);
    if (handed_over && warnings.size() > 1) warnings.resize(1);
    EXPECT_EQ(warnings,
              warning.empty() ? std::vector<std::string>{} : std::vector<std::string>{warning});
    if (!handed_over) {
      EXPECT_EQ(LoggedTexts(KRX::kSeverityError), std::vector<std::string>{});
    }
    EXPECT_EQ(result.GetType(), back.GetType());
    EXPECT_TRUE(result == back);
  }
};

// Registration in the table's order, what each _Init declares, then each check in turn: the
// arguments before it valid, its own missing (or naming nothing), the ones after it left
// out. With every argument valid the command hands over to its operation.
TEST_F(CommandCheckTest, EveryCommandChecksAndHandsOver) {
  ASSERT_EQ(module_->commands.size(), kCommands.size());
  for (size_t i = 0; i < kCommands.size(); ++i) {
    const CommandCase& row = kCommands[i];
    SCOPED_TRACE(row.command);
    EXPECT_EQ(module_->commands[i].name.GetAsciiString(), row.command);
    EXPECT_EQ(module_->commands[i].script_name, module_->commands[i].name);
    KRX::rt::PluginCommandInfo info;
    ASSERT_TRUE(KRX::rt::DescribePluginCommand(KRX::CString(row.command), &info));
    std::vector<std::string> names;
    for (const KRX::CString& name : info.argument_names) names.push_back(name.GetAsciiString());
    EXPECT_EQ(names, row.arguments);
    for (const KRX::CValue& value : info.argument_defaults) EXPECT_TRUE(value.IsEmpty());
    // Only the command that removes everything has no return value; it is not echoed.
    const bool removes_all = std::string(row.command) == "RemoveAllKavorPropsAndOps";
    EXPECT_EQ(info.return_value, !removes_all);
    EXPECT_EQ(info.flags, removes_all ? 0x800000 : 0);

    const std::string prefix = std::string(row.command) + " command ";
    const KRX::CValue& on_failure = row.back.IsEmpty() ? kNothing : kFalse;
    const std::string kinds = row.kinds;
    ASSERT_EQ(kinds.size(), row.arguments.size());
    KRX::CValueArray valid;
    size_t check = 0;
    for (const char kind : kinds) {
      if (kind == 'M' || kind == 'm') {
        Expect(row.command, valid, prefix + row.checks.at(check++), on_failure);
        if (kind == 'M') {
          KRX::CValueArray arguments = valid;
          arguments.push_back(kNobody);
          Expect(row.command, arguments, prefix + row.checks.at(check++), on_failure);
        }
      } else if (std::isupper(static_cast<unsigned char>(kind))) {
        // A model checked later names nothing here: its validity must not come first.
        KRX::CValueArray arguments = valid;
        if (kinds[0] == 'm') arguments[0] = kNobody;
        Expect(row.command, arguments, prefix + row.checks.at(check++), on_failure);
      }
      valid.push_back(ValidArgument(kind));
    }
    if (kinds[0] == 'm') {
      KRX::CValueArray arguments = valid;
      arguments[0] = kNobody;
      Expect(row.command, arguments, prefix + row.checks.at(check++), on_failure);
    }
    EXPECT_EQ(check, row.checks.size());
    Expect(row.command, valid, row.handed_over, row.back, /*handed_over=*/true);
  }
}

// Optional arguments may be left out: the rig's structure file is asked for only when the
// rig flag is given. A model argument is an object reference or a full name, and must name
// a model that still exists. A model with keys gives its key range as the first and last
// frame.
TEST_F(CommandCheckTest, OptionalAndModelArguments) {
  Expect("ImportC3DFile", {kFile, kMissing, kMissing, kFile}, "ImportC3dFile is not available yet.",
         kFalse);
  Expect("LoadKavorFile", {kHero, kFile}, "", kFalse);
  KRX::X3DObject hero = KRX::Application().GetActiveSceneRoot().FindChild(L"Hero", L"", false);
  ASSERT_TRUE(hero.IsValid());
  KRX::X3DObject hip = hero.AddNull(L"hip");
  KRX::X3DObject inner = hero.AddModel(L"Inner");
  const KRX::CValue gone(inner.GetRef());
  const std::string start = "RetargetExtractStartFrame";
  Expect(start, {KRX::CValue(inner.GetFullName())}, "", kZero);
  Expect(start, {gone}, "", kZero);
  KRX::CValue ignored;
  ASSERT_EQ(
      KRX::Application().ExecuteCommand(L"DeleteObj", {KRX::CValue(inner.GetFullName())}, ignored),
      KRX::CStatus::OK);
  for (const KRX::CValue& value :
       {KRX::CValue(hip.GetRef()), KRX::CValue(hip.GetFullName()), gone, kTen}) {
    Expect(start, {value}, start + " command invalid source model.", kFalse);
  }
  hip.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(
      {{.time = 4.0, .value = 0.0}, {.time = 30.0, .value = 1.0}});
  Expect(start, {kHero}, "", KRX::CValue(4));
  Expect("RetargetExtractEndFrame", {KRX::CValue(hero.GetRef())}, "", KRX::CValue(30));
}

// Both template commands hand over to inheriting the template: a template that cannot be
// read is remembered on the model's tag page for the user to fix.
TEST_F(CommandCheckTest, TemplateCommandsInheritTheTemplate) {
  for (const char* command : {"LoadTagTemplateFile", "InheritRetargetSetup"}) {
    SCOPED_TRACE(command);
    KRX::rt::ResetScene();
    const KRX::Model hero(KRX::Application().GetActiveSceneRoot().AddModel(L"Hero").GetRef());
    Expect(command, {kHero, kFile}, "", kTrue, /*handed_over=*/true);
    bool remembered = false;
    for (const KRX::Property& property : hero.GetProperties()) {
      remembered = remembered || property.GetParameterValue(L"TemplateFile") == kFile;
    }
    EXPECT_TRUE(remembered);
  }
}

}  // namespace
}  // namespace kavor::e2e
