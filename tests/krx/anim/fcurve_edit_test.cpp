#include "anim/fcurve_edit.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "anim/fcurve_eval.h"

namespace KRX::rt {
namespace {

std::vector<FCurveKeyData> AutoCurve(const std::vector<std::pair<double, double>>& points) {
  std::vector<FCurveKeyData> keys;
  for (const auto& [t, v] : points) keys.push_back({.time = t, .value = v});
  ComputeAutoTangents(keys);
  return keys;
}

TEST(FCurveEdit, InsertKeyOrdersAndReplaces) {
  std::vector<FCurveKeyData> keys;
  auto insert = [&](double t, double v) { return InsertKey(keys, {.time = t, .value = v}); };
  EXPECT_EQ(insert(10, 1), 0);
  EXPECT_EQ(insert(5, 2), 0);
  EXPECT_EQ(insert(20, 3), 2);
  EXPECT_EQ(insert(15, 4), 2);
  EXPECT_EQ(insert(10 + 1e-10, 9), 1);  // same time within the tolerance: replaced
  EXPECT_EQ(insert(20 - 1e-10, 8), 3);
  EXPECT_EQ(insert(10 + 1e-8, 7), 2);  // just outside it: a new key after
  EXPECT_EQ(insert(std::numeric_limits<double>::quiet_NaN(), 0), -1);
  ASSERT_EQ(keys.size(), 5u);
  const double times[] = {5, 10 + 1e-10, 10 + 1e-8, 15, 20 - 1e-10};
  const double values[] = {2, 9, 7, 4, 8};
  for (size_t i = 0; i < 5; ++i)
    EXPECT_TRUE(keys[i].time == times[i] && keys[i].value == values[i]);
  EXPECT_EQ(insert(20 - 1e-10 + 5e-10, 6), 4);  // after the last key but within the tolerance
  EXPECT_EQ(keys.size(), 5u);
}

TEST(FCurveEdit, AutoTangents) {
  {  // Between its neighbours: slope of the neighbours' chord, dx a third of each side;
     // end keys flat, mirroring their one segment.
    const auto keys = AutoCurve({{0, 0}, {1, 1}, {4, 4}});
    EXPECT_DOUBLE_EQ(keys[1].left_dx, -1.0 / 3.0);
    EXPECT_DOUBLE_EQ(keys[1].left_dy, -1.0 / 3.0);
    EXPECT_DOUBLE_EQ(keys[1].right_dx, 1.0);
    EXPECT_DOUBLE_EQ(keys[1].right_dy, 1.0);
    EXPECT_TRUE(keys[0].left_dx == -keys[0].right_dx && keys[0].right_dy == 0);
    EXPECT_TRUE(keys[2].right_dx == 1.0 && keys[2].left_dy == 0);
  }
  {  // Peaks, troughs and plateaus are flat, so the curve never passes a key there.
    const auto keys = AutoCurve({{0, 0}, {1, 2}, {3, -1}, {4, -1}, {6, 5}});
    for (double f = 0; f <= 6; f += 0.01) {
      const double v = EvaluateFCurve(keys, f);
      EXPECT_TRUE(v >= -1 - 1e-12 && v <= (f <= 3 ? 2 : 5) + 1e-12) << f << " " << v;
    }
  }
  {  // Uneven monotone steps: each segment stays between its two key values.
    const auto keys = AutoCurve({{0, 0}, {1, 1}, {2, 1.001}, {3, 5}, {3.5, 5.5}});
    for (size_t i = 0; i + 1 < keys.size(); ++i) {
      for (int j = 0; j <= 100; ++j) {
        const double v =
            EvaluateFCurve(keys, keys[i].time + (keys[i + 1].time - keys[i].time) * j / 100.0);
        EXPECT_TRUE(v >= keys[i].value - 1e-12 && v <= keys[i + 1].value + 1e-12) << i << " " << j;
      }
    }
  }
}

TEST(FCurveEdit, ValidateKeysRejectsEachRule) {
  const std::vector<FCurveKeyData> good = AutoCurve({{0, 0}, {1, 2}, {3, 1}});
  std::string why;
  EXPECT_TRUE(ValidateKeys(good, &why)) << why;
  EXPECT_TRUE(ValidateKeys({}, nullptr));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  auto expect_bad = [&](auto&& breaker, const char* rule) {
    std::vector<FCurveKeyData> keys = good;
    breaker(keys[1]);
    why.clear();
    EXPECT_FALSE(ValidateKeys(keys, &why)) << rule;
    EXPECT_NE(why.find("key 1"), std::string::npos) << rule << ": " << why;
    EXPECT_FALSE(ValidateKeys(keys, nullptr)) << rule;
  };
  expect_bad([&](FCurveKeyData& k) { k.time = nan; }, "time NaN");
  expect_bad([&](FCurveKeyData& k) { k.value = inf; }, "value inf");
  expect_bad([&](FCurveKeyData& k) { k.left_dx = -inf; }, "left dx");
  expect_bad([&](FCurveKeyData& k) { k.left_dy = nan; }, "left dy");
  expect_bad([&](FCurveKeyData& k) { k.right_dx = inf; }, "right dx");
  expect_bad([&](FCurveKeyData& k) { k.right_dy = nan; }, "right dy");
  expect_bad([&](FCurveKeyData& k) { k.interpolation = static_cast<Interpolation>(7); }, "interp");
  expect_bad([&](FCurveKeyData& k) { k.constraints = 4 | 1; }, "unknown constraint");
  expect_bad([&](FCurveKeyData& k) { k.time = 0; }, "equal times");
  expect_bad([&](FCurveKeyData& k) { k.time = -1; }, "decreasing times");
  expect_bad([&](FCurveKeyData& k) { k.left_dx = 0.1; }, "left handle forward");
  expect_bad([&](FCurveKeyData& k) { k.right_dx = -0.1; }, "right handle backward");
}

}  // namespace
}  // namespace KRX::rt
