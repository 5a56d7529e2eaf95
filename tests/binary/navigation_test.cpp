// Navigation of the binary iterator: the calls in tests/data/binary/iterator/moves.txt and names.txt,
// the change stamp shared by the iterators of one message, and embedded documents.
#include "binary/PacketDoc.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "qkl/QKL.h"

using namespace QKL;
using namespace std::string_literals;

namespace {

const int VALUE = 1008, ITEM = 1072, DATA = 1307;

using QKLTest::where;

// The packet document with the table runner; the policy flags are reset after.
struct Doc : QKLTest::PacketDoc {
    ~Doc() { QKLBinaryIterator::Policy = 0; }
    binary::Node node(unsigned int at) const { return binary::Node(msg->internals()->arena(), at); }
    // The root with its subtree: a failed look-up may still record a name in the map area.
    std::string tree() const { return bytes().substr(binary::HEADER_SIZE, 16 + node(binary::HEADER_SIZE).dataSize()); }
    auto_destroy<QKLMessage> sharer;  // a message made to share the document, and its bytes then
    std::string shared, text;

    // Goes to the element reached from the root by child indexes ("1.0"; "." is the root).
    std::string goTo(const std::string& indexes) {
        it->seekRoot();
        for (char c : indexes) {  // digit n: the first child, then n next siblings
            for (int n = 0; c != '.' && n <= c - '0'; ++n) EXPECT_EQ(0, n == 0 ? it->firstChild() : it->nextSibling());
        }
        return where(*it);
    }
    int call(const std::string& op, const std::string& arg) {
        const std::string left = arg.substr(0, arg.find('|')), right = arg.substr(arg.find('|') + 1);
        const int n = std::atoi(left.c_str()), m = std::atoi(right.c_str());
        const int id = arg.find_first_not_of("-0123456789") == std::string::npos
                           ? n : msg->internals()->idMap().findStrC(Internal::CharArray(arg.c_str()), nullptr);
        BinaryPath path = it->path();
        if (op == "seek" || op == "seekid") return op == "seek" ? it->seek(arg) : it->seek(id);
        if (op == "first") return arg.empty() ? it->firstChild() : it->firstChild(arg);
        if (op == "next") return arg.empty() ? it->nextSibling() : it->nextSibling(arg);
        if (op == "zero") return it->seek(0) != 0 || it->nextSibling(0) != 0 || it->firstChild(0) != 0 ? -1 : 0;
        if (op == "new") return it->newChild(arg);
        if (op == "text") return msg->internals()->setContent(path, 0, arg.data(), int(arg.size()), true);
        if (op == "get") return it->getValue(text, arg);
        if (op == "put" || op == "int") return op == "put" ? it->putValue("v"s, arg) : it->putValue(5, arg);
        if (op == "putid") return it->putValue(5, id);
        if (op == "badtime") return it->putValueTime(253402300800L, id);
        if (op == "ns" || op == "nsid") return op == "ns" ? it->setNamespace(arg) : it->setNamespace(id);
        if (op == "save" || op == "saveid") return op == "save" ? it->saveNamespace(arg) : it->saveNamespace(id), 0;
        if (op == "type" || op == "typeid") return op == "type" ? it->setComplexType(left, right) : it->setComplexType(n, m);
        if (op == "fulltype") return it->setComplexType(arg);
        if (op == "code") return node(path.current().offset).setType(n & 0xFFFF), node(path.current().offset).setNs(m & 0xFFFF), 0;
        if (op == "nametype") return n == msg->internals()->idMap().insertID(
            QKLProtocolIDMap::CharArrayEx(Internal::CharArray(right.c_str())), n, QKLProtocolIDMap::TYPE, true) ? 0 : -1;
        if (op == "share") return sharer.reset(msg->copy(false)), shared = bytes(), 0;
        if (op == "delete") return it->deleteFromChild();
        return op == "up" ? it->seekUp() : it->seekRoot();
    }
    std::string reading(const std::string& what) const {
        std::string stack;
        for (int ns : it->path().namespaces) stack += (stack.empty() ? "" : ",") + std::to_string(ns);
        if (what == "id" || what == "ns") return std::to_string(what == "id" ? it->curID() : it->curNamespaceID());
        if (what == "code") return std::to_string(node(it->path().current().offset).type());
        return what == "type" ? it->curType() : what == "name" ? it->curName() : stack;
    }

    void run(const char* name) {
        std::ifstream table(QKL_TEST_DATA_DIR "/binary/iterator/"s + name);
        ASSERT_TRUE(table.is_open());
        for (std::string line, from, op, arg, to, check; std::getline(table, line);) {
            std::istringstream in(line);
            int result = 0;
            if (line[0] == '#' || !(in >> from >> op >> arg >> result >> to)) continue;
            SCOPED_TRACE(line);
            if (from != "-") goTo(from);
            const std::string before = tree();
            EXPECT_EQ(result, call(op, arg == "~" ? "" : arg));
            if (result != 0) { EXPECT_EQ(before, tree()); }
            if (sharer) { EXPECT_EQ(shared, std::string(static_cast<QKLBinary&>(*sharer).internals()->buffer(), shared.size())); }
            if (in >> check) { EXPECT_EQ(check.substr(check.find('=') + 1), reading(check.substr(0, check.find('=')))); }
            if (to != "-") { const std::string reached = where(*it); EXPECT_EQ(goTo(to), reached); }
        }
    }
};

TEST(Navigation, MovesChildrenAndWritesByNameLandWhereTheTableSays) { Doc().run("moves.txt"); }

TEST(Navigation, NamesNamespacesAndComplexTypesReadAsTheTableSays) { Doc().run("names.txt"); }

// A position survives a change only where every level still stands at its byte position with
// its tag. Otherwise every call fails and changes nothing, for good, until seekRoot.
TEST(Navigation, AStaleIteratorFailsUntilSeekRootWhileChangesBehindItAreRewalked) {
    Doc d;
    std::string path, text;
    ASSERT_EQ(0, d.it->newChild(ITEM));  // an "item" before the chain, erased below
    std::unique_ptr<QKLBinaryIterator> bottom(d.counted());
    for (int i = 0; i < 1000; ++i, path += "/item") ASSERT_EQ(0, bottom->newChild(ITEM));
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->putValueBase64(std::string(40000, 'q'), VALUE));  // behind the bottom; the buffer moves
    EXPECT_EQ(0, bottom->putValue(7, VALUE));
    ASSERT_EQ(0, d.it->firstChild());
    ASSERT_EQ(0, d.it->deleteFromChild());  // the chain moves: the same tags now stand elsewhere
    const std::string before = d.bytes();
    for (int result : {bottom->seek(0), bottom->seek("/item"), bottom->firstChild(), bottom->nextSibling(),
                       bottom->newChild("q"), bottom->getValue(text, VALUE), bottom->curNamespaceID(),
                       bottom->setNamespace("urn:n"s), bottom->setComplexType(""s, "T"s), bottom->deleteFromChild(),
                       bottom->copyToChild(d.it.get()), bottom->fromTextToChild("<veid/>"),
                       bottom->deserializeToChild(before.data(), int(before.size())), bottom->validateStamp()}) {
        EXPECT_EQ(-1, result);  // the last one shows the failure is kept
    }
    EXPECT_EQ(1, bottom->putValue(1, VALUE));  // a write by ID fails with 1
    EXPECT_EQ(before, d.bytes());
    EXPECT_EQ(0, bottom->seekRoot());  // the root alone is checked, and it still stands
    EXPECT_EQ(0, bottom->seek(path + "/value"));
}

// Bit 0 expands an embedded document (tag 0, type 51) at the first move down; bit 1 makes one
// that does not parse fail that move. The policy is copied when the iterator is made.
TEST(Navigation, PolicyBitsExpandEmbeddedDocumentsOrRefuseUnparseableOnes) {
    std::ifstream file(QKL_TEST_DATA_DIR "/binary/iterator/embedded.bin", std::ios::binary);
    const std::string document((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const struct { unsigned int policy; std::string bytes; int result, landsOn; } cases[] = {
        {0, document, 0, 0}, {1, document, 0, ITEM}, {3, document, 0, ITEM}, {1, "junk", 0, 0}, {3, "junk", -1, DATA}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "policy " << c.policy << ", " << c.bytes.size() << " bytes");
        QKLBinaryIterator::Policy = c.policy;
        Doc d;
        QKLBinaryIterator::Policy = 0;
        ASSERT_EQ(0, d.it->newChild(DATA));
        BinaryPath p = d.it->path();
        ASSERT_EQ(0, d.msg->internals()->insert(p, 0, binary::TYPE_XML, c.bytes.data(), int(c.bytes.size()), false));
        EXPECT_EQ(c.result, d.it->firstChild());
        EXPECT_EQ(c.landsOn, d.it->curID());
        std::string s;  // "zz" travels in the embedded document's own map
        EXPECT_EQ(c.landsOn == ITEM ? 0 : -1, d.it->getValue(s, "zz"));
    }
}

}  // namespace
