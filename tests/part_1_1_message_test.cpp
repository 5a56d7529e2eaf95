// Part 1.1: Message interface. The "Edge cases worth testing" bullets come
// first (Part11EdgeCases, one TEST each, named after the bullet), then the rest
// of the Part: sharing (copy, multiReference, hardcopy, destroy, counts under
// two threads), genReply step by step, the origin/target/session accessors,
// the base-class bodies that a protocol does not override, message text files
// and auto_destroy.
//
// The base bodies are reached on a QKLBinary in two ways: a qualified call
// (message.QKLMessage::serialize(...)) runs the base body on a real message,
// and small QKLBinary subclasses below record what the base body calls.
//
// Under QKL_SANITIZE the leak checker and use-after-free detection of ASan
// complete the sharing tests: a document freed twice, too early or never shows
// up there even when every EXPECT here passes.
#include "qkl/message/QKLMessage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/AssertCounter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLMsgFactory.h"

using QKL::auto_destroy;
using QKL::QKLBinary;
using QKL::QKLBinaryInternals;
using QKL::QKLBinaryIterator;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;
using QKL::QKLMsgFactory;

namespace {

// Element IDs of the element vocabulary (Part 4.1) and namespace 297.
const int HOST = 1068;           // "host"
const int PROTOCOL_NS = 297;     // the namespace genReply saves before writing the reply
const int WHOLE_TEXT = 40500;    // the flag word of every whole-message rendering

// ---- helpers ------------------------------------------------------------------------

// Every test silences QKL_ASSERT and can ask how many reports it caused.
class Part11 : public ::testing::Test {
protected:
    unsigned long reports() const { return m_asserts.reports(); }

private:
    QKLTest::AssertCounter m_asserts;
};
class Part11EdgeCases : public Part11 {};
class Part11Sharing : public Part11 {};
class Part11GenReply : public Part11 {};
class Part11Accessors : public Part11 {};
class Part11BaseBodies : public Part11 {};
class Part11AutoDestroy : public Part11 {};

// A message with an empty "packet" root.
template <class M = QKLBinary>
M* newPacket() {
    M* message = new M();
    EXPECT_EQ(0, message->create("packet"));
    return message;
}

// The whole document in the binary form: what "the document is intact" compares.
std::string documentBytes(const QKLMessage& message) {
    char* buffer = nullptr;
    int length = 0;
    if (message.serialize(&buffer, &length, nullptr, WHOLE_TEXT) != 0) return "<no document>";
    std::string bytes(buffer, size_t(length));
    std::free(buffer);
    return bytes;
}

QKLBinaryInternals* internalsOf(const QKLMessage* message) {
    const QKLBinary* binary = dynamic_cast<const QKLBinary*>(message);
    return binary ? binary->internals() : nullptr;
}

// The names of the children of the element at `path` ("" is the root), in
// document order. Header attributes (tags 101-110) have no element name and are left out.
std::vector<std::string> childNames(const QKLMessage& message, const std::string& path = "") {
    std::unique_ptr<const QKLMessageIterator> it(message.newIterator());
    std::vector<std::string> names;
    if (!path.empty() && it->seek(path) != 0) return {"<no " + path + ">"};
    if (it->firstChild() != 0) return names;
    do {
        const std::string name = it->curName();
        if (!name.empty()) names.push_back(name);
    } while (it->nextSibling() == 0);
    return names;
}

// The subtree below the iterator as text: name, namespace, value (or the read's
// failure) and children, depth first. Compares subtrees across documents whose
// per-document name IDs may differ.
std::string treeText(const QKLMessageIterator& at) {
    std::unique_ptr<QKLMessageIterator> it(at.newIterator(false));
    std::ostringstream out;
    if (it->firstChild() != 0) return "";
    do {
        std::string value;
        const int read = it->getValue(value, "");
        out << it->curName() << "@" << it->curNamespaceID() << "=" << (read == 0 ? value : "<" + std::to_string(read) + ">")
            << "{" << treeText(*it) << "}";
    } while (it->nextSibling() == 0);
    return out.str();
}

std::string valueAt(const QKLMessage& message, const std::string& path) {
    std::unique_ptr<const QKLMessageIterator> it(message.newIterator());
    std::string value;
    if (it->getValue(value, path) != 0) return "<fails>";
    return value;
}

// ---- test protocols: QKLBinary with one slot replaced --------------------------------

// Counts living objects, so a test sees which destroy() deleted an object.
class CountingBinary : public QKLBinary {
public:
    static inline std::atomic<int> alive{0};
    CountingBinary() { ++alive; }
    ~CountingBinary() override { --alive; }
    QKLMessage* newMessage() const override { return new CountingBinary(); }
};

// newMessage() fails, so copy() has nothing to share the document with.
class NoNewMessageBinary : public QKLBinary {
public:
    QKLMessage* newMessage() const override { return nullptr; }
};

// Records what the base toText passes to serialize(char**, int*, from, flags).
class SerializeSpy : public QKLBinary {
public:
    using QKLBinary::serialize;
    int serialize(char** buf, int* len, const QKLMessageIterator* from, int flags) const override {
        ++calls;
        seenFrom = from;
        seenFlags = flags;
        if (fail) return -1;
        const int result = QKLBinary::serialize(buf, len, from, flags);
        handedOut = result == 0 ? *buf : nullptr;
        return result;
    }
    bool fail = false;
    mutable int calls = 0;
    mutable const QKLMessageIterator* seenFrom = nullptr;
    mutable int seenFlags = 0;
    mutable const char* handedOut = nullptr;
};

// Records what the base fromText passes to deserialize(buf, len, to) and answers `result`.
class DeserializeSpy : public QKLBinary {
public:
    using QKLBinary::deserialize;
    int deserialize(const char* buf, int len, QKLMessageIterator* to) override {
        ++calls;
        seenBuffer = buf;
        seenText = buf ? std::string(buf, size_t(len)) : std::string("<null>");
        seenTerminated = buf != nullptr && buf[len] == '\0';
        seenLength = len;
        seenTo = to;
        return result;
    }
    int result = 0;
    int calls = 0;
    const char* seenBuffer = nullptr;
    std::string seenText;
    bool seenTerminated = false;
    int seenLength = -1;
    QKLMessageIterator* seenTo = reinterpret_cast<QKLMessageIterator*>(1);
};

// QKLBinary overrides fromText with the XML reader (Part 5.2). This spy puts the
// base body of Part 1.1 back into the fromText slot, so that what fromTextFile
// hands to the virtual fromText reaches DeserializeSpy::deserialize, and records
// what fromText was given.
class BaseFromTextSpy : public DeserializeSpy {
public:
    int fromText(const char* text, QKLMessageIterator* to) override {
        ++fromTextCalls;
        seenFromTextTo = to;
        return QKLMessage::fromText(text, to);
    }
    int fromTextCalls = 0;
    QKLMessageIterator* seenFromTextTo = reinterpret_cast<QKLMessageIterator*>(1);
};

// toText gives `text` (a copy from malloc, which toTextFile releases), or null.
class TextSpy : public QKLBinary {
public:
    using QKLBinary::toText;
    char* toText(const QKLMessageIterator* from, const std::string& unused, int flags) const override {
        ++calls;
        seenFrom = from;
        seenUnused = unused;
        seenFlags = flags;
        return text ? strdup(text) : nullptr;
    }
    const char* text = nullptr;
    mutable int calls = 0;
    mutable const QKLMessageIterator* seenFrom = reinterpret_cast<const QKLMessageIterator*>(1);
    mutable std::string seenUnused = "<not called>";
    mutable int seenFlags = 0;
};

// Records the session-ID slots that the base getSession/setSession forward to.
class SessionSpy : public QKLBinary {
public:
    int getSessionID(std::string& session) const override {
        ++getCalls;
        session = "from-getSessionID";
        return getResult;
    }
    int setSessionID(const std::string& session) override {
        ++setCalls;
        seenSet = session;
        return setResult;
    }
    int getResult = 0, setResult = 0;
    mutable int getCalls = 0;
    int setCalls = 0;
    std::string seenSet;
};

// A request protocol whose "cookie" reads as a plain value with a NUL inside.
// No QKLBinary value reads back past a NUL (Part 3.2), so only such a protocol
// shows that genReply itself cuts the cookie at its first NUL byte.
const std::string NUL_COOKIE("ab\0cd", 5);

class NulCookieIterator : public QKLBinaryIterator {
public:
    using QKLBinaryIterator::QKLBinaryIterator;
    using QKLBinaryIterator::getValue;
    int getValue(std::string& value, const std::string& name) const override {
        if (name == QKLMessage::COOKIE) {
            value = NUL_COOKIE;
            return 0;
        }
        return QKLBinaryIterator::getValue(value, name);
    }
};

class NulCookieRequest : public QKLBinary {
public:
    using QKLBinary::newIterator;
    const QKLMessageIterator* newIterator() const override {
        return new NulCookieIterator(const_cast<NulCookieRequest*>(this));
    }
};

// A fresh directory for message text files, removed with its files afterwards.
class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/qkl_part11_XXXXXX";
        const char* made = mkdtemp(pattern);
        m_path = made ? made : "";
    }
    ~TempDir() {
        for (const std::string& file : m_files) ::unlink(file.c_str());
        if (!m_path.empty()) ::rmdir(m_path.c_str());
    }
    std::string file(const std::string& name) {
        m_files.push_back(m_path + "/" + name);
        return m_files.back();
    }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    std::vector<std::string> m_files;
};

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

bool fileExists(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A request with every field genReply reads: origin, target, id, version,
// priority, session, a "src" list (with two "host" elements and a nested one),
// a plain "cookie" and a "data" element with content.
QKLBinary* fullRequest() {
    QKLBinary* request = newPacket();
    EXPECT_EQ(0, request->setOrigin("agentA"));
    EXPECT_EQ(0, request->setTarget("t-request"));
    EXPECT_EQ(0, request->setID("id-1", false));
    EXPECT_EQ(0, request->setVersion(40321));
    EXPECT_EQ(0, request->setPriority(7));
    EXPECT_EQ(0, request->setSession("sess-1"));
    std::unique_ptr<QKLMessageIterator> it(request->newIterator());
    EXPECT_EQ(0, it->newChild("src"));
    EXPECT_EQ(0, it->putValue(std::string("h1"), "host"));
    EXPECT_EQ(0, it->putValue(std::string("v1"), "veid"));
    EXPECT_EQ(0, it->newChild(HOST));  // a second "host": newChild appends
    EXPECT_EQ(0, it->putValue(std::string("h2"), std::string()));  // ends on "src"
    EXPECT_EQ(0, it->newChild("alerts"));
    EXPECT_EQ(0, it->putValue(std::string("inner"), "host"));
    EXPECT_EQ(0, it->seekUp());  // src
    EXPECT_EQ(0, it->seekUp());  // root
    EXPECT_EQ(0, it->putValue(std::string("ck-1"), "cookie"));
    EXPECT_EQ(0, it->newChild("data"));
    EXPECT_EQ(0, it->putValue(std::string("answer"), "value"));
    return request;
}

}  // namespace

// ---- Edge cases worth testing ------------------------------------------------------------

// "`copy(true)` and `copy(false)` behave alike: both share the document and raise the count by 1."
TEST_F(Part11EdgeCases, CopyTrueAndCopyFalseBehaveAlike) {
    auto_destroy<QKLBinary> original(newPacket());
    ASSERT_EQ(0, original->setOrigin("agentA"));
    EXPECT_EQ(1, original->shareCount());

    auto_destroy<QKLMessage> deep(original->copy(true));
    ASSERT_TRUE(deep);
    EXPECT_EQ(2, original->shareCount());
    EXPECT_EQ(2, deep->shareCount());

    auto_destroy<QKLMessage> shallow(original->copy(false));
    ASSERT_TRUE(shallow);
    EXPECT_EQ(3, original->shareCount());
    EXPECT_EQ(3, deep->shareCount());
    EXPECT_EQ(3, shallow->shareCount());

    // Both share the one document: the same internals, no copy made.
    EXPECT_EQ(original->internals(), internalsOf(deep.get()));
    EXPECT_EQ(original->internals(), internalsOf(shallow.get()));
    EXPECT_STREQ("QKLBinary", deep->messageType());
    EXPECT_STREQ("QKLBinary", shallow->messageType());
    EXPECT_EQ("agentA", deep->getOrigin());
    EXPECT_EQ("agentA", shallow->getOrigin());
    EXPECT_EQ(0u, reports());
}

// "After `copy`, `multiReference()` is true on both objects; after `hardcopy()`
// on one of them it is false on both, and changing one leaves the other unchanged."
TEST_F(Part11EdgeCases, AfterCopyMultiReferenceIsTrueAndAfterHardcopyFalseAndChangesStayApart) {
    auto_destroy<QKLBinary> original(newPacket());
    ASSERT_EQ(0, original->setOrigin("agentA"));
    EXPECT_FALSE(original->multiReference());

    auto_destroy<QKLMessage> copy(original->copy(false));
    ASSERT_TRUE(copy);
    EXPECT_TRUE(original->multiReference());
    EXPECT_TRUE(copy->multiReference());

    EXPECT_EQ(0, copy->hardcopy());
    EXPECT_FALSE(original->multiReference());
    EXPECT_FALSE(copy->multiReference());
    EXPECT_EQ(1, original->shareCount());
    EXPECT_EQ(1, copy->shareCount());
    EXPECT_NE(original->internals(), internalsOf(copy.get()));
    EXPECT_EQ(documentBytes(*original), documentBytes(*copy));

    // A change through one leaves the other unchanged, both ways.
    ASSERT_EQ(0, copy->setOrigin("changed-in-copy"));
    EXPECT_EQ("agentA", original->getOrigin());
    EXPECT_EQ("changed-in-copy", copy->getOrigin());
    ASSERT_EQ(0, original->setTarget("only-in-original"));
    EXPECT_EQ("only-in-original", original->getTarget());
    EXPECT_EQ("", copy->getTarget());
    EXPECT_EQ(0u, reports());
}

// "`hardcopy()` on an unshared message returns 0 and allocates nothing."
TEST_F(Part11EdgeCases, HardcopyOnAnUnsharedMessageReturns0AndAllocatesNothing) {
    auto_destroy<QKLBinary> message(newPacket());
    ASSERT_EQ(0, message->setOrigin("agentA"));
    QKLBinaryInternals* const internals = message->internals();
    const char* const buffer = internals->buffer();
    const int capacity = internals->capacity();
    const std::string before = documentBytes(*message);

    EXPECT_EQ(0, message->hardcopy());
    // The same internals and the same document buffer: nothing was copied.
    EXPECT_EQ(internals, message->internals());
    EXPECT_EQ(buffer, message->internals()->buffer());
    EXPECT_EQ(capacity, message->internals()->capacity());
    EXPECT_EQ(1, message->shareCount());
    EXPECT_FALSE(message->multiReference());
    EXPECT_EQ(before, documentBytes(*message));

    // Also once a copy has come and gone: unshared again means nothing to do.
    QKLMessage* copy = message->copy(false);
    ASSERT_NE(nullptr, copy);
    copy->destroy();
    EXPECT_EQ(0, message->hardcopy());
    EXPECT_EQ(internals, message->internals());
    EXPECT_EQ(buffer, message->internals()->buffer());
    EXPECT_EQ(0u, reports());
}

// "Destroying one of two sharers leaves the other's document intact; destroying the last frees it."
TEST_F(Part11EdgeCases, DestroyingOneOfTwoSharersLeavesTheOtherIntactAndTheLastFreesIt) {
    ASSERT_EQ(0, CountingBinary::alive.load());
    CountingBinary* first = newPacket<CountingBinary>();
    ASSERT_EQ(0, first->setOrigin("agentA"));
    const std::string before = documentBytes(*first);
    QKLMessage* second = first->copy(false);
    ASSERT_NE(nullptr, second);
    ASSERT_EQ(2, CountingBinary::alive.load());
    QKLBinaryInternals* const document = first->internals();

    first->destroy();
    EXPECT_EQ(1, CountingBinary::alive.load());  // the object went, the document stayed
    EXPECT_EQ(1, second->shareCount());
    EXPECT_FALSE(second->multiReference());
    EXPECT_EQ(document, internalsOf(second));
    EXPECT_EQ(before, documentBytes(*second));
    EXPECT_EQ("agentA", second->getOrigin());

    // The last sharer frees the document (ASan reports a leak otherwise) and the
    // count, which is then 0: the destructor's assertion holds.
    second->destroy();
    EXPECT_EQ(0, CountingBinary::alive.load());
    EXPECT_EQ(0u, reports());
}

// "`genReply` on a request without "origin", "src" or "cookie" yields a "packet"
// with "origin" (the argument) and an empty "data", and no "target" or "dst"."
TEST_F(Part11EdgeCases, GenReplyOnABareRequestYieldsPacketWithOriginAndEmptyDataOnly) {
    auto_destroy<QKLBinary> request(newPacket());
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);

    std::unique_ptr<const QKLMessageIterator> root(reply->newIterator());
    EXPECT_EQ("packet", root->curName());
    EXPECT_EQ((std::vector<std::string>{"origin", "data"}), childNames(*reply));
    EXPECT_EQ("me", reply->getOrigin());
    EXPECT_EQ("", valueAt(*reply, "data"));
    EXPECT_EQ(std::vector<std::string>{}, childNames(*reply, "data"));
    EXPECT_EQ("", reply->getTarget());
    EXPECT_NE(0, root->seek("target"));
    EXPECT_NE(0, root->seek("dst"));
    EXPECT_NE(0, root->seek("cookie"));
}

// "`genReply` on a request whose "src" holds an element with ID 1068 (the element
// "host") yields a "dst" without it."
TEST_F(Part11EdgeCases, GenReplyDropsHostFromTheSrcListItReturnsAsDst) {
    auto_destroy<QKLBinary> request(fullRequest());
    ASSERT_EQ((std::vector<std::string>{"host", "veid", "host", "alerts"}), childNames(*request, "src"));
    const std::string requestBefore = documentBytes(*request);

    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    // Every "host" directly in the list is dropped; the rest keeps its order and values.
    EXPECT_EQ((std::vector<std::string>{"veid", "alerts"}), childNames(*reply, "dst"));
    EXPECT_EQ("v1", valueAt(*reply, "dst/veid"));
    // deleteChild works on the list's own elements: a "host" further down stays.
    EXPECT_EQ((std::vector<std::string>{"host"}), childNames(*reply, "dst/alerts"));
    EXPECT_EQ("inner", valueAt(*reply, "dst/alerts/host"));
    // The request is read only.
    EXPECT_EQ(requestBefore, documentBytes(*request));
}

// "`fromTextFile` on a missing file returns -1; on an empty file it parses the empty text."
TEST_F(Part11EdgeCases, FromTextFileOnAMissingFileFailsAndOnAnEmptyFileParsesTheEmptyText) {
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string empty = dir.file("empty.xml");
    writeFile(empty, "");

    // Missing: -1, and nothing is parsed.
    auto_destroy<BaseFromTextSpy> held(new BaseFromTextSpy());
    BaseFromTextSpy& spy = *held;
    EXPECT_EQ(-1, spy.fromTextFile(dir.path() + "/missing.xml"));
    EXPECT_EQ(0, spy.fromTextCalls);
    EXPECT_EQ(0, spy.calls);

    // Empty: the empty text, NUL-terminated, goes to fromText for the whole
    // message, and through the base body to deserialize.
    spy.result = 0;
    EXPECT_EQ(0, spy.fromTextFile(empty));
    EXPECT_EQ(1, spy.fromTextCalls);
    EXPECT_EQ(nullptr, spy.seenFromTextTo);
    EXPECT_EQ(1, spy.calls);
    EXPECT_EQ(0, spy.seenLength);
    EXPECT_EQ("", spy.seenText);
    EXPECT_TRUE(spy.seenTerminated);
    EXPECT_EQ(nullptr, spy.seenTo);
    // Its result is that of fromText("") on the same message.
    spy.result = 3;
    EXPECT_EQ(spy.fromText("", nullptr), spy.fromTextFile(empty));

    // On the binary protocol the result and the effect are those of parsing ""
    // with its own fromText, the XML reader (Part 5.2): two equal messages, one
    // given fromText(""), the other the empty file, end alike.
    auto_destroy<QKLBinary> byText(newPacket());
    auto_destroy<QKLBinary> byFile(newPacket());
    ASSERT_EQ(0, byText->setOrigin("agentA"));
    ASSERT_EQ(0, byFile->setOrigin("agentA"));
    ASSERT_EQ(documentBytes(*byText), documentBytes(*byFile));
    const int textResult = byText->fromText("", nullptr);
    EXPECT_EQ(textResult, byFile->fromTextFile(empty));
    EXPECT_EQ(-1, textResult);  // the empty text holds no root element (Part 5.2)
    EXPECT_EQ(documentBytes(*byText), documentBytes(*byFile));
}

// "`toTextFile` to a directory that does not exist returns -1."
TEST_F(Part11EdgeCases, ToTextFileToADirectoryThatDoesNotExistReturnsMinus1) {
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string path = dir.path() + "/no-such-directory/message.xml";

    // With a text to write, the failing fopen is what gives -1 (and the text is released).
    auto_destroy<TextSpy> held(new TextSpy());
    TextSpy& spy = *held;
    spy.text = "<packet/>";
    EXPECT_EQ(-1, spy.toTextFile(path));
    EXPECT_EQ(1, spy.calls);
    EXPECT_FALSE(fileExists(path));

    auto_destroy<QKLBinary> message(newPacket());
    EXPECT_EQ(-1, message->toTextFile(path));
    EXPECT_FALSE(fileExists(path));
}

// ---- sharing ---------------------------------------------------------------------------------

// copy(): "Delete the new message's own count, make it point to this object's count, atomically add 1."
TEST_F(Part11Sharing, CopiesShareOneCount) {
    auto_destroy<QKLBinary> original(newPacket());
    std::vector<QKLMessage*> copies;
    for (int i = 1; i <= 4; ++i) {
        copies.push_back(original->copy(i % 2 == 0));
        ASSERT_NE(nullptr, copies.back());
        EXPECT_EQ(i + 1, original->shareCount());
        for (QKLMessage* copy : copies) EXPECT_EQ(i + 1, copy->shareCount());
    }
    // A copy of a copy joins the same count.
    auto_destroy<QKLMessage> grandchild(copies.front()->copy(false));
    ASSERT_TRUE(grandchild);
    EXPECT_EQ(6, original->shareCount());
    EXPECT_EQ(original->internals(), internalsOf(grandchild.get()));
    for (QKLMessage* copy : copies) copy->destroy();
    EXPECT_EQ(2, original->shareCount());
    EXPECT_TRUE(original->multiReference());
    grandchild.reset();
    EXPECT_EQ(1, original->shareCount());
    EXPECT_FALSE(original->multiReference());
    EXPECT_EQ(0u, reports());
}

// copy(): "create newMessage(); if that returns null, return null."
TEST_F(Part11Sharing, CopyReturnsNullWhenNewMessageFails) {
    auto_destroy<NoNewMessageBinary> message(newPacket<NoNewMessageBinary>());
    EXPECT_EQ(nullptr, message->copy(true));
    EXPECT_EQ(nullptr, message->copy(false));
    EXPECT_EQ(1, message->shareCount());
    EXPECT_FALSE(message->multiReference());
}

// hardcopy() on one of three sharers: that one goes private, the other two still share.
TEST_F(Part11Sharing, HardcopyOnOneOfThreeSharersLeavesTheOtherTwoSharing) {
    auto_destroy<QKLBinary> a(newPacket());
    ASSERT_EQ(0, a->setOrigin("agentA"));
    auto_destroy<QKLMessage> b(a->copy(false));
    auto_destroy<QKLMessage> c(a->copy(true));
    ASSERT_TRUE(b && c);
    QKLBinaryInternals* const shared = a->internals();

    EXPECT_EQ(0, b->hardcopy());
    EXPECT_EQ(1, b->shareCount());
    EXPECT_EQ(2, a->shareCount());
    EXPECT_EQ(2, c->shareCount());
    EXPECT_NE(shared, internalsOf(b.get()));
    EXPECT_EQ(shared, a->internals());
    EXPECT_EQ(shared, internalsOf(c.get()));
    EXPECT_FALSE(b->multiReference());
    EXPECT_TRUE(a->multiReference());
    EXPECT_EQ("agentA", b->getOrigin());
    EXPECT_EQ(0u, reports());
}

// hardcopy() step 3: "If it fails, return -1 (the temporary is destroyed, the old sharing is unchanged)."
// copyInternals of a QKLBinary fails when there is no document to copy.
TEST_F(Part11Sharing, HardcopyThatCannotCopyTheDocumentFailsAndKeepsTheSharing) {
    auto_destroy<QKLBinary> blank(new QKLBinary());  // no create(): no document
    auto_destroy<QKLMessage> copy(blank->copy(false));
    ASSERT_TRUE(copy);
    QKLBinaryInternals* const shared = blank->internals();

    EXPECT_EQ(-1, blank->hardcopy());
    EXPECT_EQ(2, blank->shareCount());  // the temporary copy was destroyed again
    EXPECT_EQ(2, copy->shareCount());
    EXPECT_EQ(shared, blank->internals());
    EXPECT_EQ(shared, internalsOf(copy.get()));
    EXPECT_TRUE(blank->multiReference());
}

// Copy-on-write: a write through an iterator of one sharer makes that sharer's
// document private first (Part 1.2 validateInternals calls hardcopy()).
TEST_F(Part11Sharing, WriteThroughAnIteratorOfACopyLeavesTheOriginalUnchanged) {
    auto_destroy<QKLBinary> original(newPacket());
    ASSERT_EQ(0, original->setOrigin("agentA"));
    const std::string before = documentBytes(*original);
    auto_destroy<QKLMessage> copy(original->copy(false));
    ASSERT_TRUE(copy);

    std::unique_ptr<QKLMessageIterator> it(copy->newIterator());
    EXPECT_EQ(0, it->putValue(std::string("agentB"), "origin"));
    EXPECT_EQ("agentB", copy->getOrigin());
    EXPECT_EQ("agentA", original->getOrigin());
    EXPECT_EQ(before, documentBytes(*original));
    EXPECT_EQ(1, original->shareCount());
    EXPECT_EQ(1, copy->shareCount());
}

// destroy() of the original first or of the copy first: the survivor keeps the document.
TEST_F(Part11Sharing, DestroyingTheCopyFirstLeavesTheOriginalIntact) {
    ASSERT_EQ(0, CountingBinary::alive.load());
    auto_destroy<CountingBinary> original(newPacket<CountingBinary>());
    ASSERT_EQ(0, original->setOrigin("agentA"));
    const std::string before = documentBytes(*original);
    QKLBinaryInternals* const document = original->internals();

    QKLMessage* first = original->copy(false);
    QKLMessage* second = original->copy(true);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(3, CountingBinary::alive.load());
    second->destroy();
    first->destroy();
    EXPECT_EQ(1, CountingBinary::alive.load());
    EXPECT_EQ(1, original->shareCount());
    EXPECT_EQ(document, original->internals());
    EXPECT_EQ(before, documentBytes(*original));
    original.reset();
    EXPECT_EQ(0, CountingBinary::alive.load());
    EXPECT_EQ(0u, reports());
}

// Concurrency: "shallow copies of one document may be created and destroyed from
// different threads." Two threads, 10000 copies each, of one message.
TEST_F(Part11Sharing, ShallowCopiesMadeAndDestroyedOnTwoThreadsKeepTheCountExact) {
    auto_destroy<QKLBinary> message(newPacket());
    ASSERT_EQ(0, message->setOrigin("agentA"));
    const std::string before = documentBytes(*message);
    QKLBinaryInternals* const document = message->internals();
    const QKLBinary* const shared = message.get();

    std::atomic<int> failures{0};
    const auto work = [shared, document, &failures] {
        for (int i = 0; i < 10000; ++i) {
            QKLMessage* copy = shared->copy(i % 2 == 0);
            if (copy == nullptr || copy->shareCount() < 2 || internalsOf(copy) != document) ++failures;
            if (copy != nullptr) copy->destroy();
        }
    };
    std::thread first(work), second(work);
    first.join();
    second.join();

    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(1, message->shareCount());
    EXPECT_FALSE(message->multiReference());
    EXPECT_EQ(document, message->internals());
    EXPECT_EQ(before, documentBytes(*message));
    EXPECT_EQ("agentA", message->getOrigin());
    EXPECT_EQ(0u, reports());
}

// ---- genReply, step by step --------------------------------------------------------------

// Step 1: a message of the default protocol with a "packet" root, owned by the caller.
// Step 2: the argument becomes the origin, in namespace 297.
TEST_F(Part11GenReply, ReplyIsANewPacketWhoseOriginIsTheArgumentInTheProtocolNamespace) {
    auto_destroy<QKLBinary> request(fullRequest());
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_STREQ("QKLBinary", reply->messageType());
    EXPECT_EQ(1, reply->shareCount());
    EXPECT_NE(request->internals(), internalsOf(reply.get()));
    EXPECT_EQ("me", reply->getOrigin());  // not the request's "agentA"

    std::unique_ptr<const QKLMessageIterator> it(reply->newIterator());
    EXPECT_EQ("packet", it->curName());
    ASSERT_EQ(0, it->seek("origin"));
    EXPECT_EQ(PROTOCOL_NS, it->curNamespaceID());
}

// The named elements of a full reply, in the order of the steps that add them.
TEST_F(Part11GenReply, FullReplyHasItsElementsInStepOrder) {
    auto_destroy<QKLBinary> request(fullRequest());
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ((std::vector<std::string>{"origin", "session", "target", "dst", "cookie", "data"}), childNames(*reply));
}

// Step 3: id, version and priority, each when the request has it.
TEST_F(Part11GenReply, HeaderFieldsIdVersionAndPriorityAreCopied) {
    auto_destroy<QKLBinary> request(fullRequest());
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    std::string id;
    int version = 0, priority = 0;
    EXPECT_EQ(0, reply->getID(id));
    EXPECT_EQ("id-1", id);
    EXPECT_EQ(0, reply->getVersion(version));
    EXPECT_EQ(40321, version);
    EXPECT_EQ(0, reply->getPriority(priority));
    EXPECT_EQ(7, priority);

    // setID(id, false): the id is one to save; saveChanges writes it into the document.
    ASSERT_EQ(0, reply->saveChanges());
    const std::string bytes = documentBytes(*reply);
    auto_destroy<QKLBinary> received(new QKLBinary());
    ASSERT_EQ(0, received->init(bytes.data(), int(bytes.size())));
    std::string receivedID;
    EXPECT_EQ(0, received->getID(receivedID));
    EXPECT_EQ("id-1", receivedID);
}

TEST_F(Part11GenReply, HeaderFieldsAreCopiedEachIndependently) {
    auto_destroy<QKLBinary> request(newPacket());
    ASSERT_EQ(0, request->setPriority(3));  // no id, version or session
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    int priority = 0, version = 0;
    std::string text;
    EXPECT_EQ(0, reply->getPriority(priority));
    EXPECT_EQ(3, priority);
    EXPECT_NE(0, reply->getID(text));
    EXPECT_NE(0, reply->getVersion(version));
    EXPECT_NE(0, reply->getSessionID(text));
}

// Step 3, deliberately this pair: the request's getSession becomes the reply's setSessionID.
// The request's session is only cached (setSession, no saveChanges), so only
// getSession sees it; the reply's session ID is in its document at once, which
// setSession (a cache until saveChanges) would not do.
TEST_F(Part11GenReply, RequestSessionBecomesReplySessionID) {
    auto_destroy<QKLBinary> request(newPacket());
    ASSERT_EQ(0, request->setSession("sess-1"));
    std::string text;
    ASSERT_NE(0, request->getSessionID(text));  // not in the request's document
    ASSERT_EQ(0, request->getSession(text));
    ASSERT_EQ("sess-1", text);

    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    std::string session;
    EXPECT_EQ(0, reply->getSessionID(session));
    EXPECT_EQ("sess-1", session);
    EXPECT_EQ("sess-1", valueAt(*reply, "session"));  // an element of the reply's document
}

// Step 4: the request's origin becomes the reply's target; the request's target is not used.
TEST_F(Part11GenReply, RequestOriginBecomesReplyTarget) {
    auto_destroy<QKLBinary> request(fullRequest());
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ("agentA", reply->getTarget());
    std::unique_ptr<const QKLMessageIterator> it(reply->newIterator());
    ASSERT_EQ(0, it->firstChild("target"));
    EXPECT_NE(0, it->nextSibling("target"));  // one target only
}

TEST_F(Part11GenReply, RequestTargetWithoutOriginGivesNoReplyTarget) {
    auto_destroy<QKLBinary> request(newPacket());
    ASSERT_EQ(0, request->setTarget("t-request"));
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ("", reply->getTarget());
    EXPECT_EQ((std::vector<std::string>{"origin", "data"}), childNames(*reply));
}

// Step 5: an empty "src" still gives an empty "dst".
TEST_F(Part11GenReply, EmptySrcGivesEmptyDst) {
    auto_destroy<QKLBinary> request(newPacket());
    {
        std::unique_ptr<QKLMessageIterator> it(request->newIterator());
        ASSERT_EQ(0, it->newChild("src"));
    }
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ((std::vector<std::string>{"origin", "dst", "data"}), childNames(*reply));
    EXPECT_EQ(std::vector<std::string>{}, childNames(*reply, "dst"));
}

// Step 5: a "src" of "host" elements only comes back as an empty "dst".
TEST_F(Part11GenReply, SrcOfHostsOnlyGivesEmptyDst) {
    auto_destroy<QKLBinary> request(newPacket());
    {
        std::unique_ptr<QKLMessageIterator> it(request->newIterator());
        ASSERT_EQ(0, it->newChild("src"));
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(0, it->newChild(HOST));
            ASSERT_EQ(0, it->seekUp());
        }
    }
    ASSERT_EQ((std::vector<std::string>{"host", "host", "host"}), childNames(*request, "src"));
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ(std::vector<std::string>{}, childNames(*reply, "dst"));
}

// Step 6, a plain cookie value.
TEST_F(Part11GenReply, PlainCookieValueIsCopied) {
    auto_destroy<QKLBinary> request(fullRequest());
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ("ck-1", valueAt(*reply, "cookie"));
    EXPECT_EQ(std::vector<std::string>{}, childNames(*reply, "cookie"));
}

// Step 6: "with the value cut at its first NUL byte".
TEST_F(Part11GenReply, CookieValueIsCutAtItsFirstNulByte) {
    auto_destroy<NulCookieRequest> request(newPacket<NulCookieRequest>());
    {
        const QKLMessage& asRead = *request;  // genReply reads through the const newIterator()
        std::unique_ptr<const QKLMessageIterator> it(asRead.newIterator());
        std::string read;
        ASSERT_EQ(0, it->getValue(read, "cookie"));
        ASSERT_EQ(NUL_COOKIE, read);  // the request's cookie reads with the NUL inside
    }
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ("ab", valueAt(*reply, "cookie"));

    // The stored bytes of the reply's cookie: "ab" (perhaps with a terminating NUL), never "cd".
    std::unique_ptr<QKLMessageIterator> it(reply->newIterator());
    ASSERT_EQ(0, it->seek("cookie"));
    const QKLBinaryIterator* at = dynamic_cast<const QKLBinaryIterator*>(it.get());
    ASSERT_NE(nullptr, at);
    const QKL::binary::Node node(internalsOf(reply.get())->arena(), at->path().current().offset);
    ASSERT_NE(nullptr, node.data());
    const std::string stored(node.data(), node.dataSize());
    EXPECT_EQ("ab", std::string(stored.c_str()));
    EXPECT_LE(stored.size(), 3u);
    EXPECT_EQ(std::string::npos, stored.find("cd"));
}

// Step 6: a cookie with children is no plain value; its whole subtree goes into
// the reply through serializeFromChild / deserializeToChild, names outside the
// vocabulary included.
TEST_F(Part11GenReply, CookieWithChildrenIsCopiedAsASubtree) {
    auto_destroy<QKLBinary> request(newPacket());
    {
        std::unique_ptr<QKLMessageIterator> it(request->newIterator());
        ASSERT_EQ(0, it->newChild("cookie"));
        ASSERT_EQ(0, it->putValue(std::string("getStatus"), "name"));
        ASSERT_EQ(0, it->putValue(std::string("zz"), "part11_unknown_name"));
        ASSERT_EQ(0, it->newChild("alerts"));
        ASSERT_EQ(0, it->putValue(std::string("deep"), "value"));
    }
    std::unique_ptr<const QKLMessageIterator> requestCookie(request->newIterator());
    ASSERT_EQ(0, requestCookie->seek("cookie"));
    std::string plain;
    ASSERT_NE(0, requestCookie->getValue(plain, ""));  // no plain value
    const std::string expected = treeText(*requestCookie);
    ASSERT_EQ("name@0=getStatus{}part11_unknown_name@0=zz{}alerts@0=<-1>{value@0=deep{}}", expected);

    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ((std::vector<std::string>{"origin", "cookie", "data"}), childNames(*reply));
    std::unique_ptr<const QKLMessageIterator> replyCookie(reply->newIterator());
    ASSERT_EQ(0, replyCookie->seek("cookie"));
    EXPECT_EQ(expected, treeText(*replyCookie));
}

// Step 7: the reply's "data" is empty, whatever the request's "data" holds.
TEST_F(Part11GenReply, ReplyDataIsEmptyEvenWhenTheRequestDataIsNot) {
    auto_destroy<QKLBinary> request(fullRequest());
    ASSERT_EQ("answer", valueAt(*request, "data/value"));
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ("", valueAt(*reply, "data"));
    EXPECT_EQ(std::vector<std::string>{}, childNames(*reply, "data"));
    std::unique_ptr<const QKLMessageIterator> it(reply->newIterator());
    ASSERT_EQ(0, it->seek("data"));
    EXPECT_EQ(PROTOCOL_NS, it->curNamespaceID());
}

// The request is only read: its document and its share count are unchanged.
TEST_F(Part11GenReply, RequestIsUnchanged) {
    auto_destroy<QKLBinary> request(fullRequest());
    const std::string before = documentBytes(*request);
    auto_destroy<QKLMessage> reply(request->genReply("me"));
    ASSERT_TRUE(reply);
    EXPECT_EQ(before, documentBytes(*request));
    EXPECT_EQ(1, request->shareCount());
    std::string session;
    EXPECT_EQ(0, request->getSession(session));
    EXPECT_EQ("sess-1", session);
}

// ---- origin, target and session accessors ------------------------------------------------------

TEST_F(Part11Accessors, OriginIsTheRootsOriginChild) {
    auto_destroy<QKLBinary> message(newPacket());
    EXPECT_EQ("", message->getOrigin());  // a failed read gives the empty string
    EXPECT_EQ(0, message->setOrigin("agentA"));
    EXPECT_EQ("agentA", message->getOrigin());
    EXPECT_EQ("agentA", valueAt(*message, "origin"));
    EXPECT_EQ(0, message->setOrigin("agentB"));  // written again, not appended
    EXPECT_EQ("agentB", message->getOrigin());
    EXPECT_EQ((std::vector<std::string>{"origin"}), childNames(*message));
}

TEST_F(Part11Accessors, TargetIsTheFirstTargetChildAndAddTargetAppendsOneMore) {
    auto_destroy<QKLBinary> message(newPacket());
    EXPECT_EQ("", message->getTarget());
    EXPECT_EQ(0, message->setTarget("t1"));
    EXPECT_EQ(0, message->addTarget("t2"));
    EXPECT_EQ(0, message->addTarget("t3"));
    EXPECT_EQ((std::vector<std::string>{"target", "target", "target"}), childNames(*message));
    EXPECT_EQ("t1", message->getTarget());

    // setTarget writes the first "target"; the added ones stay.
    EXPECT_EQ(0, message->setTarget("t1-new"));
    EXPECT_EQ("t1-new", message->getTarget());
    std::unique_ptr<const QKLMessageIterator> it(message->newIterator());
    std::vector<std::string> values;
    ASSERT_EQ(0, it->firstChild("target"));
    do {
        std::string value;
        EXPECT_EQ(0, it->getValue(value, ""));
        values.push_back(value);
    } while (it->nextSibling("target") == 0);
    EXPECT_EQ((std::vector<std::string>{"t1-new", "t2", "t3"}), values);
}

// addTarget on a message without a "target" yet creates the first one.
TEST_F(Part11Accessors, AddTargetWithoutTargetCreatesTheFirst) {
    auto_destroy<QKLBinary> message(newPacket());
    EXPECT_EQ(0, message->addTarget("only"));
    EXPECT_EQ("only", message->getTarget());
}

// addTarget: "the failure of newChild is returned as it is".
TEST_F(Part11Accessors, AddTargetReturnsTheFailureOfNewChild) {
    auto_destroy<QKLBinary> blank(new QKLBinary());  // no document: newChild fails
    std::unique_ptr<QKLMessageIterator> probe(blank->newIterator());
    const int newChildResult = probe->newChild("target");
    ASSERT_NE(0, newChildResult);
    EXPECT_EQ(newChildResult, blank->addTarget("t1"));
    EXPECT_EQ("", blank->getTarget());
}

// ---- base-class bodies for a protocol that does not override them ----------------------------

TEST_F(Part11BaseBodies, SerializeIntoACallersBufferReturnsMinus1) {
    auto_destroy<QKLBinary> message(newPacket());
    char buffer[4096];
    std::memset(buffer, 0x5A, sizeof buffer);
    unsigned long length = sizeof buffer;
    EXPECT_EQ(-1, message->QKLMessage::serialize(buffer, &length, nullptr));
    EXPECT_EQ(sizeof buffer, length);
    EXPECT_EQ(0x5A, static_cast<unsigned char>(buffer[0]));
    std::unique_ptr<const QKLMessageIterator> it(message->newIterator());
    EXPECT_EQ(-1, message->QKLMessage::serialize(buffer, &length, it.get()));
}

// toText: "calls serialize(char** buf, int* len, from, flags) with the same
// iterator and flags; returns the buffer, or null when it fails".
TEST_F(Part11BaseBodies, ToTextCallsSerializeWithTheSameIteratorAndFlags) {
    auto_destroy<SerializeSpy> spy(newPacket<SerializeSpy>());
    ASSERT_EQ(0, spy->setOrigin("agentA"));
    std::unique_ptr<const QKLMessageIterator> at(spy->newIterator());
    ASSERT_EQ(0, at->seek("origin"));
    const int flags = 40777;
    const std::string bytes = documentBytes(*spy);
    spy->calls = 0;

    char* text = spy->QKLMessage::toText(at.get(), "ignored", flags);
    EXPECT_EQ(1, spy->calls);
    EXPECT_EQ(at.get(), spy->seenFrom);
    EXPECT_EQ(flags, spy->seenFlags);
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(spy->handedOut, text);  // serialize's own buffer, handed on
    std::free(text);

    char* whole = spy->QKLMessage::toText(nullptr, "", WHOLE_TEXT);
    EXPECT_EQ(2, spy->calls);
    EXPECT_EQ(nullptr, spy->seenFrom);
    EXPECT_EQ(WHOLE_TEXT, spy->seenFlags);
    ASSERT_NE(nullptr, whole);
    EXPECT_EQ(bytes, std::string(whole, bytes.size()));
    std::free(whole);

    spy->fail = true;
    EXPECT_EQ(nullptr, spy->QKLMessage::toText(at.get(), "", flags));
    EXPECT_EQ(3, spy->calls);
}

// fromText: "deserialize(text, strlen(text), to)". QKLBinary has its own
// fromText (the XML reader, Part 5.2): the base body is called by its qualified name.
TEST_F(Part11BaseBodies, FromTextDeserializesTheTextUpToItsNul) {
    auto_destroy<DeserializeSpy> held(new DeserializeSpy());
    DeserializeSpy& spy = *held;
    ASSERT_EQ(0, spy.create("packet"));
    std::unique_ptr<QKLMessageIterator> to(spy.newIterator());
    const char text[] = "<packet>x</packet>\0tail";

    spy.result = 0;
    EXPECT_EQ(0, spy.QKLMessage::fromText(text, to.get()));
    EXPECT_EQ(1, spy.calls);
    EXPECT_EQ(text, spy.seenBuffer);
    EXPECT_EQ(int(std::strlen(text)), spy.seenLength);
    EXPECT_EQ(to.get(), spy.seenTo);

    spy.result = -1;
    EXPECT_EQ(-1, spy.QKLMessage::fromText(text, nullptr));
    EXPECT_EQ(2, spy.calls);
    EXPECT_EQ(nullptr, spy.seenTo);
    spy.result = 7;  // the result is passed on as it is
    EXPECT_EQ(7, spy.QKLMessage::fromText("", nullptr));
    EXPECT_EQ(3, spy.calls);
    EXPECT_EQ(0, spy.seenLength);
}

// getSession / setSession "forward to getSessionID / setSessionID".
TEST_F(Part11BaseBodies, GetSessionAndSetSessionForwardToTheSessionIDSlots) {
    auto_destroy<SessionSpy> spy(newPacket<SessionSpy>());
    std::string session;
    EXPECT_EQ(0, spy->QKLMessage::getSession(session));
    EXPECT_EQ(1, spy->getCalls);
    EXPECT_EQ("from-getSessionID", session);
    spy->getResult = -1;
    EXPECT_EQ(-1, spy->QKLMessage::getSession(session));
    EXPECT_EQ(2, spy->getCalls);

    EXPECT_EQ(0, spy->QKLMessage::setSession("s-1"));
    EXPECT_EQ(1, spy->setCalls);
    EXPECT_EQ("s-1", spy->seenSet);
    spy->setResult = -1;
    EXPECT_EQ(-1, spy->QKLMessage::setSession("s-2"));
    EXPECT_EQ("s-2", spy->seenSet);
}

// getSessionID / setSessionID: the value of the root's "session" child.
TEST_F(Part11BaseBodies, SessionIDIsTheRootsSessionChild) {
    auto_destroy<QKLBinary> message(newPacket());
    std::string session = "untouched";
    EXPECT_EQ(-1, message->QKLMessage::getSessionID(session));

    EXPECT_EQ(0, message->QKLMessage::setSessionID("sess-9"));
    EXPECT_EQ(0, message->QKLMessage::getSessionID(session));
    EXPECT_EQ("sess-9", session);
    EXPECT_EQ("sess-9", valueAt(*message, "session"));
    EXPECT_EQ((std::vector<std::string>{"session"}), childNames(*message));
    EXPECT_EQ(0, message->QKLMessage::setSessionID("sess-10"));  // written again, not appended
    EXPECT_EQ((std::vector<std::string>{"session"}), childNames(*message));
    // "session" is element 1748, where QKLBinary keeps its session ID (Part 2.4).
    std::string binarySession;
    EXPECT_EQ(0, message->getSessionID(binarySession));
    EXPECT_EQ("sess-10", binarySession);
}

TEST_F(Part11BaseBodies, SaveChangesReturns0AndMultiReferenceIsFalseWhenUnshared) {
    auto_destroy<QKLBinary> message(newPacket());
    EXPECT_EQ(0, message->QKLMessage::saveChanges());
    EXPECT_FALSE(message->QKLMessage::multiReference());
    EXPECT_EQ(0u, reports());
}

// ---- message text files ------------------------------------------------------------------------

// toTextFile: "toText(nullptr, "", 40500)... fopen(path, "w+")... fwrite ... ferror".
TEST_F(Part11BaseBodies, ToTextFileWritesTheWholeMessageTextAndTruncates) {
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string path = dir.file("message.xml");
    writeFile(path, std::string(1000, 'x'));  // longer than the text: "w+" truncates

    auto_destroy<TextSpy> held(new TextSpy());
    TextSpy& spy = *held;
    spy.text = "<packet><origin>agentA</origin></packet>";
    EXPECT_EQ(0, spy.toTextFile(path));
    EXPECT_EQ(1, spy.calls);
    EXPECT_EQ(nullptr, spy.seenFrom);
    EXPECT_EQ("", spy.seenUnused);
    EXPECT_EQ(WHOLE_TEXT, spy.seenFlags);
    EXPECT_EQ(spy.text, readFile(path));

    // A new file is created.
    const std::string fresh = dir.file("fresh.xml");
    EXPECT_EQ(0, spy.toTextFile(fresh));
    EXPECT_EQ(spy.text, readFile(fresh));
}

// toTextFile step 1: "If it returns null, return -1" (before the file is opened).
TEST_F(Part11BaseBodies, ToTextFileFailsWithoutTouchingTheFileWhenToTextGivesNull) {
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string path = dir.file("message.xml");
    auto_destroy<TextSpy> held(new TextSpy());  // text null
    TextSpy& spy = *held;
    EXPECT_EQ(-1, spy.toTextFile(path));
    EXPECT_EQ(1, spy.calls);
    EXPECT_FALSE(fileExists(path));

    writeFile(path, "kept");
    EXPECT_EQ(-1, spy.toTextFile(path));
    EXPECT_EQ("kept", readFile(path));  // not truncated
}

// The binary protocol's own text (Part 5.1), read back by the XML reader (Part 5.2).
TEST_F(Part11BaseBodies, ToTextFileOfABinaryMessageHoldsItsText) {
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string path = dir.file("message.xml");
    auto_destroy<QKLBinary> message(newPacket());
    ASSERT_EQ(0, message->setOrigin("agentA"));
    ASSERT_EQ(0, message->addTarget("t1"));

    char* text = message->toText(nullptr, "", WHOLE_TEXT);
    ASSERT_NE(nullptr, text);
    const std::string expected(text);
    std::free(text);
    EXPECT_EQ(0, message->toTextFile(path));
    EXPECT_EQ(expected, readFile(path));

    // And back: the file parses into the same message.
    auto_destroy<QKLBinary> back(new QKLBinary());
    EXPECT_EQ(0, back->fromTextFile(path));
    EXPECT_EQ("agentA", back->getOrigin());
    EXPECT_EQ("t1", back->getTarget());
}

// fromTextFile: the whole file, NUL-terminated, through fromText into the whole message.
TEST_F(Part11BaseBodies, FromTextFileParsesTheWholeFileIntoTheWholeMessage) {
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string path = dir.file("message.xml");
    const std::string content = "<packet><origin>agentA</origin></packet>\n";
    writeFile(path, content);

    // fromTextFile calls the virtual fromText; the spy's is the base body of Part 1.1.
    auto_destroy<BaseFromTextSpy> held(new BaseFromTextSpy());
    BaseFromTextSpy& spy = *held;
    spy.result = 0;
    EXPECT_EQ(0, spy.fromTextFile(path));
    EXPECT_EQ(1, spy.fromTextCalls);
    EXPECT_EQ(nullptr, spy.seenFromTextTo);
    EXPECT_EQ(1, spy.calls);
    EXPECT_EQ(content, spy.seenText);
    EXPECT_TRUE(spy.seenTerminated);
    EXPECT_EQ(nullptr, spy.seenTo);
    spy.result = 5;  // fromText's result, as it is
    EXPECT_EQ(5, spy.fromTextFile(path));
    EXPECT_EQ(2, spy.fromTextCalls);
}

// fromTextFile: read fails on a directory (open and fstat succeed): what read returned, -1.
TEST_F(Part11BaseBodies, FromTextFileOfADirectoryReturnsMinus1) {
    TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    auto_destroy<DeserializeSpy> held(new DeserializeSpy());
    DeserializeSpy& spy = *held;
    EXPECT_EQ(-1, spy.fromTextFile(dir.path()));
    EXPECT_EQ(0, spy.calls);
}

// fromTextFile step 4: a short read is "deliberately unchanged (a short read of a
// non-empty file is not turned into -1)". A sysfs attribute reports a size of
// one page and reads back fewer bytes in one read.
TEST_F(Part11BaseBodies, FromTextFileReturnsAShortReadCountAsItIs) {
    const char* const candidates[] = {"/sys/devices/system/cpu/online", "/sys/kernel/mm/transparent_hugepage/enabled"};
    for (const char* path : candidates) {
        struct stat status;
        if (::stat(path, &status) != 0 || status.st_size <= 0) continue;
        const int descriptor = ::open(path, O_RDONLY);
        if (descriptor < 0) continue;
        std::vector<char> bytes(size_t(status.st_size) + 1);
        const ssize_t got = ::read(descriptor, bytes.data(), size_t(status.st_size));
        ::close(descriptor);
        if (got <= 0 || got >= status.st_size) continue;

        auto_destroy<DeserializeSpy> held(new DeserializeSpy());
    DeserializeSpy& spy = *held;
        EXPECT_EQ(int(got), spy.fromTextFile(path)) << path;
        EXPECT_EQ(0, spy.calls) << path;  // nothing parsed
        return;
    }
    GTEST_SKIP() << "no file here whose stat size exceeds what one read gives";
}

// ---- auto_destroy ----------------------------------------------------------------------------------

TEST_F(Part11AutoDestroy, DestroysItsMessageWhenItGoesOutOfScope) {
    auto_destroy<QKLBinary> message(newPacket());
    {
        auto_destroy<> holder(message->copy(false));
        ASSERT_TRUE(holder);
        EXPECT_EQ(2, message->shareCount());
        EXPECT_EQ(holder.get()->shareCount(), (*holder).shareCount());
        EXPECT_EQ(2, holder->shareCount());
    }
    EXPECT_EQ(1, message->shareCount());

    ASSERT_EQ(0, CountingBinary::alive.load());
    { auto_destroy<CountingBinary> counted(new CountingBinary()); EXPECT_EQ(1, CountingBinary::alive.load()); }
    EXPECT_EQ(0, CountingBinary::alive.load());
}

TEST_F(Part11AutoDestroy, EmptyHolderIsFalseAndDestroysNothing) {
    auto_destroy<> empty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(nullptr, empty.get());
    EXPECT_EQ(nullptr, empty.release());
    empty.reset();
    EXPECT_FALSE(empty);
}

TEST_F(Part11AutoDestroy, ReleaseGivesUpOwnershipWithoutDestroying) {
    auto_destroy<QKLBinary> message(newPacket());
    QKLMessage* copy = message->copy(false);
    ASSERT_NE(nullptr, copy);
    {
        auto_destroy<> holder(copy);
        EXPECT_EQ(copy, holder.release());
        EXPECT_FALSE(holder);
        EXPECT_EQ(nullptr, holder.get());
    }
    EXPECT_EQ(2, message->shareCount());  // still alive
    copy->destroy();
    EXPECT_EQ(1, message->shareCount());
}

TEST_F(Part11AutoDestroy, ResetDestroysTheOldMessageButNotTheSameOneAgain) {
    auto_destroy<QKLBinary> message(newPacket());
    QKLMessage* first = message->copy(false);
    QKLMessage* second = message->copy(false);
    ASSERT_TRUE(first && second);
    auto_destroy<> holder(first);
    EXPECT_EQ(3, message->shareCount());

    holder.reset(first);  // the one it holds: kept
    EXPECT_EQ(3, message->shareCount());
    EXPECT_EQ(first, holder.get());

    holder.reset(second);  // another: the old one is destroyed
    EXPECT_EQ(2, message->shareCount());
    EXPECT_EQ(second, holder.get());

    holder.reset();
    EXPECT_EQ(1, message->shareCount());
    EXPECT_FALSE(holder);
}
