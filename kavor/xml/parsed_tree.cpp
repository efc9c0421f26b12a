#include "kavor/xml/parsed_tree.h"

#include <string>
#include <vector>
#include <xercesc/dom/DOM.hpp>

namespace kavor {
namespace {

using xercesc::DOMNode;

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

// Calls `visit` for every node below and including the document element, in document
// order, without recursion.
template <typename Visit>
void WalkTree(const xercesc::DOMDocument& document, Visit visit) {
  DOMNode* root = document.getDocumentElement();
  DOMNode* node = root;
  int depth = 1;
  while (node != nullptr) {
    if (!visit(node, depth)) return;
    if (DOMNode* child = node->getFirstChild(); child != nullptr) {
      node = child;
      ++depth;
      continue;
    }
    while (node != root && node->getNextSibling() == nullptr) {
      node = node->getParentNode();
      --depth;
    }
    if (node == root) return;
    node = node->getNextSibling();
  }
}

bool HasElementChild(const DOMNode* node) {
  for (const DOMNode* child = node->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (child->getNodeType() == DOMNode::ELEMENT_NODE) return true;
  }
  return false;
}

}  // namespace

// The printer puts a line feed and indentation after text and never before it, so the
// trailing blanks go from their first line feed on, which keeps blanks that belong to the
// text. Blanks alone between elements are layout.
std::u16string TextWithoutLayout(std::u16string_view text) {
  size_t content_begin = 0;
  while (content_begin < text.size() && IsBlank(text[content_begin])) ++content_begin;
  if (content_begin == text.size()) return std::u16string();
  size_t content_end = text.size();
  while (IsBlank(text[content_end - 1])) --content_end;
  const size_t begin = text.find(u'\n') < content_begin ? content_begin : 0;
  const size_t feed_after = text.find(u'\n', content_end);
  const size_t end = feed_after == std::u16string_view::npos ? text.size() : feed_after;
  return std::u16string(text.substr(begin, end - begin));
}

int DeepestElement(const xercesc::DOMDocument& document, int limit) {
  int deepest = 0;
  WalkTree(document, [&](const DOMNode* node, int depth) {
    if (node->getNodeType() == DOMNode::ELEMENT_NODE && depth > deepest) deepest = depth;
    return deepest <= limit;
  });
  return deepest;
}

void TrimPrettyPrintLayout(xercesc::DOMDocument& document) {
  // Elements are gathered first: the tree is changed only after the walk.
  std::vector<DOMNode*> mixed;
  WalkTree(document, [&](DOMNode* node, int) {
    if (node->getNodeType() == DOMNode::ELEMENT_NODE && HasElementChild(node)) {
      mixed.push_back(node);
    }
    return true;
  });
  for (DOMNode* element : mixed) {
    DOMNode* child = element->getFirstChild();
    while (child != nullptr) {
      DOMNode* next = child->getNextSibling();
      if (child->getNodeType() == DOMNode::TEXT_NODE) {
        const std::u16string text = TextWithoutLayout(child->getNodeValue());
        if (text.empty()) {
          element->removeChild(child)->release();
        } else {
          child->setNodeValue(text.c_str());
        }
      }
      child = next;
    }
  }
}

}  // namespace kavor
