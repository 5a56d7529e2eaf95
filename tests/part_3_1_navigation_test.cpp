// Part 3.1: Iterator navigation. The "Edge cases worth testing" bullets come
// first (Part31EdgeCases, one TEST each, named after the bullet), then the stamp
// rule, construction and copies, the movement forms, the path segment bound,
// utility::validate and a deep document.
//
// Positions are compared as whole paths (tag and byte position of every element
// from the root), so "does not move" means the path is the same element for
// element. Element names outside the vocabulary ("a", "b", "c", "x") get
// per-document IDs through newChild(name); vocabulary names are used where an
// element ID is needed up front.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/QKLAssert.h"

using QKL::auto_destroy;
using QKL::BinaryPath;
using QKL::QKLBinary;
using QKL::QKLBinaryInternals;
using QKL::QKLBinaryIterator;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;

namespace {

// Element vocabulary IDs (Part 4.1).
const int NAME = 1026, VALUE = 1008, ITEM = 1072, DATA = 1307, ORIGIN = 1337, PACKET = 1398;

using Path = std::vector<std::pair<int, unsigned int>>;

Path pathOf(const QKLBinaryIterator& it) {
    Path out;
    for (const BinaryPath::Element& e : it.path().elements) out.emplace_back(e.tag, e.offset);
    return out;
}

QKLBinaryIterator* binaryIterator(QKLMessageIterator* it) {
    QKLBinaryIterator* binary = dynamic_cast<QKLBinaryIterator*>(it);
    EXPECT_NE(binary, nullptr);
    return binary;
}

// The element IDs of the current element's children, in document order; the
// iterator is back on the element afterwards.
std::vector<int> childIDs(QKLBinaryIterator& it) {
    std::vector<int> ids;
    if (it.firstChild() != 0) return ids;
    do ids.push_back(it.curID());
    while (it.nextSibling() == 0);
    it.seekUp();
    return ids;
}

// The path of an iterator on the root of a document made by create().
Path rootPath() { return Path{{PACKET, QKL::binary::HEADER_SIZE}}; }

// The last assertion reported, for the failure message.
std::string g_lastAssert;
void quietHandler(const char* condition, const char* file, int line) {
    g_lastAssert = std::string(condition) + " at " + file + ":" + std::to_string(line);
}

// Every test has a message with a "packet" root and one counted iterator on it.
// QKL_ASSERT is silenced and counted; no test expects one.
// The iterator policy is put back to 0 whatever the test did.
class Part31 : public ::testing::Test {
protected:
    void SetUp() override {
        m_previous = QKL::setAssertHandler(&quietHandler);
        m_reports = QKL::assertReports();
        g_lastAssert.clear();
        QKLBinaryIterator::Policy = 0;
        msg.reset(new QKLBinary());
        ASSERT_EQ(0, msg->create("packet"));
        it.reset(counted());
        ASSERT_NE(it, nullptr);
    }
    void TearDown() override {
        QKLBinaryIterator::Policy = 0;
        EXPECT_EQ(0u, QKL::assertReports() - m_reports) << "last: " << g_lastAssert;
        QKL::setAssertHandler(m_previous);
    }

    QKLBinaryIterator* counted() { return binaryIterator(msg->newIterator()); }
    QKLBinaryInternals* doc() { return msg->internals(); }

    // A child by name, the iterator staying on the current element.
    void add(QKLBinaryIterator& at, const std::string& name) {
        ASSERT_EQ(0, at.newChild(name)) << name;
        at.seekUp();
    }
    // The path of the element reached by `path` from the root (the iterator is left there).
    Path pathAt(const std::string& path) {
        EXPECT_EQ(0, it->seek(path)) << path;
        return pathOf(*it);
    }
    int id(const std::string& name) {
        return doc()->idMap().findStrC(QKL::Internal::CharArray(name.data(), unsigned(name.size())), nullptr);
    }

    // root packet
    //   a (a1):  b (b11), b (b12)
    //   a (a2):  a (a21): b (b211)
    //   c:       x
    // "x" is a known name that is not under any "a".
    void buildTree() {
        ASSERT_EQ(0, it->seekRoot());
        ASSERT_EQ(0, it->newChild("a"));
        add(*it, "b");
        add(*it, "b");
        it->seekUp();
        ASSERT_EQ(0, it->newChild("a"));
        ASSERT_EQ(0, it->newChild("a"));
        add(*it, "b");
        it->seekUp();
        it->seekUp();
        ASSERT_EQ(0, it->newChild("c"));
        add(*it, "x");
        it->seekUp();
        ASSERT_EQ(1u, it->path().depth());
        root = pathOf(*it);
        ASSERT_EQ(0, it->firstChild());
        a1 = pathOf(*it);
        ASSERT_EQ(0, it->firstChild());
        b11 = pathOf(*it);
        ASSERT_EQ(0, it->nextSibling());
        b12 = pathOf(*it);
        it->seekUp();
        ASSERT_EQ(0, it->nextSibling());
        a2 = pathOf(*it);
        ASSERT_EQ(0, it->firstChild());
        a21 = pathOf(*it);
        ASSERT_EQ(0, it->firstChild());
        b211 = pathOf(*it);
        it->seekUp();
        it->seekUp();
        ASSERT_EQ(0, it->nextSibling());
        c = pathOf(*it);
        ASSERT_EQ(0, it->firstChild());
        x = pathOf(*it);
        ASSERT_EQ(0, it->seekRoot());
    }
    void goTo(const Path& p) {
        // Down from the root by child positions recorded in the path.
        ASSERT_EQ(0, it->seekRoot());
        for (size_t level = 1; level < p.size(); ++level) {
            ASSERT_EQ(0, it->firstChild());
            while (it->path().current().offset != p[level].second) ASSERT_EQ(0, it->nextSibling());
        }
        ASSERT_EQ(p, pathOf(*it));
    }

    auto_destroy<QKLBinary> msg;
    std::unique_ptr<QKLBinaryIterator> it;
    Path root, a1, b11, b12, a2, a21, b211, c, x;

private:
    QKL::AssertHandler m_previous = nullptr;
    unsigned long m_reports = 0;
};

class Part31EdgeCases : public Part31 {};
class Part31Stamp : public Part31 {};
class Part31Construction : public Part31 {};
class Part31Movement : public Part31 {};
class Part31Embedded : public Part31 {};
class Part31Validate : public Part31 {};

// ---- Edge cases worth testing ---------------------------------------------------------------------

TEST_F(Part31EdgeCases, Seek0SeekEmptyAndNextSibling0ReturnZeroAndDoNotMove) {
    buildTree();
    for (const Path* p : {&root, &a1, &b12, &a21, &b211, &x}) {
        goTo(*p);
        EXPECT_EQ(0, it->seek(0));
        EXPECT_EQ(*p, pathOf(*it));
        EXPECT_EQ(0, it->seek(std::string()));
        EXPECT_EQ(*p, pathOf(*it));
        EXPECT_EQ(0, it->nextSibling(0));
        EXPECT_EQ(*p, pathOf(*it));
        EXPECT_EQ(0, it->firstChild(0));  // the same operation as seek(0)
        EXPECT_EQ(*p, pathOf(*it));
    }
}

TEST_F(Part31EdgeCases, SeekSlashMovesToTheRoot) {
    buildTree();
    for (const Path* p : {&root, &a1, &b211, &x}) {
        goTo(*p);
        EXPECT_EQ(0, it->seek("/"));
        EXPECT_EQ(root, pathOf(*it));
        EXPECT_EQ(PACKET, it->curID());
        EXPECT_EQ(QKL::binary::HEADER_SIZE, it->path().current().offset);
    }
}


TEST_F(Part31EdgeCases, SeekAbsolutePathFromAnyPositionGoesToFirstBUnderFirstAUnderRoot) {
    buildTree();
    for (const Path* p : {&root, &a1, &b11, &b12, &a2, &a21, &b211, &c, &x}) {
        goTo(*p);
        EXPECT_EQ(0, it->seek("/a/b"));
        EXPECT_EQ(b11, pathOf(*it));
    }
    // The same text without the leading "/" is relative: from a2 it finds a21/b211.
    goTo(a2);
    EXPECT_EQ(0, it->seek("a/b"));
    EXPECT_EQ(b211, pathOf(*it));
}

TEST_F(Part31EdgeCases, SeekMissingSegmentReturnsMinusOneAndStaysWhereItWas) {
    buildTree();
    ASSERT_NE(0, id("x"));  // a known name, just not under any "a"
    // Relative: the walk went down before it failed, and is taken back.
    goTo(root);
    EXPECT_EQ(-1, it->seek("a/x"));
    EXPECT_EQ(root, pathOf(*it));
    goTo(a2);
    EXPECT_EQ(-1, it->seek("a/x"));
    EXPECT_EQ(a2, pathOf(*it));
    EXPECT_EQ(-1, it->seek("a/b/x"));
    EXPECT_EQ(a2, pathOf(*it));
    EXPECT_EQ(-1, it->seek("x"));
    EXPECT_EQ(a2, pathOf(*it));
    // Absolute: the path was cut to the root first, and is restored whole.
    for (const Path* p : {&root, &b12, &b211, &c, &x}) {
        goTo(*p);
        EXPECT_EQ(-1, it->seek("/a/x"));
        EXPECT_EQ(*p, pathOf(*it));
        EXPECT_EQ(-1, it->seek("/a/b/x"));
        EXPECT_EQ(*p, pathOf(*it));
        EXPECT_EQ(-1, it->seek("/x"));
        EXPECT_EQ(*p, pathOf(*it));
    }
    // A segment in no vocabulary and no map (ID 0) fails the same way.
    goTo(b211);
    EXPECT_EQ(-1, it->seek("/a/nosuchname"));
    EXPECT_EQ(b211, pathOf(*it));
    EXPECT_EQ(-1, it->seek("/nosuchname"));
    EXPECT_EQ(b211, pathOf(*it));
    goTo(a1);
    EXPECT_EQ(-1, it->seek("b/nosuchname"));
    EXPECT_EQ(a1, pathOf(*it));
}

TEST_F(Part31EdgeCases, SeekWithTrailingSlashEqualsSeekWithout) {
    buildTree();
    for (const Path* p : {&root, &a2}) {
        goTo(*p);
        ASSERT_EQ(0, it->seek("a"));
        const Path plain = pathOf(*it);
        goTo(*p);
        EXPECT_EQ(0, it->seek("a/"));
        EXPECT_EQ(plain, pathOf(*it));
    }
    goTo(b211);
    EXPECT_EQ(0, it->seek("/a/"));
    EXPECT_EQ(a1, pathOf(*it));
    goTo(root);
    EXPECT_EQ(0, it->seek("a/b/"));
    EXPECT_EQ(b11, pathOf(*it));
}

// Deliberate: an empty segment ends the walk with success where it stands.
TEST_F(Part31EdgeCases, DoubleSlashStopsAfterTheFirstSegmentWithZero) {
    buildTree();
    goTo(root);
    EXPECT_EQ(0, it->seek("a//b"));
    EXPECT_EQ(a1, pathOf(*it));
    goTo(a2);
    EXPECT_EQ(0, it->seek("a//b"));
    EXPECT_EQ(a21, pathOf(*it));
    goTo(x);
    EXPECT_EQ(0, it->seek("/a//b"));
    EXPECT_EQ(a1, pathOf(*it));
    // Whatever follows the empty segment is not looked at.
    goTo(root);
    EXPECT_EQ(0, it->seek("a//nosuchname"));
    EXPECT_EQ(a1, pathOf(*it));
    // "//a": cut to the root, then the first segment is empty.
    goTo(b211);
    EXPECT_EQ(0, it->seek("//a"));
    EXPECT_EQ(root, pathOf(*it));
}

TEST_F(Part31EdgeCases, NextSiblingOnTheLastChildReturnsMinusOneAndStays) {
    buildTree();
    for (const Path* p : {&b12, &b211, &c, &x}) {
        goTo(*p);
        EXPECT_EQ(-1, it->nextSibling());
        EXPECT_EQ(*p, pathOf(*it));
    }
    goTo(b12);
    EXPECT_EQ(-1, it->nextSibling(id("b")));
    EXPECT_EQ(b12, pathOf(*it));
    EXPECT_EQ(-1, it->nextSibling("b"));
    EXPECT_EQ(b12, pathOf(*it));
}

// The plain value is dropped, deliberately: an element holds text or children.
TEST_F(Part31EdgeCases, NewChildOnAnElementHoldingTextTurnsItIntoAnElementWithOneChildAndNoText) {
    ASSERT_EQ(0, it->newChild(VALUE));
    const Path v = pathOf(*it);
    BinaryPath p = it->path();
    ASSERT_EQ(0, doc()->setNamespace(p, 201));
    ASSERT_EQ(0, doc()->setContent(p, QKL::binary::TYPE_ELEMENT, "abc", 3, true));
    QKL::binary::Node node(doc()->arena(), v.back().second);
    ASSERT_EQ(QKL::binary::TYPE_ELEMENT, node.type());
    ASSERT_EQ(4u, node.dataSize());
    std::string text;
    ASSERT_EQ(0, it->getValue(text, 0));
    ASSERT_EQ("abc", text);

    EXPECT_EQ(0, it->newChild(ITEM));
    EXPECT_EQ(3u, it->path().depth());
    EXPECT_EQ(ITEM, it->curID());
    it->seekUp();
    EXPECT_EQ(v, pathOf(*it));
    node = QKL::binary::Node(doc()->arena(), v.back().second);
    EXPECT_EQ(VALUE, node.tag());
    EXPECT_EQ(201, node.ns());
    EXPECT_EQ(QKL::binary::TYPE_CONTAINER, node.type());
    EXPECT_EQ(16u, node.dataSize());  // exactly the one empty child, no text
    EXPECT_EQ(std::vector<int>{ITEM}, childIDs(*it));
    EXPECT_EQ(-1, it->getValue(text, 0));
    // The root holds exactly the element.
    EXPECT_EQ(32u, QKL::binary::Node(doc()->arena(), QKL::binary::HEADER_SIZE).dataSize());
}

TEST_F(Part31EdgeCases, NewChildOnAnElementHoldingAnIntegerReturnsMinusOne) {
    ASSERT_EQ(0, it->putValue(5, VALUE));
    ASSERT_EQ(0, it->putValue(std::string("s"), NAME));
    ASSERT_EQ(0, it->putValueDouble(1.5, DATA));
    ASSERT_EQ(0, it->putValueBase64(std::string("b"), ORIGIN));
    for (int tag : {VALUE, NAME, DATA, ORIGIN}) {
        ASSERT_EQ(0, it->seek(tag));
        const Path before = pathOf(*it);
        const std::string bytes(doc()->buffer(), doc()->used());
        EXPECT_EQ(-1, it->newChild(ITEM)) << tag;
        EXPECT_EQ(before, pathOf(*it)) << tag;
        EXPECT_EQ(bytes, std::string(doc()->buffer(), doc()->used())) << tag;
        it->seekUp();
    }
    int value = 0;
    EXPECT_EQ(0, it->getValue(value, VALUE));
    EXPECT_EQ(5, value);
}

TEST_F(Part31EdgeCases, TwoIteratorsInsertAtTheEndKeepsTheSecondValidEraseBeforeItInvalidatesItForGood) {
    add(*it, "a");
    add(*it, "b");
    std::unique_ptr<QKLBinaryIterator> second(counted());
    ASSERT_EQ(2u, msg->iteratorCount());
    ASSERT_EQ(0, second->seek("b"));
    const Path pb = pathOf(*second);

    // A child appended with the first iterator at the end of the document.
    ASSERT_EQ(0, it->newChild("c"));
    it->seekUp();
    EXPECT_EQ(0, second->seek(0));
    EXPECT_EQ(pb, pathOf(*second));
    // A large one moves the buffer and bumps the stamp: the second re-walks its path.
    const std::uint32_t stamp = doc()->changeCounter();
    ASSERT_EQ(0, it->putValueBase64(std::string(10000, 'z'), VALUE));
    ASSERT_NE(stamp, doc()->changeCounter());
    EXPECT_EQ(0, second->seek(0));
    EXPECT_EQ(pb, pathOf(*second));
    EXPECT_EQ(id("b"), second->curID());
    EXPECT_EQ(0, second->putValue(3, ITEM));
    int value = 0;
    EXPECT_EQ(0, second->getValue(value, ITEM));
    EXPECT_EQ(3, value);
    EXPECT_EQ(pb, pathOf(*second));

    // Erasing "a", which precedes "b".
    ASSERT_EQ(0, it->seek("a"));
    ASSERT_EQ(0, it->deleteFromChild());
    ASSERT_EQ(rootPath(), pathOf(*it));
    const std::string bytes(doc()->buffer(), doc()->used());
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        std::string text;
        EXPECT_EQ(-1, second->validateStamp());
        EXPECT_EQ(-1, second->validateInternals());
        EXPECT_EQ(-1, second->seek(0));
        EXPECT_EQ(-1, second->seek(std::string()));
        EXPECT_EQ(-1, second->seek("/"));
        EXPECT_EQ(-1, second->seek("/b"));
        EXPECT_EQ(-1, second->seek("item"));
        EXPECT_EQ(-1, second->seek(ITEM));
        EXPECT_EQ(-1, second->firstChild());
        EXPECT_EQ(-1, second->firstChild(ITEM));
        EXPECT_EQ(-1, second->firstChild("item"));
        EXPECT_EQ(-1, second->nextSibling());
        EXPECT_EQ(-1, second->nextSibling(0));
        EXPECT_EQ(-1, second->nextSibling(VALUE));
        EXPECT_EQ(-1, second->nextSibling("value"));
        EXPECT_EQ(-1, second->newChild(ITEM));
        EXPECT_EQ(-1, second->newChild("q"));
        EXPECT_EQ(-1, second->getValue(text, 0));
        EXPECT_EQ(-1, second->getValue(value, ITEM));
        EXPECT_EQ(-1, second->getValue(text, "item"));
        EXPECT_EQ(1, second->putValue(1, VALUE));  // a write by ID fails with 1
        EXPECT_EQ(bytes, std::string(doc()->buffer(), doc()->used()));
    }
    // The first iterator is unaffected.
    EXPECT_EQ((std::vector<int>{id("b"), id("c"), VALUE}), childIDs(*it));
}

// ---- Policy bits and embedded documents ---------------------------------------------------------------

// A serialized document whose root "item" holds name = "x1" and zz = "z" ("zz"
// is in no vocabulary, so it travels in the embedded document's map area).
std::string embeddedDocument() {
    auto_destroy<QKLBinary> inner(new QKLBinary());
    EXPECT_EQ(0, inner->create("item"));
    std::unique_ptr<QKLMessageIterator> at(inner->newIterator());
    EXPECT_EQ(0, at->putValue(std::string("x1"), "name"));
    EXPECT_EQ(0, at->putValue(std::string("z"), "zz"));
    char* buf = nullptr;
    int len = 0;
    EXPECT_EQ(0, inner->serialize(&buf, &len, nullptr, 40500));
    std::string bytes(buf, size_t(len));
    std::free(buf);
    return bytes;
}

// Under "data" (the iterator is left on it): a tag-0, type-51 node holding `bytes`.
void embedUnderData(QKLBinaryInternals& doc, QKLBinaryIterator& at, const std::string& bytes) {
    ASSERT_EQ(0, at.newChild(DATA));
    BinaryPath p = at.path();
    ASSERT_EQ(0, doc.insert(p, 0, QKL::binary::TYPE_XML, bytes.data(), int(bytes.size()), false));
}

TEST_F(Part31EdgeCases, PolicyBit0ReplacesAnEmbeddedDocumentByItsContentAtTheFirstFirstChild) {
    embedUnderData(*doc(), *it, embeddedDocument());
    // Policy 0: the opaque node is an ordinary child.
    ASSERT_EQ(0u, it->policy());
    ASSERT_EQ(0, it->firstChild());
    EXPECT_EQ(0, it->curID());
    EXPECT_EQ(QKL::binary::TYPE_XML, QKL::binary::Node(doc()->arena(), it->path().current().offset).type());
    it->seekUp();
    EXPECT_EQ(std::vector<int>{0}, childIDs(*it));

    QKLBinaryIterator::Policy = QKLBinaryIterator::EXPAND_EMBEDDED;
    std::unique_ptr<QKLBinaryIterator> expanding(counted());
    ASSERT_EQ(1u, expanding->policy());
    ASSERT_EQ(0, expanding->seek("data"));
    EXPECT_EQ(0, expanding->firstChild());
    EXPECT_EQ(ITEM, expanding->curID());
    std::string text;
    EXPECT_EQ(0, expanding->getValue(text, "name"));
    EXPECT_EQ("x1", text);
    EXPECT_EQ(0, expanding->getValue(text, "zz"));
    EXPECT_EQ("z", text);
    EXPECT_EQ(-1, expanding->nextSibling());
    expanding->seekUp();
    EXPECT_EQ(std::vector<int>{ITEM}, childIDs(*expanding));
    // The first iterator (on "data", counted) sees the expanded content too.
    EXPECT_EQ(std::vector<int>{ITEM}, childIDs(*it));
}

TEST_F(Part31EdgeCases, PolicyBit1MakesAnUnparseableEmbeddedDocumentFailFirstChild) {
    embedUnderData(*doc(), *it, std::string("not a document"));
    const std::string bytes(doc()->buffer(), doc()->used());

    QKLBinaryIterator::Policy = QKLBinaryIterator::EXPAND_EMBEDDED | QKLBinaryIterator::EMBEDDED_MUST_PARSE;
    std::unique_ptr<QKLBinaryIterator> strict(counted());
    ASSERT_EQ(3u, strict->policy());
    ASSERT_EQ(0, strict->seek("data"));
    const Path data = pathOf(*strict);
    EXPECT_EQ(-1, strict->firstChild());
    EXPECT_EQ(data, pathOf(*strict));
    // seek(id) ignores the result of the expansion.
    EXPECT_EQ(0, strict->seek(0));
    EXPECT_EQ(0, strict->firstChild(0));
    EXPECT_EQ(data, pathOf(*strict));
    EXPECT_EQ(bytes, std::string(doc()->buffer(), doc()->used()));

    // Bit 1 clear: the node stays as it is and firstChild lands on it.
    QKLBinaryIterator::Policy = QKLBinaryIterator::EXPAND_EMBEDDED;
    std::unique_ptr<QKLBinaryIterator> lenient(counted());
    ASSERT_EQ(0, lenient->seek("data"));
    EXPECT_EQ(0, lenient->firstChild());
    EXPECT_EQ(0, lenient->curID());
    EXPECT_EQ(QKL::binary::TYPE_XML,
              QKL::binary::Node(doc()->arena(), lenient->path().current().offset).type());
    EXPECT_EQ(bytes, std::string(doc()->buffer(), doc()->used()));
}

TEST_F(Part31Embedded, ParseUnknownExpandsEveryTagZeroChildInTurn) {
    const std::string inner = embeddedDocument();
    embedUnderData(*doc(), *it, inner);
    BinaryPath p = it->path();
    ASSERT_EQ(0, doc()->insert(p, 0, QKL::binary::TYPE_XML, inner.data(), int(inner.size()), false));
    EXPECT_EQ(0, it->parseUnknown());
    EXPECT_EQ((std::vector<int>{ITEM, ITEM}), childIDs(*it));
    // Nothing left to expand, and a node that holds no children cannot have any.
    EXPECT_EQ(0, it->parseUnknown());
    ASSERT_EQ(0, it->firstChild());
    ASSERT_EQ(0, it->seek("name"));
    EXPECT_EQ(-1, it->parseUnknown());
}

TEST_F(Part31Embedded, PolicyIsCopiedAtConstructionAndByCopies) {
    QKLBinaryIterator::Policy = 3;
    std::unique_ptr<QKLBinaryIterator> three(counted());
    QKLBinaryIterator::Policy = 0;
    std::unique_ptr<QKLMessageIterator> copy(three->newIterator(false));
    EXPECT_EQ(3u, three->policy());
    EXPECT_EQ(3u, binaryIterator(copy.get())->policy());
    EXPECT_EQ(3u, QKLBinaryIterator(*three).policy());
    std::unique_ptr<QKLBinaryIterator> zero(counted());
    EXPECT_EQ(0u, zero->policy());
    EXPECT_EQ(0u, it->policy());
}

// ---- the stamp rule ----------------------------------------------------------------------------------

// A message that handed out one iterator: no re-walk, and the new stamp is not stored.
TEST_F(Part31Stamp, FastPathWithOneCountedIteratorDoesNotRewalk) {
    add(*it, "a");
    add(*it, "b");
    add(*it, "c");
    std::unique_ptr<QKLBinaryIterator> copy(binaryIterator(it->newIterator(false)));  // not counted
    ASSERT_EQ(1u, msg->iteratorCount());
    ASSERT_EQ(0, copy->seek("b"));
    const Path pb = pathOf(*copy);
    ASSERT_EQ(0, it->seek("a"));
    ASSERT_EQ(0, it->deleteFromChild());
    // The copy's position is stale, but with one counted iterator nobody checks.
    EXPECT_EQ(0, copy->validateStamp());
    EXPECT_EQ(0, copy->seek(0));
    EXPECT_EQ(pb, pathOf(*copy));
    // A second counted iterator: the copy never stored the new stamp, so it re-walks now.
    std::unique_ptr<QKLBinaryIterator> second(counted());
    EXPECT_EQ(-1, copy->seek(0));
    EXPECT_EQ(-1, copy->validateStamp());
    EXPECT_EQ(0, second->seek("c"));
}

TEST_F(Part31Stamp, RewalkWithTwoCountedIteratorsKeepsPositionsThatDidNotMove) {
    std::unique_ptr<QKLBinaryIterator> second(counted());
    ASSERT_EQ(0, it->newChild("a"));
    add(*it, "b");
    it->seekUp();
    add(*it, "c");
    add(*it, "d");
    ASSERT_EQ(0, second->seek("c"));
    const Path pc = pathOf(*second);
    // A value written into the second's own element: same tag, same position.
    ASSERT_EQ(0, it->putValue(std::string(3000, 'v'), "c"));
    EXPECT_EQ(0, second->seek(0));
    EXPECT_EQ(pc, pathOf(*second));
    std::string text;
    EXPECT_EQ(0, second->getValue(text, 0));
    EXPECT_EQ(std::string(3000, 'v'), text);
    // A change in a later sibling.
    ASSERT_EQ(0, it->putValue(std::string(9000, 'w'), "d"));
    EXPECT_EQ(0, second->seek(0));
    EXPECT_EQ(pc, pathOf(*second));
    // invalidate() forces the re-walk, which succeeds.
    second->invalidate();
    EXPECT_EQ(0, second->validateStamp());
    EXPECT_EQ(pc, pathOf(*second));
    // A change inside an earlier sibling moves "c": the second fails from now on.
    ASSERT_EQ(0, it->putValue(std::string(100, 'b'), "a/b"));
    EXPECT_EQ(-1, second->seek(0));
    EXPECT_EQ(-1, second->nextSibling());
    EXPECT_EQ(-1, second->seek(0));
}

// seekRoot cuts the path to its first element before the stamp check, so the
// re-walk of the root alone succeeds (the literal algorithm of seekRoot).
TEST_F(Part31Stamp, StaleIteratorSeekRootChecksOnlyTheRoot) {
    add(*it, "a");
    add(*it, "b");
    std::unique_ptr<QKLBinaryIterator> second(counted());
    ASSERT_EQ(0, second->seek("b"));
    ASSERT_EQ(0, it->seek("a"));
    ASSERT_EQ(0, it->deleteFromChild());
    ASSERT_EQ(-1, second->seek(0));
    EXPECT_EQ(0, second->seekRoot());
    EXPECT_EQ(rootPath(), pathOf(*second));
    EXPECT_EQ(0, second->seek("b"));
    EXPECT_EQ(id("b"), second->curID());
}

TEST_F(Part31Stamp, IteratorWithoutAMessageFailsEveryMovement) {
    QKLBinaryIterator orphan(static_cast<QKLBinary*>(nullptr));
    EXPECT_EQ(nullptr, orphan.getMessage());
    EXPECT_TRUE(orphan.path().empty());
    EXPECT_EQ(-1, orphan.validateStamp());
    EXPECT_EQ(-1, orphan.validateInternals());
    EXPECT_EQ(-1, orphan.seek(0));
    EXPECT_EQ(-1, orphan.seek(std::string("a")));
    EXPECT_EQ(-1, orphan.seekRoot());
    EXPECT_EQ(-1, orphan.firstChild());
    EXPECT_EQ(-1, orphan.nextSibling());
    EXPECT_EQ(-1, orphan.nextSibling(0));
}

// ---- construction and copies -------------------------------------------------------------------------

TEST_F(Part31Construction, NewIteratorStandsOnTheRoot) {
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(msg.get(), it->getMessage());
    EXPECT_EQ(msg.get(), it->binaryMessage());
    EXPECT_EQ(1u, msg->iteratorCount());
    EXPECT_TRUE(it->path().namespaces.empty());
}

TEST_F(Part31Construction, IteratorOnAMessageWithoutARootHasAnEmptyPathUntilValidateStampPushesIt) {
    auto_destroy<QKLBinary> empty(new QKLBinary());
    std::unique_ptr<QKLBinaryIterator> first(binaryIterator(empty->newIterator()));
    EXPECT_TRUE(first->path().empty());
    EXPECT_EQ(0, first->validateStamp());
    std::unique_ptr<QKLBinaryIterator> second(binaryIterator(empty->newIterator()));
    ASSERT_EQ(0, empty->create("packet"));
    EXPECT_TRUE(first->path().empty());
    EXPECT_EQ(0, first->validateStamp());
    EXPECT_EQ(rootPath(), pathOf(*first));
    EXPECT_EQ(PACKET, first->curID());
    EXPECT_EQ(0, second->seek(0));
    EXPECT_EQ(rootPath(), pathOf(*second));
}

// With one counted iterator validateStamp returns before step 6: nothing is pushed
// until a second counted iterator exists.
TEST_F(Part31Construction, SingleCountedIteratorOnAMessageWithoutARootIsNotPushedByTheFastPath) {
    auto_destroy<QKLBinary> empty(new QKLBinary());
    std::unique_ptr<QKLBinaryIterator> only(binaryIterator(empty->newIterator()));
    ASSERT_EQ(0, empty->create("packet"));
    EXPECT_EQ(0, only->validateStamp());
    EXPECT_TRUE(only->path().empty());
    std::unique_ptr<QKLBinaryIterator> second(binaryIterator(empty->newIterator()));
    EXPECT_EQ(0, only->validateStamp());
    EXPECT_EQ(rootPath(), pathOf(*only));
}

TEST_F(Part31Construction, CopiesStandAtTheSamePositionOnTheSameMessageAndAreNotCounted) {
    buildTree();
    goTo(b12);
    QKLBinaryIterator byRef(*it);
    QKLBinaryIterator byPtr(it.get());
    std::unique_ptr<QKLMessageIterator> made(it->newIterator(false));
    for (const QKLBinaryIterator* copy : {&byRef, &byPtr, binaryIterator(made.get())}) {
        EXPECT_EQ(msg.get(), copy->getMessage());
        EXPECT_EQ(b12, pathOf(*copy));
    }
    EXPECT_EQ(1u, msg->iteratorCount());
    // Positions are independent.
    EXPECT_EQ(0, byRef.seekRoot());
    EXPECT_EQ(0, made->seek("/c/x"));
    EXPECT_EQ(b12, pathOf(*it));
    EXPECT_EQ(x, pathOf(*binaryIterator(made.get())));
}

TEST_F(Part31Construction, NewIteratorTrueRunsOverAShallowCopyOfTheMessage) {
    buildTree();
    goTo(a1);
    std::unique_ptr<QKLMessageIterator> shared(it->newIterator(true));
    QKLMessage* copy = shared->getMessage();
    ASSERT_NE(nullptr, copy);
    EXPECT_NE(msg.get(), copy);
    EXPECT_EQ(2, msg->shareCount());
    EXPECT_EQ(2, copy->shareCount());
    EXPECT_EQ(a1, pathOf(*binaryIterator(shared.get())));
    EXPECT_EQ(1u, msg->iteratorCount());
    // A write through the copy makes its document private (copy on write).
    EXPECT_EQ(0, shared->putValue(5, VALUE));
    EXPECT_EQ(1, msg->shareCount());
    EXPECT_EQ(1, copy->shareCount());
    int value = 0;
    EXPECT_EQ(0, shared->getValue(value, VALUE));
    EXPECT_EQ(5, value);
    EXPECT_EQ(-1, it->getValue(value, VALUE));
    shared.reset();
    copy->destroy();
    EXPECT_EQ(1, msg->shareCount());
}

TEST_F(Part31Construction, NewIteratorTrueReleasedUnchangedLeavesTheOriginalSoleOwner) {
    std::unique_ptr<QKLMessageIterator> shared(it->newIterator(true));
    ASSERT_EQ(2, msg->shareCount());
    EXPECT_EQ(0, shared->seek(0));
    QKLMessage* copy = shared->getMessage();
    shared.reset();
    copy->destroy();
    EXPECT_EQ(1, msg->shareCount());
    EXPECT_EQ(0, it->putValue(1, VALUE));
}

TEST_F(Part31Construction, SeekUpOnTheRootLeavesThePathEmpty) {
    EXPECT_EQ(0, it->seekUp());
    EXPECT_TRUE(it->path().empty());
}

// ---- movement ----------------------------------------------------------------------------------------

TEST_F(Part31Movement, FirstChildAndNextSiblingForms) {
    // root: name, value, name, item, value
    for (int tag : {NAME, VALUE, NAME, ITEM, VALUE}) {
        ASSERT_EQ(0, it->newChild(tag));
        it->seekUp();
    }
    ASSERT_EQ(0, it->firstChild());
    EXPECT_EQ(NAME, it->curID());
    const unsigned int n1 = it->path().current().offset;
    ASSERT_EQ(0, it->nextSibling());
    EXPECT_EQ(VALUE, it->curID());
    const unsigned int v1 = it->path().current().offset;
    ASSERT_EQ(0, it->nextSibling(NAME));
    EXPECT_EQ(NAME, it->curID());
    const unsigned int n2 = it->path().current().offset;
    EXPECT_LT(v1, n2);
    EXPECT_EQ(-1, it->nextSibling(NAME));
    EXPECT_EQ(n2, it->path().current().offset);
    ASSERT_EQ(0, it->nextSibling("value"));  // skips "item"
    EXPECT_EQ(VALUE, it->curID());
    const unsigned int v2 = it->path().current().offset;
    EXPECT_LT(n2, v2);
    EXPECT_EQ(-1, it->nextSibling("item"));
    EXPECT_EQ(-1, it->nextSibling());
    EXPECT_EQ(v2, it->path().current().offset);
    EXPECT_EQ(2u, it->path().depth());

    it->seekUp();
    ASSERT_EQ(0, it->firstChild(VALUE));
    EXPECT_EQ(v1, it->path().current().offset);
    it->seekUp();
    ASSERT_EQ(0, it->firstChild("name"));
    EXPECT_EQ(n1, it->path().current().offset);
    it->seekUp();
    ASSERT_EQ(0, it->firstChild(ITEM));
    const Path item = pathOf(*it);
    it->seekUp();
    ASSERT_EQ(0, it->seek(ITEM));
    EXPECT_EQ(item, pathOf(*it));
    it->seekUp();
    ASSERT_EQ(0, it->seek("item"));
    EXPECT_EQ(item, pathOf(*it));
    it->seekUp();
    // A known name with no such child, and the root has no siblings.
    EXPECT_EQ(-1, it->firstChild("origin"));
    EXPECT_EQ(-1, it->firstChild(ORIGIN));
    EXPECT_EQ(-1, it->seek(ORIGIN));
    EXPECT_EQ(-1, it->nextSibling());
    EXPECT_EQ(-1, it->nextSibling(ITEM));
    EXPECT_EQ(-1, it->nextSibling("item"));
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part31Movement, UnknownNamesReturnMinusOne) {
    add(*it, "a");
    ASSERT_EQ(0, it->firstChild());
    for (const char* name : {"nosuchname", "A", "a "}) {
        EXPECT_EQ(-1, it->nextSibling(std::string(name))) << name;
        it->seekUp();
        EXPECT_EQ(-1, it->firstChild(std::string(name))) << name;
        EXPECT_EQ(-1, it->seek(std::string(name))) << name;
        EXPECT_EQ(rootPath(), pathOf(*it));
        ASSERT_EQ(0, it->firstChild());
    }
    // An empty name has ID 0.
    EXPECT_EQ(-1, it->nextSibling(std::string()));
    it->seekUp();
    EXPECT_EQ(-1, it->firstChild(std::string()));
}

TEST_F(Part31Movement, FirstChildFailsOnElementsWithoutChildren) {
    // The root of a new document is an empty container.
    EXPECT_EQ(-1, it->firstChild());
    EXPECT_EQ(rootPath(), pathOf(*it));
    ASSERT_EQ(0, it->newChild(ITEM));  // type 0, no value
    const Path item = pathOf(*it);
    EXPECT_EQ(-1, it->firstChild());
    EXPECT_EQ(-1, it->seek(VALUE));
    EXPECT_EQ(item, pathOf(*it));
    it->seekUp();
    ASSERT_EQ(0, it->putValue(4, VALUE));
    ASSERT_EQ(0, it->seek(VALUE));
    EXPECT_EQ(-1, it->firstChild());
    EXPECT_EQ(-1, it->firstChild(ITEM));
}

TEST_F(Part31Movement, SeekRootFromAnyDepthAndCurID) {
    ASSERT_EQ(0, it->newChild(ITEM));
    EXPECT_EQ(ITEM, it->curID());
    ASSERT_EQ(0, it->newChild("a"));
    EXPECT_EQ(id("a"), it->curID());
    EXPECT_LT(it->curID(), 0);  // a per-document ID
    ASSERT_EQ(0, it->newChild(NAME));
    EXPECT_EQ(NAME, it->curID());
    EXPECT_EQ(4u, it->path().depth());
    EXPECT_EQ(0, it->seekRoot());
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(PACKET, it->curID());
    EXPECT_EQ(0, it->seekRoot());
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part31Movement, PathSegmentOf255CharactersIsLookedUpAnd256IsRefused) {
    ASSERT_EQ(255u, QKLBinaryIterator::MAX_SEGMENT_LENGTH);
    const std::string n255(255, 'n'), n256(256, 'm');
    ASSERT_EQ(0, it->newChild(n255));
    add(*it, "b");
    it->seekUp();
    add(*it, n256);
    ASSERT_NE(0, id(n255));
    ASSERT_NE(0, id(n256));  // known to the document: only the bound refuses it

    EXPECT_EQ(0, it->seek(n255));
    EXPECT_EQ(id(n255), it->curID());
    it->seekUp();
    EXPECT_EQ(0, it->seek("/" + n255 + "/b"));
    EXPECT_EQ(id("b"), it->curID());
    EXPECT_EQ(3u, it->path().depth());
    ASSERT_EQ(0, it->seekRoot());

    EXPECT_EQ(-1, it->seek(n256));
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(-1, it->seek("/" + n256));
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(-1, it->seek(n255 + "/" + n256));
    EXPECT_EQ(rootPath(), pathOf(*it));
}

// ---- utility::validate ----------------------------------------------------------------------------------

TEST_F(Part31Validate, AcceptsAPathWhoseElementsStandAtTheirPositionsWithTheirTags) {
    buildTree();
    const QKL::binary::Format format = doc()->format();
    goTo(b211);
    BinaryPath p = it->path();
    EXPECT_TRUE(QKLBinaryIterator::utility::validate(format, p));
    EXPECT_TRUE(QKLBinaryIterator::utility::validate(format, BinaryPath()));

    BinaryPath wrongTag = p;
    wrongTag.elements[2].tag = id("c");
    EXPECT_FALSE(QKLBinaryIterator::utility::validate(format, wrongTag));
    BinaryPath wrongOffset = p;
    wrongOffset.elements[3].offset += 8;
    EXPECT_FALSE(QKLBinaryIterator::utility::validate(format, wrongOffset));
    BinaryPath wrongRoot = p;
    wrongRoot.elements[0].tag = ITEM;
    EXPECT_FALSE(QKLBinaryIterator::utility::validate(format, wrongRoot));
    // b12 is a sibling of b11's parent's child run, not a child of a2.
    BinaryPath wrongParent = p;
    wrongParent.elements[3].offset = b12.back().second;
    EXPECT_FALSE(QKLBinaryIterator::utility::validate(format, wrongParent));
    BinaryPath tooDeep = p;
    tooDeep.push(ITEM, p.current().offset + 16);
    EXPECT_TRUE(QKLBinaryIterator::utility::validate(format, tooDeep));  // b211 holds no children: stop there
}

TEST_F(Part31Validate, StopsWithSuccessAtANodeThatHoldsNoChildren) {
    ASSERT_EQ(0, it->putValue(7, VALUE));
    ASSERT_EQ(0, it->seek(VALUE));
    BinaryPath p = it->path();
    p.push(12345, 99999);
    EXPECT_TRUE(QKLBinaryIterator::utility::validate(doc()->format(), p));
}

TEST_F(Part31Validate, FailsOnADocumentWithoutARoot) {
    QKLBinaryInternals blank;
    ASSERT_EQ(0, blank.turnBlank());
    EXPECT_FALSE(QKLBinaryIterator::utility::validate(blank.format(), BinaryPath()));
    BinaryPath p;
    p.push(PACKET, QKL::binary::HEADER_SIZE);
    EXPECT_FALSE(QKLBinaryIterator::utility::validate(blank.format(), p));
}

// ---- a deep document ----------------------------------------------------------------------------------

TEST_F(Part31Movement, IteratorOnA1000LevelTree) {
    const int levels = 1000;
    for (int i = 0; i < levels; ++i) ASSERT_EQ(0, it->newChild(ITEM)) << i;
    ASSERT_EQ(unsigned(levels + 1), it->path().depth());
    const Path deepest = pathOf(*it);
    EXPECT_EQ(-1, it->firstChild());
    EXPECT_EQ(deepest, pathOf(*it));

    ASSERT_EQ(0, it->seekRoot());
    for (int i = 0; i < levels; ++i) ASSERT_EQ(0, it->firstChild()) << i;
    EXPECT_EQ(deepest, pathOf(*it));
    std::string absolute;
    for (int i = 0; i < levels; ++i) absolute += "/item";
    ASSERT_EQ(0, it->seekRoot());
    EXPECT_EQ(0, it->seek(absolute.substr(1)));  // relative from the root
    EXPECT_EQ(deepest, pathOf(*it));
    EXPECT_EQ(0, it->seek(absolute));  // absolute from the deepest element
    EXPECT_EQ(deepest, pathOf(*it));
    EXPECT_EQ(-1, it->seek(absolute + "/item"));
    EXPECT_EQ(deepest, pathOf(*it));

    // A second counted iterator at the bottom survives a buffer move behind it.
    std::unique_ptr<QKLBinaryIterator> bottom(counted());
    ASSERT_EQ(0, bottom->seek(absolute));
    ASSERT_EQ(0, it->seek(absolute.substr(0, 500 * 5)));
    ASSERT_EQ(501u, it->path().depth());
    const std::uint32_t stamp = doc()->changeCounter();
    ASSERT_EQ(0, it->putValueBase64(std::string(40000, 'q'), VALUE));
    ASSERT_NE(stamp, doc()->changeCounter());
    EXPECT_EQ(0, bottom->seek(0));
    EXPECT_EQ(deepest, pathOf(*bottom));
    EXPECT_EQ(0, bottom->putValue(7, VALUE));
    int value = 0;
    EXPECT_EQ(0, bottom->getValue(value, VALUE));
    EXPECT_EQ(7, value);
    // Erasing the chain under level 500 takes its ground away.
    ASSERT_EQ(0, it->firstChild());
    ASSERT_EQ(ITEM, it->curID());
    ASSERT_EQ(0, it->deleteFromChild());
    EXPECT_EQ(-1, bottom->seek(0));
    EXPECT_EQ(-1, bottom->firstChild());
    EXPECT_EQ(std::vector<int>{VALUE}, childIDs(*it));
}

}  // namespace
