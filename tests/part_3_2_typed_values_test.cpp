// Part 3.2: Typed values. The "Edge cases worth testing" bullets come first
// (Part32EdgeCases, one TEST each, named after the bullet), then the whole
// conversion table (every read against every stored type, by ID, by ID 0 and by
// name), the deliberate pass-throughs of the text conversions, the bytes each
// write stores, the results of writes, where writes and reads by name leave the
// iterator, and the attribute forms.
//
// Nodes that the writes of this Part never make (a plain type-0 node with text,
// a node of a type without a value, a node without bytes) are put in place with
// QKLBinaryInternals::setContent on a fresh child, since the XML reader is not
// there to make them.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <type_traits>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/common/TimeText.h"

using QKL::auto_destroy;
using QKL::BinaryPath;
using QKL::QKLBinary;
using QKL::QKLBinaryInternals;
using QKL::QKLBinaryIterator;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;
using QKL::binary::Node;
using namespace std::string_literals;

namespace {

// Element vocabulary IDs (Part 4.1).
const int NAME = 1026, VALUE = 1008, ITEM = 1072, DATA = 1307, ORIGIN = 1337, PACKET = 1398;

// 1700000000 is 2023-11-14T22:13:20 UTC.
const long T = 1700000000L;
const char* const T_TEXT = "2023-11-14T22:13:20";
// The first time the companion library cannot write (the year 10000), and one before the year 0.
const long TOO_LATE = 253402300800L;
const long TOO_EARLY = -62167219201L;
const int TOO_WIDE_ZONE = 24 * 60;

using Path = std::vector<std::pair<int, unsigned int>>;

Path pathOf(const QKLBinaryIterator& it) {
    Path out;
    for (const BinaryPath::Element& e : it.path().elements) out.emplace_back(e.tag, e.offset);
    return out;
}

Path rootPath() { return Path{{PACKET, QKL::binary::HEADER_SIZE}}; }

QKLBinaryIterator* binaryIterator(QKLMessageIterator* it) {
    QKLBinaryIterator* binary = dynamic_cast<QKLBinaryIterator*>(it);
    EXPECT_NE(binary, nullptr);
    return binary;
}

std::string g_lastAssert;
void quietHandler(const char* condition, const char* file, int line) {
    g_lastAssert = std::string(condition) + " at " + file + ":" + std::to_string(line);
}

// Every test has a message with a "packet" root and one counted iterator on it.
// QKL_ASSERT is silenced and counted; no test expects one.
class Part32 : public ::testing::Test {
protected:
    void SetUp() override {
        m_previous = QKL::setAssertHandler(&quietHandler);
        m_reports = QKL::assertReports();
        g_lastAssert.clear();
        msg.reset(new QKLBinary());
        ASSERT_EQ(0, msg->create("packet"));
        it.reset(binaryIterator(msg->newIterator()));
        ASSERT_NE(it, nullptr);
    }
    void TearDown() override {
        EXPECT_EQ(0u, QKL::assertReports() - m_reports) << "last: " << g_lastAssert;
        QKL::setAssertHandler(m_previous);
    }

    QKLBinaryInternals* doc() { return msg->internals(); }
    std::string bytes() { return std::string(doc()->buffer(), doc()->used()); }
    int id(const std::string& name) {
        return doc()->idMap().findStrC(QKL::Internal::CharArray(name.data(), unsigned(name.size())), nullptr);
    }

    // The current element's node.
    Node current() { return Node(doc()->arena(), it->path().current().offset); }
    // The first child with `tag` of the current element (the iterator stays).
    Node child(int tag) {
        const unsigned int depth = it->path().depth();
        EXPECT_EQ(0, it->seek(tag)) << tag;
        const Node node = current();
        while (it->path().depth() > depth) it->seekUp();
        return node;
    }
    static std::string payload(const Node& node) { return std::string(node.data(), node.dataSize()); }
    // How many children with `tag` the current element has.
    int count(int tag) {
        int n = 0;
        if (it->firstChild(tag) != 0) return 0;
        do ++n;
        while (it->nextSibling(tag) == 0);
        it->seekUp();
        return n;
    }
    // A new child `tag` of the current element whose node gets this type and
    // payload from the internals; the iterator stays on the current element.
    void raw(int tag, unsigned short type, const char* data, int length, bool terminate) {
        ASSERT_EQ(0, it->newChild(tag));
        BinaryPath p = it->path();
        ASSERT_EQ(0, doc()->setContent(p, type, data, length, terminate));
        it->seekUp();
    }
    void text(int tag, const char* value) { raw(tag, QKL::binary::TYPE_ELEMENT, value, int(std::strlen(value)), true); }

    auto_destroy<QKLBinary> msg;
    std::unique_ptr<QKLBinaryIterator> it;

private:
    QKL::AssertHandler m_previous = nullptr;
    unsigned long m_reports = 0;
};

class Part32EdgeCases : public Part32 {};
class Part32Table : public Part32 {};
class Part32Reads : public Part32 {};
class Part32Writes : public Part32 {};
class Part32ByName : public Part32 {};
class Part32Attributes : public Part32 {};

// ---- Edge cases worth testing ---------------------------------------------------------------------

TEST_F(Part32EdgeCases, PutValue5Then7LeavesOneChildWithTheValue7) {
    EXPECT_EQ(0, it->putValue(5, VALUE));
    EXPECT_EQ(0, it->putValue(7, VALUE));
    EXPECT_EQ(1, count(VALUE));
    int value = 0;
    EXPECT_EQ(0, it->getValue(value, VALUE));
    EXPECT_EQ(7, value);
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part32EdgeCases, StringTwelveReadsAs12AsIntAndLongLongAnd12Point0AsDouble) {
    ASSERT_EQ(0, it->putValue("12"s, VALUE));
    int i = 0;
    long long ll = 0;
    double d = 0;
    EXPECT_EQ(0, it->getValue(i, VALUE));
    EXPECT_EQ(12, i);
    EXPECT_EQ(0, it->getValueLongLong(ll, VALUE));
    EXPECT_EQ(12, ll);
    EXPECT_EQ(0, it->getValueDouble(d, VALUE));
    EXPECT_EQ(12.0, d);
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part32EdgeCases, IntThreeReadsAs3AsLongLongAndFailsAsDouble) {
    ASSERT_EQ(0, it->putValue(3, VALUE));
    long long ll = 0;
    double d = 99;
    EXPECT_EQ(0, it->getValueLongLong(ll, VALUE));
    EXPECT_EQ(3, ll);
    EXPECT_EQ(-1, it->getValueDouble(d, VALUE));
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part32EdgeCases, PutValueTimeThenStringReadFailsWhileGetValueTimeGivesTheTimeBack) {
    ASSERT_EQ(0, it->putValueTime(T, VALUE));
    EXPECT_EQ(QKL::binary::TYPE_TIME, child(VALUE).type());
    std::string s = "untouched";
    EXPECT_EQ(-1, it->getValue(s, VALUE));
    long t = 0;
    EXPECT_EQ(0, it->getValueTime(t, VALUE));
    EXPECT_EQ(T, t);
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part32EdgeCases, GetValueBase64OfAPlainElementHoldingBase64TextOfThreeBytesGivesThem) {
    ASSERT_EQ(0, it->newChild(VALUE));
    BinaryPath p = it->path();
    ASSERT_EQ(0, doc()->setContent(p, QKL::binary::TYPE_ELEMENT, "AQID", 4, true));
    it->seekUp();
    std::string out;
    EXPECT_EQ(0, it->getValueBase64(out, VALUE));
    EXPECT_EQ("\x01\x02\x03"s, out);
    EXPECT_EQ(0, it->getValueBase64(out, "value"));
    EXPECT_EQ("\x01\x02\x03"s, out);
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part32EdgeCases, PutValueToPathABLeavesTheIteratorOnA) {
    ASSERT_EQ(0, it->newChild("a"));
    ASSERT_EQ(0, it->newChild("b"));
    it->seekUp();
    const Path a = pathOf(*it);
    it->seekUp();
    EXPECT_EQ(0, it->putValue("v"s, "a/b"));
    EXPECT_EQ(a, pathOf(*it));
    std::string s;
    EXPECT_EQ(0, it->getValue(s, "b"));
    EXPECT_EQ("v", s);
    // The other forms end on "a" too.
    for (int form = 0; form < 7; ++form) {
        ASSERT_EQ(0, it->seekRoot());
        switch (form) {
            case 0: EXPECT_EQ(0, it->putValue(1, "a/b")); break;
            case 1: EXPECT_EQ(0, it->putValueLongLong(2, "a/b")); break;
            case 2: EXPECT_EQ(0, it->putValueDouble(3.5, "a/b")); break;
            case 3: EXPECT_EQ(0, it->putValueBase64("4"s, "a/b")); break;
            case 4: EXPECT_EQ(0, it->putValueTime(T, "a/b")); break;
            case 5: EXPECT_EQ(0, it->putValueTimeZone(T, 60, "a/b")); break;
            case 6: EXPECT_EQ(0, it->putValue("w"s, "a/b")); break;
        }
        EXPECT_EQ(a, pathOf(*it)) << form;
    }
    EXPECT_EQ(0, it->getValue(s, "b"));
    EXPECT_EQ("w", s);
}

// With no "b" under "a" the literal algorithm creates a child named "a/b" (seek
// fails and is taken back; newChild takes the whole text as one name) under the
// starting element, writes it and ends on the starting element.
TEST_F(Part32EdgeCases, PutValueToPathABWithoutBCreatesAChildNamedABUnderTheStartingElement) {
    ASSERT_EQ(0, it->newChild("a"));
    it->seekUp();
    EXPECT_EQ(0, it->putValue("v"s, "a/b"));
    EXPECT_EQ(rootPath(), pathOf(*it));
    ASSERT_NE(0, id("a/b"));
    EXPECT_EQ(1, count(id("a/b")));
    ASSERT_EQ(0, it->seek("a"));
    EXPECT_EQ(-1, it->firstChild());  // "a" is still empty
    it->seekUp();
    std::string s;
    EXPECT_EQ(0, it->getValue(s, id("a/b")));
    EXPECT_EQ("v", s);
    // As a path it is still looked for as "b" under "a".
    EXPECT_EQ(-1, it->getValue(s, "a/b"));
}

TEST_F(Part32EdgeCases, GetValueOfSlashOriginFromAnyDepthReturnsTheOriginAndDoesNotMove) {
    ASSERT_EQ(0, it->putValue("agent-1"s, "origin"));
    ASSERT_EQ(0, it->newChild(DATA));
    ASSERT_EQ(0, it->newChild(ITEM));
    ASSERT_EQ(0, it->newChild(NAME));
    ASSERT_EQ(0, it->newChild("origin"));  // a nearer "origin", which the absolute path must not find
    ASSERT_EQ(0, it->putValue("near"s, 0));
    it->seekUp();
    for (int depth = 4; depth >= 1; --depth) {
        ASSERT_EQ(unsigned(depth), it->path().depth());
        const Path here = pathOf(*it);
        std::string s;
        EXPECT_EQ(0, it->getValue(s, "/origin"));
        EXPECT_EQ("agent-1", s);
        EXPECT_EQ(here, pathOf(*it));
        s.clear();
        EXPECT_EQ(0, it->getOrigin(s));
        EXPECT_EQ("agent-1", s);
        EXPECT_EQ(here, pathOf(*it));
        it->seekUp();
    }
}

// ---- the conversion table -------------------------------------------------------------------------

const int FAIL = -1;

template <class T>
struct Expect {
    int result;  // what the read returns
    T value;     // the value read, checked when result is 0
};

// One stored node (a child VALUE of the root) and what every read gives for it.
struct Row {
    const char* label;
    void (*store)(QKLBinaryIterator&, QKLBinaryInternals&);
    unsigned short type;  // the type the node must have
    Expect<std::string> string;
    Expect<int> integer;
    Expect<long long> longLong;
    Expect<double> real;
    Expect<long> time;
    Expect<std::pair<long, int>> timeZone;
    Expect<std::string> base64;
    Expect<std::string> xml;
};

// A new child VALUE of the current element whose node gets this type and payload
// from the internals; the iterator stays on the current element.
void rawValue(QKLBinaryIterator& it, QKLBinaryInternals& doc, unsigned short type, const char* data, int length,
              bool terminate) {
    ASSERT_EQ(0, it.newChild(VALUE));
    BinaryPath p = it.path();
    ASSERT_EQ(0, doc.setContent(p, type, data, length, terminate));
    it.seekUp();
}

#define STORE(body) [](QKLBinaryIterator& it, QKLBinaryInternals& doc) { (void)doc; body; }

const std::string BYTES_WITH_NULS("\0\x01" "AB\0\xff", 6);

const Row ROWS[] = {
    {"type 0, text 42", STORE(rawValue(it, doc, 0, "42", 2, true)), 0,
     {0, "42"}, {0, 42}, {0, 42}, {0, 42.0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 0, no bytes", STORE(ASSERT_EQ(0, it.newChild(VALUE)); it.seekUp()), 0,
     {0, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {0, ""}, {FAIL, ""}},
    {"type 0, empty text (one NUL)", STORE(rawValue(it, doc, 0, "", 0, true)), 0,
     {0, ""}, {0, 0}, {-2, 0}, {-2, 0}, {FAIL, 0}, {FAIL, {}}, {0, ""}, {FAIL, ""}},
    {"type 0, text abc", STORE(rawValue(it, doc, 0, "abc", 3, true)), 0,
     {0, "abc"}, {0, 0}, {-1, 0}, {-1, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 0, base64 text AQID", STORE(rawValue(it, doc, 0, "AQID", 4, true)), 0,
     {0, "AQID"}, {0, 0}, {-1, 0}, {-1, 0}, {FAIL, 0}, {FAIL, {}}, {0, "\x01\x02\x03"}, {FAIL, ""}},
    {"type 0, time text", STORE(rawValue(it, doc, 0, T_TEXT, int(std::strlen(T_TEXT)), true)), 0,
     {0, T_TEXT}, {0, 2023}, {0, 2023}, {0, 2023.0}, {0, T}, {0, {T, 0}}, {FAIL, ""}, {FAIL, ""}},
    {"type 1", STORE(ASSERT_EQ(0, it.putValue(-7, VALUE))), 1,
     {0, "-7"}, {0, -7}, {0, -7}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 2, text 12", STORE(ASSERT_EQ(0, it.putValue("12"s, VALUE))), 2,
     {0, "12"}, {0, 12}, {0, 12}, {0, 12.0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 2, time text with zone", STORE(ASSERT_EQ(0, it.putValue("2023-11-14T23:13:20+01:00"s, VALUE))), 2,
     {0, "2023-11-14T23:13:20+01:00"}, {0, 2023}, {0, 2023}, {0, 2023.0}, {0, T}, {0, {T, 60}}, {FAIL, ""}, {FAIL, ""}},
    {"type 2, text with a NUL inside", STORE(ASSERT_EQ(0, it.putValue("7\0" "8"s, VALUE))), 2,
     {0, "7"}, {0, 7}, {0, 7}, {0, 7.0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 2, empty text (one NUL)", STORE(ASSERT_EQ(0, it.putValue(std::string(), VALUE))), 2,
     {0, ""}, {0, 0}, {-2, 0}, {-2, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 2, no bytes", STORE(rawValue(it, doc, 2, nullptr, 0, false)), 2,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 3", STORE(ASSERT_EQ(0, it.putValueLongLong(-9000000000LL, VALUE))), 3,
     {0, "-9000000000"}, {FAIL, 0}, {0, -9000000000LL}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 4", STORE(ASSERT_EQ(0, it.putValueDouble(2.5, VALUE))), 4,
     {0, "2.5"}, {FAIL, 0}, {FAIL, 0}, {0, 2.5}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 5", STORE(ASSERT_EQ(0, it.putValueBase64(BYTES_WITH_NULS, VALUE))), 5,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {0, BYTES_WITH_NULS}, {FAIL, ""}},
    {"type 5, empty", STORE(ASSERT_EQ(0, it.putValueBase64(std::string(), VALUE))), 5,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {0, ""}, {FAIL, ""}},
    {"type 6", STORE(ASSERT_EQ(0, it.putValueTime(T, VALUE))), 6,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {0, T}, {0, {T, 0}}, {FAIL, ""}, {FAIL, ""}},
    {"type 6, with zone", STORE(ASSERT_EQ(0, it.putValueTimeZone(T, -330, VALUE))), 6,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {0, T}, {0, {T, -330}}, {FAIL, ""}, {FAIL, ""}},
    {"type 51", STORE(ASSERT_EQ(0, it.putValueXML("<a>12</a>", VALUE))), 51,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {0, "<a>12</a>"}},
    {"type 51, no bytes", STORE(rawValue(it, doc, 51, nullptr, 0, false)), 51,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 50 (other)", STORE(ASSERT_EQ(0, it.newChild(VALUE)); ASSERT_EQ(0, it.newChild(ITEM)); it.seekUp();
                              it.seekUp()), 50,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 7 with text 12 (other)", STORE(rawValue(it, doc, 7, "12", 2, true)), 7,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
    {"type 52 with base64 text (other)", STORE(rawValue(it, doc, 52, "AQID", 4, true)), 52,
     {FAIL, ""}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, 0}, {FAIL, {}}, {FAIL, ""}, {FAIL, ""}},
};

#undef STORE

void PrintTo(const Row& row, std::ostream* os) { *os << row.label; }

// How a read addresses the stored node: from the root by ID, by name, by absolute
// path, or on the node itself by ID 0 (and the empty name).
enum class Address { ById, ByIdZero, ByName, ByPath, ByEmptyName };

template <class T, class Read>
void check(QKLBinaryIterator& it, const Row& row, Address how, const char* column, const Expect<T>& expect, Read read) {
    SCOPED_TRACE(::testing::Message() << row.label << ", " << column << ", address " << int(how));
    ASSERT_EQ(0, it.seekRoot());
    if (how == Address::ByIdZero || how == Address::ByEmptyName) {
        ASSERT_EQ(0, it.seek(VALUE));
    }
    const Path before = pathOf(it);
    T value{};
    int result = 0;
    switch (how) {
        case Address::ById: result = read(it, value, VALUE); break;
        case Address::ByIdZero: result = read(it, value, 0); break;
        case Address::ByName: result = read(it, value, "value"s); break;
        case Address::ByPath: result = read(it, value, "/value"s); break;
        case Address::ByEmptyName: result = read(it, value, std::string()); break;
    }
    EXPECT_EQ(expect.result, result);
    if (expect.result == 0 && result == 0) {
        EXPECT_EQ(expect.value, value);
    }
    EXPECT_EQ(before, pathOf(it));  // a read never moves the iterator
}

// getValueXML has no name form: by name it is seek, read by ID 0, back up.
int readXML(QKLBinaryIterator& it, std::string& v, int id) { return it.getValueXML(v, id); }
int readXML(QKLBinaryIterator& it, std::string& v, const std::string& name) {
    const unsigned int depth = it.path().depth();
    if (it.seek(name) != 0) return -1;
    const int result = it.getValueXML(v, 0);
    while (it.path().depth() > depth) it.seekUp();
    return result;
}

void checkRow(QKLBinaryIterator& it, const Row& row, Address how) {
    check(it, row, how, "getValue(string)", row.string,
          [](QKLBinaryIterator& i, std::string& v, auto at) { return i.getValue(v, at); });
    check(it, row, how, "getValue(int)", row.integer,
          [](QKLBinaryIterator& i, int& v, auto at) { return i.getValue(v, at); });
    check(it, row, how, "getValueLongLong", row.longLong,
          [](QKLBinaryIterator& i, long long& v, auto at) { return i.getValueLongLong(v, at); });
    check(it, row, how, "getValueDouble", row.real,
          [](QKLBinaryIterator& i, double& v, auto at) { return i.getValueDouble(v, at); });
    check(it, row, how, "getValueTime", row.time,
          [](QKLBinaryIterator& i, long& v, auto at) { return i.getValueTime(v, at); });
    check(it, row, how, "getValueTimeZone", row.timeZone,
          [](QKLBinaryIterator& i, std::pair<long, int>& v, auto at) { return i.getValueTimeZone(v.first, v.second, at); });
    check(it, row, how, "getValueBase64", row.base64,
          [](QKLBinaryIterator& i, std::string& v, auto at) { return i.getValueBase64(v, at); });
    check(it, row, how, "getValueXML", row.xml,
          [](QKLBinaryIterator& i, std::string& v, auto at) { return readXML(i, v, at); });
}

class Part32TableRow : public Part32, public ::testing::WithParamInterface<Row> {};

TEST_P(Part32TableRow, EveryReadOfTheStoredTypeByIdByIdZeroAndByName) {
    const Row& row = GetParam();
    row.store(*it, *doc());
    ASSERT_FALSE(HasFatalFailure());
    ASSERT_EQ(rootPath(), pathOf(*it));
    ASSERT_EQ(1, count(VALUE));
    ASSERT_EQ(row.type, child(VALUE).type());
    const std::string before = bytes();
    for (Address how : {Address::ById, Address::ByIdZero, Address::ByName, Address::ByPath, Address::ByEmptyName}) {
        checkRow(*it, row, how);
    }
    EXPECT_EQ(before, bytes());  // reads change nothing
}

std::string rowName(const ::testing::TestParamInfo<Row>& info) {
    std::string name;
    for (const char* c = info.param.label; *c; ++c) name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
    return std::to_string(info.index) + "_" + name;
}

INSTANTIATE_TEST_SUITE_P(Part32Table, Part32TableRow, ::testing::ValuesIn(ROWS), rowName);

// ---- reads: the deliberate pass-throughs and the text conversions --------------------------------

// getValueLongLong and getValueDouble of text return sscanf's count minus one.
TEST_F(Part32Reads, SscanfCountMinusOneIsPassedOnForText) {
    struct Case {
        const char* text;
        int result;
        long long ll;
        double d;
    } cases[] = {
        {"42", 0, 42, 42.0},     {"-5", 0, -5, -5.0},   {"12abc", 0, 12, 12.0}, {" 9", 0, 9, 9.0},
        {"1e3", 0, 1, 1000.0},   {"abc", -1, 0, 0},     {"x12", -1, 0, 0},      {"", -2, 0, 0},
        {"   ", -2, 0, 0},  // only white space: end of input before a conversion
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        for (bool plain : {true, false}) {  // type 0 and type 2
            ASSERT_EQ(0, it->seekRoot());
            if (plain) {
                text(VALUE, c.text);
            } else {
                ASSERT_EQ(0, it->putValue(std::string(c.text), VALUE));
            }
            long long ll = 777;
            double d = 777;
            EXPECT_EQ(c.result, it->getValueLongLong(ll, VALUE)) << plain;
            EXPECT_EQ(c.result, it->getValueDouble(d, VALUE)) << plain;
            if (c.result == 0) {
                EXPECT_EQ(c.ll, ll);
                EXPECT_EQ(c.d, d);
            } else {
                EXPECT_EQ(777, ll);  // sscanf assigned nothing
                EXPECT_EQ(777, d);
            }
            ASSERT_EQ(0, it->seek(VALUE));
            ASSERT_EQ(0, it->deleteFromChild());
        }
    }
}

TEST_F(Part32Reads, NodeWithoutValueBytesFailsEveryNumericAndTimeRead) {
    ASSERT_EQ(0, it->newChild(VALUE));  // type 0, no bytes
    it->seekUp();
    int i = 5;
    long long ll = 5;
    double d = 5;
    long t = 5;
    int zone = 5;
    EXPECT_EQ(-1, it->getValue(i, VALUE));
    EXPECT_EQ(-1, it->getValueLongLong(ll, VALUE));
    EXPECT_EQ(-1, it->getValueDouble(d, VALUE));
    EXPECT_EQ(-1, it->getValueTime(t, VALUE));
    EXPECT_EQ(-1, it->getValueTimeZone(t, zone, VALUE));
    EXPECT_EQ(5, i);
    EXPECT_EQ(5, ll);
    EXPECT_EQ(5, d);
    // The text read and the base64 read give "".
    std::string s = "x";
    EXPECT_EQ(0, it->getValue(s, VALUE));
    EXPECT_EQ("", s);
    s = "x";
    EXPECT_EQ(0, it->getValueBase64(s, VALUE));
    EXPECT_EQ("", s);
}

// The text conversions do not check the text.
TEST_F(Part32Reads, GetValueIntOfAbcGivesZeroAndSuccessAndStrtolStopsAtTheFirstNonDigit) {
    struct Case {
        const char* text;
        int value;
    } cases[] = {{"abc", 0}, {"12abc", 12}, {"-3x", -3}, {" 7", 7}, {"0x1A", 0}, {"4.9", 4}, {"+8", 8}, {"", 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(0, it->putValue(std::string(c.text), VALUE));
        int value = 99;
        EXPECT_EQ(0, it->getValue(value, VALUE));
        EXPECT_EQ(c.value, value);
        text(ITEM, c.text);
        value = 99;
        EXPECT_EQ(0, it->getValue(value, ITEM));
        EXPECT_EQ(c.value, value);
        ASSERT_EQ(0, it->seek(ITEM));
        ASSERT_EQ(0, it->deleteFromChild());
    }
}

// getValueTime and getValueTimeZone write the output before testing it for -1.
TEST_F(Part32Reads, TimeReadsWriteTheOutputBeforeFailing) {
    text(VALUE, "not a time");
    long t = 5;
    int zone = 7;
    EXPECT_EQ(-1, it->getValueTime(t, VALUE));
    EXPECT_EQ(-1, t);
    t = 5;
    EXPECT_EQ(-1, it->getValueTimeZone(t, zone, VALUE));
    EXPECT_EQ(-1, t);
    EXPECT_EQ(7, zone);  // the companion library leaves the zone on failure
    // 1969-12-31T23:59:59 is the time -1: it is written, but reads back as a failure.
    ASSERT_EQ(0, it->putValueTime(-1, ITEM));
    t = 5;
    EXPECT_EQ(-1, it->getValueTime(t, ITEM));
    EXPECT_EQ(-1, t);
}

TEST_F(Part32Reads, GetValueTimeZoneAndPutValueTimeZone) {
    for (int zone : {0, 60, -330, 345, QKL::MAX_ZONE_MINUTES, -QKL::MAX_ZONE_MINUTES}) {
        SCOPED_TRACE(zone);
        EXPECT_EQ(0, it->putValueTimeZone(T, zone, VALUE));
        const Node node = child(VALUE);
        EXPECT_EQ(QKL::binary::TYPE_TIME, node.type());
        EXPECT_EQ(QKL::time2strZone(T, zone) + '\0', payload(node));
        long t = 0;
        int z = 12345;
        EXPECT_EQ(0, it->getValueTimeZone(t, z, VALUE));
        EXPECT_EQ(T, t);
        EXPECT_EQ(zone, z);
        t = 0;
        EXPECT_EQ(0, it->getValueTime(t, VALUE));
        EXPECT_EQ(T, t);
        EXPECT_EQ(0, it->getValueTimeZone(t, z, "value"));
        EXPECT_EQ(zone, z);
    }
    EXPECT_EQ(1, count(VALUE));
    // A text without a zone reads with zone 0; "Z" too.
    text(ITEM, "2023-11-14T22:13:20Z");
    long t = 0;
    int z = 9;
    EXPECT_EQ(0, it->getValueTimeZone(t, z, ITEM));
    EXPECT_EQ(T, t);
    EXPECT_EQ(0, z);
    // By name, ending on the starting element.
    EXPECT_EQ(0, it->putValueTimeZone(T, 120, "name"));
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(0, it->getValueTimeZone(t, z, NAME));
    EXPECT_EQ(T, t);
    EXPECT_EQ(120, z);
}

TEST_F(Part32Reads, GetValueBase64OfType5ReturnsTheStoredBytesRoundTrip) {
    std::string all;
    for (int b = 0; b < 256; ++b) all.push_back(char(b));
    for (const std::string& data : {BYTES_WITH_NULS, std::string(1, '\0'), std::string(3, '\0'), all, std::string()}) {
        SCOPED_TRACE(data.size());
        EXPECT_EQ(0, it->putValueBase64(data, VALUE));
        const Node node = child(VALUE);
        EXPECT_EQ(QKL::binary::TYPE_BASE64, node.type());
        EXPECT_EQ(data + '\0', payload(node));  // the internals keep one zero byte behind
        std::string out = "stale";
        EXPECT_EQ(0, it->getValueBase64(out, VALUE));
        EXPECT_EQ(data, out);
        EXPECT_EQ(0, it->putValueBase64(data.data(), int(data.size()), ITEM));
        out = "stale";
        EXPECT_EQ(0, it->getValueBase64(out, "item"));
        EXPECT_EQ(data, out);
    }
    EXPECT_EQ(1, count(VALUE));
    EXPECT_EQ(1, count(ITEM));
}

TEST_F(Part32Reads, GetValueBase64OfPlainTextThatIsNotBase64FailsWithTheDecodersResult) {
    for (const char* bad : {"A", "AQI", "AQ=D", "A*ID", "AQID="}) {
        SCOPED_TRACE(bad);
        text(VALUE, bad);
        std::string out;
        EXPECT_EQ(-1, it->getValueBase64(out, VALUE));
        ASSERT_EQ(0, it->seek(VALUE));
        ASSERT_EQ(0, it->deleteFromChild());
    }
    text(VALUE, "Zm9vYmFy");
    std::string out;
    EXPECT_EQ(0, it->getValueBase64(out, VALUE));
    EXPECT_EQ("foobar", out);
}

TEST_F(Part32Reads, GetValueXMLAndPutValueXML) {
    const std::string xml = "<a x=\"1\"><b>t</b></a>";
    EXPECT_EQ(0, it->putValueXML(xml, VALUE));
    const Node node = child(VALUE);
    EXPECT_EQ(QKL::binary::TYPE_XML, node.type());
    EXPECT_EQ(xml + '\0', payload(node));
    std::string out;
    EXPECT_EQ(0, it->getValueXML(out, VALUE));
    EXPECT_EQ(xml, out);
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(-1, it->getValue(out, VALUE));
    // Replaced by another XML value, then by an empty one.
    EXPECT_EQ(0, it->putValueXML("<c/>", VALUE));
    EXPECT_EQ(0, it->getValueXML(out, VALUE));
    EXPECT_EQ("<c/>", out);
    EXPECT_EQ(0, it->putValueXML("", VALUE));
    EXPECT_EQ(1u, child(VALUE).dataSize());
    out = "stale";
    EXPECT_EQ(0, it->getValueXML(out, VALUE));
    EXPECT_EQ("", out);
    EXPECT_EQ(1, count(VALUE));
    // By ID 0 on the element itself: it stays there.
    ASSERT_EQ(0, it->seek(VALUE));
    const Path value = pathOf(*it);
    EXPECT_EQ(0, it->putValueXML("<d/>", 0));
    EXPECT_EQ(value, pathOf(*it));
    EXPECT_EQ(0, it->getValueXML(out, 0));
    EXPECT_EQ("<d/>", out);
    EXPECT_EQ(value, pathOf(*it));
    // Missing child.
    it->seekUp();
    EXPECT_EQ(-1, it->getValueXML(out, ITEM));
    EXPECT_EQ(rootPath(), pathOf(*it));
}

TEST_F(Part32Reads, ReadsOfAMissingChildOrBelowAValueFailAndDoNotMove) {
    ASSERT_EQ(0, it->putValue(5, VALUE));
    std::string s;
    int i = 0;
    EXPECT_EQ(-1, it->getValue(s, ITEM));
    EXPECT_EQ(-1, it->getValue(i, "item"));
    EXPECT_EQ(-1, it->getValue(i, "nosuchname"));
    EXPECT_EQ(-1, it->getValue(i, "value/item"));
    EXPECT_EQ(rootPath(), pathOf(*it));
    ASSERT_EQ(0, it->seek(VALUE));
    const Path value = pathOf(*it);
    EXPECT_EQ(-1, it->getValue(i, ITEM));
    EXPECT_EQ(value, pathOf(*it));
}

TEST_F(Part32Reads, BooleanReadGoesThroughTheStringRead) {
    ASSERT_EQ(0, it->putValue(0, VALUE));
    ASSERT_EQ(0, it->putValue(5, ITEM));
    ASSERT_EQ(0, it->putValueTime(T, NAME));
    bool flag = true;
    EXPECT_EQ(0, it->getValue(flag, VALUE));
    EXPECT_FALSE(flag);
    EXPECT_EQ(0, it->getValue(flag, ITEM));
    EXPECT_TRUE(flag);
    flag = false;
    EXPECT_EQ(-1, it->getValue(flag, NAME));  // type 6 has no string form
    EXPECT_FALSE(flag);
    EXPECT_EQ(0, it->getValue(flag, "value"));
    EXPECT_FALSE(flag);
}

// ---- writes: stored bytes and results -----------------------------------------------------------

TEST_F(Part32Writes, EachWriteStoresItsTypeAndBytes) {
    const long long ll = 0x0102030405060708LL;
    const double d = -0.1;
    ASSERT_EQ(0, it->putValue(-2, VALUE));
    ASSERT_EQ(0, it->putValueLongLong(ll, ITEM));
    ASSERT_EQ(0, it->putValueDouble(d, NAME));
    ASSERT_EQ(0, it->putValue("ab\0cd"s, DATA));
    ASSERT_EQ(0, it->putValue("xyz", 2, ORIGIN));
    struct Case {
        int tag;
        unsigned short type;
        std::string stored;
    } cases[] = {
        {VALUE, 1, std::string("\xfe\xff\xff\xff", 4)},
        {ITEM, 3, std::string(reinterpret_cast<const char*>(&ll), 8)},
        {NAME, 4, std::string(reinterpret_cast<const char*>(&d), 8)},
        {DATA, 2, "ab\0cd\0"s},  // the string's size() bytes, then a NUL
        {ORIGIN, 2, "xy\0"s},    // len bytes of the buffer, then a NUL
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tag);
        const Node node = child(c.tag);
        EXPECT_EQ(c.type, node.type());
        EXPECT_EQ(c.stored, payload(node));
    }
    std::string s;
    EXPECT_EQ(0, it->getValue(s, DATA));
    EXPECT_EQ("ab", s);  // up to the NUL
    EXPECT_EQ(0, it->getValue(s, ORIGIN));
    EXPECT_EQ("xy", s);
    EXPECT_EQ(0, it->putValueTime(T, VALUE));
    EXPECT_EQ(QKL::binary::TYPE_TIME, child(VALUE).type());
    EXPECT_EQ(std::string(T_TEXT) + '\0', payload(child(VALUE)));
    EXPECT_EQ(1, count(VALUE));
}

TEST_F(Part32Writes, AWriteByIDUpdatesTheFirstChildWithThatTagAndReplacesItsType) {
    ASSERT_EQ(0, it->newChild(VALUE));
    it->seekUp();
    ASSERT_EQ(0, it->newChild(VALUE));
    it->seekUp();
    EXPECT_EQ(0, it->putValue(5, VALUE));
    EXPECT_EQ(0, it->putValue("s"s, VALUE));
    EXPECT_EQ(2, count(VALUE));
    ASSERT_EQ(0, it->firstChild(VALUE));
    std::string s;
    EXPECT_EQ(0, it->getValue(s, 0));
    EXPECT_EQ("s", s);
    EXPECT_EQ(QKL::binary::TYPE_STRING, current().type());
    ASSERT_EQ(0, it->nextSibling(VALUE));
    EXPECT_EQ(QKL::binary::TYPE_ELEMENT, current().type());
    EXPECT_EQ(0u, current().dataSize());
}

TEST_F(Part32Writes, WritesByIDZeroActOnTheCurrentElementAndStayThere) {
    ASSERT_EQ(0, it->newChild(VALUE));
    const Path value = pathOf(*it);
    EXPECT_EQ(0, it->putValue(5, 0));
    EXPECT_EQ(value, pathOf(*it));
    EXPECT_EQ(0, it->putValue("five"s, 0));
    EXPECT_EQ(value, pathOf(*it));
    EXPECT_EQ(0, it->putValueLongLong(5, 0));
    EXPECT_EQ(0, it->putValueDouble(5.5, 0));
    EXPECT_EQ(0, it->putValueBase64("5"s, 0));
    EXPECT_EQ(0, it->putValueTime(T, 0));
    EXPECT_EQ(0, it->putValueTimeZone(T, 5, 0));
    EXPECT_EQ(value, pathOf(*it));
    long t = 0;
    int z = 0;
    EXPECT_EQ(0, it->getValueTimeZone(t, z, 0));
    EXPECT_EQ(T, t);
    EXPECT_EQ(5, z);
    it->seekUp();
    EXPECT_EQ(1, count(VALUE));
}

TEST_F(Part32Writes, WritesByIDReturnZeroOnSuccessAndOneOnFailure) {
    // Success: 0 for every form.
    EXPECT_EQ(0, it->putValue(1, VALUE));
    EXPECT_EQ(0, it->putValue("1"s, VALUE));
    EXPECT_EQ(0, it->putValue("1", 1, VALUE));
    EXPECT_EQ(0, it->putValueLongLong(1, VALUE));
    EXPECT_EQ(0, it->putValueDouble(1, VALUE));
    EXPECT_EQ(0, it->putValueBase64("1"s, VALUE));
    EXPECT_EQ(0, it->putValueBase64("1", 1, VALUE));
    EXPECT_EQ(0, it->putValueXML("<a/>", VALUE));
    EXPECT_EQ(0, it->putValueTime(T, VALUE));
    EXPECT_EQ(0, it->putValueTimeZone(T, 60, VALUE));

    // Failure: a value under an element that holds a value (no child can go there) ...
    ASSERT_EQ(0, it->seek(VALUE));
    std::string before = bytes();
    EXPECT_EQ(1, it->putValue(1, ITEM));
    EXPECT_EQ(1, it->putValue("1"s, ITEM));
    EXPECT_EQ(1, it->putValueXML("<a/>", ITEM));
    EXPECT_EQ(1, it->putValueTime(T, ITEM));  // the text was made: the failure is put's
    EXPECT_EQ(before, bytes());
    it->seekUp();
    // ... and a value into a container.
    ASSERT_EQ(0, it->newChild(ITEM));
    ASSERT_EQ(0, it->newChild(NAME));
    it->seekUp();
    it->seekUp();
    before = bytes();
    EXPECT_EQ(1, it->putValue(1, ITEM));
    EXPECT_EQ(1, it->putValueLongLong(1, ITEM));
    EXPECT_EQ(1, it->putValueDouble(1, ITEM));
    EXPECT_EQ(1, it->putValueBase64("1"s, ITEM));
    EXPECT_EQ(1, it->putValue(1, 0));  // the root itself
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(before, bytes());
}

TEST_F(Part32Writes, WritesThroughAStaleIteratorReturnOne) {
    ASSERT_EQ(0, it->newChild("a"));
    it->seekUp();
    ASSERT_EQ(0, it->newChild("b"));
    it->seekUp();
    std::unique_ptr<QKLBinaryIterator> second(binaryIterator(msg->newIterator()));
    ASSERT_EQ(0, second->seek("b"));
    ASSERT_EQ(0, it->seek("a"));
    ASSERT_EQ(0, it->deleteFromChild());
    const std::string before = bytes();
    EXPECT_EQ(1, second->putValue(1, VALUE));
    EXPECT_EQ(1, second->putValue("1"s, VALUE));
    EXPECT_EQ(1, second->putValueLongLong(1, VALUE));
    EXPECT_EQ(1, second->putValueDouble(1, VALUE));
    EXPECT_EQ(1, second->putValueBase64("1"s, VALUE));
    EXPECT_EQ(1, second->putValueXML("<a/>", VALUE));
    EXPECT_EQ(1, second->putValueTime(T, VALUE));
    EXPECT_EQ(1, second->putValueTimeZone(T, 0, VALUE));
    EXPECT_EQ(1, second->putValue(1, 0));
    EXPECT_EQ(-1, second->putValue(1, "value"));  // by name: neither found nor created
    EXPECT_EQ(before, bytes());
}

// -1 when time2str / time2strZone give "" (nothing is written).
TEST_F(Part32Writes, TimeWritesReturnMinusOneWhenTheTimeCannotBeWrittenAsText) {
    ASSERT_EQ("", QKL::time2str(TOO_LATE));
    ASSERT_EQ("", QKL::time2str(TOO_EARLY));
    ASSERT_EQ("", QKL::time2strZone(T, TOO_WIDE_ZONE));
    std::string before = bytes();
    EXPECT_EQ(-1, it->putValueTime(TOO_LATE, VALUE));
    EXPECT_EQ(-1, it->putValueTime(TOO_EARLY, VALUE));
    EXPECT_EQ(-1, it->putValueTimeZone(TOO_LATE, 0, VALUE));
    EXPECT_EQ(-1, it->putValueTimeZone(T, TOO_WIDE_ZONE, VALUE));
    EXPECT_EQ(-1, it->putValueTimeZone(T, -TOO_WIDE_ZONE, VALUE));
    EXPECT_EQ(-1, it->putAttrTime(TOO_LATE, VALUE));
    EXPECT_EQ(before, bytes());
    EXPECT_EQ(0, count(VALUE));
    // An existing value stays as it was.
    ASSERT_EQ(0, it->putValueTime(T, VALUE));
    before = bytes();
    EXPECT_EQ(-1, it->putValueTime(TOO_LATE, VALUE));
    EXPECT_EQ(-1, it->putValueTimeZone(T, TOO_WIDE_ZONE, VALUE));
    EXPECT_EQ(before, bytes());
    long t = 0;
    EXPECT_EQ(0, it->getValueTime(t, VALUE));
    EXPECT_EQ(T, t);
    // The last writable second.
    EXPECT_EQ(0, it->putValueTime(TOO_LATE - 1, VALUE));
    EXPECT_EQ(0, it->getValueTime(t, VALUE));
    EXPECT_EQ(TOO_LATE - 1, t);
}

TEST_F(Part32Writes, AWriteOnASharedMessageMakesItsDocumentPrivate) {
    ASSERT_EQ(0, it->putValue(1, VALUE));
    auto_destroy<QKLMessage> copy(msg->copy(false));
    ASSERT_EQ(2, msg->shareCount());
    std::unique_ptr<QKLMessageIterator> other(copy->newIterator());
    EXPECT_EQ(0, other->putValue(2, VALUE));
    EXPECT_EQ(1, msg->shareCount());
    int value = 0;
    EXPECT_EQ(0, it->getValue(value, VALUE));
    EXPECT_EQ(1, value);
    EXPECT_EQ(0, other->getValue(value, VALUE));
    EXPECT_EQ(2, value);
}

// ---- by name ---------------------------------------------------------------------------------------

// A single name ends on the starting element, a two-level path one below it, the
// empty name on the starting element's parent (deliberately one element up).
TEST_F(Part32ByName, WritesByNameEndOneElementUpFromWhereTheyWrote) {
    ASSERT_EQ(0, it->newChild(DATA));
    const Path data = pathOf(*it);
    ASSERT_EQ(0, it->newChild(ITEM));
    const Path item = pathOf(*it);
    it->seekUp();

    // Single name, existing and new.
    EXPECT_EQ(0, it->putValue(1, "item"));
    EXPECT_EQ(data, pathOf(*it));
    EXPECT_EQ(0, it->putValue(2, "name"));
    EXPECT_EQ(data, pathOf(*it));
    int value = 0;
    EXPECT_EQ(0, it->getValue(value, ITEM));
    EXPECT_EQ(1, value);
    EXPECT_EQ(0, it->getValue(value, NAME));
    EXPECT_EQ(2, value);

    // Two levels from the root: ends on "data".
    ASSERT_EQ(0, it->seekRoot());
    EXPECT_EQ(0, it->putValueLongLong(3, "data/item"));
    EXPECT_EQ(data, pathOf(*it));
    long long ll = 0;
    EXPECT_EQ(0, it->getValueLongLong(ll, ITEM));
    EXPECT_EQ(3, ll);
    // An absolute path of two levels from deeper down: also on "data".
    ASSERT_EQ(0, it->seek(ITEM));
    EXPECT_EQ(0, it->putValueDouble(4.5, "/data/item"));
    EXPECT_EQ(data, pathOf(*it));

    // The empty name: the starting element itself, ending on its parent.
    ASSERT_EQ(0, it->seek(ITEM));
    ASSERT_EQ(item, pathOf(*it));
    EXPECT_EQ(0, it->putValue("six"s, ""));
    EXPECT_EQ(data, pathOf(*it));
    std::string s;
    EXPECT_EQ(0, it->getValue(s, ITEM));
    EXPECT_EQ("six", s);
}

TEST_F(Part32ByName, EveryWriteByNameFormEndsOnTheStartingElementForASingleName) {
    for (int form = 0; form < 7; ++form) {
        SCOPED_TRACE(form);
        int result = 1;
        switch (form) {
            case 0: result = it->putValue(1, "value"); break;
            case 1: result = it->putValue("1"s, "value"); break;
            case 2: result = it->putValueLongLong(1, "value"); break;
            case 3: result = it->putValueDouble(1, "value"); break;
            case 4: result = it->putValueBase64("1"s, "value"); break;
            case 5: result = it->putValueTime(T, "value"); break;
            case 6: result = it->putValueTimeZone(T, 1, "value"); break;
        }
        EXPECT_EQ(0, result);
        EXPECT_EQ(rootPath(), pathOf(*it));
        EXPECT_EQ(1, count(VALUE));
    }
    EXPECT_EQ(QKL::binary::TYPE_TIME, child(VALUE).type());
}

TEST_F(Part32ByName, WriteByNameResults) {
    // -1: the child can neither be found nor created (the current element holds a value);
    // the position is not shortened.
    ASSERT_EQ(0, it->putValue(5, VALUE));
    ASSERT_EQ(0, it->seek(VALUE));
    const Path value = pathOf(*it);
    EXPECT_EQ(-1, it->putValue(1, "item"));
    EXPECT_EQ(-1, it->putValue("1"s, "item"));
    EXPECT_EQ(value, pathOf(*it));
    it->seekUp();
    // The write by ID's result otherwise: 1 when the element reached is a container,
    // and the iterator still ends one element up.
    ASSERT_EQ(0, it->newChild(ITEM));
    ASSERT_EQ(0, it->newChild(NAME));
    ASSERT_EQ(0, it->seekRoot());
    EXPECT_EQ(1, it->putValue(1, "item"));
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(1, it->putValueBase64("1"s, "item"));
    EXPECT_EQ(rootPath(), pathOf(*it));
}

// The literal algorithm creates the child before the time text is found unwritable:
// the result is -1, the new child stays empty and the iterator ends on the start.
TEST_F(Part32ByName, UnwritableTimeByNameReturnsMinusOneAfterCreatingTheChild) {
    EXPECT_EQ(-1, it->putValueTime(TOO_LATE, "value"));
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(1, count(VALUE));
    EXPECT_EQ(QKL::binary::TYPE_ELEMENT, child(VALUE).type());
    EXPECT_EQ(0u, child(VALUE).dataSize());
    EXPECT_EQ(-1, it->putValueTimeZone(T, TOO_WIDE_ZONE, "value"));
    EXPECT_EQ(rootPath(), pathOf(*it));
    EXPECT_EQ(1, count(VALUE));
}

TEST_F(Part32ByName, ReadsByNameNeverMove) {
    ASSERT_EQ(0, it->putValue("top"s, "origin"));
    ASSERT_EQ(0, it->newChild(DATA));
    ASSERT_EQ(0, it->newChild(ITEM));
    ASSERT_EQ(0, it->putValue(7, "value"));
    ASSERT_EQ(0, it->newChild(NAME));
    ASSERT_EQ(0, it->putValue("deep"s, "value"));
    ASSERT_EQ(0, it->seekRoot());
    for (const char* from : {"", "data", "data/item", "data/item/name", "data/item/value"}) {
        SCOPED_TRACE(from);
        ASSERT_EQ(0, it->seekRoot());
        ASSERT_EQ(0, it->seek(from));
        const Path here = pathOf(*it);
        std::string s;
        int i = 0;
        long long ll = 0;
        double d = 0;
        long t = 0;
        int z = 0;
        EXPECT_EQ(0, it->getValue(s, "/data/item/name/value"));
        EXPECT_EQ("deep", s);
        EXPECT_EQ(here, pathOf(*it));
        EXPECT_EQ(0, it->getValue(i, "/data/item/value"));
        EXPECT_EQ(7, i);
        EXPECT_EQ(here, pathOf(*it));
        EXPECT_EQ(0, it->getValueLongLong(ll, "/data/item/value"));
        EXPECT_EQ(0, it->getValue(s, "/origin"));
        EXPECT_EQ("top", s);
        EXPECT_EQ(here, pathOf(*it));
        // Failing reads do not move either.
        EXPECT_EQ(-1, it->getValueDouble(d, "/data/item/value"));
        EXPECT_EQ(-1, it->getValueTime(t, "/data/item/value"));
        EXPECT_EQ(-1, it->getValueTimeZone(t, z, "/origin"));
        EXPECT_EQ(-1, it->getValueBase64(s, "/data/item/value"));
        EXPECT_EQ(-1, it->getValue(s, "/data/nosuchname"));
        EXPECT_EQ(-1, it->getValue(s, "/data/item/name/value/item"));
        EXPECT_EQ(here, pathOf(*it));
    }
    // Relative two-level read.
    ASSERT_EQ(0, it->seek("/data"));
    const Path data = pathOf(*it);
    std::string s;
    EXPECT_EQ(0, it->getValue(s, "item/name/value"));
    EXPECT_EQ("deep", s);
    EXPECT_EQ(data, pathOf(*it));
}

// ---- attribute forms -----------------------------------------------------------------------------

TEST_F(Part32Attributes, PutAttrAndGetAttrForwardToTheValueOperations) {
    EXPECT_EQ(0, it->putAttr("4.5.0"s, QKLBinary::VERSION_ATTRIBUTE));
    EXPECT_EQ(0, it->putAttr(3, QKLBinary::PRIORITY_ATTRIBUTE));
    EXPECT_EQ(0, it->putAttrTime(T, QKLBinary::TIME_ATTRIBUTE));
    EXPECT_EQ(rootPath(), pathOf(*it));

    EXPECT_EQ(QKL::binary::TYPE_STRING, child(QKLBinary::VERSION_ATTRIBUTE).type());
    EXPECT_EQ("4.5.0\0"s, payload(child(QKLBinary::VERSION_ATTRIBUTE)));
    EXPECT_EQ(QKL::binary::TYPE_INT, child(QKLBinary::PRIORITY_ATTRIBUTE).type());
    EXPECT_EQ(QKL::binary::TYPE_TIME, child(QKLBinary::TIME_ATTRIBUTE).type());

    std::string s;
    int i = 0;
    long t = 0;
    EXPECT_EQ(0, it->getAttr(s, QKLBinary::VERSION_ATTRIBUTE));
    EXPECT_EQ("4.5.0", s);
    EXPECT_EQ(0, it->getAttr(i, QKLBinary::PRIORITY_ATTRIBUTE));
    EXPECT_EQ(3, i);
    EXPECT_EQ(0, it->getAttr(s, QKLBinary::PRIORITY_ATTRIBUTE));  // the text of an int
    EXPECT_EQ("3", s);
    EXPECT_EQ(0, it->getAttrTime(t, QKLBinary::TIME_ATTRIBUTE));
    EXPECT_EQ(T, t);
    EXPECT_EQ(-1, it->getAttr(s, QKLBinary::TIME_ATTRIBUTE));
    EXPECT_EQ(0, it->getAttr(i, QKLBinary::VERSION_ATTRIBUTE));  // strtol of "4.5.0"
    EXPECT_EQ(4, i);
    EXPECT_EQ(-1, it->getAttr(i, QKLBinary::TYPE_ATTRIBUTE));
    EXPECT_EQ(-1, it->getAttrTime(t, QKLBinary::PRIORITY_ATTRIBUTE));
    EXPECT_EQ(rootPath(), pathOf(*it));

    // Writing again updates the one attribute.
    EXPECT_EQ(0, it->putAttr(4, QKLBinary::PRIORITY_ATTRIBUTE));
    EXPECT_EQ(0, it->putAttr("4.0.0"s, QKLBinary::VERSION_ATTRIBUTE));
    EXPECT_EQ(1, count(QKLBinary::PRIORITY_ATTRIBUTE));
    EXPECT_EQ(1, count(QKLBinary::VERSION_ATTRIBUTE));
    EXPECT_EQ(0, it->getAttr(i, QKLBinary::PRIORITY_ATTRIBUTE));
    EXPECT_EQ(4, i);
    // The attribute 101 sets the message version (Part 2.2).
    EXPECT_EQ(40000, doc()->messageVersion());
    // The header getters of the message read what was written.
    int priority = 0;
    EXPECT_EQ(0, msg->getPriority(priority));
    EXPECT_EQ(4, priority);
    long time = 0;
    EXPECT_EQ(0, msg->getTime(time));
    EXPECT_EQ(T, time);
}

TEST_F(Part32Attributes, AttributeFormsOnAStringAttributeHoldingNuls) {
    EXPECT_EQ(0, it->putAttr("a\0b"s, QKLBinary::UID_ATTRIBUTE));
    EXPECT_EQ("a\0b\0"s, payload(child(QKLBinary::UID_ATTRIBUTE)));
    std::string s;
    EXPECT_EQ(0, it->getAttr(s, QKLBinary::UID_ATTRIBUTE));
    EXPECT_EQ("a", s);
    EXPECT_EQ(-1, it->getAttr(s, QKLBinary::LOG_ATTRIBUTE));
}

}  // namespace
