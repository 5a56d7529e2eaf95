// Received bytes through every reader of the binary document: framing (probe),
// adoption (QKLBinaryInternals::copy), the lazy decode of the map area, name
// look-ups, a walk of the tree, and the subtree copy into another document.
// Any read outside the bytes is an ASan finding.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qkl/QKL.h"

namespace {

void silence(const char*, const char*, int) {}

// Looks every node's tag, namespace and type up, as a reader of the document would.
void walk(const QKL::QKLBinaryInternals& doc) {
    std::vector<QKL::binary::Format::node_range> ranges(1, doc.format().root());
    while (!ranges.empty() && ranges.size() < 256) {
        QKL::binary::Format::node_range& range = ranges.back();
        if (!range.valid()) {
            ranges.pop_back();
            continue;
        }
        const QKL::binary::Node node = range.node();
        doc.idMap().findIDC(node.tag());
        doc.idMap().findIDC(node.ns());
        doc.idMap().findTypeIDC(node.type());
        const QKL::binary::Format::node_range children = range.children();
        range = range.next();
        if (!children.empty()) ranges.push_back(children);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QKL::setAssertHandler(&silence);
    const char* bytes = reinterpret_cast<const char*>(data);
    const unsigned int length = size > 0xFFFFFFu ? 0xFFFFFFu : unsigned(size);
    const unsigned int framed = QKL::binary::Format::probe(bytes, length);
    if (framed == 0 || framed == QKL::binary::NOT_BINARY) return 0;

    QKL::QKLBinaryInternals received;
    if (received.copy(bytes, int(framed)) == nullptr) return 0;
    walk(received);
    received.idMap().findStrC(QKL::Internal::CharArray("zzz", 3), &QKL::QKLDefaultMap::findElem);

    QKL::QKLBinaryInternals target;
    QKL::BinaryPath at;
    if (target.turnBlank() != 0 ||
        target.insert(at, 1398, QKL::binary::TYPE_CONTAINER, nullptr, 0, false) != 0)
        return 0;
    target.copy(received.buffer(), QKL::BinaryPath(), received.idMap(), at);
    walk(target);
    return 0;
}
