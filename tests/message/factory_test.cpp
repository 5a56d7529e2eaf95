// The registry of message factories: byte-wise name order, the default protocol, received bytes.
#include "support/TreeModel.h"

using namespace QKL;
using namespace QKLTest;

struct TestFactory : QKLMsgFactory {  // no constructor registers it: it lives while the registry holds it
    TestFactory(const char* name, bool claims) : name(name), claims(claims) {}
    int isMessageComplete(const char*, int) override { return 42; }
    QKLMessage* newMessage() override { return new QKLBinary(); }
    bool isOfTheKind(const char*) override { return claims; }
    std::string messageType() override { return name; }
    const std::type_info& messageTypeid() override { return typeid(TestFactory); }
    std::string name;
    bool claims;
};

// In a fresh run of this program, whose registry nothing has touched; _Exit skips the leak check.
TEST(Factory, NothingIsRegisteredBeforeTheFirstMessage) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto fresh = [] {  // in this order: && evaluates left to right
        return QKLMsgFactory::setDefaultProtocol("QKLBinary") == -1 && !QKLMessage::initialize() &&
               auto_destroy<>(QKLMsgFactory::createNew()) && getMsgVocabulary().size() == 1 &&
               QKLMsgFactory::setDefaultProtocol("QKLBinary") == 0 && QKLMessage::initialize() &&
               getMsgVocabulary().at("QKLBinary") == QKLMessage::getFactory();
    };
    EXPECT_EXIT(std::_Exit(fresh() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

// kindOf answers the first claimant, the default by type is the first of that type; a failed choice keeps it.
TEST(Factory, RegistryIsWalkedInNameOrder) {
    const std::string document = bytesOf(*auto_destroy<>(fromXml("<packet/>")));
    const boost::intrusive_ptr<QKLMsgFactory> binary = QKLMessage::getFactory();
    getMsgVocabulary()["a_late"] = new TestFactory("a_late", true);
    EXPECT_EQ("QKLBinary", QKLMsgFactory::kindOf(document.data()));
    EXPECT_EQ("a_late", QKLMsgFactory::kindOf("<packet/>"));
    getMsgVocabulary()["A_early"] = new TestFactory("A_early", true);
    EXPECT_EQ("A_early", QKLMsgFactory::kindOf(document.data()));
    for (const char* name : {"qklbinary", "QKLBinary ", "", "a_lat"}) EXPECT_EQ(-1, QKLMsgFactory::setDefaultProtocol(name));
    EXPECT_EQ(binary, QKLMessage::getFactory());
    EXPECT_EQ(0, QKLMsgFactory::setDefaultProtocol(typeid(TestFactory)));
    EXPECT_EQ(getMsgVocabulary().at("A_early"), QKLMessage::getFactory());
    EXPECT_EQ(42, QKLMessage::isComplete("x", 1));
    EXPECT_EQ(0, QKLMsgFactory::setDefaultProtocol("QKLBinary"));
    EXPECT_EQ(getMsgVocabulary().at("QKLBinary"), QKLMessage::getFactory());
    getMsgVocabulary().erase("a_late"), getMsgVocabulary().erase("A_early"), QKLMessage::setFactory(binary);
    EXPECT_EQ("QKLMessage", QKLMsgFactory::kindOf("<packet/>"));
}

TEST(Factory, CreateNewOfRefusedBytesIsNull) {
    const std::string document = bytesOf(*auto_destroy<>(fromXml("<packet><origin>agentA</origin></packet>")));
    std::string lying = document;
    lying[35] = '\x7f';  // the high byte of the first child's data size
    for (const std::string& bytes : {document.substr(0, document.size() - 1), lying, std::string("<a>", 4),
                                     std::string("<packet><origin>a</packet>", 27), std::string()}) {
        EXPECT_EQ(nullptr, auto_destroy<>(QKLMsgFactory::createNew(bytes.data(), int(bytes.size()))).get()) << bytes;
    }
}

TEST(Factory, ReplacedFactoryStaysAlive) {
    QKLMessage::getFactory();  // registers the binary factory on first use
    QKLMsgFactory* const first = getMsgVocabulary().at("QKLBinary").get();
    const int count = first->referenceCount();
    QKLMsgFactory* const second = new QKLMessageFactory<QKLBinary>();
    EXPECT_EQ(second, getMsgVocabulary().at("QKLBinary"));
    EXPECT_EQ(2, second->referenceCount());  // from 0: the registry's and the pin, deliberately never released
    EXPECT_EQ(count - 1, first->referenceCount());  // the pin keeps the replaced one alive
}
