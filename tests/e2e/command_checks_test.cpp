// Every command driven by name through the host, as a script or a page runs it: what its
// _Init declares, each check with the message it logs, what the command hands back, and
// the hand-over to its work.
#include <string>
#include <vector>

#include "e2e/kavor_module.h"
#include "runtime/commands.h"
#include "runtime/log.h"

namespace kavor::e2e {
namespace {

enum class Back { kFalse, kNothing, kZero };

// A command's required arguments as kinds: M model (missing, then invalid), T text,
// I integer, F flag (missing only). `checks` are the messages of its checks in order,
// without the "<command> command " in front; `operation` names the work it hands over to
// (null: the work succeeds quietly on the test scene).
struct CommandCase {
  const char* command;
  std::vector<std::string> arguments;
  const char* kinds;
  std::vector<std::string> checks;
  const char* operation;  // the hand-over logged; "" once the operation is real
  Back back;
};

const std::vector<CommandCase> kCommands = {
    {"Retarget", {"sourcemodel", "targetmodel", "strarttime", "endtime"}, "MMII",
     {"missing source model.", "invalid source model.", "missing destination model.",
      "invalid destination model.", "missing start frame.", "missing end frame."},
     "RetargetRigToRig", Back::kFalse},
    {"RetargetBVH", {"targetmodel", "bvhfile", "mapfile"}, "MTT",
     {"missing destination model.", "invalid destination model.", "missing bvhfile.",
      "missing mapfile."},
     "RetargetBvh", Back::kFalse},
    {"RetargetC3DData", {"c3dfile", "mapfile"}, "TT",
     {"missing the c3d file.", "missing the map  file."}, "RetargetC3dData", Back::kFalse},
    {"ImportC3DFile", {"c3dfile", "updir", "create_esr_Optional", "esr_structuretemplate_Optional"},
     "T", {"missing the c3d file."}, "ImportC3dFile", Back::kFalse},
    {"SaveC3DPoseMap", {"c3dmodel", "ESR_rig", "Map_file"}, "MMT",
     {"missing the c3dmodel", "invalid c3dmodel", "missing the ESR rig", "invalid ESR rig",
      "missing the Map file"},
     "SaveC3dPoseMap", Back::kFalse},
    // "" as the operation: implemented, and driven by the tagging and motion file tests.
    {"SetTagValue", {"model", "tagname", "tagvalue", "tagtype"}, "MTTI",
     {"missing model.", "invalid model.", "missing tagname.", "missing tagvalue.",
      "missing tagtype."},
     "", Back::kFalse},
    {"SaveTagTemplateFile", {"model", "tag_template_filename"}, "MT",
     {"missing model.", "invalid model.", "missing template file."}, "", Back::kFalse},
    {"LoadTagTemplateFile", {"targetmodel", "template"}, "MT",
     {"missing model.", "invalid model.", "missing template file."}, "", Back::kFalse},
    {"InheritRetargetSetup", {"targetmodel", "template"}, "MT",
     {"missing destination model.", "invalid destination model.", "missing template file."}, "",
     Back::kFalse},
    {"ApplyTagsToRig", {"targetmodel"}, "M", {"missing model.", "invalid model."}, "",
     Back::kFalse},
    {"CleanTagsFromRig", {"targetmodel"}, "M", {"missing model.", "invalid model."}, "",
     Back::kFalse},
    {"SetStructureFile", {"targetmodel", "structurefile"}, "MT",
     {"missing model.", "invalid model.", "missing structure file."}, "", Back::kFalse},
    // A model without motion has no range: the integer 0, and nothing logged.
    {"RetargetExtractStartFrame", {"model"}, "M",
     {"missing source model.", "invalid source model."}, nullptr, Back::kZero},
    {"RetargetExtractEndFrame", {"model"}, "M", {"missing source model.", "invalid source model."},
     nullptr, Back::kZero},
    {"LoadKavorFile", {"targetmodel", "kavorfile", "start"}, "MT",
     {"missing destination model.", "invalid destination model.", "missing kavorfile."},
     "LoadKavorMotion", Back::kFalse},
    {"SaveKavorFile", {"model", "kavorfile", "start", "end"}, "MTII",
     {"missing source model.", "invalid source model.", "missing kavorfile.",
      "missing start frame.", "missing end frame."},
     "", Back::kFalse},
    {"RemoveAllKavorPropsAndOps", {"model"}, "M",
     {"missing target model.", "invalid target model."}, "RemoveAllKavorSetup", Back::kNothing},
    {"PlotRetargetMotion", {"model", "preserve", "inflection", "interval", "step", "start", "end"},
     "MFFFIII",
     {"missing target model.", "invalid target model.", "missing preserve.", "missing inflection.",
      "missing interval.", "missing step.", "missing start.", "missing end."},
     "MotionPlotter", Back::kNothing},
    {"RemoveKAVOROperators", {"model"}, "M", {"missing target model.", "invalid target model."},
     "RemoveRetargetSetup", Back::kNothing},
    // The preset commands check the file before the model's validity: their checks are
    // driven by PresetCommandsCheckTheFileBeforeTheModel.
    {"SaveKAVORAdjustmentPresetFile", {"model", "filename"}, "", {}, nullptr, Back::kNothing},
    {"LoadKAVORAdjustmentPresetFile", {"model", "filename"}, "", {}, nullptr, Back::kNothing},
};

// Argument values. "Hero" names a model of the test scene, "Nobody" nothing at all.
const KRX::CValue kMissing;
const KRX::CValue kHero(L"Hero");
const KRX::CValue kNobody(L"Nobody");
const KRX::CValue kFile(L"/tmp/kavor-e2e/file.txt");
const KRX::CValue kTen(10);
const KRX::CValue kNo(false);

KRX::CValue ValidArgument(char kind) {
  switch (kind) {
    case 'M':
      return kHero;
    case 'T':
      return kFile;
    case 'I':
      return kTen;
    default:
      return kNo;  // a flag given as false still counts as given
  }
}

class CommandCheckTest : public KavorModuleTest {
 protected:
  void SetUp() override {
    KavorModuleTest::SetUp();
    KRX::Application().GetActiveSceneRoot().AddModel(L"Hero");
    KRX::rt::ClearLog();
  }

  // Runs the command and checks the single warning it logs (none for an empty `warning`)
  // and what it hands back.
  static void Expect(const std::string& command, const KRX::CValueArray& arguments,
                     const std::string& warning, Back back) {
    SCOPED_TRACE(command + " with " + std::to_string(arguments.size()) +
                 " argument(s), expecting \"" + warning + "\"");
    KRX::rt::ClearLog();
    KRX::CValue result(L"untouched");
    EXPECT_EQ(KRX::Application().ExecuteCommand(KRX::CString(command), arguments, result),
              KRX::CStatus::OK);
    const std::vector<std::string> expected =
        warning.empty() ? std::vector<std::string>{} : std::vector<std::string>{warning};
    EXPECT_EQ(LoggedTexts(KRX::kSeverityWarning), expected);
    EXPECT_TRUE(LoggedTexts(KRX::kSeverityError).empty());
    switch (back) {
      case Back::kFalse:
        EXPECT_EQ(result.GetType(), KRX::ValueType::Bool);
        EXPECT_FALSE(result.GetBool());
        break;
      case Back::kNothing:
        EXPECT_TRUE(result.IsEmpty());
        break;
      case Back::kZero:
        EXPECT_EQ(result.GetType(), KRX::ValueType::Int);
        EXPECT_EQ(result.GetInt(), 0);
        break;
    }
  }

  // A failed check hands back false, or nothing where the command stores nothing.
  static Back OnFailure(const CommandCase& row) {
    return row.back == Back::kNothing ? Back::kNothing : Back::kFalse;
  }
};

TEST_F(CommandCheckTest, InitDeclaresTheArguments) {
  ASSERT_EQ(kCommands.size(), 21u);
  for (const CommandCase& row : kCommands) {
    SCOPED_TRACE(row.command);
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
  }
}

// Each check in turn: the arguments before it are valid, its own is missing (or names
// nothing), and the ones after it are left out. With all of them valid the command hands
// over to its operation.
TEST_F(CommandCheckTest, EachCheckLogsItsMessage) {
  for (const CommandCase& row : kCommands) {
    if (row.kinds[0] == '\0') continue;  // checked in an order of their own
    const std::string prefix = std::string(row.command) + " command ";
    KRX::CValueArray valid;
    size_t check = 0;
    for (const char* kind = row.kinds; *kind != '\0'; ++kind) {
      KRX::CValueArray arguments = valid;
      Expect(row.command, arguments, prefix + row.checks.at(check++), OnFailure(row));
      if (*kind == 'M') {
        arguments.push_back(kNobody);
        Expect(row.command, arguments, prefix + row.checks.at(check++), OnFailure(row));
      }
      valid.push_back(ValidArgument(*kind));
    }
    EXPECT_EQ(check, row.checks.size()) << row.command;
    if (row.operation && *row.operation == '\0') continue;
    const std::string handed_over =
        row.operation ? std::string(row.operation) + " is not available yet." : "";
    Expect(row.command, valid, handed_over, row.back);
  }
}

TEST_F(CommandCheckTest, ChecksStopAtTheFirstFailure) {
  Expect("Retarget", {kMissing, kNobody, kMissing, kTen}, "Retarget command missing source model.",
         Back::kFalse);
  Expect("Retarget", {kHero, kHero, kMissing, kMissing}, "Retarget command missing start frame.",
         Back::kFalse);
  Expect("SaveKavorFile", {kNobody}, "SaveKavorFile command invalid source model.", Back::kFalse);
}

TEST_F(CommandCheckTest, OptionalArguments) {
  const std::string structure = "ImportC3DFile command missing the structure file for ESR model.";
  {  // Giving the rig flag at all, even as false, asks for the structure file.
    Expect("ImportC3DFile", {kFile, kMissing, kNo}, structure, Back::kFalse);
    Expect("ImportC3DFile", {kFile, kTen, KRX::CValue(true)}, structure, Back::kFalse);
  }
  {  // The structure alone, or everything given.
    Expect("ImportC3DFile", {kFile, kMissing, kMissing, kFile},
           "ImportC3dFile is not available yet.", Back::kFalse);
    Expect("ImportC3DFile", {kFile, kTen, KRX::CValue(true), kFile},
           "ImportC3dFile is not available yet.", Back::kFalse);
  }
  // The start frame of LoadKavorFile may be given.
  Expect("LoadKavorFile", {kHero, kFile, kTen}, "LoadKavorMotion is not available yet.",
         Back::kFalse);
}

TEST_F(CommandCheckTest, PresetCommandsCheckTheFileBeforeTheModel) {
  for (const std::string command :
       {"SaveKAVORAdjustmentPresetFile", "LoadKAVORAdjustmentPresetFile"}) {
    Expect(command, {}, command + " command missing target model.", Back::kNothing);
    Expect(command, {kNobody}, command + " command missing file path.", Back::kNothing);
    Expect(command, {kHero}, command + " command missing file path.", Back::kNothing);
    Expect(command, {kNobody, kFile}, command + " command invalid target model.", Back::kNothing);
  }
  Expect("SaveKAVORAdjustmentPresetFile", {kHero, kFile},
         "SaveAdjustmentPreset is not available yet.", Back::kNothing);
  Expect("LoadKAVORAdjustmentPresetFile", {kHero, kFile},
         "LoadAdjustmentPreset is not available yet.", Back::kNothing);
}

// A model argument is an object reference or a full name, and must name a model.
TEST_F(CommandCheckTest, ModelArgumentsMustBeModels) {
  KRX::X3DObject hero = KRX::Application().GetActiveSceneRoot().FindChild(L"Hero", L"", false);
  ASSERT_TRUE(hero.IsValid());
  KRX::X3DObject hip = hero.AddNull(L"hip");
  KRX::X3DObject inner = hero.AddModel(L"Inner");
  const std::string invalid = "RemoveKAVOROperators command invalid target model.";
  const std::string handed_over = "RemoveRetargetSetup is not available yet.";
  Expect("RemoveKAVOROperators", {KRX::CValue(hip.GetRef())}, invalid, Back::kNothing);
  Expect("RemoveKAVOROperators", {KRX::CValue(hip.GetFullName())}, invalid, Back::kNothing);
  Expect("RemoveKAVOROperators", {kTen}, invalid, Back::kNothing);
  Expect("RemoveKAVOROperators", {KRX::CValue(inner.GetRef())}, handed_over, Back::kNothing);
  Expect("RemoveKAVOROperators", {KRX::CValue(inner.GetFullName())}, handed_over, Back::kNothing);
  {  // A reference to a deleted model.
    const KRX::CValue gone(inner.GetRef());
    KRX::CValue ignored;
    ASSERT_EQ(KRX::Application().ExecuteCommand(L"DeleteObj", {KRX::CValue(inner.GetFullName())},
                                                ignored),
              KRX::CStatus::OK);
    Expect("RemoveKAVOROperators", {gone}, invalid, Back::kNothing);
  }
}

TEST_F(CommandCheckTest, FrameRangeOfAnimatedModel) {
  KRX::X3DObject hero = KRX::Application().GetActiveSceneRoot().FindChild(L"Hero", L"", false);
  KRX::Parameter posx = hero.AddNull(L"hip").GetKinematics().GetLocal().GetParameter(L"posx");
  ASSERT_TRUE(posx.IsValid());
  posx.AddFCurve({{.time = 4.0, .value = 0.0}, {.time = 30.0, .value = 1.0}});
  KRX::CValue start;
  KRX::CValue end;
  KRX::Application().ExecuteCommand(L"RetargetExtractStartFrame", {kHero}, start);
  KRX::Application().ExecuteCommand(L"RetargetExtractEndFrame", {KRX::CValue(hero.GetRef())}, end);
  EXPECT_EQ(start.GetType(), KRX::ValueType::Int);
  EXPECT_EQ(start.GetInt(), 4);
  EXPECT_EQ(end.GetType(), KRX::ValueType::Int);
  EXPECT_EQ(end.GetInt(), 30);
}

}  // namespace
}  // namespace kavor::e2e
