// Part 1.2: Message iterator interface. The base bodies are tested on
// RecordingIterator, which fills every pure slot by recording the call and
// returning a scripted result, and overrides no slot that has a base body; the
// few tests that need an ID-addressed primitive to succeed (seekPresence(int),
// putChild(int), deleteChild, the buffer form) use a subclass that adds just
// those primitives. The "Edge cases worth testing" bullets come first
// (Part12EdgeCases), then the rules one by one, then the same rules on a real
// QKLBinaryIterator, which inherits putChild, seekPresence, deleteChild and the
// boolean reads from the base.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLMsgFactory.h"

using QKL::QKLBinary;
using QKL::QKLBinaryIterator;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;
using Calls = std::vector<std::string>;
using namespace std::string_literals;

namespace {

// What the recorder saw and what it answers; shared by an iterator and the
// iterators it hands out, so that a walker's calls land in the same log.
struct Script {
    Calls calls;
    std::map<std::string, std::deque<int>> results;  // per slot, consumed in order
    int defaultResult = 0;
    std::string text;  // what the string reads return
    int result(const std::string& slot) {
        auto found = results.find(slot);
        if (found == results.end() || found->second.empty()) return defaultResult;
        const int r = found->second.front();
        found->second.pop_front();
        return r;
    }
};

std::string quoted(const std::string& s) { return "'" + s + "'"; }

// Fills every pure slot of QKLMessageIterator and nothing else.
class RecordingIterator : public QKLMessageIterator {
public:
    explicit RecordingIterator(QKLMessage* message = nullptr, std::shared_ptr<Script> script = nullptr)
        : QKLMessageIterator(message), s(script ? script : std::make_shared<Script>()) {}

    // The base bodies stay visible beside the slots filled here.
    using QKLMessageIterator::firstChild;
    using QKLMessageIterator::getValue;
    using QKLMessageIterator::getValueBase64;
    using QKLMessageIterator::getValueDouble;
    using QKLMessageIterator::getValueLongLong;
    using QKLMessageIterator::getValueTime;
    using QKLMessageIterator::getValueTimeZone;
    using QKLMessageIterator::newChild;
    using QKLMessageIterator::nextSibling;
    using QKLMessageIterator::putValue;
    using QKLMessageIterator::putValueBase64;
    using QKLMessageIterator::putValueDouble;
    using QKLMessageIterator::putValueLongLong;
    using QKLMessageIterator::putValueTime;
    using QKLMessageIterator::putValueTimeZone;
    using QKLMessageIterator::seek;
    using QKLMessageIterator::setComplexType;
    using QKLMessageIterator::setNamespace;

    std::shared_ptr<Script> s;
    bool handOutIterators = false;  // newIterator gives null unless set

    int rec(const std::string& call, const std::string& slot) {
        s->calls.push_back(call);
        return s->result(slot);
    }
    int rec(const std::string& call) const {
        return const_cast<RecordingIterator*>(this)->rec(call, call.substr(0, call.find('(')));
    }
    const Calls& calls() const { return s->calls; }
    void script(const std::string& slot, std::deque<int> results) { s->results[slot] = results; }

    QKLMessageIterator* newIterator(bool withCopy) const override {
        rec("newIterator("s + (withCopy ? "true" : "false") + ")");
        if (!handOutIterators) return nullptr;
        RecordingIterator* other = new RecordingIterator(getMessage(), s);
        other->handOutIterators = true;
        return other;
    }
    int seekUp() const override { return rec("seekUp()"); }
    int seek(const std::string& path) const override { return rec("seek(" + quoted(path) + ")"); }
    int setNamespace(const std::string& ns) override { return rec("setNamespace(" + quoted(ns) + ")"); }
    int setComplexType(const std::string& ns, const std::string& type) override {
        return rec("setComplexType(" + quoted(ns) + "," + quoted(type) + ")");
    }
    int newChild(const std::string& name) override { return rec("newChild(" + quoted(name) + ")"); }
    int firstChild(const std::string& name) const override { return rec("firstChild(" + quoted(name) + ")"); }
    int nextSibling() const override { return rec("nextSibling()"); }
    int nextSibling(const std::string& name) const override { return rec("nextSibling(" + quoted(name) + ")"); }
    std::string curName() const override {
        rec("curName()");
        return "name";
    }
    std::string curType() const override {
        rec("curType()");
        return "type";
    }
    int firstChild() const override { return rec("firstChild()"); }
    int serializeFromChild(char**, int*) const override { return rec("serializeFromChild()"); }
    int deserializeToChild(const char*, int len) override {
        return rec("deserializeToChild(" + std::to_string(len) + ")");
    }
    int copyToChild(const QKLMessageIterator*) override { return rec("copyToChild()"); }
    char* toTextFromChild() const override {
        rec("toTextFromChild()");
        return nullptr;
    }
    int fromTextToChild(const char*) override { return rec("fromTextToChild()"); }
    int deleteFromChild() override { return rec("deleteFromChild()"); }
    int getValueBase64(std::string& value, const std::string& name) const override {
        value = s->text;
        return rec("getValueBase64(" + quoted(name) + ")");
    }
    int getValue(std::string& value, const std::string& name) const override {
        value = s->text;
        return rec("getValue(string," + quoted(name) + ")");
    }
    int getValue(int& value, const std::string& name) const override {
        value = 41;
        return rec("getValue(int," + quoted(name) + ")");
    }
    int getValueLongLong(long long& value, const std::string& name) const override {
        value = 1LL << 40;
        return rec("getValueLongLong(" + quoted(name) + ")");
    }
    int getValueDouble(double& value, const std::string& name) const override {
        value = 2.5;
        return rec("getValueDouble(" + quoted(name) + ")");
    }
    int getValueTime(long& value, const std::string& name) const override {
        value = 1000;
        return rec("getValueTime(" + quoted(name) + ")");
    }
    int getValueTimeZone(long& value, int& zone, const std::string& name) const override {
        value = 2000;
        zone = -120;
        return rec("getValueTimeZone(" + quoted(name) + ")");
    }
    int putValueBase64(const std::string& value, const std::string& name) override {
        return rec("putValueBase64(" + quoted(value) + "," + quoted(name) + ")");
    }
    int putValue(const std::string& value, const std::string& name) override {
        return rec("putValue(string," + quoted(value) + "," + quoted(name) + ")");
    }
    int putValueLongLong(long long value, const std::string& name) override {
        return rec("putValueLongLong(" + std::to_string(value) + "," + quoted(name) + ")");
    }
    int putValueDouble(double value, const std::string& name) override {
        return rec("putValueDouble(" + std::to_string(value) + "," + quoted(name) + ")");
    }
    int putValue(int value, const std::string& name) override {
        return rec("putValue(int," + std::to_string(value) + "," + quoted(name) + ")");
    }
    int putValueTime(long value, const std::string& name) override {
        return rec("putValueTime(" + std::to_string(value) + "," + quoted(name) + ")");
    }
    int putValueTimeZone(long value, int zone, const std::string& name) override {
        return rec("putValueTimeZone(" + std::to_string(value) + "," + std::to_string(zone) + "," + quoted(name) +
                   ")");
    }
    int setNamespace(int nsID) override { return rec("setNamespace(" + std::to_string(nsID) + ")"); }
    int setComplexType(int nsID, int typeID) override {
        return rec("setComplexType(" + std::to_string(nsID) + "," + std::to_string(typeID) + ")");
    }
    void invalidate() const override { rec("invalidate()"); }
};

// Adds the ID-addressed primitives that a protocol knowing element IDs would
// supply, so that the base bodies built on them can be driven.
class IdRecordingIterator : public RecordingIterator {
public:
    using RecordingIterator::RecordingIterator;
    using QKLMessageIterator::getValue;
    using QKLMessageIterator::putValue;
    using QKLMessageIterator::putValueBase64;
    using RecordingIterator::firstChild;
    using RecordingIterator::newChild;
    using RecordingIterator::nextSibling;
    using RecordingIterator::seek;

    int seek(int id) const override { return rec("seek(" + std::to_string(id) + ")"); }
    int newChild(int id) override { return rec("newChild(" + std::to_string(id) + ")"); }
    int firstChild(int id) const override { return rec("firstChild(" + std::to_string(id) + ")"); }
    int nextSibling(int id) const override { return rec("nextSibling(" + std::to_string(id) + ")"); }
    int getValue(std::string& value, int id) const override {
        value = s->text;
        return rec("getValue(string," + std::to_string(id) + ")");
    }
    int putValueBase64(const char* data, int len, int id) override {
        return rec("putValueBase64(buf," + quoted(std::string(data, std::size_t(len))) + "," + std::to_string(len) +
                   "," + std::to_string(id) + ")");
    }
    int putValue(const char* data, int len, int id) override {
        return rec("putValue(buf," + quoted(std::string(data, std::size_t(len))) + "," + std::to_string(len) + "," +
                   std::to_string(id) + ")");
    }
};

// A QKLBinary whose whole-message renderings and sharing answers are recorded
// and scripted, for the bodies that ask the message.
class RecordingBinary : public QKLBinary {
public:
    mutable Calls calls;
    mutable const QKLMessageIterator* lastFrom = reinterpret_cast<const QKLMessageIterator*>(1);
    mutable std::string lastUnused = "unset";
    mutable int lastFlags = 0;
    mutable char** lastBuf = nullptr;
    mutable int* lastLen = nullptr;
    int serializeResult = 0;
    char* textResult = nullptr;
    bool shared = false;
    int hardcopyResult = 0;

    int serialize(char** buf, int* len, const QKLMessageIterator* from, int flags) const override {
        calls.push_back("serialize");
        lastBuf = buf;
        lastLen = len;
        lastFrom = from;
        lastFlags = flags;
        return serializeResult;
    }
    using QKLBinary::serialize;
    char* toText(const QKLMessageIterator* from, const std::string& unused, int flags) const override {
        calls.push_back("toText");
        lastFrom = from;
        lastUnused = unused;
        lastFlags = flags;
        return textResult;
    }
    using QKLBinary::toText;
    bool multiReference() const override {
        calls.push_back("multiReference");
        return shared;
    }
    int hardcopy() const override {
        calls.push_back("hardcopy");
        return hardcopyResult;
    }
};

// ---- real documents ----------------------------------------------------------------------------

struct Doc {
    QKL::auto_destroy<> message{QKL::QKLMsgFactory::createNew()};
    std::unique_ptr<QKLMessageIterator> it;
    Doc() {
        EXPECT_TRUE(message);
        EXPECT_EQ(0, message->create("packet"));
        it.reset(message->newIterator());
    }
    QKLBinaryIterator& bit() { return static_cast<QKLBinaryIterator&>(*it); }
    std::string bytes() const {
        char* buf = nullptr;
        int len = 0;
        EXPECT_EQ(0, message->serialize(&buf, &len, nullptr, 40500));
        std::string out(buf ? buf : "", buf ? std::size_t(len) : 0);
        std::free(buf);
        return out;
    }
};

// The names of the current element's children, in document order; the iterator stays.
std::vector<std::string> childNames(const QKLMessageIterator& it) {
    std::vector<std::string> names;
    std::unique_ptr<QKLMessageIterator> walker(it.newIterator(false));
    if (walker->firstChild() != 0) return names;
    do names.push_back(walker->curName());
    while (walker->nextSibling() == 0);
    return names;
}

// Element vocabulary (Part 4.1): 1001 "alerts", 1002 "veid", 1003 "alert", 1068 "host".
const int ALERTS = 1001, VEID = 1002, ALERT = 1003;

// ================================================================================================
// Edge cases worth testing
// ================================================================================================

TEST(Part12EdgeCases, SeekPresenceEmptyNameAndIdZeroReturn0AndStayWheneverSeekSucceeds) {
    IdRecordingIterator rec;
    EXPECT_EQ(0, rec.seekPresence(""));
    EXPECT_EQ(0, rec.seekPresence(0));
    EXPECT_EQ((Calls{"seek('')", "seek(0)"}), rec.calls());  // no seekUp: the iterator did not move

    Doc doc;
    ASSERT_EQ(0, doc.it->putValue("v"s, "origin"));
    ASSERT_EQ(0, doc.it->seek("origin"));
    EXPECT_EQ(0, doc.it->seekPresence(""));
    EXPECT_EQ("origin", doc.it->curName());
    EXPECT_EQ(0, doc.it->seekPresence(0));
    EXPECT_EQ("origin", doc.it->curName());
    EXPECT_EQ(2u, doc.bit().path().depth());
}

TEST(Part12EdgeCases, PutChildOnAnElementThatHasTheChildLeavesTheTreeUnchangedAndTheIteratorInPlace) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    ASSERT_EQ(0, doc.it->putValue("x"s, "veid"));
    ASSERT_EQ(0, doc.it->putValue("y"s, "alert"));
    const std::string before = doc.bytes();
    EXPECT_EQ(0, doc.it->putChild("veid"));
    EXPECT_EQ(before, doc.bytes());
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(2u, doc.bit().path().depth());
    EXPECT_EQ(0, doc.it->putChild(VEID));
    EXPECT_EQ(before, doc.bytes());
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(2u, doc.bit().path().depth());
}

TEST(Part12EdgeCases, PutChildOnAnElementThatLacksTheChildAddsExactlyOneChildAndTheIteratorStays) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    ASSERT_EQ(0, doc.it->putValue("x"s, "veid"));
    EXPECT_EQ(0, doc.it->putChild("alert"));
    EXPECT_EQ((std::vector<std::string>{"veid", "alert"}), childNames(*doc.it));
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(2u, doc.bit().path().depth());
    // By ID too; and a name in no vocabulary is created as well.
    EXPECT_EQ(0, doc.it->putChild(ALERTS));
    EXPECT_EQ(0, doc.it->putChild("not_in_any_vocabulary"));
    EXPECT_EQ((std::vector<std::string>{"veid", "alert", "alerts", "not_in_any_vocabulary"}), childNames(*doc.it));
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(2u, doc.bit().path().depth());
}

TEST(Part12EdgeCases, DeleteChildWithNoSuchChildReturns0AndChangesNothing) {
    IdRecordingIterator rec;
    rec.script("firstChild", {-1});
    EXPECT_EQ(0, rec.deleteChild(ALERT));
    EXPECT_EQ((Calls{"firstChild(1003)"}), rec.calls());

    Doc doc;
    ASSERT_EQ(0, doc.it->putValue("x"s, "veid"));
    const std::string before = doc.bytes();
    EXPECT_EQ(0, doc.it->deleteChild(ALERT));
    EXPECT_EQ(before, doc.bytes());
    EXPECT_EQ(1u, doc.bit().path().depth());
}

TEST(Part12EdgeCases, DeleteChildWithThreeSuchChildrenRemovesAllThree) {
    IdRecordingIterator rec;
    rec.script("firstChild", {0, 0, 0, -1});
    EXPECT_EQ(0, rec.deleteChild(ALERT));
    EXPECT_EQ((Calls{"firstChild(1003)", "deleteFromChild()", "firstChild(1003)", "deleteFromChild()",
                     "firstChild(1003)", "deleteFromChild()", "firstChild(1003)"}),
              rec.calls());

    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    for (const char* name : {"alert", "veid", "alert", "time", "alert"}) {
        ASSERT_EQ(0, doc.it->newChild(name));
        ASSERT_EQ(0, doc.it->seekUp());
    }
    EXPECT_EQ(0, doc.it->deleteChild(ALERT));
    EXPECT_EQ((std::vector<std::string>{"veid", "time"}), childNames(*doc.it));
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(2u, doc.bit().path().depth());
}

TEST(Part12EdgeCases, BooleanReadOf1TrueAndFalseCapitalisedGivesTrueAndOf0EmptyAndFalseGivesFalse) {
    RecordingIterator rec;
    for (const char* text : {"1", "true", "False"}) {
        rec.s->text = text;
        bool flag = false;
        EXPECT_EQ(0, rec.getValue(flag, "e"s)) << text;
        EXPECT_TRUE(flag) << text;
    }
    for (const char* text : {"0", "", "false"}) {
        rec.s->text = text;
        bool flag = true;
        EXPECT_EQ(0, rec.getValue(flag, "e"s)) << text;
        EXPECT_FALSE(flag) << text;
    }
}

TEST(Part12EdgeCases, IdAddressedTypedReadOrWriteWithNonzeroIdOnANonOverridingIteratorReturnsMinus1) {
    RecordingIterator rec;
    rec.s->defaultResult = 0;  // every name form would succeed
    std::string text = "keep";
    int i = 7;
    long long ll = 8;
    double d = 9.5;
    long t = 10, tz = 11;
    int zone = 12;
    EXPECT_EQ(-1, rec.getValueBase64(text, ALERTS));
    EXPECT_EQ(-1, rec.getValue(text, ALERTS));
    EXPECT_EQ(-1, rec.getValue(i, ALERTS));
    EXPECT_EQ(-1, rec.getValueLongLong(ll, ALERTS));
    EXPECT_EQ(-1, rec.getValueDouble(d, ALERTS));
    EXPECT_EQ(-1, rec.getValueTime(t, ALERTS));
    EXPECT_EQ(-1, rec.getValueTimeZone(tz, zone, ALERTS));
    EXPECT_EQ(-1, rec.putValueLongLong(1LL, ALERTS));
    EXPECT_EQ(-1, rec.putValueDouble(1.0, ALERTS));
    EXPECT_EQ(-1, rec.putValue(1, ALERTS));
    EXPECT_EQ(-1, rec.putValueTime(1L, ALERTS));
    EXPECT_EQ(-1, rec.putValueTimeZone(1L, 60, ALERTS));
    // The buffer forms of the base refuse as well, and so the string writes by ID.
    EXPECT_EQ(-1, rec.putValue("abc", 3, ALERTS));
    EXPECT_EQ(-1, rec.putValueBase64("abc", 3, ALERTS));
    EXPECT_EQ(-1, rec.putValue("abc"s, ALERTS));
    EXPECT_EQ(-1, rec.putValueBase64("abc"s, ALERTS));
    bool flag = true;
    EXPECT_EQ(-1, rec.getValue(flag, ALERTS));
    EXPECT_TRUE(rec.calls().empty());
    EXPECT_EQ("keep", text);
    EXPECT_EQ(7, i);
    EXPECT_EQ(8, ll);
    EXPECT_EQ(9.5, d);
    EXPECT_EQ(10, t);
    EXPECT_EQ(11, tz);
    EXPECT_EQ(12, zone);
    EXPECT_TRUE(flag);
}

TEST(Part12EdgeCases, PutValueStringByIdWithANulBytePassesTheFullLengthOn) {
    IdRecordingIterator rec;
    const std::string value("a\0b\0", 4);
    EXPECT_EQ(0, rec.putValue(value, ALERTS));
    EXPECT_EQ(0, rec.putValueBase64(value, ALERTS));
    EXPECT_EQ((Calls{"putValue(buf,'" + value + "',4,1001)", "putValueBase64(buf,'" + value + "',4,1001)"}),
              rec.calls());
}

// ================================================================================================
// The ID rule
// ================================================================================================

TEST(Part12IdRule, IdZeroForwardsEveryTypedReadToTheNameFormWithTheEmptyName) {
    RecordingIterator rec;
    rec.s->text = "from the name form";
    std::string text, b64;
    int i = 0;
    long long ll = 0;
    double d = 0;
    long t = 0, tz = 0;
    int zone = 0;
    EXPECT_EQ(0, rec.getValueBase64(b64, 0));
    EXPECT_EQ(0, rec.getValue(text, 0));
    EXPECT_EQ(0, rec.getValue(i, 0));
    EXPECT_EQ(0, rec.getValueLongLong(ll, 0));
    EXPECT_EQ(0, rec.getValueDouble(d, 0));
    EXPECT_EQ(0, rec.getValueTime(t, 0));
    EXPECT_EQ(0, rec.getValueTimeZone(tz, zone, 0));
    EXPECT_EQ((Calls{"getValueBase64('')", "getValue(string,'')", "getValue(int,'')", "getValueLongLong('')",
                     "getValueDouble('')", "getValueTime('')", "getValueTimeZone('')"}),
              rec.calls());
    // The out-parameters are those of the caller.
    EXPECT_EQ("from the name form", b64);
    EXPECT_EQ("from the name form", text);
    EXPECT_EQ(41, i);
    EXPECT_EQ(1LL << 40, ll);
    EXPECT_EQ(2.5, d);
    EXPECT_EQ(1000, t);
    EXPECT_EQ(2000, tz);
    EXPECT_EQ(-120, zone);
}

TEST(Part12IdRule, IdZeroForwardsEveryTypedWriteToTheNameFormWithTheEmptyNameAndTheSameValue) {
    RecordingIterator rec;
    EXPECT_EQ(0, rec.putValueLongLong(-(1LL << 41), 0));
    EXPECT_EQ(0, rec.putValueDouble(0.25, 0));
    EXPECT_EQ(0, rec.putValue(-17, 0));
    EXPECT_EQ(0, rec.putValueTime(123456L, 0));
    EXPECT_EQ(0, rec.putValueTimeZone(654321L, 90, 0));
    EXPECT_EQ((Calls{"putValueLongLong(-2199023255552,'')", "putValueDouble(0.250000,'')", "putValue(int,-17,'')",
                     "putValueTime(123456,'')", "putValueTimeZone(654321,90,'')"}),
              rec.calls());
}

TEST(Part12IdRule, TheNameFormsResultIsPassedBackUnchanged) {
    for (int answer : {-1, 1, 7, -5}) {
        RecordingIterator rec;
        rec.s->defaultResult = answer;
        std::string text;
        int i = 0;
        long long ll = 0;
        double d = 0;
        long t = 0;
        int zone = 0;
        EXPECT_EQ(answer, rec.getValueBase64(text, 0));
        EXPECT_EQ(answer, rec.getValue(text, 0));
        EXPECT_EQ(answer, rec.getValue(i, 0));
        EXPECT_EQ(answer, rec.getValueLongLong(ll, 0));
        EXPECT_EQ(answer, rec.getValueDouble(d, 0));
        EXPECT_EQ(answer, rec.getValueTime(t, 0));
        EXPECT_EQ(answer, rec.getValueTimeZone(t, zone, 0));
        EXPECT_EQ(answer, rec.putValueLongLong(1LL, 0));
        EXPECT_EQ(answer, rec.putValueDouble(1.0, 0));
        EXPECT_EQ(answer, rec.putValue(1, 0));
        EXPECT_EQ(answer, rec.putValueTime(1L, 0));
        EXPECT_EQ(answer, rec.putValueTimeZone(1L, 1, 0));
        EXPECT_EQ(answer, rec.putValue("s"s, 0));
        EXPECT_EQ(answer, rec.putValueBase64("s"s, 0));
        EXPECT_EQ(14u, rec.calls().size());
    }
}

TEST(Part12IdRule, NonzeroIdCallsNothingWhateverTheNameFormWouldAnswer) {
    for (int id : {1, -1, -2, 101, ALERTS, 65534}) {
        RecordingIterator rec;
        std::string text;
        int i = 0;
        EXPECT_EQ(-1, rec.getValue(text, id)) << id;
        EXPECT_EQ(-1, rec.getValue(i, id)) << id;
        EXPECT_EQ(-1, rec.putValue(1, id)) << id;
        EXPECT_TRUE(rec.calls().empty()) << id;
    }
}

// ================================================================================================
// The buffer rule
// ================================================================================================

TEST(Part12BufferRule, NonzeroIdGoesToTheBufferFormWithBytesSizeAndTheSameId) {
    IdRecordingIterator rec;
    rec.s->defaultResult = 5;
    EXPECT_EQ(5, rec.putValue("hello"s, -3));
    EXPECT_EQ(5, rec.putValueBase64(""s, 7));
    EXPECT_EQ((Calls{"putValue(buf,'hello',5,-3)", "putValueBase64(buf,'',0,7)"}), rec.calls());
}

TEST(Part12BufferRule, IdZeroGoesToTheNameFormWithTheEmptyNameAndTheWholeString) {
    IdRecordingIterator rec;
    const std::string value("x\0y", 3);
    EXPECT_EQ(0, rec.putValue(value, 0));
    EXPECT_EQ(0, rec.putValueBase64(value, 0));
    EXPECT_EQ((Calls{"putValue(string,'" + value + "','')", "putValueBase64('" + value + "','')"}), rec.calls());
}

TEST(Part12BufferRule, TheBaseBufferFormsReturnMinus1AndTheRuleLandsThereForANonzeroId) {
    RecordingIterator rec;
    const std::string value("a\0b", 3);
    EXPECT_EQ(-1, rec.putValue(value, ALERTS));
    EXPECT_EQ(-1, rec.putValueBase64(value, ALERTS));
    EXPECT_EQ(-1, rec.putValue(value.data(), int(value.size()), 0));
    EXPECT_EQ(-1, rec.putValueBase64(value.data(), int(value.size()), 0));
    EXPECT_TRUE(rec.calls().empty());
}

// ================================================================================================
// The boolean rule
// ================================================================================================

TEST(Part12BooleanRule, ComparisonIsCaseSensitiveAndUntrimmed) {
    RecordingIterator rec;
    for (const char* text : {"False", "FALSE", "00", " 0", "0 ", "false ", " ", "no", "off", "2", "-0"}) {
        rec.s->text = text;
        bool flag = false;
        EXPECT_EQ(0, rec.getValue(flag, "e"s)) << '"' << text << '"';
        EXPECT_TRUE(flag) << '"' << text << '"';
    }
}

TEST(Part12BooleanRule, ExactlyZeroOneCharacterEmptyAndFalseAreFalse) {
    RecordingIterator rec;
    const std::string texts[] = {"0"s, ""s, "false"s};
    for (const std::string& text : texts) {
        rec.s->text = text;
        bool flag = true;
        EXPECT_EQ(0, rec.getValue(flag, "e"s));
        EXPECT_FALSE(flag) << '"' << text << '"';
    }
    // A NUL byte behind "0" makes it two characters: true.
    rec.s->text = std::string("0\0", 2);
    bool flag = false;
    EXPECT_EQ(0, rec.getValue(flag, "e"s));
    EXPECT_TRUE(flag);
}

TEST(Part12BooleanRule, ByNameReadsTheStringThroughTheNameForm) {
    RecordingIterator rec;
    rec.s->text = "1";
    bool flag = false;
    EXPECT_EQ(0, rec.getValue(flag, "a/b"s));
    EXPECT_EQ((Calls{"getValue(string,'a/b')"}), rec.calls());
}

TEST(Part12BooleanRule, AFailedReadReturnsItsStatusAndLeavesTheFlagUntouched) {
    for (int status : {-1, 1, 3}) {
        RecordingIterator rec;
        rec.s->text = "0";
        rec.s->defaultResult = status;
        bool flag = true;
        EXPECT_EQ(status, rec.getValue(flag, "e"s));
        EXPECT_TRUE(flag);
        rec.s->text = "1";
        flag = false;
        EXPECT_EQ(status, rec.getValue(flag, "e"s));
        EXPECT_FALSE(flag);
        flag = false;
        EXPECT_EQ(status, rec.getValue(flag, 0));
        EXPECT_FALSE(flag);
    }
}

TEST(Part12BooleanRule, IdZeroForwardsToTheBooleanNameFormWithTheEmptyName) {
    RecordingIterator rec;
    rec.s->text = "true";
    bool flag = false;
    EXPECT_EQ(0, rec.getValue(flag, 0));
    EXPECT_TRUE(flag);
    EXPECT_EQ((Calls{"getValue(string,'')"}), rec.calls());
}

TEST(Part12BooleanRule, NonzeroIdReadsThroughTheIdFormOfTheStringRead) {
    IdRecordingIterator rec;
    rec.s->text = "false";
    bool flag = true;
    EXPECT_EQ(0, rec.getValue(flag, ALERTS));
    EXPECT_FALSE(flag);
    rec.s->text = "False";
    EXPECT_EQ(0, rec.getValue(flag, ALERTS));
    EXPECT_TRUE(flag);
    EXPECT_EQ((Calls{"getValue(string,1001)", "getValue(string,1001)"}), rec.calls());
    rec.s->defaultResult = -1;
    rec.s->text = "0";
    EXPECT_EQ(-1, rec.getValue(flag, ALERTS));
    EXPECT_TRUE(flag);
}

TEST(Part12BooleanRule, TheConstantsAreTheEmptyNameAndFalse) {
    EXPECT_EQ("", QKLMessageIterator::EmptyName);
    EXPECT_EQ("false", QKLMessageIterator::FalseText);
}

// ================================================================================================
// seekPresence, putChild, deleteChild
// ================================================================================================

TEST(Part12SeekPresence, ANameCallsSeekThenSeekUpAndReturns0) {
    RecordingIterator rec;
    EXPECT_EQ(0, rec.seekPresence("a/b"));
    EXPECT_EQ((Calls{"seek('a/b')", "seekUp()"}), rec.calls());
}

TEST(Part12SeekPresence, TheResultOfSeekUpIsIgnored) {
    RecordingIterator rec;
    rec.script("seekUp", {-1});
    EXPECT_EQ(0, rec.seekPresence("a"));
    EXPECT_EQ((Calls{"seek('a')", "seekUp()"}), rec.calls());
}

TEST(Part12SeekPresence, AFailedSeekReturnsMinus1WithoutSeekUp) {
    RecordingIterator rec;
    rec.s->defaultResult = -1;
    EXPECT_EQ(-1, rec.seekPresence("a"));
    EXPECT_EQ(-1, rec.seekPresence(""));
    EXPECT_EQ((Calls{"seek('a')", "seek('')"}), rec.calls());
    rec.s->defaultResult = 2;  // any nonzero result is a failure
    EXPECT_EQ(-1, rec.seekPresence("b"));
}

TEST(Part12SeekPresence, ByIdOnANonOverridingIteratorFailsSinceTheBaseSeekByIdDoes) {
    RecordingIterator rec;
    EXPECT_EQ(-1, rec.seekPresence(0));
    EXPECT_EQ(-1, rec.seekPresence(ALERTS));
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12SeekPresence, ByIdCallsSeekByIdThenSeekUpForANonzeroId) {
    IdRecordingIterator rec;
    rec.script("seekUp", {-1});
    EXPECT_EQ(0, rec.seekPresence(ALERTS));
    rec.script("seek", {-1});
    EXPECT_EQ(-1, rec.seekPresence(VEID));
    EXPECT_EQ((Calls{"seek(1001)", "seekUp()", "seek(1002)"}), rec.calls());
}

TEST(Part12SeekPresence, OnARealIteratorFindsWithoutMoving) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    ASSERT_EQ(0, doc.it->putValue("v"s, "veid"));
    EXPECT_EQ(0, doc.it->seekPresence("veid"));
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(0, doc.it->seekPresence(VEID));
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(-1, doc.it->seekPresence("alert"));
    EXPECT_EQ(-1, doc.it->seekPresence(ALERT));
    EXPECT_EQ(-1, doc.it->seekPresence("no_such_name_anywhere"));
    EXPECT_EQ("alerts", doc.it->curName());
    EXPECT_EQ(2u, doc.bit().path().depth());
    // An absolute path from below.
    EXPECT_EQ(0, doc.it->seekPresence("/alerts/veid"));
    EXPECT_EQ("alerts", doc.it->curName());
}

TEST(Part12PutChild, AFoundChildIsNotCreated) {
    RecordingIterator rec;
    EXPECT_EQ(0, rec.putChild("a"));
    EXPECT_EQ((Calls{"seek('a')", "seekUp()"}), rec.calls());
}

TEST(Part12PutChild, AMissingChildIsCreatedThenSeekUp) {
    RecordingIterator rec;
    rec.script("seek", {-1});
    rec.script("seekUp", {-1});  // ignored
    EXPECT_EQ(0, rec.putChild("a"));
    EXPECT_EQ((Calls{"seek('a')", "newChild('a')", "seekUp()"}), rec.calls());
}

TEST(Part12PutChild, BothFailingGivesMinus1WithoutSeekUp) {
    RecordingIterator rec;
    rec.s->defaultResult = -1;
    EXPECT_EQ(-1, rec.putChild("a"));
    EXPECT_EQ((Calls{"seek('a')", "newChild('a')"}), rec.calls());
}

TEST(Part12PutChild, ByIdOnANonOverridingIteratorFailsSinceSeekAndNewChildByIdDo) {
    RecordingIterator rec;
    EXPECT_EQ(-1, rec.putChild(ALERTS));
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12PutChild, ByIdUsesSeekByIdNewChildByIdAndSeekUp) {
    IdRecordingIterator rec;
    EXPECT_EQ(0, rec.putChild(ALERTS));
    rec.script("seek", {-1});
    EXPECT_EQ(0, rec.putChild(VEID));
    rec.script("seek", {-1});
    rec.script("newChild", {-1});
    EXPECT_EQ(-1, rec.putChild(ALERT));
    EXPECT_EQ((Calls{"seek(1001)", "seekUp()", "seek(1002)", "newChild(1002)", "seekUp()", "seek(1003)",
                     "newChild(1003)"}),
              rec.calls());
}

TEST(Part12PutChild, OnARealIteratorWithSeveralSuchChildrenNothingIsAdded) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(0, doc.it->newChild("alert"));
        ASSERT_EQ(0, doc.it->seekUp());
    }
    const std::string before = doc.bytes();
    EXPECT_EQ(0, doc.it->putChild("alert"));
    EXPECT_EQ(before, doc.bytes());
    EXPECT_EQ("alerts", doc.it->curName());
}

TEST(Part12DeleteChild, TheBaseFirstChildByIdFindsNothingSoNothingIsDeleted) {
    RecordingIterator rec;
    EXPECT_EQ(0, rec.deleteChild(ALERT));
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12DeleteChild, AFailingDeleteFromChildStopsWithMinus1) {
    IdRecordingIterator rec;
    rec.script("firstChild", {0, 0, 0});
    rec.script("deleteFromChild", {0, -1});
    EXPECT_EQ(-1, rec.deleteChild(ALERT));
    EXPECT_EQ((Calls{"firstChild(1003)", "deleteFromChild()", "firstChild(1003)", "deleteFromChild()"}),
              rec.calls());
}

TEST(Part12DeleteChild, OnARealIteratorOtherChildrenAndDeeperSameIdElementsStay) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    ASSERT_EQ(0, doc.it->newChild("veid"));
    ASSERT_EQ(0, doc.it->newChild("alert"));  // a grandchild with the same ID
    ASSERT_EQ(0, doc.it->seekUp());
    ASSERT_EQ(0, doc.it->seekUp());
    ASSERT_EQ(0, doc.it->putValue("v"s, "alert"));  // creates the first child "alert", stays on "alerts"
    ASSERT_EQ(0, doc.it->newChild("alert"));
    ASSERT_EQ(0, doc.it->seekUp());
    ASSERT_EQ(0, doc.it->newChild("alert"));
    ASSERT_EQ(0, doc.it->seekUp());
    EXPECT_EQ((std::vector<std::string>{"veid", "alert", "alert", "alert"}), childNames(*doc.it));
    EXPECT_EQ(0, doc.it->deleteChild(ALERT));
    EXPECT_EQ((std::vector<std::string>{"veid"}), childNames(*doc.it));
    EXPECT_EQ("alerts", doc.it->curName());
    ASSERT_EQ(0, doc.it->seek("veid"));
    EXPECT_EQ((std::vector<std::string>{"alert"}), childNames(*doc.it));
}

// ================================================================================================
// Simple base bodies
// ================================================================================================

TEST(Part12Base, SeekRootIsSeekSlash) {
    RecordingIterator rec;
    rec.script("seek", {-1});
    EXPECT_EQ(-1, rec.seekRoot());
    EXPECT_EQ(0, rec.seekRoot());
    EXPECT_EQ((Calls{"seek('/')", "seek('/')"}), rec.calls());
}

TEST(Part12Base, CurNamespaceIdIsMinus1AndSaveNamespaceDoesNothing) {
    RecordingIterator rec;
    EXPECT_EQ(-1, rec.curNamespaceID());
    rec.saveNamespace(201);
    rec.saveNamespace(0);
    rec.saveNamespace("urn:x"s);
    rec.saveNamespace(""s);
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12Base, IdAddressedMovesAndNewChildReturnMinus1) {
    RecordingIterator rec;
    for (int id : {0, ALERTS, -2}) {
        EXPECT_EQ(-1, rec.seek(id)) << id;
        EXPECT_EQ(-1, rec.newChild(id)) << id;
        EXPECT_EQ(-1, rec.firstChild(id)) << id;
        EXPECT_EQ(-1, rec.nextSibling(id)) << id;
    }
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12Base, GetMessageReturnsTheMessageField) {
    RecordingIterator none;
    EXPECT_EQ(nullptr, none.getMessage());
    QKL::auto_destroy<RecordingBinary> message(new RecordingBinary());
    RecordingIterator rec(message.get());
    EXPECT_EQ(message.get(), rec.getMessage());
}

TEST(Part12Base, ToTextAsksTheMessageWithANullIteratorTheEmptyStringAnd40500) {
    QKL::auto_destroy<RecordingBinary> message(new RecordingBinary());
    char text[] = "<packet/>";
    message->textResult = text;
    RecordingIterator rec(message.get());
    EXPECT_EQ(text, rec.toText());
    EXPECT_EQ((Calls{"toText"}), message->calls);
    EXPECT_EQ(nullptr, message->lastFrom);
    EXPECT_EQ("", message->lastUnused);
    EXPECT_EQ(40500, message->lastFlags);
    EXPECT_TRUE(rec.calls().empty());
    message->textResult = nullptr;
    EXPECT_EQ(nullptr, rec.toText());
}

TEST(Part12Base, SerializeAsksTheMessageWithANullIteratorAndTheSameFlags) {
    QKL::auto_destroy<RecordingBinary> message(new RecordingBinary());
    RecordingIterator rec(message.get());
    char* buf = nullptr;
    int len = 0;
    message->serializeResult = -1;
    EXPECT_EQ(-1, rec.serialize(&buf, &len, 30000));
    EXPECT_EQ(nullptr, message->lastFrom);
    EXPECT_EQ(&buf, message->lastBuf);
    EXPECT_EQ(&len, message->lastLen);
    EXPECT_EQ(30000, message->lastFlags);
    message->serializeResult = 0;
    message->lastFrom = &rec;
    EXPECT_EQ(0, rec.serialize(&buf, &len, 40500));
    EXPECT_EQ(nullptr, message->lastFrom);
    EXPECT_EQ(40500, message->lastFlags);
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12Base, SerializeRendersTheWholeDocumentWhereverTheIteratorStands) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    ASSERT_EQ(0, doc.it->newChild("veid"));
    char* buf = nullptr;
    int len = 0;
    ASSERT_EQ(0, doc.it->serialize(&buf, &len, 40500));
    EXPECT_EQ(doc.bytes(), std::string(buf, std::size_t(len)));
    std::free(buf);
}

TEST(Part12Base, GetOriginReadsSlashOriginThroughTheStringRead) {
    RecordingIterator rec;
    rec.s->text = "agent-1";
    std::string out;
    EXPECT_EQ(0, rec.getOrigin(out));
    EXPECT_EQ("agent-1", out);
    rec.s->defaultResult = -1;
    EXPECT_EQ(-1, rec.getOrigin(out));
    EXPECT_EQ((Calls{"getValue(string,'/origin')", "getValue(string,'/origin')"}), rec.calls());
}

TEST(Part12Base, GetOriginOnARealIteratorWorksFromAnyDepth) {
    Doc doc;
    ASSERT_EQ(0, doc.it->putValue("agent-1"s, "origin"));
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    ASSERT_EQ(0, doc.it->newChild("veid"));
    std::string out;
    EXPECT_EQ(0, doc.it->getOrigin(out));
    EXPECT_EQ("agent-1", out);
    EXPECT_EQ("veid", doc.it->curName());
}

// ================================================================================================
// validateInternals
// ================================================================================================

TEST(Part12ValidateInternals, ASharedDocumentIsHardcopiedThenTheIteratorInvalidated) {
    QKL::auto_destroy<RecordingBinary> message(new RecordingBinary());
    message->shared = true;
    RecordingIterator rec(message.get());
    EXPECT_EQ(0, rec.validateInternals());
    EXPECT_EQ((Calls{"multiReference", "hardcopy"}), message->calls);
    EXPECT_EQ((Calls{"invalidate()"}), rec.calls());
}

TEST(Part12ValidateInternals, AFailedHardcopyGivesMinus1WithoutInvalidate) {
    QKL::auto_destroy<RecordingBinary> message(new RecordingBinary());
    message->shared = true;
    message->hardcopyResult = -1;
    RecordingIterator rec(message.get());
    EXPECT_EQ(-1, rec.validateInternals());
    EXPECT_EQ((Calls{"multiReference", "hardcopy"}), message->calls);
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12ValidateInternals, AnUnsharedDocumentIsNeitherCopiedNorInvalidated) {
    QKL::auto_destroy<RecordingBinary> message(new RecordingBinary());
    RecordingIterator rec(message.get());
    EXPECT_EQ(0, rec.validateInternals());
    EXPECT_EQ((Calls{"multiReference"}), message->calls);
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12ValidateInternals, NoMessageGivesMinus1) {
    RecordingIterator rec;
    EXPECT_EQ(-1, rec.validateInternals());
    EXPECT_TRUE(rec.calls().empty());
}

TEST(Part12ValidateInternals, OnARealSharedMessageTheWriterGetsAPrivateDocument) {
    QKL::auto_destroy<> message(QKL::QKLMsgFactory::createNew());
    ASSERT_EQ(0, message->create("packet"));
    QKL::auto_destroy<> other(message->copy(false));
    ASSERT_TRUE(other);
    ASSERT_TRUE(message->multiReference());
    const QKL::QKLBinaryInternals* before = static_cast<QKLBinary*>(message.get())->internals();
    RecordingIterator rec(message.get());
    EXPECT_EQ(0, rec.validateInternals());
    EXPECT_EQ((Calls{"invalidate()"}), rec.calls());
    EXPECT_FALSE(message->multiReference());
    EXPECT_FALSE(other->multiReference());
    EXPECT_NE(before, static_cast<QKLBinary*>(message.get())->internals());
    EXPECT_EQ(before, static_cast<QKLBinary*>(other.get())->internals());
    // Unshared now: a second call copies nothing.
    EXPECT_EQ(0, rec.validateInternals());
    EXPECT_EQ(1u, rec.calls().size());
}

// ================================================================================================
// setNamespaceChild
// ================================================================================================

TEST(Part12SetNamespaceChild, ALeafReturns0AndSetsNothing) {
    RecordingIterator rec;
    rec.handOutIterators = true;
    rec.script("firstChild", {-1});
    EXPECT_EQ(0, rec.setNamespaceChild(201));
    EXPECT_EQ((Calls{"newIterator(false)", "firstChild()"}), rec.calls());
}

TEST(Part12SetNamespaceChild, NoIteratorGivesMinus1) {
    RecordingIterator rec;  // newIterator hands out null
    EXPECT_EQ(-1, rec.setNamespaceChild(201));
    EXPECT_EQ((Calls{"newIterator(false)"}), rec.calls());
}

TEST(Part12SetNamespaceChild, TheResultOfSetNamespaceIsIgnored) {
    // A current element with two leaf children: the walker goes down, sets, finds
    // no grandchild, moves on, sets, finds no grandchild and no further sibling.
    RecordingIterator rec;
    rec.handOutIterators = true;
    rec.script("firstChild", {0, -1, -1});
    rec.script("nextSibling", {0, -1});
    rec.script("setNamespace", {-1, -1});
    EXPECT_EQ(0, rec.setNamespaceChild(7));
    int sets = 0;
    for (const std::string& call : rec.calls()) sets += call == "setNamespace(7)";
    EXPECT_EQ(2, sets);
    EXPECT_EQ("newIterator(false)", rec.calls().front());
}

// Records, for every setNamespace(int) reaching any iterator of the family,
// the name of the element it stands on.
class NamespaceLoggingIterator : public QKLBinaryIterator {
public:
    NamespaceLoggingIterator(QKLBinary* message, std::shared_ptr<std::vector<std::string>> log)
        : QKLBinaryIterator(message), m_log(log) {}
    NamespaceLoggingIterator(const NamespaceLoggingIterator& other) : QKLBinaryIterator(other), m_log(other.m_log) {}
    QKLMessageIterator* newIterator(bool withCopy) const override {
        EXPECT_FALSE(withCopy);
        return new NamespaceLoggingIterator(*this);
    }
    using QKLBinaryIterator::setNamespace;
    int setNamespace(int nsID) override {
        m_log->push_back(curName());
        return QKLBinaryIterator::setNamespace(nsID);
    }

private:
    std::shared_ptr<std::vector<std::string>> m_log;
};

TEST(Part12SetNamespaceChild, EveryDescendantDepthFirstParentBeforeChildrenButNotTheCurrentElement) {
    QKL::auto_destroy<> message(QKL::QKLMsgFactory::createNew());
    ASSERT_EQ(0, message->create("packet"));
    auto log = std::make_shared<std::vector<std::string>>();
    NamespaceLoggingIterator it(static_cast<QKLBinary*>(message.get()), log);
    // packet( alerts( veid( alert, time ), resource( host ), key ), origin )
    ASSERT_EQ(0, it.newChild("alerts"));
    ASSERT_EQ(0, it.newChild("veid"));
    ASSERT_EQ(0, it.newChild("alert"));
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.newChild("time"));
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.newChild("resource"));
    ASSERT_EQ(0, it.newChild("host"));
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.newChild("key"));
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.newChild("origin"));
    ASSERT_EQ(0, it.seekUp());
    ASSERT_EQ(0, it.seek("alerts"));
    log->clear();

    EXPECT_EQ(0, it.setNamespaceChild(201));
    EXPECT_EQ((std::vector<std::string>{"veid", "alert", "time", "resource", "host", "key"}), *log);
    // The iterator itself stays; its element and everything outside keep namespace 0.
    EXPECT_EQ("alerts", it.curName());
    EXPECT_EQ(0, it.curNamespaceID());
    for (const char* path : {"/alerts/veid", "/alerts/veid/alert", "/alerts/veid/time", "/alerts/resource",
                             "/alerts/resource/host", "/alerts/key"}) {
        std::unique_ptr<QKLMessageIterator> probe(message->newIterator());
        ASSERT_EQ(0, probe->seek(path)) << path;
        EXPECT_EQ(201, probe->curNamespaceID()) << path;
    }
    for (const char* path : {"/", "/alerts", "/origin"}) {
        std::unique_ptr<QKLMessageIterator> probe(message->newIterator());
        ASSERT_EQ(0, probe->seek(path)) << path;
        EXPECT_EQ(0, probe->curNamespaceID()) << path;
    }
}

TEST(Part12SetNamespaceChild, OnARealLeafChangesNothing) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    const std::string before = doc.bytes();
    EXPECT_EQ(0, doc.it->setNamespaceChild(201));
    EXPECT_EQ(before, doc.bytes());
}

TEST(Part12SetNamespaceChild, ADeepChainIsWalkedToItsEnd) {
    Doc doc;
    ASSERT_EQ(0, doc.it->newChild("alerts"));
    const int depth = 300;
    for (int i = 0; i < depth; ++i) ASSERT_EQ(0, doc.it->newChild("veid"));
    ASSERT_EQ(0, doc.it->seek("/alerts"));
    EXPECT_EQ(0, doc.it->setNamespaceChild(202));
    EXPECT_EQ(0, doc.it->curNamespaceID());
    int seen = 0;
    while (doc.it->firstChild() == 0) {
        EXPECT_EQ(202, doc.it->curNamespaceID());
        ++seen;
    }
    EXPECT_EQ(depth, seen);
}

}  // namespace
