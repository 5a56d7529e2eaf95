// qklmsg inspect IN: the bytes of each binary document of the input made
// readable: a summary line, one line per node in document order (offset, name
// indented by depth, tag, type, ns, data size, size, then its value if it has
// one, as valueText shows it), then one line per map
// entry (offset, ID, kind, name). XML text is read into a binary document
// first, and standard error says so: the text has no bytes of its own to show.
// A binary document that is refused shows, on standard output only, every node
// and map entry that can be read before its fault, then "offset N: REASON".
#include <algorithm>
#include <cstdarg>
#include <climits>
#include <cstdio>
#include <vector>

#include "Commands.h"
#include "qkl/binary/NodeValue.h"
#include "MessageIO.h"

namespace qklmsg {

namespace {

using QKL::QKLBinaryInternals;
using QKL::Internal::CharArray;
using QKL::binary::Format;
using QKL::binary::Node;

const char* const MAP_KIND_NAMES[QKL::binary::MAP_KIND_COUNT] = {"element", "namespace", "type"};

void appendFormat(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));

void appendFormat(std::string& out, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    if (length > 0) {
        std::vector<char> line(std::size_t(length) + 1);
        std::vsnprintf(line.data(), line.size(), format, again);
        out.append(line.data(), std::size_t(length));
    }
    va_end(again);
}

// The element name of a tag: the vocabulary's or the document's map entry,
// else the header attribute's, else the writers' "INVALID_TAG".
std::string elementName(const QKLBinaryInternals& doc, int tag) {
    const CharArray name = doc.idMap().findIDC(tag);
    if (!name.empty()) return std::string(name.ptr(), name.length());
    const char* header = QKL::QKLBinary::headerAttributeName(tag);
    if (header != nullptr) return header;
    const CharArray& invalid = QKL::QKLProtocolIDMap::INVALID_TAG;
    return std::string(invalid.ptr(), invalid.length());
}

// Past this many bytes a value is cut, and its whole length shown behind it.
constexpr std::size_t SHOWN_VALUE_BYTES = 64;

// A value of `whole` bytes, of which the first `length` are at `bytes`,
// between two `quote`s, with \" \\ \n \t and \xHH for the other control bytes,
// so that it stays on its line; cut past SHOWN_VALUE_BYTES as "abc..." (N bytes).
// Will not read past bytes + length.
std::string shown(const char* bytes, std::size_t length, std::size_t whole, const char* quote) {
    std::string out = quote;
    for (std::size_t i = 0; i < length && i < SHOWN_VALUE_BYTES; ++i) {
        const unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7f) {
            appendFormat(out, "\\x%02x", c);
        } else {
            out += char(c);
        }
    }
    if (whole <= SHOWN_VALUE_BYTES) return out + quote;
    appendFormat(out, "...%s (%zu bytes)", quote, whole);
    return out;
}

// A node's value as text: texts quoted, times and numbers as they are written
// in XML, base64 values as their base64 text with the decoded length. Empty for
// a container, a value too short for its type, and a payload outside the bytes.
std::string valueText(const Node& node) {
    std::int32_t number = 0;
    long long wide = 0;
    double real = 0;
    switch (node.type()) {
    case QKL::binary::TYPE_ELEMENT:
    case QKL::binary::TYPE_STRING:
    case QKL::binary::TYPE_TIME:
    case QKL::binary::TYPE_XML: {
        if (node.data() == nullptr) return std::string();
        const CharArray stored = QKL::binary::storedText(node);
        const char* quote = node.type() == QKL::binary::TYPE_TIME ? "" : "\"";
        return shown(stored.ptr(), stored.length(), stored.length(), quote);
    }
    case QKL::binary::TYPE_INT:
        return QKL::binary::numberOf(node, number) ? QKL::intToStr(number) : std::string();
    case QKL::binary::TYPE_LONGLONG:
        return QKL::binary::numberOf(node, wide) ? QKL::longlongToStr(wide) : std::string();
    case QKL::binary::TYPE_DOUBLE:
        return QKL::binary::numberOf(node, real) ? QKL::doubleToStr(real) : std::string();
    case QKL::binary::TYPE_BASE64: {
        // The stored bytes end in a terminating byte that is not part of the value. Only what is
        // shown is encoded: 48 bytes give the 64 characters shown, and one more the cut behind them.
        if (node.data() == nullptr || node.dataSize() == 0) return std::string();
        const std::size_t decoded = node.dataSize() - 1;
        const std::size_t encoded = (decoded + 2) / 3 * 4;
        const std::size_t head = std::min(decoded, SHOWN_VALUE_BYTES / 4 * 3 + 1);
        const std::string text = QKL::Base64::encode(std::string(node.data(), head));
        return "base64 " + shown(text.data(), text.size(), encoded, "\"") + " (" + std::to_string(decoded) +
               " bytes decoded)";
    }
    default:
        return std::string();
    }
}

void describeDocument(const QKLBinaryInternals& doc, std::string& out) {
    const Format format = doc.format();
    appendFormat(out, "document: %u bytes, format version %u, message version %d, map area %u bytes at offset %u\n",
                 doc.used(), unsigned(format.version()), doc.messageVersion(), format.map().size(),
                 format.map().offset());
}

void describeNode(const QKLBinaryInternals& doc, const Node& node, std::size_t depth, std::string& out) {
    const std::string name = elementName(doc, node.tag());
    const std::string value = valueText(node);
    appendFormat(out, "node @%-5u %*s<%s> tag %d type %u ns %u data size %u size %llu%s%s\n", node.offset(),
                 int(depth * 2), "", name.c_str(), node.tag(), unsigned(node.type()), unsigned(node.ns()),
                 node.dataSize(), static_cast<unsigned long long>(node.size()), value.empty() ? "" : " value ",
                 value.c_str());
}

// Depth first, in document order, the nodes of `format` before offset
// `before`; names from `doc`. node_range walking checks every node against
// the bytes, so even a lying document ends the walk instead of being read
// past; the explicit stack takes any depth.
void describeNodes(const QKLBinaryInternals& doc, const Format& format, unsigned int before, std::string& out) {
    std::vector<Format::node_range> ranges(1, format.root());
    while (!ranges.empty()) {
        Format::node_range& range = ranges.back();
        if (range.begin >= before) return;  // document order is the order of offsets
        if (!range.valid()) {
            ranges.pop_back();
            continue;
        }
        describeNode(doc, range.node(), ranges.size() - 1, out);
        const Format::node_range children = range.children();
        range = range.next();
        if (!children.empty()) ranges.push_back(children);
    }
}

// The map area's entries before offset `before`, walked as Format.h says;
// the offset of the first bad one, or 0 when there is none.
unsigned int describeMapEntries(const Format& format, unsigned int before, std::string& out) {
    const Format::map_type& map = format.map();
    const std::uint64_t end = std::uint64_t(map.offset()) + map.size();
    for (std::uint64_t at = map.offset(); at < end && at < before; at += Node(format.arena(), unsigned(at)).size()) {
        if (!map.entryValid(unsigned(at))) return unsigned(at);
        const Node entry(format.arena(), unsigned(at));
        // The name's stored bytes end in a zero byte that is not part of it.
        const std::string name(entry.data(), entry.dataSize() - 1);
        appendFormat(out, "map  @%-5u id %d %s \"%s\"\n", unsigned(at), entry.tag(), MAP_KIND_NAMES[entry.type()],
                     name.c_str());
    }
    return 0;
}

// A refused document, from the bytes themselves. Names come from the
// vocabularies, and from the map area when the bytes frame as a document. A
// fault in the header leaves the tree as readable as it is, so all of it is shown.
void describeRefused(const char* bytes, std::size_t length, std::string& out) {
    const QKL::DocumentError fault = documentFault(bytes, length);
    QKLBinaryInternals names;
    if (names.copy(bytes, int(length)) == nullptr) names.turnBlank();
    const Format received(QKL::binary::Arena::readOnlyView(bytes, unsigned(length)));
    const unsigned int before = fault.offset < QKL::binary::HEADER_SIZE ? UINT_MAX : fault.offset;
    appendFormat(out, "document: %zu bytes received\n", length);
    if (length >= QKL::binary::HEADER_SIZE) {
        describeNodes(names, received, before, out);
        describeMapEntries(received, before, out);
    }
    out += faultText(fault) + "\n";
}

// One message's lines, appended to `out`.
bool inspectMessage(const QKL::QKLMessage& message, const Received& received, std::string& out) {
    const QKL::QKLBinary* binary = dynamic_cast<const QKL::QKLBinary*>(&message);
    if (binary == nullptr || binary->internals() == nullptr) {
        refuse(received.where, "the message is not held in a binary document");
        return false;
    }
    if (!received.binary) note(received.where, "XML text: showing the binary document it reads into");
    const QKLBinaryInternals& doc = *binary->internals();
    describeDocument(doc, out);
    describeNodes(doc, doc.format(), UINT_MAX, out);
    const unsigned int badEntry = describeMapEntries(doc.format(), UINT_MAX, out);
    if (badEntry != 0) refuse(received.where, "malformed map entry at offset " + std::to_string(badEntry));
    return badEntry == 0;
}

}  // namespace

int runInspect(const CommandLine& line) {
    return writeEachMessage(line.operands[0], line.output, inspectMessage, describeRefused);
}

}  // namespace qklmsg
