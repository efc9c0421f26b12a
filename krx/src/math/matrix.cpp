// 3x3 and 4x4 matrix products and the general 4x4 inverse.
#include <cmath>

#include "krx/math.h"

namespace KRX::MATH {
namespace {

// A matrix counts as singular when |det| is this small a fraction of the product of its
// row lengths (the largest |det| rows of those lengths can give). The ratio ignores how
// each axis is scaled and only measures how close the rows come to being dependent.
constexpr double kSingularRatio = 1e-12;

}  // namespace

CMatrix3 CMatrix3::Mul(const CMatrix3& a, const CMatrix3& b) {
  CMatrix3 r;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      r.m_[i][j] = a.m_[i][0] * b.m_[0][j] + a.m_[i][1] * b.m_[1][j] + a.m_[i][2] * b.m_[2][j];
    }
  }
  return r;
}

CMatrix3 CMatrix3::Transpose() const {
  CMatrix3 r;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) r.m_[i][j] = m_[j][i];
  }
  return r;
}

CMatrix4 CMatrix4::Mul(const CMatrix4& a, const CMatrix4& b) {
  CMatrix4 r;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      r.m_[i][j] = a.m_[i][0] * b.m_[0][j] + a.m_[i][1] * b.m_[1][j] + a.m_[i][2] * b.m_[2][j] +
                   a.m_[i][3] * b.m_[3][j];
    }
  }
  return r;
}

bool CMatrix4::InvertInPlace() {
  const auto& a = m_;
  // Cofactors from the 2x2 minors of the top two rows (s) and the bottom two rows (c).
  const double s0 = a[0][0] * a[1][1] - a[1][0] * a[0][1];
  const double s1 = a[0][0] * a[1][2] - a[1][0] * a[0][2];
  const double s2 = a[0][0] * a[1][3] - a[1][0] * a[0][3];
  const double s3 = a[0][1] * a[1][2] - a[1][1] * a[0][2];
  const double s4 = a[0][1] * a[1][3] - a[1][1] * a[0][3];
  const double s5 = a[0][2] * a[1][3] - a[1][2] * a[0][3];
  const double c5 = a[2][2] * a[3][3] - a[3][2] * a[2][3];
  const double c4 = a[2][1] * a[3][3] - a[3][1] * a[2][3];
  const double c3 = a[2][1] * a[3][2] - a[3][1] * a[2][2];
  const double c2 = a[2][0] * a[3][3] - a[3][0] * a[2][3];
  const double c1 = a[2][0] * a[3][2] - a[3][0] * a[2][2];
  const double c0 = a[2][0] * a[3][1] - a[3][0] * a[2][1];
  const double det = s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;

  double row_product = 1.0;
  for (const auto& row : a) {
    row_product *= std::sqrt(row[0] * row[0] + row[1] * row[1] + row[2] * row[2] + row[3] * row[3]);
  }
  if (!(std::fabs(det) > kSingularRatio * row_product)) return false;

  const double k = 1.0 / det;
  CMatrix4 r;
  auto& b = r.m_;
  b[0][0] = (a[1][1] * c5 - a[1][2] * c4 + a[1][3] * c3) * k;
  b[0][1] = (-a[0][1] * c5 + a[0][2] * c4 - a[0][3] * c3) * k;
  b[0][2] = (a[3][1] * s5 - a[3][2] * s4 + a[3][3] * s3) * k;
  b[0][3] = (-a[2][1] * s5 + a[2][2] * s4 - a[2][3] * s3) * k;
  b[1][0] = (-a[1][0] * c5 + a[1][2] * c2 - a[1][3] * c1) * k;
  b[1][1] = (a[0][0] * c5 - a[0][2] * c2 + a[0][3] * c1) * k;
  b[1][2] = (-a[3][0] * s5 + a[3][2] * s2 - a[3][3] * s1) * k;
  b[1][3] = (a[2][0] * s5 - a[2][2] * s2 + a[2][3] * s1) * k;
  b[2][0] = (a[1][0] * c4 - a[1][1] * c2 + a[1][3] * c0) * k;
  b[2][1] = (-a[0][0] * c4 + a[0][1] * c2 - a[0][3] * c0) * k;
  b[2][2] = (a[3][0] * s4 - a[3][1] * s2 + a[3][3] * s0) * k;
  b[2][3] = (-a[2][0] * s4 + a[2][1] * s2 - a[2][3] * s0) * k;
  b[3][0] = (-a[1][0] * c3 + a[1][1] * c1 - a[1][2] * c0) * k;
  b[3][1] = (a[0][0] * c3 - a[0][1] * c1 + a[0][2] * c0) * k;
  b[3][2] = (-a[3][0] * s3 + a[3][1] * s1 - a[3][2] * s0) * k;
  b[3][3] = (a[2][0] * s3 - a[2][1] * s1 + a[2][2] * s0) * k;
  *this = r;
  return true;
}

}  // namespace KRX::MATH
