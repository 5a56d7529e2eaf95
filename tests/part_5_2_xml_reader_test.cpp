// Part 5.2: XML reader. The "Edge cases worth testing" bullets come first
// (Part52EdgeCases, one TEST each), then the token rules, the name-to-ID rules,
// the policy bits for unknown elements, header attributes, namespaces,
// xsi:type, text content, the top level (whole document and under an
// iterator), and last the bad input: cut texts, unbalanced tags, deep nesting,
// huge names, runs of "&", high bytes and random damage.
//
// Every text is written by hand (the writer of Part 5.1 is not used), and every
// text is handed over in a heap block of exactly its length plus the zero byte,
// so that the sanitizer build (./dev check) sees any read past that byte.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/message/QKLMessage.h"
#include "qkl/text/XmlNamespaces.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

using namespace QKL;
using binary::Format;
using binary::Node;
using Bytes = std::vector<char>;
using Message = auto_destroy<QKLBinary>;

namespace {

// Vocabulary element IDs (Part 4.1).
const int ALERTS = 1001, NAME = 1026, DATA = 1307, ORIGIN = 1337, PACKET = 1398, COOKIE = 1400, TARGET = 1401;
// Header attributes (Part 2.4).
const int VERSION_ATTR = 101, ID_ATTR = 102, PRIORITY_ATTR = 103, TIME_ATTR = 104, TYPE_ATTR = 105,
          PROGRESS_ATTR = 106, TIMEOUT_ATTR = 107, TIMEOUT_LIMIT_ATTR = 108, UID_ATTR = 109, LOG_ATTR = 110;
// Vocabulary namespaces (Part 4.1, qkl/vocabulary/NamespaceVocabulary.cpp).
const int PROTOCOL_NS = 297, ENVM_NS = 264, ALERTS_NS = 201;
const std::string PROTOCOL_URI = std::string(VOCABULARY_BASE_URI) + "/webservices/qkl/4.0.0/protocol";
const std::string ENVM_URI = std::string(VOCABULARY_BASE_URI) + "/webservices/qkl/4.0.0/envm";
const std::string ALERTS_URI = std::string(VOCABULARY_BASE_URI) + "/webservices/qka/3.0.3/alerts";
const std::string XSI = "http://www.w3.org/2001/XMLSchema-instance";
// A URI in no vocabulary.
const std::string OTHER_URI = "urn:example:reader-test";
// The first per-document IDs (Part 4.2): the counter starts at -2.
const int FIRST_ID = -2;
const int SECOND_ID = -3;
const int THIRD_ID = -4;
const int SHORT_SECOND_ID = 65533;  // -3 in a 16-bit namespace or type field
const int SHORT_THIRD_ID = 65532;

std::string g_lastReport;
void quietHandler(const char* condition, const char* file, int line) {
    g_lastReport = std::string(condition) + " at " + file + ":" + std::to_string(line);
}

// Silences QKL_ASSERT and counts its reports; the reader must raise none.
class Part52 : public ::testing::Test {
protected:
    void SetUp() override {
        m_previous = setAssertHandler(&quietHandler);
        m_reports = assertReports();
        m_policy = QKLBinary::Policy;
    }
    void TearDown() override {
        QKLBinary::Policy = m_policy;
        setAssertHandler(m_previous);
    }
    unsigned long reports() const { return assertReports() - m_reports; }

    AssertHandler m_previous = nullptr;
    unsigned long m_reports = 0;
    unsigned int m_policy = 0;
};
class Part52EdgeCases : public Part52 {};
class Part52Tokens : public Part52 {};
class Part52Names : public Part52 {};
class Part52Policy : public Part52 {};
class Part52Header : public Part52 {};
class Part52Namespaces : public Part52 {};
class Part52Types : public Part52 {};
class Part52Text : public Part52 {};
class Part52Document : public Part52 {};
class Part52Iterator : public Part52 {};
class Part52BadInput : public Part52 {};

// ---- helpers ---------------------------------------------------------------------------------------

// The text in a heap block of exactly its length + 1: a read past the zero byte is a sanitizer finding.
struct HeapText {
    explicit HeapText(const std::string& text) : bytes(static_cast<char*>(std::malloc(text.size() + 1))) {
        std::memcpy(bytes, text.data(), text.size());
        bytes[text.size()] = '\0';
    }
    ~HeapText() { std::free(bytes); }
    HeapText(const HeapText&) = delete;
    HeapText& operator=(const HeapText&) = delete;
    char* bytes;
};

int parse(QKLBinary& m, const std::string& text, QKLMessageIterator* at = nullptr) {
    HeapText heap(text);
    return m.fromText(heap.bytes, at);
}

// A new message holding `text`, or an empty one when the parse failed (its result in *result).
QKLBinary* parsed(const std::string& text, int* result = nullptr) {
    QKLBinary* m = new QKLBinary;
    const int r = parse(*m, text);
    if (result != nullptr) *result = r;
    return m;
}

std::unique_ptr<QKLBinaryIterator> rootOf(QKLBinary& m) {
    return std::unique_ptr<QKLBinaryIterator>(static_cast<QKLBinaryIterator*>(m.newIterator()));
}

Bytes held(const QKLBinary& m) {
    const QKLBinaryInternals* d = m.internals();
    if (d == nullptr || d->buffer() == nullptr) return Bytes();
    return Bytes(d->buffer(), d->buffer() + d->used());
}

std::string textOf(const Node& n) {
    const char* d = n.data();
    const unsigned int size = n.dataSize();
    if (d == nullptr || size == 0) return std::string();
    const void* nul = std::memchr(d, 0, size);
    return std::string(d, nul ? size_t(static_cast<const char*>(nul) - d) : size_t(size));
}

// The tree as text: tag, "/type" unless 0 or 50, "@ns" when set, then "{children}"
// for a container or "='text'" for a node with data.
void dumpNode(const Format::node_range& r, std::string& out) {
    const Node n = r.node();
    out += std::to_string(n.tag());
    if (n.type() != binary::TYPE_ELEMENT && n.type() != binary::TYPE_CONTAINER) out += "/" + std::to_string(n.type());
    if (n.ns() != 0) out += "@" + std::to_string(n.ns());
    if (n.isContainer()) {
        out += "{";
        bool first = true;
        for (Format::node_range c = r.children(); c.valid(); c = c.next()) {
            if (!first) out += ",";
            first = false;
            dumpNode(c, out);
        }
        out += "}";
    } else if (n.dataSize() != 0) {
        out += "='" + textOf(n) + "'";
    }
}

std::string dump(const QKLBinary& m) {
    const QKLBinaryInternals* d = m.internals();
    if (d == nullptr || d->buffer() == nullptr || d->format().empty()) return "<empty>";
    std::string out;
    dumpNode(d->format().root(), out);
    return out;
}

// The dump of `text` parsed into a new message, or "FAIL".
std::string dumpOf(const std::string& text) {
    int result = 0;
    Message m(parsed(text, &result));
    return result == 0 ? dump(*m) : "FAIL";
}

struct MapEntry {
    int tag;
    unsigned kind;
    std::string name;
    bool operator==(const MapEntry& o) const { return tag == o.tag && kind == o.kind && name == o.name; }
};
std::ostream& operator<<(std::ostream& os, const MapEntry& e) {
    return os << "{" << e.tag << ", " << e.kind << ", \"" << e.name << "\"}";
}

// The document's map area as written, newest entry first.
std::vector<MapEntry> mapEntries(const QKLBinary& m) {
    std::vector<MapEntry> out;
    const QKLBinaryInternals* d = m.internals();
    if (d == nullptr || d->buffer() == nullptr) return out;
    const Format format = d->format();
    const unsigned end = format.map().offset() + format.map().size();
    for (unsigned at = format.map().offset(); at < end; at += unsigned(Node(format.arena(), at).size())) {
        const Node node(format.arena(), at);
        out.push_back({node.tag(), node.type(), std::string(node.data(), node.dataSize() - 1)});
    }
    return out;
}

// The node at the end of a path of tags from the root ({} is the root itself).
bool nodeAt(const QKLBinary& m, std::vector<int> tags, Node& out) {
    const QKLBinaryInternals* d = m.internals();
    if (d == nullptr || d->buffer() == nullptr || d->format().empty()) return false;
    Format::node_range r = d->format().root();
    for (int tag : tags) {
        Format::node_range c = r.children();
        while (c.valid() && c.node().tag() != tag) c = c.next();
        if (!c.valid()) return false;
        r = c;
    }
    out = r.node();
    return true;
}

std::string valueAt(const QKLBinary& m, std::vector<int> tags) {
    Node n(binary::Arena(), 0);
    return nodeAt(m, tags, n) ? textOf(n) : std::string("<none>");
}

// Sets the class-wide policy for the messages made while it lives.
struct PolicyScope {
    explicit PolicyScope(unsigned int policy) : previous(QKLBinary::Policy) { QKLBinary::Policy = policy; }
    ~PolicyScope() { QKLBinary::Policy = previous; }
    unsigned int previous;
};

std::string repeat(const std::string& s, int n) {
    std::string out;
    out.reserve(s.size() * size_t(n));
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

// A message text with every construct the reader knows, ending exactly at the root's end tag.
std::string realMessageText() {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<ns1:packet xmlns:xsi=\"" + XSI + "\" xmlns:ns1=\"" + PROTOCOL_URI + "\" xmlns:ns2=\"" + OTHER_URI +
           "\" version=\"4.5.0\" id=\"7\" priority=\"3\">\n"
           "\t<!-- the sender -->\r\n"
           "\t<origin>agent &amp; co</origin>\n"
           "\t<data>\n"
           "\t\t<ns1:cookie xsi:type=\"ns2:cookieType\"><name>x</name></ns1:cookie>\n"
           "\t\t<custom_probe>euro &#x20AC;</custom_probe>\n"
           "\t\t<empty/>\n"
           "\t\t<spaced>  </spaced>\n"
           "\t</data>\n"
           "</ns1:packet>";
}

// A small document of this process's own making, to parse under.
void fillTarget(QKLBinary& m) {
    ASSERT_EQ(0, m.create(PACKET));
    std::unique_ptr<QKLBinaryIterator> it = rootOf(m);
    ASSERT_EQ(0, it->newChild(DATA));
    ASSERT_EQ(0, it->newChild(std::string("their_own_name")));  // takes -2 in the target
    ASSERT_EQ(0, it->putValue(std::string("theirs"), 0));
}

// ==== Part52EdgeCases: the Part's bullets ==============================================================

TEST_F(Part52EdgeCases, NumericAndAmpReferencesUnescapeToAAAndAmpersand) {
    EXPECT_EQ("1398{1337='A'}", dumpOf("<packet><origin>&#65;</origin></packet>"));
    EXPECT_EQ("1398{1337='A'}", dumpOf("<packet><origin>&#x41;</origin></packet>"));
    EXPECT_EQ("1398{1337='&'}", dumpOf("<packet><origin>&amp;</origin></packet>"));
    EXPECT_EQ("1398{1337='xAyAz&'}", dumpOf("<packet><origin>x&#65;y&#x41;z&amp;</origin></packet>"));
    EXPECT_EQ(0u, reports()) << g_lastReport;
}

TEST_F(Part52EdgeCases, HexReference20ACGivesTheThreeUtf8BytesOfTheEuroSign) {
    Message m(parsed("<packet><origin>&#x20AC;</origin></packet>"));
    EXPECT_EQ("\xE2\x82\xAC", valueAt(*m, {ORIGIN}));
}

TEST_F(Part52EdgeCases, BogusEntityAndAmpWithoutSemicolonFail) {
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>&bogus;</origin></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>&amp</origin></packet>"));
}

TEST_F(Part52EdgeCases, StartTagFollowedByADifferentEndTagFails) {
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>x</target></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin></target></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><data><origin/></target></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet></target>"));
}

TEST_F(Part52EdgeCases, ElementWithThePrefixOfAnUndeclaredNamespaceIsResolvedByItsLocalName) {
    int result = -1;
    Message m(parsed("<q:packet><q:origin>x</q:origin></q:packet>", &result));
    ASSERT_EQ(0, result);
    EXPECT_EQ("1398{1337='x'}", dump(*m));  // vocabulary IDs, namespace 0
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    EXPECT_EQ(0, it->curNamespaceID());
    EXPECT_EQ("packet", it->curName());
}

TEST_F(Part52EdgeCases, XsiTypeWhosePrefixIsNotDeclaredFails) {
    // The attribute's prefix undeclared.
    EXPECT_EQ("FAIL", dumpOf("<packet xmlns:t=\"" + OTHER_URI + "\"><data xsi:type=\"t:T\"/></packet>"));
    // The value's prefix undeclared.
    EXPECT_EQ("FAIL", dumpOf("<packet xmlns:xsi=\"" + XSI + "\"><data xsi:type=\"t:T\"/></packet>"));
    // Both declared: accepted.
    EXPECT_NE("FAIL",
              dumpOf("<packet xmlns:xsi=\"" + XSI + "\" xmlns:t=\"" + OTHER_URI + "\"><data xsi:type=\"t:T\"/></packet>"));
}

TEST_F(Part52EdgeCases, TextOverLinesWithTabsAndCarriageReturnsParsesAsOnOneLine) {
    const std::string oneLine =
        "<packet version=\"4.5.0\"><origin>a</origin><data><cookie><name>n</name></cookie><target/></data></packet>";
    const std::string spread =
        "\r\n\t<packet\tversion=\"4.5.0\"\r\n>\r\n\t<origin>a</origin>\n\t<data>\r\n\t\t<cookie>\t<name>n</name>\r</cookie>"
        "\n\t\t<target\r\n/>\n\t</data>\r\n</packet>\r\n\t ";
    Message a(parsed(oneLine)), b(parsed(spread));
    EXPECT_EQ("1398{101/2='4.5.0',1337='a',1307{1400{1026='n'},1401}}", dump(*a));
    EXPECT_EQ(held(*a), held(*b));
}

TEST_F(Part52EdgeCases, ElementNameOf251CharactersFailsAnd250IsAccepted) {
    const std::string n250(250, 'n'), n251(251, 'n');
    int result = -1;
    Message ok(parsed("<packet><" + n250 + ">v</" + n250 + "></packet>", &result));
    EXPECT_EQ(0, result);
    EXPECT_EQ("v", valueAt(*ok, {FIRST_ID}));
    EXPECT_EQ(n250, ok->internals()->idMap().findIDC(FIRST_ID).str());
    EXPECT_EQ("FAIL", dumpOf("<packet><" + n251 + ">v</" + n251 + "></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><" + n251 + "/></packet>"));
    // The limit counts the name as written, prefix included.
    EXPECT_EQ("FAIL", dumpOf("<packet><p:" + std::string(249, 'n') + "/></packet>"));
    EXPECT_NE("FAIL", dumpOf("<packet><p:" + std::string(248, 'n') + "/></packet>"));
}

TEST_F(Part52EdgeCases, XmlDeclarationBeforeTheRootAndACommentBetweenElementsAreSkipped) {
    EXPECT_EQ("1398{1337='a',1401='b'}",
              dumpOf("<?xml version=\"1.0\" encoding=\"UTF-8\"?><packet><origin>a</origin>"
                     "<!-- a comment without the closing character in it --><target>b</target></packet>"));
    EXPECT_EQ("1398{1337='a'}", dumpOf("<!DOCTYPE packet><?pi x?>\n<!-- c --><packet><!-- c --><origin>a</origin>"
                                      "<?pi?></packet>"));
}

TEST_F(Part52EdgeCases, AttributeValueInSingleQuotesFails) {
    EXPECT_EQ("FAIL", dumpOf("<packet version='4.5.0'/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><data foo='x'/></packet>"));
    EXPECT_EQ("1398{101/2='4.5.0'}", dumpOf("<packet version=\"4.5.0\"/>"));
}

// ==== Part52Tokens: the token rules =====================================================================

TEST_F(Part52Tokens, EveryWhiteSpaceCharacterIsSkippedInEverySkipLoop) {
    const std::string expected = "1398{101/2='1',1337{1401}}";
    for (const char* ws : {" ", "\t", "\n", "\r"}) {
        const std::string w(ws);
        // Before the root, before and between attributes, before ">" and "/>", between
        // children, between the last child and the end tag, and behind the root.
        const std::string text = w + "<packet" + w + "version=\"1\"" + w + ">" + w + "<origin" + w + ">" + w +
                                 "<target" + w + "/>" + w + "</origin>" + w + "</packet>" + w;
        EXPECT_EQ(expected, dumpOf(text)) << "white space " << int(ws[0]);
    }
    // Anything else is no white space: a form feed or a vertical tab before the root fails.
    EXPECT_EQ("FAIL", dumpOf("\f<packet/>"));
    EXPECT_EQ("FAIL", dumpOf("\v<packet/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin/>\f<target/></packet>"));
}

TEST_F(Part52Tokens, AnElementMustStartWithLessThan) {
    EXPECT_EQ("FAIL", dumpOf("packet/>"));
    EXPECT_EQ("FAIL", dumpOf("x<packet/>"));
    EXPECT_EQ("FAIL", dumpOf(""));
    EXPECT_EQ("FAIL", dumpOf(" \t\r\n"));
}

TEST_F(Part52Tokens, CommentsAndProcessingInstructionsEndAtTheNextGreaterThan) {
    // Deliberately simple: a comment holding ">" ends there, and the rest is stray text.
    EXPECT_EQ("FAIL", dumpOf("<packet><!-- a > b --><origin/></packet>"));
    // Whatever stands between is skipped, "<" included.
    EXPECT_EQ("1398{1337}", dumpOf("<packet><!-- <target --><origin/></packet>"));
    // Without a ">" behind them they fail.
    EXPECT_EQ("FAIL", dumpOf("<packet><!-- never closed"));
    EXPECT_EQ("FAIL", dumpOf("<?xml version=\"1.0\""));
    EXPECT_EQ("FAIL", dumpOf("<!"));
    EXPECT_EQ("FAIL", dumpOf("<?"));
    // Only "<!" and "<?": "<" followed by anything else is an element.
    EXPECT_EQ("FAIL", dumpOf("<packet><-- x --><origin/></packet>"));
}

TEST_F(Part52Tokens, CDataIsNotPartOfTheGrammar) {
    // "<![CDATA[" is skipped to its first ">" like any "<!": its text is lost, or
    // whatever follows that ">" is parsed on.
    EXPECT_EQ("1398{1337}", dumpOf("<packet><![CDATA[x]]><origin/></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin><![CDATA[a<b>c]]></origin></packet>"));
}

TEST_F(Part52Tokens, AnElementNameEndsAtGreaterThanSlashWhiteSpaceOrTheZeroByte) {
    EXPECT_EQ("1398{1337='x'}", dumpOf("<packet><origin>x</origin></packet>"));
    EXPECT_EQ("1398{1337}", dumpOf("<packet><origin/></packet>"));
    EXPECT_EQ("1398{1337}", dumpOf("<packet><origin\t/></packet>"));
    EXPECT_EQ("1398{1337}", dumpOf("<packet><origin\n></origin></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin"));  // the zero byte ends it, and the text
    // Any other character belongs to the name: "origin=" is a new name.
    int result = -1;
    Message m(parsed("<packet><origin=x/></packet>", &result));
    ASSERT_EQ(0, result);
    EXPECT_EQ("origin=x", m->internals()->idMap().findIDC(FIRST_ID).str());
}

TEST_F(Part52Tokens, AnEmptyElementNameFails) {
    EXPECT_EQ("FAIL", dumpOf("<>"));
    EXPECT_EQ("FAIL", dumpOf("</>"));
    EXPECT_EQ("FAIL", dumpOf("< packet/>"));
    EXPECT_EQ("FAIL", dumpOf("</packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><></></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet></></packet>"));
}

TEST_F(Part52Tokens, AnAttributeNameEndsAtTheEqualsSign) {
    // Any character but the ones that cannot stand in a name belongs to it.
    Message m(parsed("<packet><data a.b-c_d:e=\"1\" version=\"2\"/></packet>"));
    EXPECT_EQ("1398{1307{101/2='2'}}", dump(*m));
    // No "=" before the zero byte, or a name that runs into ">", "/", "<", a quote or white space: no "=".
    EXPECT_EQ("FAIL", dumpOf("<packet version"));
    EXPECT_EQ("FAIL", dumpOf("<packet version>"));
    EXPECT_EQ("FAIL", dumpOf("<packet version/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet version =\"1\"/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet ver sion=\"1\"/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet a<b=\"1\"/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet a\"b=\"1\"/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet =\"1\"/>"));  // an empty name
    // A name without "=" never swallows what follows it.
    EXPECT_EQ("FAIL", dumpOf("<packet b><origin x=\"1\"/></packet>"));
}

TEST_F(Part52Tokens, AnAttributeValueStandsInDoubleQuotesRightBehindTheEqualsSign) {
    EXPECT_EQ("1398{101/2='4.5.0'}", dumpOf("<packet version=\"4.5.0\"/>"));
    EXPECT_EQ("1398{101/2=''}", dumpOf("<packet version=\"\"/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet version=4.5.0/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet version= \"4.5.0\"/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet version=`4.5.0`/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet version=\"4.5.0/>"));  // never closed
    EXPECT_EQ("FAIL", dumpOf("<packet version="));
    // Everything up to the next double quote is the value: ">", "<", "'" and "/" too.
    Message m(parsed("<packet uid=\"a>b<c'd/e\"/>"));
    std::string uid;
    ASSERT_EQ(0, m->getUid(uid));
    EXPECT_EQ("a>b<c'd/e", uid);
}

TEST_F(Part52Tokens, AttributesNeedNoWhiteSpaceBetweenThem) {
    Message m(parsed("<packet version=\"1\"priority=\"2\"/>"));
    EXPECT_EQ("1398{101/2='1',103/2='2'}", dump(*m));
}

TEST_F(Part52Tokens, SlashMustBeFollowedByGreaterThan) {
    EXPECT_EQ("FAIL", dumpOf("<packet/ >"));
    EXPECT_EQ("FAIL", dumpOf("<packet /x>"));
    EXPECT_EQ("FAIL", dumpOf("<packet/"));
    // Part 6.2: the xsi declaration inserted behind the "/" of a self-closing operation is rejected.
    EXPECT_EQ("FAIL", dumpOf("<packet><op xmlns=\"" + ENVM_URI + "\"/ xmlns:xsi=\"" + XSI + "\"></packet>"));
}

TEST_F(Part52Tokens, TheClosingTagMustBeExactlyTheNameAsWritten) {
    EXPECT_EQ("1398{1337='x'}", dumpOf("<packet><origin>x</origin></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>x</origin ></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>x</Origin></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>x</originx></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin></origi></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin></origin"));
    EXPECT_EQ("FAIL", dumpOf("<packet></packet"));
    // The prefix is part of the name as written.
    EXPECT_EQ("FAIL", dumpOf("<q:packet></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet></q:packet>"));
    EXPECT_EQ("1398", dumpOf("<q:packet></q:packet>"));
}

TEST_F(Part52Tokens, ContentIsChildrenWhenLessThanFollowsTheStartTag) {
    EXPECT_EQ("1398{1337='a',1401='b'}", dumpOf("<packet> <origin>a</origin> <target>b</target> </packet>"));
    // Text between children, or behind the last one, fails.
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>a</origin>stray<target>b</target></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>a</origin>stray</packet>"));
    // Children without the parent's end tag fail.
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>a</origin>"));
}

TEST_F(Part52Tokens, ContentIsTextUpToTheFirstOccurrenceOfTheEndTag) {
    // Text first: everything up to "</origin>" is the text, markup included (kept as written).
    EXPECT_EQ("1398{1337='x<target/>y'}", dumpOf("<packet><origin>x<target/>y</origin></packet>"));
    EXPECT_EQ("1398{1337='a</target>b'}", dumpOf("<packet><origin>a</target>b</origin></packet>"));
    // The first occurrence ends it: a nested element of the same name cuts the text short.
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>a<origin>b</origin>c</origin></packet>"));
    // No end tag before the zero byte.
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>abc"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>abc</packet>"));
}

TEST_F(Part52Tokens, OnlyWhiteSpaceBeforeTheOwnEndTagIsAnEmptyElement) {
    Message m(parsed("<packet><origin> \t\r\n</origin></packet>"));
    EXPECT_EQ("1398{1337}", dump(*m));
    Node n(binary::Arena(), 0);
    ASSERT_TRUE(nodeAt(*m, {ORIGIN}, n));
    EXPECT_EQ(binary::TYPE_ELEMENT, n.type());
    EXPECT_EQ(0u, n.dataSize());
}

TEST_F(Part52Tokens, BehindTheRootOnlyWhiteSpaceCommentsAndDeclarationsMayFollow) {
    EXPECT_EQ("1398", dumpOf("<packet/> \r\n\t<!-- end --><?pi?>\n"));
    EXPECT_EQ("FAIL", dumpOf("<packet/><packet/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet/>tail"));
    EXPECT_EQ("FAIL", dumpOf("<packet></packet></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet/><!-- never closed"));
}

// ==== Part52Names: name to ID ==============================================================================

TEST_F(Part52Names, AVocabularyNameTakesItsVocabularyIDAndRecordsNothing) {
    Message m(parsed("<packet><origin>x</origin><data/></packet>"));
    EXPECT_EQ("1398{1337='x',1307}", dump(*m));
    EXPECT_TRUE(mapEntries(*m).empty());
}

TEST_F(Part52Names, ANameWithoutColonOutsideTheVocabularyTakesTheNextCounterValue) {
    Message m(parsed("<packet><one_name/><second_name/><one_name/><third_name/></packet>"));
    EXPECT_EQ("1398{-2,-3,-2,-4}", dump(*m));
    const std::vector<MapEntry> expected = {{THIRD_ID, 0, "third_name"}, {SECOND_ID, 0, "second_name"},
                                            {FIRST_ID, 0, "one_name"}};
    EXPECT_EQ(expected, mapEntries(*m));
    // The adopted document's map is decoded on its first look-up (Part 4.2): the next new name gets -5.
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->newChild(std::string("fourth_name")));
    EXPECT_EQ(-5, it->curID());
}

TEST_F(Part52Names, APrefixedNameIsLookedUpWholeFirstThenByItsLocalPart) {
    // "q:origin" is no name; its local part is a vocabulary name, recorded under
    // its vocabulary ID through findStr (Part 4.2, deliberately).
    Message m(parsed("<packet><q:origin>x</q:origin></packet>"));
    EXPECT_EQ("1398{1337='x'}", dump(*m));
    EXPECT_EQ(std::vector<MapEntry>({{ORIGIN, 0, "origin"}}), mapEntries(*m));
    // A local part outside the vocabulary gets a per-document ID under the local name.
    Message n(parsed("<packet><q:mine/><r:mine/><mine/></packet>"));
    EXPECT_EQ("1398{-2,-2,-2}", dump(*n));
    EXPECT_EQ(std::vector<MapEntry>({{FIRST_ID, 0, "mine"}}), mapEntries(*n));
}

TEST_F(Part52Names, AWholePrefixedNameKnownToTheDocumentIsTakenAsItStands) {
    // "urn:x" is recorded as a namespace first; the element "urn:x" then finds it whole.
    Message m(parsed("<packet xmlns:p=\"urn:x\"><urn:x/></packet>"));
    EXPECT_EQ("1398{65534}", dump(*m));
    EXPECT_EQ("urn:x", m->internals()->idMap().findIDC(65534).str());
}

TEST_F(Part52Names, NamesAreCaseSensitive) {
    Message m(parsed("<packet><Origin/></packet>"));
    EXPECT_EQ("1398{-2}", dump(*m));
    EXPECT_EQ("Origin", m->internals()->idMap().findIDC(FIRST_ID).str());
}

TEST_F(Part52Names, ManyNewNamesAreAssignedWithoutAScanPerName) {
    std::string text = "<packet>";
    const int count = 5000;
    for (int i = 0; i < count; ++i) text += "<n" + std::to_string(i) + "/>";
    text += "</packet>";
    Message m(parsed(text));
    ASSERT_NE("<empty>", dump(*m));
    EXPECT_EQ(size_t(count), mapEntries(*m).size());
    EXPECT_EQ("n4999", m->internals()->idMap().findIDC(FIRST_ID - 4999).str());
}

// ==== Part52Policy: unknown elements ===========================================================================

// A name whose local part is empty names nothing: the reader's one unknown element.
const std::string UNKNOWN_ELEMENT = "<u:><origin>in</origin><u:>deep</u:></u:>";

TEST_F(Part52Policy, WithPolicy0AnUnknownElementIsKeptAsAnXmlFragmentWithTag0) {
    PolicyScope policy(0);
    Message m(parsed("<packet><target>a</target>" + UNKNOWN_ELEMENT + "<origin>b</origin></packet>"));
    EXPECT_EQ("1398{1401='a',0/51='" + UNKNOWN_ELEMENT + "',1337='b'}", dump(*m));
    Node n(binary::Arena(), 0);
    ASSERT_TRUE(nodeAt(*m, {0}, n));
    EXPECT_EQ(UNKNOWN_ELEMENT.size() + 1, n.dataSize());  // with its zero byte
    // Skip mode stores nothing: no name of the unknown subtree was recorded.
    EXPECT_TRUE(mapEntries(*m).empty());
}

TEST_F(Part52Policy, WithPolicyBit0AnUnknownElementIsDropped) {
    PolicyScope policy(1);
    Message m(parsed("<packet><target>a</target>" + UNKNOWN_ELEMENT + "<origin>b</origin></packet>"));
    EXPECT_EQ("1398{1401='a',1337='b'}", dump(*m));
    EXPECT_TRUE(mapEntries(*m).empty());
}

TEST_F(Part52Policy, WithPolicyBit1AnUnknownElementFailsTheParse) {
    for (unsigned int bits : {2u, 3u}) {
        PolicyScope policy(bits);
        EXPECT_EQ("FAIL", dumpOf("<packet><target>a</target>" + UNKNOWN_ELEMENT + "</packet>")) << bits;
        EXPECT_EQ("1398{1401='a'}", dumpOf("<packet><target>a</target></packet>")) << bits;
    }
}

TEST_F(Part52Policy, ThePolicyIsTheMessagesCopyTakenAtConstruction) {
    Message m(nullptr);
    {
        PolicyScope policy(2);
        m.reset(new QKLBinary);
    }
    EXPECT_EQ(2u, m->policy());
    EXPECT_EQ(-1, parse(*m, "<packet>" + UNKNOWN_ELEMENT + "</packet>"));
}

TEST_F(Part52Policy, SkipModeStillChecksTheSyntax) {
    EXPECT_EQ("FAIL", dumpOf("<packet><u:><origin>x</target></u:></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><u: a='1'/></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><u:>x</packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><u:><a><b/>stray</a></u:></packet>"));
}

TEST_F(Part52Policy, SkipModeNeitherUnescapesNorResolvesAnything) {
    // A bad entity, an undeclared xsi:type, header attributes: nothing is looked at.
    const std::string fragment = "<u: version=\"9\"><a x:type=\"y:z\">&bogus;</a></u:>";
    Message m(parsed("<packet>" + fragment + "</packet>"));
    EXPECT_EQ("1398{0/51='" + fragment + "'}", dump(*m));
    EXPECT_EQ(40500, m->internals()->messageVersion());
    EXPECT_TRUE(mapEntries(*m).empty());
}

TEST_F(Part52Policy, ASelfClosingUnknownElementIsKeptWhole) {
    EXPECT_EQ("1398{0/51='<u: a=\"1\"/>'}", dumpOf("<packet><u: a=\"1\"/></packet>"));
}

TEST_F(Part52Policy, AnUnknownRootLeavesNoRootAndFails) {
    // A type-51 node is no root (Part 2.1 clears the empty bit only for type 0 and containers).
    EXPECT_EQ("FAIL", dumpOf(UNKNOWN_ELEMENT));
    PolicyScope policy(1);
    EXPECT_EQ("FAIL", dumpOf(UNKNOWN_ELEMENT));
}

// ==== Part52Header: header attributes =============================================================================

TEST_F(Part52Header, HeaderAttributesBecomeStringChildrenThatTheGettersRead) {
    Message m(parsed("<packet version=\"4.0.0\" id=\"m-7\" priority=\"3\" time=\"2023-11-14T22:13:20Z\" type=\"5\""
                     " progress=\"on\" timeout=\"30\" timeout_limit=\"60\" uid=\"u-1\" log=\"off\"/>"));
    EXPECT_EQ("1398{101/2='4.0.0',102/2='m-7',103/2='3',104/2='2023-11-14T22:13:20Z',105/2='5',106/2='on',"
              "107/2='30',108/2='60',109/2='u-1',110/2='off'}",
              dump(*m));
    int i = 0;
    std::string s;
    long t = 0;
    ASSERT_EQ(0, m->getVersion(i));
    EXPECT_EQ(40000, i);
    EXPECT_EQ(40000, m->internals()->messageVersion());  // the document's version follows the attribute
    ASSERT_EQ(0, m->getID(s));
    EXPECT_EQ("m-7", s);
    ASSERT_EQ(0, m->getPriority(i));
    EXPECT_EQ(3, i);
    ASSERT_EQ(0, m->getTime(t));
    EXPECT_EQ(1700000000L, t);
    ASSERT_EQ(0, m->getType(i));
    EXPECT_EQ(5, i);
    ASSERT_EQ(0, m->getProgress(i));
    EXPECT_EQ(1, i);
    ASSERT_EQ(0, m->getTimeout(i));
    EXPECT_EQ(30, i);
    ASSERT_EQ(0, m->getTimeoutLimit(i));
    EXPECT_EQ(60, i);
    ASSERT_EQ(0, m->getUid(s));
    EXPECT_EQ("u-1", s);
    ASSERT_EQ(0, m->getLog(i));
    EXPECT_EQ(0, i);
    // The same nodes the setters make.
    Message made(new QKLBinary);
    ASSERT_EQ(0, made->create(PACKET));
    ASSERT_EQ(0, made->setProgress(1));
    Message read(parsed("<packet progress=\"on\"/>"));
    EXPECT_EQ(held(*made), held(*read));
}

TEST_F(Part52Header, AttributeValuesAreStoredAsRawText) {
    // Not unescaped: the value text stands as written.
    Message m(parsed("<packet uid=\"a&amp;b &#65;\"/>"));
    std::string uid;
    ASSERT_EQ(0, m->getUid(uid));
    EXPECT_EQ("a&amp;b &#65;", uid);
}

TEST_F(Part52Header, HeaderAttributesOfAnyElementBecomeChildrenOfThatElement) {
    EXPECT_EQ("1398{1307{102/2='7',1337='x'}}", dumpOf("<packet><data id=\"7\"><origin>x</origin></data></packet>"));
    // An unprefixed "type" is the header attribute 105 everywhere (QKLBinary.h).
    EXPECT_EQ("1398{1307{105/2='x'}}", dumpOf("<packet><data type=\"x\"/></packet>"));
}

TEST_F(Part52Header, HeaderAttributeNamesAreMatchedExactly) {
    EXPECT_EQ("1398", dumpOf("<packet Version=\"1\" versions=\"2\" p:version=\"3\"/>"));
}

TEST_F(Part52Header, AnElementWithHeaderAttributesCannotHoldText) {
    // The attributes make it a container, which holds no value (Part 2.2 setContent).
    EXPECT_EQ("FAIL", dumpOf("<packet><origin id=\"1\">text</origin></packet>"));
    EXPECT_EQ("1398{1337{102/2='1'}}", dumpOf("<packet><origin id=\"1\"> </origin></packet>"));
}

TEST_F(Part52Header, TheVersionAttributeSetsTheDocumentsMessageVersion) {
    Message m(parsed("<packet version=\"3.99.99\"/>"));
    EXPECT_EQ(39999, m->internals()->messageVersion());
    Message d(parsed("<packet/>"));
    EXPECT_EQ(40500, d->internals()->messageVersion());
}

// ==== Part52Namespaces ===============================================================================================

TEST_F(Part52Namespaces, ADeclaredVocabularyNamespaceGivesItsVocabularyID) {
    ASSERT_EQ(PROTOCOL_NS, getNSIdByStringDefault(PROTOCOL_URI.data(), PROTOCOL_URI.size()));
    ASSERT_EQ(ENVM_NS, getNSIdByStringDefault(ENVM_URI.data(), ENVM_URI.size()));
    ASSERT_EQ(ALERTS_NS, getNSIdByStringDefault(ALERTS_URI.data(), ALERTS_URI.size()));
    Message m(parsed("<p:packet xmlns:p=\"" + PROTOCOL_URI + "\"><p:origin>x</p:origin><origin>y</origin></p:packet>"));
    EXPECT_EQ("1398@297{1337@297='x',1337='y'}", dump(*m));
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    EXPECT_EQ(PROTOCOL_NS, it->curNamespaceID());
}

TEST_F(Part52Namespaces, ANamespaceOutsideTheVocabularyGetsAPerDocumentID) {
    Message m(parsed("<packet xmlns:o=\"" + OTHER_URI + "\"><o:origin/></packet>"));
    // The counter's first value, -2, as a 16-bit namespace ID.
    EXPECT_EQ("1398{1337@65534}", dump(*m));
    const std::vector<MapEntry> entries = mapEntries(*m);
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ((MapEntry{65534, 1, OTHER_URI}), entries.back());
}

TEST_F(Part52Namespaces, ADeclarationHoldsForItsElementAndItsSubtreeOnly) {
    const std::string text = "<packet>"
                             "<a:data xmlns:a=\"" + ENVM_URI + "\"><a:origin><a:target/></a:origin></a:data>"
                             "<a:origin/>"  // a sibling: the prefix is undeclared again
                             "</packet>";
    EXPECT_EQ("1398{1307@264{1337@264{1401@264}},1337}", dumpOf(text));
}

TEST_F(Part52Namespaces, ARedeclarationOverridesThePrefixForTheSubtreeOnly) {
    const std::string text = "<a:packet xmlns:a=\"" + ENVM_URI + "\">"
                             "<a:data xmlns:a=\"" + ALERTS_URI + "\"><a:origin/></a:data>"
                             "<a:target/>"
                             "</a:packet>";
    EXPECT_EQ("1398@264{1307@201{1337@201},1401@264}", dumpOf(text));
}

TEST_F(Part52Namespaces, AnUnprefixedElementHasNoNamespaceAndTheDefaultDeclarationIsDropped) {
    EXPECT_EQ("1398{1337}", dumpOf("<packet xmlns=\"" + ENVM_URI + "\"><origin/></packet>"));
    EXPECT_EQ("1398@264{1337}", dumpOf("<a:packet xmlns:a=\"" + ENVM_URI + "\"><origin/></a:packet>"));
}

TEST_F(Part52Namespaces, ADeclarationStandingBehindOtherAttributesStillCounts) {
    EXPECT_EQ("1398@264{101/2='1'}", dumpOf("<a:packet version=\"1\" xmlns:a=\"" + ENVM_URI + "\"/>"));
}

TEST_F(Part52Namespaces, AnEmptyURIDeclaresThePrefixWithoutANamespace) {
    EXPECT_EQ("1398{1337}", dumpOf("<a:packet xmlns:a=\"\"><a:origin/></a:packet>"));
    EXPECT_EQ("1398@264{1337}", dumpOf("<a:packet xmlns:a=\"" + ENVM_URI + "\"><a:origin xmlns:a=\"\"/></a:packet>"));
}

TEST_F(Part52Namespaces, AURIThatIsAlreadyAnElementNameFails) {
    // The map's one name index answers "mine" with the element's ID -2, which no
    // 16-bit namespace field can hold: the declaration cannot be represented.
    EXPECT_EQ("FAIL", dumpOf("<packet><mine/><data xmlns:p=\"mine\"/></packet>"));
}

TEST_F(Part52Namespaces, XmlnsWithoutALocalPartIsAnOrdinaryAttribute) {
    EXPECT_EQ("1398", dumpOf("<packet xmlns:=\"" + ENVM_URI + "\"/>"));
}

// ==== Part52Types: xsi:type ===========================================================================================

std::string withXsi(const std::string& inner) {
    return "<packet xmlns:xsi=\"" + XSI + "\" xmlns:t=\"" + OTHER_URI + "\">" + inner + "</packet>";
}

TEST_F(Part52Types, XsiTypeGivesAPerDocumentComplexTypeNamedByItsFullName) {
    ASSERT_STREQ(XSI.c_str(), XmlSchemaInstance);
    Message m(parsed(withXsi("<data xsi:type=\"t:Thing\"><origin>x</origin></data>")));
    // The namespaces "xsi" and "t" took -2 and -3 (65534, 65533), the type -4 (65532).
    EXPECT_EQ("1398{1307/65532{1337='x'}}", dump(*m));
    EXPECT_EQ(OTHER_URI + ":Thing", m->internals()->idMap().findTypeIDC(SHORT_THIRD_ID).str());
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->seek(DATA));
    EXPECT_EQ(OTHER_URI + ":Thing", it->curType());
    const std::vector<MapEntry> entries = mapEntries(*m);
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ((MapEntry{SHORT_THIRD_ID, 2, OTHER_URI + ":Thing"}), entries.front());
}

TEST_F(Part52Types, AnEmptyElementWithXsiTypeIsAnEmptyContainerOfThatType) {
    EXPECT_EQ("1398{1307/65532{}}", dumpOf(withXsi("<data xsi:type=\"t:Thing\"/>")));
}

TEST_F(Part52Types, AValueWithoutPrefixNamesTheTypeByItsLocalName) {
    Message m(parsed(withXsi("<data xsi:type=\"Thing\"/>")));
    EXPECT_EQ("1398{1307/65532{}}", dump(*m));
    EXPECT_EQ("Thing", m->internals()->idMap().findTypeIDC(SHORT_THIRD_ID).str());
}

TEST_F(Part52Types, AnyPrefixBoundToTheSchemaInstanceNamespaceWorks) {
    EXPECT_EQ("1398{1307/65532{}}",
              dumpOf("<packet xmlns:i=\"" + XSI + "\" xmlns:t=\"" + OTHER_URI + "\"><data i:type=\"t:T\"/></packet>"));
}

TEST_F(Part52Types, ATypeAttributeOfAnotherNamespaceIsAnOrdinaryAttribute) {
    EXPECT_EQ("1398{1307}", dumpOf("<packet xmlns:o=\"" + ENVM_URI + "\"><data o:type=\"x:y\"/></packet>"));
}

TEST_F(Part52Types, TextOfASimpleTypeIsKeptAsTextWithoutTheType) {
    Message m(parsed("<packet xmlns:xsi=\"" + XSI + "\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">"
                     "<origin xsi:type=\"xsd:string\">agent</origin><target xsi:type=\"xsd:int\"> 5 </target></packet>"));
    EXPECT_EQ("1398{1337='agent',1401=' 5 '}", dump(*m));
    int value = 0;
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->getValue(value, TARGET));
    EXPECT_EQ(5, value);
}

TEST_F(Part52Types, ANamespacedElementKeepsBothItsNamespaceAndItsType) {
    // The type is set before the namespace: a container with a namespace takes no type (Part 2.2).
    Message m(parsed(withXsi("<t:data xsi:type=\"t:Thing\"/>")));
    EXPECT_EQ("1398{1307/65532@65533{}}", dump(*m));
}

TEST_F(Part52Types, AnElementWithHeaderAttributesTakesItsTypeToo) {
    EXPECT_EQ("1398{1307/65532{102/2='1'}}", dumpOf(withXsi("<data id=\"1\" xsi:type=\"t:T\"/>")));
}

TEST_F(Part52Types, AnEmptyTypeNameFails) {
    EXPECT_EQ("FAIL", dumpOf(withXsi("<data xsi:type=\"\"/>")));
    EXPECT_EQ("FAIL", dumpOf(withXsi("<data xsi:type=\"t:\"/>")));
}

TEST_F(Part52Types, APrefixDeclaredEmptyHasNoURIAndFails) {
    EXPECT_EQ("FAIL", dumpOf("<packet xmlns:xsi=\"" + XSI + "\" xmlns:t=\"\"><data xsi:type=\"t:T\"/></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet xmlns:xsi=\"\"><data xsi:type=\"T\"/></packet>"));
}

// ==== Part52Text: text content ======================================================================================

TEST_F(Part52Text, TextIsStoredAsAPlainNodeWithItsZeroByte) {
    Message m(parsed("<packet><origin>agent</origin></packet>"));
    Node n(binary::Arena(), 0);
    ASSERT_TRUE(nodeAt(*m, {ORIGIN}, n));
    EXPECT_EQ(binary::TYPE_ELEMENT, n.type());
    ASSERT_EQ(6u, n.dataSize());
    EXPECT_EQ(0, std::memcmp(n.data(), "agent", 6));
    std::string s;
    ASSERT_EQ(0, rootOf(*m)->getValue(s, ORIGIN));
    EXPECT_EQ("agent", s);
}

TEST_F(Part52Text, WhiteSpaceInsideTextIsKeptAsWritten) {
    EXPECT_EQ("1398{1337='  a \t b\r\n '}", dumpOf("<packet><origin>  a \t b\r\n </origin></packet>"));
}

TEST_F(Part52Text, EveryNamedEntityAndTheUtf8Lengths) {
    EXPECT_EQ("<>&'\"", valueAt(*Message(parsed("<packet><origin>&lt;&gt;&amp;&apos;&quot;</origin></packet>")),
                                 {ORIGIN}));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"&#1;", "\x01"},
        {"&#127;", "\x7F"},
        {"&#128;", "\xC2\x80"},
        {"&#x7FF;", "\xDF\xBF"},
        {"&#x800;", "\xE0\xA0\x80"},
        {"&#xFFFF;", "\xEF\xBF\xBF"},
        {"&#x10000;", "\xF0\x90\x80\x80"},
        {"&#x10FFFF;", "\xF4\x8F\xBF\xBF"},
        {"&#1114111;", "\xF4\x8F\xBF\xBF"},
        {"&#xe9;&#XE9;", ""},  // "#X" is no hexadecimal reference
        {"&#x00041;&#0000065;", "AA"},
    };
    for (const auto& c : cases) {
        Message m(parsed("<packet><origin>" + c.first + "</origin></packet>"));
        if (c.second.empty()) {
            EXPECT_EQ("<empty>", dump(*m)) << c.first;
        } else {
            EXPECT_EQ(c.second, valueAt(*m, {ORIGIN})) << c.first;
        }
    }
}

TEST_F(Part52Text, ReferencesThatNameNothingFail) {
    for (const char* bad : {"&#x110000;", "&#1114112;", "&#99999999999999999999999;", "&#;", "&#x;", "&#12a;",
                            "&#xG1;", "&# 65;", "&#-65;", "&;", "&LT;", "&lt ;", "& lt;", "&", "a&b", "&amp;&"}) {
        EXPECT_EQ("FAIL", dumpOf(std::string("<packet><origin>") + bad + "</origin></packet>")) << bad;
    }
}

TEST_F(Part52Text, AReplacementIsNotScannedAgain) {
    EXPECT_EQ("1398{1337='&lt;'}", dumpOf("<packet><origin>&amp;lt;</origin></packet>"));
    EXPECT_EQ("1398{1337='&#65;'}", dumpOf("<packet><origin>&#38;#65;</origin></packet>"));
}

TEST_F(Part52Text, AZeroReferenceStoresAZeroByteThatEndsTheReadText) {
    Message m(parsed("<packet><origin>a&#0;b</origin></packet>"));
    Node n(binary::Arena(), 0);
    ASSERT_TRUE(nodeAt(*m, {ORIGIN}, n));
    EXPECT_EQ(4u, n.dataSize());
    EXPECT_EQ("a", textOf(n));
}

TEST_F(Part52Text, ARunOfEntitiesIsUnescapedInOnePass) {
    const int count = 100000;
    Message m(parsed("<packet><origin>" + repeat("&amp;", count) + "</origin></packet>"));
    EXPECT_EQ(std::string(count, '&'), valueAt(*m, {ORIGIN}));
}

TEST_F(Part52Text, AQuoteAndAnApostropheInTextStandAsTheyAre) {
    EXPECT_EQ("1398{1337='say \"hi\" it's'}", dumpOf("<packet><origin>say \"hi\" it's</origin></packet>"));
}

// ==== Part52Document: the whole message ==================================================================================

TEST_F(Part52Document, TheRealMessageTextParsesAsExpected) {
    int result = -1;
    Message m(parsed(realMessageText(), &result));
    ASSERT_EQ(0, result);
    // xsi -2 (65534), ns2 -3 (65533), the type -4 (65532); ns1 is the vocabulary protocol namespace.
    EXPECT_EQ("1398@297{101/2='4.5.0',102/2='7',103/2='3',1337='agent & co',"
              "1307{1400/65532@297{1026='x'},-5='euro \xE2\x82\xAC',-6,-7}}",
              dump(*m));
    EXPECT_EQ("custom_probe", m->internals()->idMap().findIDC(-5).str());
    EXPECT_EQ(OTHER_URI + ":cookieType", m->internals()->idMap().findTypeIDC(SHORT_THIRD_ID).str());
    EXPECT_EQ(0u, reports()) << g_lastReport;
}

TEST_F(Part52Document, TheParsedTextReplacesTheWholeDocument) {
    Message m(new QKLBinary);
    fillTarget(*m);
    ASSERT_EQ(0, parse(*m, "<packet><origin>new</origin></packet>"));
    EXPECT_EQ("1398{1337='new'}", dump(*m));
    EXPECT_TRUE(mapEntries(*m).empty());  // the old map area went with the old document
    EXPECT_EQ("", m->internals()->idMap().findIDC(FIRST_ID).str());
}

TEST_F(Part52Document, AFailedParseLeavesTheMessageAsItWas) {
    Message m(new QKLBinary);
    fillTarget(*m);
    const Bytes before = held(*m);
    const std::string dumped = dump(*m);
    for (const std::string bad : {"<packet><origin>x</target></packet>", "", "<packet>", "<!-- only -->"}) {
        EXPECT_EQ(-1, parse(*m, bad)) << bad;
        EXPECT_EQ(before, held(*m)) << bad;
    }
    EXPECT_EQ(dumped, dump(*m));
    EXPECT_EQ("their_own_name", m->internals()->idMap().findIDC(FIRST_ID).str());
}

TEST_F(Part52Document, AMessageWithoutADocumentGetsOne) {
    Message m(new QKLBinary);
    ASSERT_EQ(nullptr, m->internals()->buffer());
    ASSERT_EQ(0, parse(*m, "<packet><origin>x</origin></packet>"));
    EXPECT_EQ("1398{1337='x'}", dump(*m));
    EXPECT_EQ(std::string("x"), m->getOrigin());
}

TEST_F(Part52Document, ANullTextOrADocumentLeftEmptyFails) {
    Message m(new QKLBinary);
    EXPECT_EQ(-1, m->fromText(nullptr, nullptr));
    EXPECT_EQ(-1, parse(*m, " <?xml version=\"1.0\"?> <!-- nothing --> "));
    EXPECT_EQ(nullptr, m->internals()->buffer());  // still no document
}

TEST_F(Part52Document, ASharedDocumentIsLeftToTheOtherSharers) {
    Message m(new QKLBinary);
    fillTarget(*m);
    const Bytes before = held(*m);
    auto_destroy<QKLMessage> other(m->copy(false));
    ASSERT_EQ(2, m->shareCount());
    ASSERT_EQ(0, parse(*m, "<packet><origin>new</origin></packet>"));
    EXPECT_EQ("1398{1337='new'}", dump(*m));
    EXPECT_EQ(before, held(*static_cast<QKLBinary*>(other.get())));
    EXPECT_EQ(1, m->shareCount());
}

TEST_F(Part52Document, IteratorsOfTheReplacedDocumentNoticeTheChange) {
    Message m(new QKLBinary);
    fillTarget(*m);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    std::unique_ptr<QKLBinaryIterator> second = rootOf(*m);
    ASSERT_EQ(0, it->seek(DATA));
    ASSERT_EQ(0, it->seek(FIRST_ID));
    ASSERT_EQ(0, parse(*m, "<packet><origin>new</origin></packet>"));
    // The document's counter moved on: the old path no longer stands and is refused.
    std::string s;
    EXPECT_NE(0, it->getValue(s, 0));
    ASSERT_EQ(0, second->seekRoot());
    ASSERT_EQ(0, second->getValue(s, ORIGIN));
    EXPECT_EQ("new", s);
}

TEST_F(Part52Document, DeserializeAndInitReadText) {
    const std::string text = "<packet version=\"4.5.0\"><origin>agent</origin></packet>";
    HeapText heap(text);
    Message m(new QKLBinary);
    ASSERT_EQ(0, m->deserialize(heap.bytes, int(text.size() + 1), nullptr));
    EXPECT_EQ("1398{101/2='4.5.0',1337='agent'}", dump(*m));
    Message n(new QKLBinary);
    ASSERT_EQ(0, n->init(heap.bytes, int(text.size() + 1)));
    EXPECT_EQ(held(*m), held(*n));
    // Without its zero byte the text is not complete.
    EXPECT_EQ(-1, n->init(heap.bytes, int(text.size())));
}

TEST_F(Part52Document, TheFromTextFileOfTheBaseReadsThroughTheReader) {
    const std::string path = ::testing::TempDir() + "part_5_2_reader.xml";
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(nullptr, f);
    const std::string text = "<packet><origin>file</origin></packet>\n";
    ASSERT_EQ(text.size(), std::fwrite(text.data(), 1, text.size(), f));
    std::fclose(f);
    Message m(new QKLBinary);
    EXPECT_EQ(0, m->fromTextFile(path));
    EXPECT_EQ("1398{1337='file'}", dump(*m));
    std::remove(path.c_str());
}

// ==== Part52Iterator: parsing under an iterator ===============================================================================

TEST_F(Part52Iterator, TheParsedTreeIsCopiedUnderTheIteratorsNode) {
    Message m(new QKLBinary);
    fillTarget(*m);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->seek(DATA));
    const BinaryPath::Elements path = it->path().elements;
    ASSERT_EQ(0, parse(*m, "<origin><their_own_name>mine</their_own_name><newcomer>n</newcomer></origin>", it.get()));
    // The parsed document's -2 and -3 are the target's -2 (known) and -3 (new).
    EXPECT_EQ("1398{1307{-2/2='theirs',1337{-2='mine',-3='n'}}}", dump(*m));
    EXPECT_EQ("newcomer", m->internals()->idMap().findIDC(SECOND_ID).str());
    // The iterator stays where it was.
    ASSERT_EQ(path.size(), it->path().elements.size());
    EXPECT_EQ(path.back().offset, it->path().current().offset);
    EXPECT_EQ(0u, reports()) << g_lastReport;
}

TEST_F(Part52Iterator, NamespacesTypesAndHeaderAttributesSurviveTheCopy) {
    Message m(new QKLBinary);
    fillTarget(*m);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, parse(*m, withXsi("<t:data id=\"9\" xsi:type=\"t:Thing\"/>"), it.get()));
    // In the target: the namespace "t" is -3 (65533), the type -4 (65532).
    EXPECT_EQ("1398{1307{-2/2='theirs'},1398{1307/65532@65533{102/2='9'}}}", dump(*m));
    EXPECT_EQ(OTHER_URI, m->internals()->idMap().findIDC(SHORT_SECOND_ID).str());
    EXPECT_EQ(OTHER_URI + ":Thing", m->internals()->idMap().findTypeIDC(SHORT_THIRD_ID).str());
}

TEST_F(Part52Iterator, FromTextToChildIsTheSame) {
    Message m(new QKLBinary);
    fillTarget(*m);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->seek(DATA));
    HeapText text("<origin>o</origin>");
    ASSERT_EQ(0, it->fromTextToChild(text.bytes));
    EXPECT_EQ("1398{1307{-2/2='theirs',1337='o'}}", dump(*m));
}

TEST_F(Part52Iterator, ATypeZeroElementBecomesAContainerForTheCopy) {
    Message m(new QKLBinary);
    ASSERT_EQ(0, m->create(PACKET));
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->newChild(DATA));
    ASSERT_EQ(0, parse(*m, "<origin>o</origin>", it.get()));
    EXPECT_EQ("1398{1307{1337='o'}}", dump(*m));
}

TEST_F(Part52Iterator, AFailedParseLeavesTheMessageUnchanged) {
    Message m(new QKLBinary);
    fillTarget(*m);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->seek(DATA));
    const Bytes before = held(*m);
    const std::vector<std::string> bad = {
        "<origin>x</target>", "", "<origin>", "<origin>&bogus;</origin>", "<a:b xsi:type=\"x:y\"/>",
        "<origin/><origin/>", "<origin id=\"1\">text</origin>",
        "<origin><brand_new_name/><u:/></origin>",  // a kept unknown element: the copy could carry no tag 0
    };
    for (const std::string& text : bad) {
        EXPECT_EQ(-1, parse(*m, text, it.get())) << text;
        EXPECT_EQ(before, held(*m)) << text;
    }
    EXPECT_EQ("", m->internals()->idMap().findIDC(SECOND_ID).str());
    // The iterator still works.
    std::string s;
    ASSERT_EQ(0, it->getValue(s, FIRST_ID));
    EXPECT_EQ("theirs", s);
    // With the unknown element dropped the same text is taken.
    PolicyScope policy(1);
    Message dropping(new QKLBinary);
    fillTarget(*dropping);
    std::unique_ptr<QKLBinaryIterator> at = rootOf(*dropping);
    ASSERT_EQ(0, at->seek(DATA));
    ASSERT_EQ(0, parse(*dropping, bad.back(), at.get()));
    EXPECT_EQ("1398{1307{-2/2='theirs',1337{-3}}}", dump(*dropping));
}

TEST_F(Part52Iterator, AMessageWithoutADocumentFails) {
    Message m(new QKLBinary);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    EXPECT_EQ(-1, parse(*m, "<origin/>", it.get()));
    EXPECT_EQ(nullptr, m->internals()->buffer());
}

TEST_F(Part52Iterator, AnIteratorOfAnotherMessageFails) {
    Message m(new QKLBinary), other(new QKLBinary);
    fillTarget(*m);
    fillTarget(*other);
    const Bytes before = held(*m), otherBefore = held(*other);
    std::unique_ptr<QKLBinaryIterator> foreign = rootOf(*other);
    EXPECT_EQ(-1, parse(*m, "<origin/>", foreign.get()));
    EXPECT_EQ(before, held(*m));
    EXPECT_EQ(otherBefore, held(*other));
}

TEST_F(Part52Iterator, AStaleIteratorFails) {
    Message m(new QKLBinary);
    fillTarget(*m);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    std::unique_ptr<QKLBinaryIterator> writer = rootOf(*m);
    ASSERT_EQ(0, it->seek(DATA));
    ASSERT_EQ(0, it->seek(FIRST_ID));
    ASSERT_EQ(0, writer->seek(DATA));
    ASSERT_EQ(0, writer->deleteFromChild());  // it's path no longer stands
    const Bytes before = held(*m);
    EXPECT_EQ(-1, parse(*m, "<origin/>", it.get()));
    EXPECT_EQ(before, held(*m));
}

TEST_F(Part52Iterator, ASharedDocumentIsMadePrivateFirst) {
    Message m(new QKLBinary);
    fillTarget(*m);
    const Bytes before = held(*m);
    auto_destroy<QKLMessage> other(m->copy(false));
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    ASSERT_EQ(0, it->seek(DATA));
    ASSERT_EQ(0, parse(*m, "<origin>o</origin>", it.get()));
    EXPECT_EQ("1398{1307{-2/2='theirs',1337='o'}}", dump(*m));
    EXPECT_EQ(before, held(*static_cast<QKLBinary*>(other.get())));
}

TEST_F(Part52Iterator, TheTargetsPolicyDecidesForTheParsedText) {
    PolicyScope policy(2);
    Message m(new QKLBinary);
    fillTarget(*m);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*m);
    EXPECT_EQ(-1, parse(*m, "<origin><u:/></origin>", it.get()));
}

// ==== Part52BadInput ================================================================================================

TEST_F(Part52BadInput, TextCutAtEveryPositionFails) {
    const std::string text = realMessageText();
    {
        int result = -1;
        Message full(parsed(text, &result));
        ASSERT_EQ(0, result);
    }
    Message target(new QKLBinary);
    fillTarget(*target);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*target);
    ASSERT_EQ(0, it->seek(DATA));
    const Bytes before = held(*target);
    for (size_t cut = 0; cut < text.size(); ++cut) {
        const std::string part = text.substr(0, cut);
        Message m(new QKLBinary);
        EXPECT_EQ(-1, parse(*m, part)) << "cut at " << cut;
        EXPECT_EQ(-1, parse(*target, part, it.get())) << "cut at " << cut;
    }
    EXPECT_EQ(before, held(*target));
    EXPECT_EQ(0u, reports()) << g_lastReport;
}

TEST_F(Part52BadInput, UnbalancedTagsFail) {
    for (const char* text : {"<packet>", "</packet>", "<packet><origin></packet></origin>", "<packet><origin></packet>",
                             "<packet><origin>x</origin>", "<packet></packet></packet>", "<packet><origin/></origin></packet>",
                             "<packet><data><origin></data></origin></packet>", "<packet><data><data></data></packet>",
                             "<packet><u:><a></u:></a></packet>", "<packet><u:><a></a></packet>"}) {
        EXPECT_EQ("FAIL", dumpOf(text)) << text;
    }
}

TEST_F(Part52BadInput, NestingIsFollowedDownToMaxTextDepthAndNoFurther) {
    const int max = QKLBinary::MAX_TEXT_DEPTH;
    int result = -1;
    Message m(parsed(repeat("<origin>", max) + repeat("</origin>", max), &result));
    EXPECT_EQ(0, result);
    EXPECT_EQ(-1, parse(*Message(new QKLBinary), repeat("<origin>", max + 1) + repeat("</origin>", max + 1)));
    // In skip mode too.
    EXPECT_EQ(-1, parse(*Message(new QKLBinary), "<packet><u:>" + repeat("<a>", max) + repeat("</a>", max) + "</u:></packet>"));
}

TEST_F(Part52BadInput, A100000DeepNestingFailsWithoutExhaustingTheStack) {
    const int deep = 100000;
    EXPECT_EQ(-1, parse(*Message(new QKLBinary), repeat("<origin>", deep) + repeat("</origin>", deep)));
    EXPECT_EQ(-1, parse(*Message(new QKLBinary), repeat("<a>", deep)));
    Message target(new QKLBinary);
    fillTarget(*target);
    const Bytes before = held(*target);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*target);
    EXPECT_EQ(-1, parse(*target, repeat("<origin>", deep) + repeat("</origin>", deep), it.get()));
    EXPECT_EQ(before, held(*target));
}

TEST_F(Part52BadInput, AOneMegabyteNameFails) {
    const std::string huge(1 << 20, 'n');
    EXPECT_EQ("FAIL", dumpOf("<" + huge + "/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><" + huge + ">x</" + huge + "></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<" + huge));
    // A long attribute name or value is no name of an element: taken, then dropped or stored.
    EXPECT_EQ("1398", dumpOf("<packet " + huge + "=\"1\"/>"));
    Message m(parsed("<packet uid=\"" + huge + "\"/>"));
    std::string uid;
    ASSERT_EQ(0, m->getUid(uid));
    EXPECT_EQ(huge, uid);
}

TEST_F(Part52BadInput, A100000AmpersandsInARowFail) {
    const std::string run(100000, '&');
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>" + run + "</origin></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>" + run + ";</origin></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><origin>" + repeat("&a", 50000) + ";</origin></packet>"));
    EXPECT_EQ("FAIL", dumpOf("<packet><" + run + "/></packet>"));
    // In an attribute value they are raw text.
    EXPECT_EQ("1398", dumpOf("<packet foo=\"" + run + "\"/>"));
}

TEST_F(Part52BadInput, HighBytesInNamesAndTextAreTakenAsTheyAre) {
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        const std::string name(1, char(byte));
        int result = -1;
        Message m(parsed("<packet><" + name + ">" + name + "</" + name + "></packet>", &result));
        ASSERT_EQ(0, result) << byte;
        EXPECT_EQ(name, valueAt(*m, {FIRST_ID})) << byte;
        EXPECT_EQ(name, m->internals()->idMap().findIDC(FIRST_ID).str()) << byte;
    }
    std::string all;
    for (int byte = 0x80; byte <= 0xFF; ++byte) all += char(byte);
    Message m(parsed("<packet><origin>" + all + "</origin><" + all + "/></packet>"));
    EXPECT_EQ(all, valueAt(*m, {ORIGIN}));
    EXPECT_EQ(all, m->internals()->idMap().findIDC(FIRST_ID).str());
    // Where a token must stand, a high byte is no token.
    EXPECT_EQ("FAIL", dumpOf("\xA0<packet/>"));
    EXPECT_EQ("FAIL", dumpOf("<packet version=\xE2\x80\x9C" "1\xE2\x80\x9D/>"));
}

TEST_F(Part52BadInput, RandomDamageNeverReadsOutsideTheText) {
    const std::string text = realMessageText();
    std::mt19937 random(52);
    Message target(new QKLBinary);
    fillTarget(*target);
    std::unique_ptr<QKLBinaryIterator> it = rootOf(*target);
    int parsedCount = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = text;
        const int edits = 1 + int(random() % 4);
        for (int e = 0; e < edits; ++e) {
            const size_t at = random() % damaged.size();
            switch (random() % 3) {
                case 0: damaged[at] = char(random() % 256); break;
                case 1: damaged.erase(at, 1 + random() % 8); break;
                default: damaged.insert(at, 1, "<>/=\"&;:! x"[random() % 11]); break;
            }
            if (damaged.empty()) damaged = "<";
        }
        Message m(new QKLBinary);
        const int result = parse(*m, damaged);
        EXPECT_TRUE(result == 0 || result == -1);
        if (result == 0) ++parsedCount;
        (void)parse(*target, damaged, it.get());
        ASSERT_EQ(0, it->seekRoot());
    }
    EXPECT_GT(parsedCount, 0);
}

}  // namespace
