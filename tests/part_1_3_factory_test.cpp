// Part 1.3: Protocol factory registry. The "Edge cases worth testing" bullets
// come first (Part13EdgeCases, one TEST each, named after the bullet), then
// QKLRefCounter, and then the registry, the default protocol and the static
// operations of QKLMessage that rest on it (getFactory, setFactory, initialize,
// isComplete).
//
// The registry and the default factory are process-wide. Tests that change
// them put them back: a test factory registered by hand is erased again
// (RegistryEntry) and the default factory is restored (DefaultFactoryGuard).
// The one check that needs a process in which no factory exists yet runs in a
// re-executed child process (a "threadsafe" death test), so it holds whatever
// ran before it in this process.
#include "qkl/message/QKLMsgFactory.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>

#include <boost/intrusive_ptr.hpp>
#include <boost/noncopyable.hpp>

#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/message/QKLMessage.h"

using QKL::auto_destroy;
using QKL::getMsgVocabulary;
using QKL::QKLBinary;
using QKL::QKLMessage;
using QKL::QKLMessageFactory;
using QKL::QKLMsgFactory;
using QKL::QKLMsgVocabulary;
using QKL::QKLRefCounter;
using FactoryPtr = boost::intrusive_ptr<QKLMsgFactory>;

namespace {

const int WHOLE = 40500;  // the message version a peer that reads the binary form gives serialize

// ---- helpers ---------------------------------------------------------------------------------

// A binary document: a "packet" with an origin, as serialize hands it out.
std::string binaryDocument() {
    auto_destroy<QKLBinary> message(new QKLBinary());
    EXPECT_EQ(0, message->create("packet"));
    EXPECT_EQ(0, message->setOrigin("agentA"));
    char* buffer = nullptr;
    int length = 0;
    EXPECT_EQ(0, message->serialize(&buffer, &length, nullptr, WHOLE));
    std::string bytes(buffer ? buffer : "", buffer ? size_t(length) : 0);
    std::free(buffer);
    return bytes;
}

std::string documentBytes(const QKLMessage& message) {
    char* buffer = nullptr;
    int length = 0;
    if (message.serialize(&buffer, &length, nullptr, WHOLE) != 0) return "<no document>";
    std::string bytes(buffer, size_t(length));
    std::free(buffer);
    return bytes;
}

// The binary factory, registered under "QKLBinary" (made on first use of getFactory()).
QKLMsgFactory* binaryFactory() {
    QKLMessage::getFactory();
    const QKLMsgVocabulary::const_iterator found = getMsgVocabulary().find("QKLBinary");
    return found == getMsgVocabulary().end() ? nullptr : found->second.get();
}

// A counted object that tells when it is deleted.
class Counted : public QKLRefCounter {
public:
    explicit Counted(bool* deleted) : m_deleted(deleted) {}
    ~Counted() override { *m_deleted = true; }

private:
    bool* m_deleted;
};

// Counts living objects, so a test sees that a half-made message was destroyed.
class CountingBinary : public QKLBinary {
public:
    static inline std::atomic<int> alive{0};
    CountingBinary() { ++alive; }
    ~CountingBinary() override { --alive; }
};

// A factory that no constructor registers: tests put it into the registry by
// hand where they need it (RegistryEntry) and take it out again.
class TestFactory : public QKLMsgFactory {
public:
    explicit TestFactory(std::string type, bool claims = false, const std::type_info& typeID = typeid(TestFactory))
        : m_type(std::move(type)), m_claims(claims), m_typeID(&typeID) {}
    using QKLMsgFactory::newMessage;
    int isMessageComplete(const char*, int) override { return COMPLETE_ANSWER; }
    QKLMessage* newMessage() override {
        ++made;
        return makesMessages ? new CountingBinary() : nullptr;
    }
    bool isOfTheKind(const char*) override { return m_claims; }
    std::string messageType() override { return m_type; }
    const std::type_info& messageTypeid() override { return *m_typeID; }

    static constexpr int COMPLETE_ANSWER = 42;
    bool makesMessages = true;
    int made = 0;

private:
    std::string m_type;
    bool m_claims;
    const std::type_info* m_typeID;
};

// Registers a factory under a name for the life of the guard, then erases it.
class RegistryEntry {
public:
    RegistryEntry(const std::string& name, QKLMsgFactory* factory) : m_name(name) {
        EXPECT_EQ(0u, getMsgVocabulary().count(name)) << name << " is registered already";
        getMsgVocabulary()[name] = factory;
    }
    ~RegistryEntry() { getMsgVocabulary().erase(m_name); }
    RegistryEntry(const RegistryEntry&) = delete;
    RegistryEntry& operator=(const RegistryEntry&) = delete;

private:
    std::string m_name;
};

// Puts the process-wide default factory back as it was.
class DefaultFactoryGuard {
public:
    DefaultFactoryGuard() : m_saved(QKLMessage::getFactory()) {}
    ~DefaultFactoryGuard() { QKLMessage::setFactory(m_saved); }
    DefaultFactoryGuard(const DefaultFactoryGuard&) = delete;
    DefaultFactoryGuard& operator=(const DefaultFactoryGuard&) = delete;
    QKLMsgFactory* saved() const { return m_saved.get(); }

private:
    FactoryPtr m_saved;
};

// The checks of the first edge case, in a process where no factory exists yet.
// Returns 0 when all hold, else the number of the first that failed (reported on stderr).
int freshProcessChecks() {
    const auto fail = [](int step, const char* what) {
        std::fprintf(stderr, "fresh-process check %d failed: %s\n", step, what);
        return step;
    };
    QKLMsgVocabulary& registry = getMsgVocabulary();
    if (!registry.empty()) return fail(1, "the registry is not empty: not a fresh process");
    if (QKLMsgFactory::setDefaultProtocol("QKLBinary") != -1) return fail(2, "setDefaultProtocol(\"QKLBinary\") != -1");
    if (QKLMsgFactory::setDefaultProtocol(typeid(QKLBinary)) != -1) return fail(3, "setDefaultProtocol(typeid) != -1");
    if (QKLMessage::initialize()) return fail(4, "initialize() succeeded without a factory");
    if (!registry.empty()) return fail(5, "a failed setDefaultProtocol registered a factory");

    QKLMessage* message = QKLMsgFactory::createNew();
    if (message == nullptr) return fail(6, "createNew() gave null");
    const bool binary = std::strcmp(message->messageType(), "QKLBinary") == 0;
    message->destroy();
    if (!binary) return fail(7, "createNew() did not make a QKLBinary");
    if (registry.size() != 1 || registry.count("QKLBinary") != 1) return fail(8, "registry is not {\"QKLBinary\"}");
    QKLMsgFactory* registered = registry.at("QKLBinary").get();
    // The registry's reference, the pin of registration, and the default's.
    if (registered->referenceCount() != 3) return fail(9, "the first factory's count is not 3");
    if (QKLMessage::getFactory().get() != registered) return fail(10, "the default is not the registered factory");

    if (QKLMsgFactory::setDefaultProtocol("QKLBinary") != 0) return fail(11, "setDefaultProtocol(\"QKLBinary\") != 0");
    if (QKLMessage::getFactory().get() != registered) return fail(12, "the default changed");
    if (!QKLMessage::initialize()) return fail(13, "initialize() failed with a factory");
    if (registered->referenceCount() != 3) return fail(14, "setDefaultProtocol changed the count");
    return 0;
}

}  // namespace

// ---- Edge cases worth testing ---------------------------------------------------------------------

// "`setDefaultProtocol("QKLBinary")` before any factory exists returns -1; after
// `QKLMsgFactory::createNew()` it returns 0."
// A threadsafe death test re-executes this test binary for this one test, so
// the checks run in a process whose registry no other test has filled.
// _exit skips the exit-time leak check of the child: the pinned factory is no finding there.
TEST(Part13EdgeCases, SetDefaultProtocolBeforeAnyFactoryFailsAndAfterCreateNewSucceeds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(_exit(freshProcessChecks()), ::testing::ExitedWithCode(0), "");
}

// "`kindOf` of bytes that no registered factory claims returns "QKLMessage"."
TEST(Part13EdgeCases, KindOfBytesThatNoRegisteredFactoryClaimsIsQKLMessage) {
    ASSERT_NE(nullptr, binaryFactory());
    ASSERT_FALSE(getMsgVocabulary().empty());
    EXPECT_EQ("QKLMessage", QKLMsgFactory::kindOf("<packet><origin>a</origin></packet>"));
    EXPECT_EQ("QKLMessage", QKLMsgFactory::kindOf("abcd"));
    const char zeros[8] = {};
    EXPECT_EQ("QKLMessage", QKLMsgFactory::kindOf(zeros));
    // Three of the four magic bytes are not the magic.
    std::string almost = binaryDocument();
    almost[3] = char(almost[3] ^ 0x01);
    EXPECT_EQ("QKLMessage", QKLMsgFactory::kindOf(almost.data()));
    EXPECT_STREQ("QKLMessage", QKLMsgFactory::UnknownKind);
}

// "`createNew(buf, len)` with bytes that `init` rejects returns null and leaks nothing."
// Through the default factory the leak checker of ASan watches; through a test
// factory the count of living messages shows the half-made message destroyed.
TEST(Part13EdgeCases, CreateNewWithBytesThatInitRejectsReturnsNullAndLeaksNothing) {
    const std::string document = binaryDocument();
    ASSERT_GT(document.size(), 40u);
    const int length = int(document.size());

    // A child whose data size lies: complete by the root's size, refused by the whole-document check.
    std::string lying = document;
    const unsigned int firstChild = QKL::binary::HEADER_SIZE + QKL::binary::NODE_HEAD + QKL::binary::NODE_BORDER;
    const std::uint32_t hugeSize = 0x7FFFFFF0u;
    std::memcpy(&lying[firstChild + QKL::binary::DATA_SIZE_OFFSET], &hugeSize, sizeof hugeSize);
    ASSERT_EQ(length, QKLBinary::isComplete(lying.data(), length));

    // Bytes that are not a binary document are XML text (Part 5.2): text the
    // reader rejects, complete by its NUL byte, is refused by init.
    const char noEndTagText[] = "<a>";
    const char otherEndTagText[] = "<packet><origin>agentA</packet>";
    const std::string noEndTag(noEndTagText, sizeof noEndTagText);  // with the NUL
    const std::string otherEndTag(otherEndTagText, sizeof otherEndTagText);
    ASSERT_EQ(int(otherEndTag.size()), QKLBinary::isComplete(otherEndTag.data(), int(otherEndTag.size())));
    struct Rejected {
        const char* what;
        const char* bytes;
        int length;
    };
    const Rejected rejected[] = {
        {"truncated document", document.data(), length - 1},
        {"document with a lying child", lying.data(), length},
        {"text without an end tag", noEndTag.data(), int(noEndTag.size())},
        {"text with unbalanced tags", otherEndTag.data(), int(otherEndTag.size())},
        {"no bytes", document.data(), 0},
        {"null", nullptr, 0},
    };
    // Every message handed out is released, so an unexpected success leaks nothing either.
    for (const Rejected& bytes : rejected) {
        auto_destroy<QKLMessage> made(QKLMsgFactory::createNew(bytes.bytes, bytes.length));
        EXPECT_EQ(nullptr, made.get()) << bytes.what;
    }

    ASSERT_EQ(0, CountingBinary::alive.load());
    FactoryPtr factory(new TestFactory("Part13_unregistered"));
    for (const Rejected& bytes : rejected) {
        {
            auto_destroy<QKLMessage> made(factory->newMessage(bytes.bytes, bytes.length));
            EXPECT_EQ(nullptr, made.get()) << bytes.what;
        }
        EXPECT_EQ(0, CountingBinary::alive.load()) << bytes.what;
    }
    EXPECT_EQ(int(sizeof rejected / sizeof rejected[0]), static_cast<TestFactory*>(factory.get())->made);
}

// "Constructing a second `QKLMessageFactory<QKLBinary>` replaces the first in the
// registry; both stay alive."
TEST(Part13EdgeCases, SecondBinaryFactoryReplacesTheFirstInTheRegistryAndBothStayAlive) {
    QKLMsgFactory* const first = binaryFactory();
    ASSERT_NE(nullptr, first);
    QKLMsgFactory* const defaultBefore = QKLMessage::getFactory().get();
    const int firstCount = first->referenceCount();
    ASSERT_GE(firstCount, 2);  // at least the registry's and the pin

    QKLMsgFactory* const second = new QKLMessageFactory<QKLBinary>();
    EXPECT_EQ(second, getMsgVocabulary().at("QKLBinary").get());
    EXPECT_EQ(1u, getMsgVocabulary().count("QKLBinary"));
    EXPECT_EQ(2, second->referenceCount());          // the registry's and the pin
    EXPECT_EQ(firstCount - 1, first->referenceCount());  // the registry let go; the pin holds it
    EXPECT_GE(first->referenceCount(), 1);
    EXPECT_EQ(defaultBefore, QKLMessage::getFactory().get());  // registering does not touch the default

    // Both work (a freed factory would be a use-after-free under ASan).
    for (QKLMsgFactory* factory : {first, second}) {
        EXPECT_EQ("QKLBinary", factory->messageType());
        QKLMessage* message = factory->newMessage();
        ASSERT_NE(nullptr, message);
        EXPECT_STREQ("QKLBinary", message->messageType());
        message->destroy();
    }
}

// ---- QKLRefCounter ------------------------------------------------------------------------------

TEST(Part13RefCounter, IsNoncopyableWithAVirtualDestructor) {
    static_assert(!std::is_copy_constructible<QKLRefCounter>::value, "QKLRefCounter cannot be copied");
    static_assert(!std::is_copy_assignable<QKLRefCounter>::value, "QKLRefCounter cannot be assigned");
    static_assert(!std::is_copy_constructible<QKLMsgFactory>::value, "nor can a factory");
    static_assert(!std::is_copy_constructible<QKLMessageFactory<QKLBinary>>::value, "nor the binary factory");
    static_assert(std::is_base_of<boost::noncopyable, QKLRefCounter>::value, "derives from noncopyable");
    static_assert(std::has_virtual_destructor<QKLRefCounter>::value, "deletes through the virtual destructor");
    static_assert(std::is_base_of<QKLRefCounter, QKLMsgFactory>::value, "factories are counted");
    SUCCEED();
}

TEST(Part13RefCounter, CountStartsAt0AndTheReleaseFrom1Deletes) {
    bool deleted = false;
    Counted* counted = new Counted(&deleted);
    EXPECT_EQ(0, counted->referenceCount());
    counted->addRef();
    EXPECT_EQ(1, counted->referenceCount());
    counted->addRef();
    EXPECT_EQ(2, counted->referenceCount());
    counted->release();  // from 2: kept
    EXPECT_FALSE(deleted);
    EXPECT_EQ(1, counted->referenceCount());
    counted->release();  // from 1: deleted through the virtual destructor
    EXPECT_TRUE(deleted);
}

TEST(Part13RefCounter, CountIsAtomicUnderTwoThreads) {
    bool deleted = false;
    Counted* counted = new Counted(&deleted);
    counted->addRef();  // the test's own reference keeps it alive throughout
    const int perThread = 100000;
    const auto addRefs = [counted] {
        for (int i = 0; i < perThread; ++i) counted->addRef();
    };
    std::thread a(addRefs), b(addRefs);
    a.join();
    b.join();
    EXPECT_EQ(1 + 2 * perThread, counted->referenceCount());

    const auto releases = [counted] {
        for (int i = 0; i < perThread; ++i) counted->release();
    };
    std::thread c(releases), d(releases);
    c.join();
    d.join();
    EXPECT_FALSE(deleted);
    EXPECT_EQ(1, counted->referenceCount());
    counted->release();
    EXPECT_TRUE(deleted);
}

TEST(Part13RefCounter, IntrusivePtrHoldsAnyCountedObject) {
    bool deleted = false;
    {
        boost::intrusive_ptr<Counted> first(new Counted(&deleted));
        EXPECT_EQ(1, first->referenceCount());
        boost::intrusive_ptr<QKLRefCounter> second(first);  // through the base class
        EXPECT_EQ(2, first->referenceCount());
        first.reset();
        EXPECT_FALSE(deleted);
        EXPECT_EQ(1, second->referenceCount());
    }
    EXPECT_TRUE(deleted);

    // The free functions are the hooks boost::intrusive_ptr calls.
    deleted = false;
    QKLRefCounter* counted = new Counted(&deleted);
    QKL::intrusive_ptr_add_ref(counted);
    QKL::intrusive_ptr_add_ref(counted);
    EXPECT_EQ(2, counted->referenceCount());
    QKL::intrusive_ptr_release(counted);
    EXPECT_FALSE(deleted);
    QKL::intrusive_ptr_release(counted);
    EXPECT_TRUE(deleted);
}

// ---- the registry and the default protocol ------------------------------------------------------

TEST(Part13Registry, BinaryFactoryDescribesItsProtocol) {
    QKLMsgFactory* factory = binaryFactory();
    ASSERT_NE(nullptr, factory);
    EXPECT_EQ("QKLBinary", factory->messageType());
    EXPECT_STREQ("QKLBinary", QKLBinary::MessageType);
    EXPECT_TRUE(factory->messageTypeid() == typeid(QKLBinary));
    EXPECT_NE(nullptr, dynamic_cast<QKLMessageFactory<QKLBinary>*>(factory));

    auto_destroy<QKLMessage> message(factory->newMessage());
    ASSERT_TRUE(message);
    EXPECT_NE(nullptr, dynamic_cast<QKLBinary*>(message.get()));
    EXPECT_STREQ("QKLBinary", message->messageType());

    const std::string document = binaryDocument();
    EXPECT_TRUE(factory->isOfTheKind(document.data()));
    EXPECT_FALSE(factory->isOfTheKind("abcd"));
    const std::string text("abc\0", 4);
    for (int length : {0, 4, 7, 8, int(document.size()) - 1, int(document.size())}) {
        EXPECT_EQ(QKLBinary::isComplete(document.data(), length), factory->isMessageComplete(document.data(), length))
            << length;
    }
    EXPECT_EQ(4, factory->isMessageComplete(text.data(), 4));
    EXPECT_EQ(0, factory->isMessageComplete(text.data(), 3));
}

TEST(Part13Registry, GetFactoryKeepsOneFactory) {
    FactoryPtr first = QKLMessage::getFactory();
    FactoryPtr again = QKLMessage::getFactory();
    ASSERT_TRUE(first);
    EXPECT_EQ(first.get(), again.get());
    EXPECT_EQ(1u, getMsgVocabulary().count("QKLBinary"));
}

TEST(Part13Registry, KindOfABinaryDocumentIsQKLBinary) {
    ASSERT_NE(nullptr, binaryFactory());
    const std::string document = binaryDocument();
    EXPECT_EQ("QKLBinary", QKLMsgFactory::kindOf(document.data()));
}

// kindOf walks the registry in name order, by plain byte-wise comparison, and
// answers the registry name (not the factory's messageType).
TEST(Part13Registry, KindOfWalksTheRegistryInByteWiseNameOrder) {
    ASSERT_NE(nullptr, binaryFactory());
    const std::string document = binaryDocument();
    {
        // "A..." sorts before "QKLBinary": it claims the binary document first.
        RegistryEntry before("A_part13_claims_all", new TestFactory("Other", true));
        EXPECT_EQ("A_part13_claims_all", QKLMsgFactory::kindOf(document.data()));
        EXPECT_EQ("A_part13_claims_all", QKLMsgFactory::kindOf("abcd"));
    }
    {
        // "a..." sorts after "QKLBinary" byte-wise (not so ignoring case).
        RegistryEntry after("a_part13_claims_all", new TestFactory("Other", true));
        EXPECT_EQ("QKLBinary", QKLMsgFactory::kindOf(document.data()));
        EXPECT_EQ("a_part13_claims_all", QKLMsgFactory::kindOf("abcd"));
    }
    {
        // A factory that claims nothing changes nothing.
        RegistryEntry none("A_part13_claims_none", new TestFactory("Other", false));
        EXPECT_EQ("QKLBinary", QKLMsgFactory::kindOf(document.data()));
        EXPECT_EQ("QKLMessage", QKLMsgFactory::kindOf("abcd"));
    }
    EXPECT_EQ("QKLMessage", QKLMsgFactory::kindOf("abcd"));
}

TEST(Part13Registry, SetDefaultProtocolByNameHandsTheRegisteredFactoryToQKLMessage) {
    DefaultFactoryGuard guard;
    TestFactory* test = new TestFactory("Part13_by_name");
    RegistryEntry entry("Part13_by_name", test);

    EXPECT_EQ(0, QKLMsgFactory::setDefaultProtocol("Part13_by_name"));
    EXPECT_EQ(test, QKLMessage::getFactory().get());
    // createNew, createNew(buf, len) and isComplete now go to the test factory.
    ASSERT_EQ(0, CountingBinary::alive.load());
    QKLMessage* made = QKLMsgFactory::createNew();
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(1, CountingBinary::alive.load());
    made->destroy();
    const std::string document = binaryDocument();
    auto_destroy<QKLMessage> received(QKLMsgFactory::createNew(document.data(), int(document.size())));
    ASSERT_TRUE(received);
    EXPECT_EQ(1, CountingBinary::alive.load());
    EXPECT_EQ(document, documentBytes(*received));
    received.reset();
    EXPECT_EQ(2, test->made);
    EXPECT_EQ(TestFactory::COMPLETE_ANSWER, QKLMessage::isComplete("x", 1));

    EXPECT_EQ(0, QKLMsgFactory::setDefaultProtocol("QKLBinary"));
    EXPECT_EQ(getMsgVocabulary().at("QKLBinary").get(), QKLMessage::getFactory().get());
}

TEST(Part13Registry, SetDefaultProtocolWithAnUnknownNameFailsAndKeepsTheDefault) {
    DefaultFactoryGuard guard;
    ASSERT_NE(nullptr, binaryFactory());
    QKLMsgFactory* const before = QKLMessage::getFactory().get();
    for (const char* name : {"NoSuchProtocol", "qklbinary", "QKLBINARY", "QKLBinary ", ""}) {
        EXPECT_EQ(-1, QKLMsgFactory::setDefaultProtocol(std::string(name))) << '"' << name << '"';
        EXPECT_EQ(before, QKLMessage::getFactory().get()) << '"' << name << '"';
    }
    EXPECT_EQ(0u, getMsgVocabulary().count("NoSuchProtocol"));  // a failed look-up adds no entry
}

TEST(Part13Registry, SetDefaultProtocolByType) {
    DefaultFactoryGuard guard;
    ASSERT_NE(nullptr, binaryFactory());
    TestFactory* test = new TestFactory("Part13_by_type");
    RegistryEntry entry("Part13_by_type", test);

    EXPECT_EQ(0, QKLMsgFactory::setDefaultProtocol(typeid(TestFactory)));
    EXPECT_EQ(test, QKLMessage::getFactory().get());
    EXPECT_EQ(0, QKLMsgFactory::setDefaultProtocol(typeid(QKLBinary)));
    EXPECT_EQ(getMsgVocabulary().at("QKLBinary").get(), QKLMessage::getFactory().get());

    // An unknown type: -1 and the default unchanged. The abstract QKLMessage is no protocol's type.
    QKLMsgFactory* const before = QKLMessage::getFactory().get();
    EXPECT_EQ(-1, QKLMsgFactory::setDefaultProtocol(typeid(int)));
    EXPECT_EQ(-1, QKLMsgFactory::setDefaultProtocol(typeid(QKLMessage)));
    EXPECT_EQ(-1, QKLMsgFactory::setDefaultProtocol(typeid(CountingBinary)));
    EXPECT_EQ(before, QKLMessage::getFactory().get());
}

// setDefaultProtocol(type): "for the first factory (in name order) whose messageTypeid() equals type".
TEST(Part13Registry, SetDefaultProtocolByTypeTakesTheFirstInNameOrder) {
    DefaultFactoryGuard guard;
    TestFactory* later = new TestFactory("Part13_type_b");
    TestFactory* earlier = new TestFactory("Part13_type_a");
    RegistryEntry laterEntry("Part13_type_b", later);
    RegistryEntry earlierEntry("Part13_type_a", earlier);
    EXPECT_EQ(0, QKLMsgFactory::setDefaultProtocol(typeid(TestFactory)));
    EXPECT_EQ(earlier, QKLMessage::getFactory().get());
}

TEST(Part13Registry, InitializeMakesTheBinaryFactoryTheDefault) {
    DefaultFactoryGuard guard;
    ASSERT_NE(nullptr, binaryFactory());
    TestFactory* test = new TestFactory("Part13_initialize");
    RegistryEntry entry("Part13_initialize", test);
    ASSERT_EQ(0, QKLMsgFactory::setDefaultProtocol("Part13_initialize"));
    ASSERT_EQ(test, QKLMessage::getFactory().get());

    EXPECT_TRUE(QKLMessage::initialize());
    EXPECT_EQ(getMsgVocabulary().at("QKLBinary").get(), QKLMessage::getFactory().get());
    EXPECT_TRUE(QKLMessage::initialize());  // again: the same answer
}

// setFactory "exchanges the process-wide factory with the argument (the previous
// one is released when the argument goes away)".
TEST(Part13Registry, SetFactoryExchangesTheProcessWideFactory) {
    DefaultFactoryGuard guard;
    QKLMsgFactory* const previous = guard.saved();
    const int previousCount = previous->referenceCount();  // the guard's included
    TestFactory* test = new TestFactory("Part13_set_factory");
    {
        FactoryPtr argument(test);
        EXPECT_EQ(1, test->referenceCount());
        // The parameter is a copy of `argument`; it takes the previous factory
        // and lets it go when the call returns.
        QKLMessage::setFactory(argument);
        EXPECT_EQ(test, QKLMessage::getFactory().get());
        EXPECT_EQ(2, test->referenceCount());  // the default's and `argument`'s
        EXPECT_EQ(previousCount - 1, previous->referenceCount());
    }
    EXPECT_EQ(1, test->referenceCount());  // the default's only
    EXPECT_EQ(previousCount - 1, previous->referenceCount());
    EXPECT_EQ(TestFactory::COMPLETE_ANSWER, QKLMessage::isComplete("x", 1));
}

// isComplete "asks getFactory() for isMessageComplete(buf, len) and returns its answer".
TEST(Part13Registry, IsCompleteAnswersForTheDefaultProtocol) {
    DefaultFactoryGuard guard;
    ASSERT_EQ(0, QKLMsgFactory::setDefaultProtocol("QKLBinary"));
    const std::string document = binaryDocument();
    const int length = int(document.size());
    EXPECT_EQ(length, QKLMessage::isComplete(document.data(), length));
    EXPECT_EQ(length, QKLMessage::isComplete((document + "next").data(), length + 4));
    EXPECT_EQ(0, QKLMessage::isComplete(document.data(), length - 1));
    EXPECT_EQ(4, QKLMessage::isComplete("abc\0def", 7));  // text up to and with its zero byte
    EXPECT_EQ(0, QKLMessage::isComplete("abc", 3));
}

// The factory's newMessage(buf, len): newMessage() then init(buf, len).
TEST(Part13Registry, NewMessageFromBytesOfTheFactory) {
    QKLMsgFactory* binary = binaryFactory();
    ASSERT_NE(nullptr, binary);
    const std::string document = binaryDocument();
    auto_destroy<QKLMessage> received(binary->newMessage(document.data(), int(document.size())));
    ASSERT_TRUE(received);
    EXPECT_STREQ("QKLBinary", received->messageType());
    EXPECT_EQ(document, documentBytes(*received));
    EXPECT_EQ("agentA", received->getOrigin());

    auto_destroy<QKLMessage> created(QKLMsgFactory::createNew(document.data(), int(document.size())));
    ASSERT_TRUE(created);
    EXPECT_EQ(document, documentBytes(*created));

    // A factory that makes no message: null stays null.
    FactoryPtr none(new TestFactory("Part13_makes_none"));
    static_cast<TestFactory*>(none.get())->makesMessages = false;
    EXPECT_EQ(nullptr, none->newMessage(document.data(), int(document.size())));
    EXPECT_EQ(1, static_cast<TestFactory*>(none.get())->made);
}
