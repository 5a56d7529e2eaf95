// XmlTagScanner, private to qkl/soap: the tags of a SOAP text one by one, each
// with its namespace resolved from the declarations in scope, for the strict
// converter, which finds the envelope's elements by namespace and local name
// whatever prefixes the client chose.
//
// It reads tags, not values: text, comments, processing instructions and
// CDATA sections are passed over; attribute values and namespace URIs are
// taken as written (no entity is decoded). Bounded on any text: one pass, at
// most MaxBindings declarations in scope and MaxDepth open elements, no read
// past the text's end.
#ifndef QKL_SOAP_XMLTAGSCANNER_H
#define QKL_SOAP_XMLTAGSCANNER_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace QKL {
namespace Internal {

// Namespace declarations in scope: prefix ("" for the default namespace) and URI.
typedef std::vector<std::pair<std::string, std::string>> NamespaceBindings;

struct XmlTag {
    enum Kind { Start, Empty, End };  // Empty: a self-closing start tag
    Kind kind = End;
    std::size_t begin = 0;  // its "<"
    std::size_t name = 0;   // its qualified name
    std::size_t end = 0;    // one past its ">"
    std::string prefix, local;
    std::string uri;     // the namespace of the name; "" for none
    bool bound = false;  // false for a prefix declared nowhere in scope
};

class XmlTagScanner {
public:
    static constexpr std::size_t MaxBindings = 64;
    static constexpr std::size_t MaxDepth = 1000;

    // Scans `text` from its start, with the declarations `outer` in scope
    // (those of the elements around it). The text must outlive the scanner.
    XmlTagScanner(const std::string& text, const NamespaceBindings& outer);

    // The next tag; false at the end of the text or, for good, on text that is
    // not well-formed (failed() then tells).
    bool next(XmlTag& tag);
    // Passes over the content of the element whose Start tag `start` was the
    // last one read, through its end tag, which goes into `last`. An Empty
    // start tag is its own end. False when the element is never closed.
    bool closeElement(const XmlTag& start, XmlTag& last);

    bool failed() const { return m_failed; }
    // The number of elements open at the scanner's position.
    std::size_t depth() const { return m_open.size(); }
    // Every declaration in scope at the scanner's position, outermost first.
    const NamespaceBindings& scope() const { return m_bindings; }

private:
    struct Open {
        std::size_t name, length;  // its qualified name in the text
        std::size_t bindings;      // the scope's size before its declarations
    };

    bool fail();
    bool skipPast(const char* terminator);
    std::size_t colonIn(std::size_t at, std::size_t length) const;
    bool readName(std::size_t& length);
    bool readAttributes();
    bool readStartTag(XmlTag& tag);
    bool readEndTag(XmlTag& tag);
    void resolve(XmlTag& tag, std::size_t length) const;
    void skipBlanks();

    const std::string& m_text;
    std::size_t m_at = 0;
    NamespaceBindings m_bindings;
    std::vector<Open> m_open;
    bool m_failed = false;
};

}  // namespace Internal
}  // namespace QKL

#endif
