// The per-document ID map: names outside the vocabularies get IDs counting down
// from -2 and are recorded in the document's map area for its receivers.
#include "qkl/vocabulary/QKLProtocolIDMap.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>

#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

using namespace QKL;

// Kept on purpose: the default look-up passed in is never called (so the look-ups here pass one
// that counts its calls); the element and namespace vocabularies are asked whatever the kind
// (0 element, 1 namespace, 2 type).
static int g_defaultCalls = 0;
static int counting(const Internal::CharArray&) { return ++g_defaultCalls, 4242; }
static int findStr(QKLBinaryInternals& doc, const char* name, int kind = 0) {
    return doc.idMap().findStr(Internal::CharArray(name), &counting, static_cast<QKLProtocolIDMap::IDType>(kind));
}
static int findStrC(const QKLBinaryInternals& doc, const char* name) {
    return doc.idMap().findStrC(Internal::CharArray(name), &counting);
}
static std::string nameOf(const QKLBinaryInternals& doc, int id, bool type = false) {
    return (type ? doc.idMap().findTypeIDC(id) : doc.idMap().findIDC(id)).str();
}

// A document as received: these map entries (the last one first in the area), nothing decoded yet.
struct Entry { int tag; unsigned short kind; const char* name; };
static void receive(QKLBinaryInternals& doc, std::initializer_list<Entry> entries) {
    ASSERT_EQ(0, doc.turnBlank());
    for (const Entry& e : entries)
        ASSERT_EQ(0, doc.add2map(unsigned(e.tag), e.kind, e.name, unsigned(std::strlen(e.name))));
}

TEST(PerDocumentIds, OneCounterForEveryKindCutTo16BitsForNamespacesAndTypes) {
    QKLBinaryInternals doc;
    ASSERT_EQ(0, doc.turnBlank());
    // A known name keeps its ID; a vocabulary name is recorded too (on purpose), under its own ID.
    const struct { const char* name; int kind, id; } rows[] = {
        {"my_element", 0, -2}, {"urn:my-ns", 1, 65533}, {"other", 0, -4}, {"myType", 2, 65531},
        {"my_element", 0, -2}, {"packet", 0, 1398}, {"third", 0, -6}};
    for (const auto& row : rows) EXPECT_EQ(row.id, findStr(doc, row.name, row.kind)) << row.name;
    EXPECT_EQ(6 * 24u, doc.format().map().size());  // 24 bytes an entry: "my_element" once, "packet" too
    QKLBinaryInternals received;  // reads every name under its ID and kind
    ASSERT_NE(nullptr, received.copy(doc.buffer(), int(doc.used())));
    for (const auto& row : rows) EXPECT_EQ(row.name, nameOf(received, row.id, row.kind == 2)) << row.name;
    EXPECT_EQ(-7, findStr(doc, std::string(5000, 'n').c_str()));  // moves the buffer: names are found in the new one
    EXPECT_EQ("my_element myType", nameOf(doc, -2) + " " + nameOf(doc, 65531, true));
    ASSERT_EQ(0, doc.add2map(unsigned(-9), 0, "late", 4));  // behind the map's back: decoding again appends nothing
    const unsigned int used = doc.used();
    EXPECT_TRUE(doc.idMap().decode(nullptr, 0) == 0 && used == doc.used() && nameOf(doc, -9) == "late");
}

TEST(ReceivedMapArea, NewIdsContinueBelowEveryIdSeen) {
    const struct { Entry entry; int next; } rows[] = {
        {{-7, 0, "e"}, -8}, {{65530, 1, "n"}, -7}, {{65000, 2, "t"}, -537}, {{-10, 1, "n"}, -2}, {{5000, 1, "n"}, -2},
        {{3000, 0, "e"}, -2}, {{INT_MIN, 0, "lowest"}, 0}};  // found by fuzzing: the counter wrapped; now none is left
    for (const auto& r : rows) {
        QKLBinaryInternals doc;
        receive(doc, {r.entry});
        EXPECT_EQ(r.next, findStr(doc, "fresh_name")) << r.entry.tag;
        EXPECT_TRUE(findStr(doc, "packet") == 1398 && findStr(doc, "second") == r.next - (r.next != 0)) << r.entry.tag;
        EXPECT_EQ(r.entry.name, nameOf(doc, r.entry.tag, r.entry.kind == 2)) << r.entry.tag;
    }
}

TEST(ReceivedMapArea, OneMalformedEntryMakesEveryLookUpAnswerNothing) {
    // 16 bits written into the area {-5 "good" at 8, -6 "bad" at 32}: the second entry's kind, ns or
    // data size, or the header's map length (bits 3-15 at 4; 5 units of 8 bytes, bit 0 "empty" set).
    const struct { const char* what; unsigned at; std::uint16_t value; } rows[] = {
        {"kind 3", 36, 3}, {"nonzero ns", 38, 1}, {"data size 0", 40, 0}, {"entry past the area", 40, 40},
        {"area one unit short", 4, 4 << 3 | 1}, {"area past the document", 4, 0xFFF9}};
    for (const auto& row : rows) {
        QKLBinaryInternals doc;
        receive(doc, {{-6, 0, "bad"}, {-5, 0, "good"}});
        std::memcpy(doc.buffer() + row.at, &row.value, 2);
        for (int pass = 0; pass < 2; ++pass) {  // the entries before the bad one are not kept either
            EXPECT_EQ(-1, doc.idMap().validate()) << row.what;
            EXPECT_EQ("", nameOf(doc, -5) + nameOf(doc, -6) + nameOf(doc, -5, true)) << row.what;
            EXPECT_EQ(0, findStrC(doc, "good") | findStrC(doc, "packet") | findStr(doc, "packet") |
                             findStr(doc, "new") | findStr(doc, "urn:new", 1)) << row.what;
        }
        EXPECT_EQ("packet", nameOf(doc, 1398)) << row.what;  // vocabulary IDs answer before any decoding
        EXPECT_EQ(48u, doc.used()) << row.what;  // nothing recorded
    }
}

// Kept on purpose (with the default look-up never called): a type name gets a per-document ID,
// callers ask QKLDefaultMap::findType first; findStrC never assigns.
TEST(IdMapQuirks, DefaultLookUpIgnoredAndFindStrCNeverAssigns) {
    QKLBinaryInternals doc;
    ASSERT_EQ(0, doc.turnBlank());
    EXPECT_TRUE(findStrC(doc, "unknown_name") == 0 && findStrC(doc, "packet") == 1398 && doc.used() == 8);
    EXPECT_EQ(65534, findStr(doc, "packet_headerType", 2));
    EXPECT_EQ(1398, findStr(doc, "packet", 2));
    EXPECT_EQ(0, g_defaultCalls);  // here, or in any test before
    const unsigned int used = doc.used();  // an ID already mapped: 0, and nothing changes
    EXPECT_EQ(0, doc.idMap().insertID(QKLProtocolIDMap::CharArrayEx(Internal::CharArray("other")), 65534, 2, true));
    EXPECT_TRUE(used == doc.used() && nameOf(doc, 65534, true) == "packet_headerType");
}

TEST(DocumentCopies, ShareNamesUntilOneWritesEitherWay) {
    std::unique_ptr<QKLBinaryInternals> doc(new QKLBinaryInternals);
    ASSERT_EQ(0, doc->turnBlank());
    ASSERT_EQ(-2, findStr(*doc, "shared"));
    QKLBinaryInternals copy(doc.get());
    EXPECT_EQ(-3, findStr(copy, "only_copy"));
    EXPECT_EQ(0, findStrC(*doc, "only_copy"));
    EXPECT_EQ(-3, findStr(*doc, "only_first"));
    EXPECT_EQ(0, findStrC(copy, "only_first"));
    doc.reset();  // the copy's names are in its own buffer
    EXPECT_EQ("only_copy shared", nameOf(copy, -3) + " " + nameOf(copy, -2));
}

// The name index holds one node per character: a peer's million-character name must neither
// overflow the stack when the index is built, copied by a writing sharer, and released.
TEST(ReceivedMapArea, AMillionCharacterNameIsIndexedCopiedAndReleased) {
    const std::string name(1000000, 'n');
    QKLBinaryInternals doc;
    receive(doc, {{-2, 0, name.c_str()}});
    EXPECT_EQ(-2, findStrC(doc, name.c_str()));
    QKLBinaryInternals copy(&doc);
    EXPECT_EQ(-3, findStr(copy, (name + "x").c_str()));
    EXPECT_EQ(-2, findStrC(copy, name.c_str()));
}

TEST(NodePool, KeepsAtMost40960FreeNodes) {
    struct Block { char bytes[200]; };  // a size no ID map node has
    QKLLookASide<Block> pool;
    std::vector<Block*> blocks(SIDE_LIST_KEPT + 10);
    for (Block*& block : blocks) block = pool.allocate(1);
    for (Block* block : blocks) pool.deallocate(block, 1);
    EXPECT_EQ(40960u, QKLSideList<sizeof(Block)>::instance().size());
}
