// Euler angles in the six axis orders. Angles are given per axis (x, y, z); the order
// says which axis turns first. Decomposition works on the row-vector matrix.
#include <cmath>

#include "krx/math.h"

namespace KRX::MATH {
namespace {

// Axes in the order they are applied and whether that order is a cyclic (even)
// permutation of x, y, z. Indexed by RotationOrder.
struct AxisOrder {
  int first, second, third;
  bool even;
};
constexpr AxisOrder kAxisOrders[6] = {
    {0, 1, 2, true},   // XYZ
    {0, 2, 1, false},  // XZY
    {1, 0, 2, false},  // YXZ
    {1, 2, 0, true},   // YZX
    {2, 0, 1, true},   // ZXY
    {2, 1, 0, false},  // ZYX
};

// Below this cosine of the middle angle the first and last axes coincide (gimbal lock):
// the last angle is set to 0 and the first one takes the whole turn. The matrix that the
// result rebuilds differs from the input by at most this much.
constexpr double kGimbalCosine = 1e-12;

const AxisOrder& GetAxisOrder(RotationOrder order) {
  const int index = static_cast<int>(order);
  // An out-of-range value (a corrupt file) falls back to XYZ rather than reading past
  // the table.
  return kAxisOrders[(index >= 0 && index < 6) ? index : 0];
}

CQuaternion AxisQuaternion(int axis, double angle) {
  const double c = std::cos(0.5 * angle), s = std::sin(0.5 * angle);
  return CQuaternion(c, axis == 0 ? s : 0.0, axis == 1 ? s : 0.0, axis == 2 ? s : 0.0);
}

}  // namespace

CRotation CRotation::FromXYZAngles(const CVector3& angles, RotationOrder order) {
  CRotation r;
  r.SetFromXYZAngles(angles, order);
  return r;
}

void CRotation::SetFromXYZAngles(const CVector3& angles, RotationOrder order) {
  const AxisOrder& o = GetAxisOrder(order);
  const CQuaternion q1 = AxisQuaternion(o.first, angles[o.first]);
  const CQuaternion q2 = AxisQuaternion(o.second, angles[o.second]);
  const CQuaternion q3 = AxisQuaternion(o.third, angles[o.third]);
  SetFromQuaternion(CQuaternion::Mul(CQuaternion::Mul(q1, q2), q3));
}

CVector3 CRotation::GetXYZAngles(RotationOrder order) const {
  const AxisOrder& o = GetAxisOrder(order);
  const int i = o.first, j = o.second, k = o.third;
  const CMatrix3 m = GetMatrix();
  // With axes relabelled i, j, k, an even order has the matrix of XYZ, M = Ri Rj Rk:
  //   M[i][i] = cj ck, M[i][j] = cj sk, M[i][k] = -sj,
  //   M[j][j] = si sj sk + ci ck, M[k][j] = ci sj sk - si ck, ...
  // In an odd order the relabelled axes form a left-handed frame, where every turn goes
  // the other way: the same formulas hold with every angle negated.
  const double sign = o.even ? 1.0 : -1.0;
  const double mii = m.Get(i, i), mij = m.Get(i, j), mik = m.Get(i, k);
  const double cos_j = std::sqrt(mii * mii + mij * mij);
  const double angle_j = std::atan2(-mik, cos_j);
  // The last angle comes from the first row; the first angle from what is left once the
  // last rotation is undone, so the three always rebuild the matrix, even close to lock.
  const double angle_k = cos_j > kGimbalCosine ? std::atan2(mij, mii) : 0.0;
  const double sk = std::sin(angle_k), ck = std::cos(angle_k);
  const double mji = m.Get(j, i), mjj = m.Get(j, j);
  const double mki = m.Get(k, i), mkj = m.Get(k, j);
  const double angle_i = std::atan2(sk * mki - ck * mkj, ck * mjj - sk * mji);

  double angles[3];
  angles[i] = sign * angle_i;
  angles[j] = sign * angle_j;
  angles[k] = sign * angle_k;
  return {angles[0], angles[1], angles[2]};
}

}  // namespace KRX::MATH
