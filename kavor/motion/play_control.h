// The scene's current frame, the "Current" parameter of the project's "Play Control".
#pragma once

namespace kavor {

double CurrentFrame();
void SetCurrentFrame(double frame);

}  // namespace kavor
