// Function curves through the SDK as a bake uses them: curve type and interpolation, batch
// edits, key look-up by time with a tolerance, key handles with tangents and constraints,
// and all of it through a saved and reopened scene.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "files/scene_file.h"
#include "krx/files/file_test_support.h"
#include "krx/krx.h"
#include "runtime/item.h"

namespace KRX::rt {
namespace {

using I = Interpolation;
constexpr KeyConstraint kAlign = KeyConstraint::AlignTangents;

FCurveItem* ItemOf(const FCurve& curve) { return dynamic_cast<FCurveItem*>(curve.Lock().get()); }

class CurveApi : public testing::FileTest {
 protected:
  static X3DObject Object(const wchar_t* name) {
    X3DObject o = Application().GetActiveSceneRoot().FindChild(name);
    return o.IsValid() ? o : Application().GetActiveSceneRoot().AddNull(name);
  }
  static Parameter Param(const wchar_t* object, const wchar_t* name) {
    return Object(object).GetKinematics().GetLocal().GetParameter(name);
  }
  // A compact curve with keys at 1 .. count and a full one holding the same keys.
  static std::pair<FCurve, FCurve> BothForms(size_t count) {
    std::vector<double> values;
    for (size_t i = 0; i < count; ++i) values.push_back(std::sin(0.4 * static_cast<double>(i)));
    FCurve compact = Param(L"a", L"posx").AddSampledFCurve(1.0, 1.0, values, I::Linear);
    FCurve full = Param(L"b", L"posx").AddFCurve(compact.GetKeys());
    ItemOf(full)->Expand();
    return {compact, full};
  }
};

TEST_F(CurveApi, TypeAndCurveInterpolation) {
  Parameter p = Param(L"a", L"roty");
  ASSERT_EQ(p.AddExpression(L"a.kine.local.posx * 2"), CStatus::OK);
  FCurve curve = p.AddFCurve(FCurveType::Standard);
  EXPECT_EQ(p.GetSourceKind(), AnimationSource::FCurve);
  EXPECT_TRUE(curve.GetFCurveType() == FCurveType::Standard && curve.GetNumKeys() == 0);
  EXPECT_FALSE(p.AddFCurve(static_cast<FCurveType>(21)).IsValid());
  // Every key takes the curve's interpolation, and so do keys added later without one.
  EXPECT_EQ(curve.GetInterpolation(), I::Bezier);
  curve.AddKey(1, 0, I::Constant);
  ASSERT_EQ(curve.PutInterpolation(I::Linear), CStatus::OK);
  curve.AddKey(9, 1);
  curve.AddKey(7, 1, I::Bezier);
  ASSERT_EQ(curve.GetNumKeys(), 3);
  EXPECT_TRUE(curve.GetKey(0).interpolation == I::Linear &&
              curve.GetKey(1).interpolation == I::Bezier &&
              curve.GetKey(2).interpolation == I::Linear);
  auto [compact, full] = BothForms(20);  // a compact curve changes without leaving its form
  compact.PutInterpolation(I::Constant);
  EXPECT_TRUE(ItemOf(compact)->sampled.has_value());
  EXPECT_EQ(compact.Eval(3.5), compact.GetKey(2).value);
}

TEST_F(CurveApi, BatchEditsInvalidateOnce) {
  X3DObject a = Object(L"a");
  FCurve curve =
      Param(L"a", L"posx").AddFCurve({{.time = 1, .value = 0}, {.time = 11, .value = 10}});
  const auto x = [&] {
    return a.GetKinematics().GetGlobal().GetTransform(6.0).GetTranslation().GetX();
  };
  ASSERT_DOUBLE_EQ(x(), 5.0);  // evaluated, so that a change has something to clear
  const uint64_t before = ItemOf(curve)->change_notices;
  curve.BeginEdit();
  curve.BeginEdit();  // nested
  for (int f = 1; f <= 11; ++f) curve.AddKey(f, 20.0 * f, I::Linear);
  curve.SetKey(5, {.time = 6, .value = -1, .interpolation = I::Linear});
  EXPECT_EQ(curve.Eval(6.0), -1.0);  // the curve reads back every edit at once
  curve.EndEdit();
  EXPECT_EQ(ItemOf(curve)->change_notices, before);
  EXPECT_DOUBLE_EQ(x(), 5.0);  // dependents keep what they evaluated
  curve.EndEdit();
  EXPECT_EQ(ItemOf(curve)->change_notices, before + 1);
  EXPECT_DOUBLE_EQ(x(), -1.0);
  EXPECT_EQ(curve.EndEdit(), CStatus::Fail);  // none open
  curve.AddKey(20, 0);                        // outside a batch, one each
  curve.RemoveKeyAtIndex(0);
  EXPECT_EQ(ItemOf(curve)->change_notices, before + 3);
}

TEST_F(CurveApi, KeyLookUpByTimeWithATolerance) {
  auto [compact, full] = BothForms(10);  // keys at 1 .. 10
  const struct {
    double time, tolerance;
    int index;
  } cases[] = {{3.009, 0.01, 2}, {2.991, 0.01, 2}, {3.02, 0.01, -1},
               {3.6, 0.5, 3},    {3.5, 0.5, 2},  // a tie goes to the earlier key
               {0.5, 0.5, 0},    {10.5, 0.5, 9},   {10.6, 0.5, -1},
               {5.0, -1.0, -1},  {NAN, 1.0, -1}};
  for (const FCurve& curve : {compact, full}) {
    for (const auto& c : cases)
      EXPECT_EQ(curve.GetKeyIndex(c.time, c.tolerance), c.index) << c.time;
    EXPECT_TRUE(curve.KeyExists(7.005) && !curve.KeyExists(7.5) && curve.KeyExists(7.5, 0.5));
  }
  EXPECT_TRUE(ItemOf(compact)->sampled.has_value()) << "a look-up is no edit";
  // Adding within the tolerance replaces the nearest key, which moves to the new time.
  for (FCurve curve : {compact, full}) {
    EXPECT_EQ(curve.AddKey(4.004, 7.0, I::Linear, 0.01), 3);
    EXPECT_TRUE(curve.GetNumKeys() == 10 && curve.GetKey(3).time == 4.004);
    EXPECT_EQ(curve.AddKey(4.5, 1.0, I::Linear, 0.01), 4);
    EXPECT_EQ(curve.AddKey(6.0, 1.0, I::Linear, -0.5), -1);
  }
}

TEST_F(CurveApi, KeyHandlesTangentsAndConstraints) {
  FCurve curve = Param(L"a", L"posx").AddFCurve(FCurveType::Standard);
  for (double t : {0.0, 10.0, 20.0}) curve.AddKey(t, t == 10.0 ? 10.0 : 0.0);
  FCurveKey key = curve.GetKeyAtTime(10.004);
  ASSERT_TRUE(key.IsValid());
  EXPECT_FALSE(curve.GetKeyAtTime(15).IsValid());
  EXPECT_TRUE(key.GetTime() == 10.0 && key.GetValue() == 10.0);
  EXPECT_DOUBLE_EQ(key.GetRightTanX(), 10.0 / 3.0);  // computed
  // Without a constraint a tangent is put alone, its dx kept on its side of the key.
  ASSERT_EQ(key.PutRightTan(-2, 4), CStatus::OK);
  EXPECT_TRUE(key.GetRightTanX() == 0.0 && key.GetRightTanY() == 4.0);
  EXPECT_DOUBLE_EQ(key.GetLeftTanX(), -10.0 / 3.0);
  // Aligned: the other tangent turns opposite, keeping its length.
  ASSERT_EQ(key.PutConstraint(kAlign, true), CStatus::OK);
  ASSERT_EQ(key.PutLeftTan(-3, -4), CStatus::OK);
  EXPECT_DOUBLE_EQ(key.GetRightTanX(), 2.4);
  EXPECT_DOUBLE_EQ(key.GetRightTanY(), 3.2);
  key.PutRightTan(1, 0);
  EXPECT_TRUE(key.GetLeftTanX() == -5.0 && key.GetLeftTanY() == 0.0);
  EXPECT_EQ(key.PutConstraint(static_cast<KeyConstraint>(8), true), CStatus::InvalidArgument);
  key.PutConstraint(kAlign, false);
  EXPECT_FALSE(key.GetConstraint(kAlign));
  key.PutConstraint(kAlign, true);
  key.ClearConstraints();
  EXPECT_EQ(curve.GetKey(1).constraints, 0);
  // Put tangents are no longer computed ones: a new neighbour leaves them be; the handle
  // follows its key to a new index.
  curve.AddKey(12, 30);
  curve.AddKey(5, 1);
  EXPECT_TRUE(key.GetRightTanX() == 1.0 && key.GetRightTanY() == 0.0 && curve.GetKey(2).time == 10);
  curve.RemoveKeyAtIndex(2);
  EXPECT_EQ(key.PutLeftTan(-1, 0), CStatus::InvalidArgument);
  std::vector<FCurveKeyData> keys = curve.GetKeys();  // constraints ride on SetKeys
  keys[1].constraints = 1;
  EXPECT_EQ(curve.SetKeys(keys), CStatus::InvalidArgument);
  auto [compact, full] = BothForms(8);  // a key edit converts a compact curve first
  ASSERT_EQ(compact.GetKeyAtTime(4).PutConstraint(kAlign, true), CStatus::OK);
  EXPECT_TRUE(compact.GetKey(3).constraints == 4 && compact.GetKey(2).constraints == 0);
}

TEST_F(CurveApi, SavedAndReopenedExactly) {
  FCurve curve = Param(L"a", L"rotz").AddFCurve(FCurveType::Standard);
  curve.PutInterpolation(I::Constant);
  for (int f = 0; f < 6; ++f) curve.AddKey(f * 1.5, std::sin(f) * 90.0);
  curve.AddKey(2.25, 0.1, I::Bezier);
  curve.GetKeyAtTime(3.0).PutConstraint(kAlign, true);
  curve.GetKeyAtTime(3.0).PutLeftTan(-0.7, 1.0 / 3.0);
  const std::vector<FCurveKeyData> keys = curve.GetKeys();
  std::vector<bool> computed;
  for (size_t i = 0; i < keys.size(); ++i) computed.push_back(ItemOf(curve)->AutoTangent(i));
  const std::string file = Path("curves.scene");
  ASSERT_TRUE(SaveSceneFile(file).ok);
  ASSERT_TRUE(OpenSceneFile(file).ok);
  const FCurve back = Param(L"a", L"rotz").GetFCurve();
  EXPECT_TRUE(back.GetFCurveType() == FCurveType::Standard &&
              back.GetInterpolation() == I::Constant);
  const std::vector<FCurveKeyData> reread = back.GetKeys();
  ASSERT_EQ(reread.size(), keys.size());
  const auto same = [](double a, double b) {
    return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
  };
  for (size_t i = 0; i < keys.size(); ++i) {
    const FCurveKeyData &x = keys[i], &y = reread[i];
    EXPECT_TRUE(same(x.time, y.time) && same(x.value, y.value) && same(x.left_dx, y.left_dx) &&
                same(x.left_dy, y.left_dy) && same(x.right_dx, y.right_dx) &&
                same(x.right_dy, y.right_dy) && x.interpolation == y.interpolation &&
                x.constraints == y.constraints && ItemOf(back)->AutoTangent(i) == computed[i])
        << i;
  }
  // A file written before curves had a type and interpolation: standard, adding Bezier.
  const std::vector<uint8_t> bytes = testing::FileBytes(file);
  const std::string old =
      std::regex_replace(std::string(bytes.begin(), bytes.end()),
                         std::regex(",\"fcurve_(type|interpolation)\":[0-9]+"), "");
  std::ofstream(Path("old.scene"), std::ios::binary) << old;
  ASSERT_TRUE(OpenSceneFile(Path("old.scene")).ok);
  EXPECT_EQ(Param(L"a", L"rotz").GetFCurve().GetInterpolation(), I::Bezier);
}

}  // namespace
}  // namespace KRX::rt
