// Part 2.1: Binary node and document format. The "Edge cases worth testing"
// bullets come first (Part21EdgeCases, one TEST each), then exact byte layouts,
// framing, editing, duplication, the map area and hostile input.
#include "support/AssertCounter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qkl/binary/Format.h"
#include "qkl/common/QKLAssert.h"

using namespace QKL::binary;

namespace {

// Silences QKL_ASSERT and counts the reports made during one test.
class QuietAsserts : public ::testing::Test {
protected:
    unsigned long reports() const { return m_asserts.reports(); }

private:
    QKLTest::AssertCounter m_asserts;
};

// A writable document with a fresh version-2 header in a zero-filled buffer.
struct Doc {
    std::vector<char> bytes;
    Arena arena;
    Format format;
    explicit Doc(unsigned int capacity = 256)
        : bytes(capacity, 0), arena(Arena::writableView(bytes.data(), capacity)), format(arena, FORMAT_VERSION) {}
    Doc(const Doc&) = delete;
    Node node(unsigned int at) const { return Node(arena, at); }
    unsigned char byte(unsigned int at) const { return static_cast<unsigned char>(bytes[at]); }
    std::uint32_t word(unsigned int at) const {
        std::uint32_t w;
        std::memcpy(&w, &bytes[at], sizeof w);
        return w;
    }
};

// root container 1398 at 8 { A: int 1001 at 24 (16 bytes), B: string 1002 "hello" at 40 (24 bytes) }
// tree end 64; map entry -2 "x" at 64 (16 bytes); document length 80.
void buildSample(Doc& d) {
    d.format.insert(8, 0, TYPE_CONTAINER);
    d.node(8).setTag(1398);
    d.format.insert(24, 4, TYPE_INT);
    d.node(24).setTag(1001);
    const std::int32_t value = 7;
    d.node(24).setData(&value, 4, false);
    d.node(8).setDataSize(16);
    d.format.insert(40, 6, TYPE_STRING);
    d.node(40).setTag(1002);
    d.node(40).setData("hello", 6, true);
    d.node(8).setDataSize(40);
    d.format.map().insert(2, MAP_KIND_ELEMENT);
    d.node(64).setTag(-2);
    d.node(64).setData("x", 2, true);
}

// Writes a raw node header (used to build corrupt or hand-made nodes).
void putNode(std::vector<char>& b, unsigned int at, std::int32_t tag, std::uint16_t type, std::uint16_t ns,
             std::uint32_t dataSize) {
    std::memcpy(&b[at], &tag, 4);
    std::memcpy(&b[at + 4], &type, 2);
    std::memcpy(&b[at + 6], &ns, 2);
    std::memcpy(&b[at + 8], &dataSize, 4);
}

std::vector<char> header(std::uint32_t flags, unsigned char version = FORMAT_VERSION) {
    std::vector<char> b(8);
    std::memcpy(&b[0], &MAGIC, 4);
    std::memcpy(&b[4], &flags, 4);
    b[7] = static_cast<char>(version);
    return b;
}

std::uint64_t v2Rule(unsigned short type, std::uint64_t ds) {
    return ds == 8 || isContainer(type) ? (ds + 23) / 8 * 8 : (ds + 19) / 8 * 8;
}
std::uint64_t legacyRule(std::uint64_t ds) { return (ds + 12) / 8 * 8 + 8; }

class Part21EdgeCases : public QuietAsserts {};
class Part21Layout : public QuietAsserts {};
class Part21Probe : public QuietAsserts {};
class Part21Node : public QuietAsserts {};
class Part21Edit : public QuietAsserts {};
class Part21Duplicate : public QuietAsserts {};
class Part21Map : public QuietAsserts {};
class Part21Hostile : public QuietAsserts {};

// ---- Edge cases worth testing ---------------------------------------------------------------

// "A new document is 8 bytes: magic, empty bit 1, map length 0, version 2; `root()` is
// an empty range and `beyond(8)` is 8."
TEST_F(Part21EdgeCases, NewDocumentIsEightBytesMagicEmptyBitMapLengthZeroVersion2RootEmptyBeyond8) {
    Doc d;
    EXPECT_EQ(d.format.size(MAP_MSG_VERSION), 8u);
    EXPECT_TRUE(static_cast<bool>(d.format));
    EXPECT_EQ(d.word(0), 0xFEDCBA98u);
    EXPECT_TRUE(d.format.empty());
    EXPECT_EQ(d.format.map().size(), 0u);
    EXPECT_EQ(d.format.version(), 2);
    EXPECT_TRUE(d.format.root().empty());
    EXPECT_EQ(d.format.root().begin, 8u);
    EXPECT_EQ(d.format.beyond(8), 8u);
    EXPECT_EQ(reports(), 0u);
}

// "`probe` with 0-7 bytes yields 0; with a wrong magic 0xFFFFFFFF; with exactly the 8
// header bytes 0; with a whole document followed by more bytes, the document length."
TEST_F(Part21EdgeCases, ProbeShortIsZeroWrongMagicAllOnesHeaderOnlyZeroDocumentPlusMoreItsLength) {
    Doc d;
    buildSample(d);
    for (unsigned int n = 0; n < 8; ++n) EXPECT_EQ(Format::probe(d.bytes.data(), n), 0u) << n;
    const char wrong[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(Format::probe(wrong, 8), 0xFFFFFFFFu);
    EXPECT_EQ(Format::probe(d.bytes.data(), 8), 0u);
    EXPECT_EQ(Format::probe(d.bytes.data(), 80), 80u);
    EXPECT_EQ(Format::probe(d.bytes.data(), 81), 80u);
    EXPECT_EQ(Format::probe(d.bytes.data(), 256), 80u);
    EXPECT_EQ(reports(), 0u);
}

// "A value node of 4 data bytes is 16 bytes long in version 2 and 24 under the legacy
// rule; an 8-byte value is 24 under both; a container is always 16 + data size."
TEST_F(Part21EdgeCases, FourByteValueIs16InV2And24LegacyEightByteValue24BothContainer16PlusDataSize) {
    EXPECT_EQ(nodeSize(2, TYPE_INT, 4), 16u);
    EXPECT_EQ(nodeSize(0, TYPE_INT, 4), 24u);
    EXPECT_EQ(nodeSize(2, TYPE_DOUBLE, 8), 24u);
    EXPECT_EQ(nodeSize(0, TYPE_DOUBLE, 8), 24u);
    for (unsigned int ds = 0; ds <= 4096; ds += 8) {
        for (unsigned char version : {0, 1, 2}) {
            EXPECT_EQ(nodeSize(version, TYPE_CONTAINER, ds), 16u + ds);
            EXPECT_EQ(nodeSize(version, TYPE_FIRST_COMPLEX, ds), 16u + ds);
            EXPECT_EQ(nodeSize(version, 0xFFFF, ds), 16u + ds);
        }
    }
    Doc d;
    d.format.insert(8, 4, TYPE_INT);
    EXPECT_EQ(d.node(8).size(), 16u);
    d.format.setVersion(LEGACY_FORMAT_VERSION);
    EXPECT_EQ(d.node(8).size(), 24u);
    EXPECT_EQ(d.format.calculate(TYPE_INT, 4), 24u);
}

// "A string of n characters stored with its terminating zero has data size n + 1."
TEST_F(Part21EdgeCases, StringOfNCharactersWithTerminatingZeroHasDataSizeNPlus1) {
    const char text[] = "abcdefghijklmnopqrstuvwxyz";
    for (unsigned int n = 0; n <= 26; ++n) {
        Doc d;
        d.format.insert(8, n + 1, TYPE_STRING);
        ASSERT_EQ(d.node(8).setData(text, n + 1, true), 0) << n;
        EXPECT_EQ(d.node(8).dataSize(), n + 1);
        const char* payload = d.node(8).data();
        EXPECT_EQ(std::memcmp(payload, text, n), 0);
        EXPECT_EQ(payload[n], '\0');
    }
    EXPECT_EQ(reports(), 0u);
}

// "The first insertion of a type-1 value node into an empty document leaves the empty
// bit set; inserting a type 0, 50 or 101+ node clears it."
TEST_F(Part21EdgeCases, FirstType1InsertionLeavesEmptyBitType0_50_101ClearIt) {
    Doc value;
    value.format.insert(8, 4, TYPE_INT);
    EXPECT_TRUE(value.format.empty());
    for (unsigned short type : {TYPE_ELEMENT, TYPE_CONTAINER, TYPE_FIRST_COMPLEX, (unsigned short)389}) {
        Doc d;
        d.format.insert(8, 0, type);
        EXPECT_FALSE(d.format.empty()) << type;
    }
    for (unsigned short type : {1, 2, 3, 4, 5, 6, 51, 100}) {
        Doc d;
        d.format.insert(8, 4, type);
        EXPECT_TRUE(d.format.empty()) << type;
    }
}

// "A map entry with kind 3, a nonzero ns, or data size 0 makes the document unreadable
// for the name map (Part 4.2)."
TEST_F(Part21EdgeCases, MapEntryWithKind3NonzeroNsOrDataSize0IsUnreadable) {
    Doc d;
    buildSample(d);
    const Format::map_type& map = d.format.map();
    ASSERT_TRUE(map.entryValid(64));
    d.node(64).setType(3);
    EXPECT_FALSE(map.entryValid(64));
    d.node(64).setType(2);
    EXPECT_TRUE(map.entryValid(64));
    d.node(64).setNs(1);
    EXPECT_FALSE(map.entryValid(64));
    d.node(64).setNs(0x8000);  // the type-and-ns word is negative
    EXPECT_FALSE(map.entryValid(64));
    d.node(64).setNs(0);
    d.node(64).setDataSize(0);
    EXPECT_FALSE(map.entryValid(64));
    EXPECT_EQ(reports(), 0u);
}

// "After `map_type::insert` the new entry is first in the map area and the map length has
// grown by its size / 8."
TEST_F(Part21EdgeCases, AfterMapInsertNewEntryIsFirstAndMapLengthGrewBySizeOver8) {
    Doc d;
    buildSample(d);
    ASSERT_EQ(d.format.map().size(), 16u);
    const unsigned int entry = d.format.map().insert(9, MAP_KIND_NAMESPACE);  // (9 + 19) & ~7 = 24
    EXPECT_EQ(entry, 24u);
    EXPECT_EQ(d.format.map().size(), 40u);
    EXPECT_EQ((d.word(4) >> 3) & 0x1FFFFF, 5u);
    EXPECT_EQ(d.node(64).type(), MAP_KIND_NAMESPACE);
    EXPECT_EQ(d.node(64).dataSize(), 9u);
    EXPECT_EQ(d.node(88).tag(), -2);  // the older entry moved behind it
    EXPECT_STREQ(d.node(88).data(), "x");
    EXPECT_EQ(d.format.size(MAP_MSG_VERSION), 104u);
}

// ---- Exact byte layouts ---------------------------------------------------------------------

TEST_F(Part21Layout, NewHeaderBytesAre98BADCFE01000002AndReservedBitsCleared) {
    Doc d(64);
    std::memset(d.bytes.data(), 0xFF, d.bytes.size());
    Format fresh(d.arena, FORMAT_VERSION);
    const unsigned char expected[8] = {0x98, 0xBA, 0xDC, 0xFE, 0x01, 0x00, 0x00, 0x02};
    EXPECT_EQ(std::memcmp(d.bytes.data(), expected, 8), 0);
    EXPECT_EQ(d.byte(8), 0xFF);  // nothing behind the header is touched
    Format legacy(d.arena, 0);
    EXPECT_EQ(d.byte(7), 0);
    EXPECT_EQ(legacy.version(), 0);
}

TEST_F(Part21Layout, MapLengthSitsInBits3To23OfTheWordAt4) {
    Doc d;
    EXPECT_EQ(d.format.map().insert(1, MAP_KIND_ELEMENT), 16u);
    EXPECT_EQ(d.word(4), (2u << 3) | EMPTY_BIT | (2u << 24));
    EXPECT_EQ(d.byte(4), 0x11);
    EXPECT_EQ(d.byte(5), 0x00);
    EXPECT_EQ(d.byte(6), 0x00);
    EXPECT_EQ(d.byte(7), 0x02);
    EXPECT_TRUE(d.format.empty());  // a map entry is not a root
    EXPECT_EQ(d.format.map().offset(), 8u);
    EXPECT_EQ(d.format.size(MAP_MSG_VERSION), 24u);
}

TEST_F(Part21Layout, MapLengthIsKeptTo21Bits) {
    const unsigned int mapBytes = 0x1FFFFF * 8;
    Doc d(8 + mapBytes + 16);
    std::uint32_t flags = EMPTY_BIT | (0x1FFFFFu << 3) | (2u << 24);
    std::memcpy(&d.bytes[4], &flags, 4);
    ASSERT_EQ(d.format.map().size(), mapBytes);
    EXPECT_EQ(d.format.map().insert(1, MAP_KIND_ELEMENT), 16u);
    EXPECT_EQ(d.format.map().size(), 8u);  // (0x1FFFFF + 2) mod 2^21 = 1
    EXPECT_EQ(d.format.version(), 2);
    EXPECT_TRUE(d.format.empty());
    EXPECT_EQ(reports(), 0u);
}

TEST_F(Part21Layout, SettersWriteEachFieldAtItsOffsetByteByByte) {
    Doc d(64);
    std::memset(&d.bytes[8], 0xEE, 40);
    Node n = d.node(16);
    n.setTag(0x11223344);
    n.setType(0x5566);
    n.setNs(0x7788);
    n.setDataSize(0x99AABBCCu);
    const unsigned char expected[16] = {0xEE, 0x44, 0x33, 0x22, 0x11, 0x66, 0x55, 0x88, 0x77, 0xCC, 0xBB, 0xAA, 0x99, 0xEE};
    EXPECT_EQ(std::memcmp(&d.bytes[15], expected, 14), 0);
    EXPECT_EQ(n.tag(), 0x11223344);
    EXPECT_EQ(n.type(), 0x5566);
    EXPECT_EQ(n.ns(), 0x7788);
    EXPECT_EQ(n.dataSize(), 0x99AABBCCu);
    n.setTag(-2);
    EXPECT_EQ(d.word(16), 0xFFFFFFFEu);
    EXPECT_EQ(n.tag(), -2);
    // Fields at odd offsets are fine too: everything goes through memcpy.
    Node odd = d.node(33);
    odd.setDataSize(0x01020304);
    EXPECT_EQ(odd.dataSize(), 0x01020304u);
    EXPECT_EQ(reports(), 0u);
}

TEST_F(Part21Layout, BorderAndOverheadFor8ByteValuesContainersAndOthers) {
    struct Case { unsigned short type; unsigned int ds; unsigned int border; };
    const Case cases[] = {{TYPE_INT, 4, 0},          {TYPE_LONGLONG, 8, 4}, {TYPE_STRING, 8, 4},
                          {TYPE_ELEMENT, 8, 4},      {TYPE_STRING, 7, 0},   {TYPE_STRING, 9, 0},
                          {TYPE_CONTAINER, 0, 4},    {TYPE_CONTAINER, 40, 4}, {TYPE_FIRST_COMPLEX, 24, 4},
                          {100, 4, 0},               {TYPE_XML, 16, 0},     {TYPE_TIME, 0, 0}};
    Doc d;
    for (const Case& c : cases) {
        d.node(8).setType(c.type);
        d.node(8).setDataSize(c.ds);
        EXPECT_EQ(d.node(8).border(), c.border) << c.type << "/" << c.ds;
        EXPECT_EQ(d.node(8).overhead(), 12 + c.border) << c.type << "/" << c.ds;
    }
}

TEST_F(Part21Layout, BothSizeRulesOverDataSizes0To40) {
    for (unsigned int ds = 0; ds <= 40; ++ds) {
        for (unsigned short type : {0, 1, 2, 3, 5, 50, 51, 101, 389}) {
            EXPECT_EQ(nodeSize(2, type, ds), v2Rule(type, ds)) << type << "/" << ds;
            EXPECT_EQ(nodeSize(0, type, ds), legacyRule(ds)) << type << "/" << ds;
            EXPECT_EQ(nodeSize(1, type, ds), legacyRule(ds)) << type << "/" << ds;  // any version but 2
            EXPECT_EQ(nodeSize(3, type, ds), legacyRule(ds)) << type << "/" << ds;
        }
    }
    // Spot values (v2 value / legacy value).
    EXPECT_EQ(nodeSize(2, TYPE_ELEMENT, 0), 16u);
    EXPECT_EQ(nodeSize(2, TYPE_STRING, 5), 24u);
    EXPECT_EQ(nodeSize(2, TYPE_STRING, 12), 24u);
    EXPECT_EQ(nodeSize(2, TYPE_STRING, 13), 32u);
    EXPECT_EQ(nodeSize(0, TYPE_ELEMENT, 0), 16u);
    EXPECT_EQ(nodeSize(0, TYPE_STRING, 3), 16u);
    EXPECT_EQ(nodeSize(0, TYPE_STRING, 11), 24u);
    EXPECT_EQ(nodeSize(0, TYPE_STRING, 12), 32u);  // the legacy rule keeps a byte behind the payload
}

TEST_F(Part21Layout, SizeRuleDoesNotWrapOnHugeDataSizes) {
    EXPECT_EQ(nodeSize(2, TYPE_STRING, 0xFFFFFFFFu), 0x100000010ull);
    EXPECT_EQ(nodeSize(2, TYPE_CONTAINER, 0xFFFFFFFFu), 0x100000010ull);
    EXPECT_EQ(nodeSize(0, TYPE_STRING, 0xFFFFFFFFu), 0x100000010ull);
    EXPECT_EQ(nodeSize(2, TYPE_STRING, 0xFFFFFFF0u), 0x100000000ull);
    EXPECT_EQ(nodeSize(2, TYPE_CONTAINER, 0xFFFFFFF0u), 0x100000000ull);
    EXPECT_EQ(nodeSize(2, TYPE_CONTAINER, 0xFFFFFFE8u), 0xFFFFFFF8ull);
}

// ---- Framing ----------------------------------------------------------------------------------

TEST_F(Part21Probe, ZeroToSevenBytesIsZeroEvenWithTheMagic) {
    const std::vector<char> h = header(EMPTY_BIT);
    for (unsigned int n = 0; n < 8; ++n) {
        std::vector<char> exact(h.begin(), h.begin() + n);  // exact heap size: ASan sees any overread
        EXPECT_EQ(Format::probe(exact.data(), n), 0u) << n;
    }
    EXPECT_EQ(Format::probe(nullptr, 100), 0u);
}

TEST_F(Part21Probe, WrongMagicIsAllOnes) {
    std::vector<char> h = header(EMPTY_BIT);
    h[0] = 0x99;
    EXPECT_EQ(Format::probe(h.data(), 8), NOT_BINARY);
    h.resize(64, 0);
    EXPECT_EQ(Format::probe(h.data(), 64), 0xFFFFFFFFu);
}

TEST_F(Part21Probe, ExactlyTheHeaderIsZeroAndARootThatDoesNotFitIsZero) {
    Doc d;
    buildSample(d);
    EXPECT_EQ(Format::probe(d.bytes.data(), 8), 0u);
    for (unsigned int n = 9; n < 64; ++n) {
        std::vector<char> cut(d.bytes.begin(), d.bytes.begin() + n);
        EXPECT_EQ(Format::probe(cut.data(), n), 0u) << n;
    }
    // The root fits but the map area is not all there yet.
    for (unsigned int n = 64; n < 80; ++n) EXPECT_EQ(Format::probe(d.bytes.data(), n), 0u) << n;
    EXPECT_EQ(Format::probe(d.bytes.data(), 80), 80u);
}

TEST_F(Part21Probe, TheMapAreaCountsInTheLengthAndAnEmptyDocumentWithAMap) {
    Doc d;
    d.format.map().insert(2, MAP_KIND_ELEMENT);  // empty document: header + one 16-byte entry
    EXPECT_EQ(Format::probe(d.bytes.data(), 24), 24u);
    EXPECT_EQ(Format::probe(d.bytes.data(), 40), 24u);
    EXPECT_EQ(Format::probe(d.bytes.data(), 20), 0u);  // the entry at 8 does not fit yet
}

TEST_F(Part21Probe, HostileRootDataSizesAreIncompleteNeverReadPastTheBytes) {
    for (std::uint32_t ds : {0xFFFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFE8u, 0x80000000u, 100u}) {
        std::vector<char> b = header(0);
        b.resize(64, 0);
        putNode(b, 8, 1398, TYPE_CONTAINER, 0, ds);
        EXPECT_EQ(Format::probe(b.data(), 64), 0u) << ds;
    }
    // A root that fits with a map length that makes the total exceed the bytes.
    std::vector<char> b = header(0x1FFFFFu << 3);
    b.resize(24, 0);
    putNode(b, 8, 1398, TYPE_CONTAINER, 0, 0);
    EXPECT_EQ(Format::probe(b.data(), 24), 0u);
    EXPECT_EQ(reports(), 0u);
}

// ---- Node ------------------------------------------------------------------------------------

TEST_F(Part21Node, SettersOnAReadOnlyArenaDoNothing) {
    Doc d;
    buildSample(d);
    const std::vector<char> before = d.bytes;
    const Arena view = Arena::readOnlyView(d.bytes.data(), 256);
    Node n(view, 24);
    n.setTag(5);
    n.setType(9);
    n.setNs(9);
    n.setDataSize(9);
    EXPECT_NE(n.setData("abcd", 4, false), 0);
    Format(view).setEmpty(true);
    Format(view).setVersion(0);
    EXPECT_EQ(d.bytes, before);
    EXPECT_EQ(n.tag(), 1001);
    EXPECT_EQ(reports(), 0u);
}

TEST_F(Part21Node, SetDataFailsWhenLongerThanTheRoomAndKeepsTheNode) {
    Doc d;
    d.format.insert(8, 4, TYPE_INT);  // 16 bytes: room for 4
    EXPECT_NE(d.node(8).setData("12345", 5, false), 0);
    EXPECT_EQ(d.node(8).dataSize(), 4u);
    EXPECT_EQ(d.node(8).setData("1234", 4, false), 0);
    EXPECT_EQ(std::memcmp(&d.bytes[20], "1234", 4), 0);
    Doc s;
    s.format.insert(8, 5, TYPE_STRING);  // 24 bytes: room for 12
    EXPECT_NE(s.node(8).setData("0123456789abc", 13, false), 0);
    EXPECT_EQ(s.node(8).setData("0123456789ab", 12, false), 0);
    EXPECT_EQ(s.node(8).dataSize(), 12u);
    EXPECT_EQ(std::memcmp(&s.bytes[20], "0123456789ab", 12), 0);
}

TEST_F(Part21Node, SetDataTerminateCopiesLengthMinusOneAndWritesAZero) {
    Doc d;
    d.format.insert(8, 4, TYPE_STRING);
    std::memset(&d.bytes[20], 0x55, 4);
    EXPECT_EQ(d.node(8).setData("abcX", 4, true), 0);
    EXPECT_EQ(std::memcmp(&d.bytes[20], "abc\0", 4), 0);
    EXPECT_EQ(d.node(8).setData(nullptr, 2, true), 0);  // no bytes: the payload stays, the zero is written
    EXPECT_EQ(std::memcmp(&d.bytes[20], "a\0\0\0", 4), 0);  // and the padding behind it is cleared
    EXPECT_EQ(d.node(8).setData("zz", 0, true), 0);  // length 0 copies nothing
    EXPECT_EQ(d.node(8).dataSize(), 0u);
}

// Not in the Part: the bytes of a node that are not payload (the border of an
// 8-byte value, the padding behind the payload) are zeroed, so no stale or
// uninitialised memory of the process goes out in a serialized document.
TEST_F(Part21Node, SetDataZeroesTheBorderAndThePaddingBehindThePayload) {
    Doc d;
    d.format.insert(8, 3, TYPE_STRING);  // 16 bytes: 3 of payload, 1 of padding
    std::memset(&d.bytes[20], 0x66, 4);
    EXPECT_EQ(d.node(8).setData("abc", 3, false), 0);
    EXPECT_EQ(d.node(8).size(), 16u);
    EXPECT_EQ(std::memcmp(&d.bytes[20], "abc\0", 4), 0);
    Doc v;
    v.format.insert(8, 8, TYPE_DOUBLE);
    std::memset(&v.bytes[20], 0x77, 4);
    EXPECT_EQ(v.node(8).setData("ABCDEFGH", 8, false), 0);
    EXPECT_EQ(v.word(20), 0u);
}

TEST_F(Part21Node, SetDataOfEightBytesLandsBehindTheBorder) {
    Doc d;
    d.format.insert(8, 8, TYPE_DOUBLE);
    std::memset(&d.bytes[20], 0x77, 4);
    EXPECT_EQ(d.node(8).setData("ABCDEFGH", 8, false), 0);
    EXPECT_EQ(d.word(20), 0u);  // the border is cleared (see below)
    EXPECT_EQ(std::memcmp(&d.bytes[24], "ABCDEFGH", 8), 0);
    EXPECT_EQ(d.node(8).data(), &d.bytes[24]);
    EXPECT_EQ(d.node(8).buffer(), &d.bytes[24]);
}

TEST_F(Part21Node, ProbeAcceptsOnlyWholeNodes) {
    Doc d(24);
    d.node(8).setType(TYPE_INT);
    d.node(8).setDataSize(4);  // needs [8, 24)
    EXPECT_FALSE(Node::probe(d.arena, 8));
    for (unsigned int size = 0; size < 24; ++size)
        EXPECT_TRUE(Node::probe(Arena::readOnlyView(d.bytes.data(), size), 8)) << size;
    EXPECT_TRUE(Node::probe(d.arena, 16));
    EXPECT_TRUE(Node::probe(Arena(), 0));
    for (unsigned int at : {0xFFFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFF4u}) EXPECT_TRUE(Node::probe(d.arena, at));
    for (std::uint32_t ds : {0xFFFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFE8u, 0x7FFFFFFFu}) {
        d.node(8).setDataSize(ds);
        EXPECT_TRUE(Node::probe(d.arena, 8)) << ds;
    }
    EXPECT_EQ(reports(), 0u);
}

TEST_F(Part21Node, ReadersOutsideTheArenaReportAndReadZero) {
    std::vector<char> exact(20, 0x11);  // exact heap size: ASan sees any overread
    const Arena view = Arena::readOnlyView(exact.data(), 20);
    const unsigned long before = reports();
    for (unsigned int at : {9u, 17u, 20u, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
        Node n(view, at);
        EXPECT_EQ(n.dataSize(), 0u) << at;
        EXPECT_EQ(n.data(), nullptr) << at;
    }
    EXPECT_EQ(Node(view, 14).tag(), 0x11111111);  // [14, 18) is inside
    EXPECT_EQ(Node(view, 14).type(), 0x1111);
    EXPECT_EQ(Node(view, 14).ns(), 0);  // [20, 22) is not
    EXPECT_GT(reports(), before);
}

TEST_F(Part21Node, SetDataReportsAndFailsWhenThePayloadLeavesTheArena) {
    std::vector<char> b(20, 0);
    const Arena arena = Arena::writableView(b.data(), 20);
    Format(arena, FORMAT_VERSION);
    Node n(arena, 8);
    n.setType(TYPE_STRING);
    n.setDataSize(4);  // the node would need 16 bytes behind 8; the arena ends at 20
    EXPECT_NE(n.setData("abcd", 4, false), 0);
    EXPECT_NE(Node(arena, 16).setData("", 0, false), 0);
    EXPECT_GT(reports(), 0u);
}

TEST_F(Part21Node, ArenaDataAndBufferAssertSetViewAndOffsetBelowSize) {
    char bytes[16] = {};
    const Arena rw = Arena::writableView(bytes, 16);
    const Arena ro = Arena::readOnlyView(bytes, 16);
    EXPECT_EQ(rw.data(15), bytes + 15);
    EXPECT_EQ(rw.buffer(0), bytes);
    EXPECT_EQ(reports(), 0u);
    EXPECT_EQ(rw.data(16), nullptr);
    EXPECT_EQ(rw.buffer(16), nullptr);
    EXPECT_EQ(ro.buffer(0), nullptr);
    EXPECT_EQ(Arena().data(0), nullptr);
    EXPECT_EQ(reports(), 4u);
    EXPECT_EQ(rw.readSpan(16, 0), bytes + 16);  // an empty span at the end is inside
    EXPECT_EQ(rw.readSpan(8, 9), nullptr);
    EXPECT_EQ(rw.readSpan(0xFFFFFFFFu, 2), nullptr);  // no 32-bit wrap
    EXPECT_EQ(ro.writeSpan(0, 1), nullptr);
    EXPECT_EQ(reports(), 4u);  // spans never report
}

// ---- Editing ---------------------------------------------------------------------------------

TEST_F(Part21Edit, InsertReturnsTheRangeToTheNewTreeEndAndBuildsTheSample) {
    Doc d;
    Format::node_range r = d.format.insert(8, 0, TYPE_CONTAINER);
    EXPECT_EQ(r.begin, 8u);
    EXPECT_EQ(r.end, 24u);
    EXPECT_FALSE(d.format.empty());
    r = d.format.insert(24, 4, TYPE_INT);  // beyond(24) = 24 before, + 16
    EXPECT_EQ(r.begin, 24u);
    EXPECT_EQ(r.end, 40u);
    EXPECT_EQ(d.node(8).dataSize(), 0u);  // ancestors are not adjusted
    Doc s;
    buildSample(s);
    EXPECT_EQ(s.format.beyond(8), 64u);
    EXPECT_EQ(s.format.beyond(12345), 64u);  // whatever `at` is
    EXPECT_EQ(s.format.size(MAP_MSG_VERSION), 80u);
    EXPECT_EQ(s.format.size(MAP_MSG_VERSION - 1), 64u);  // no map below 40000
    EXPECT_EQ(s.format.root().end, 64u);
    EXPECT_EQ(reports(), 0u);
}

TEST_F(Part21Edit, DoInsertMovesEverythingBehindAndWritesOnlyTypeAndDataSize) {
    Doc d;
    buildSample(d);
    const std::vector<char> before = d.bytes;
    EXPECT_EQ(d.format.doInsert(40, 8, TYPE_LONGLONG), 24u);
    EXPECT_EQ(std::memcmp(&d.bytes[64], &before[40], 40), 0);  // B and the map entry, 24 up
    EXPECT_EQ(std::memcmp(&d.bytes[40], &before[40], 4), 0);   // tag left as it was
    EXPECT_EQ(std::memcmp(&d.bytes[46], &before[46], 2), 0);   // ns left as it was
    EXPECT_EQ(std::memcmp(&d.bytes[52], &before[52], 12), 0);  // border and payload left
    EXPECT_EQ(d.node(40).type(), TYPE_LONGLONG);
    EXPECT_EQ(d.node(40).dataSize(), 8u);
    EXPECT_EQ(d.node(64).tag(), 1002);
    EXPECT_EQ(d.node(88).tag(), -2);
    EXPECT_EQ(d.byte(104), 0);  // nothing behind the old document end + gap
}

TEST_F(Part21Edit, InsertBetweenSiblingsReturnsOldTreeEndPlusTheNodeSize) {
    Doc d;
    buildSample(d);
    const Format::node_range r = d.format.insert(40, 1, TYPE_STRING);
    EXPECT_EQ(r.begin, 40u);
    EXPECT_EQ(r.end, 64u + 16u);
    EXPECT_EQ(d.node(56).tag(), 1002);
    EXPECT_FALSE(d.format.empty());
}

TEST_F(Part21Edit, ResizeMovesTheBytesBehindTheNode) {
    Doc d;
    buildSample(d);
    const std::vector<char> before = d.bytes;
    Format::node_range r = d.format.resize(24, 20, TYPE_STRING);  // 16 -> 32 bytes
    EXPECT_EQ(r.begin, 24u);
    EXPECT_EQ(r.end, 80u);
    EXPECT_EQ(d.node(24).type(), TYPE_STRING);
    EXPECT_EQ(d.node(24).dataSize(), 20u);
    EXPECT_EQ(std::memcmp(&d.bytes[56], &before[40], 40), 0);
    d.node(8).setDataSize(56);             // the ancestor update of Part 2.2
    r = d.format.resize(24, 4, TYPE_INT);  // back to 16 bytes
    EXPECT_EQ(r.end, 64u);
    d.node(8).setDataSize(40);
    EXPECT_EQ(std::memcmp(&d.bytes[40], &before[40], 40), 0);
    r = d.format.resize(8, 40, TYPE_FIRST_COMPLEX);  // the root itself: same size
    EXPECT_EQ(r.end, 64u);
    EXPECT_EQ(d.node(8).type(), TYPE_FIRST_COMPLEX);
}

TEST_F(Part21Edit, UnlinkClosesTheNodeAndReturnsItsSize) {
    Doc d;
    buildSample(d);
    const std::vector<char> before = d.bytes;
    EXPECT_EQ(d.format.unlink(24), 16u);
    EXPECT_EQ(std::memcmp(&d.bytes[24], &before[40], 40), 0);
    EXPECT_EQ(d.node(8).dataSize(), 40u);  // ancestors are the caller's job
    d.node(8).setDataSize(24);
    EXPECT_EQ(d.format.unlink(8), 40u);  // the root: the map moves down to 8
    EXPECT_FALSE(d.format.empty());      // the empty bit is the caller's job too
    EXPECT_EQ(d.node(8).tag(), -2);
}

TEST_F(Part21Edit, EditsWithoutRoomAreRefusedAndReportedNotPerformed) {
    Doc d(80);
    buildSample(d);  // exactly full
    const std::vector<char> before = d.bytes;
    const unsigned long start = reports();
    EXPECT_EQ(d.format.doInsert(40, 0, TYPE_ELEMENT), 0u);
    EXPECT_TRUE(d.format.insert(40, 0, TYPE_ELEMENT).empty());
    EXPECT_TRUE(d.format.resize(24, 5, TYPE_STRING).empty());
    EXPECT_EQ(d.format.map().insert(2, MAP_KIND_ELEMENT), 0u);
    EXPECT_EQ(d.format.doInsert(4, 0, TYPE_ELEMENT), 0u);    // inside the header
    EXPECT_EQ(d.format.doInsert(96, 0, TYPE_ELEMENT), 0u);   // past the document end
    EXPECT_EQ(d.format.doInsert(8, 0xFFFFFFFFu, TYPE_STRING), 0u);
    EXPECT_EQ(d.format.unlink(76), 0u);                      // a node that does not fit
    EXPECT_EQ(d.bytes, before);
    EXPECT_EQ(reports() - start, 8u);
    Format readOnly(Arena::readOnlyView(d.bytes.data(), 80));
    EXPECT_EQ(readOnly.unlink(24), 0u);
    EXPECT_EQ(d.bytes, before);
}

TEST_F(Part21Edit, SizeOfASubtreeNodeAndOfAnOffsetOutsideTheTree) {
    Doc d;
    buildSample(d);
    EXPECT_EQ(d.format.size(40, MAP_MSG_VERSION), 8u + 24u + 16u);
    EXPECT_EQ(d.format.size(40, 30000), 32u);
    EXPECT_EQ(d.format.size(64, MAP_MSG_VERSION), 24u);  // not below beyond(64): header + map
    EXPECT_EQ(d.format.size(64, 0), 8u);
}

TEST_F(Part21Edit, WalkingTheTreeVisitsEveryNodeInOrder) {
    Doc d;
    buildSample(d);
    Format::node_range root = d.format.root();
    ASSERT_TRUE(root.valid());
    Format::node_range child = root.children();
    EXPECT_EQ(child.begin, 24u);
    EXPECT_EQ(child.end, 64u);
    std::vector<int> tags;
    for (; child.valid(); child = child.next()) tags.push_back(child.node().tag());
    EXPECT_EQ(tags, (std::vector<int>{1001, 1002}));
    EXPECT_TRUE(child.empty());
    EXPECT_TRUE(root.next().empty());
    EXPECT_TRUE(Format::node_range({d.arena, 24, 64}).children().empty());  // a value node
}

// ---- Duplicate ------------------------------------------------------------------------------

TEST_F(Part21Duplicate, AtMessageVersion40000TheMapTravelsWithTheSubtree) {
    Doc d;
    buildSample(d);
    Doc t(256);
    std::memset(t.bytes.data(), 0x5A, 256);
    Arena target = t.arena;
    EXPECT_EQ(d.format.duplicate(40, target, MAP_MSG_VERSION), 0);
    EXPECT_EQ(target.size(), 48u);  // narrowed to header + B + map
    Format copy(target);
    EXPECT_TRUE(static_cast<bool>(copy));
    EXPECT_FALSE(copy.empty());
    EXPECT_EQ(copy.version(), 2);
    EXPECT_EQ(copy.map().size(), 16u);
    EXPECT_EQ(copy.map().offset(), 32u);
    EXPECT_EQ(std::memcmp(&t.bytes[8], &d.bytes[40], 24), 0);
    EXPECT_EQ(std::memcmp(&t.bytes[32], &d.bytes[64], 16), 0);
    EXPECT_EQ(copy.size(MAP_MSG_VERSION), 48u);
    EXPECT_EQ(Format::probe(t.bytes.data(), 48), 48u);
    EXPECT_EQ(t.byte(48), 0x5A);
}

TEST_F(Part21Duplicate, BelowMessageVersion40000VersionByteIs0AndNoMap) {
    Doc d;
    buildSample(d);
    std::vector<char> bytes(64, 0x5A);
    Arena target = Arena::writableView(bytes.data(), 64);
    EXPECT_EQ(d.format.duplicate(8, target, 39999), 0);
    EXPECT_EQ(target.size(), 64u);
    const unsigned char head[8] = {0x98, 0xBA, 0xDC, 0xFE, 0x00, 0x00, 0x00, 0x00};
    EXPECT_EQ(std::memcmp(bytes.data(), head, 8), 0);  // root present, no map, version 0
    EXPECT_EQ(std::memcmp(&bytes[8], &d.bytes[8], 56), 0);
}

TEST_F(Part21Duplicate, FailsOnATargetTooSmallOrReadOnly) {
    Doc d;
    buildSample(d);
    std::vector<char> bytes(79, 0x5A);
    Arena small = Arena::writableView(bytes.data(), 79);
    EXPECT_NE(d.format.duplicate(8, small, MAP_MSG_VERSION), 0);
    EXPECT_EQ(small.size(), 79u);
    EXPECT_EQ(bytes, std::vector<char>(79, 0x5A));
    bytes.resize(80, 0x5A);
    Arena readOnly = Arena::readOnlyView(bytes.data(), 80);
    EXPECT_NE(d.format.duplicate(8, readOnly, MAP_MSG_VERSION), 0);
    EXPECT_EQ(bytes, std::vector<char>(80, 0x5A));
    Arena fits = Arena::writableView(bytes.data(), 80);
    EXPECT_EQ(d.format.duplicate(8, fits, MAP_MSG_VERSION), 0);
    EXPECT_EQ(std::memcmp(bytes.data(), d.bytes.data(), 80), 0);  // a whole document duplicates as itself
    EXPECT_EQ(reports(), 0u);
}

TEST_F(Part21Duplicate, TheAllocatingFormHandsOverAZeroFilledBuffer) {
    Doc d;
    buildSample(d);
    Arena copy = d.format.duplicate(24, MAP_MSG_VERSION);
    ASSERT_NE(copy.writableStart(), nullptr);
    EXPECT_EQ(copy.size(), 8u + 16u + 16u);
    EXPECT_EQ(Format::probe(copy.start(), copy.size()), 40u);
    EXPECT_EQ(Node(copy, 8).tag(), 1001);
    std::free(copy.writableStart());
    Doc empty;
    copy = empty.format.duplicate(8, MAP_MSG_VERSION);
    EXPECT_EQ(copy.size(), 8u);
    EXPECT_TRUE(Format(copy).empty());  // an empty source stays empty
    std::free(copy.writableStart());
}

TEST_F(Part21Duplicate, ACorruptSourceNodeIsNotDuplicated) {
    Doc d;
    buildSample(d);
    d.node(8).setDataSize(0xFFFFFFF0u);
    EXPECT_EQ(d.format.size(MAP_MSG_VERSION), 0u);
    Arena copy = d.format.duplicate(8, MAP_MSG_VERSION);
    EXPECT_EQ(copy.start(), nullptr);
    EXPECT_EQ(copy.size(), 0u);
}

// ---- Map area ---------------------------------------------------------------------------------

TEST_F(Part21Map, AssignmentTakesTheLengthAndMovesTheBytesBehindTheTree) {
    Doc source;
    buildSample(source);
    source.format.map().insert(4, MAP_KIND_TYPE);
    source.node(64).setData("abc", 4, true);
    Doc target;
    target.format.insert(8, 0, TYPE_CONTAINER);
    target.format.map() = source.format.map();
    EXPECT_EQ(target.format.map().size(), 32u);
    EXPECT_EQ(std::memcmp(&target.bytes[24], &source.bytes[64], 32), 0);
    EXPECT_EQ(target.format.size(MAP_MSG_VERSION), 56u);
    EXPECT_FALSE(target.format.empty());
    EXPECT_EQ(target.byte(7), 2);
}

TEST_F(Part21Map, AWalkOfValidEntriesEndsExactlyAtTheEndOfTheArea) {
    Doc d;
    buildSample(d);
    d.format.map().insert(9, MAP_KIND_NAMESPACE);
    d.node(64).setData("longname", 9, true);
    const Format::map_type& map = d.format.map();
    unsigned int at = map.offset(), entries = 0;
    for (; at != map.offset() + map.size(); at += static_cast<unsigned int>(d.node(at).size()), ++entries)
        ASSERT_TRUE(map.entryValid(at));
    EXPECT_EQ(entries, 2u);
    EXPECT_EQ(at, 104u);
    EXPECT_FALSE(map.entryValid(40));   // inside the tree, not the map
    EXPECT_FALSE(map.entryValid(104));  // the end of the area
    d.node(88).setDataSize(100);        // overruns the area
    EXPECT_FALSE(map.entryValid(88));
    EXPECT_EQ(reports(), 0u);
}

TEST_F(Part21Map, AMapLengthPastTheArenaGivesNoValidEntry) {
    std::vector<char> b = header((4u << 3));
    b.resize(40, 0);
    putNode(b, 8, 1398, TYPE_CONTAINER, 0, 0);
    putNode(b, 24, -2, MAP_KIND_ELEMENT, 0, 2);  // claims a map of 32 bytes; 16 are there
    const Format f(Arena::readOnlyView(b.data(), 40));
    EXPECT_TRUE(f.map().entryValid(24));
    EXPECT_FALSE(f.map().entryValid(40));
    EXPECT_EQ(Format::probe(b.data(), 40), 0u);
}

TEST_F(Part21Map, AForeignAreaWithoutAHeaderIsCheckedUnderTheGivenVersion) {
    std::vector<char> area(40, 0);  // entries from offset 0: no document header
    putNode(area, 0, -3, MAP_KIND_TYPE, 0, 4);       // 16 bytes in version 2, 24 legacy
    putNode(area, 16, -4, MAP_KIND_ELEMENT, 0, 12);  // 24 bytes in version 2
    const Arena view = Arena::readOnlyView(area.data(), 40);
    EXPECT_TRUE(mapEntryValid(view, 0, 0, 40, FORMAT_VERSION));
    EXPECT_TRUE(mapEntryValid(view, 16, 0, 40, FORMAT_VERSION));
    EXPECT_FALSE(mapEntryValid(view, 16, 0, 39, FORMAT_VERSION));  // leaves the area
    EXPECT_FALSE(mapEntryValid(view, 16, 20, 40, FORMAT_VERSION)); // before the area
    EXPECT_FALSE(mapEntryValid(view, 24, 0, 0xFFFFFFFFu, FORMAT_VERSION));  // leaves the arena
    EXPECT_FALSE(mapEntryValid(view, 0xFFFFFFFCu, 0, 0xFFFFFFFFu, FORMAT_VERSION));
    EXPECT_TRUE(mapEntryValid(view, 0, 0, 24, LEGACY_FORMAT_VERSION));
    EXPECT_FALSE(mapEntryValid(view, 0, 0, 23, LEGACY_FORMAT_VERSION));
    putNode(area, 16, -4, MAP_KIND_ELEMENT, 0, 0xFFFFFFF0u);
    EXPECT_FALSE(mapEntryValid(view, 16, 0, 0xFFFFFFFFu, FORMAT_VERSION));
    EXPECT_EQ(reports(), 0u);
}

// ---- Hostile input -------------------------------------------------------------------------------

TEST_F(Part21Hostile, ACorruptRootLeavesTheTreeUnreadableAndTheSizeZero) {
    std::vector<char> b = header(2u << 3);
    b.resize(48, 0);
    putNode(b, 8, 1398, TYPE_CONTAINER, 0, 0xFFFFFFF0u);  // 16 + ds = 2^32 exactly
    const Format f(Arena::readOnlyView(b.data(), 48));
    EXPECT_EQ(f.beyond(8), 48u);
    EXPECT_EQ(f.map().offset(), 48u);
    EXPECT_EQ(f.size(MAP_MSG_VERSION), 0u);
    EXPECT_FALSE(f.root().valid());
    EXPECT_TRUE(f.root().children().empty());
    EXPECT_FALSE(f.map().entryValid(f.map().offset()));
    EXPECT_EQ(Format::probe(b.data(), 48), 0u);
}

TEST_F(Part21Hostile, AContainerDataSizeThatIsNoSumOfNodesStaysInsideItsParent) {
    std::vector<char> b = header(0, 0);  // legacy rule: a container of 3 data bytes is 16 bytes long
    b.resize(24, 0);
    putNode(b, 8, 1, TYPE_CONTAINER, 0, 3);
    const Format f(Arena::readOnlyView(b.data(), 24));
    ASSERT_TRUE(f.root().valid());
    const Format::node_range kids = f.root().children();
    EXPECT_EQ(kids.begin, 24u);
    EXPECT_EQ(kids.end, 24u);  // clamped to the parent's end, not 27
    EXPECT_FALSE(kids.valid());
}

// Random bytes, and mutations of a valid document (flipped bytes, cut or extended):
// probe, the header readers, a full tree walk and a map walk must terminate and stay
// inside the exact-size heap buffer (ASan reports any read outside it).
// A fixed linear congruential generator: the same inputs on every run.
struct Lcg {
    std::uint32_t state = 12345;
    std::uint32_t operator()() { return state = state * 1664525u + 1013904223u; }
};

std::vector<char> hostileInput(int round, const std::vector<char>& sample, Lcg& next) {
    if (round % 2 == 0) {
        std::vector<char> b(next() % 160);
        for (char& c : b) c = static_cast<char>(next() >> 24);
        if (b.size() >= 8) std::memcpy(b.data(), &MAGIC, 4);
        return b;
    }
    std::vector<char> b(sample.begin(), sample.end());
    for (unsigned int flips = next() % 4; flips > 0; --flips) b[next() % b.size()] = static_cast<char>(next() >> 24);
    // Half cut short, half whole or with trailing bytes.
    b.resize(next() % 2 ? next() % b.size() : b.size() + next() % 16, 0);
    return b;
}

TEST_F(Part21Hostile, RandomAndMutatedBytesAreProbedAndWalkedWithoutReadingOutside) {
    Doc d;
    buildSample(d);
    const std::vector<char> sample(d.bytes.begin(), d.bytes.begin() + 80);
    Lcg random;
    unsigned int framedDocuments = 0, deepWalks = 0, validEntries = 0;
    for (int round = 0; round < 4000; ++round) {
        const std::vector<char> b = hostileInput(round, sample, random);
        const unsigned int length = static_cast<unsigned int>(b.size());
        const unsigned int framed = Format::probe(b.data(), length);
        EXPECT_TRUE(framed == 0 || framed == NOT_BINARY || (framed >= 8 && framed <= length));
        framedDocuments += framed != 0 && framed != NOT_BINARY;
        if (length < 8) continue;
        const Format f(Arena::readOnlyView(b.data(), length));
        (void)f.size(MAP_MSG_VERSION);
        std::vector<Format::node_range> stack{f.root()};
        unsigned int visited = 0;
        while (!stack.empty() && visited < 1000) {
            const Format::node_range r = stack.back();
            stack.pop_back();
            if (!r.valid()) continue;
            ++visited;
            (void)r.node().tag();
            (void)r.node().data();
            stack.push_back(r.next());
            stack.push_back(r.children());
        }
        EXPECT_LT(visited, 1000u);
        deepWalks += visited > 1;
        const Format::map_type& map = f.map();
        for (unsigned int at = map.offset(); map.entryValid(at); ++validEntries)
            at += static_cast<unsigned int>(Node(f.arena(), at).size());
    }
    // The inputs get past the first checks, so the walks above really ran.
    EXPECT_GT(framedDocuments, 100u);
    EXPECT_GT(deepWalks, 100u);
    EXPECT_GT(validEntries, 100u);
}

}  // namespace
