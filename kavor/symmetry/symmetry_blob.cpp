#include "kavor/symmetry/symmetry_blob.h"

#include <bit>
#include <cmath>

namespace kavor {

namespace {

void PutDouble(double value, uint8_t* out) {
  const auto bits = std::bit_cast<uint64_t>(value);
  for (int i = 0; i < 8; ++i) out[i] = static_cast<uint8_t>(bits >> (8 * i));
}

double GetDouble(const uint8_t* in) {
  uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) bits |= static_cast<uint64_t>(in[i]) << (8 * i);
  return std::bit_cast<double>(bits);
}

}  // namespace

std::array<uint8_t, kSymmetryBlobSize> EncodeSymmetryBlob(const KRX::MATH::CVector3& translation) {
  std::array<uint8_t, kSymmetryBlobSize> bytes{};
  for (int axis = 0; axis < 3; ++axis) PutDouble(translation[axis], bytes.data() + 8 * axis);
  return bytes;
}

std::optional<KRX::MATH::CVector3> DecodeSymmetryBlob(const uint8_t* data, size_t size) {
  if (data == nullptr || size != kSymmetryBlobSize) return std::nullopt;
  const KRX::MATH::CVector3 translation(GetDouble(data), GetDouble(data + 8), GetDouble(data + 16));
  for (int axis = 0; axis < 3; ++axis) {
    if (!std::isfinite(translation[axis])) return std::nullopt;
  }
  return translation;
}

}  // namespace kavor
