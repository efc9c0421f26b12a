// How numbers, vectors and transformations are written as attribute and element text.
//
// A number is the shortest decimal text that reads back as the same double, written and
// read the same way whatever the process's locale ("0.1", "-2.5e-07"). A vector is its
// three numbers separated by ",". A transformation is seven numbers separated by ",": the
// rotation axis x, y, z, the rotation angle in radians, then the translation x, y, z.
// Scaling is not part of the text. These texts are stored in files: be careful when
// changing them.
#pragma once

#include <string_view>

#include "krx/math.h"
#include "krx/value.h"

namespace kavor {

// Number text of a finite `value`; empty text for NaN or an infinity, which are never
// written.
KRX::CString NumberText(double value);

// "x,y,z"; empty text when a component is not finite.
KRX::CString VectorText(const KRX::MATH::CVector3& value);

// "ax,ay,az,angle,tx,ty,tz" with a unit axis and an angle in [0, pi]; the identity rotation
// is written about the x axis. Empty text when a value is not finite.
KRX::CString TransformText(const KRX::MATH::CTransformation& value);

// Reads one number; blanks around it are allowed. False for anything else, NaN, infinities
// and numbers out of the double range.
bool ParseNumberText(const KRX::CString& text, double* out);

// Reads a transformation text: exactly seven numbers. On success sets `out`'s translation
// and its rotation from the axis (need not be unit; a zero axis gives no rotation) and the
// angle, leaving its scaling as it was. False (and `out` unchanged) otherwise.
bool ParseTransformText(const KRX::CString& text, KRX::MATH::CTransformation* out);

// ParseNumberText and ParseTransformText over 8-bit text, for readers that have it at hand.
bool ParseNumberAscii(std::string_view text, double* out);
bool ParseTransformAscii(std::string_view text, KRX::MATH::CTransformation* out);

}  // namespace kavor
