// A custom property's parameters as XML elements, for presets and other files that keep
// a page's values.
#pragma once

#include "kavor/xml/xml_document.h"
#include "krx/property.h"

namespace kavor {

// Adds an element `element_name` below `parent` and, below it, one element per parameter
// of `property` in the property's order: named by the parameter's script name, its text
// the parameter's value at the current time as host text, with the attributes
// "Capabilities" (the capability flags as an integer), "Name", "Description" and
// "DataType" (the value type code as an integer), in that order. Returns the added
// element; null (the error collected in `document`) when it could not be added.
XmlElement* WritePropertyParameters(XmlDocument& document, XmlElement* parent,
                                    const KRX::CString& element_name,
                                    const KRX::Property& property);

// For each child element of `element`, in order: when `property` has a parameter of that
// name, the parameter's value at the current time is set from the child's text (the host
// converts the text to the parameter's type). Other children are skipped. Returns the
// number of parameters set.
int ReadPropertyParameters(const XmlElement* element, const KRX::Property& property);

}  // namespace kavor
