// The frame range of a model: the key range of its branch's animation, or, with retargeted
// motion on it, the motion's own.
#include "kavor/plugin/retarget_frame_range.h"

#include <gtest/gtest.h>

#include <vector>

#include "kavor/plugin/operations.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

class RetargetFrameRangeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KRX::rt::ResetScene();
    KRX::rt::ClearLog();
    root_ = KRX::Application().GetActiveSceneRoot();
    hero_ = KRX::Model(root_.AddModel(L"Hero").GetRef());
  }

  static void Key(const KRX::X3DObject& object, const wchar_t* parameter,
                  std::vector<double> times) {
    std::vector<KRX::FCurveKeyData> keys;
    for (double t : times) keys.push_back({.time = t, .value = t * 0.5});
    KRX::Parameter p = object.GetKinematics().GetLocal().GetParameter(parameter);
    ASSERT_TRUE(p.IsValid());
    ASSERT_TRUE(p.AddFCurve(keys).IsValid());
  }

  // Whether there is a range, and the start and end written.
  void ExpectRange(bool found, int32_t start, int32_t end) const {
    int32_t got_start = 123;
    int32_t got_end = 456;
    EXPECT_EQ(ops::GetRetargetFrameRange(hero_, &got_start, &got_end), found);
    EXPECT_EQ(got_start, start);
    EXPECT_EQ(got_end, end);
  }

  KRX::Model root_;
  KRX::Model hero_;
};

// Keys of the whole branch count: the model's own kinematics, a deep child, a custom
// property's parameter; a key between frames widens the range outwards. Nothing animated,
// a single key or animation outside the model is no range.
TEST_F(RetargetFrameRangeTest, KeysOfTheWholeBranchCount) {
  ExpectRange(false, 2147483647, -2147483647);  // the search values as they started
  Key(hero_, L"posx", {7.0});
  ExpectRange(false, 7, 7);
  Key(root_.AddModel(L"Other"), L"posy", {-50.0, 100.0});
  ExpectRange(false, 7, 7);
  Key(hero_.AddNull(L"hip").AddNull(L"knee"), L"rotz", {10.0, 40.0, 25.0});
  ExpectRange(true, 7, 40);
  Key(hero_, L"posy", {-3.0, 12.0});
  ExpectRange(true, -3, 40);
  KRX::Parameter weight = hero_.AddCustomProperty(L"Extra").AddParameter(
      L"weight", KRX::ValueType::Double, KRX::kCapAnimatable, L"", L"", 0.0);
  ASSERT_TRUE(weight.IsValid());
  weight.AddFCurve({{.time = 2.5, .value = 0.0}, {.time = 41.25, .value = 1.0}});
  ExpectRange(true, -3, 42);
  EXPECT_TRUE(KRX::rt::LogLines().empty());
}

// With retargeted motion on the model the range is the motion's, which the retarget
// subsystem reports; until it exists the request fails and says so.
TEST_F(RetargetFrameRangeTest, ModelWithMotionBlob) {
  Key(hero_, L"posx", {1.0, 9.0});
  ASSERT_TRUE(hero_.AddProperty(L"UserDataBlob", false, L"ZRKRetargetOp").IsValid());
  ExpectRange(false, 2147483647, -2147483647);
  ASSERT_EQ(KRX::rt::LogLines().size(), 1u);
  EXPECT_EQ(KRX::rt::LogLines()[0].text.GetAsciiString(),
            "GetRetargetFrameRange is not available yet.");
  EXPECT_EQ(KRX::rt::LogLines()[0].severity, 4);
}

}  // namespace
}  // namespace kavor
