#include <gtest/gtest.h>

#include <cmath>

#include "krx/math.h"
#include "krx/math/math_expect.h"

namespace KRX::MATH {
namespace {

using TEST::ExpectSameRotation;
using TEST::ExpectVectorNear;
using TEST::IsFinite;
using TEST::IsUnit;

CTransformation Make(const CVector3& scaling, const CVector3& angles, const CVector3& translation) {
  CTransformation t;
  t.SetScaling(scaling);
  t.SetRotationFromXYZAngles(angles);
  t.SetTranslation(translation);
  return t;
}

void ExpectMatrixNear(const CMatrix4& a, const CMatrix4& b, double tolerance = 1e-9) {
  for (int i = 0; i < 16; ++i)
    EXPECT_NEAR(a.Get(i / 4, i % 4), b.Get(i / 4, i % 4), tolerance) << i;
}

TEST(Transformation, ParentChildKnownAnswer) {
  const CTransformation parent = Make({1, 1, 1}, {0, 0, kPi / 2}, {1, 0, 0});
  const CTransformation child = Make({1, 1, 1}, {0, 0, kPi / 2}, {1, 1, 0});
  {  // The child sits one unit along the parent's turned X axis, and maps back.
    const CTransformation local = MapWorldPoseToObjectSpace(parent, child);
    ExpectVectorNear(local.GetTranslation(), {1, 0, 0});
    ExpectSameRotation(local.GetRotationQuaternion(), {});
    ExpectVectorNear(MapWorldPositionToObjectSpace(parent, {1, 1, 0}), {1, 0, 0});
    ExpectMatrixNear(MapObjectPoseToWorldSpace(parent, local).GetMatrix4(), child.GetMatrix4());
  }
  {  // Mul(a, b) applies a first; scaling comes before the rotation.
    const CTransformation move = Make({1, 1, 1}, {}, {1, 0, 0});
    const CTransformation turn = Make({2, 3, 4}, {0, 0, kPi / 2}, {});
    ExpectVectorNear(CTransformation::Mul(move, turn).MapPoint({}), {0, 2, 0});
    ExpectVectorNear(CTransformation::Mul(turn, move).MapPoint({}), {1, 0, 0});
  }
}

TEST(Transformation, MulAndInverseAgreeWithMatrices) {
  {  // Uniform scaling in b, including a mirror, or non-uniform b after an unrotated or
     // quarter-turned a: no shear, so exact.
    const CTransformation a = Make({2, 0.5, 3}, {0.3, -0.8, 1.2}, {1, -2, 0.5});
    const CTransformation cases[][2] = {
        {a, Make({-0.5, -0.5, -0.5}, {-1.0, 0.4, 2.2}, {3, 0, -1})},
        {Make({2, 0.5, 3}, {}, {1, -2, 0.5}), Make({1, -2, 3}, {0.5, 0.1, -0.3}, {0, 4, 1})},
        {Make({2, 0.5, 3}, {0, 0, kPi / 2}, {1, -2, 0.5}), Make({1, 2, 3}, {0.5, 0.1, -0.3}, {})},
    };
    for (const auto& c : cases) {
      ExpectMatrixNear(CTransformation::Mul(c[0], c[1]).GetMatrix4(),
                       CMatrix4::Mul(c[0].GetMatrix4(), c[1].GetMatrix4()));
    }
  }
  {  // T x T^-1 = T^-1 x T = identity when the inverse has no shear.
    const CTransformation cases[] = {
        Make({-0.5, -0.5, -0.5}, {1.0, 1.0, 1.0}, {5, 5, 5}),
        Make({-1, 2, 0.5}, {kPi / 2, 0, 0}, {-1, 0, 2}),
    };
    for (const CTransformation& t : cases) {
      CTransformation inverse = t;
      ASSERT_TRUE(inverse.InvertInPlace());
      ExpectMatrixNear(CTransformation::Mul(t, inverse).GetMatrix4(), CMatrix4());
      ExpectMatrixNear(CTransformation::Mul(inverse, t).GetMatrix4(), CMatrix4());
    }
  }
  {  // A zero scaling has no inverse: refused, unchanged.
    CTransformation t = Make({1, 0, 1}, {0.1, 0.2, 0.3}, {1, 2, 3});
    EXPECT_FALSE(t.InvertInPlace());
    ExpectMatrixNear(t.GetMatrix4(), Make({1, 0, 1}, {0.1, 0.2, 0.3}, {1, 2, 3}).GetMatrix4(), 0.0);
  }
  {  // Positions map back exactly even under non-uniform scaling.
    const CTransformation t = Make({1, 2, 3}, {0.3, -0.8, 1.2}, {1, -2, 0.5});
    ExpectVectorNear(MapWorldPositionToObjectSpace(t, t.MapPoint({0.7, -1.1, 2.3})),
                     {0.7, -1.1, 2.3});
  }
}

TEST(Transformation, MapWorldPoseWithScaledReference) {
  {  // A child without a local rotation under a non-uniformly scaled parent.
    const CTransformation reference = Make({1, 2, 3}, {0.3, -0.8, 1.2}, {1, -2, 0.5});
    const CTransformation local = Make({0.5, 2, 1}, {}, {0.3, 0.2, -1});
    const CTransformation global = MapObjectPoseToWorldSpace(reference, local);
    ExpectMatrixNear(MapWorldPoseToObjectSpace(reference, global).GetMatrix4(), local.GetMatrix4());
  }
  {  // A reference scaled to nothing: its rigid part is used.
    const CTransformation flat = Make({0, 0, 0}, {0, 0, kPi / 2}, {1, 0, 0});
    const CTransformation local =
        MapWorldPoseToObjectSpace(flat, Make({1, 1, 1}, {0, 0, kPi / 2}, {1, 1, 0}));
    ExpectVectorNear(local.GetTranslation(), {1, 0, 0});
    ExpectSameRotation(local.GetRotationQuaternion(), {});
  }
}

TEST(Transformation, SetMatrix4Decomposes) {
  {  // Round trips of positive, x-mirrored and zero scalings; a y mirror moves into x.
    const CVector3 cases[][2] = {{{1, 2, 3}, {1, 2, 3}},
                                 {{-2, 0.5, 4}, {-2, 0.5, 4}},
                                 {{2, -3, 4}, {-2, 3, 4}},
                                 {{0, 0, 3}, {0, 0, 3}}};
    for (const auto& c : cases) {
      const CTransformation t = Make(c[0], {0.3, -0.8, 1.2}, {1, -2, 0.5});
      CTransformation d;
      d.SetMatrix4(t.GetMatrix4());
      ExpectVectorNear(d.GetScaling(), c[1]);
      ExpectMatrixNear(d.GetMatrix4(), t.GetMatrix4());
      if (c[0][0] > 0 && c[0][1] > 0)
        ExpectSameRotation(d.GetRotationQuaternion(), t.GetRotationQuaternion());
    }
  }
  {  // A sheared matrix: row lengths and a valid rotation.
    CMatrix4 shear;
    shear.Set(1, 0, 1.0);  // row 1 = (1, 1, 0)
    CTransformation d;
    d.SetMatrix4(shear);
    EXPECT_TRUE(IsUnit(d.GetRotationQuaternion()));
    ExpectVectorNear(d.GetScaling(), {1, std::sqrt(2.0), 1});
  }
}

TEST(Transformation, DegenerateInputStaysFinite) {
  // Zero, tiny, negative and mixed scalings through every operation: the rotation stays
  // unit and nothing turns non-finite.
  const auto check = [](const CTransformation& t) {
    EXPECT_TRUE(IsFinite(t.GetScaling()) && IsFinite(t.GetTranslation()));
    EXPECT_TRUE(IsUnit(t.GetRotationQuaternion()));
  };
  for (double sx : {0.0, 1e-14, -1.0, 2.0, 1.0}) {
    for (double sy : {0.0, 1e-14, -1.0, 2.0, 1.0}) {
      for (const CVector3& r : {CVector3(), CVector3(kPi, 0, 0), CVector3(0.3, kPi / 2, -1.0)}) {
        const CTransformation a = Make({sx, sy, 1.0}, r, {1, 2, 3});
        const CTransformation b = Make({sy, 1.0, sx}, {r[2], r[0], r[1]}, {-1, 0, 2});
        check(CTransformation::Mul(a, b));
        check(MapWorldPoseToObjectSpace(a, b));
        EXPECT_TRUE(IsFinite(MapWorldPositionToObjectSpace(a, {1, 1, 1})));
        CTransformation inverse = a;
        if (inverse.InvertInPlace()) check(inverse);
        CTransformation d;
        d.SetMatrix4(CMatrix4());
        d.SetMatrix4(a.GetMatrix4());
        check(d);
      }
    }
  }
}

TEST(Matrix4, InvertInPlace) {
  {  // A general (non-affine) matrix times its inverse is the identity.
    CMatrix4 m;
    const double values[16] = {2, -1, 0.5, 3, 0.1, 4, -2, 1, 1, 1, 5, -0.3, 0.7, -2, 0.2, 1};
    for (int i = 0; i < 16; ++i) m.Set(i / 4, i % 4, values[i]);
    CMatrix4 inverse = m;
    ASSERT_TRUE(inverse.InvertInPlace());
    ExpectMatrixNear(CMatrix4::Mul(m, inverse), CMatrix4(), 1e-12);
  }
  {  // Small but orthogonal axes are not singular; equal or zero rows are (unchanged).
    CMatrix4 m;
    for (int i = 0; i < 3; ++i) m.Set(i, i, 1e-7);
    EXPECT_TRUE(m.InvertInPlace());
    EXPECT_DOUBLE_EQ(m.Get(2, 2), 1e7);
    CMatrix4 equal_rows;
    equal_rows.Set(1, 0, 1);
    equal_rows.Set(1, 1, 0);
    EXPECT_FALSE(equal_rows.InvertInPlace());
    EXPECT_EQ(equal_rows.Get(1, 0), 1.0);
  }
}

}  // namespace
}  // namespace KRX::MATH
