// The frame range of a model: the key range of its branch's animation, or, with retargeted
// motion on it, the motion's own.
#include "kavor/plugin/retarget_frame_range.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kavor/plugin/operations.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

void Key(const KRX::ProjectItem& item, const wchar_t* parameter, std::vector<double> times) {
  std::vector<KRX::FCurveKeyData> keys;
  for (double t : times) keys.push_back({.time = t, .value = t * 0.5});
  ASSERT_TRUE(item.GetParameter(parameter).AddFCurve(keys).IsValid());
}

// "found start end" as GetRetargetFrameRange gives them.
std::string Range(const KRX::Model& model) {
  int32_t start = 123;
  int32_t end = 456;
  const bool found = ops::GetRetargetFrameRange(model, &start, &end);
  return std::to_string(found) + " " + std::to_string(start) + " " + std::to_string(end);
}

// Keys of the whole branch count: the model's own kinematics, a deep child, a custom
// property's parameter; a key between frames widens the range outwards. Nothing animated,
// a single key or animation outside the model is no range. With retargeted motion on the
// model the range is the motion's, which is not available yet and says so.
TEST(RetargetFrameRange, KeysOfTheWholeBranchOrTheMotion) {
  KRX::rt::ResetScene();
  KRX::rt::ClearLog();
  KRX::Model root = KRX::Application().GetActiveSceneRoot();
  KRX::Model hero(root.AddModel(L"Hero").GetRef());
  EXPECT_EQ(Range(hero), "0 2147483647 -2147483647");
  Key(hero.GetKinematics().GetLocal(), L"posx", {7.0});
  EXPECT_EQ(Range(hero), "0 7 7");
  Key(root.AddModel(L"Other").GetKinematics().GetLocal(), L"posy", {-50.0, 100.0});
  EXPECT_EQ(Range(hero), "0 7 7");
  Key(hero.AddNull(L"hip").AddNull(L"knee").GetKinematics().GetLocal(), L"rotz", {10, 40, 25});
  EXPECT_EQ(Range(hero), "1 7 40");
  KRX::CustomProperty extra = hero.AddCustomProperty(L"Extra");
  extra.AddParameter(L"weight", KRX::ValueType::Double, KRX::kCapAnimatable, L"", L"", 0.0);
  Key(extra, L"weight", {-2.5, 41.25});
  EXPECT_EQ(Range(hero), "1 -3 42");
  EXPECT_TRUE(KRX::rt::LogLines().empty());

  // A motion blob that does not read leaves the key range.
  ASSERT_TRUE(hero.AddProperty(L"UserDataBlob", false, L"ZRKRetargetOp").IsValid());
  EXPECT_EQ(Range(hero), "1 -3 42");
}

}  // namespace
}  // namespace kavor
