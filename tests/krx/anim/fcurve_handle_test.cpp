// Function curves through the SDK as a bake uses them: curve type and interpolation, batch
// edits, key look-up by time with a tolerance, key handles with tangents and constraints,
// and all of it through a saved and reopened scene.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <fstream>
#include <string>
#include <vector>

#include "files/scene_file.h"
#include "krx/files/file_test_support.h"
#include "krx/krx.h"
#include "runtime/item.h"

namespace KRX::rt {
namespace {

using I = Interpolation;
constexpr int kAlign = static_cast<int>(KeyConstraint::AlignTangents);

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
  // A compact curve (keys at 1, 2, .., count) and a full one holding the same keys.
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
  ASSERT_TRUE(curve.IsValid());
  EXPECT_EQ(p.GetSourceKind(), AnimationSource::FCurve);  // the expression replaced
  EXPECT_EQ(curve.GetFCurveType(), FCurveType::Standard);
  EXPECT_EQ(curve.GetNumKeys(), 0);
  EXPECT_EQ(curve.GetInterpolation(), I::Bezier);
  EXPECT_FALSE(p.AddFCurve(static_cast<FCurveType>(21)).IsValid());
  EXPECT_TRUE(p.GetFCurve().IsValid());  // a refused type leaves the curve in place

  // Every key takes the curve's interpolation, and so do keys added later without one.
  curve.AddKey(1, 0);
  curve.AddKey(5, 3, I::Constant);
  ASSERT_EQ(curve.PutInterpolation(I::Linear), CStatus::OK);
  EXPECT_EQ(curve.PutInterpolation(static_cast<I>(0)), CStatus::InvalidArgument);
  EXPECT_EQ(curve.GetInterpolation(), I::Linear);
  EXPECT_EQ(curve.AddKey(9, 1), 2);
  EXPECT_EQ(curve.AddKey(7, 1, I::Bezier), 2);
  EXPECT_EQ(curve.AddKey(8, 1, static_cast<I>(9)), -1);
  const std::vector<FCurveKeyData> keys = curve.GetKeys();
  ASSERT_EQ(keys.size(), 4u);
  const I expected[] = {I::Linear, I::Linear, I::Bezier, I::Linear};
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(keys[i].interpolation, expected[i]) << i;
  EXPECT_DOUBLE_EQ(p.GetValue(3.0).GetDouble(), 1.5);  // linear between 0 and 3

  {  // A compact curve changes interpolation without leaving its form.
    auto [compact, full] = BothForms(20);
    ASSERT_EQ(compact.PutInterpolation(I::Constant), CStatus::OK);
    ASSERT_EQ(full.PutInterpolation(I::Constant), CStatus::OK);
    EXPECT_TRUE(ItemOf(compact)->sampled.has_value());
    EXPECT_EQ(compact.Eval(3.5), compact.GetKey(2).value);
    EXPECT_EQ(full.Eval(3.5), compact.Eval(3.5));
  }
}

TEST_F(CurveApi, BatchEditsInvalidateOnce) {
  X3DObject a = Object(L"a");
  FCurve curve = Param(L"a", L"posx").AddFCurve({{.time = 1, .value = 0}, {.time = 11, .value = 10}});
  const auto global_x = [&] {
    return a.GetKinematics().GetGlobal().GetTransform(6.0).GetTranslation().GetX();
  };
  ASSERT_DOUBLE_EQ(global_x(), 5.0);  // evaluated, so that a change has something to clear
  const uint64_t before = ItemOf(curve)->change_notices;

  ASSERT_EQ(curve.BeginEdit(), CStatus::OK);
  ASSERT_EQ(curve.BeginEdit(), CStatus::OK);  // nested
  ASSERT_EQ(curve.PutInterpolation(I::Linear), CStatus::OK);
  for (int f = 1; f <= 11; ++f) curve.AddKey(f, 20.0 * f);
  ASSERT_EQ(curve.SetKey(5, {.time = 6, .value = -1, .interpolation = I::Linear}), CStatus::OK);
  ASSERT_EQ(curve.GetKeyAtTime(7).PutLeftTan(-1, 0), CStatus::OK);
  EXPECT_EQ(curve.Eval(6.0), -1.0);  // the curve reads back every edit at once
  EXPECT_EQ(curve.GetNumKeys(), 11);
  ASSERT_EQ(curve.EndEdit(), CStatus::OK);
  EXPECT_EQ(ItemOf(curve)->change_notices, before);
  EXPECT_DOUBLE_EQ(global_x(), 5.0);  // dependents keep what they evaluated
  ASSERT_EQ(curve.EndEdit(), CStatus::OK);
  EXPECT_EQ(ItemOf(curve)->change_notices, before + 1);
  EXPECT_DOUBLE_EQ(global_x(), -1.0);

  EXPECT_EQ(curve.EndEdit(), CStatus::Fail);  // no batch open
  {  // A batch without an edit passes nothing on; edits outside a batch one each.
    curve.BeginEdit();
    curve.EndEdit();
    EXPECT_EQ(ItemOf(curve)->change_notices, before + 1);
    curve.AddKey(20, 0);
    curve.RemoveKeyAtIndex(0);
    EXPECT_EQ(ItemOf(curve)->change_notices, before + 3);
  }
}

TEST_F(CurveApi, KeyLookUpByTimeWithATolerance) {
  auto [compact, full] = BothForms(10);  // keys at 1 .. 10
  for (const FCurve& curve : {compact, full}) {
    SCOPED_TRACE(ItemOf(curve)->sampled ? "compact" : "full");
    EXPECT_EQ(curve.GetKeyIndex(3.0), 2);
    EXPECT_EQ(curve.GetKeyIndex(3.009), 2);
    EXPECT_EQ(curve.GetKeyIndex(2.991), 2);
    EXPECT_EQ(curve.GetKeyIndex(3.02), -1);  // outside the default tolerance of 0.01
    EXPECT_EQ(curve.GetKeyIndex(3.4, 0.5), 2);  // the nearest of two within it
    EXPECT_EQ(curve.GetKeyIndex(3.6, 0.5), 3);
    EXPECT_EQ(curve.GetKeyIndex(3.5, 0.5), 2);  // a tie goes to the earlier key
    EXPECT_EQ(curve.GetKeyIndex(0.5, 0.5), 0);
    EXPECT_EQ(curve.GetKeyIndex(10.5, 0.5), 9);
    EXPECT_EQ(curve.GetKeyIndex(10.6, 0.5), -1);
    EXPECT_EQ(curve.GetKeyIndex(5.0, -1.0), -1);
    EXPECT_EQ(curve.GetKeyIndex(std::numeric_limits<double>::quiet_NaN(), 1.0), -1);
    EXPECT_TRUE(curve.KeyExists(7.005));
    EXPECT_FALSE(curve.KeyExists(7.5));
    EXPECT_TRUE(curve.KeyExists(7.5, 0.5));
  }
  EXPECT_TRUE(ItemOf(compact)->sampled.has_value()) << "a look-up is no edit";
  EXPECT_FALSE(FCurve().KeyExists(1.0));

  // Adding within the tolerance replaces the nearest key, which moves to the new time.
  for (FCurve curve : {compact, full}) {
    EXPECT_EQ(curve.AddKey(4.004, 7.0, I::Linear, 0.01), 3);
    EXPECT_EQ(curve.GetNumKeys(), 10);
    EXPECT_TRUE(curve.GetKey(3).time == 4.004 && curve.GetKey(3).value == 7.0);
    EXPECT_EQ(curve.AddKey(4.5, 1.0, I::Linear, 0.01), 4);  // none within it: inserted
    EXPECT_EQ(curve.GetNumKeys(), 11);
    EXPECT_EQ(curve.AddKey(6.0, 1.0, I::Linear, -0.5), -1);
    EXPECT_EQ(curve.AddKey(6.0, 1.0, I::Linear, std::numeric_limits<double>::infinity()), -1);
  }
  {  // Keys arriving in time order, and one replaced at the end.
    FCurve curve = Param(L"c", L"posy").AddFCurve(FCurveType::Standard);
    for (int f = 0; f < 1000; ++f) ASSERT_EQ(curve.AddKey(f, f % 7, I::Linear, 0.01), f);
    EXPECT_EQ(curve.AddKey(999.001, 5.0, I::Linear, 0.01), 999);
    EXPECT_EQ(curve.GetNumKeys(), 1000);
    EXPECT_EQ(curve.GetKeyIndex(998.004), 998);
    EXPECT_EQ(curve.GetKeyIndex(998.996), 999);
  }
}

TEST_F(CurveApi, KeyHandlesTangentsAndConstraints) {
  FCurve curve = Param(L"a", L"posx").AddFCurve(FCurveType::Standard);
  curve.AddKey(0, 0);
  curve.AddKey(10, 10);
  curve.AddKey(20, 0);
  FCurveKey key = curve.GetKeyAtTime(10.004);
  ASSERT_TRUE(key.IsValid());
  EXPECT_FALSE(curve.GetKeyAtTime(15).IsValid());
  EXPECT_EQ(key.GetTime(), 10.0);
  EXPECT_EQ(key.GetValue(), 10.0);
  EXPECT_DOUBLE_EQ(key.GetLeftTanX(), -10.0 / 3.0);  // the computed tangents
  EXPECT_DOUBLE_EQ(key.GetRightTanX(), 10.0 / 3.0);

  // Without a constraint a tangent is put alone, its dx kept on its side of the key.
  ASSERT_EQ(key.PutLeftTan(-3, 1), CStatus::OK);
  EXPECT_TRUE(key.GetLeftTanX() == -3.0 && key.GetLeftTanY() == 1.0);
  EXPECT_TRUE(key.GetRightTanX() == 10.0 / 3.0 && key.GetRightTanY() == 0.0);
  ASSERT_EQ(key.PutRightTan(-2, 4), CStatus::OK);
  EXPECT_TRUE(key.GetRightTanX() == 0.0 && key.GetRightTanY() == 4.0);
  EXPECT_EQ(key.PutRightTan(1, std::numeric_limits<double>::quiet_NaN()), CStatus::InvalidArgument);

  // Aligned: the other tangent turns opposite, keeping its length (here 4).
  ASSERT_EQ(key.PutConstraint(KeyConstraint::AlignTangents, true), CStatus::OK);
  EXPECT_TRUE(key.GetConstraint(KeyConstraint::AlignTangents));
  EXPECT_EQ(curve.GetKey(1).constraints, kAlign);
  ASSERT_EQ(key.PutLeftTan(-3, -4), CStatus::OK);
  EXPECT_DOUBLE_EQ(key.GetRightTanX(), 2.4);
  EXPECT_DOUBLE_EQ(key.GetRightTanY(), 3.2);
  ASSERT_EQ(key.PutRightTan(1, 0), CStatus::OK);
  EXPECT_DOUBLE_EQ(key.GetLeftTanX(), -5.0);  // the left one had length 5
  EXPECT_DOUBLE_EQ(key.GetLeftTanY(), 0.0);
  EXPECT_EQ(key.PutConstraint(static_cast<KeyConstraint>(8), true), CStatus::InvalidArgument);
  ASSERT_EQ(key.PutConstraint(KeyConstraint::AlignTangents, false), CStatus::OK);
  EXPECT_FALSE(key.GetConstraint(KeyConstraint::AlignTangents));
  key.PutConstraint(KeyConstraint::AlignTangents, true);
  ASSERT_EQ(key.ClearConstraints(), CStatus::OK);
  EXPECT_EQ(curve.GetKey(1).constraints, 0);
  ASSERT_EQ(key.PutRightTan(2, 2), CStatus::OK);
  EXPECT_EQ(key.GetLeftTanX(), -5.0);

  // Put tangents are no longer computed ones: a new neighbour leaves them as they are.
  curve.AddKey(12, 30);
  EXPECT_TRUE(key.GetRightTanX() == 2.0 && key.GetRightTanY() == 2.0);
  EXPECT_EQ(key.GetTime(), 10.0);  // the handle follows its key to its new index
  curve.AddKey(5, 1);
  EXPECT_EQ(key.GetValue(), 10.0);
  EXPECT_EQ(curve.GetKey(2).right_dx, 2.0);
  curve.RemoveKeyAtIndex(2);
  EXPECT_FALSE(key.IsValid());
  EXPECT_EQ(key.PutLeftTan(-1, 0), CStatus::InvalidArgument);

  {  // Constraints ride on key records through SetKeys; unknown bits are refused.
    std::vector<FCurveKeyData> keys = curve.GetKeys();
    keys[1].constraints = kAlign;
    ASSERT_EQ(curve.SetKeys(keys), CStatus::OK);
    EXPECT_TRUE(curve.GetKeyAtTime(keys[1].time).GetConstraint(KeyConstraint::AlignTangents));
    keys[1].constraints = 1;
    EXPECT_EQ(curve.SetKeys(keys), CStatus::InvalidArgument);
  }
  {  // On a compact curve a key edit converts it first; a read does not.
    auto [compact, full] = BothForms(8);
    FCurveKey k = compact.GetKeyAtTime(4);
    EXPECT_EQ(k.GetValue(), full.GetKey(3).value);
    EXPECT_TRUE(ItemOf(compact)->sampled.has_value());
    ASSERT_EQ(k.PutConstraint(KeyConstraint::AlignTangents, true), CStatus::OK);
    EXPECT_FALSE(ItemOf(compact)->sampled.has_value());
    EXPECT_EQ(compact.GetKey(3).constraints, kAlign);
    EXPECT_EQ(compact.GetKey(2).constraints, 0);
  }
}

bool SameBits(double a, double b) {
  return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
}

TEST_F(CurveApi, SavedAndReopenedExactly) {
  FCurve curve = Param(L"a", L"rotz").AddFCurve(FCurveType::Standard);
  curve.PutInterpolation(I::Constant);
  for (int f = 0; f < 6; ++f) curve.AddKey(f * 1.5, std::sin(f) * 90.0);
  curve.AddKey(2.25, 0.1, I::Bezier);
  FCurveKey key = curve.GetKeyAtTime(3.0);
  key.PutConstraint(KeyConstraint::AlignTangents, true);
  key.PutLeftTan(-0.7, 1.0 / 3.0);
  auto [compact, full] = BothForms(12);
  compact.PutInterpolation(I::Linear);
  const std::vector<FCurveKeyData> keys = curve.GetKeys();
  std::vector<bool> computed;
  for (size_t i = 0; i < keys.size(); ++i) computed.push_back(ItemOf(curve)->AutoTangent(i));
  const std::string file = Path("curves.scene");
  ASSERT_TRUE(SaveSceneFile(file).ok);

  ASSERT_TRUE(OpenSceneFile(file).ok);
  const FCurve back = Param(L"a", L"rotz").GetFCurve();
  ASSERT_TRUE(back.IsValid());
  EXPECT_EQ(back.GetFCurveType(), FCurveType::Standard);
  EXPECT_EQ(back.GetInterpolation(), I::Constant);
  const std::vector<FCurveKeyData> reread = back.GetKeys();
  ASSERT_EQ(reread.size(), keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    const FCurveKeyData &x = keys[i], &y = reread[i];
    EXPECT_TRUE(SameBits(x.time, y.time) && SameBits(x.value, y.value) &&
                SameBits(x.left_dx, y.left_dx) && SameBits(x.left_dy, y.left_dy) &&
                SameBits(x.right_dx, y.right_dx) && SameBits(x.right_dy, y.right_dy) &&
                x.interpolation == y.interpolation && x.constraints == y.constraints)
        << i;
    EXPECT_EQ(ItemOf(back)->AutoTangent(i), computed[i]) << i;
  }
  EXPECT_EQ(back.GetKeyAtTime(3.0).GetConstraint(KeyConstraint::AlignTangents), true);
  EXPECT_EQ(Param(L"a", L"posx").GetFCurve().GetInterpolation(), I::Linear);
  EXPECT_TRUE(ItemOf(Param(L"a", L"posx").GetFCurve())->sampled.has_value());

  {  // A file written before curves had a type and interpolation: standard, adding Bezier.
    const std::vector<uint8_t> bytes = testing::FileBytes(file);
    std::string text(bytes.begin(), bytes.end());
    for (const char* field : {",\"fcurve_type\":20", ",\"fcurve_interpolation\":1",
                              ",\"fcurve_interpolation\":2", ",\"fcurve_interpolation\":3"}) {
      for (size_t at; (at = text.find(field)) != std::string::npos;)
        text.erase(at, std::string(field).size());
    }
    ASSERT_EQ(text.find("fcurve_"), std::string::npos);
    std::ofstream(Path("old.scene"), std::ios::binary) << text;
    const FileResult read = OpenSceneFile(Path("old.scene"));
    ASSERT_TRUE(read.ok) << read.message;
    EXPECT_EQ(Param(L"a", L"rotz").GetFCurve().GetInterpolation(), I::Bezier);
    EXPECT_EQ(Param(L"a", L"rotz").GetFCurve().GetFCurveType(), FCurveType::Standard);
  }
}

}  // namespace
}  // namespace KRX::rt
