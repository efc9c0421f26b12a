// The 21 commands: their rows, their hand-overs and the callbacks the host finds by name.
#include "kavor/plugin/command_table.h"

#include <cstdint>
#include <string_view>

#include "kavor/plugin/command_call.h"
#include "kavor/plugin/operations.h"
#include "krx/plugin.h"

namespace kavor {

namespace {

using Kind = ArgumentKind;

// Argument rows. `words` follow "missing " (and "invalid " for a model) in the messages.
constexpr ArgumentRow ModelArgument(const char* name, const char* words,
                                    const char* invalid_words = nullptr) {
  return {name, Kind::kModel, ArgumentCheck::kValidModel, words, invalid_words};
}
constexpr ArgumentRow RequiredArgument(const char* name, Kind kind, const char* words) {
  return {name, kind, ArgumentCheck::kPresent, words, nullptr};
}
constexpr ArgumentRow OptionalArgument(const char* name, Kind kind) {
  return {name, kind, ArgumentCheck::kOptional, nullptr, nullptr};
}
// Required once the argument before it was given, whatever that argument's value.
constexpr ArgumentRow RequiredAfterGivenArgument(const char* name, Kind kind, const char* words) {
  return {name, kind, ArgumentCheck::kPresentAfterGiven, words, nullptr};
}

// Hand-overs: each reads the arguments its operation takes, in the row's kinds.
namespace hand_over {

KRX::CValue RetargetRigToRig(const CommandCall& call) {
  return ops::RetargetRigToRig(call.ModelAt(0), call.ModelAt(1), call.IntegerAt(2),
                               call.IntegerAt(3));
}

KRX::CValue RetargetBvh(const CommandCall& call) {
  return ops::RetargetBvh(call.TextAt(1), call.TextAt(2), call.ModelAt(0));
}

KRX::CValue RetargetC3dData(const CommandCall& call) {
  return ops::RetargetC3dData(call.TextAt(0), call.TextAt(1));
}

KRX::CValue ImportC3dFile(const CommandCall& call) {
  constexpr int32_t kDefaultUpAxis = 2;  // Z up, as most capture files are
  return ops::ImportC3dFile(call.TextAt(0), call.IntegerOr(1, kDefaultUpAxis),
                            call.FlagOr(2, false), call.TextOr(3, KRX::CString()));
}

KRX::CValue SaveC3dPoseMap(const CommandCall& call) {
  return ops::SaveC3dPoseMap(call.ModelAt(0), call.ModelAt(1), call.TextAt(2));
}

KRX::CValue SetTagValue(const CommandCall& call) {
  return ops::SetTagValue(call.ModelAt(0), call.TextAt(1), call.TextAt(2), call.IntegerAt(3));
}

KRX::CValue SaveTagTemplate(const CommandCall& call) {
  return ops::SaveTagTemplate(call.ModelAt(0), call.TextAt(1));
}

KRX::CValue InheritTagTemplate(const CommandCall& call) {
  return ops::InheritTagTemplate(call.ModelAt(0), call.TextAt(1));
}

KRX::CValue ApplyTagsToRig(const CommandCall& call) { return ops::ApplyTagsToRig(call.ModelAt(0)); }

KRX::CValue CleanTagsFromRig(const CommandCall& call) {
  return ops::CleanTagsFromRig(call.ModelAt(0));
}

KRX::CValue BuildTagPageLayout(const CommandCall& call) {
  return ops::BuildTagPageLayout(call.ModelAt(0), call.TextAt(1));
}

// The first or last frame of the model's range as an integer; the integer 0 when the
// model has no range.
KRX::CValue FrameRangeStart(const CommandCall& call) {
  int32_t start_frame = 0;
  int32_t end_frame = 0;
  if (!ops::GetRetargetFrameRange(call.ModelAt(0), &start_frame, &end_frame)) return 0;
  return start_frame;
}

KRX::CValue FrameRangeEnd(const CommandCall& call) {
  int32_t start_frame = 0;
  int32_t end_frame = 0;
  if (!ops::GetRetargetFrameRange(call.ModelAt(0), &start_frame, &end_frame)) return 0;
  return end_frame;
}

KRX::CValue LoadKavorMotion(const CommandCall& call) {
  // Without a start the motion plays from frame 0.
  return ops::LoadKavorMotion(call.TextAt(1), call.ModelAt(0), call.IntegerOr(2, 0));
}

KRX::CValue SaveKavorMotion(const CommandCall& call) {
  return ops::SaveKavorMotion(call.ModelAt(0), call.TextAt(1), call.IntegerAt(2),
                              call.IntegerAt(3));
}

KRX::CValue RemoveAllKavorSetup(const CommandCall& call) {
  return ops::RemoveAllKavorSetup(call.ModelAt(0));
}

// Plotting reports its outcome itself.
KRX::CValue RunMotionPlotter(const CommandCall& call) {
  ops::PlotRequest request;
  request.model = call.ModelAt(0);
  request.preserve = call.FlagAt(1);
  request.inflection = call.FlagAt(2);
  request.interval = call.FlagAt(3);
  request.step = call.IntegerAt(4);
  request.start_frame = call.IntegerAt(5);
  request.end_frame = call.IntegerAt(6);
  return ops::RunMotionPlotter(request);
}

KRX::CValue RemoveRetargetSetup(const CommandCall& call) {
  return ops::RemoveRetargetSetup(call.ModelAt(0));
}

KRX::CValue SaveAdjustmentPreset(const CommandCall& call) {
  return ops::SaveAdjustmentPreset(call.ModelAt(0), call.TextAt(1));
}

KRX::CValue LoadAdjustmentPreset(const CommandCall& call) {
  return ops::LoadAdjustmentPreset(call.ModelAt(0), call.TextAt(1), call.TimeFrames());
}

}  // namespace hand_over

constexpr CommandRow kCommands[] = {
    {"Retarget",
     {ModelArgument("sourcemodel", "source model."),
      ModelArgument("targetmodel", "destination model."),
      RequiredArgument("strarttime", Kind::kInteger, "start frame."),
      RequiredArgument("endtime", Kind::kInteger, "end frame.")},
     CommandReturn::kValue,
     hand_over::RetargetRigToRig},
    {"RetargetBVH",
     {ModelArgument("targetmodel", "destination model."),
      RequiredArgument("bvhfile", Kind::kText, "bvhfile."),
      RequiredArgument("mapfile", Kind::kText, "mapfile.")},
     CommandReturn::kValue,
     hand_over::RetargetBvh},
    // The double blank before "file" is how the message has always read.
    {"RetargetC3DData",
     {RequiredArgument("c3dfile", Kind::kText, "the c3d file."),
      RequiredArgument("mapfile", Kind::kText, "the map  file.")},
     CommandReturn::kValue,
     hand_over::RetargetC3dData},
    // Asking for the rig at all, whatever the flag's value, needs its structure.
    {"ImportC3DFile",
     {RequiredArgument("c3dfile", Kind::kText, "the c3d file."),
      OptionalArgument("updir", Kind::kInteger),
      OptionalArgument("create_esr_Optional", Kind::kFlag),
      RequiredAfterGivenArgument("esr_structuretemplate_Optional", Kind::kText,
                                 "the structure file for ESR model.")},
     CommandReturn::kValue,
     hand_over::ImportC3dFile},
    // These messages have no final period, and the model words differ between missing
    // and invalid.
    {"SaveC3DPoseMap",
     {ModelArgument("c3dmodel", "the c3dmodel", "c3dmodel"),
      ModelArgument("ESR_rig", "the ESR rig", "ESR rig"),
      RequiredArgument("Map_file", Kind::kText, "the Map file")},
     CommandReturn::kValue,
     hand_over::SaveC3dPoseMap},
    {"SetTagValue",
     {ModelArgument("model", "model."), RequiredArgument("tagname", Kind::kText, "tagname."),
      RequiredArgument("tagvalue", Kind::kText, "tagvalue."),
      RequiredArgument("tagtype", Kind::kInteger, "tagtype.")},
     CommandReturn::kValue,
     hand_over::SetTagValue},
    {"SaveTagTemplateFile",
     {ModelArgument("model", "model."),
      RequiredArgument("tag_template_filename", Kind::kText, "template file.")},
     CommandReturn::kValue,
     hand_over::SaveTagTemplate},
    // LoadTagTemplateFile and InheritRetargetSetup run the same operation; they differ
    // only in their messages.
    {"LoadTagTemplateFile",
     {ModelArgument("targetmodel", "model."),
      RequiredArgument("template", Kind::kText, "template file.")},
     CommandReturn::kValue,
     hand_over::InheritTagTemplate},
    {"InheritRetargetSetup",
     {ModelArgument("targetmodel", "destination model."),
      RequiredArgument("template", Kind::kText, "template file.")},
     CommandReturn::kValue,
     hand_over::InheritTagTemplate},
    {"ApplyTagsToRig",
     {ModelArgument("targetmodel", "model.")},
     CommandReturn::kValue,
     hand_over::ApplyTagsToRig},
    {"CleanTagsFromRig",
     {ModelArgument("targetmodel", "model.")},
     CommandReturn::kValue,
     hand_over::CleanTagsFromRig},
    {"SetStructureFile",
     {ModelArgument("targetmodel", "model."),
      RequiredArgument("structurefile", Kind::kText, "structure file.")},
     CommandReturn::kValue,
     hand_over::BuildTagPageLayout},
    {"RetargetExtractStartFrame",
     {ModelArgument("model", "source model.")},
     CommandReturn::kValue,
     hand_over::FrameRangeStart},
    {"RetargetExtractEndFrame",
     {ModelArgument("model", "source model.")},
     CommandReturn::kValue,
     hand_over::FrameRangeEnd},
    {"LoadKavorFile",
     {ModelArgument("targetmodel", "destination model."),
      RequiredArgument("kavorfile", Kind::kText, "kavorfile."),
      OptionalArgument("start", Kind::kInteger)},
     CommandReturn::kValue,
     hand_over::LoadKavorMotion},
    {"SaveKavorFile",
     {ModelArgument("model", "source model."),
      RequiredArgument("kavorfile", Kind::kText, "kavorfile."),
      RequiredArgument("start", Kind::kInteger, "start frame."),
      RequiredArgument("end", Kind::kInteger, "end frame.")},
     CommandReturn::kValue,
     hand_over::SaveKavorMotion},
    // Not echoed to the host's command log, and without a return value.
    {"RemoveAllKavorPropsAndOps",
     {ModelArgument("model", "target model.")},
     CommandReturn::kNone,
     hand_over::RemoveAllKavorSetup,
     CheckOrder::kArgumentByArgument,
     KRX::kCommandFlagNoLogging},
    {"PlotRetargetMotion",
     {ModelArgument("model", "target model."),
      RequiredArgument("preserve", Kind::kFlag, "preserve."),
      RequiredArgument("inflection", Kind::kFlag, "inflection."),
      RequiredArgument("interval", Kind::kFlag, "interval."),
      RequiredArgument("step", Kind::kInteger, "step."),
      RequiredArgument("start", Kind::kInteger, "start."),
      RequiredArgument("end", Kind::kInteger, "end.")},
     CommandReturn::kNotStored,
     hand_over::RunMotionPlotter},
    // Run for its effect on the scene; the outcome is not stored.
    {"RemoveKAVOROperators",
     {ModelArgument("model", "target model.")},
     CommandReturn::kNotStored,
     hand_over::RemoveRetargetSetup},
    // The preset commands check the file name before the model's validity, so a call
    // without a file reports the file even when the model is also wrong.
    {"SaveKAVORAdjustmentPresetFile",
     {ModelArgument("model", "target model."),
      RequiredArgument("filename", Kind::kText, "file path.")},
     CommandReturn::kNotStored,
     hand_over::SaveAdjustmentPreset,
     CheckOrder::kPresenceFirst},
    {"LoadKAVORAdjustmentPresetFile",
     {ModelArgument("model", "target model."),
      RequiredArgument("filename", Kind::kText, "file path.")},
     CommandReturn::kNotStored,
     hand_over::LoadAdjustmentPreset,
     CheckOrder::kPresenceFirst},
};

constexpr size_t kCommandCount = std::size(kCommands);

// The row of the command `name`; kCommandCount when there is none.
constexpr size_t CommandIndex(std::string_view name) {
  for (size_t i = 0; i < kCommandCount; ++i) {
    if (name == kCommands[i].name) return i;
  }
  return kCommandCount;
}

// Rules of a well-formed table, checked when the plug-in is compiled: names unique, a
// hand-over on every row, every checked argument has its words, only models are checked
// for validity, and a check that depends on the argument before it has one.
constexpr bool TableIsWellFormed() {
  for (size_t i = 0; i < kCommandCount; ++i) {
    const CommandRow& row = kCommands[i];
    if (CommandIndex(row.name) != i || row.hand_over == nullptr) return false;
    const size_t count = row.ArgumentCount();
    for (size_t a = count; a < kMaxCommandArguments; ++a) {
      if (row.arguments[a].missing != nullptr) return false;
    }
    for (size_t a = 0; a < count; ++a) {
      const ArgumentRow& argument = row.arguments[a];
      if ((argument.check != ArgumentCheck::kOptional) != (argument.missing != nullptr)) {
        return false;
      }
      if (argument.check == ArgumentCheck::kValidModel && argument.kind != Kind::kModel) {
        return false;
      }
      if (argument.check == ArgumentCheck::kPresentAfterGiven && a == 0) return false;
    }
  }
  return true;
}
static_assert(TableIsWellFormed());

}  // namespace

std::span<const CommandRow> CommandTable() { return kCommands; }

}  // namespace kavor

// Each command's two callbacks, found by the host by name, run the shell over its row.
#define KAVOR_COMMAND_CALLBACKS(Name)                                                    \
  static_assert(kavor::CommandIndex(#Name) < kavor::kCommandCount, #Name " has no row"); \
  KRX_PLUGIN_EXPORT KRX::CStatus Name##_Init(KRX::CRef& context) {                       \
    return kavor::InitCommand(context, kavor::kCommands[kavor::CommandIndex(#Name)]);    \
  }                                                                                      \
  KRX_PLUGIN_EXPORT KRX::CStatus Name##_Execute(KRX::CRef& context) {                    \
    return kavor::ExecuteCommand(context, kavor::kCommands[kavor::CommandIndex(#Name)]); \
  }

KAVOR_COMMAND_CALLBACKS(Retarget)
KAVOR_COMMAND_CALLBACKS(RetargetBVH)
KAVOR_COMMAND_CALLBACKS(RetargetC3DData)
KAVOR_COMMAND_CALLBACKS(ImportC3DFile)
KAVOR_COMMAND_CALLBACKS(SaveC3DPoseMap)
KAVOR_COMMAND_CALLBACKS(SetTagValue)
KAVOR_COMMAND_CALLBACKS(SaveTagTemplateFile)
KAVOR_COMMAND_CALLBACKS(LoadTagTemplateFile)
KAVOR_COMMAND_CALLBACKS(InheritRetargetSetup)
KAVOR_COMMAND_CALLBACKS(ApplyTagsToRig)
KAVOR_COMMAND_CALLBACKS(CleanTagsFromRig)
KAVOR_COMMAND_CALLBACKS(SetStructureFile)
KAVOR_COMMAND_CALLBACKS(RetargetExtractStartFrame)
KAVOR_COMMAND_CALLBACKS(RetargetExtractEndFrame)
KAVOR_COMMAND_CALLBACKS(LoadKavorFile)
KAVOR_COMMAND_CALLBACKS(SaveKavorFile)
KAVOR_COMMAND_CALLBACKS(RemoveAllKavorPropsAndOps)
KAVOR_COMMAND_CALLBACKS(PlotRetargetMotion)
KAVOR_COMMAND_CALLBACKS(RemoveKAVOROperators)
KAVOR_COMMAND_CALLBACKS(SaveKAVORAdjustmentPresetFile)
KAVOR_COMMAND_CALLBACKS(LoadKAVORAdjustmentPresetFile)
