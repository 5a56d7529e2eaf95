// The XML writer: the text form of a QKLBinary document, or of the
// subtree under an iterator. Element names come from the header attribute table
// (tags 200 and below) or the document's ID map; namespaces get the prefixes
// "ns1", "ns2" ... in the order the writer meets them, declared in the first
// start tag; complex types are written as xsi:type. Below message version 40000
// (legacy mode) neither prefixes nor xsi:type nor declarations are written.
//
// The document is walked with binary::Format::node_range. Each node is checked
// as the walk reaches it, and a subtree the walk does not enter (under a header
// attribute) is checked whole, so no bytes outside the document are read, no
// node is visited twice, and a single bad node refuses the whole text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>

#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/text/ElementWriter.h"
#include "qkl/text/TextOut.h"
#include "qkl/text/XmlEntities.h"
#include "qkl/text/XmlNamespaces.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

namespace QKL {

namespace {

using binary::Format;
using Internal::CharArray;
using Internal::ElementWriter;
using Internal::TextOut;
using Internal::WalkedNode;
using Internal::elementName;
using Internal::isHeaderAttribute;
using Internal::namespaceOf;
using Internal::viewOf;
using Internal::walk;

// The version of the whole-message entries that take none.
const int DEFAULT_TEXT_VERSION = QKLMessageIterator::TEXT_FLAGS;  // 40500
const std::string_view XSI_DECLARATION = " xmlns:xsi=\"";
const std::string_view XMLNS_DECLARATION = " xmlns:";

// Where the namespace declarations go: behind the start element's name in the
// first start tag; npos when it cannot be found. The search begins behind
// "<prefix:" so that a name that is part of its own prefix ("s" in "<ns1:s") is
// not found there.
size_t declarationPoint(std::string_view text, const CharArray& name, const std::string* prefix) {
    size_t from = 0;
    if (prefix != nullptr) {
        const std::string open = "<" + *prefix + ":";
        if (text.substr(0, open.size()) == open) from = open.size();
    }
    const size_t point = text.find(viewOf(name), from);
    return point == std::string_view::npos ? point : point + name.length();
}

// The xsi declaration, which stands last among the start element's declarations.
const std::string& xsiDeclaration() {
    static const std::string text = std::string(XSI_DECLARATION) + XmlSchemaInstance + '"';
    return text;
}

// The declarations of every prefix (later URIs first) and, when `xsi`, of xsi.
std::string declarations(const std::map<std::string, std::string, std::less<>>& prefixes, bool xsi) {
    std::string text;
    for (auto entry = prefixes.rbegin(); entry != prefixes.rend(); ++entry) {
        text.append(XMLNS_DECLARATION).append(entry->second).append("=\"").append(entry->first).append(1, '"');
    }
    if (xsi) text.append(xsiDeclaration());
    return text;
}

}  // namespace

// ---- whole-message rendering ----------------------------------------------------------------------

char* QKLBinary::toText(const QKLMessageIterator* at, const std::string& nsBase, int version) const {
    // The cached header fields go into the document first.
    saveChanges();
    if (m_internals == nullptr || m_internals->buffer() == nullptr) return nullptr;
    const Format document = m_internals->format();

    // The start node: the iterator's current node, else the root.
    unsigned int start = binary::HEADER_SIZE;
    if (at != nullptr) {
        const QKLBinaryIterator* own = ownIterator(at);
        if (own == nullptr || own->validateStamp() != 0) return nullptr;
        QKL_ASSERT(!own->path().empty());
        if (own->path().empty()) return nullptr;
        start = own->path().current().offset;
    }
    WalkedNode node;
    if (!walk(Format::node_range{document.arena(), start, document.beyond(start)}, document.version(), node))
        return nullptr;

    const QKLProtocolIDMap& map = m_internals->idMap();
    map.validate();  // a malformed map area only makes the names "INVALID_TAG"
    TextOut out(size_t(node.size) * 2);
    const bool legacy = version < int(binary::MAP_MSG_VERSION);
    // xsi is declared unless a subtree is written under a namespace base. Known
    // before the walk, it is written with the start tag; the prefixes met on the
    // way go in front of it afterwards, so the whole text need not move for it.
    const bool xsi = !legacy && (at == nullptr || nsBase.empty());
    ElementWriter writer(out, map, !legacy, document.version());
    if (xsi) writer.setRootText(xsiDeclaration());
    if (writer.write(node, 0) < 0) return nullptr;

    if (!legacy) {
        const CharArray name = isHeaderAttribute(node.tag) ? CharArray() : elementName(map, node.tag);
        if (name.empty()) return nullptr;
        const CharArray uri = namespaceOf(map, node.ns);
        const auto own = uri.empty() ? writer.prefixes().end() : writer.prefixes().find(viewOf(uri));
        const size_t point = declarationPoint(std::string_view(out.data(), out.size()), name,
                                              own == writer.prefixes().end() ? nullptr : &own->second);
        if (point == std::string_view::npos) return nullptr;
        const std::string declared = declarations(writer.prefixes(), xsi && !writer.rootTextWritten());
        if (!declared.empty()) out.insert(point, declared.data(), declared.size());
    }

    // (Nothing written, as for a header attribute as start node: nothing to print.)
    return out.size() == 0 ? nullptr : out.release();
}

char* QKLBinary::toText(const QKLMessageIterator* at, const std::string& nsBase) const {
    return toText(at, nsBase, DEFAULT_TEXT_VERSION);
}

int QKLBinary::toText(int version, char*& buffer, int& length) const {
    buffer = toText(nullptr, std::string(), version);
    const size_t size = buffer ? std::strlen(buffer) : 0;
    if (buffer == nullptr || size > size_t(INT32_MAX)) {
        std::free(buffer);
        buffer = nullptr;
        length = 0;
        return -1;
    }
    length = int(size);
    return 0;
}

// ---- escaping -------------------------------------------------------------------------------------

std::string QKLBinary::escape(const char* text) {
    std::string out;
    if (text != nullptr) Internal::appendEscaped(out, text, std::strlen(text));
    return out;
}

}  // namespace QKL