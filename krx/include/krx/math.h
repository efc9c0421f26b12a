// Host math types. Conventions, relied on by every caller:
//  - Row vectors: a point p is transformed as p' = p M. Transformations compose left to
//    right, so Mul(local, parentGlobal) is the child's global.
//  - Angles are radians. Quaternions are stored w, x, y, z and are unit for rotations.
//  - Euler rotation orders name the order in which the axes are applied: XYZ turns about
//    X first, then Y, then Z (matrix Rx Ry Rz with row vectors).
#pragma once

#include <array>
#include <cmath>

namespace KRX::MATH {

inline constexpr double kPi = 3.14159265358979323846;

// Values are serialized in scene files: be careful when changing them.
enum class RotationOrder : int { XYZ = 0, XZY = 1, YXZ = 2, YZX = 3, ZXY = 4, ZYX = 5 };

class CVector3 {
 public:
  CVector3() = default;
  CVector3(double x, double y, double z) : x_(x), y_(y), z_(z) {}

  double GetX() const { return x_; }
  double GetY() const { return y_; }
  double GetZ() const { return z_; }
  void PutX(double v) { x_ = v; }
  void PutY(double v) { y_ = v; }
  void PutZ(double v) { z_ = v; }
  void Set(double x, double y, double z) {
    x_ = x;
    y_ = y;
    z_ = z;
  }
  void Get(double& x, double& y, double& z) const {
    x = x_;
    y = y_;
    z = z_;
  }
  double operator[](int i) const { return i == 0 ? x_ : (i == 1 ? y_ : z_); }

  CVector3 operator+(const CVector3& o) const { return {x_ + o.x_, y_ + o.y_, z_ + o.z_}; }
  CVector3 operator-(const CVector3& o) const { return {x_ - o.x_, y_ - o.y_, z_ - o.z_}; }
  CVector3 operator-() const { return {-x_, -y_, -z_}; }
  CVector3 operator*(double s) const { return {x_ * s, y_ * s, z_ * s}; }
  CVector3& operator+=(const CVector3& o) { return *this = *this + o; }
  CVector3& operator-=(const CVector3& o) { return *this = *this - o; }
  bool operator==(const CVector3& o) const = default;

  double Dot(const CVector3& o) const { return x_ * o.x_ + y_ * o.y_ + z_ * o.z_; }
  // Inline, as the other small operations: the solvers call these in their inner loops.
  CVector3 Cross(const CVector3& o) const {
    return {y_ * o.z_ - z_ * o.y_, z_ * o.x_ - x_ * o.z_, x_ * o.y_ - y_ * o.x_};
  }
  double GetLength() const { return std::sqrt(GetLengthSquared()); }
  double GetLengthSquared() const { return Dot(*this); }
  // Scales to unit length. Returns false and leaves the vector unchanged when its length
  // is below `epsilon` (a zero vector has no direction).
  bool NormalizeInPlace(double epsilon = 1e-12);
  // Angle in radians between the two vectors, computed robustly with atan2; 0 when either
  // vector is zero.
  double GetAngle(const CVector3& o) const;
  bool Equals(const CVector3& o, double epsilon = 1e-9) const;

 private:
  double x_ = 0.0, y_ = 0.0, z_ = 0.0;
};

class CQuaternion {
 public:
  CQuaternion() = default;
  CQuaternion(double w, double x, double y, double z) : w_(w), x_(x), y_(y), z_(z) {}

  double GetW() const { return w_; }
  double GetX() const { return x_; }
  double GetY() const { return y_; }
  double GetZ() const { return z_; }
  void Set(double w, double x, double y, double z) {
    w_ = w;
    x_ = x;
    y_ = y;
    z_ = z;
  }
  void Get(double& w, double& x, double& y, double& z) const {
    w = w_;
    x = x_;
    y = y_;
    z = z_;
  }

  // Rotation `a` followed by rotation `b` (row-vector order: p (a b)).
  static CQuaternion Mul(const CQuaternion& a, const CQuaternion& b);
  CQuaternion Conjugate() const { return {w_, -x_, -y_, -z_}; }
  double Dot(const CQuaternion& o) const { return w_ * o.w_ + x_ * o.x_ + y_ * o.y_ + z_ * o.z_; }
  // Unit length; the identity when the quaternion is (near) zero.
  void NormalizeInPlace() {
    const double length = std::sqrt(Dot(*this));
    if (!(length > 1e-12)) {
      Set(1.0, 0.0, 0.0, 0.0);
      return;
    }
    const double inv = 1.0 / length;
    Set(w_ * inv, x_ * inv, y_ * inv, z_ * inv);
  }
  // Spherical interpolation along the shorter arc; t = 0 gives a, t = 1 gives b.
  static CQuaternion Slerp(const CQuaternion& a, const CQuaternion& b, double t);
  // Applies the rotation to a vector: q v q* expanded as v + w t + u x t, with u the vector
  // part and t = 2 (u x v).
  CVector3 Rotate(const CVector3& v) const {
    const CVector3 u(x_, y_, z_);
    const CVector3 t = u.Cross(v) * 2.0;
    return v + t * w_ + u.Cross(t);
  }
  bool Equals(const CQuaternion& o, double epsilon = 1e-9) const;
  // True when both represent the same rotation (q or -q).
  bool SameRotation(const CQuaternion& o, double epsilon = 1e-9) const;

 private:
  double w_ = 1.0, x_ = 0.0, y_ = 0.0, z_ = 0.0;
};

// 3x3 matrix, row-major, row vectors.
class CMatrix3 {
 public:
  CMatrix3() = default;
  double Get(int row, int col) const { return m_[row][col]; }
  void Set(int row, int col, double v) { m_[row][col] = v; }
  static CMatrix3 Mul(const CMatrix3& a, const CMatrix3& b);
  CMatrix3 Transpose() const;

 private:
  std::array<std::array<double, 3>, 3> m_ = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
};

// 4x4 matrix, row-major, row vectors: translation lives in row 3.
class CMatrix4 {
 public:
  CMatrix4() = default;
  double Get(int row, int col) const { return m_[row][col]; }
  void Set(int row, int col, double v) { m_[row][col] = v; }
  static CMatrix4 Mul(const CMatrix4& a, const CMatrix4& b);
  // False (and the matrix unchanged) when it is singular.
  bool InvertInPlace();

 private:
  std::array<std::array<double, 4>, 4> m_ = {
      {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
};

class CRotation {
 public:
  CRotation() = default;
  explicit CRotation(const CQuaternion& q) { SetFromQuaternion(q); }

  // The rotation order the overloads without one use (XYZ unless put). It travels with
  // copies and Mul's first operand; nothing else changes it.
  void PutRotationOrder(RotationOrder order) { order_ = order; }
  RotationOrder GetRotationOrder() const { return order_; }

  // Angles in radians, applied in `order` (the rotation's own order when not given). The
  // stored order stays as it is.
  static CRotation FromXYZAngles(const CVector3& angles, RotationOrder order = RotationOrder::XYZ);
  void SetFromXYZAngles(const CVector3& angles) { SetFromXYZAngles(angles, order_); }
  void SetFromXYZAngles(const CVector3& angles, RotationOrder order);
  // Euler angles in radians reproducing this rotation in `order` (the rotation's own order
  // when not given); each angle in [-pi, pi].
  CVector3 GetXYZAngles() const { return GetXYZAngles(order_); }
  CVector3 GetXYZAngles(RotationOrder order) const;

  void SetFromQuaternion(const CQuaternion& q);
  CQuaternion GetQuaternion() const { return q_; }
  void SetFromMatrix(const CMatrix3& m);  // m must be a rotation matrix
  CMatrix3 GetMatrix() const;
  // Rotation by `angle` radians about `axis` (normalised here; identity for a zero axis).
  static CRotation FromAxisAngle(const CVector3& axis, double angle);
  // Rotation `a` followed by `b`, in `a`'s rotation order.
  static CRotation Mul(const CRotation& a, const CRotation& b);
  CRotation Inverse() const {
    CRotation r(q_.Conjugate());
    r.order_ = order_;
    return r;
  }

 private:
  CQuaternion q_;
  RotationOrder order_ = RotationOrder::XYZ;
};

// Scaling, then rotation, then translation (p' = ((p S) R) + T).
class CTransformation {
 public:
  CTransformation() = default;

  CVector3 GetTranslation() const { return translation_; }
  void SetTranslation(const CVector3& t) { translation_ = t; }
  void SetTranslationFromValues(double x, double y, double z) { translation_.Set(x, y, z); }
  CRotation GetRotation() const { return rotation_; }
  void SetRotation(const CRotation& r) { rotation_ = r; }
  CQuaternion GetRotationQuaternion() const { return rotation_.GetQuaternion(); }
  void SetRotationFromQuaternion(const CQuaternion& q) { rotation_.SetFromQuaternion(q); }
  void SetRotationFromXYZAngles(const CVector3& angles, RotationOrder order = RotationOrder::XYZ) {
    rotation_.SetFromXYZAngles(angles, order);
  }
  CVector3 GetScaling() const { return scaling_; }
  void SetScaling(const CVector3& s) { scaling_ = s; }
  void SetScalingFromValues(double x, double y, double z) { scaling_.Set(x, y, z); }
  void SetIdentity() { *this = CTransformation(); }

  CMatrix4 GetMatrix4() const;
  // Decomposes an affine matrix into scaling, rotation and translation. A negative
  // determinant puts the reflection into the x scale.
  void SetMatrix4(const CMatrix4& m);

  // `a` applied first, then `b` (matrix a * b with row vectors).
  static CTransformation Mul(const CTransformation& a, const CTransformation& b);
  void MulInPlace(const CTransformation& b) { *this = Mul(*this, b); }
  // False (unchanged) when the transformation is singular.
  bool InvertInPlace();
  CVector3 MapPoint(const CVector3& p) const;

 private:
  CVector3 scaling_{1.0, 1.0, 1.0};
  CRotation rotation_;
  CVector3 translation_;
};

// The rotation whose matrix rows are `x`, `y` and `z`: the images of the X, Y and Z axes
// (p' = p M). The rows must form a right-handed orthonormal frame.
CRotation RotationFromAxisRows(const CVector3& x, const CVector3& y, const CVector3& z);

// pose x inverse(reference): the pose expressed in the reference's space.
CTransformation MapWorldPoseToObjectSpace(const CTransformation& reference,
                                          const CTransformation& pose);
// pose x reference: an object-space pose taken back to world space.
CTransformation MapObjectPoseToWorldSpace(const CTransformation& reference,
                                          const CTransformation& pose);
// A point in world space expressed in the reference's space.
CVector3 MapWorldPositionToObjectSpace(const CTransformation& reference, const CVector3& p);

inline double DegreesToRadians(double d) { return d * 0.017453292519943295; }
inline double RadiansToDegrees(double r) { return r * 57.29577951308232; }

}  // namespace KRX::MATH
