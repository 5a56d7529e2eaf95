// Round trips through the XML text form (issue "XML text form"; Parts 5.1 and
// 5.2 together): a message with every value type, namespaces, a complex type,
// header fields, names outside the vocabulary and nesting 64 deep goes
// binary -> text -> binary -> text, and every value reads back the same.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "qkl/QKL.h"

using namespace QKL;
using namespace std::string_literals;

namespace {

const long WHEN = 1700000000;
const int ZONE = 150;  // minutes east of UTC
const std::string BYTES("\x00\x01\xfe\xff"s "binary");
const int DEPTH = 64;

std::unique_ptr<QKLBinaryIterator> rootOf(QKLMessage& m) {
    return std::unique_ptr<QKLBinaryIterator>(static_cast<QKLBinaryIterator*>(m.newIterator()));
}

std::string textOf(const QKLMessage& m) {
    char* text = m.toText(nullptr, "", 40500);
    std::string copy = text ? text : "";
    std::free(text);
    return copy;
}

QKLMessage* parsed(const std::string& text) {
    QKLMessage* m = QKLMsgFactory::createNew();
    EXPECT_EQ(0, m->fromText(text.c_str(), nullptr)) << text;
    return m;
}

QKLMessage* sample() {
    QKLMessage* m = QKLMsgFactory::createNew();
    EXPECT_EQ(0, m->create("packet"));
    EXPECT_EQ(0, m->setVersion(40500));
    EXPECT_EQ(0, m->setID("request-7", false));
    EXPECT_EQ(0, m->setPriority(3));
    EXPECT_EQ(0, m->setTime(WHEN));
    EXPECT_EQ(0, m->setType(2));
    EXPECT_EQ(0, m->setProgress(1));
    EXPECT_EQ(0, m->setLog(0));
    EXPECT_EQ(0, m->setTimeout(30));
    EXPECT_EQ(0, m->setTimeoutLimit(60));
    EXPECT_EQ(0, m->setUid("uid-1"));
    EXPECT_EQ(0, m->saveChanges());
    std::unique_ptr<QKLBinaryIterator> at = rootOf(*m);
    EXPECT_EQ(0, at->putValue("agent <a&b> \"q\""s, "origin"));
    EXPECT_EQ(0, at->newChild("data"));
    EXPECT_EQ(0, at->setNamespace("http://example.test/ns/data"));
    EXPECT_EQ(0, at->putValue(-42, "count"));
    EXPECT_EQ(0, at->putValueLongLong(1099511627776LL, "big"));
    EXPECT_EQ(0, at->putValueDouble(0.1, "ratio"));
    EXPECT_EQ(0, at->putValueBase64(BYTES, "blob"));
    EXPECT_EQ(0, at->putValueTime(WHEN, "when"));
    EXPECT_EQ(0, at->putValueTimeZone(WHEN, ZONE, "when_zone"));
    EXPECT_EQ(0, at->putValue("not in any vocabulary"s, "custom_name"));
    // A complex type on a container (Part 2.2 types only a plain container without namespace).
    EXPECT_EQ(0, at->newChild("typed"));
    EXPECT_EQ(0, at->putValue(1, "inner"));
    EXPECT_EQ(0, at->setComplexType("http://example.test/types", "ItemType"));
    EXPECT_EQ(0, at->setNamespace("http://example.test/ns/other"));
    EXPECT_EQ(0, at->seekUp());
    for (int level = 0; level < DEPTH; ++level) EXPECT_EQ(0, at->newChild("level"));
    EXPECT_EQ(0, at->putValue("deepest"s, "leaf"));
    return m;
}

// Every value of sample() through the typed reads of Part 3.2.
void expectSampleValues(QKLMessage& m) {
    int number = 0;
    long time = 0;
    std::string text;
    EXPECT_EQ(0, m.getVersion(number));
    EXPECT_EQ(40500, number);
    EXPECT_EQ(0, m.getID(text));
    EXPECT_EQ("request-7", text);
    EXPECT_EQ(0, m.getPriority(number));
    EXPECT_EQ(3, number);
    EXPECT_EQ(0, m.getTime(time));
    EXPECT_EQ(WHEN, time);
    EXPECT_EQ(0, m.getType(number));
    EXPECT_EQ(2, number);
    EXPECT_EQ(0, m.getProgress(number));
    EXPECT_EQ(1, number);
    EXPECT_EQ(0, m.getLog(number));
    EXPECT_EQ(0, number);
    EXPECT_EQ(0, m.getTimeout(number));
    EXPECT_EQ(30, number);
    EXPECT_EQ(0, m.getTimeoutLimit(number));
    EXPECT_EQ(60, number);
    EXPECT_EQ(0, m.getUid(text));
    EXPECT_EQ("uid-1", text);
    EXPECT_EQ("agent <a&b> \"q\"", m.getOrigin());

    std::unique_ptr<QKLBinaryIterator> at = rootOf(m);
    ASSERT_EQ(0, at->seek("data"));
    EXPECT_EQ("http://example.test/ns/data", std::string(
        static_cast<QKLBinary&>(m).internals()->idMap().findIDC(at->curNamespaceID()).str()));
    long long wide = 0;
    double real = 0;
    int zone = 0;
    EXPECT_EQ(0, at->getValue(number, "count"));
    EXPECT_EQ(-42, number);
    EXPECT_EQ(0, at->getValueLongLong(wide, "big"));
    EXPECT_EQ(1099511627776LL, wide);
    EXPECT_EQ(0, at->getValueDouble(real, "ratio"));
    EXPECT_EQ(0.1, real);
    EXPECT_EQ(0, at->getValueBase64(text, "blob"));
    EXPECT_EQ(BYTES, text);
    EXPECT_EQ(0, at->getValueTime(time, "when"));
    EXPECT_EQ(WHEN, time);
    EXPECT_EQ(0, at->getValueTimeZone(time, zone, "when_zone"));
    EXPECT_EQ(WHEN, time);
    EXPECT_EQ(ZONE, zone);
    EXPECT_EQ(0, at->getValue(text, "custom_name"));
    EXPECT_EQ("not in any vocabulary", text);
    ASSERT_EQ(0, at->seek("typed"));
    EXPECT_EQ("http://example.test/types:ItemType", at->curType());
    EXPECT_EQ(0, at->getValue(number, "inner"));
    EXPECT_EQ(1, number);
    ASSERT_EQ(0, at->seekUp());
    for (int level = 0; level < DEPTH; ++level) ASSERT_EQ(0, at->seek("level")) << level;
    EXPECT_EQ(0, at->getValue(text, "leaf"));
    EXPECT_EQ("deepest", text);
}

}  // namespace

TEST(XmlRoundTrip, EveryValueTypeNamespacesTypesHeaderAndDepthSurviveBinaryTextBinary) {
    auto_destroy<QKLMessage> original(sample());
    expectSampleValues(*original);
    const std::string text = textOf(*original);
    ASSERT_FALSE(text.empty());

    auto_destroy<QKLMessage> fromText(parsed(text));
    expectSampleValues(*fromText);
    EXPECT_EQ(text, textOf(*fromText));  // the text form is stable

    char* bytes = nullptr;
    int length = 0;
    ASSERT_EQ(0, fromText->serialize(&bytes, &length, nullptr, 40500));
    auto_destroy<QKLMessage> back(QKLMsgFactory::createNew(bytes, length));
    std::free(bytes);
    ASSERT_TRUE(back);
    expectSampleValues(*back);
    EXPECT_EQ(text, textOf(*back));
}

TEST(XmlRoundTrip, APeerBelow40000ReceivesTextThatParsesBackIntoTheSameValues) {
    auto_destroy<QKLMessage> original(sample());
    char* text = nullptr;
    int length = 0;
    ASSERT_EQ(0, original->serialize(&text, &length, nullptr, 39999));
    EXPECT_EQ(int(std::strlen(text)) + 1, length);  // framed with its zero byte
    EXPECT_EQ(length, QKLMessage::isComplete(text, length));
    auto_destroy<QKLMessage> received(QKLMsgFactory::createNew(text, length));
    std::free(text);
    ASSERT_TRUE(received);
    std::unique_ptr<QKLBinaryIterator> at = rootOf(*received);
    long long wide = 0;
    EXPECT_EQ(0, at->getValueLongLong(wide, "data/big"));
    EXPECT_EQ(1099511627776LL, wide);
}

TEST(XmlRoundTrip, AnXmlValueIsWrittenAsItStandsAndReadBackAsElements) {
    auto_destroy<QKLMessage> m(QKLMsgFactory::createNew());
    ASSERT_EQ(0, m->create("packet"));
    std::unique_ptr<QKLBinaryIterator> at = rootOf(*m);
    ASSERT_EQ(0, at->putValueXML("<note>hi</note>\n", 1307));  // 1307 "data"
    const std::string text = textOf(*m);
    EXPECT_NE(std::string::npos, text.find("<note>hi</note>")) << text;
    auto_destroy<QKLMessage> back(parsed(text));
    std::string value;
    EXPECT_EQ(0, rootOf(*back)->getValue(value, "note"));
    EXPECT_EQ("hi", value);
}
