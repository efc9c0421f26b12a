// Handing a character's whole retarget setup to another one built the same way, through a
// tag template file (".tagt"): the tag page values, the tags, the rest data and the glue.
#pragma once

#include <string>

#include "krx/krx.h"

namespace kavor {

// Writes the model's tag page values, tags and rest data to `file`. Applies pending tag
// changes first.
bool SaveTagTemplate(const KRX::Model& model, const std::string& file);

// Gives the model the setup a template holds. The whole file is read and checked against
// the rig before anything changes, so a template that is out of date or does not match
// the rig leaves the rig's tagging as it was (the page is marked for re-applying).
bool InheritTagTemplate(const KRX::Model& model, const std::string& file);

}  // namespace kavor
