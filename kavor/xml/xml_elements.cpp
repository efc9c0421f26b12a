// Element and attribute helpers of XmlDocument, and the element queries beside it.
#include <string>
#include <xercesc/dom/DOM.hpp>

#include "kavor/xml/xml_document.h"
#include "kavor/xml/xml_text.h"
#include "kavor/xml/xml_values.h"

namespace kavor {
namespace {

using KRX::CString;

bool IsElement(const xercesc::DOMNode* node) {
  return node != nullptr && node->getNodeType() == xercesc::DOMNode::ELEMENT_NODE;
}

bool IsText(const xercesc::DOMNode* node) {
  return node != nullptr && (node->getNodeType() == xercesc::DOMNode::TEXT_NODE ||
                             node->getNodeType() == xercesc::DOMNode::CDATA_SECTION_NODE);
}

CString DomFailure(const xercesc::DOMException& e) {
  if (e.getMessage() != nullptr && e.getMessage()[0] != 0) return FromXmlText(e.getMessage());
  return CString(std::to_string(e.code));
}

}  // namespace

XmlElement* ChildElement(const XmlElement* parent, const CString& name) {
  if (parent == nullptr) return nullptr;
  const std::u16string wanted = ToXmlText(name);
  for (xercesc::DOMNode* node = parent->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    if (IsElement(node) && wanted == node->getNodeName()) {
      return static_cast<XmlElement*>(node);
    }
  }
  return nullptr;
}

XmlElement* ChildElementAt(const XmlElement* parent, int index) {
  if (parent == nullptr || index < 0) return nullptr;
  for (xercesc::DOMNode* node = parent->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    if (!IsElement(node)) continue;
    if (index == 0) return static_cast<XmlElement*>(node);
    --index;
  }
  return nullptr;
}

int ChildElementCount(const XmlElement* parent) {
  if (parent == nullptr) return 0;
  int count = 0;
  for (const xercesc::DOMNode* node = parent->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    if (IsElement(node)) ++count;
  }
  return count;
}

CString ElementName(const XmlElement* element) {
  return element == nullptr ? CString() : FromXmlText(element->getTagName());
}

bool ElementHasText(const XmlElement* element) {
  return element != nullptr && IsText(element->getFirstChild());
}

CString ElementText(const XmlElement* element) {
  if (element == nullptr) return CString();
  const xercesc::DOMNode* first = element->getFirstChild();
  return IsText(first) ? FromXmlText(first->getNodeValue()) : CString();
}

bool SetElementText(XmlElement* element, const CString& text) {
  if (element == nullptr) return false;
  const std::u16string value = ToXmlText(text);
  xercesc::DOMNode* first = element->getFirstChild();
  if (first == nullptr) {
    element->appendChild(element->getOwnerDocument()->createTextNode(value.c_str()));
    return true;
  }
  if (!IsText(first)) return false;
  first->setNodeValue(value.c_str());
  return true;
}

XmlElement* XmlDocument::DocumentElement() const {
  return document_ == nullptr ? nullptr : document_->getDocumentElement();
}

bool XmlDocument::ReadChildText(const XmlElement* parent, const CString& name, CString* out) {
  const XmlElement* child = ChildElement(parent, name);
  if (child == nullptr) {
    AddError(L"DOMElement : <" + name + L"> not found under : " + ElementName(parent));
    return false;
  }
  if (ElementHasText(child)) *out = ElementText(child);
  return true;
}

bool XmlDocument::ReadAttribute(const XmlElement* element, const CString& name, CString* out) {
  const std::u16string key = ToXmlText(name);
  const xercesc::DOMAttr* attribute =
      element == nullptr ? nullptr : element->getAttributeNode(key.c_str());
  if (attribute == nullptr) {
    AddError(L"Atribute : <" + name + L"> not found under : " + ElementName(element));
    return false;
  }
  *out = FromXmlText(attribute->getValue());
  return true;
}

bool XmlDocument::ReadTransformAttribute(const XmlElement* element, const CString& name,
                                         KRX::MATH::CTransformation* out) {
  CString text;
  if (!ReadAttribute(element, name, &text)) return false;
  if (ParseTransformText(text, out)) return true;
  AddError(L"Error reading CTransformation Attribute : <" + name + L"> not found under : " +
           ElementName(element));
  return false;
}

bool XmlDocument::WriteTransformAttribute(XmlElement* element, const CString& name,
                                          const KRX::MATH::CTransformation& transform) {
  const CString text = TransformText(transform);
  if (text.IsEmpty()) {
    AddError(L"Error writing CTransformation Attribute : <" + name + L"> under : " +
             ElementName(element) + L": a value is not a finite number");
    return false;
  }
  return SetAttribute(element, name, text);
}

bool XmlDocument::SetAttribute(XmlElement* element, const CString& name, const CString& value) {
  if (element == nullptr) {
    AddError(L"Atribute : <" + name + L"> cannot be set: no element");
    return false;
  }
  const std::u16string key = ToXmlText(name);
  const std::u16string text = ToXmlText(value);
  try {
    element->setAttribute(key.c_str(), text.c_str());
    return true;
  } catch (const xercesc::DOMException& e) {
    AddError(L"Atribute : <" + name + L"> cannot be set under : " + ElementName(element) + L": " +
             DomFailure(e));
    return false;
  }
}

XmlElement* XmlDocument::AddElement(XmlElement* parent, const CString& name) {
  if (parent == nullptr) {
    AddError(L"DOMElement : <" + name + L"> cannot be added: no parent element");
    return nullptr;
  }
  const std::u16string tag = ToXmlText(name);
  try {
    XmlElement* element = parent->getOwnerDocument()->createElement(tag.c_str());
    parent->appendChild(element);
    return element;
  } catch (const xercesc::DOMException& e) {
    AddError(L"DOMElement : <" + name + L"> cannot be added under : " + ElementName(parent) +
             L": " + DomFailure(e));
    return nullptr;
  }
}

XmlElement* XmlDocument::AddTextElement(XmlElement* parent, const CString& name,
                                        const CString& text) {
  XmlElement* element = AddElement(parent, name);
  if (element == nullptr) return nullptr;
  const std::u16string value = ToXmlText(text);
  element->appendChild(element->getOwnerDocument()->createTextNode(value.c_str()));
  return element;
}

XmlElement* XmlDocument::FindOrCreatePath(const CString& section, const CString& key) {
  XmlElement* root = DocumentElement();
  if (root == nullptr) return nullptr;
  XmlElement* section_element = ChildElement(root, section);
  if (section_element == nullptr) section_element = AddElement(root, section);
  XmlElement* key_element = ChildElement(section_element, key);
  if (key_element == nullptr && section_element != nullptr) {
    key_element = AddElement(section_element, key);
  }
  return key_element;
}

}  // namespace kavor
