// Scene events reach the plug-ins through two fixed callback names that every module may
// export: "MyNewScene_OnEvent" after a new scene was made and "MyOpenScene_OnEvent" after
// a scene was opened.
#pragma once

namespace KRX::rt {

inline constexpr const char* kNewSceneCallback = "MyNewScene_OnEvent";
inline constexpr const char* kOpenSceneCallback = "MyOpenScene_OnEvent";

// Calls the event's callback of every loaded plug-in (and of the in-process callbacks),
// each once, with a context that has no source. Failures are logged, never thrown.
void FireSceneEvent(bool opened);

}  // namespace KRX::rt
