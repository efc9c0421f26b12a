// Checks and tidying applied to a tree as it comes from the parser.
#pragma once

#include <string>
#include <string_view>
#include <xercesc/dom/DOMDocument.hpp>

namespace kavor {

// The depth of the deepest element (the document element is at depth 1), found without
// recursion; counting stops once `limit` is passed, so the result is then limit + 1.
int DeepestElement(const xercesc::DOMDocument& document, int limit);

// Removes the layout that pretty printing adds to mixed content, so that a document read
// and written again comes out the same. In an element that holds child elements, each
// text child loses a leading run of blanks that holds a line feed, and its trailing
// blanks from their first line feed on; a text child of nothing but blanks is removed.
// Text of elements without child elements is never touched.
void TrimPrettyPrintLayout(xercesc::DOMDocument& document);

// What TrimPrettyPrintLayout leaves of one such text child: empty when it goes.
std::u16string TextWithoutLayout(std::u16string_view text);

}  // namespace kavor
