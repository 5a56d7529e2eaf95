// Part 2.3: Subtree copy. The "Edge cases worth testing" bullets come first
// (Part23EdgeCases, one TEST each), then the strategies, failures and hostile sources.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "qkl/binary/CopyAssistant.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

using namespace QKL;
using binary::Format;
using binary::Node;

namespace {

const int PACKET = 1398;  // vocabulary elements
const int E1 = 1001, E2 = 1002, E3 = 1003, E4 = 1004, E5 = 1005;
const int PACKET_HEADER_TYPE = 236;  // "packet_headerType", a vocabulary type
const unsigned int MSG = binary::MAP_MSG_VERSION;

int idOf(QKLBinaryInternals& d, const char* name, QKLProtocolIDMap::IDType kind) {
    static const QKLProtocolIDMap::DefaultLookup lookup[] = {&QKLDefaultMap::findElem, &QKLDefaultMap::findNS,
                                                             &QKLDefaultMap::findType};
    return d.idMap().findStr(Internal::CharArray(name), lookup[kind], kind);
}
int elem(QKLBinaryInternals& d, const char* name) { return idOf(d, name, QKLProtocolIDMap::ELEMENT); }
int nsOf(QKLBinaryInternals& d, const char* name) { return idOf(d, name, QKLProtocolIDMap::NAMESPACE); }
int typeOf(QKLBinaryInternals& d, const char* name) { return idOf(d, name, QKLProtocolIDMap::TYPE); }

// A version-2 document built through the document buffer; p is the insertion point.
struct Doc {
    QKLBinaryInternals in;
    BinaryPath p;
    Doc() { in.turnBlank(); }
    unsigned int open(int tag, int complexType = 0) {
        EXPECT_EQ(0, in.insert(p, tag, binary::TYPE_CONTAINER, nullptr, 0, false));
        if (complexType != 0) { EXPECT_EQ(0, in.setComplexType(p, complexType)); }
        return p.current().offset;
    }
    void close() { p.pop(); }
    unsigned int value(int tag, int type, const void* data, int length, bool terminate = false) {
        EXPECT_EQ(0, in.insert(p, tag, type, data, length, terminate));
        const unsigned int at = p.current().offset;
        p.pop();
        return at;
    }
    Node node(unsigned int at) const { return Node(in.arena(), at); }
    std::string bytes() const { return std::string(in.buffer(), in.used()); }
};

// A path from a chain of {tag, offset}, root first (a source path needs only its last).
BinaryPath pathTo(std::initializer_list<BinaryPath::Element> chain) {
    BinaryPath p;
    for (const BinaryPath::Element& e : chain) p.push(e.tag, e.offset);
    return p;
}
BinaryPath pathTo(int tag, unsigned int at) { return pathTo({{tag, at}}); }

// The offset of the index-th child of the container at `at`.
unsigned int child(const QKLBinaryInternals& d, unsigned int at, int index) {
    const binary::Arena a = d.arena();
    unsigned int c = at + Node(a, at).overhead();
    for (; index > 0; --index) c += unsigned(Node(a, c).size());
    return c;
}

int tagAt(const QKLBinaryInternals& d, unsigned int at) {  // straight from the bytes
    std::int32_t tag;
    std::memcpy(&tag, d.buffer() + at, sizeof tag);
    return tag;
}

// Every container's data size is the sum of its children's sizes, and the
// document length by header and root is exactly the bytes used.
::testing::AssertionResult treeIntact(const QKLBinaryInternals& d) {
    binary::Arena a = d.arena();
    a.narrow(d.used());
    const Format f(a);
    if (f.size(MSG) != d.used())
        return ::testing::AssertionFailure() << "used " << d.used() << " but document length " << f.size(MSG);
    std::vector<unsigned int> containers;
    if (!f.empty()) containers.push_back(binary::HEADER_SIZE);
    while (!containers.empty()) {
        const Node c(a, containers.back());
        containers.pop_back();
        if (!c.isContainer()) continue;
        const unsigned int end = c.offset() + c.overhead() + c.dataSize();
        unsigned int at = c.offset() + c.overhead();
        while (at < end) {
            if (Node::probe(a, at)) return ::testing::AssertionFailure() << "unreadable node at " << at;
            containers.push_back(at);
            at += unsigned(Node(a, at).size());
        }
        if (at != end)
            return ::testing::AssertionFailure() << "children of " << c.offset() << " end at " << at << ", not " << end;
    }
    return ::testing::AssertionSuccess();
}

// The subtree at `at` in document order, one line per node, by names rather
// than IDs: depth, element name, namespace name, type (a complex type by name), payload.
std::vector<std::string> describe(const QKLBinaryInternals& d, unsigned int at) {
    const binary::Arena a = d.arena();
    const QKLProtocolIDMap& map = d.idMap();
    std::vector<std::string> out;
    std::vector<unsigned int> ends(1, at + unsigned(Node(a, at).size()));
    while (!ends.empty()) {
        if (at >= ends.back()) {
            ends.pop_back();
            continue;
        }
        const Node n(a, at);
        std::string line(ends.size(), '.');
        line += map.findIDC(n.tag()).str() + "|" + (n.ns() ? map.findIDC(n.ns()).str() : "") + "|";
        line += n.type() >= binary::TYPE_FIRST_COMPLEX ? map.findTypeIDC(n.type()).str() : std::to_string(n.type());
        if (n.isContainer()) {
            ends.push_back(at + unsigned(n.size()));
            at += n.overhead();
        } else {
            line += "|" + std::string(n.dataSize() ? n.data() : "", n.dataSize());
            at += unsigned(n.size());
        }
        out.push_back(line);
    }
    return out;
}

// ---- legacy (format version 0) documents, built by hand ------------------------------------
std::string legacyNode(int tag, unsigned short type, unsigned short ns, const std::string& payload) {
    const bool container = binary::isContainer(type);
    const std::uint32_t ds = std::uint32_t(payload.size());
    const unsigned int size = container ? 16 + ds : (ds + 12) / 8 * 8 + 8;
    std::string n(size, '\0');
    std::memcpy(&n[0], &tag, 4);
    std::memcpy(&n[4], &type, 2);
    std::memcpy(&n[6], &ns, 2);
    std::memcpy(&n[8], &ds, 4);
    if (ds) std::memcpy(&n[binary::NODE_HEAD + binary::nodeBorder(type, ds)], payload.data(), ds);
    return n;
}
std::string legacyDoc(const std::string& root, const std::string& map) {
    std::string h(8, '\0');
    const std::uint32_t magic = binary::MAGIC, flags = std::uint32_t(map.size() / 8) << binary::MAP_LENGTH_SHIFT;
    std::memcpy(&h[0], &magic, 4);
    std::memcpy(&h[4], &flags, 4);  // empty bit 0; byte 7, the format version, 0
    return h + root + map;
}
std::string int4(std::int32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); }

void adopt(QKLBinaryInternals& d, const std::string& bytes) {
    ASSERT_NE(nullptr, d.copy(bytes.data(), int(bytes.size())));
    ASSERT_EQ(binary::LEGACY_FORMAT_VERSION, d.format().version());
}

// ---- "Edge cases worth testing" ----

// "Copying between two documents that both hold the name of an element outside the
// vocabulary under different IDs yields, in the target, the target's ID for that name."
TEST(Part23EdgeCases, SameNameOutsideVocabularyTakesTheTargetsID) {
    Doc s, t;
    const int inSource = elem(s.in, "my_field"), unrelated = elem(t.in, "unrelated"), inTarget = elem(t.in, "my_field");
    ASSERT_EQ(-2, inSource);
    ASSERT_EQ(-3, inTarget);
    s.open(PACKET);
    const unsigned int field = s.value(inSource, binary::TYPE_INT, "abcd", 4);
    const unsigned int root = t.open(PACKET);

    // The whole source (the name on a descendant, rewritten in place) ...
    ASSERT_EQ(0, t.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), t.p));
    const unsigned int copied = child(t.in, child(t.in, root, 0), 0);
    EXPECT_EQ(inTarget, tagAt(t.in, copied));
    // ... and the named node alone (rewritten as it is inserted).
    ASSERT_EQ(0, t.in.copy(s.in.buffer(), pathTo(inSource, field), s.in.idMap(), t.p));
    EXPECT_EQ(inTarget, tagAt(t.in, child(t.in, root, 1)));
    EXPECT_EQ("my_field", t.in.idMap().findIDC(inTarget).str());
    EXPECT_EQ("unrelated", t.in.idMap().findIDC(unrelated).str());
    EXPECT_EQ(-4, t.in.idMap().nextID());  // nothing new was assigned
    EXPECT_EQ(inSource, tagAt(s.in, field));  // the source is untouched
    EXPECT_TRUE(treeIntact(t.in));
}

// "A value node keeps its payload bytes exactly; a complex-typed container keeps
// its complex type by name."
TEST(Part23EdgeCases, ValueKeepsPayloadAndContainerKeepsComplexTypeByName) {
    Doc s, t, u;
    const int srcType = typeOf(s.in, "my_type"), other = typeOf(t.in, "other_type"), tgtType = typeOf(t.in, "my_type");
    ASSERT_EQ(65534, srcType);
    ASSERT_EQ(65533, tgtType);
    ASSERT_EQ(65534, other);
    const unsigned int sRoot = s.open(PACKET);
    const std::int32_t i = 0x01020304;
    const double d = 2.5;
    s.value(E1, binary::TYPE_INT, &i, 4);
    s.value(E2, binary::TYPE_STRING, "a\0b", 3, true);  // "a\0b\0"
    s.value(E3, binary::TYPE_DOUBLE, &d, 8);
    const unsigned int b64 = s.value(E4, binary::TYPE_BASE64, "\x00\xff\x7f", 3);  // data size 4
    s.node(b64).buffer()[3] = 1;  // a received value need not end in a zero byte
    s.open(E5, PACKET_HEADER_TYPE);
    s.close();
    s.open(E1, srcType);
    s.value(E2, binary::TYPE_INT, &i, 4);
    s.close();
    const unsigned int tRoot = t.open(PACKET);

    ASSERT_EQ(0, t.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), t.p));
    const unsigned int copy = child(t.in, tRoot, 0);
    EXPECT_EQ(describe(s.in, sRoot), describe(t.in, copy));  // payloads byte for byte
    EXPECT_EQ(PACKET_HEADER_TYPE, t.node(child(t.in, copy, 4)).type());
    EXPECT_EQ(tgtType, t.node(child(t.in, copy, 5)).type());
    EXPECT_EQ("my_type", t.in.idMap().findTypeIDC(tgtType).str());
    EXPECT_TRUE(treeIntact(t.in));

    // The base64 node copied on its own, again and again, both ways: its data size does not grow.
    unsigned int from = child(t.in, copy, 3);
    const unsigned int uRoot = u.open(PACKET);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(0, u.in.copy(t.in.buffer(), pathTo(E4, from), t.in.idMap(), u.p));
        from = child(u.in, uRoot, round);
        EXPECT_EQ(4u, u.node(from).dataSize());
        EXPECT_EQ(0, std::memcmp("\x00\xff\x7f\x01", u.in.buffer() + from + 12, 4));
        binary::CopyAssistant assistant(u.in.idMap(), t.in);
        const Format::node_range range{u.in.arena(), from, from + 16};
        BinaryPath to = pathTo(PACKET, tRoot);
        ASSERT_EQ(0, assistant.deep(range, to));  // t <- u, node by node
        from = child(t.in, tRoot, round + 1);
        EXPECT_EQ(4u, t.node(from).dataSize());
        EXPECT_EQ(0, std::memcmp("\x00\xff\x7f\x01", t.in.buffer() + from + 12, 4));
    }
    EXPECT_TRUE(treeIntact(t.in));
    EXPECT_TRUE(treeIntact(u.in));
}

// "A source of legacy format version 0 copied into a version-2 document is rebuilt
// node by node, so its value nodes take version-2 sizes."
TEST(Part23EdgeCases, LegacySourceIsRebuiltWithVersion2Sizes) {
    const double d = -0.75;
    const std::string inner = legacyNode(E5, binary::TYPE_CONTAINER, 236,
                                         legacyNode(-2, binary::TYPE_STRING, 0, std::string("hi\0", 3)));
    const std::string root = legacyNode(
        PACKET, binary::TYPE_CONTAINER, 0,
        legacyNode(E1, binary::TYPE_INT, 0, int4(7)) +
            legacyNode(E2, binary::TYPE_DOUBLE, 0, std::string(reinterpret_cast<const char*>(&d), 8)) +
            legacyNode(E3, binary::TYPE_BASE64, 0, std::string("xyz\0", 4)) + inner +
            legacyNode(E4, PACKET_HEADER_TYPE, 0, ""));
    QKLBinaryInternals src;
    adopt(src, legacyDoc(root, legacyNode(-2, binary::MAP_KIND_ELEMENT, 0, std::string("legacy_elem\0", 12))));
    if (HasFatalFailure()) return;
    ASSERT_EQ(24u, unsigned(Node(src.arena(), child(src, 8, 0)).size()));  // the 4-byte int, legacy rule
    ASSERT_EQ(32u, unsigned(Node(src.arena(), src.format().map().offset()).size()));  // a 12-byte map entry

    Doc t;
    ASSERT_EQ(-2, elem(t.in, "taken"));
    const unsigned int tRoot = t.open(PACKET);
    ASSERT_EQ(0, t.in.copy(src.buffer(), BinaryPath(), src.idMap(), t.p));
    const unsigned int copy = child(t.in, tRoot, 0);
    EXPECT_EQ(16u, unsigned(t.node(child(t.in, copy, 0)).size()));  // version-2 size
    EXPECT_EQ(24u, unsigned(t.node(child(t.in, copy, 1)).size()));  // an 8-byte value: 24 under both
    EXPECT_EQ(16u, unsigned(t.node(child(t.in, copy, 2)).size()));  // base64 "xyz\0"
    EXPECT_EQ(4u, t.node(child(t.in, copy, 2)).dataSize());
    EXPECT_EQ(-3, tagAt(t.in, child(t.in, child(t.in, copy, 3), 0)));  // "legacy_elem" in the target
    EXPECT_EQ(describe(src, 8), describe(t.in, copy));
    EXPECT_EQ(unsigned(Node(src.arena(), 8).size()) - 16, unsigned(t.node(copy).size()));  // 8 + 8 bytes saved
    EXPECT_TRUE(treeIntact(t.in));
}

// ---- Strategies and positions ----

TEST(Part23Copy, ShallowNestedSubtreeRewritesEveryTagAndNamespace) {
    Doc s, t;
    elem(t.in, "pad1");  // shift the target's counter so that every ID differs
    nsOf(t.in, "urn:pad");
    const unsigned int sRoot = s.open(PACKET);
    s.open(elem(s.in, "level1"));
    s.p.namespaces.push_back(nsOf(s.in, "urn:a"));
    s.open(elem(s.in, "level2"));
    s.p.namespaces.push_back(0);  // a complex type is set only on a node without a namespace
    s.open(elem(s.in, "level3"), typeOf(s.in, "deep_type"));
    ASSERT_EQ(0, s.in.setNamespace(s.p, 236));  // a vocabulary namespace
    s.p.namespaces.push_back(nsOf(s.in, "urn:b"));
    s.value(elem(s.in, "leaf"), binary::TYPE_STRING, "v", 1, true);
    s.value(E1, binary::TYPE_ELEMENT, nullptr, 0);
    const unsigned int tRoot = t.open(PACKET);
    ASSERT_EQ(0, t.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), t.p));
    const unsigned int copy = child(t.in, tRoot, 0);
    const std::vector<std::string> expected = {".packet||50", "..level1||50", "...level2|urn:a|50",
                                               "....level3|" + t.in.idMap().findIDC(236).str() + "|deep_type",
                                               ".....leaf|urn:b|2|v" + std::string(1, '\0'), ".....alerts|urn:b|0|"};
    EXPECT_EQ(expected, describe(s.in, sRoot));
    EXPECT_EQ(expected, describe(t.in, copy));
    // Every per-document ID was rewritten: none of the source's survives.
    EXPECT_NE(tagAt(s.in, child(s.in, sRoot, 0)), tagAt(t.in, child(t.in, copy, 0)));
    EXPECT_NE(s.node(child(s.in, child(s.in, sRoot, 0), 0)).ns(), t.node(child(t.in, child(t.in, copy, 0), 0)).ns());
    EXPECT_TRUE(treeIntact(t.in));
}

TEST(Part23Copy, CopyingFromANonRootNodeCopiesJustThatSubtree) {
    Doc s, t;
    s.open(PACKET);
    s.value(E1, binary::TYPE_INT, "abcd", 4);
    const unsigned int mid = s.open(E2);
    s.value(E3, binary::TYPE_STRING, "x", 1, true);
    s.open(E4);
    s.value(E5, binary::TYPE_INT, "wxyz", 4);
    s.close();
    s.close();
    s.value(E5, binary::TYPE_INT, "efgh", 4);
    const unsigned int tRoot = t.open(PACKET);
    const unsigned int tMid = t.open(E1);
    ASSERT_EQ(0, t.in.copy(s.in.buffer(), pathTo(E2, mid), s.in.idMap(), t.p));
    EXPECT_EQ(describe(s.in, mid), describe(t.in, child(t.in, tMid, 0)));
    EXPECT_EQ(unsigned(s.node(mid).size()), t.node(tMid).dataSize());
    EXPECT_EQ(16 + unsigned(s.node(mid).size()), t.node(tRoot).dataSize());  // both ancestors grew
    EXPECT_TRUE(treeIntact(t.in));
}

TEST(Part23Copy, EmptySourceDocumentCopiesNothing) {
    Doc s, t;
    t.open(PACKET);
    const std::string before = t.bytes();
    EXPECT_EQ(0, t.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), t.p));
    EXPECT_EQ(before, t.bytes());
}

TEST(Part23Copy, EmptyTargetPathMakesTheCopyTheRootOnlyInAnEmptyDocument) {
    Doc s, t;
    s.open(PACKET);
    s.value(elem(s.in, "only_here"), binary::TYPE_INT, "abcd", 4);
    ASSERT_EQ(0, t.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), BinaryPath()));
    EXPECT_FALSE(t.in.format().empty());
    EXPECT_EQ(describe(s.in, 8), describe(t.in, 8));
    EXPECT_TRUE(treeIntact(t.in));
    // A second root would land in the map area: refused, the document unchanged.
    const std::string before = t.bytes();
    EXPECT_EQ(-1, t.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), BinaryPath()));
    EXPECT_EQ(before, t.bytes());
}

TEST(Part23Copy, DocumentCopiedIntoItself) {
    Doc d;
    const unsigned int root = d.open(PACKET);
    d.value(elem(d.in, "own_name"), binary::TYPE_STRING, "text", 4, true);
    const unsigned int inner = d.open(E1, typeOf(d.in, "own_type"));
    d.value(E2, binary::TYPE_INT, "abcd", 4);
    d.close();
    const std::vector<std::string> original = describe(d.in, root);
    // The root under one of its own children: the copy reads a snapshot.
    ASSERT_EQ(0, d.in.copy(d.in.buffer(), BinaryPath(), d.in.idMap(), pathTo({{PACKET, root}, {E1, inner}})));
    EXPECT_EQ(original, describe(d.in, child(d.in, inner, 1)));
    EXPECT_TRUE(treeIntact(d.in));
    const unsigned int mapBytes = d.in.format().map().size();
    // And the root under the root, twice over.
    for (int round = 0; round < 2; ++round) {
        const std::vector<std::string> before = describe(d.in, root);
        ASSERT_EQ(0, d.in.copy(d.in.buffer(), BinaryPath(), d.in.idMap(), pathTo(PACKET, root)));
        EXPECT_EQ(before, describe(d.in, child(d.in, root, 2 + round)));
        EXPECT_TRUE(treeIntact(d.in));
    }
    EXPECT_EQ(mapBytes, d.in.format().map().size());  // every name was known already
}

TEST(Part23Copy, DeepCopyOf200LevelsNeedsNoRecursion) {
    const int levels = 200;
    std::string nest = legacyNode(E2, binary::TYPE_INT, 0, int4(9));
    for (int i = 0; i < levels; ++i) nest = legacyNode(i % 2 ? E1 : -2, binary::TYPE_CONTAINER, 0, nest);
    QKLBinaryInternals src;
    adopt(src, legacyDoc(nest, legacyNode(-2, binary::MAP_KIND_ELEMENT, 0, std::string("nested\0", 7))));
    if (HasFatalFailure()) return;
    Doc t;
    const unsigned int tRoot = t.open(PACKET);
    ASSERT_EQ(0, t.in.copy(src.buffer(), BinaryPath(), src.idMap(), t.p));
    const std::vector<std::string> copied = describe(t.in, child(t.in, tRoot, 0));
    ASSERT_EQ(std::size_t(levels + 1), copied.size());
    EXPECT_EQ(describe(src, 8), copied);
    EXPECT_EQ(16u * levels + 16, t.node(child(t.in, tRoot, 0)).size());  // the leaf shrank from 24 to 16
    EXPECT_TRUE(treeIntact(t.in));

    // The same depth in version 2, both strategies.
    Doc s, u;
    for (int i = 0; i < levels; ++i) s.open(i % 2 ? E1 : elem(s.in, "nested"));
    s.value(E2, binary::TYPE_INT, int4(9).data(), 4);
    const unsigned int uRoot = u.open(PACKET);
    ASSERT_EQ(0, u.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), u.p));
    binary::CopyAssistant assistant(s.in.idMap(), u.in);
    ASSERT_EQ(0, assistant.deep(s.in.format().root(), u.p));
    EXPECT_EQ(describe(s.in, 8), describe(u.in, child(u.in, uRoot, 0)));
    EXPECT_EQ(describe(s.in, 8), describe(u.in, child(u.in, uRoot, 1)));
    EXPECT_TRUE(treeIntact(u.in));
}

// ---- Failures ----

class Part23Failures : public ::testing::Test {
protected:
    static void quiet(const char*, const char*, int) {}
    void SetUp() override { m_previous = setAssertHandler(&quiet); }
    void TearDown() override { setAssertHandler(m_previous); }

    // root 8 { A 24 { int E2 40, int E3 56 }, int E4 72 }, tree end 88, then the map.
    void buildSource() {
        s.open(PACKET);
        s.open(E1);
        s.value(E2, binary::TYPE_INT, "abcd", 4);
        s.value(E3, binary::TYPE_INT, "efgh", 4);
        s.close();
        s.value(E4, binary::TYPE_INT, "ijkl", 4);
        elem(s.in, "x");  // a 16-byte map entry at 88
        ASSERT_EQ(104u, s.in.used());
        ASSERT_TRUE(treeIntact(s.in));
    }
    // The copy fails and leaves the target's bytes as they were.
    void expectRefused(const BinaryPath& from = BinaryPath()) {
        const std::string before = t.bytes();
        EXPECT_EQ(-1, t.in.copy(s.in.buffer(), from, s.in.idMap(), t.p));
        EXPECT_EQ(before, t.bytes());
    }

    Doc s, t;
    AssertHandler m_previous = nullptr;
};

TEST_F(Part23Failures, AscertainFailsForATagWithoutAName) {
    s.open(PACKET);
    EXPECT_EQ(-1, s.in.insert(s.p, 5000, binary::TYPE_INT, "abcd", 4, false));  // 5000: no name anywhere
    t.open(PACKET);
    EXPECT_EQ(-1, t.in.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), t.p));
    binary::CopyAssistant assistant(s.in.idMap(), t.in);
    int tag = 5000, type = 1, ns = 0;
    EXPECT_TRUE(assistant.ascertain(tag, type, ns));
    tag = E1, ns = 65000;  // a namespace without a name
    EXPECT_TRUE(assistant.ascertain(tag, type, ns));
    tag = E1, ns = 0, type = 60000;  // a complex type without a name
    EXPECT_TRUE(assistant.ascertain(tag, type, ns));
    tag = E1, ns = 236, type = PACKET_HEADER_TYPE;
    EXPECT_FALSE(assistant.ascertain(tag, type, ns));
    EXPECT_EQ(E1, tag);
    EXPECT_EQ(236, ns);
    EXPECT_EQ(PACKET_HEADER_TYPE, type);
}

// A container whose data size is not the sum of its children, a child that runs
// past its parent: refused before anything is written, copied from the root or from A.
TEST_F(Part23Failures, MalformedSubtreeLeavesTheTargetUnchanged) {
    const struct {
        unsigned int at, dataSize;
        const char* what;
    } cases[] = {{24, 40, "A claims 8 bytes more than its children hold"}, {24, 24, "A claims 8 bytes less"},
                 {24, 36, "A's size is no sum of node sizes"}, {24, 0xFFFFFFF0u, "A runs past the document"},
                 {56, 20, "A's last child runs past A"}, {8, 80, "the root swallows the map entry"},
                 {8, 48, "the root ends behind A: the int at 72 becomes a map entry"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        s.in.turnBlank(), s.p = BinaryPath(), t.in.turnBlank(), t.p = BinaryPath();
        buildSource();
        t.open(PACKET);
        s.node(c.at).setDataSize(c.dataSize);
        expectRefused();
        expectRefused(pathTo(E1, 24));
    }
}

// The target's name index holds every kind together: a name that it knows as an
// element has no namespace or complex type ID there, so the copy fails rather
// than write the element ID into a 16-bit field.
TEST_F(Part23Failures, NameTheTargetKnowsAsAnElement) {
    s.open(PACKET);
    s.p.namespaces.push_back(nsOf(s.in, "shared"));
    const unsigned int withNs = s.value(E1, binary::TYPE_INT, "abcd", 4);
    s.p.namespaces.clear();
    const unsigned int withType = s.open(E2, typeOf(s.in, "shared_type"));
    ASSERT_EQ(-2, elem(t.in, "shared"));
    ASSERT_EQ(-3, elem(t.in, "shared_type"));
    t.open(PACKET);
    EXPECT_EQ(-1, t.in.copy(s.in.buffer(), pathTo(E1, withNs), s.in.idMap(), t.p));
    EXPECT_EQ(-1, t.in.copy(s.in.buffer(), pathTo(E2, withType), s.in.idMap(), t.p));
    EXPECT_EQ(0u, t.node(8).dataSize());  // nothing was inserted
}

TEST_F(Part23Failures, FromOutsideTheTreeOrIntoNoDocument) {
    buildSource();
    t.open(PACKET);
    expectRefused(pathTo(-2, 88));    // the map entry
    expectRefused(pathTo(E1, 4096));  // past the document
    expectRefused(pathTo(E1, 4));     // inside the header
    QKLBinaryInternals none;  // before turnBlank: no buffer, and none is made
    EXPECT_EQ(-1, none.copy(s.in.buffer(), BinaryPath(), s.in.idMap(), BinaryPath()));
    EXPECT_EQ(nullptr, none.buffer());
}

}  // namespace
