// Handing a character's whole retarget setup to another one built the same way, through a
// tag template file (".tagt"): the tag page values, the tags, the rest data and the glue.
#pragma once

#include <string>

#include "kavor/structure/read_options.h"
#include "krx/krx.h"

namespace kavor {

// Writes the model's tag page values, tags and rest data to `file`. Applies pending tag
// changes first.
bool SaveTagTemplate(const KRX::Model& model, const std::string& file);

struct InheritOptions {
  // Off: the flow works through the template in file order. It takes down the old retarget
  // setup (operators, glue, plot page), stores the template's structure and puts its page
  // values before it looks at the template's version and map section; a template that is
  // out of date or names an object the rig lacks then stops the flow there, keeping the
  // page values and the tags written before the failure, and marks the page dirty so that
  // applying the page sets the rig up again.
  // On: the whole file is read and checked against the rig first; such a template changes
  // nothing but the dirty mark, and the rig keeps the setup it had.
  bool strict = false;
};

// The options the plug-in's preferences ask for: STRICT_INHERIT in the "READING" section
// (read_options.h).
InheritOptions PreferredInheritOptions();

// Gives the model the setup a template holds: page values, tags, rest data, model map,
// structure and glue. Without options, the plug-in's preferences decide.
bool InheritTagTemplate(const KRX::Model& model, const std::string& file);
bool InheritTagTemplate(const KRX::Model& model, const std::string& file,
                        const InheritOptions& options);

}  // namespace kavor
