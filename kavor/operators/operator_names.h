// The registered names of the retarget operators. Scene files store them: be careful when
// changing them.
#pragma once

namespace kavor {

inline constexpr const wchar_t* kMainOperator = L"RetargetOp";
inline constexpr const wchar_t* kGlobalOperator = L"RetargetGlobalOp";
inline constexpr const wchar_t* kUpVectorOperator = L"RetargetUpVOp";
inline constexpr const wchar_t* kDecompOperator = L"RetargetDecompOp";
inline constexpr const wchar_t* kSpineOperator = L"RetargetSpineOp";

}  // namespace kavor
