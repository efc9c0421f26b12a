// The extraction options a user keeps in the plug-in's preferences.
#include "kavor/motion/extraction.h"
#include "kavor/xml/preferences.h"

namespace kavor {

ExtractOptions PreferredExtractOptions() {
  ExtractOptions options;
  // Without an installation path there is no file to read.
  if (PreferencesFilePath().IsEmpty()) return options;
  Preferences preferences;
  if (preferences.GetInteger(L"RETARGET", L"KEEP_BIND_ROTATION", 0) != 0) {
    options.unsourced_nodes = UnsourcedNodeRule::kKeepBindRotation;
  }
  if (preferences.GetInteger(L"RETARGET", L"BLEND_DRIFT_ONLY", 0) != 0) {
    options.contact_blend = ContactBlendRule::kDriftOnly;
  }
  const int straight = preferences.GetInteger(L"RETARGET", L"STRAIGHT_LIMB_MICRORADIANS",
                                             static_cast<int>(kStraightLimbAngle * 1e6 + 0.5));
  // A negative angle would measure a plane for limbs that span none; 0 still leaves exactly
  // straight limbs to the filling.
  if (straight >= 0) options.straight_limb_angle = straight * 1e-6;
  return options;
}

}  // namespace kavor
