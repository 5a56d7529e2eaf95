// Part 2.2: Document buffer. The "Edge cases worth testing" bullets come first
// (Part22EdgeCases, one TEST each), then the rest of the interface, and last a
// deterministic random edit sequence that checks the whole-tree invariant after
// every edit. Subtree copy (Part 2.3) is tested with its own Part.
#include "support/AssertCounter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

using namespace QKL::binary;
using QKL::BinaryPath;
using QKL::QKLBinaryInternals;
using QKL::QKLProtocolIDMap;
using QKL::Internal::CharArray;
using Result = ::testing::AssertionResult;
using namespace std::string_literals;

namespace {

// Vocabulary element IDs (Part 4.1): 1001 "alerts", 1002 "veid", 1398 "packet".
const int ALERTS = 1001, VEID = 1002, PACKET = 1398, VERSION = QKLBinaryInternals::VERSION_TAG;
const int UNKNOWN_TAG = 5000;  // in no vocabulary, and unknown to a fresh ID map

// Tests silence QKL_ASSERT and count the reports made during each.
// Every test starts with a document buffer d (no document yet) and an empty
// path p; QKL_ASSERT is silenced and counted.
class Part22 : public ::testing::Test {
protected:
    unsigned long reports() const { return m_asserts.reports(); }

    QKLTest::AssertCounter m_asserts;
    QKLBinaryInternals d;
    BinaryPath p;
};
class Part22EdgeCases : public Part22 {};
class Part22Buffer : public Part22 {};
class Part22Counter : public Part22 {};
class Part22Edit : public Part22 {};
class Part22Invariant : public Part22 {};

Node at(const QKLBinaryInternals& d, unsigned int offset) { return Node(d.arena(), offset); }
Node cur(const QKLBinaryInternals& d, const BinaryPath& p) { return at(d, p.current().offset); }
std::string text(const Node& n) { return std::string(n.data()); }  // a value stored with its zero
std::string stored(const Node& n) { return std::string(n.data(), n.dataSize()); }

// A blank document holding an empty "packet" container root; the path stands on the root.
void blankWithRoot(QKLBinaryInternals& d, BinaryPath& p) {
    ASSERT_EQ(0, d.turnBlank());
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
}

// Adds a string child under the current node and stays on the current node.
void addValue(QKLBinaryInternals& d, BinaryPath& p, int tag, const std::string& value) {
    ASSERT_EQ(0, d.insert(p, tag, TYPE_STRING, value.data(), int(value.size()), true));
    p.pop();
}

int newName(QKLBinaryInternals& d, const char* name) {
    return d.idMap().findStr(CharArray(name), &QKL::QKLDefaultMap::findElem, QKLProtocolIDMap::ELEMENT);
}

// The summed size of the nodes of a run; every container inside must hold exactly its children.
Result checkRun(Format::node_range run, std::uint64_t& total) {
    for (total = 0; !run.empty(); run = run.next()) {
        if (!run.valid()) return ::testing::AssertionFailure() << "node at " << run.begin << " does not fit";
        const Node node = run.node();
        std::uint64_t children = 0;
        if (node.isContainer()) {
            const Result inner = checkRun(run.children(), children);
            if (!inner) return inner;
            if (children != node.dataSize())
                return ::testing::AssertionFailure() << "container at " << run.begin << " has data size "
                                                     << node.dataSize() << ", its children " << children;
        }
        total += node.size();
    }
    return ::testing::AssertionSuccess();
}

// Every container's data size is the sum of its children's sizes, the root run is exactly
// the root, every map entry is valid, and used() is the document length.
Result treeIsConsistent(const QKLBinaryInternals& d) {
    const Format f = d.format();
    if (!f) return ::testing::AssertionFailure() << "no document";
    std::uint64_t total = 0;
    const Result run = checkRun(f.root(), total);
    if (!run) return run;
    if (total != f.beyond(8) - 8) return ::testing::AssertionFailure() << "root run holds " << total << " bytes";
    for (unsigned int m = f.map().offset(); m < f.map().offset() + f.map().size(); m += unsigned(at(d, m).size()))
        if (!f.map().entryValid(m)) return ::testing::AssertionFailure() << "bad map entry at " << m;
    if (d.used() != f.size(40000))
        return ::testing::AssertionFailure() << "used " << d.used() << " but document length " << f.size(40000);
    return ::testing::AssertionSuccess();
}

std::vector<unsigned int> childOffsets(const QKLBinaryInternals& d, unsigned int parent) {
    std::vector<unsigned int> offsets;
    const Format::node_range self{d.arena(), parent, parent + unsigned(at(d, parent).size())};
    for (Format::node_range r = self.children(); !r.empty(); r = r.next()) offsets.push_back(r.begin);
    return offsets;
}

// ---- Edge cases worth testing ---------------------------------------------------------------

// "A blank document has capacity 4096 and used 8; its first root insertion (`insert` on
// an empty path) lands at offset 8."
TEST_F(Part22EdgeCases, BlankHasCapacity4096Used8AndFirstRootInsertionLandsAtOffset8) {
    ASSERT_EQ(0, d.turnBlank());
    EXPECT_EQ(4096, d.capacity());
    EXPECT_EQ(8u, d.used());
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
    EXPECT_EQ(8u, p.current().offset);
    EXPECT_EQ(PACKET, at(d, 8).tag());
    EXPECT_FALSE(d.format().empty());
}

// "With capacity 4096 and used 4090, a request for 6 bytes grows the buffer to 8192; a
// request for 5000 bytes grows it by 8192 (5000 rounded up to 4096 steps) to 12288."
// used is always a multiple of 8 (header, node and map entry sizes all are), so 4090 cannot
// be reached through the interface; 4088 + 8 fills the buffer exactly as 4090 + 6 does, and
// 4088 + 6 shows that only a request that reaches the capacity grows it.
TEST_F(Part22EdgeCases, Capacity4096Used4090Request6GrowsTo8192Request5000GrowsBy8192To12288) {
    for (int request : {8, 5000}) {
        QKLBinaryInternals doc;
        BinaryPath path;
        blankWithRoot(doc, path);
        // A string of data size 4045 takes (4045 + 19) / 8 * 8 = 4064 bytes: 8 + 16 + 4064 = 4088.
        const std::string filler(4045, 'x');
        ASSERT_EQ(0, doc.insert(path, ALERTS, TYPE_STRING, filler.data(), int(filler.size()), false));
        ASSERT_EQ(4088u, doc.used());
        ASSERT_EQ(4096, doc.capacity());
        ASSERT_NE(nullptr, doc.expand(6, true));
        EXPECT_EQ(4096, doc.capacity());
        ASSERT_NE(nullptr, doc.expand(request, true));
        EXPECT_EQ(request == 8 ? 8192 : 12288, doc.capacity());
    }
}

// "A three-character string stored with terminate set has data size 4, the last byte 0; a
// base64 value always gets the extra zero byte, terminate or not."
TEST_F(Part22EdgeCases, ThreeCharStringWithTerminateHasDataSize4LastByte0Base64AlwaysGetsExtraZero) {
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_STRING, "abc", 3, true));
    EXPECT_EQ("abc\0"s, stored(cur(d, p)));  // data size 4, the last byte 0
    p.pop();
    for (bool terminate : {false, true}) {
        ASSERT_EQ(0, d.insert(p, VEID, TYPE_BASE64, "QUJD", 4, terminate));
        EXPECT_EQ("QUJD\0"s, stored(cur(d, p)));
        ASSERT_EQ(0, d.setContent(p, TYPE_BASE64, "QUI=", 4, terminate));
        EXPECT_EQ("QUI=\0"s, stored(cur(d, p)));
        p.pop();
    }
    EXPECT_TRUE(treeIsConsistent(d));
}

// "After erasing a child, every ancestor's data size has shrunk by the child's size and
// the path's current node is the parent."
TEST_F(Part22EdgeCases, AfterEraseEveryAncestorShrankByChildSizeAndCurrentIsParent) {
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));
    addValue(d, p, VEID, "first");
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_STRING, "second value", 12, true));
    const unsigned int childSize = unsigned(cur(d, p).size());
    const unsigned int rootBefore = at(d, 8).dataSize(), parentBefore = at(d, 24).dataSize();
    ASSERT_EQ(0, d.erase(p));
    EXPECT_EQ(rootBefore - childSize, at(d, 8).dataSize());
    EXPECT_EQ(parentBefore - childSize, at(d, 24).dataSize());
    ASSERT_EQ(2u, p.depth());
    EXPECT_EQ(24u, p.current().offset);
    EXPECT_EQ(ALERTS, p.current().tag);
    EXPECT_TRUE(treeIsConsistent(d));
}

// "Giving the element with tag 101 the content 4.0.0 sets the message version to 40000."
TEST_F(Part22EdgeCases, Tag101Content400SetsMessageVersionTo40000) {
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, VERSION, TYPE_STRING, nullptr, 0, false));
    EXPECT_EQ(40500, d.messageVersion());
    ASSERT_EQ(0, d.setContent(p, TYPE_STRING, "4.0.0", 5, true));
    EXPECT_EQ(40000, d.messageVersion());
}

// "`setComplexType` with 100 fails; with 150 on a plain container sets its type to 150."
TEST_F(Part22EdgeCases, SetComplexType100FailsAnd150OnPlainContainerSetsType150) {
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));
    EXPECT_EQ(-1, d.setComplexType(p, 100));
    EXPECT_EQ(TYPE_CONTAINER, cur(d, p).type());
    EXPECT_EQ(0, d.setComplexType(p, 150));
    EXPECT_EQ(150, cur(d, p).type());
}

// ---- Construction, turnBlank, copy of received bytes, expand --------------------------------------

TEST_F(Part22Buffer, NewInternalsHoldNoDocumentAndTurnBlankStartsAFreshOne) {
    EXPECT_EQ(nullptr, d.buffer());
    EXPECT_EQ(0, d.capacity());
    EXPECT_EQ(0u, d.used());
    EXPECT_EQ(0u, d.changeCounter());
    EXPECT_EQ(40500, d.messageVersion());
    EXPECT_EQ(-2, d.idMap().nextID());
    EXPECT_EQ(&d, d.idMap().document());
    // turnBlank writes the header, bumps the counter and resets the version and the names.
    blankWithRoot(d, p);
    ASSERT_EQ(-2, newName(d, "my_custom_name"));
    addValue(d, p, VERSION, "4.0.0");
    ASSERT_EQ(40000, d.messageVersion());
    const std::uint32_t before = d.changeCounter();
    ASSERT_EQ(0, d.turnBlank());
    EXPECT_GT(d.changeCounter(), before);
    EXPECT_EQ(8u, d.used());
    const unsigned char header[8] = {0x98, 0xBA, 0xDC, 0xFE, 0x01, 0x00, 0x00, 0x02};
    EXPECT_EQ(0, std::memcmp(d.buffer(), header, 8));
    EXPECT_EQ(40500, d.messageVersion());
    EXPECT_EQ(-2, d.idMap().nextID());
    EXPECT_TRUE(d.idMap().findIDC(-2).empty());
}

TEST_F(Part22Buffer, CopyOfReceivedBytesRefusesAnyOtherLengthAndAdoptsTheExactOne) {
    QKLBinaryInternals src;
    blankWithRoot(src, p);
    addValue(src, p, ALERTS, "hello");
    ASSERT_EQ(-2, newName(src, "my_custom_name"));
    const unsigned int length = src.used();
    std::vector<char> bytes(src.buffer(), src.buffer() + length);
    bytes.push_back(0);  // one readable byte more
    std::vector<char> badMagic = bytes;
    badMagic[0] = 0;
    for (int wrong : {int(length) + 1, int(length) - 1, 0}) EXPECT_EQ(nullptr, d.copy(bytes.data(), wrong)) << wrong;
    EXPECT_EQ(nullptr, d.copy(nullptr, int(length)));
    EXPECT_EQ(nullptr, d.copy(badMagic.data(), int(length)));
    EXPECT_EQ(nullptr, d.buffer());
    EXPECT_EQ(0u, d.used());

    ASSERT_NE(nullptr, d.copy(bytes.data(), int(length)));
    EXPECT_EQ(length, d.used());
    EXPECT_EQ(4096, d.capacity());
    EXPECT_EQ(0, std::memcmp(d.buffer(), bytes.data(), length));
    EXPECT_EQ("my_custom_name", d.idMap().findIDC(-2).str());
    EXPECT_TRUE(treeIsConsistent(d));

    addValue(src, p, VEID, std::string(5000, 'y'));  // longer than 4096: rounded up to 8192
    QKLBinaryInternals large;
    ASSERT_NE(nullptr, large.copy(src.buffer(), int(src.used())));
    EXPECT_EQ(8192, large.capacity());
}

TEST_F(Part22Buffer, ExpandDoesNothingForNonPositiveOrFittingRequestsButGrowsWhenExactlyFilling) {
    ASSERT_EQ(0, d.turnBlank());
    const std::uint32_t counter = d.changeCounter();
    for (int bytes : {0, -1, -5000, 1, 4087}) {
        EXPECT_EQ(d.buffer(), d.expand(bytes, true)) << bytes;
        EXPECT_EQ(4096, d.capacity()) << bytes;
    }
    EXPECT_EQ(counter, d.changeCounter());
    // 8 + 4088 == 4096: exactly filling still grows (doubling, as 4088 < 4096).
    ASSERT_NE(nullptr, d.expand(4088, true));
    EXPECT_EQ(8192, d.capacity());
    EXPECT_EQ(counter + 1, d.changeCounter());
    EXPECT_EQ(8u, d.used());
    // 20000 >= 8192: grows by 20000 rounded up to 4096 steps, and zero fill clears all of it.
    ASSERT_NE(nullptr, d.expand(20000, true));
    EXPECT_EQ(8192 + 20480, d.capacity());
    EXPECT_EQ(counter + 2, d.changeCounter());
    EXPECT_EQ(std::string(20480, '\0'), std::string(d.buffer() + 8192, 20480));
}

TEST_F(Part22Buffer, CopyConstructorCopiesBytesCounterPlusOneCapacityRoundedAndRepointsTheIdMap) {
    QKLBinaryInternals src;
    blankWithRoot(src, p);
    const int id = newName(src, "my_custom_name");
    ASSERT_EQ(-2, id);
    addValue(src, p, id, "custom");
    addValue(src, p, ALERTS, std::string(5000, 'z'));
    ASSERT_NE(nullptr, src.expand(20000, false));  // the source holds far more than it uses
    const std::uint32_t counter = src.changeCounter();

    QKLBinaryInternals copy(&src);
    ASSERT_NE(nullptr, copy.buffer());
    EXPECT_EQ(counter + 1, copy.changeCounter());
    EXPECT_EQ(src.used(), copy.used());
    EXPECT_EQ(8192, copy.capacity());  // the used length, rounded up to 4096
    EXPECT_EQ(0, std::memcmp(src.buffer(), copy.buffer(), src.used()));
    EXPECT_EQ(&copy, copy.idMap().document());
    const CharArray name = copy.idMap().findIDC(id);  // read from the copy's own map area
    EXPECT_EQ("my_custom_name", name.str());
    EXPECT_TRUE(name.ptr() >= copy.buffer() && name.ptr() < copy.buffer() + copy.used());
    const int added = newName(copy, "only_in_copy");
    EXPECT_EQ(-3, added);
    EXPECT_EQ("only_in_copy", copy.idMap().findIDC(added).str());
    EXPECT_EQ(0, src.idMap().findStrC(CharArray("only_in_copy"), &QKL::QKLDefaultMap::findElem));
    EXPECT_TRUE(src.idMap().findIDC(added).empty());
    EXPECT_EQ("my_custom_name", src.idMap().findIDC(id).str());
    EXPECT_TRUE(treeIsConsistent(copy));

    QKLBinaryInternals none;
    QKLBinaryInternals copyOfNone(&none);
    EXPECT_EQ(nullptr, copyOfNone.buffer());
    EXPECT_EQ(1u, copyOfNone.changeCounter());
}

// ---- The change counter -------------------------------------------------------------------------------

TEST_F(Part22Counter, AppendingAtTheEndOfTheTreeDoesNotBump) {
    ASSERT_EQ(0, d.turnBlank());
    ASSERT_EQ(0, d.add2map(unsigned(-2), MAP_KIND_ELEMENT, "n", 1));  // a map area behind the tree moves
    const std::uint32_t counter = d.changeCounter();
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));  // last child of the root
    addValue(d, p, VEID, "a");                                              // last node of the tree
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_STRING, "b", 1, true));
    ASSERT_EQ(0, d.setContent(p, TYPE_STRING, "a longer text", 13, true));  // grows the tree's last node
    ASSERT_EQ(0, d.setContent(p, TYPE_INT, "1234", 4, false));               // shrinks it
    EXPECT_EQ(4096, d.capacity());
    EXPECT_EQ(counter, d.changeCounter());
    EXPECT_TRUE(treeIsConsistent(d));
}

TEST_F(Part22Counter, AllocReallocBumpWhenBytesBehindMovedWithoutGrowthFreeAndGrowthAlways) {
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));  // at 24
    p.pop();
    addValue(d, p, VEID, "behind");  // at 40, behind the container
    p.push(ALERTS, 24);
    std::uint32_t counter = d.changeCounter();
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_STRING, "x", 1, true));  // at 40: "behind" moves to 56
    EXPECT_EQ(++counter, d.changeCounter());
    ASSERT_EQ(0, d.setContent(p, TYPE_STRING, "longer than before", 18, true));
    EXPECT_EQ(++counter, d.changeCounter());
    ASSERT_EQ(0, d.setContent(p, TYPE_STRING, "same size here", 14, true));  // delta 0: nothing moved
    EXPECT_EQ(counter, d.changeCounter());
    EXPECT_EQ(4096, d.capacity());
    EXPECT_EQ("behind", text(at(d, childOffsets(d, 8).back())));
    EXPECT_TRUE(treeIsConsistent(d));

    // The primitives, in front of the root's first child: alloc returns the node size and
    // realloc the delta; the caller adjusts the ancestors (here the root).
    p.pop();
    p.pop();
    const unsigned int used = d.used();
    EXPECT_EQ(16u, d.alloc(4, TYPE_INT, 24));
    d.update(p.elements.begin(), p.elements.end(), 16);
    EXPECT_EQ(used + 16, d.used());
    EXPECT_EQ(++counter, d.changeCounter());
    int delta = 0;
    EXPECT_EQ(0, d.realloc(12, TYPE_STRING, 24, delta));
    d.update(p.elements.begin(), p.elements.end(), delta);
    EXPECT_EQ(8, delta);
    EXPECT_EQ(used + 24, d.used());
    EXPECT_EQ(++counter, d.changeCounter());
    EXPECT_TRUE(treeIsConsistent(d));

    const unsigned int last = childOffsets(d, 8).back();  // free bumps even at the end of the tree
    EXPECT_EQ(-24, d.free(last));
    d.update(p.elements.begin(), p.elements.end(), -24);
    EXPECT_EQ(++counter, d.changeCounter());
    addValue(d, p, ALERTS, std::string(5000, 'g'));  // growth bumps (once)
    EXPECT_EQ(++counter, d.changeCounter());
    EXPECT_TRUE(treeIsConsistent(d));
}

// ---- Path-addressed edits -----------------------------------------------------------------------------

TEST_F(Part22Edit, GetInsertOffsetForEmptyPathContainerPlainElementAndValue) {
    ASSERT_EQ(0, d.turnBlank());
    ASSERT_EQ(0, d.add2map(unsigned(-2), MAP_KIND_ELEMENT, "n", 1));
    EXPECT_EQ(8u, d.getInsertOffset(p));  // the map area's offset, 8 while empty
    BinaryPath dangling;
    dangling.push(PACKET, 8);
    EXPECT_EQ(0u, d.getInsertOffset(dangling));  // document empty
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
    EXPECT_EQ(24u, d.getInsertOffset(BinaryPath()));  // the end of the tree
    // ... but insert refuses it: a second root would land in the map area.
    BinaryPath above;
    const unsigned int usedWithRoot = d.used();
    EXPECT_EQ(-1, d.insert(above, PACKET, TYPE_CONTAINER, nullptr, 0, false));
    EXPECT_EQ(usedWithRoot, d.used());
    EXPECT_TRUE(above.empty());
    addValue(d, p, VEID, "v");
    EXPECT_EQ(8u + 32, d.getInsertOffset(p));  // container: offset + size
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_ELEMENT, nullptr, 0, false));
    EXPECT_EQ(40u + 16, d.getInsertOffset(p));  // a plain element becomes an empty container
    EXPECT_EQ(TYPE_CONTAINER, cur(d, p).type());
    EXPECT_EQ(0u, cur(d, p).dataSize());
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_INT, "1234", 4, false));
    EXPECT_EQ(0u, d.getInsertOffset(p));  // a value takes no children
    const unsigned int used = d.used();
    EXPECT_EQ(-1, d.insert(p, VEID, TYPE_INT, "1234", 4, false));
    EXPECT_EQ(used, d.used());
    EXPECT_EQ(3u, p.depth());
    EXPECT_TRUE(treeIsConsistent(d));
}

TEST_F(Part22Edit, InsertResultsNamespaceFromStackAndUnknownTagNodeStays) {
    ASSERT_EQ(0, d.turnBlank());
    EXPECT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));  // "packet"
    EXPECT_EQ(0, cur(d, p).ns());
    p.namespaces = {201, 205};
    EXPECT_EQ(-1, d.insert(p, UNKNOWN_TAG, TYPE_STRING, "u", 1, true));
    EXPECT_EQ(UNKNOWN_TAG, p.current().tag);
    EXPECT_EQ(UNKNOWN_TAG, cur(d, p).tag());
    EXPECT_EQ(205, cur(d, p).ns());
    p.pop();
    p.namespaces.pop_back();
    EXPECT_EQ(0, d.insert(p, 105, TYPE_STRING, "h", 1, true));  // a header attribute
    EXPECT_EQ(201, cur(d, p).ns());
    p.pop();
    EXPECT_EQ(0, d.insert(p, newName(d, "my_custom_name"), TYPE_STRING, "c", 1, true));
    EXPECT_EQ(48u, at(d, 8).dataSize());
    EXPECT_TRUE(treeIsConsistent(d));
}

TEST_F(Part22Edit, UpdateAddsDeltaToEachElementInTheRange) {
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_STRING, "abc", 3, true));
    d.update(p.elements.begin(), p.elements.begin() + 2, 8);  // [root, container)
    EXPECT_EQ(32u + 8, at(d, 8).dataSize());
    EXPECT_EQ(16u + 8, at(d, 24).dataSize());
    EXPECT_EQ(4u, at(d, 40).dataSize());
    d.update(p.elements.begin(), p.elements.end(), 0);
    d.update(p.elements.begin(), p.elements.begin() + 2, -8);
    EXPECT_TRUE(treeIsConsistent(d));
}

TEST_F(Part22Edit, SetContentRefusesPayloadOnContainerAndKeepsAncestorsRightInTheMiddle) {
    BinaryPath empty;
    blankWithRoot(d, p);
    const unsigned int used = d.used();
    EXPECT_EQ(-1, d.setContent(p, TYPE_STRING, "x", 1, true));
    EXPECT_EQ(TYPE_CONTAINER, cur(d, p).type());
    EXPECT_EQ(used, d.used());
    EXPECT_EQ(-1, d.setContent(empty, TYPE_STRING, "x", 1, true));
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));
    addValue(d, p, VEID, "before");
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_STRING, "mid", 3, true));
    const BinaryPath middle = p;
    p.pop();
    addValue(d, p, VEID, "after");
    p.pop();
    addValue(d, p, ALERTS, "last");
    p = middle;
    for (const std::string& value : {std::string(40, 'g'), std::string("s"), std::string(8, 'e'), std::string()}) {
        ASSERT_EQ(0, d.setContent(p, TYPE_STRING, value.data(), int(value.size()), true));
        EXPECT_EQ(value + '\0', stored(cur(d, p)));
        ASSERT_TRUE(treeIsConsistent(d)) << value;
        EXPECT_EQ("after", text(at(d, childOffsets(d, 24).at(2))));
        EXPECT_EQ("last", text(at(d, childOffsets(d, 8).at(1))));
    }
    p.pop();
    EXPECT_EQ(0, d.setContent(p, TYPE_ELEMENT, nullptr, 0, false));  // length 0 empties a container
    EXPECT_EQ(0u, cur(d, p).dataSize());
    EXPECT_TRUE(treeIsConsistent(d));
}

TEST_F(Part22Edit, MessageVersionFoldingViaSetContentInsertAndFoldVersion) {
    EXPECT_EQ(40500, QKLBinaryInternals::foldVersion("4.5.0", 5));
    EXPECT_EQ(40000, QKLBinaryInternals::foldVersion("4.0.0", 5));
    EXPECT_EQ(0, QKLBinaryInternals::foldVersion("", 0));
    EXPECT_EQ(30201, QKLBinaryInternals::foldVersion("3.2.1", 5));
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, VERSION, TYPE_STRING, "4.0.0", 5, true));
    EXPECT_EQ(40000, d.messageVersion());
    ASSERT_EQ(0, d.setContent(p, TYPE_STRING, "4.5.0", 5, false));
    EXPECT_EQ(40500, d.messageVersion());
    ASSERT_EQ(0, d.setContent(p, TYPE_STRING, "", 0, true));
    EXPECT_EQ(0, d.messageVersion());
    ASSERT_EQ(0, d.setContent(p, TYPE_STRING, nullptr, 0, false));  // no data: unchanged
    EXPECT_EQ(0, d.messageVersion());
    p.pop();
    ASSERT_EQ(0, d.insert(p, VERSION, TYPE_STRING, "4.5.0", 5, false));
    EXPECT_EQ(40500, d.messageVersion());
    p.pop();
    ASSERT_EQ(0, d.insert(p, 102, TYPE_STRING, "4.0.0", 5, true));  // another tag: unchanged
    EXPECT_EQ(40500, d.messageVersion());
}

TEST_F(Part22Edit, SetNamespaceAndCurNamespaceID) {
    BinaryPath empty;
    blankWithRoot(d, p);
    EXPECT_EQ(-1, d.setNamespace(empty, 201));
    EXPECT_EQ(-1, d.curNamespaceID(empty));
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));
    EXPECT_EQ(0, d.setNamespace(p, 201));
    EXPECT_EQ(201, cur(d, p).ns());
    EXPECT_EQ(201, d.curNamespaceID(p));
    EXPECT_EQ(-1, d.setNamespace(p, UNKNOWN_TAG));
    EXPECT_EQ(UNKNOWN_TAG, d.curNamespaceID(p));  // the field stays written
    p.pop();
    EXPECT_EQ(0, d.curNamespaceID(p));  // the node's own field: no inheritance
}

TEST_F(Part22Edit, SetComplexTypeLeavesNamespacedOrTypedNodesAndWritesUnknownTypes) {
    EXPECT_EQ(-1, d.setComplexType(p, 150));
    blankWithRoot(d, p);
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));
    ASSERT_EQ(0, d.setNamespace(p, 201));
    EXPECT_EQ(0, d.setComplexType(p, 150));  // ns not 0: unchanged
    EXPECT_EQ(TYPE_CONTAINER, cur(d, p).type());
    p.pop();
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_CONTAINER, nullptr, 0, false));
    ASSERT_EQ(0, d.setComplexType(p, 150));
    EXPECT_EQ(0, d.setComplexType(p, 160));  // a complex type already: unchanged
    EXPECT_EQ(150, cur(d, p).type());
    p.pop();
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_STRING, "v", 1, true));
    EXPECT_EQ(0, d.setComplexType(p, 150));  // not a plain container: unchanged
    EXPECT_EQ(TYPE_STRING, cur(d, p).type());
    p.pop();
    ASSERT_EQ(0, d.insert(p, VEID, TYPE_CONTAINER, nullptr, 0, false));
    EXPECT_EQ(-1, d.setComplexType(p, 0));
    EXPECT_EQ(-1, d.setComplexType(p, 50));
    EXPECT_EQ(-1, d.setComplexType(p, 9000));  // a type the map does not know: written all the same
    EXPECT_EQ(9000, cur(d, p).type());
    EXPECT_TRUE(treeIsConsistent(d));
}

TEST_F(Part22Edit, Add2mapWritesTheEntryFirstAndTheMapSurvivesTreeInserts) {
    ASSERT_EQ(0, d.turnBlank());
    p.namespaces = {201};  // leaves a root with ns 201 in the bytes behind the document
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
    ASSERT_EQ(0, d.erase(p));
    p.namespaces.clear();
    ASSERT_EQ(0, d.add2map(unsigned(-2), MAP_KIND_ELEMENT, "first_name", 10));
    ASSERT_EQ(0, d.add2map(65533, MAP_KIND_NAMESPACE, "urn:ns", 6));
    EXPECT_EQ(8u + 24 + 24, d.used());
    const Node entry = at(d, 8);
    EXPECT_EQ(65533, entry.tag());
    EXPECT_EQ(MAP_KIND_NAMESPACE, entry.type());
    EXPECT_EQ(0, entry.ns());
    EXPECT_EQ("urn:ns\0"s, stored(entry));
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
    addValue(d, p, ALERTS, std::string(100, 'q'));
    ASSERT_EQ(0, d.insert(p, ALERTS, TYPE_CONTAINER, nullptr, 0, false));
    addValue(d, p, VEID, "deep");
    const Format f = d.format();
    EXPECT_EQ(f.beyond(8), f.map().offset());
    EXPECT_EQ(48u, f.map().size());
    EXPECT_EQ(65533, at(d, f.map().offset()).tag());
    const Node second = at(d, f.map().offset() + 24);
    EXPECT_EQ(-2, second.tag());
    EXPECT_EQ("first_name\0"s, stored(second));
    EXPECT_EQ("first_name", d.idMap().findIDC(-2).str());
    EXPECT_EQ("urn:ns", d.idMap().findIDC(65533).str());
    EXPECT_TRUE(treeIsConsistent(d));
}

// ---- The whole-tree invariant over a random edit sequence ------------------------------------------------

TEST_F(Part22Invariant, RandomInsertsSetContentsAndErasesKeepEveryContainerExact) {
    ASSERT_EQ(0, d.turnBlank());
    std::mt19937 rng(2202);
    const char payload[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    const unsigned short valueTypes[] = {TYPE_INT, TYPE_STRING, TYPE_LONGLONG, TYPE_DOUBLE, TYPE_BASE64, TYPE_TIME};
    int inserts = 0, contents = 0, erases = 0;
    for (int step = 0; step < 600; ++step) {
        const unsigned int pick = rng() % 12;
        if (p.empty()) {
            if (!d.format().empty()) {
                p.push(PACKET, 8);
                continue;
            }
            ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
            ++inserts;
        } else if (const Node node = cur(d, p);
                   pick < 5 && (node.isContainer() || (node.type() == TYPE_ELEMENT && node.dataSize() == 0))) {
            const unsigned int kind = rng() % 8;
            const unsigned short type = kind < 2 ? TYPE_CONTAINER : kind == 2 ? TYPE_ELEMENT : valueTypes[kind - 2];
            const int length = kind < 3 ? 0 : int(rng() % 30);
            const bool terminate = kind > 2 && rng() % 2;  // a container's payload is its children only
            ASSERT_EQ(0, d.insert(p, ALERTS + int(rng() % 5), type, length ? payload : nullptr, length, terminate));
            ++inserts;
            if (kind >= 2) p.pop();
        } else if (pick < 7 && !node.isContainer()) {
            ASSERT_EQ(0, d.setContent(p, valueTypes[rng() % 6], payload, int(rng() % 36), rng() % 2));
            ++contents;
        } else if (pick == 7 && (p.depth() > 1 || rng() % 4 == 0)) {
            ASSERT_EQ(0, d.erase(p));  // now and then the root, which empties the document
            ++erases;
        } else if (pick < 11 && node.isContainer()) {
            const std::vector<unsigned int> kids = childOffsets(d, p.current().offset);
            if (!kids.empty()) {
                const unsigned int child = kids[rng() % kids.size()];
                p.push(at(d, child).tag(), child);
            }
        } else {
            p.pop();
        }
        ASSERT_TRUE(treeIsConsistent(d)) << "after step " << step;
        if (rng() % 50 == 0) {
            ASSERT_EQ(0, d.add2map(unsigned(-100 - step), MAP_KIND_ELEMENT, "n", 1));
        }
    }
    EXPECT_GT(inserts, 100);
    EXPECT_GT(contents, 30);
    EXPECT_GT(erases, 10);
    EXPECT_EQ(0ul, reports());
}

}  // namespace

// Beyond the Part: two guards that keep a document consistent where the Part's
// steps alone would not.
TEST_F(Part22Edit, ContainerNeverTakesTheTerminatingByteAndNoDocumentTakesNoMapEntry) {
    // extra = 1 "when terminate is set" would give a container data size 1,
    // which no run of child nodes can fill.
    ASSERT_EQ(0, d.turnBlank());
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, true));
    EXPECT_EQ(0u, cur(d, p).dataSize());
    EXPECT_TRUE(treeIsConsistent(d));
    // add2map on internals that hold no document would grow a buffer with no header.
    QKL::QKLBinaryInternals none;
    EXPECT_EQ(-1, none.add2map(unsigned(-2), MAP_KIND_ELEMENT, "n", 1));
    EXPECT_EQ(nullptr, none.buffer());
}

TEST_F(Part22Counter, AdoptingADocumentBumpsTheCounter) {
    // Offsets held into the replaced document are stale even when the buffer does not move.
    ASSERT_EQ(0, d.turnBlank());
    ASSERT_EQ(0, d.insert(p, PACKET, TYPE_CONTAINER, nullptr, 0, false));
    const std::string bytes(d.buffer(), d.used());
    QKL::QKLBinaryInternals other;
    ASSERT_EQ(0, other.turnBlank());
    const std::uint32_t before = other.changeCounter();
    ASSERT_NE(nullptr, other.copy(bytes.data(), int(bytes.size())));
    EXPECT_GT(other.changeCounter(), before);
}
