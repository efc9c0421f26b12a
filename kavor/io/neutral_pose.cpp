// Reading an object's neutral pose.
#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"

namespace kavor {

KRX::MATH::CTransformation NeutralPose(const KRX::X3DObject& object) {
  const KRX::KinematicState local = object.GetKinematics().GetLocal();
  KRX::MATH::CTransformation pose;
  if (!local.IsValid()) return pose;
  // A parameter the state lacks reads as the identity's value.
  const auto read = [&](const wchar_t* name, double absent = 0.0) {
    const KRX::CValue value = local.GetParameterValue(name, kCurrentTime);
    return value.IsEmpty() ? absent : value.GetDouble();
  };
  int order = local.GetParameterValue(L"rotorder", kCurrentTime).GetInt();
  if (order < 0 || order > 5) order = 0;

  pose.SetScalingFromValues(read(L"nsclx", 1.0), read(L"nscly", 1.0), read(L"nsclz", 1.0));
  pose.SetRotationFromXYZAngles(KRX::MATH::CVector3(read(L"nrotx") * kNeutralPoseDegreesToRadians,
                                                    read(L"nroty") * kNeutralPoseDegreesToRadians,
                                                    read(L"nrotz") * kNeutralPoseDegreesToRadians),
                                static_cast<KRX::MATH::RotationOrder>(order));
  pose.SetTranslationFromValues(read(L"nposx"), read(L"nposy"), read(L"nposz"));
  return pose;
}

KRX::MATH::CVector3 GlobalPosition(const KRX::X3DObject& object) {
  return object.GetKinematics().GetGlobal().GetTransform(kCurrentTime).GetTranslation();
}

}  // namespace kavor
