// The symmetry blob's bytes and the mirroring step, on known answers worked by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kavor/symmetry/symmetry_blob.h"
#include "kavor/symmetry/symmetry_mirror.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

void ExpectNear(const CVector3& actual, const CVector3& expected) {
  EXPECT_NEAR(actual.GetX(), expected.GetX(), 1e-12);
  EXPECT_NEAR(actual.GetY(), expected.GetY(), 1e-12);
  EXPECT_NEAR(actual.GetZ(), expected.GetZ(), 1e-12);
}

// Three little-endian doubles, read back exactly; any other length or a value that is not
// finite is no data.
TEST(SymmetryBlob, HoldsThreeLittleEndianDoubles) {
  const CVector3 t(1.0, -2.5, 1e-300);
  const auto bytes = EncodeSymmetryBlob(t);
  EXPECT_EQ(bytes[7], 0x3F);  // 1.0 = 0x3FF0000000000000, most significant byte last
  EXPECT_EQ(bytes[6], 0xF0);
  EXPECT_EQ(bytes[0], 0x00);
  const auto back = DecodeSymmetryBlob(bytes.data(), bytes.size());
  ASSERT_TRUE(back.has_value());
  EXPECT_EQ(*back, t);
  for (const size_t size : {size_t{0}, size_t{8}, size_t{23}, size_t{25}}) {
    const uint8_t zeros[25] = {};
    EXPECT_FALSE(DecodeSymmetryBlob(zeros, size).has_value()) << size;
  }
  EXPECT_FALSE(DecodeSymmetryBlob(nullptr, kSymmetryBlobSize).has_value());
  constexpr double kInf = std::numeric_limits<double>::infinity();
  for (const CVector3& damaged :
       {CVector3(std::nan(""), 0, 0), CVector3(0, kInf, 0), CVector3(0, 0, -kInf)}) {
    const auto damaged_bytes = EncodeSymmetryBlob(damaged);
    EXPECT_FALSE(DecodeSymmetryBlob(damaged_bytes.data(), damaged_bytes.size()).has_value());
  }
}

// The partner keeps its offset from the mirror image and takes the source's movement
// mirrored across the reference's YZ plane, wherever the plane lies.
TEST(SymmetryMirror, PartnerTakesTheMirroredIncrement) {
  {  // Identity reference and parents: x is negated, y copied.
    const MirrorFrames identity;
    ExpectNear(MirroredPartnerLocal(identity, CVector3(1, 0, 0), CVector3(2, 0.5, 0),
                                    CVector3(-1.2, 0, 0)),
               CVector3(-2.2, 0.5, 0));
  }
  {  // Reference turned +90 degrees about Y: its x axis is world -z.
    MirrorFrames turned;
    turned.reference.SetRotationFromQuaternion(
        CQuaternion(std::sqrt(0.5), 0.0, std::sqrt(0.5), 0.0));
    turned.source_parent = turned.partner_parent = turned.reference;
    turned.reference.SetTranslation(CVector3(5, 1, 0));  // the plane's place does not matter
    // The source moves from the origin to (0, 0, -1) in world; locals under the parents.
    const CVector3 partner_world(0, 0, 3);
    const CVector3 local = MirroredPartnerLocal(
        turned, PointInFrame(turned.source_parent, CVector3(0, 0, 0)), CVector3(0, 0, -1),
        PointInFrame(turned.partner_parent, partner_world));
    ExpectNear(turned.partner_parent.MapPoint(local), CVector3(0, 0, 4));
  }
}

}  // namespace
}  // namespace kavor
