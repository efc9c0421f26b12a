// Parameter expressions: another parameter's full name, optionally scaled and offset
// ("Model.a.kine.local.posx * 2 + 1", "Model.a.kine.local.posx - 0.5"), or a number.
#pragma once

#include <string>

namespace KRX::rt {

struct ParsedExpression {
  std::wstring source;   // full name of the parameter read; empty for a constant
  double scale = 1.0;
  double offset = 0.0;   // the constant itself when `source` is empty
};

// False when the text is not of that form.
bool ParseExpression(const std::wstring& text, ParsedExpression* out);

}  // namespace KRX::rt
