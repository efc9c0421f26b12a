// Decomposition of an affine row-vector matrix into scaling, rotation and translation.
// Row i of the upper 3x3 block is axis i of the rotation times scaling i, so the scalings
// are the row lengths and the rotation is the rows made orthonormal. Rows of zero length
// (an axis scaled to nothing) and shear are handled so that the rotation is always valid.
#include <algorithm>
#include <cmath>

#include "krx/math.h"

namespace KRX::MATH {
namespace {

// Rows shorter than this fraction of the longest one carry no direction.
constexpr double kMinRowRatio = 1e-12;

// A unit vector perpendicular to the unit vector v, from the coordinate axis v is least
// aligned with.
CVector3 AnyPerpendicular(const CVector3& v) {
  const double ax = std::fabs(v.GetX()), ay = std::fabs(v.GetY()), az = std::fabs(v.GetZ());
  CVector3 axis(0.0, 0.0, 1.0);
  if (ax <= ay && ax <= az) {
    axis.Set(1.0, 0.0, 0.0);
  } else if (ay <= az) {
    axis.Set(0.0, 1.0, 0.0);
  }
  CVector3 p = v.Cross(axis);
  p.NormalizeInPlace();
  return p;
}

// Makes `axes` a right-handed orthonormal frame close to the given rows: the first row
// with a direction keeps it exactly, the next independent row is made perpendicular to
// it, and the third axis is their cross product. Missing directions are made up.
CMatrix3 OrthonormalFrame(CVector3 axes[3], double max_length) {
  CMatrix3 frame;
  if (!(max_length > 0.0)) return frame;
  const double epsilon = kMinRowRatio * max_length;
  int primary = -1;
  for (int i = 0; i < 3 && primary < 0; ++i) {
    if (axes[i].NormalizeInPlace(epsilon)) primary = i;
  }
  if (primary < 0) return frame;
  int secondary = -1;
  for (int step = 1; step <= 2 && secondary < 0; ++step) {
    const int b = (primary + step) % 3;
    CVector3 v = axes[b] - axes[primary] * axes[b].Dot(axes[primary]);
    // The row itself must be long enough, and so must its part off the primary axis.
    if (axes[b].GetLength() >= epsilon && v.NormalizeInPlace(kMinRowRatio * axes[b].GetLength())) {
      axes[b] = v;
      secondary = b;
    }
  }
  if (secondary < 0) {
    secondary = (primary + 1) % 3;
    axes[secondary] = AnyPerpendicular(axes[primary]);
  }
  const int third = 3 - primary - secondary;
  // x = y z, y = z x, z = x y: the cross product follows the cyclic order.
  axes[third] = secondary == (primary + 1) % 3 ? axes[primary].Cross(axes[secondary])
                                               : axes[secondary].Cross(axes[primary]);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) frame.Set(i, j, axes[i][j]);
  }
  return frame;
}

}  // namespace

void CTransformation::SetMatrix4(const CMatrix4& m) {
  CVector3 rows[3];
  for (int i = 0; i < 3; ++i) rows[i].Set(m.Get(i, 0), m.Get(i, 1), m.Get(i, 2));
  translation_.Set(m.Get(3, 0), m.Get(3, 1), m.Get(3, 2));

  double scale[3] = {rows[0].GetLength(), rows[1].GetLength(), rows[2].GetLength()};
  // A reflection cannot live in a rotation: it goes into the x scaling, and flipping the
  // x row makes the remaining frame right-handed.
  if (rows[0].Dot(rows[1].Cross(rows[2])) < 0.0) {
    scale[0] = -scale[0];
    rows[0] = -rows[0];
  }
  const double max_length = std::max({std::fabs(scale[0]), scale[1], scale[2]});
  rotation_.SetFromMatrix(OrthonormalFrame(rows, max_length));
  scaling_.Set(scale[0], scale[1], scale[2]);
}

}  // namespace KRX::MATH
