// Subtree copy: IDs outside the vocabularies are private to each document, so a copy keeps names and payload
// bytes, not IDs; a malformed source is refused before any write.
#include <gtest/gtest.h>

#include "binary/DocumentCheck.h"
#include "qkl/binary/CopyAssistant.h"

using namespace QKL;
using namespace QKL::binary;
using BinaryDoc::held;

namespace {

void load(QKLBinaryInternals& d, const char* file) {
    const std::string bytes = BinaryDoc::fromHex(BinaryDoc::dataFile(file));
    ASSERT_NE(nullptr, d.copy(bytes.data(), int(bytes.size()))) << file;
}
std::string describe(const QKLBinaryInternals& d, unsigned int at) {
    return BinaryDoc::describe(BinaryDoc::read(d, at), nullptr, &d.idMap());
}
BinaryPath pathTo(int tag, unsigned int at) { BinaryPath path; path.push(tag, at); return path; }

// Under the target's root: the source whole, its nested my_level, a legacy source (rebuilt under version-2 sizes),
// a deep one both ways (the rebuild keeps its own stack, not the call stack), then the target itself.
TEST(SubtreeCopy, NamesKeepTheirMeaningAndPayloadsTheirBytes) {
    QKLBinaryInternals s, t, legacy, deep;
    load(s, "copy_source.hex"), load(t, "copy_target.hex"), load(legacy, "legacy_source.hex");
    BinaryPath p;
    ASSERT_EQ(0, deep.turnBlank());
    for (int level = 0; level < 2000; ++level) deep.insert(p, 1001 + level % 2, TYPE_CONTAINER, nullptr, 0, false);
    ASSERT_EQ(0, deep.insert(p, 1003, TYPE_INT, "abcd", 4, false));
    ASSERT_EQ(0, t.copy(s.buffer(), BinaryPath(), s.idMap(), pathTo(1398, 8)));
    ASSERT_EQ(0, t.copy(s.buffer(), pathTo(-3, 96), s.idMap(), pathTo(1398, 8)));
    ASSERT_EQ(0, t.copy(legacy.buffer(), BinaryPath(), legacy.idMap(), pathTo(1398, 8)));
    ASSERT_EQ(0, t.copy(deep.buffer(), BinaryPath(), deep.idMap(), pathTo(1398, 8)));
    ASSERT_EQ(0, CopyAssistant(deep.idMap(), t).deep(deep.format().root(), pathTo(1398, 8)));
    const std::string before = describe(t, 8);
    ASSERT_EQ(0, t.copy(t.buffer(), BinaryPath(), t.idMap(), pathTo(1398, 8)));  // from a snapshot of itself
    unsigned int at = 24;  // the root's children, a copy each
    const std::string deepOne = describe(deep, 8);
    for (const std::string& copy : {describe(s, 8), describe(s, 96), describe(legacy, 8), deepOne, deepOne, before}) {
        EXPECT_EQ(copy, describe(t, at));
        at += unsigned(Node(t.arena(), at).size());
    }
    EXPECT_EQ(136u - 16, Node(t.arena(), 24 + 160 + 72).size());  // the legacy int and base64 lose 8 bytes each
    EXPECT_TRUE(BinaryDoc::wellFormed(t));
}

// malformed_sources.txt: offset | new bytes | from | what.
TEST(SubtreeCopy, MalformedSourceIsRefusedAndTheTargetKept) {
    std::istringstream rows(BinaryDoc::dataFile("malformed_sources.txt"));
    for (std::string line, at, bytes, from; std::getline(rows, line);) {
        std::istringstream fields(line);
        if (line[0] == '#' || !std::getline(std::getline(std::getline(fields, at, '|'), bytes, '|'), from, '|')) continue;
        QKLBinaryInternals s, t;
        load(s, "copy_source.hex"), load(t, "copy_target.hex");
        bytes = BinaryDoc::fromHex(bytes);
        bytes.copy(s.buffer() + std::stoul(at), bytes.size());
        const std::string before = held(t);
        const BinaryPath source = std::stoul(from) ? pathTo(1001, unsigned(std::stoul(from))) : BinaryPath();
        EXPECT_EQ(-1, t.copy(s.buffer(), source, s.idMap(), pathTo(1398, 8))) << line;
        EXPECT_EQ(before, held(t)) << line;
    }
}

}  // namespace
