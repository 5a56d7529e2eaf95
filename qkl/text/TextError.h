// Why an XML text was refused, and where: the byte offset into the text of the
// fault, its line and column (1-based; lines end at "\n", columns count bytes),
// and one reason from the fixed list below. QKLBinary keeps the error of its
// last refused text (lastTextError).
//
// The results of a refusal (-1, null) say nothing more; the reason exists for
// people and logs. Programs compare reasons by text, never by address.
#ifndef QKL_TEXT_TEXTERROR_H
#define QKL_TEXT_TEXTERROR_H

#include <string>

namespace QKL {

struct TextError {
    // The text ends inside markup, a tag, a value or an element left open.
    static constexpr char UNEXPECTED_END[] = "unexpected end of text";
    // Where an element must begin, something else stands (text between elements).
    static constexpr char LT_EXPECTED[] = "\"<\" expected";
    // An end tag names another element than the open one (found: its name,
    // open: the open element's; open is empty for an end tag before any element).
    static constexpr char END_TAG_MISMATCH[] = "end tag does not match";
    static constexpr char VALUE_NOT_QUOTED[] = "attribute value not in double quotes";
    static constexpr char NO_EQUALS[] = "attribute without \"=\"";
    static constexpr char NAME_LENGTH[] = "element name empty or longer than 250 characters";
    static constexpr char TOO_DEEP[] = "nesting deeper than the limit";
    // "&name;" that names no character (found: the name).
    static constexpr char UNKNOWN_ENTITY[] = "unknown entity";
    static constexpr char AMP_WITHOUT_SEMICOLON[] = "\"&\" without \";\"";
    // The prefix of an xsi:type attribute or of its value has no namespace in scope.
    static constexpr char UNDECLARED_TYPE_PREFIX[] = "undeclared prefix in xsi:type";
    // The value of an xsi:type is empty or holds more than one ":".
    static constexpr char TYPE_NOT_A_NAME[] = "xsi:type value is no qualified name";
    // Text inside an element that holds header attributes (they are its children),
    // or a child element where it holds a value.
    static constexpr char HOLDS_VALUE[] =
        "text or children where the element already holds header attributes or a value";
    static constexpr char TEXT_AFTER_ROOT[] = "text after the root element";
    // The message's policy fails the parse on an unknown element, or drops an
    // unknown root; an unknown element kept as XML cannot be placed under an iterator.
    static constexpr char UNKNOWN_ELEMENT[] = "unknown element refused by policy";
    // The document would pass its size limit, or a name could get no ID.
    static constexpr char BEYOND_LIMITS[] = "the document cannot hold it (size or ID limits)";

    unsigned int offset = 0;
    unsigned int line = 0;
    unsigned int column = 0;
    const char* reason = nullptr;  // one of the texts above; null when there is no error
    std::string found;             // END_TAG_MISMATCH, UNKNOWN_ENTITY: the name found
    std::string open;              // END_TAG_MISMATCH: the open element's name

    // True when there is an error.
    explicit operator bool() const { return reason != nullptr; }

    // The reason with its names: "end tag </b> does not match <a>", "unknown entity &x;".
    std::string text() const {
        if (reason == END_TAG_MISMATCH)
            return open.empty() ? "end tag </" + found + "> without a start tag"
                                : "end tag </" + found + "> does not match <" + open + ">";
        if (reason == UNKNOWN_ENTITY) return "unknown entity &" + found + ";";
        return reason == nullptr ? std::string() : reason;
    }
};

}  // namespace QKL

#endif
