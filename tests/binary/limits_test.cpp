// The limits of qkl/binary/Limits.h, each just inside and just outside: outside, the call fails and the
// document keeps its bytes, its capacity and its change counter (so iterators on it stay valid).
// The depth and element-name limits of the text form are pinned in tests/text, the path segment in
// tests/data/binary/iterator/moves.txt.
#include <sys/mman.h>

#include <climits>
#include <cstring>
#include <functional>
#include <utility>

#include "binary/PacketDoc.h"

using namespace QKL;
using namespace QKL::binary;

namespace {

std::string state(const QKLBinaryInternals& d) {
    return std::to_string(std::hash<std::string>()(BinaryDoc::held(d))) + " in " + std::to_string(d.used()) + " of " +
           std::to_string(d.capacity()) + " bytes, counter " + std::to_string(d.changeCounter());
}

// No request, however it comes, takes the buffer past MAX_DOCUMENT_LENGTH, and a refused one leaves
// even the plain element it was to go under as it was. Reaching the limit maps memory it never touches.
TEST(DocumentLimits, TheBufferGrowsToTheLargestDocumentAndNoFurther) {
    QKLTest::AssertCounter asserts;  // a refusal here is no misuse: none is reported
    QKLBinaryInternals d;
    BinaryPath p;
    ASSERT_EQ(0, d.turnBlank());
    ASSERT_EQ(0, d.insert(p, 1398, TYPE_ELEMENT, nullptr, 0, false));  // a root without value: no container yet
    const int room = int(Limits::MAX_DOCUMENT_LENGTH) - d.capacity();  // the most one request may add
    const std::pair<const char*, std::function<bool()>> refused[] = {
        {"one byte more, rounded up to a whole step", [&] { return d.expand(room + 1, false) == nullptr; }},
        {"a node of room + 16 bytes", [&] { return d.insert(p, 1008, TYPE_STRING, nullptr, room, false) == -1; }},
        {"a node whose size passes 2^31", [&] { return d.insert(p, 1008, TYPE_STRING, nullptr, INT_MAX, true) == -1; }},
        {"a value resized past 2^31", [&] { return d.setContent(p, TYPE_BASE64, nullptr, INT_MAX, false) == -1; }},
        {"a map entry past 2^32", [&] { return d.add2map(unsigned(-2), 0, "x", UINT_MAX - 1) == -1; }}};
    const std::string before = state(d);
    for (const auto& [what, call] : refused) {
        EXPECT_TRUE(call()) << what;
        EXPECT_EQ(before, state(d)) << what;
    }
    ASSERT_NE(nullptr, d.expand(room, false));
    EXPECT_EQ(INT_MAX - 4095, d.capacity());  // 2^31 - 4096: whole growth steps only
    const std::string full = state(d);
    const int left = int(Limits::MAX_DOCUMENT_LENGTH - d.used());
    EXPECT_NE(nullptr, d.expand(left - 1, false));  // still fits: no growth
    EXPECT_EQ(nullptr, d.expand(left, false));      // would fill it: the doubling is refused
    EXPECT_EQ(full, state(d));
    EXPECT_EQ(0u, asserts.reports());
}

// A received document of MAX_RECEIVED_LENGTH bytes is framed, and so is one 8 bytes longer, so that the
// stream stays in step; but no message takes the longer one. The bytes are mapped, never written but
// for the header, so they cost no memory (adopting 2 GiB would).
TEST(DocumentLimits, AReceivedDocumentPastTheLargestIsFramedButRefused) {
    const size_t span = size_t(Limits::MAX_RECEIVED_LENGTH) + 4096;
    void* mapped = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, mapped);
    char* bytes = static_cast<char*>(mapped);
    for (const unsigned int length : {Limits::MAX_RECEIVED_LENGTH, Limits::MAX_RECEIVED_LENGTH + 8}) {
        // Header (a root, format version 2), then the root: element 1008, type 0, text up to the end.
        const std::uint32_t head[] = {MAGIC, 0x02000000u, 1008, 0, length - 20};
        std::memcpy(bytes, head, sizeof head);
        EXPECT_EQ(int(length), QKLBinary::isComplete(bytes, int(length)));
        const bool past = length > Limits::MAX_RECEIVED_LENGTH;  // adopting the other would copy 2 GiB
        auto_destroy<QKLMessage> received(past ? QKLMsgFactory::createNew(bytes, int(length)) : nullptr);
        EXPECT_EQ(nullptr, received.get());
    }
    munmap(mapped, span);
}

// The map area holds MAX_MAP_LENGTH bytes, its 21-bit length field full. A new name whose entry still
// fits gets its ID; one that would pass the field gets none (the field would wrap and cut the area
// short), and the document stays as it was. A document with a full map area travels like any other.
TEST(DocumentLimits, TheMapAreaStopsWhereItsLengthFieldIsFull) {
    const struct { unsigned int filler; const char* name; int result; } rows[] = {
        {Limits::MAX_MAP_LENGTH - 16, "q", 0},       // a 16-byte entry fills the field exactly
        {Limits::MAX_MAP_LENGTH - 16, "qqqqq", -1},  // a 24-byte one passes it
        {Limits::MAX_MAP_LENGTH, "q", -1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.name) + " behind " + std::to_string(row.filler) + " bytes");
        QKLTest::PacketDoc doc;
        QKLBinaryInternals& d = *doc.msg->internals();
        const std::string zeros(row.filler - 20, '\0');  // a filler entry whose name has no text to index
        ASSERT_EQ(0, d.add2map(unsigned(-2), MAP_KIND_ELEMENT, zeros.data(), unsigned(zeros.size())));
        const std::string before = state(d);
        EXPECT_EQ(row.result, doc.it->newChild(row.name));
        if (row.result != 0) {
            EXPECT_EQ(before, state(d));
            continue;
        }
        EXPECT_EQ(Limits::MAX_MAP_LENGTH, d.format().map().size());
        const std::string bytes = doc.bytes();
        auto_destroy<QKLBinary> received(new QKLBinary);
        ASSERT_EQ(0, received->init(bytes.data(), int(bytes.size())));
        EXPECT_TRUE(bytes == BinaryDoc::held(*received->internals()));
    }
}

// An element without a value takes a complex type alike from the iterator and from the XML reader's
// xsi:type (the same names are recorded in the same order): the two documents are the same bytes.
TEST(ComplexTypes, AnEmptyElementTakesItsTypeAlikeFromTheIteratorAndTheReader) {
    const std::string root = "<packet xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";
    auto_destroy<QKLBinary> read(new QKLBinary), built(new QKLBinary);
    ASSERT_EQ(0, read->fromText((root + "><x_leaf xmlns:t=\"urn:t\" xsi:type=\"t:T\"/></packet>").c_str(), nullptr));
    ASSERT_EQ(0, built->fromText((root + "/>").c_str(), nullptr));
    std::unique_ptr<QKLMessageIterator> at(built->newIterator());
    ASSERT_EQ(0, at->newChild("x_leaf"));
    ASSERT_EQ(0, at->setComplexType("urn:t", "T"));
    EXPECT_EQ("urn:t:T", at->curType());
    using BinaryDoc::held;
    EXPECT_EQ(BinaryDoc::hex(held(*read->internals())), BinaryDoc::hex(held(*built->internals())));
}

}  // namespace
