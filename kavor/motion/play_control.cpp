#include "kavor/motion/play_control.h"

#include "krx/krx.h"

namespace kavor {

double CurrentFrame() { return KRX::Application().GetCurrentFrame(); }

void SetCurrentFrame(double frame) { (void)KRX::Application().PutCurrentFrame(frame); }

}  // namespace kavor
