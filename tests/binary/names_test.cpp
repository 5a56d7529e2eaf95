// Subtrees at the binary iterator's position, moved between documents. Names, namespaces, complex types
// and shared documents are calls in tests/data/binary/iterator/names.txt, run by navigation_test.cpp.
#include "binary/PacketDoc.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "qkl/QKL.h"

using namespace QKL;
using namespace std::string_literals;

namespace {

// The serialized document of a message, or of the subtree at `at`.
std::string bytesOf(const QKLMessage& message, const QKLMessageIterator* at = nullptr) {
    char* buf = nullptr;
    int len = 0;
    EXPECT_EQ(0, at ? at->serializeFromChild(&buf, &len) : message.serialize(&buf, &len, nullptr, 40500));
    const std::string out(buf, std::size_t(len));
    std::free(buf);
    return out;
}

using Doc = QKLTest::PacketDoc;

// alerts(veid = "v", x_private(y_private = 7)) goes under "data" of a document whose map gave -2
// to another name, as bytes, from an iterator and as text. Names travel by name, so "x_private"
// takes -3 there, and the source stays as it was.
TEST(Names, SubtreesMoveBetweenDocumentsByName) {
    Doc src, dst;
    ASSERT_EQ(0, src.it->newChild("alerts"));
    ASSERT_EQ(0, src.it->putValue("v"s, "veid"));
    ASSERT_EQ(0, src.it->newChild("x_private"));
    ASSERT_EQ(0, src.it->putValue(7, "y_private"));
    ASSERT_EQ(0, src.it->seekUp());
    const std::string sub = bytesOf(*src.msg, src.it.get()), whole = bytesOf(*src.msg);
    const std::unique_ptr<char, decltype(&std::free)> text(src.it->toTextFromChild(), &std::free);
    ASSERT_EQ(0, dst.it->putValue("x"s, "other_private"));
    ASSERT_EQ(0, dst.it->newChild("data"));
    EXPECT_EQ(0, dst.it->deserializeToChild(sub.data(), int(sub.size())));
    EXPECT_EQ(0, dst.it->copyToChild(src.it.get()));
    const std::string two = bytesOf(*dst.msg);
    EXPECT_EQ(0, dst.it->fromTextToChild(text.get()));
    ASSERT_EQ(0, dst.it->firstChild());
    for (int copy = 0; copy < 3; ++copy) {
        std::string veid, y;
        EXPECT_EQ(0, dst.it->getValue(veid, "veid") + dst.it->getValue(y, "x_private/y_private"));
        EXPECT_EQ("v 7", veid + " " + y);
        EXPECT_EQ(0, dst.it->seekPresence(-3));  // "x_private"
        EXPECT_EQ(copy == 2 ? -1 : 0, dst.it->nextSibling());
    }
    EXPECT_EQ(0, dst.it->deleteFromChild());  // ends on the parent, and the text copy is gone
    EXPECT_EQ("data", dst.it->curName());
    EXPECT_EQ(two, bytesOf(*dst.msg));
    EXPECT_EQ(whole, bytesOf(*src.msg));
}

}  // namespace
