#include "kavor/xml/xml_values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <vector>

#include "kavor/host/host.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CVector3;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool ParseNumber(std::string_view text, double* out) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  // from_chars takes "-" but not "+".
  if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
  if (text.empty()) return false;
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return false;
  }
  *out = value;
  return true;
}

}  // namespace

KRX::CString NumberText(double value) {
  if (!std::isfinite(value)) return KRX::CString();
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return ToWide(std::string_view(buffer.data(), static_cast<size_t>(result.ptr - buffer.data())));
}

KRX::CString VectorText(const CVector3& value) {
  const KRX::CString x = NumberText(value.GetX());
  const KRX::CString y = NumberText(value.GetY());
  const KRX::CString z = NumberText(value.GetZ());
  if (x.IsEmpty() || y.IsEmpty() || z.IsEmpty()) return KRX::CString();
  return x + L"," + y + L"," + z;
}

KRX::CString TransformText(const KRX::MATH::CTransformation& value) {
  CQuaternion q = value.GetRotationQuaternion();
  double w = q.GetW();
  CVector3 v(q.GetX(), q.GetY(), q.GetZ());
  // q and -q are the same rotation; the one with w >= 0 has an angle in [0, pi].
  if (w < 0.0) {
    w = -w;
    v = -v;
  }
  const double sine = v.GetLength();
  const double angle = 2.0 * std::atan2(sine, w);
  CVector3 axis(1.0, 0.0, 0.0);
  if (sine > 1e-300) axis = v * (1.0 / sine);
  const KRX::CString axis_text = VectorText(axis);
  const KRX::CString angle_text = NumberText(angle);
  const KRX::CString translation_text = VectorText(value.GetTranslation());
  if (axis_text.IsEmpty() || angle_text.IsEmpty() || translation_text.IsEmpty()) {
    return KRX::CString();
  }
  return axis_text + L"," + angle_text + L"," + translation_text;
}

bool ParseNumberText(const KRX::CString& text, double* out) {
  return ParseNumber(ToNarrow(text), out);
}

bool ParseTransformText(const KRX::CString& text, KRX::MATH::CTransformation* out) {
  return ParseTransformAscii(ToNarrow(text), out);
}

bool ParseNumberAscii(std::string_view text, double* out) { return ParseNumber(text, out); }

bool ParseTransformAscii(std::string_view narrow, KRX::MATH::CTransformation* out) {
  std::array<double, 7> values{};
  size_t count = 0;
  size_t start = 0;
  while (true) {
    const size_t comma = narrow.find(',', start);
    const std::string_view field = narrow.substr(
        start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
    if (count == values.size() || !ParseNumber(field, &values[count])) return false;
    ++count;
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  if (count != values.size()) return false;
  // Scaling the axis by its largest component first keeps its length from overflowing.
  const double largest =
      std::max({std::fabs(values[0]), std::fabs(values[1]), std::fabs(values[2])});
  CVector3 axis(values[0], values[1], values[2]);
  if (largest > 0.0) axis = axis * (1.0 / largest);
  out->SetRotation(CRotation::FromAxisAngle(axis, values[3]));
  out->SetTranslationFromValues(values[4], values[5], values[6]);
  return true;
}

}  // namespace kavor
