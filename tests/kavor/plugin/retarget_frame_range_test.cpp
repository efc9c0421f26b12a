// The frame range of a model without retargeted motion: the key range of its animation.
#include "kavor/plugin/retarget_frame_range.h"

#include <gtest/gtest.h>

#include <string>
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

  struct Range {
    bool found;
    int32_t start;
    int32_t end;
  };
  Range Get() const {
    Range r{false, 123, 456};
    r.found = ops::GetRetargetFrameRange(hero_, &r.start, &r.end);
    return r;
  }

  KRX::Model root_;
  KRX::Model hero_;
};

TEST_F(RetargetFrameRangeTest, NoAnimationIsNoRange) {
  const auto expect = [this](int32_t start, int32_t end) {
    const Range r = Get();
    EXPECT_FALSE(r.found);
    EXPECT_EQ(r.start, start);
    EXPECT_EQ(r.end, end);
  };
  expect(2147483647, -2147483647);  // nothing animated: the search values as they started
  Key(hero_, L"posx", {7.0});
  expect(7, 7);  // one key is a single frame, not a range
  Key(root_.AddModel(L"Other"), L"posy", {-50.0, 100.0});
  expect(7, 7);  // animation outside the model does not count
  EXPECT_TRUE(KRX::rt::LogLines().empty());
}

// Keys of the whole branch count: a deep child, the model's own kinematics, a custom
// property's parameter; a key between frames widens the range outwards.
TEST_F(RetargetFrameRangeTest, KeysOfTheWholeBranchCount) {
  const auto expect = [this](int32_t start, int32_t end) {
    const Range r = Get();
    EXPECT_TRUE(r.found);
    EXPECT_EQ(r.start, start);
    EXPECT_EQ(r.end, end);
  };
  Key(hero_.AddNull(L"hip").AddNull(L"knee"), L"rotz", {10.0, 40.0, 25.0});
  expect(10, 40);
  Key(hero_, L"posx", {-3.0, 12.0});
  expect(-3, 40);
  KRX::Parameter weight = hero_.AddCustomProperty(L"Extra").AddParameter(
      L"weight", KRX::ValueType::Double, KRX::kCapAnimatable, L"", L"", 0.0);
  ASSERT_TRUE(weight.IsValid());
  weight.AddFCurve({{.time = 2.5, .value = 0.0}, {.time = 41.25, .value = 1.0}});
  expect(-3, 42);
}

// With retargeted motion on the model the range is the motion's, which the retarget
// subsystem reports; until it exists the request fails and says so.
TEST_F(RetargetFrameRangeTest, ModelWithMotionBlob) {
  Key(hero_, L"posx", {1.0, 9.0});
  ASSERT_TRUE(hero_.AddProperty(L"UserDataBlob", false, L"ZRKRetargetOp").IsValid());
  const Range r = Get();
  EXPECT_FALSE(r.found);
  ASSERT_EQ(KRX::rt::LogLines().size(), 1u);
  EXPECT_EQ(KRX::rt::LogLines()[0].text.GetAsciiString(),
            "GetRetargetFrameRange is not available yet.");
  EXPECT_EQ(KRX::rt::LogLines()[0].severity, 4);
}

}  // namespace
}  // namespace kavor
