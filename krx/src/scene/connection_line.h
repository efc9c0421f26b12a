// The host's own "ConnectionLine" scripted operator, evaluated natively: its output is a
// linear curve's geometry ("OutCurve"), its inputs the curve's global kinematic state
// ("InLineGlobal", group "MainGroup") and two objects' global states ("InGlobal1",
// "InGlobal2", group "ObjectGroup"). Each update puts the curve's two control points on
// the two objects' positions, expressed in the curve's own space.
#pragma once

#include "runtime/item.h"

namespace KRX::rt {

bool IsNativeConnectionLine(const OperatorItem& op);
// Writes the points into `context.output_points`.
void UpdateConnectionLine(const OperatorItem& op, ContextItem& context, double time);

}  // namespace KRX::rt
