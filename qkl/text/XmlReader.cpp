// The XML reader: XML text into a QKLBinary document, the whole message or the
// subtree under an iterator. How values are stored is listed in QKLBinary.h.
//
// Every parse goes into a fresh document first, so that a failure leaves the
// message as it was: the whole-document form then adopts the parsed bytes,
// the iterator form copies the parsed tree under the iterator. The tree is built
// node after node by a TreeBuilder and goes into that document in one step.
//
// The text is trusted to end with a zero byte and nothing else: every scan
// stops at that byte, every look-ahead reads only behind a byte already known
// not to be it, and the nesting is bounded by MAX_TEXT_DEPTH.
//
// A refused text leaves where and why in the message (lastTextError): each
// failure names its place and reason through TextFaults, which does its work
// only once the parse has failed; the line and column are counted last.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qkl/binary/Format.h"
#include "qkl/binary/Limits.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/text/TextError.h"
#include "qkl/text/TextFaults.h"
#include "qkl/text/TreeBuilder.h"
#include "qkl/text/XmlEntities.h"
#include "qkl/text/XmlNamespaces.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {

using Internal::CharArray;
using binary::Node;

namespace {

// Policy bits of the message (QKLBinary::Policy): an unknown element is dropped instead
// of being kept as an XML fragment; an unknown element fails the parse.
const unsigned int DROP_UNKNOWN = 1;
const unsigned int UNKNOWN_FAILS = 2;
// The recursive parser's result when it meets "</": the enclosing element's end tag.
const int END_TAG = 1;
// Namespace IDs live in a 16-bit node field.
const int LAST_NAMESPACE_ID = 0xFFFF;

const CharArray XMLNS("xmlns", 5);
const CharArray TYPE_LOCAL_NAME("type", 4);

// Both tests look closer only at the few characters that can pass them.
bool isWhite(char c) {
    return static_cast<unsigned char>(c) <= ' ' && (c == ' ' || c == '\t' || c == '\n' || c == '\r');
}

void skipWhite(const char*& cursor) {
    while (isWhite(*cursor)) ++cursor;
}

bool endsElementName(char c) {
    return static_cast<unsigned char>(c) <= '>' && (c == '>' || c == '/' || c == '\0' || isWhite(c));
}

// An attribute name ends at "=" (or the zero byte, a failure). A character that
// cannot stand in a name means that the name has no "=": a malformed text.
bool strayInAttributeName(char c) { return isWhite(c) || c == '<' || c == '>' || c == '/' || c == '"'; }

// The part of `name` before / behind its first ":" (empty / all of it without one).
CharArray prefixOf(const CharArray& name) {
    const unsigned int colon = name.find(':');
    return colon == CharArray::npos ? CharArray() : CharArray(name.ptr(), colon);
}
CharArray localOf(const CharArray& name) {
    const unsigned int colon = name.find(':');
    return colon == CharArray::npos ? name : CharArray(name.ptr() + colon + 1, name.length() - colon - 1);
}

// "</" name ">" at `at`. The comparison stops at the first difference, and the
// text's zero byte differs from every character of a name, so a match means that
// every byte up to the ">" lies before it.
bool isEndTag(const char* at, const CharArray& name) {
    if (at[0] != '<' || at[1] != '/') return false;
    for (unsigned int i = 0; i < name.length(); ++i) {
        if (at[2 + i] != name[i]) return false;
    }
    return at[2 + name.length()] == '>';
}

// The first "</" name ">" from `from`, without building the tag text.
const char* findEndTag(const char* from, const CharArray& name) {
    for (const char* at = std::strchr(from, '<'); at != nullptr; at = std::strchr(at + 1, '<')) {
        if (isEndTag(at, name)) return at;
    }
    return nullptr;
}

// CharArray's ==, a byte loop for names of a few characters.
bool sameName(const CharArray& a, const CharArray& b) {
    if (a.length() != b.length()) return false;
    for (unsigned int i = 0; i < a.length(); ++i) {
        if (a[i] != b[i]) return false;
    }
    return true;
}

// "<!" or "<?" at `cursor`: skipped up to and including the next ">", whatever
// stands between (deliberately simple). False, with the cursor unmoved, when
// there is no such markup, or when no ">" follows (then `failed` is set).
bool skipMarkup(const char*& cursor, bool& failed) {
    if (cursor[0] != '<' || (cursor[1] != '!' && cursor[1] != '?')) return false;
    const char* const close = std::strchr(cursor + 2, '>');
    failed = close == nullptr;
    if (!failed) cursor = close + 1;
    return !failed;
}

struct TextAttribute {
    CharArray name;
    CharArray value;
};

// name="value" at `cursor`, which ends behind the closing quote. On failure,
// the reason (TextError), with the cursor at the fault.
const char* readTextAttribute(const char*& cursor, TextAttribute& attribute) {
    const char* const name = cursor;
    for (; *cursor != '=' && *cursor != '\0'; ++cursor) {
        if (strayInAttributeName(*cursor)) break;
    }
    if (*cursor == '\0') return TextError::UNEXPECTED_END;
    if (*cursor != '=' || cursor == name) {
        cursor = name;
        return TextError::NO_EQUALS;
    }
    attribute.name = CharArray(name, unsigned(cursor - name));
    if (*++cursor != '"') return *cursor == '\0' ? TextError::UNEXPECTED_END : TextError::VALUE_NOT_QUOTED;
    const char* const value = ++cursor;
    const char* const quote = std::strchr(value, '"');
    if (quote == nullptr) {
        cursor = value + std::strlen(value);
        return TextError::UNEXPECTED_END;
    }
    attribute.value = CharArray(value, unsigned(quote - value));
    cursor = quote + 1;
    return nullptr;
}

// findStrC without its checks of a received map area. The reader only ever
// looks names up in the fresh document it builds, whose every map entry went
// through insertID and so stands in the name index: nothing more can be found.
int knownElementID(const QKLProtocolIDMap& map, const CharArray& name) {
    int id = map.doFind(name);
    if (id == 0) id = getElemIdByStringDefault(name.ptr(), name.length());
    if (id == 0) id = getNSIdByStringDefault(name.ptr(), name.length());
    return id;
}

// An element's ID: a known name; else the local part of a prefixed name, found
// or assigned; else a new per-document ID. For a name without ":" findStr
// repeats the look-ups just made and then assigns the next per-document ID
// (the map's counter is private to it). A prefixed name whose local part is
// empty names nothing: 0, an unknown element. The local part is what stands
// behind the name's last ":", so that it holds no ":" itself: the writer puts a
// name without a namespace as it is, and it must read back as the same name.
// For the same reason a local part that starts with "!" or "?" names nothing:
// written back, "<!" and "<?" would open a declaration or an instruction.
int elementID(QKLProtocolIDMap& map, const CharArray& name) {
    const int id = knownElementID(map, name);
    if (id != 0) return id;
    const unsigned int colon = name.rfind(':');
    const CharArray local =
        colon == CharArray::npos ? name : CharArray(name.ptr() + colon + 1, name.length() - colon - 1);
    if (local.empty() || local.ptr()[0] == '!' || local.ptr()[0] == '?') return 0;
    return map.findStr(local, &QKLDefaultMap::findElem, QKLProtocolIDMap::ELEMENT);
}

// The namespace ID of a declared URI; 0 for the empty URI (the prefix then names
// no namespace); -1 when no 16-bit namespace ID can be had for it (the map's one
// name index answers a URI that is already an element name with the element's ID).
int namespaceID(QKLProtocolIDMap& map, const CharArray& uri) {
    if (uri.empty()) return 0;
    const int id = map.findStr(uri, &QKLDefaultMap::findNS, QKLProtocolIDMap::NAMESPACE);
    return id > 0 && id <= LAST_NAMESPACE_ID ? id : -1;
}

typedef std::map<CharArray, int> NamespacePrefixes;  // prefix -> namespace ID

// The namespace URI of a prefix in scope; empty when undeclared or declared empty.
CharArray prefixURI(const QKLProtocolIDMap& map, const NamespacePrefixes& prefixes, const CharArray& prefix) {
    const NamespacePrefixes::const_iterator found = prefixes.find(prefix);
    return found == prefixes.end() || found->second == 0 ? CharArray() : map.findIDC(found->second);
}

// Behind the root only white space, comments, declarations and processing
// instructions may follow: another element or stray text is a malformed text.
// Null, or where the fault is: markup without its ">" or what may not follow.
const char* readTrailer(const char* cursor) {
    bool failed = false;
    for (;;) {
        skipWhite(cursor);
        if (*cursor == '\0') return nullptr;
        if (!skipMarkup(cursor, failed)) return cursor;
    }
}

// Where the root element begins: behind leading white space and markup.
const char* rootStart(const char* cursor) {
    bool failed = false;
    do {
        skipWhite(cursor);
    } while (skipMarkup(cursor, failed));
    return cursor;
}

// True when a node of the tree has tag 0 (a kept unknown element): the subtree
// copy (binary::CopyAssistant) finds no name for it and would fail halfway through.
bool holdsFragment(const QKLBinaryInternals& document) {
    const binary::Format format = document.format();
    const unsigned int end = format.beyond(binary::HEADER_SIZE);
    for (unsigned int at = binary::HEADER_SIZE; at < end;) {
        const Node node(format.arena(), at);
        if (node.tag() == 0) return true;
        at += node.isContainer() ? node.overhead() : unsigned(node.size());
    }
    return false;
}

// Parses the elements of one text into a TreeBuilder, under the message's policy.
class TextReader {
public:
    TextReader(QKLBinaryInternals& document, TreeBuilder& tree, unsigned int policy, const char* text,
               TextError& error)
        : m_document(document), m_map(document.idMap()), m_tree(tree), m_policy(policy), m_faults(text, error) {}

    // Parses one element at `cursor` (advanced past it) under the open element; in
    // skip mode it checks the syntax and stores nothing. -1 on failure; END_TAG
    // when it meets the enclosing element's end tag ("</") instead of an element.
    int element(const char*& cursor, const NamespacePrefixes& prefixes, bool skip, int depth);

    // The refusals (TextFaults.h): each records the first fault and returns -1.
    int fail(const char* at, const char* reason) { return m_faults.fail(at, reason); }
    int failEndTag(const char* at, const CharArray& open) {
        return m_faults.endTag(at, open.ptr(), open.length());
    }

private:
    int xmlType(const char* at, const CharArray& attrPrefix, const CharArray& value, const CharArray& valuePrefix,
                const NamespacePrefixes& prefixes);
    int storeText(const char* begin, const char* end);
    // Runs a look-up that may record a name, and follows the map area's growth.
    template <class LookUp>
    int recording(LookUp lookUp, int& id);
    // elementID, through the names met before.
    int lookUpElement(const CharArray& name, int& id);

    // Element IDs found for names met before. A name recorded since may change
    // what a look-up answers, so they are forgotten whenever the map area grows;
    // 0 (an unknown name) is never kept: the look-up may have used up an ID.
    struct KnownName {
        CharArray name;
        int id;
    };
    static const unsigned int KNOWN_NAMES = 64;

    QKLBinaryInternals& m_document;
    QKLProtocolIDMap& m_map;
    TreeBuilder& m_tree;
    const unsigned int m_policy;
    TextFaults m_faults;
    KnownName m_known[KNOWN_NAMES] = {};
};

template <class LookUp>
int TextReader::recording(LookUp lookUp, int& id) {
    const unsigned int before = m_document.used();
    id = lookUp();
    const unsigned int grown = m_document.used() - before;
    if (grown == 0) return 0;
    std::fill(std::begin(m_known), std::end(m_known), KnownName{});
    return m_tree.mapGrew(grown);
}

int TextReader::lookUpElement(const CharArray& name, int& id) {
    const unsigned int length = name.length();
    KnownName& known = m_known[(length * 31u + unsigned(char(name[0])) * 7u + unsigned(char(name[length - 1]))) %
                               KNOWN_NAMES];
    if (known.id != 0 && sameName(known.name, name)) {
        id = known.id;
        return 0;
    }
    if (recording([&] { return elementID(m_map, name); }, id) != 0) return -1;
    if (id != 0) known = KnownName{name, id};
    return 0;
}

// The element's payload: its text, unescaped, as a plain node.
int TextReader::storeText(const char* begin, const char* end) {
    char* const room = m_tree.textRoom(size_t(end - begin));
    if (room == nullptr) return m_faults.text(begin, nullptr);
    const long long length = Internal::xmlUnescape(begin, end, room);
    if (length < 0) return m_faults.text(begin, end);
    return m_tree.setText(size_t(length)) == 0 ? 0 : fail(begin, TextError::BEYOND_LIMITS);
}

int TextReader::element(const char*& cursor, const NamespacePrefixes& prefixes, bool skip, int depth) {
    bool failed = false;
    do {
        skipWhite(cursor);
    } while (skipMarkup(cursor, failed));
    if (failed || cursor[0] != '<') return m_faults.noElement(cursor, failed);
    if (cursor[1] == '/') return END_TAG;
    if (depth >= QKLBinary::MAX_TEXT_DEPTH) return fail(cursor, TextError::TOO_DEEP);
    const char* const start = cursor++;
    const char* const nameStart = cursor;
    while (!endsElementName(*cursor)) {
        if (unsigned(cursor - nameStart) == Limits::MAX_ELEMENT_NAME_LENGTH)
            return fail(start, TextError::NAME_LENGTH);
        ++cursor;
    }
    const CharArray name(nameStart, unsigned(cursor - nameStart));
    if (name.empty()) return m_faults.noElement(start, false);

    int id = 0;
    if (!skip && lookUpElement(name, id) != 0) return fail(start, TextError::BEYOND_LIMITS);
    if (!skip && id == 0 && (m_policy & UNKNOWN_FAILS)) return fail(start, TextError::UNKNOWN_ELEMENT);
    const bool unknown = !skip && id == 0;
    const bool store = !skip && !unknown;  // otherwise the syntax is checked and nothing stored
    if (store && m_tree.open(id) != 0)
        return fail(start, m_tree.refusesChild() ? TextError::HOLDS_VALUE : TextError::BEYOND_LIMITS);

    // The attributes, up to ">" or "/>".
    std::optional<NamespacePrefixes> declared;  // a copy of `prefixes`, made on the first xmlns:p
    const NamespacePrefixes* scope = &prefixes;
    std::vector<TextAttribute> typeCandidates;
    bool empty = false;
    for (;;) {
        skipWhite(cursor);
        if (*cursor == '>') {
            ++cursor;
            break;
        }
        if (*cursor == '/') {
            if (cursor[1] != '>')
                return cursor[1] == '\0' ? fail(cursor + 1, TextError::UNEXPECTED_END)
                                          : fail(cursor, TextError::NO_EQUALS);
            cursor += 2;
            empty = true;
            break;
        }
        TextAttribute attribute;
        if (const char* const fault = readTextAttribute(cursor, attribute)) return fail(cursor, fault);
        if (!store) continue;
        const int header = QKLBinary::headerAttributeID(attribute.name.str());
        if (header != 0) {
            // As the header setters store them: a string with its zero byte.
            if (m_tree.addValue(header, binary::TYPE_STRING, attribute.value.ptr(), attribute.value.length()) != 0)
                return fail(attribute.name.ptr(), TextError::BEYOND_LIMITS);
            continue;
        }
        const bool prefixed = attribute.name.find(':') != CharArray::npos;
        const CharArray local = localOf(attribute.name);
        if (prefixed && prefixOf(attribute.name) == XMLNS && !local.empty()) {
            int ns = 0;
            if (recording([&] { return namespaceID(m_map, attribute.value); }, ns) != 0 || ns < 0)
                return fail(attribute.name.ptr(), TextError::BEYOND_LIMITS);
            if (!declared) declared.emplace(prefixes);
            (*declared)[local] = ns;
            scope = &*declared;
        } else if (prefixed && local == TYPE_LOCAL_NAME) {
            typeCandidates.push_back(attribute);
        }
        // The document keeps no attributes but the header's: any other is accepted
        // and dropped, whatever its name (soap:encodingStyle, an unprefixed xmlns ...).
    }
    if (store) {
        for (const TextAttribute& type : typeCandidates) {
            if (xmlType(type.name.ptr(), prefixOf(type.name), localOf(type.value), prefixOf(type.value), *scope) != 0)
                return -1;
        }
        // After the type: setComplexType leaves a container with a namespace as it is.
        const CharArray elementPrefix = prefixOf(name);
        const NamespacePrefixes::const_iterator ns =
            elementPrefix.empty() ? scope->end() : scope->find(elementPrefix);
        if (ns != scope->end() && ns->second != 0 && m_tree.setNamespace(ns->second) != 0)
            return fail(start, TextError::BEYOND_LIMITS);
    }

    if (!empty) {
        const char* const content = cursor;
        skipWhite(cursor);
        if (cursor[0] == '<' && cursor[1] != '/') {
            int result;
            while ((result = element(cursor, *scope, !store, depth + 1)) == 0) {
            }
            if (result != END_TAG || !isEndTag(cursor, name)) return result == END_TAG ? failEndTag(cursor, name) : -1;
        } else if (cursor[0] != '<') {
            const char* const end = findEndTag(content, name);
            if (end == nullptr) return failEndTag(std::strstr(content, "</"), name);
            if (store && storeText(content, end) != 0) return -1;
            cursor = end;
        } else if (!isEndTag(cursor, name)) {
            return failEndTag(cursor, name);
        }
        cursor += name.length() + 3;
    }

    if (store) {
        m_tree.close();
    } else if (unknown && !(m_policy & DROP_UNKNOWN)) {
        // The unknown element's whole text, as an XML fragment in its place.
        if (m_tree.addValue(0, binary::TYPE_XML, start, size_t(cursor - start)) != 0)
            return fail(start, TextError::BEYOND_LIMITS);
    }
    return 0;
}

// A prefixed "type" attribute: an xsi:type when its prefix names the schema
// instance namespace, else an ordinary attribute (dropped).
int TextReader::xmlType(const char* at, const CharArray& attrPrefix, const CharArray& value,
                        const CharArray& valuePrefix, const NamespacePrefixes& prefixes) {
    const CharArray uri = prefixURI(m_map, prefixes, attrPrefix);
    if (uri.empty()) return fail(at, TextError::UNDECLARED_TYPE_PREFIX);
    if (uri != CharArray(XmlSchemaInstance)) return 0;
    // A type is a QName: one prefix and a local name without ":". The writer splits a
    // type's full name at its last ":", so a local name holding one could not come back.
    if (value.empty() || value.find(':') != CharArray::npos) return fail(at, TextError::TYPE_NOT_A_NAME);
    std::string fullName;
    if (!valuePrefix.empty()) {
        const CharArray typeNamespace = prefixURI(m_map, prefixes, valuePrefix);
        if (typeNamespace.empty()) return fail(at, TextError::UNDECLARED_TYPE_PREFIX);
        fullName = typeNamespace.str() + ":";
    }
    fullName.append(value.ptr(), value.length());
    // Never a vocabulary type: the full name is no vocabulary entry.
    int typeID = 0;
    const CharArray full(fullName.data(), unsigned(fullName.size()));
    const auto lookUp = [&] { return m_map.findStr(full, &QKLDefaultMap::findType, QKLProtocolIDMap::TYPE); };
    if (recording(lookUp, typeID) != 0 || typeID == 0) return fail(at, TextError::BEYOND_LIMITS);
    // Its content follows its attributes: the element is a container (of header
    // attributes) or still empty, and takes the type either way.
    return m_tree.setComplexType(typeID) == 0 ? 0 : fail(at, TextError::BEYOND_LIMITS);
}

}  // namespace

// ---- the top level ----------------------------------------------------------------------------

int QKLBinary::fromText(const char* text, QKLMessageIterator* at) {
    if (m_textError) m_textError = TextError();
    const int result = readText(text, at);
    if (m_textError) TextFaults::place(text, m_textError);
    return result;
}

int QKLBinary::readText(const char* text, QKLMessageIterator* at) {
    if (text == nullptr || m_internals == nullptr) return -1;
    const QKLBinaryIterator* under = nullptr;
    if (at != nullptr) {
        under = ownIterator(at);
        // validateInternals makes a shared document private before it is written.
        if (under == nullptr || under->validateInternals() != 0) return -1;
        if (m_internals->buffer() == nullptr) return -1;  // no document to parse into
    }
    QKLBinaryInternals document;
    if (document.turnBlank() != 0) return -1;
    TreeBuilder tree(document);
    TextReader reader(document, tree, m_policy, text, m_textError);
    const char* cursor = text;
    const int root = reader.element(cursor, NamespacePrefixes(), false, 0);
    if (root == END_TAG) return reader.failEndTag(cursor, CharArray());
    if (root != 0) return -1;
    if (const char* const trailer = readTrailer(cursor)) {
        // Markup behind the root that has no ">" ends with the text.
        if (trailer[0] == '<' && (trailer[1] == '!' || trailer[1] == '?'))
            return reader.fail(trailer + std::strlen(trailer), TextError::UNEXPECTED_END);
        return reader.fail(trailer, TextError::TEXT_AFTER_ROOT);
    }
    if (tree.finish() != 0) return reader.fail(rootStart(text), TextError::BEYOND_LIMITS);
    // Only a root dropped by the policy leaves no tree.
    if (document.format().empty()) return reader.fail(rootStart(text), TextError::UNKNOWN_ELEMENT);
    if (under != nullptr && holdsFragment(document)) return reader.fail(rootStart(text), TextError::UNKNOWN_ELEMENT);
    const int placed = under == nullptr
                           ? adopt(document.buffer(), int(document.used()))
                           : m_internals->copy(document.buffer(), BinaryPath(), document.idMap(), under->path());
    if (placed != 0) reader.fail(rootStart(text), TextError::BEYOND_LIMITS);
    return placed;
}

}  // namespace QKL
