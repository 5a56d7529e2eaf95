// Part 4.2: Per-document ID map. The "Edge cases worth testing" bullets come
// first (Part42EdgeCases, one TEST each), then the malformed map areas of
// Part 2.1, the deliberate quirks, decoding, moving buffers and the node pool.
#include "qkl/vocabulary/QKLProtocolIDMap.h"

#include <gtest/gtest.h>

#include <climits>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/QKLLookASide.h"

namespace {

using QKL::QKLBinaryInternals;
using QKL::QKLDefaultMap;
using QKL::QKLProtocolIDMap;
using QKL::Internal::CharArray;
namespace binary = QKL::binary;
typedef QKLProtocolIDMap::CharArrayEx CharArrayEx;

const QKLProtocolIDMap::IDType ELEMENT = QKLProtocolIDMap::ELEMENT;
const QKLProtocolIDMap::IDType NAMESPACE = QKLProtocolIDMap::NAMESPACE;
const QKLProtocolIDMap::IDType TYPE = QKLProtocolIDMap::TYPE;

CharArray text(const char* s) { return CharArray(s); }
std::string str(const CharArray& c) { return c.str(); }
int findStr(QKLBinaryInternals& doc, const char* name, QKLProtocolIDMap::IDType kind = ELEMENT) {
    return doc.idMap().findStr(text(name), &QKLDefaultMap::findElem, kind);
}
int findStrC(const QKLBinaryInternals& doc, const char* name) {
    return doc.idMap().findStrC(text(name), &QKLDefaultMap::findElem);
}

struct MapEntry { int tag; unsigned kind; std::string name; };

// The document's map area as written, newest entry first.
std::vector<MapEntry> mapEntries(const QKLBinaryInternals& doc) {
    std::vector<MapEntry> out;
    const binary::Format format = doc.format();
    const unsigned end = format.map().offset() + format.map().size();
    for (unsigned at = format.map().offset(); at < end; at += unsigned(binary::Node(format.arena(), at).size())) {
        const binary::Node node(format.arena(), at);
        out.push_back({node.tag(), node.type(), std::string(node.data(), node.dataSize() - 1)});
    }
    return out;
}

struct BlankDoc : QKLBinaryInternals {
    BlankDoc() { EXPECT_EQ(0, turnBlank()); }
};

// A root container 1398; the path stays on it.
QKL::BinaryPath withRoot(QKLBinaryInternals& doc) {
    QKL::BinaryPath path;
    EXPECT_EQ(0, doc.insert(path, 1398, binary::TYPE_CONTAINER, nullptr, 0, false));
    return path;
}

// QKLBinaryInternals::add2map with the name's own length.
int addEntry(QKLBinaryInternals& doc, int id, unsigned short kind, const char* name) {
    return doc.add2map(unsigned(id), kind, name, unsigned(std::strlen(name)));
}

std::vector<char> bytesOf(const QKLBinaryInternals& doc) { return {doc.buffer(), doc.buffer() + doc.used()}; }
bool adopt(QKLBinaryInternals& doc, const std::vector<char>& bytes) {
    return doc.copy(bytes.data(), int(bytes.size())) != nullptr;
}

void setMapUnits(char* doc, std::uint32_t units) {
    std::uint32_t word;
    std::memcpy(&word, doc + binary::FLAGS_OFFSET, 4);
    word = (word & ~(binary::MAP_LENGTH_MASK << binary::MAP_LENGTH_SHIFT)) | (units << binary::MAP_LENGTH_SHIFT);
    std::memcpy(doc + binary::FLAGS_OFFSET, &word, 4);
}

struct RawEntry { int tag; unsigned short kind; std::string name; };

// A foreign map area (no header): the entries packed in order.
std::vector<char> rawArea(const std::vector<RawEntry>& entries) {
    // Strides by nodeSize(2, ...), not Node::size(): a bare area has no header byte 7.
    std::vector<char> bytes;
    for (const RawEntry& e : entries) {
        const unsigned at = unsigned(bytes.size()), dataSize = unsigned(e.name.size() + 1);
        bytes.resize(at + binary::nodeSize(2, e.kind, dataSize), 0);
        binary::Node node(binary::Arena::writableView(bytes.data(), unsigned(bytes.size())), at);
        node.setTag(e.tag);
        node.setType(e.kind);
        node.setDataSize(dataSize);
        std::memcpy(bytes.data() + at + node.overhead(), e.name.c_str(), dataSize);
    }
    return bytes;
}

// header | root container 1398 (16 bytes) at 8 | `area` at 24, map length = area / 8.
std::vector<char> rawDocument(const std::vector<char>& area) {
    std::vector<char> bytes(24 + area.size(), 0);
    const binary::Arena arena = binary::Arena::writableView(bytes.data(), unsigned(bytes.size()));
    binary::Format format(arena, binary::FORMAT_VERSION);
    binary::Node(arena, 8).setTag(1398);
    binary::Node(arena, 8).setType(binary::TYPE_CONTAINER);
    format.setEmpty(false);
    std::memcpy(bytes.data() + 24, area.data(), area.size());
    setMapUnits(bytes.data(), unsigned(area.size() / 8));
    return bytes;
}

// Every look-up of a document whose map area is malformed answers 0 or the
// empty name, and nothing is assigned or written.
void expectUnreadable(QKLBinaryInternals& doc, const std::vector<int>& ids, const char* name) {
    const unsigned used = doc.used();
    const int next = doc.idMap().nextID();
    EXPECT_EQ(-1, doc.idMap().validate());
    for (int id : ids)
        EXPECT_TRUE(doc.idMap().findIDC(id).empty() && doc.idMap().findTypeIDC(id).empty()) << id;
    EXPECT_EQ(0, findStrC(doc, name));
    EXPECT_EQ(0, findStrC(doc, "packet"));
    EXPECT_EQ(0, findStr(doc, "brand_new"));
    EXPECT_EQ(0, findStr(doc, "packet"));
    EXPECT_EQ(0, findStr(doc, "brand_new_ns", NAMESPACE));
    EXPECT_EQ(used, doc.used());
    EXPECT_EQ(next, doc.idMap().nextID());
    // Still unreadable on a second look (no half-decoded state was kept).
    EXPECT_EQ(-1, doc.idMap().validate());
    for (int id : ids) EXPECT_TRUE(doc.idMap().findIDC(id).empty()) << id;
}

// A document holding a valid entry -5 walked before the entry -6 made bad by `spoil`.
template <typename Spoil>
void expectSpoiledUnreadable(Spoil spoil) {
    BlankDoc source;
    ASSERT_EQ(0, addEntry(source, -6, 0, "zq_bad"));
    ASSERT_EQ(0, addEntry(source, -5, 0, "zq_good"));  // 8 data bytes: 24 bytes long
    spoil(binary::Node(source.arena(), source.format().map().offset() + 24));
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, bytesOf(source)));
    expectUnreadable(doc, {-5, -6}, "zq_good");
}

// ---- Edge cases worth testing ----------------------------------------------------------------

// "The first unknown element name in a fresh document gets -2, the next unknown namespace
// gets 65533 (the counter, now -3, cut to 16 bits), the next unknown element -4."
TEST(Part42EdgeCases, FirstUnknownElementMinus2NextNamespace65533NextElementMinus4) {
    BlankDoc doc;
    EXPECT_EQ(QKLProtocolIDMap::BEGIN_ID, doc.idMap().nextID());
    EXPECT_EQ(-2, findStr(doc, "my_element"));
    EXPECT_EQ(65533, findStr(doc, "urn:my-namespace", NAMESPACE));
    EXPECT_EQ(-4, findStr(doc, "other_element"));
    EXPECT_EQ(-5, doc.idMap().nextID());
    EXPECT_EQ("my_element", str(doc.idMap().findIDC(-2)));
    EXPECT_EQ("urn:my-namespace", str(doc.idMap().findIDC(65533)));
    EXPECT_EQ("other_element", str(doc.idMap().findIDC(-4)));
    EXPECT_EQ(-2, findStr(doc, "my_element"));  // known now: same ID, no new entry
    const std::vector<MapEntry> entries = mapEntries(doc);
    ASSERT_EQ(3u, entries.size());
    EXPECT_TRUE(entries[0].tag == -4 && entries[1].tag == 65533 && entries[1].kind == 1 && entries[2].tag == -2);
}

// "A document whose map area holds an element entry with tag -7 makes the next new ID -8."
TEST(Part42EdgeCases, ElementEntryWithTagMinus7MakesNextNewIdMinus8) {
    BlankDoc source;
    ASSERT_EQ(0, addEntry(source, -7, 0, "zq_seven"));
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, bytesOf(source)));
    EXPECT_EQ(-8, findStr(doc, "a_new_name"));
    EXPECT_EQ("zq_seven", str(doc.idMap().findIDC(-7)));
    EXPECT_EQ(-9, doc.idMap().nextID());
}

// "`findStr` for a name in the element vocabulary returns its vocabulary ID, records the
// name under that ID in the map and the document, and does not consume a counter value."
TEST(Part42EdgeCases, FindStrOfVocabularyNameReturnsItsIdRecordsItAndConsumesNoCounterValue) {
    BlankDoc doc;
    EXPECT_EQ(1398, findStr(doc, "packet"));
    EXPECT_EQ(-2, doc.idMap().nextID());
    EXPECT_EQ(1398, doc.idMap().doFind(text("packet")));  // recorded in the map's index
    const std::vector<MapEntry> entries = mapEntries(doc);
    ASSERT_EQ(1u, entries.size());
    EXPECT_TRUE(entries[0].tag == 1398 && entries[0].kind == 0 && entries[0].name == "packet");
    EXPECT_EQ(8u + 24u, doc.used());  // 7 data bytes: a 24-byte entry
    EXPECT_EQ(-2, findStr(doc, "not_in_any_vocabulary"));
}

// "`findIDC(150)` yields the empty name; `findIDC(1398)` yields "packet" without decoding
// the document."
TEST(Part42EdgeCases, FindIDC150EmptyAndFindIDC1398PacketWithoutDecoding) {
    BlankDoc fresh;
    EXPECT_TRUE(fresh.idMap().findIDC(150).empty());
    EXPECT_EQ("packet", str(fresh.idMap().findIDC(1398)));
    // A malformed map area would fail any decode; the vocabulary answers first.
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, rawDocument(rawArea({{-5, 3, "zq_bad"}}))));
    EXPECT_EQ("packet", str(doc.idMap().findIDC(1398)));
    EXPECT_EQ("packet", str(doc.idMap().findID(1398)));
    EXPECT_TRUE(doc.idMap().findIDC(150).empty());
    EXPECT_EQ(-1, doc.idMap().validate());
}

// "A map entry with kind 3 makes every look-up on that document answer 0 or the empty name."
TEST(Part42EdgeCases, MapEntryWithKind3MakesEveryLookupAnswer0OrEmpty) {
    expectSpoiledUnreadable([](binary::Node bad) { bad.setType(3); });
}

// "Inserting an ID that is already mapped changes nothing and returns 0."
TEST(Part42EdgeCases, InsertingAnAlreadyMappedIdChangesNothingAndReturns0) {
    BlankDoc doc;
    ASSERT_EQ(-2, findStr(doc, "zq_first"));
    const unsigned used = doc.used();
    EXPECT_EQ(0, doc.idMap().insertID(CharArrayEx(text("zq_second")), -2, ELEMENT, true));
    EXPECT_EQ(used, doc.used());
    EXPECT_EQ("zq_first", str(doc.idMap().findIDC(-2)));
    EXPECT_EQ(0, doc.idMap().doFind(text("zq_second")));
    EXPECT_EQ(1u, mapEntries(doc).size());
    // A new ID goes in, and into the document.
    EXPECT_EQ(-50, doc.idMap().insertID(CharArrayEx(text("zq_fifty")), -50, ELEMENT, true));
    EXPECT_EQ("zq_fifty", str(doc.idMap().findIDC(-50)));
    EXPECT_EQ(2u, mapEntries(doc).size());
}

// "After a document copy, a new name added through the copy is not found through the first
// document."
TEST(Part42EdgeCases, AfterDocumentCopyNewNameThroughCopyNotFoundThroughFirst) {
    BlankDoc doc;
    ASSERT_EQ(-2, findStr(doc, "zq_shared"));
    QKLBinaryInternals copy(&doc);
    EXPECT_EQ(-3, findStr(copy, "only_copy"));
    EXPECT_EQ(0, findStrC(doc, "only_copy"));
    EXPECT_EQ(0, doc.idMap().doFind(text("only_copy")));
    EXPECT_TRUE(doc.idMap().findIDC(-3).empty());
    // And the other way round.
    EXPECT_EQ(-3, findStr(doc, "only_first"));
    EXPECT_EQ(0, findStrC(copy, "only_first"));
    EXPECT_EQ("only_copy", str(copy.idMap().findIDC(-3)));
    EXPECT_EQ(-2, findStrC(doc, "zq_shared"));
    EXPECT_EQ(-2, findStrC(copy, "zq_shared"));
}

// ---- Malformed map areas (Part 2.1) ------------------------------------------------------------

TEST(Part42Malformed, NonzeroNsMakesEveryLookupAnswer0OrEmpty) {
    expectSpoiledUnreadable([](binary::Node bad) { bad.setNs(1); });
}

TEST(Part42Malformed, DataSize0MakesEveryLookupAnswer0OrEmpty) {
    expectSpoiledUnreadable([](binary::Node bad) { bad.setDataSize(0); });
}

TEST(Part42Malformed, EntryRunningPastTheAreaMakesEveryLookupAnswer0OrEmpty) {
    // The total length is consistent (copy accepts it), but the entry claims 40 data bytes.
    std::vector<char> bytes = rawDocument(rawArea({{-5, 0, "zq_abc"}}));
    binary::Node(binary::Arena::writableView(bytes.data(), unsigned(bytes.size())), 24).setDataSize(40);
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, bytes));
    expectUnreadable(doc, {-5}, "zq_abc");
    EXPECT_EQ(0, doc.idMap().findStrInMsg(text("zq_abc")));
}

TEST(Part42Malformed, MapLengthClaimingMoreThanTheDocumentMakesEveryLookupAnswer0OrEmpty) {
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, rawDocument(rawArea({{-5, 0, "zq_abc"}}))));
    setMapUnits(doc.buffer(), 1000);  // 8000 bytes: past the used bytes and the capacity
    expectUnreadable(doc, {-5}, "zq_abc");
    setMapUnits(doc.buffer(), binary::MAP_LENGTH_MASK);
    expectUnreadable(doc, {-5}, "zq_abc");
}

TEST(Part42Malformed, DecodeOfForeignAreaRunningPastSizeFails) {
    BlankDoc doc;
    std::vector<char> area = rawArea({{-5, 0, "ok"}, {-6, 0, "zq_abc"}});
    binary::Node(binary::Arena::writableView(area.data(), unsigned(area.size())), 16).setDataSize(100);
    // Exactly sized heap copies, so that any read past the end is seen by the sanitizer.
    std::unique_ptr<char[]> exact(new char[area.size()]);
    std::memcpy(exact.get(), area.data(), area.size());
    EXPECT_EQ(-1, doc.idMap().decode(exact.get(), area.size()));
    EXPECT_TRUE(doc.idMap().findIDC(-5).empty());
    std::unique_ptr<char[]> shortHead(new char[8]);
    std::memcpy(shortHead.get(), area.data(), 8);
    EXPECT_EQ(-1, doc.idMap().decode(shortHead.get(), 8));
    EXPECT_EQ(-2, doc.idMap().nextID());
    EXPECT_EQ(8u, doc.used());
}

// ---- Constants and the type map ----------------------------------------------------------------

TEST(Part42Map, InvalidTagAndBeginId) {
    EXPECT_EQ("INVALID_TAG", QKLProtocolIDMap::INVALID_TAG.str());
    EXPECT_EQ(11u, QKLProtocolIDMap::INVALID_TAG.length());
    EXPECT_EQ(-2, QKLProtocolIDMap::BEGIN_ID);
}

TEST(Part42Map, TypeNamesResolveThroughFindTypeIDC) {
    BlankDoc doc;
    EXPECT_EQ("packet_headerType", str(doc.idMap().findTypeIDC(236)));
    const int id = doc.idMap().findStr(text("myComplexType"), &QKLDefaultMap::findType, TYPE);
    EXPECT_EQ(65534, id);
    EXPECT_EQ("myComplexType", str(doc.idMap().findTypeIDC(id)));
    EXPECT_EQ("myComplexType", str(doc.idMap().findTypeID(id)));
    EXPECT_TRUE(doc.idMap().findIDC(id).empty());  // element/namespace IDs are another space
    ASSERT_EQ(1u, mapEntries(doc).size());
    EXPECT_EQ(2u, mapEntries(doc)[0].kind);
    // Found again through the name index: no second entry, in whatever kind it is asked.
    EXPECT_EQ(id, doc.idMap().findStr(text("myComplexType"), &QKLDefaultMap::findType, TYPE));
    EXPECT_EQ(id, doc.idMap().findStr(text("myComplexType"), &QKLDefaultMap::findElem, ELEMENT));
    EXPECT_EQ(1u, mapEntries(doc).size());
    EXPECT_EQ(-3, doc.idMap().nextID());
}

// ---- Deliberate quirks ---------------------------------------------------------------------------

int g_defaultCalls = 0;
int countingLookup(const CharArray&) { return ++g_defaultCalls, 4242; }

// Deliberate: "the default look-up argument is not called".
TEST(Part42Quirks, DefaultLookupArgumentIsNeverCalled) {
    BlankDoc doc;
    g_defaultCalls = 0;
    EXPECT_EQ(0, doc.idMap().findStrC(text("unknown_name"), &countingLookup));
    EXPECT_EQ(-2, doc.idMap().findStr(text("unknown_name"), &countingLookup, ELEMENT));
    EXPECT_EQ(1398, doc.idMap().findStr(text("packet"), &countingLookup, TYPE));
    EXPECT_EQ(-2, doc.idMap().findStrC(text("unknown_name"), &countingLookup));
    EXPECT_EQ(0, g_defaultCalls);
}

// Deliberate: "a type name is never matched against the type vocabulary here".
TEST(Part42Quirks, TypeVocabularyNameGetsANewPerDocumentTypeId) {
    BlankDoc doc;
    EXPECT_EQ(236, QKLDefaultMap::findType(text("packet_headerType")));
    EXPECT_EQ(65534, doc.idMap().findStr(text("packet_headerType"), &QKLDefaultMap::findType, TYPE));
    EXPECT_EQ(-3, doc.idMap().nextID());
    EXPECT_EQ("packet_headerType", str(doc.idMap().findTypeIDC(65534)));
}

// "findStrC ... never assigns".
TEST(Part42Quirks, FindStrCNeverAssigns) {
    BlankDoc doc;
    EXPECT_EQ(0, findStrC(doc, "unknown_name"));
    EXPECT_EQ(1398, findStrC(doc, "packet"));
    EXPECT_EQ(8u, doc.used());
    EXPECT_EQ(-2, doc.idMap().nextID());
    EXPECT_EQ(0, doc.idMap().doFind(text("packet")));
    EXPECT_EQ(-2, findStr(doc, "unknown_name"));
}

// ---- Decoding --------------------------------------------------------------------------------------

TEST(Part42Decode, FindStrInMsgFindsANameInTheMapAreaAndDoFindAfterDecode) {
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, rawDocument(rawArea({{-4, 0, "zq_aaa"}, {-5, 0, "zzz_custom"}}))));
    EXPECT_EQ(0, doc.idMap().doFind(text("zzz_custom")));  // nothing decoded yet
    EXPECT_EQ(-5, doc.idMap().findStrInMsg(text("zzz_custom")));
    EXPECT_EQ(-5, doc.idMap().doFind(text("zzz_custom")));
    EXPECT_EQ(0, doc.idMap().findStrInMsg(text("zzz")));
    QKLBinaryInternals other;
    ASSERT_TRUE(adopt(other, bytesOf(doc)));
    EXPECT_EQ(0, other.idMap().validate());
    EXPECT_EQ(-5, other.idMap().doFind(text("zzz_custom")));
    EXPECT_EQ(-4, findStrC(other, "zq_aaa"));
    EXPECT_EQ("zzz_custom", str(other.idMap().findIDC(-5)));
}

TEST(Part42Decode, LazyDecodeHappensOnceAndRebuildsTheCounter) {
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, rawDocument(rawArea({{65530, 1, "urn:ns"}, {100, 1, "zq_low"}}))));
    EXPECT_EQ(-2, doc.idMap().nextID());  // not decoded yet
    EXPECT_EQ(0, doc.idMap().validate());
    EXPECT_EQ(-7, doc.idMap().nextID());  // 65530 is -6 in 16 bits
    EXPECT_EQ("urn:ns", str(doc.idMap().findIDC(65530)));
    // Decoded once: an entry written behind the map's back is not read again ...
    ASSERT_EQ(0, addEntry(doc, -9, 0, "zq_late"));
    EXPECT_EQ(0, doc.idMap().validate());
    EXPECT_TRUE(doc.idMap().findIDC(-9).empty());
    // ... though the scan of the area sees it.
    EXPECT_EQ(-9, doc.idMap().findStrInMsg(text("zq_late")));
    EXPECT_EQ(-7, findStr(doc, "next_element"));

    QKLBinaryInternals mixed;
    ASSERT_TRUE(adopt(mixed, rawDocument(rawArea({{-3, 0, "e"}, {65000, 2, "t"}, {-10, 1, "n"}}))));
    EXPECT_EQ(0, mixed.idMap().validate());
    EXPECT_EQ(-537, mixed.idMap().nextID());  // 65000 is -536; a negative namespace tag is ignored
    EXPECT_EQ("t", str(mixed.idMap().findTypeIDC(65000)));
    EXPECT_EQ("n", str(mixed.idMap().findIDC(-10)));
}

// Found by fuzz/fuzz_document.cpp: a received entry with the lowest element ID
// used to overflow the counter ("next ID = tag - 1").
TEST(Part42Decode, EntryWithTheLowestIDLeavesNoNewIDsInsteadOfOverflowing) {
    QKLBinaryInternals doc;
    ASSERT_TRUE(adopt(doc, rawDocument(rawArea({{INT_MIN, 0, "lowest"}}))));
    EXPECT_EQ(0, doc.idMap().validate());
    EXPECT_EQ("lowest", str(doc.idMap().findIDC(INT_MIN)));
    EXPECT_EQ(0, findStr(doc, "one_more"));  // no ID left to give
    EXPECT_EQ(1398, findStr(doc, "packet"));  // vocabulary names still resolve
}

TEST(Part42Decode, ForeignAreaFreshIsNotWrittenLaterIsWrittenToTheDocument) {
    BlankDoc doc;
    const std::vector<char> area = rawArea({{-5, 0, "zq_five"}, {65520, 2, "typ"}});
    EXPECT_EQ(0, doc.idMap().decode(area.data(), area.size()));
    EXPECT_EQ(8u, doc.used());
    EXPECT_EQ(-17, doc.idMap().nextID());
    EXPECT_EQ("zq_five", str(doc.idMap().findIDC(-5)));
    {
        const std::vector<char> more = rawArea({{-30, 0, "zq_thirty"}, {-5, 0, "zq_dup"}});
        EXPECT_EQ(0, doc.idMap().decode(more.data(), more.size()));
    }  // the foreign bytes are gone; the name lives in the document now
    EXPECT_EQ("zq_thirty", str(doc.idMap().findIDC(-30)));
    EXPECT_EQ("zq_five", str(doc.idMap().findIDC(-5)));
    ASSERT_EQ(1u, mapEntries(doc).size());
    EXPECT_EQ(-30, mapEntries(doc)[0].tag);
    EXPECT_EQ(-17, doc.idMap().nextID());  // not fresh: the counter is left alone
}

// Decoding the document's own area again must not append its own entries to it
// (nor read the area through a buffer that the append moved).
TEST(Part42Decode, RedecodeOfOwnAreaWritesNothing) {
    BlankDoc doc;
    QKL::BinaryPath path = withRoot(doc);
    ASSERT_EQ(-2, findStr(doc, "zq_first"));
    ASSERT_EQ(0, addEntry(doc, -9, 0, "zq_late"));
    // Fill the buffer so that any further entry moves it.
    const unsigned room = unsigned(doc.capacity()) - 8 - doc.used();
    const std::string filler(room - 12, 'x');
    ASSERT_EQ(0, doc.insert(path, 1001, binary::TYPE_STRING, filler.data(), int(filler.size()), false));
    ASSERT_EQ(unsigned(doc.capacity()) - 8, doc.used());
    const unsigned used = doc.used();
    EXPECT_EQ(0, doc.idMap().decode(nullptr, 0));
    EXPECT_EQ(used, doc.used());
    EXPECT_EQ(2u, mapEntries(doc).size());
    EXPECT_EQ("zq_late", str(doc.idMap().findIDC(-9)));
    EXPECT_EQ("zq_first", str(doc.idMap().findIDC(-2)));
}

// ---- Moving buffers --------------------------------------------------------------------------------

TEST(Part42Names, CharArrayExNamesSurviveBufferReallocation) {
    BlankDoc doc;
    QKL::BinaryPath path = withRoot(doc);
    ASSERT_EQ(-2, findStr(doc, "zq_survivor"));
    ASSERT_EQ(65533, findStr(doc, "urn:survivor", NAMESPACE));
    const int startCapacity = doc.capacity();
    const std::string big(6000, 'v');
    for (int i = 0; i < 12; ++i) {
        ASSERT_EQ(0, doc.insert(path, 1001, binary::TYPE_STRING, big.data(), int(big.size()), true));
        path.pop();
    }
    EXPECT_GE(doc.capacity(), startCapacity * 16);  // grew several times
    const CharArray name = doc.idMap().findIDC(-2);
    EXPECT_EQ("zq_survivor", str(name));
    EXPECT_GE(name.ptr(), doc.buffer());
    EXPECT_LT(name.ptr(), doc.buffer() + doc.used());
    EXPECT_EQ("urn:survivor", str(doc.idMap().findIDC(65533)));
    EXPECT_EQ(-2, findStrC(doc, "zq_survivor"));
    EXPECT_EQ(-4, findStr(doc, "after_growth"));
    EXPECT_EQ("after_growth", str(doc.idMap().findIDC(-4)));
}

TEST(Part42Names, SetDocRepointsNames) {
    std::unique_ptr<QKLBinaryInternals> doc(new QKLBinaryInternals);
    ASSERT_EQ(0, doc->turnBlank());
    ASSERT_EQ(-2, findStr(*doc, "zq_moved"));
    ASSERT_EQ(65533, doc->idMap().findStr(text("movedType"), &QKLDefaultMap::findType, TYPE));
    QKLBinaryInternals copy(doc.get());  // the copy constructor calls setDoc
    QKLProtocolIDMap map(doc->idMap());
    map.setDoc(&copy);
    EXPECT_EQ(&copy, map.document());
    doc.reset();  // only the copy's bytes remain
    const QKLProtocolIDMap* maps[] = {&copy.idMap(), &map};
    for (const QKLProtocolIDMap* m : maps) {
        const CharArray name = m->findIDC(-2);
        EXPECT_EQ("zq_moved", str(name));
        EXPECT_GE(name.ptr(), copy.buffer());
        EXPECT_LT(name.ptr(), copy.buffer() + copy.used());
        EXPECT_EQ("movedType", str(m->findTypeIDC(65533)));
    }
}

// New names are recorded readable (ns 0) even where the map area opens over stale
// bytes: here those of an erased child that had namespace 205.
TEST(Part42Names, NameRecordedOverStaleBytesIsReadableByAReceiver) {
    BlankDoc doc;
    QKL::BinaryPath path = withRoot(doc);
    path.namespaces.push_back(205);
    ASSERT_EQ(0, doc.insert(path, 1001, binary::TYPE_ELEMENT, nullptr, 0, false));
    ASSERT_EQ(0, doc.erase(path));
    ASSERT_EQ(-2, findStr(doc, "zq_after_erase"));
    ASSERT_EQ(1u, mapEntries(doc).size());
    EXPECT_EQ(0, binary::Node(doc.arena(), doc.format().map().offset()).ns());
    QKLBinaryInternals received;
    ASSERT_TRUE(adopt(received, bytesOf(doc)));
    EXPECT_EQ(0, received.idMap().validate());
    EXPECT_EQ("zq_after_erase", str(received.idMap().findIDC(-2)));
}

// ---- The node pool -----------------------------------------------------------------------------------

// The free list the ID maps' nodes go to, found through the node type std::map allocates.
std::size_t (*g_idMapSideListSize)() = nullptr;
template <std::size_t N> std::size_t sideListSize() { return QKL::QKLSideList<N>::instance().size(); }
template <typename T> struct NodeProbe : std::allocator<T> {
    template <typename U> struct rebind { typedef NodeProbe<U> other; };
    NodeProbe() = default;
    template <typename U> NodeProbe(const NodeProbe<U>&) {}
    T* allocate(std::size_t n) {
        g_idMapSideListSize = &sideListSize<sizeof(T)>;
        return std::allocator<T>::allocate(n);
    }
};
std::size_t idMapFreeNodes() {
    std::map<int, CharArrayEx, std::less<int>, NodeProbe<std::pair<const int, CharArrayEx>>> probe;
    probe.emplace(1, CharArrayEx());
    return g_idMapSideListSize();
}

TEST(Part42Pool, DestroyedMapNodesGoToTheFreeListUpTo40960) {
    const std::size_t before = idMapFreeNodes();
    const std::size_t n = before + 10;
    std::vector<std::string> names(n);
    {
        QKLProtocolIDMap map;
        for (std::size_t i = 0; i < n; ++i) {
            names[i] = "n" + std::to_string(i);
            ASSERT_EQ(-int(i) - 10, map.insertID(CharArrayEx(text(names[i].c_str())), -int(i) - 10, ELEMENT, false));
        }
        EXPECT_EQ(0u, idMapFreeNodes());
    }
    EXPECT_EQ(n, idMapFreeNodes());
    {
        QKLProtocolIDMap map;
        for (int i = 0; i < 41000; ++i) map.insertID(CharArrayEx(text("x")), -i - 10, i % 2 ? TYPE : ELEMENT, false);
    }
    EXPECT_EQ(QKL::SIDE_LIST_KEPT, idMapFreeNodes());
    EXPECT_EQ(40960u, QKL::SIDE_LIST_KEPT);
}

TEST(Part42Pool, LookASideAllocateAndDeallocateSingleNodes) {
    struct Odd { char bytes[136]; };
    QKL::QKLLookASide<Odd> allocator;
    const std::size_t before = QKL::QKLSideList<sizeof(Odd)>::instance().size();
    Odd* p = allocator.allocate(1);
    ASSERT_NE(nullptr, p);
    std::memset(p->bytes, 0x5a, sizeof p->bytes);
    allocator.deallocate(p, 1);
    EXPECT_EQ(before + 1, QKL::QKLSideList<sizeof(Odd)>::instance().size());
    Odd* again = allocator.allocate(1);
    EXPECT_EQ(p, again);  // the last freed node comes back first
    allocator.deallocate(again, 1);
}

TEST(Part42Pool, TwoThreadsCreatingAndDestroyingIdMaps) {
    idMapFreeNodes();  // the list exists before the threads start
    auto work = [](int seed) {
        for (int round = 0; round < 50; ++round) {
            QKLBinaryInternals doc;
            if (doc.turnBlank() != 0) return;
            for (int i = 0; i < 5; ++i) {
                const std::string name = "t" + std::to_string(seed) + "_" + std::to_string(i);
                if (findStr(doc, name.c_str()) != -2 - i) ADD_FAILURE() << name;
            }
            QKLBinaryInternals copy(&doc);
            findStr(copy, "in_copy");
        }
    };
    std::thread a(work, 1), b(work, 2);
    a.join();
    b.join();
    EXPECT_LE(idMapFreeNodes(), QKL::SIDE_LIST_KEPT);
}

}  // namespace
