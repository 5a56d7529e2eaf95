// Character entities of the XML reader, private to qkl/text: the
// reader's own helpers, kept apart so that XmlReader.cpp holds the grammar.
#ifndef QKL_TEXT_XMLENTITIES_H
#define QKL_TEXT_XMLENTITIES_H

#include <string>

namespace QKL {
namespace Internal {

// The text of one entity name (between "&" and ";"): "#" + decimal digits or
// "#x" + hexadecimal digits gives the code point in UTF-8 (1 to 4 bytes, empty
// from 1114112 up); "lt", "gt", "amp", "apos", "quot" give their character;
// anything else gives the empty string.
std::string getEntityChar(const std::string& name);

// Replaces every "&name;" by getEntityChar(name). -1 when an "&" has no ";"
// behind it or names nothing (the text is then left as it was), else 0.
// One pass: a text of n entities costs O(length), not O(n x length).
int xmlUnescape(std::string& text);

}  // namespace Internal
}  // namespace QKL

#endif
