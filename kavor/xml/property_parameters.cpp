#include "kavor/xml/property_parameters.h"

#include <string>
#include <vector>
#include <xercesc/dom/DOM.hpp>

namespace kavor {

XmlElement* WritePropertyParameters(XmlDocument& document, XmlElement* parent,
                                    const KRX::CString& element_name,
                                    const KRX::Property& property) {
  XmlElement* element = document.AddElement(parent, element_name);
  if (element == nullptr) return nullptr;
  for (const KRX::Parameter& parameter : property.GetParameters()) {
    const KRX::CString text = parameter.GetValue(KRX::kCurrentTime).GetString();
    XmlElement* child = document.AddTextElement(element, parameter.GetScriptName(), text);
    if (child == nullptr) continue;
    document.SetAttribute(child, L"Capabilities", std::to_string(parameter.GetCapabilities()));
    document.SetAttribute(child, L"Name", parameter.GetName());
    document.SetAttribute(child, L"Description", parameter.GetDescription());
    document.SetAttribute(child, L"DataType",
                          std::to_string(static_cast<int>(parameter.GetValueType())));
  }
  return element;
}

int ReadPropertyParameters(const XmlElement* element, const KRX::Property& property) {
  if (element == nullptr) return 0;
  const std::vector<KRX::Parameter> parameters = property.GetParameters();
  int set = 0;
  // Walks the children directly: a file may hold many of them.
  for (const xercesc::DOMNode* node = element->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    if (node->getNodeType() != xercesc::DOMNode::ELEMENT_NODE) continue;
    const auto* child = static_cast<const XmlElement*>(node);
    const KRX::CString name = ElementName(child);
    for (KRX::Parameter parameter : parameters) {
      if (parameter.GetName() != name) continue;
      const KRX::CValue value(ElementText(child));
      if (KRX::Succeeded(parameter.PutValue(value, KRX::kCurrentTime))) ++set;
      break;
    }
  }
  return set;
}

}  // namespace kavor
