// Binary document test support: bytes as hex, trees as plain data, the invariant every held document keeps.
#ifndef QKL_TESTS_BINARY_DOCUMENTCHECK_H
#define QKL_TESTS_BINARY_DOCUMENTCHECK_H

#include <gtest/gtest.h>

#include <sstream>

#include "qkl/binary/QKLBinaryInternals.h"
#include "support/Files.h"

namespace BinaryDoc {

using QKLTest::fromHex;

// A file of tests/data/binary; every one is a table or a dump that must not be missing.
inline std::string dataFile(const std::string& name) {
    const std::string content = QKLTest::dataFile("binary/" + name);
    EXPECT_FALSE(content.empty()) << "no " << name;
    return content;
}

// "98 ba dc fe ...", 16 bytes a line, so that a failure shows where two documents part.
inline std::string hex(const std::string& bytes, size_t perLine = 16) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i)
        out += (i == 0 ? "" : i % perLine ? " " : "\n") + std::string{digits[bytes[i] >> 4 & 15], digits[bytes[i] & 15]};
    return out;
}

inline std::string held(const QKL::QKLBinaryInternals& d) { return d.buffer() ? std::string(d.buffer(), d.used()) : ""; }

// A tree as plain data: a model built by a test, or a document read back.
struct Tree { int tag, type, ns, id; std::string payload; std::vector<Tree> kids; };

// The subtree at `at`, each node's offset as its id.
inline Tree read(const QKL::QKLBinaryInternals& d, unsigned int at) {
    using QKL::binary::Node;
    const Node n(d.arena(), at);
    Tree t{n.tag(), n.type(), n.ns(), int(at), n.isContainer() ? "" : std::string(n.data(), n.dataSize()), {}};
    for (unsigned int kid = at + 16; n.isContainer() && kid < at + n.size(); kid += unsigned(Node(d.arena(), kid).size()))
        t.kids.push_back(read(d, kid));
    return t;
}

// The tree as text, IDs by their names in `names` if given; its ids in document order into `ids`.
inline std::string describe(const Tree& t, std::vector<int>* ids, const QKL::QKLProtocolIDMap* names = nullptr) {
    const auto name = [names](int id) { return names ? names->findIDC(id).str() : std::to_string(id); };
    if (ids) ids->push_back(t.id);
    std::string out = name(t.tag) + "|" + name(t.ns) + "|";
    out += (names && t.type > 100 ? names->findTypeIDC(t.type).str() : std::to_string(t.type)) + "|" + hex(t.payload) + "{";
    for (const Tree& kid : t.kids) out += describe(kid, ids, names);
    return out + "}\n";
}

// Length = bytes used, reserved bits 0, map area well formed, each node inside its parent, a container's
// children tiling its payload; with zeroPadding no stale byte in borders and tails (received ones keep theirs).
inline ::testing::AssertionResult wellFormed(const QKL::QKLBinaryInternals& d, bool zeroPadding = true) {
    using namespace QKL::binary;
    Arena arena = d.arena();
    arena.narrow(d.used());
    const Format f(arena);
    if (!f || f.size(MAP_MSG_VERSION) != d.used() || (arena.start()[FLAGS_OFFSET] & 6) != 0 || !f.map().valid())
        return ::testing::AssertionFailure() << "header, length or map area wrong, " << d.used() << " bytes used";
    struct Run { unsigned int at, end; };
    std::vector<Run> runs{{f.map().offset(), f.map().offset() + f.map().size()}};
    if (!f.empty()) runs.push_back({HEADER_SIZE, f.beyond(HEADER_SIZE)});
    while (!runs.empty()) {
        const Run run = runs.back();
        runs.pop_back();
        if (run.at == run.end) continue;
        const Node node(arena, run.at);
        if (Node::probe(arena, run.at) || run.at + node.size() > run.end)
            return ::testing::AssertionFailure() << "node at " << run.at << " runs past " << run.end;
        const unsigned int size = unsigned(node.size()), payloadEnd = node.overhead() + node.dataSize();
        for (unsigned int i = NODE_HEAD; zeroPadding && i < size; ++i)
            if ((i < node.overhead() || i >= payloadEnd) && arena.start()[run.at + i] != 0)
                return ::testing::AssertionFailure() << "stale byte at " << run.at + i;
        runs.push_back({run.at + size, run.end});
        if (node.isContainer()) runs.push_back({run.at + node.overhead(), run.at + payloadEnd});
    }
    return ::testing::AssertionSuccess();
}

}  // namespace BinaryDoc

#endif
