// The base iterator's rules on the binary iterator; a base body it overrides is called by its qualified name.
#include <functional>

#include "support/TreeModel.h"

using namespace QKL;
using namespace QKLTest;

const int VEID = 1002, ALERT = 1003, RESOURCE = 1005;

static std::string childNames(const QKLMessageIterator& at) {
    std::string names = at.curName() + ": ";
    Iterator child(at.newIterator(false));
    for (int more = child->firstChild(); more == 0; more = child->nextSibling()) names += child->curName() + " ";
    return names;
}

// Each call in turn on "alerts": its result, and the iterator back in place with the children after it.
TEST(IteratorRules, PresencePutChildAndDeleteChildStayOnTheElement) {
    auto_destroy<> message(fromXml("<packet><alerts><veid>v</veid><alert/><key/><alert/><alert/></alerts></packet>"));
    Iterator at(message->newIterator());
    ASSERT_EQ(0, at->seek("alerts"));
    const std::string before = "alerts: veid alert key alert alert ";
    const struct { const char* call; std::function<int()> run; int result; std::string children; } calls[] = {
        {"seekPresence(name)", [&] { return at->seekPresence("veid"); }, 0, before},
        {"seekPresence(ID)", [&] { return at->seekPresence(VEID); }, 0, before},
        {"seekPresence(\"\")", [&] { return at->seekPresence(""); }, 0, before},
        {"seekPresence(absent)", [&] { return at->seekPresence("host"); }, -1, before},
        {"putChild(present)", [&] { return at->putChild("alert"); }, 0, before},
        {"putChild(absent)", [&] { return at->putChild("host"); }, 0, before + "host "},
        {"putChild(absent ID)", [&] { return at->putChild(RESOURCE); }, 0, before + "host resource "},
        {"deleteChild(three)", [&] { return at->deleteChild(ALERT); }, 0, "alerts: veid key host resource "},
        {"deleteChild(none)", [&] { return at->deleteChild(ALERT); }, 0, "alerts: veid key host resource "},
    };
    for (const auto& call : calls) {
        const int result = call.run();
        EXPECT_EQ(std::to_string(call.result) + " " + call.children, std::to_string(result) + " " + childNames(*at)) << call.call;
    }
}

// False for exactly "0", "" and "false": case-sensitive and untrimmed, deliberately.
TEST(IteratorRules, BooleanTextAndBufferForms) {
    auto_destroy<> message(fromXml("<packet/>"));
    Iterator at(message->newIterator());
    for (const auto& [text, expected] : {std::pair<const char*, bool>{"1", true}, {"true", true}, {"False", true},
                                         {"00", true}, {" 0", true}, {"0", false}, {"", false}, {"false", false}}) {
        bool byName = !expected, byID = !expected;
        ASSERT_EQ(0, at->putValue(std::string(text), "veid"));
        EXPECT_EQ(0, at->getValue(byName, "veid") + at->getValue(byID, VEID));
        EXPECT_EQ(expected, byName && byID) << '"' << text << '"';
    }
    bool flag = true;  // a failed read leaves it
    EXPECT_EQ(-2, at->getValue(flag, "alert") + at->getValue(flag, ALERT));
    EXPECT_TRUE(flag);
    const std::string withNul("a\0b", 3);  // a string by ID reaches the buffer form whole
    std::string bytes;
    EXPECT_EQ(0, at->QKLMessageIterator::putValueBase64(withNul, ALERT) + at->getValueBase64(bytes, ALERT));
    EXPECT_EQ(withNul, bytes);
    EXPECT_EQ(-1, at->QKLMessageIterator::getValueBase64(bytes, ALERT));  // the base, by a nonzero ID
}

// Every element below "alerts", depth first and parent first; on a shared message the
// first write copies the document and drops the walker's cached positions.
TEST(IteratorRules, SetNamespaceChildOnASharedMessage) {
    struct LoggingIterator : QKLBinaryIterator {
        LoggingIterator(QKLMessage* message, std::string* log) : QKLBinaryIterator(static_cast<QKLBinary*>(message)), log(log) {}
        QKLMessageIterator* newIterator(bool) const override { return new LoggingIterator(*this); }
        using QKLBinaryIterator::setNamespace;
        int setNamespace(int ns) override { return *log += curName() + " ", QKLBinaryIterator::setNamespace(ns); }
        void invalidate() const override { *log += "invalidate ", QKLBinaryIterator::invalidate(); }
        std::string* log;
    };
    auto_destroy<> message(fromXml("<packet><alerts><veid><alert/><key/></veid><resource><host/></resource><item/></alerts>"
                                   "<origin/></packet>")), other(message->copy(false));
    std::string log;
    LoggingIterator at(message.get(), &log);
    ASSERT_EQ(0, at.seek("alerts"));
    EXPECT_EQ(0, at.setNamespaceChild(201));
    EXPECT_EQ("veid invalidate alert key resource host item ", log);
}
