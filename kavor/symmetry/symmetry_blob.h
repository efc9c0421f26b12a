// The symmetry blob: the last local translation of a linked object, kept between
// evaluations in a user-data blob on the object.
//
// Layout (24 bytes, be careful when changing it: it is saved with scenes): x, y and z as
// IEEE-754 doubles, little-endian, in that order.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "krx/math.h"

namespace kavor {

inline constexpr size_t kSymmetryBlobSize = 24;

std::array<uint8_t, kSymmetryBlobSize> EncodeSymmetryBlob(const KRX::MATH::CVector3& translation);

// The translation the bytes hold; nothing when they are not exactly 24 bytes or a
// component is not finite (a damaged blob must not move an object to infinity).
[[nodiscard]] std::optional<KRX::MATH::CVector3> DecodeSymmetryBlob(const uint8_t* data,
                                                                    size_t size);

}  // namespace kavor
