// Compact function curves: the same keys as the full form, bit for bit, in evaluation,
// editing, saving and reopening; a key-by-key edit turns the curve into the full form.
#include "anim/sampled_curve.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "anim/fcurve_eval.h"
#include "files/scene_file.h"
#include "krx/files/file_test_support.h"
#include "runtime/item.h"

namespace KRX::rt {
namespace {

using I = Interpolation;

bool SameBits(double a, double b) {
  return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
}

bool SameKeys(const std::vector<FCurveKeyData>& a, const std::vector<FCurveKeyData>& b) {
  const auto same = [](const FCurveKeyData& x, const FCurveKeyData& y) {
    return SameBits(x.time, y.time) && SameBits(x.value, y.value) &&
           SameBits(x.left_dx, y.left_dx) && SameBits(x.left_dy, y.left_dy) &&
           SameBits(x.right_dx, y.right_dx) && SameBits(x.right_dy, y.right_dy) &&
           x.interpolation == y.interpolation;
  };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

// A key every `step` frames from `start` (the step as the first two times give it back),
// values of a joint angle in degrees.
std::vector<FCurveKeyData> UniformKeys(double start, double step, size_t count, I interpolation) {
  const double held_step = (start + step) - start;
  std::vector<FCurveKeyData> keys(count);
  for (size_t i = 0; i < count; ++i) {
    keys[i].time = start + static_cast<double>(i) * held_step;
    keys[i].value = 40.0 * std::sin(0.3 * static_cast<double>(i)) + (i % 3 == 0 ? 7.0 : 0.0);
    keys[i].interpolation = interpolation;
  }
  return keys;
}

TEST(SampledCurve, EvaluatesAsItsKeysBitForBit) {
  // Steps of 0.1 and 1/3 are no binary fractions: the division finding the segment rounds
  // (above the index with the first, below it with the second), and Constant segments show
  // a wrong pick at once (the previous key's value at a key time).
  for (I interpolation : {I::Constant, I::Linear, I::Bezier}) {
    for (const auto& [start, step] : {std::pair{1.0, 1.0}, {-3.7, 0.1}, {0.0, 1.0 / 3.0}}) {
      const std::vector<FCurveKeyData> keys = UniformKeys(start, step, 40, interpolation);
      ASSERT_TRUE(FitsSampledCurve(keys, {}));
      const SampledCurve curve = ToSampledCurve(keys);
      ASSERT_TRUE(SameKeys(ToKeys(curve), keys));
      std::vector<double> frames = {std::numeric_limits<double>::quiet_NaN(), start - 1e9, 1e9};
      for (const FCurveKeyData& key : keys) {
        frames.insert(frames.end(), {key.time, std::nextafter(key.time, -1e300),
                                     std::nextafter(key.time, 1e300), key.time + 0.37 * step});
      }
      for (double frame : frames) {
        const double full = EvaluateFCurve(keys, frame);
        const double compact = EvaluateSampledCurve(curve, frame);
        ASSERT_TRUE(SameBits(full, compact))
            << static_cast<int>(interpolation) << " step " << step << " frame " << frame << ": "
            << full << " vs " << compact;
      }
    }
  }
  EXPECT_EQ(EvaluateSampledCurve(SampledCurve{}, 3.0), 0.0);
}

TEST(SampledCurve, HoldsOnlyKeysItGivesBackUnchanged) {
  const std::vector<FCurveKeyData> good = UniformKeys(1.0, 1.0, 5, I::Linear);
  EXPECT_TRUE(FitsSampledCurve(good, {false, false}));  // missing flags count as unset
  auto expect_full = [&](auto&& change, const char* rule) {
    std::vector<FCurveKeyData> keys = good;
    change(keys[3]);
    EXPECT_FALSE(FitsSampledCurve(keys, {})) << rule;
  };
  expect_full([](FCurveKeyData& k) { k.time = std::nextafter(k.time, 100.0); },
              "time off the step");
  expect_full([](FCurveKeyData& k) { k.interpolation = I::Bezier; }, "another interpolation");
  expect_full([](FCurveKeyData& k) { k.left_dy = -0.0; }, "a handle written differently");
  expect_full([](FCurveKeyData& k) { k.right_dx = 0.5; }, "a handle of its own");
  expect_full([](FCurveKeyData& k) { k.constraints = 4; }, "a key constraint");
  EXPECT_FALSE(FitsSampledCurve(good, {false, false, false, true})) << "computed tangents";
  {  // A first key at -0: start + 0 * step would give it back as +0.
    std::vector<FCurveKeyData> keys = UniformKeys(0.0, 1.0, 3, I::Linear);
    keys[0].time = -0.0;
    EXPECT_FALSE(FitsSampledCurve(keys, {})) << "time -0";
  }
  EXPECT_FALSE(FitsSampledCurve({good[0]}, {})) << "a single key";
  EXPECT_FALSE(FitsSampledCurve({}, {})) << "no key";
  {  // Key times must be finite and strictly increasing.
    EXPECT_TRUE(ValidSampling(-5.0, 0.25, 1000));
    EXPECT_FALSE(ValidSampling(0.0, 0.0, 2));
    EXPECT_FALSE(ValidSampling(0.0, std::numeric_limits<double>::quiet_NaN(), 2));
    EXPECT_FALSE(ValidSampling(std::numeric_limits<double>::infinity(), 1.0, 1));
    EXPECT_FALSE(ValidSampling(1e17, 1.0, 3));  // the step is below the spacing of doubles
    EXPECT_FALSE(ValidSampling(1e308, 1e307, 100));
  }
}

// Through the SDK: a compact curve against the same keys held in full.
class CompactCurve : public testing::FileTest {
 protected:
  static FCurveItem* ItemOf(const FCurve& curve) {
    return dynamic_cast<FCurveItem*>(curve.Lock().get());
  }
  static Parameter Param(const wchar_t* object, const wchar_t* name) {
    X3DObject o = Application().GetActiveSceneRoot().FindChild(object);
    if (!o.IsValid()) o = Application().GetActiveSceneRoot().AddNull(object);
    return o.GetKinematics().GetLocal().GetParameter(name);
  }
  static std::vector<double> Values(size_t count) {
    std::vector<double> values;
    for (const FCurveKeyData& key : UniformKeys(1.0, 1.0, count, I::Linear))
      values.push_back(key.value);
    return values;
  }
};

TEST_F(CompactCurve, EditsTurnItIntoTheFullFormWithTheSameResults) {
  const std::vector<FCurveKeyData> keys = UniformKeys(1.0, 1.0, 30, I::Linear);
  // One edit per block on a compact curve and on a full one holding the same keys.
  const auto check = [&](const char* what, auto&& edit) {
    SCOPED_TRACE(what);
    FCurve compact = Param(L"a", L"posx").AddSampledFCurve(1.0, 1.0, Values(keys.size()));
    FCurve full = Param(L"b", L"posx").AddFCurve(keys);
    ASSERT_TRUE(ItemOf(compact) && ItemOf(full) && ItemOf(compact)->sampled.has_value());
    ItemOf(full)->Expand();
    for (int pass = 0; pass < 2; ++pass) {  // before and after the edit
      EXPECT_TRUE(SameKeys(compact.GetKeys(), full.GetKeys()));
      for (double frame = 0.0; frame < 32.0; frame += 0.25) {
        ASSERT_TRUE(SameBits(Param(L"a", L"posx").GetValue(frame).GetDouble(), full.Eval(frame)))
            << frame;
      }
      if (pass == 0) edit(compact), edit(full);
    }
    EXPECT_FALSE(ItemOf(compact)->sampled.has_value()) << "still compact after a key edit";
  };
  check("SetKey", [](FCurve& c) {
    FCurveKeyData key = c.GetKey(4);
    key.value += 3.0;
    ASSERT_EQ(c.SetKey(4, key), CStatus::OK);
  });
  check("AddKey between keys", [](FCurve& c) { EXPECT_EQ(c.AddKey(7.5, -2.0), 7); });
  check("AddKey on a key", [](FCurve& c) { EXPECT_EQ(c.AddKey(9.0, 1.0, I::Linear), 8); });
  check("RemoveKeyAtIndex", [](FCurve& c) { ASSERT_EQ(c.RemoveKeyAtIndex(10), CStatus::OK); });
  const double nan = std::numeric_limits<double>::quiet_NaN();
  {  // Refused edits change nothing, not even the form.
    FCurve compact = Param(L"c", L"posy").AddSampledFCurve(1.0, 1.0, Values(4));
    EXPECT_EQ(compact.AddKey(nan, 1.0), -1);
    EXPECT_EQ(compact.SetKey(9, keys[0]), CStatus::InvalidArgument);
    EXPECT_EQ(compact.RemoveKeyAtIndex(-1), CStatus::InvalidArgument);
    EXPECT_TRUE(ItemOf(compact)->sampled.has_value());
  }
  {  // Whole-curve assignments of uniform keys are held compactly; others in full.
    FCurve curve = Param(L"c", L"posz").AddFCurve(keys);
    EXPECT_TRUE(ItemOf(curve)->sampled.has_value());
    ASSERT_EQ(curve.SetKeys({keys[0], keys[2], keys[3]}), CStatus::OK);
    EXPECT_FALSE(ItemOf(curve)->sampled.has_value());
    ASSERT_EQ(curve.SetKeys(keys), CStatus::OK);
    EXPECT_TRUE(ItemOf(curve)->sampled.has_value());
    ASSERT_EQ(curve.RemoveKeys(), CStatus::OK);
    EXPECT_EQ(Param(L"c", L"posz").GetValue(3.0).GetDouble(), 0.0);  // the static value
  }
  {  // Values or times a curve cannot hold are refused; the parameter stays as it was.
    Parameter p = Param(L"c", L"rotx");
    EXPECT_FALSE(p.AddSampledFCurve(1.0, 1.0, {0.0, nan}).IsValid());
    EXPECT_FALSE(p.AddSampledFCurve(1.0, 0.0, {0.0, 1.0}).IsValid());
    EXPECT_FALSE(p.IsAnimated(AnimationSource::FCurve));
    const FCurve one = p.AddSampledFCurve(4.0, 1.0, {2.5});
    ASSERT_EQ(one.GetNumKeys(), 1);
    EXPECT_TRUE(one.GetKey(0).time == 4.0 && one.GetKey(0).interpolation == I::Linear);
  }
}

TEST_F(CompactCurve, SavesTheSameBytesAndReopensCompact) {
  for (I interpolation : {I::Linear, I::Bezier}) {
    SCOPED_TRACE(static_cast<int>(interpolation));
    ResetScene();
    FCurve curve = Param(L"a", L"roty").AddSampledFCurve(-2.0, 0.5, Values(50), interpolation);
    Param(L"a", L"posx")
        .AddFCurve({{.time = 1, .value = 2, .right_dy = 0.5}, {.time = 3, .value = 0}});
    const std::string compact_file = Path("compact.scene"), full_file = Path("full.scene");
    ASSERT_TRUE(SaveSceneFile(compact_file).ok);
    ItemOf(curve)->Expand();
    ASSERT_TRUE(SaveSceneFile(full_file).ok);
    EXPECT_EQ(testing::FileBytes(compact_file), testing::FileBytes(full_file));
    const std::vector<FCurveKeyData> keys = curve.GetKeys();

    ASSERT_TRUE(OpenSceneFile(full_file).ok);
    const FCurve reopened = Param(L"a", L"roty").GetFCurve();
    ASSERT_TRUE(reopened.IsValid());
    EXPECT_TRUE(ItemOf(reopened)->sampled.has_value());
    EXPECT_FALSE(ItemOf(Param(L"a", L"posx").GetFCurve())->sampled.has_value());  // its own handles
    EXPECT_TRUE(SameKeys(reopened.GetKeys(), keys));
    for (double frame = -3.0; frame < 24.0; frame += 0.3) {
      ASSERT_TRUE(SameBits(reopened.Eval(frame), EvaluateFCurve(keys, frame))) << frame;
    }
  }
}

}  // namespace
}  // namespace KRX::rt
