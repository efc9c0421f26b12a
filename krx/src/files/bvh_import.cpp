#include "files/bvh_import.h"

#include <cmath>
#include <filesystem>

#include "files/file_io.h"
#include "files/text_codec.h"
#include "runtime/commands.h"
#include "runtime/log.h"

namespace KRX::rt::files {

namespace {

constexpr uint64_t kMaxBvhFileBytes = uint64_t{1} << 30;

// Rotation channels listed Z, X, Y rotate about Y first, then X, then Z: the rotation
// order is the file's order reversed (an axis without a channel has angle 0 and may go
// anywhere).
MATH::RotationOrder RotationOrderOf(const BvhJoint& joint) {
  int axes[3];
  int count = 0;
  for (auto it = joint.channels.rbegin(); it != joint.channels.rend() && count < 3; ++it) {
    const int channel = static_cast<int>(*it);
    if (channel >= 3) axes[count++] = channel - 3;
  }
  for (int axis = 0; axis < 3 && count < 3; ++axis) {
    bool listed = false;
    for (int i = 0; i < count; ++i) listed = listed || axes[i] == axis;
    if (!listed) axes[count++] = axis;
  }
  static constexpr int kOrders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                        {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  for (int order = 0; order < 6; ++order) {
    if (kOrders[order][0] == axes[0] && kOrders[order][1] == axes[1] &&
        kOrders[order][2] == axes[2]) {
      return static_cast<MATH::RotationOrder>(order);
    }
  }
  return MATH::RotationOrder::XYZ;
}

// A linear key on every frame from frame 1. The curve takes the column over in its
// compact form: no key record is built per frame.
void AnimateParameter(KinematicState& local, const wchar_t* name, std::vector<double> values) {
  local.GetParameter(name).AddSampledFCurve(1.0, 1.0, std::move(values), Interpolation::Linear);
}

X3DObject AddJointNull(X3DObject parent, const std::string& name, const MATH::CVector3& offset) {
  X3DObject joint = parent.AddNull(CString(name));
  KinematicState local = joint.GetKinematics().GetLocal();
  local.PutParameterValue(L"posx", CValue(offset.GetX()));
  local.PutParameterValue(L"posy", CValue(offset.GetY()));
  local.PutParameterValue(L"posz", CValue(offset.GetZ()));
  return joint;
}

CStatus ImportBvh(const CValueArray& args, CValue& result) {
  result = CValue(false);
  const std::string path = args.empty() || args[0].IsEmpty()
                               ? std::string()
                               : WideToUtf8(args[0].GetString().GetWideString());
  if (path.empty()) {
    Log(L"ImportBVH: no file given.", kSeverityError);
    return CStatus::OK;
  }
  std::vector<uint8_t> bytes;
  std::string error;
  if (!ReadRegularFile(path, kMaxBvhFileBytes, &bytes, &error)) {
    Log(CString("ImportBVH: " + error), kSeverityError);
    return CStatus::OK;
  }
  std::optional<BvhFile> file =
      ParseBvh(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), &error);
  std::vector<uint8_t>().swap(bytes);  // the text is not needed past parsing
  if (!file) {
    Log(CString("ImportBVH: " + path + ": " + error), kSeverityError);
    return CStatus::OK;
  }
  const std::string announced = std::to_string(file->announced_frames);
  const std::string held = std::to_string(file->frame_count);
  if (file->frame_count < file->announced_frames) {
    Log(CString("ImportBVH: " + path + ": the file announces " + announced +
                " frames but holds only " + held + "; " + held + " imported"),
        kSeverityWarning);
  } else if (file->frame_count > file->announced_frames) {
    Log(CString("ImportBVH: " + path + ": the file announces " + announced + " frames but holds " +
                held + ", more than announced; all " + held + " imported"),
        kSeverityWarning);
  }
  CString name = args.size() > 1 && !args[1].IsEmpty() ? args[1].GetString() : CString();
  if (name.IsEmpty()) name = CString(std::filesystem::path(path).stem().string());
  const size_t joint_count = file->joints.size();
  const Model model = BuildBvhRig(std::move(*file), name);
  result = CValue(model.GetName());
  Log(CString("Imported " + std::filesystem::path(path).filename().string() + ": " +
              std::to_string(joint_count) + " joints, " + held + " frames as ") +
          model.GetName() + CString(L"."),
      kSeverityInfo);
  return CStatus::OK;
}

}  // namespace

Model BuildBvhRig(BvhFile&& file, const CString& model_name) {
  Model model(Application().GetActiveSceneRoot().AddModel(model_name));
  std::vector<X3DObject> joints;
  joints.reserve(file.joints.size());
  for (const BvhJoint& joint : file.joints) {
    X3DObject parent =
        joint.parent >= 0 ? joints[static_cast<size_t>(joint.parent)] : X3DObject(model);
    X3DObject object = AddJointNull(parent, joint.name, joint.offset);
    joints.push_back(object);
    KinematicState local = object.GetKinematics().GetLocal();
    local.PutParameterValue(L"rotorder", CValue(static_cast<int>(RotationOrderOf(joint))));
    if (joint.has_end_site) AddJointNull(object, joint.name + "_End", joint.end_offset);
    if (file.frame_count == 0) continue;
    // Position channels replace the offset: the components without a channel are 0.
    bool position_channel[3] = {false, false, false};
    for (size_t c = 0; c < joint.channels.size(); ++c) {
      const int channel = static_cast<int>(joint.channels[c]);
      static const wchar_t* const kParams[6] = {L"posx", L"posy", L"posz",
                                                L"rotx", L"roty", L"rotz"};
      AnimateParameter(local, kParams[channel], std::move(file.columns[joint.first_channel + c]));
      if (channel < 3) position_channel[channel] = true;
    }
    if (position_channel[0] || position_channel[1] || position_channel[2]) {
      static const wchar_t* const kPositions[3] = {L"posx", L"posy", L"posz"};
      for (int axis = 0; axis < 3; ++axis) {
        if (!position_channel[axis])
          AnimateParameter(local, kPositions[axis], std::vector<double>(file.frame_count, 0.0));
      }
    }
  }
  if (file.frame_count > 0) {
    Property play = Application().GetActiveProject().GetPlayControl();
    play.PutParameterValue(L"In", CValue(1));
    play.PutParameterValue(L"Out", CValue(static_cast<int>(file.frame_count)));
    play.PutParameterValue(L"Rate", CValue(std::round(1.0 / file.frame_time)));
  }
  return model;
}

void RegisterBvhImportCommand() { RegisterHostCommand(L"ImportBVH", &ImportBvh); }

}  // namespace KRX::rt::files
