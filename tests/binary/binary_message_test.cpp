// QKLBinary: the bytes it creates, holds and sends; the header fields' stored forms; received bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <random>

#include "binary/DocumentCheck.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/message/QKLMessageIterator.h"
#include "support/AssertCounter.h"

using namespace QKL;
using BinaryDoc::hex;
using B = QKLBinary;
using Message = auto_destroy<QKLBinary>;
using Iterator = std::unique_ptr<QKLMessageIterator>;
using Results = std::vector<int>;  // of calls in a braced list, which makes them in order

namespace {

std::string golden() { return BinaryDoc::fromHex(BinaryDoc::dataFile("message_sample.hex")); }
std::string held(const B& m) { return BinaryDoc::held(*m.internals()); }
int put(B& m, const char* text, int tag) { return Iterator(m.newIterator())->putValue(std::string(text), tag); }

template <class T>  // a getter as text: the value it read, or "fails"
std::function<std::string(B&)> of(int (B::*get)(T&) const) {
    return [get](B& m) { T v{}; std::ostringstream s; return (m.*get)(v) == 0 ? (s << v, s.str()) : "fails"; };
}

// message_sample.hex, built over stale memory: an erased long value leaves its bytes where nodes go next.
void fillSample(B& m) {
    ASSERT_EQ(Results(5), (Results{m.create(1398), m.setVersion(40500), m.setPriority(3), m.setUid("u-1"), m.saveChanges()}));
    Iterator it(m.newIterator());
    ASSERT_EQ(Results(3), (Results{it->putValue(std::string(300, '\xee'), 1001), it->seek(1001), it->deleteFromChild()}));
    ASSERT_EQ(Results(10), (Results{it->newChild(1307), it->putValue(42, 1002), it->putValue(std::string("text"), 1001),
                                    it->putValueDouble(2.5, 1005), it->putValueBase64(std::string("\1\2\0\3", 4), 1006),
                                    it->newChild(1400), it->putValue(std::string("inner"), 1026), it->seekUp(),
                                    it->newChild(std::string("custom_probe_name")), it->putValue(std::string("hello"), 0)}));
}

TEST(BinaryMessage, CreateHoldAndSerializeExactBytes) {
    const std::string sample = golden();
    Message m(new B);
    unsigned long length = 0;
    EXPECT_EQ(Results({-1, -1, 0}), (Results{m->serialize(nullptr, &length, nullptr), m->create("nonesuch"), m->create("packet")}));
    EXPECT_EQ("98 ba dc fe 00 00 00 02 76 05 00 00 32 00 00 00\n00 00 00 00 00 00 00 00", hex(held(*m)));
    fillSample(*m);
    EXPECT_EQ(hex(sample), hex(held(*m)));
    // Into the caller's buffer: the length asked first, then too short, exact, roomy.
    EXPECT_EQ(Results({-2, 280}), (Results{m->serialize(nullptr, &length, nullptr), int(length)}));
    for (const unsigned long room : {length - 1, length, length + 8}) {
        std::string buffer(room, 'Z');
        unsigned long size = room;
        EXPECT_EQ(Results({room < length ? -1 : 0, int(room < length ? room : length)}),
                  (Results{m->serialize(&buffer[0], &size, nullptr), int(size)}));
        EXPECT_EQ(room < length ? std::string(room, 'Z') : sample + std::string(room - length, 'Z'), buffer);
    }
    // The version text sets the message version, a received document's too; below 40000 a peer gets XML text.
    Message r(new B);
    std::string bytes(length, 'Z');
    ASSERT_EQ(Results(3), (Results{put(*m, "3.99.99", 101), m->serialize(&bytes[0], &length, nullptr), r->init(bytes.data(), 280)}));
    for (B* sender : {m.get(), r.get()}) {
        char* out = nullptr;
        int n = 0;
        ASSERT_EQ(0, sender->serialize(&out, &n, nullptr, 40500));
        EXPECT_EQ("<packet version=\"3.99.99\" " + std::to_string(n - 1), std::string(out, 26) + std::to_string(std::strlen(out)));
        std::free(out);
    }
    // Received under an iterator, a root becomes its node's last child: the sample's root behind its children.
    ASSERT_EQ(0, m->deserialize(sample.data(), 280, Iterator(m->newIterator()).get()));
    EXPECT_EQ(hex(sample.substr(8, 240)), hex(held(*m).substr(248, 240)));
}

// Each row writes twice, then reads the root's children with the tag and the getter. Caches wait for saveChanges.
TEST(BinaryMessage, HeaderFieldsAndTheirStoredForms) {
    const struct { int (*set)(B&); int tag; const char* stored; std::function<std::string(B&)> get; const char* read; } rows[] = {
        {[](B& m) { return m.setVersion(40203); }, 101, "2: 34 2e 32 2e 33 00;", of(&B::getVersion), "40203"},
        {[](B& m) { return m.setTimeoutLimit(-2); }, 108, "1: fe ff ff ff;", of(&B::getTimeoutLimit), "-2"},
        {[](B& m) { return m.setProgress(2); }, 106, "2: 6f 6e 00;", of(&B::getProgress), "1"},
        {[](B& m) { return m.setProgress(0); }, 106, "2: 6f 66 66 00;", of(&B::getProgress), "0"},
        {[](B& m) { return put(m, "ON", 106); }, 106, "2: 4f 4e 00;", of(&B::getProgress), "fails"},
        {[](B& m) { return m.setLog(-1); }, 110, "2: 6f 6e 00;", of(&B::getLog), "1"},
        {[](B& m) { return m.setTime(1700000000); }, 104,
         "6: 32 30 32 33 2d 31 31 2d 31 34 54 32 32 3a 31 33 3a 32 30 00;", of(&B::getTime), "1700000000"},
        {[](B& m) { return m.setSessionID("s-1"); }, 1748, "2: 73 2d 31 00;", of(&B::getSessionID), "s-1"},
        {[](B& m) { return m.setSession("cached"); }, 1748, "", of(&B::getSession), "cached"},
        {[](B& m) { return m.setID("the-id", false), m.saveChanges(); }, 102, "2: 74 68 65 2d 69 64 00;", of(&B::getID), "the-id"},
        {[](B& m) { return m.setID("unsaved", true), m.saveChanges(); }, 102, "", of(&B::getID), "unsaved"},
        {[](B& m) { return m.setUid("old"), m.saveChanges(), m.setUid("new"); }, 109, "2: 6f 6c 64 00;", of(&B::getUid), "new"},
        {[](B& m) { return m.setUid("u"), m.saveChanges(), m.resetHeaderData(), 0; }, 109, "2: 75 00;", of(&B::getUid), "fails"}};
    for (const auto& row : rows) {
        Message m(new B);
        ASSERT_EQ(Results(3), (Results{m->create("packet"), row.set(*m), row.set(*m)})) << row.read;
        std::string stored;
        for (const BinaryDoc::Tree& kid : BinaryDoc::read(*m->internals(), 8).kids)
            if (kid.tag == row.tag) stored += std::to_string(kid.type) + ": " + hex(kid.payload, 64) + ";";
        EXPECT_EQ(std::string(row.stored) + " read as " + row.read, stored + " read as " + row.get(*m));
    }
}

// `input` (in a heap block of its exact size) to init() and under an iterator of messages holding the sample:
// refused, the sample stays; adopted, exactly the framed bytes. All reads safely and is sent on. True if adopted.
bool receive(const std::string& input, const std::string& sample) {
    const QKLTest::AssertCounter quiet;
    std::unique_ptr<char[]> exact(new char[input.size()]);
    input.copy(exact.get(), input.size());
    const int n = int(input.size()), framed = B::isComplete(exact.get(), n);
    Message whole(new B), under(new B);
    EXPECT_EQ(Results(2), (Results{whole->init(sample.data(), 280), under->init(sample.data(), 280)}));
    const int adopted = whole->init(exact.get(), n);
    const int copied = under->deserialize(exact.get(), n, Iterator(under->newIterator()).get());
    EXPECT_TRUE(adopted == 0 || (adopted == -1 && copied != 0 && held(*under) == sample));
    EXPECT_EQ(hex(adopted == 0 ? input.substr(0, size_t(framed)) : sample), hex(held(*whole)));
    for (B* m : {whole.get(), under.get()}) {
        EXPECT_TRUE(BinaryDoc::wellFormed(*m->internals(), false));
        char* out = nullptr;
        int i = 0;
        std::free(m->toText(nullptr, "", 40500));
        const bool sent = m->serialize(&out, &i, nullptr, 40500) == 0 && m->internals()->format().version() == 2;
        EXPECT_TRUE(!sent || Message(new B)->init(out, i) == 0) << "an adopted document is not sent on";
        std::free(out);
    }
    EXPECT_TRUE(quiet.reports() == 0 || whole->internals()->format().empty()) << "reported";
    return adopted == 0;
}

// Cut at every length, followed by more bytes, one field lying (lying_fields.txt), seeded random mutations.
TEST(ReceivedBytes, AreRefusedWholeOrAdoptedAndReadSafely) {
    const std::string sample = golden();
    for (size_t n = 0; n < sample.size(); ++n) EXPECT_FALSE(receive(sample.substr(0, n), sample)) << "cut at " << n;
    for (const std::string& tail : {std::string(1, '\0'), std::string(99, '\xff'), sample})
        EXPECT_TRUE(receive(sample + tail, sample)) << tail.size() << " bytes behind";
    std::istringstream rows(BinaryDoc::dataFile("lying_fields.txt"));
    for (std::string line, at, bytes, adopted; std::getline(rows, line);) {
        std::istringstream fields(line);
        if (line[0] == '#' || !std::getline(std::getline(std::getline(fields, at, '|'), bytes, '|'), adopted, '|')) continue;
        bytes = BinaryDoc::fromHex(bytes);
        const std::string lie = std::string(sample).replace(std::stoul(at), bytes.size(), bytes);
        EXPECT_EQ(adopted.find('1') != std::string::npos, receive(lie, sample)) << line;
    }
    std::mt19937 rng(777);
    int adopted = 0;
    for (int round = 0; round < 1500 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::string bytes = sample;
        for (int edits = 1 + int(rng() % 4); edits > 0; --edits) {
            const size_t at = 4 + rng() % (bytes.size() - 4), width = rng() % 3 ? 1 : 4;  // the magic stays
            const std::uint32_t word = rng();
            bytes.replace(width == 1 ? at : at & ~size_t(3), width, reinterpret_cast<const char*>(&word), width);
        }
        if (rng() % 8 == 0) bytes.resize(bytes.size() - rng() % 16);
        if (rng() % 8 == 0) bytes.append(rng() % 16, char(rng()));
        adopted += receive(bytes, sample);
    }
    EXPECT_TRUE(adopted > 100 && adopted < 1400) << adopted;
    // An entry may name the lowest ID: then a new name gets none, rather than an ID counted past it.
    Message m(new B);
    ASSERT_EQ(0, m->init(std::string(sample).replace(248, 4, BinaryDoc::fromHex("00000080")).data(), 280));
    Iterator it(m->newIterator());
    EXPECT_EQ(Results({-1, 0}), (Results{it->newChild(std::string("brand_new_name")), it->newChild(std::string("alerts"))}));
}

}  // namespace

// From 40000 on a peer reads the binary document, below it XML text; and a message that takes a
// new document, in any of the three ways, forgets the names the old one gave its own IDs.
TEST(BinaryMessage, ThePeerVersionChoosesTheFormAndANewDocumentForgetsOldNames) {
    for (int way = 0; way < 3; ++way) {
        Message m(new B), other(new B);
        ASSERT_EQ(Results(2), (Results{m->create("packet"), other->create("packet")}));
        ASSERT_EQ(0, Iterator(m->newIterator())->putValue(std::string("v"), "x_private"));
        for (const auto& [peer, first] : {std::pair{39999, '<'}, {40000, '\x98'}, {40500, '\x98'}}) {
            char* out = nullptr;
            int n = 0;
            EXPECT_EQ(Results({0, first}), (Results{m->serialize(&out, &n, nullptr, peer), out ? out[0] : 0})) << peer;
            std::free(out);
        }
        ASSERT_EQ("x_private", m->internals()->idMap().findIDC(-2).str());
        const std::string bytes = held(*other);
        const int adopted = way == 0   ? m->fromText("<packet><origin>new</origin></packet>", nullptr)
                            : way == 1 ? m->init(bytes.data(), int(bytes.size()))
                                       : m->deserialize(bytes.data(), int(bytes.size()), nullptr);
        EXPECT_EQ(Results({0}), Results{adopted}) << way;
        EXPECT_EQ("", m->internals()->idMap().findIDC(-2).str()) << way;
    }
}
