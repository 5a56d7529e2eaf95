// Part 5.1: XML writer, on real QKLBinary documents built through
// QKLMsgFactory::createNew(), create("packet") and a QKLBinaryIterator. The
// "Edge cases worth testing" bullets come first (Part51EdgeCases, one TEST
// each, named after the bullet), then the deliberate behaviours, the
// whole-message steps, the element writer, the entries, and bad documents.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/Base64.h"
#include "qkl/common/NumberText.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/common/TimeText.h"
#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLMsgFactory.h"
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

using QKL::BinaryPath;
using QKL::QKLBinary;
using QKL::QKLBinaryInternals;
using QKL::QKLBinaryIterator;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;
using QKL::Internal::CharArray;
using namespace std::string_literals;

namespace {

// Element vocabulary (Part 4.1).
const int ALERTS = 1001, VEID = 1002, ALERT = 1003, RESOURCE = 1005, LIMIT = 1006, ID_ELEMENT = 1010;
const int NAME = 1026, DATA = 1307, ORIGIN = 1337;
// Header attributes (Part 2.4).
const int VERSION_ATTR = 101, ID_ATTR = 102, PRIORITY_ATTR = 103;
// Type vocabulary: 101 "alertmType".
const int ALERTM_TYPE = 101;

const std::string XSI_URI = "http://www.w3.org/2001/XMLSchema-instance";
const std::string XSI = " xmlns:xsi=\"" + XSI_URI + "\"";
// What render() gives for a null result.
const std::string NO_TEXT = "(null)";

std::string nsName(int id) {
    const CharArray& name = QKL::getStringByNSIdDefault(id);
    return std::string(name.ptr(), name.length());
}

// A message holding a blank "packet" document, with one counted iterator on its root.
struct Doc {
    QKL::auto_destroy<> message{QKL::QKLMsgFactory::createNew()};
    std::unique_ptr<QKLMessageIterator> it;

    Doc() {
        EXPECT_TRUE(message);
        EXPECT_EQ(0, message->create("packet"));
        it.reset(message->newIterator());
    }
    QKLBinary& binary() const { return static_cast<QKLBinary&>(*message); }
    QKLBinaryInternals& internals() const { return *binary().internals(); }
    QKLBinaryIterator& bit() const { return static_cast<QKLBinaryIterator&>(*it); }
    // The node the iterator stands on.
    QKL::binary::Node node() const { return QKL::binary::Node(internals().arena(), bit().path().current().offset); }
    // A new element by name under the current one, with an optional namespace;
    // the iterator goes back up to where it was.
    void child(const std::string& name, const std::string& ns = "") {
        ASSERT_EQ(0, it->newChild(name));
        if (!ns.empty()) {
            ASSERT_EQ(0, it->setNamespace(ns));
        }
        ASSERT_EQ(0, it->seekUp());
    }
    std::string bytes() const {
        char* buf = nullptr;
        int len = 0;
        EXPECT_EQ(0, message->serialize(&buf, &len, nullptr, 40500));
        std::string out(buf ? buf : "", buf ? std::size_t(len) : 0);
        std::free(buf);
        return out;
    }
};

// The three-argument toText as a string (NO_TEXT for null); the buffer is freed.
std::string render(const QKLMessage& m, const QKLMessageIterator* at = nullptr, const std::string& nsBase = "",
                   int version = 40500) {
    char* text = m.toText(at, nsBase, version);
    if (text == nullptr) return NO_TEXT;
    const std::string out(text);
    std::free(text);
    return out;
}

std::size_t count(const std::string& text, const std::string& what) {
    std::size_t n = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// The path of the iterator, as a BinaryPath the internals can edit through.
BinaryPath pathOf(const Doc& d) { return d.bit().path(); }

}  // namespace

// ---- Edge cases worth testing ----------------------------------------------------------------------

// "A message rendered for version 39999 carries no " xmlns:xsi" and no "ns" prefixes."
TEST(Part51EdgeCases, AMessageRenderedForVersion39999CarriesNoXmlnsXsiAndNoNsPrefixes) {
    Doc d;
    ASSERT_EQ(0, d.message->setVersion(40500));
    d.child("alerts", "urn:a");
    ASSERT_EQ(0, d.it->newChild("veid"));
    d.child("alert");  // a complex type needs a plain container (Part 2.2)
    ASSERT_EQ(0, d.it->setComplexType("urn:t", "T"));  // no xsi:type either
    ASSERT_EQ(0, d.it->seekRoot());

    const std::string legacy = render(*d.message, nullptr, "", 39999);
    EXPECT_EQ("<packet version=\"4.5.0\"><alerts/>\n<veid><alert/>\n</veid>\n</packet>\n", legacy);
    EXPECT_EQ(std::string::npos, legacy.find(" xmlns:xsi"));
    EXPECT_EQ(std::string::npos, legacy.find("ns1"));
    EXPECT_EQ(std::string::npos, legacy.find("xsi:type"));
    EXPECT_EQ(std::string::npos, legacy.find("xmlns"));

    // The same document at 40000 has them all.
    const std::string current = render(*d.message, nullptr, "", 40000);
    EXPECT_NE(std::string::npos, current.find(" xmlns:xsi"));
    EXPECT_NE(std::string::npos, current.find("<ns1:alerts/>"));
    EXPECT_NE(std::string::npos, current.find("xsi:type=\"ns2:T\""));
    // And any version below 40000 is legacy.
    EXPECT_EQ(legacy, render(*d.message, nullptr, "", 0));
    EXPECT_EQ(legacy, render(*d.message, nullptr, "", -1));
}

// "Two elements of one namespace share one prefix; a third namespace gets "ns3" after "ns1" and "ns2"."
TEST(Part51EdgeCases, TwoElementsOfOneNamespaceShareOnePrefixAThirdNamespaceGetsNs3AfterNs1AndNs2) {
    Doc d;
    const std::string first = nsName(201), second = "urn:second", third = "any text as a namespace";
    d.child("alerts", first);
    d.child("veid", first);
    d.child("alert", second);
    d.child("resource", third);
    d.child("limit", first);

    const std::string text = render(*d.message);
    // Declared in reverse key (URI) order: "urn:..." > "http:..." > "any ...".
    EXPECT_EQ("<packet xmlns:ns2=\"" + second + "\" xmlns:ns1=\"" + first + "\" xmlns:ns3=\"" + third + "\"" + XSI +
                  "><ns1:alerts/>\n<ns1:veid/>\n<ns2:alert/>\n<ns3:resource/>\n<ns1:limit/>\n</packet>\n",
              text);
    EXPECT_EQ(1u, count(text, "xmlns:ns1="));
    EXPECT_EQ(1u, count(text, "xmlns:ns2="));
    EXPECT_EQ(1u, count(text, "xmlns:ns3="));
    EXPECT_EQ(std::string::npos, text.find("ns4"));
}

// "A value containing "a<b&c>d" is written as "a&lt;b&amp;c&gt;d"; a value
// containing a double quote is written unchanged."
TEST(Part51EdgeCases, AValueContainingLtAmpGtIsEscapedAndADoubleQuoteIsWrittenUnchanged) {
    Doc d;
    ASSERT_EQ(0, d.it->putValue("a<b&c>d"s, VEID));
    ASSERT_EQ(0, d.it->putValue("say \"hi\" it's"s, ALERT));
    const std::string text = render(*d.message);
    EXPECT_EQ("<packet" + XSI + "><veid>a&lt;b&amp;c&gt;d</veid>\n<alert>say \"hi\" it's</alert>\n</packet>\n",
              text);
    // Legacy mode escapes the same way.
    EXPECT_EQ("<packet><veid>a&lt;b&amp;c&gt;d</veid>\n<alert>say \"hi\" it's</alert>\n</packet>\n",
              render(*d.message, nullptr, "", 39999));
}

// "Rendering from an iterator with a non-empty namespace base omits the XML Schema instance declaration."
TEST(Part51EdgeCases, RenderingFromAnIteratorWithANonEmptyNamespaceBaseOmitsTheXmlSchemaInstanceDeclaration) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->setNamespace("urn:a"));
    ASSERT_EQ(0, d.it->putValue(7, VEID));

    const std::string base = "http://base.example/webservices/qkl/4.5.0/";
    EXPECT_EQ("<ns1:alerts xmlns:ns1=\"urn:a\"><veid>7</veid>\n</ns1:alerts>\n", render(*d.message, d.it.get(), base));
    // With an empty base the declaration is there ...
    EXPECT_EQ("<ns1:alerts xmlns:ns1=\"urn:a\"" + XSI + "><veid>7</veid>\n</ns1:alerts>\n",
              render(*d.message, d.it.get(), ""));
    // ... and so it is without an iterator, whatever the base.
    EXPECT_NE(std::string::npos, render(*d.message, nullptr, base).find(XSI));
    // The iterator did not move.
    EXPECT_EQ("alerts", d.it->curName());
}

// "An element without value and without children is written as "<name/>" followed by a line feed."
TEST(Part51EdgeCases, AnElementWithoutValueAndWithoutChildrenIsWrittenAsNameSlashFollowedByALineFeed) {
    Doc d;
    d.child("alerts");
    const std::string text = render(*d.message);
    EXPECT_EQ("<packet" + XSI + "><alerts/>\n</packet>\n", text);
    // The root alone is one too.
    Doc empty;
    EXPECT_EQ("<packet" + XSI + "/>\n", render(*empty.message));
    EXPECT_EQ("<packet/>\n", render(*empty.message, nullptr, "", 39999));
    // An empty string value and an emptied container are no content either.
    ASSERT_EQ(0, d.it->putValue(""s, VEID));
    ASSERT_EQ(0, d.it->newChild("alert"));
    ASSERT_EQ(0, d.it->newChild("resource"));
    ASSERT_EQ(0, d.it->deleteFromChild());
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet" + XSI + "><alerts/>\n<veid/>\n<alert/>\n</packet>\n", render(*d.message));
}

// "A document whose root carries the header attribute "version" with the text
// 4.5.0 renders it inside the root's start tag, as the attribute version with the value 4.5.0."
TEST(Part51EdgeCases, ARootWithTheHeaderAttributeVersion450RendersItInsideTheRootsStartTag) {
    Doc d;
    ASSERT_EQ(0, d.message->setOrigin("agentA"));
    ASSERT_EQ(0, d.message->setVersion(40500));  // after a child: still inside the start tag
    std::string stored;
    ASSERT_EQ(0, d.bit().getAttr(stored, VERSION_ATTR));
    ASSERT_EQ("4.5.0", stored);
    EXPECT_EQ("<packet" + XSI + " version=\"4.5.0\"><origin>agentA</origin>\n</packet>\n", render(*d.message));
    EXPECT_EQ("<packet version=\"4.5.0\"><origin>agentA</origin>\n</packet>\n", render(*d.message, nullptr, "", 39999));
    // Without other content the root stays an empty element, its attribute inside.
    Doc bare;
    ASSERT_EQ(0, bare.message->setVersion(40500));
    EXPECT_EQ("<packet" + XSI + " version=\"4.5.0\"/>\n", render(*bare.message));
}

// ---- deliberate behaviours -----------------------------------------------------------------------

// Step 3: "An element of type 51 (XML value) gets no tags of its own: its
// stored XML text stands in its place. This is deliberate."
TEST(Part51Deliberate, AnXmlValueIsWrittenAsItStandsWithoutTagsOrEscaping) {
    Doc d;
    const std::string fragment = "<x a=\"1\">&amp; <y/></x>";
    ASSERT_EQ(0, d.bit().putValueXML(fragment, ID_ELEMENT));
    ASSERT_EQ(0, d.it->putValue(1, VEID));
    EXPECT_EQ("<packet" + XSI + ">" + fragment + "<veid>1</veid>\n</packet>\n", render(*d.message));
    EXPECT_EQ("<packet>" + fragment + "<veid>1</veid>\n</packet>\n", render(*d.message, nullptr, "", 39999));
    // An empty fragment writes nothing, so the root has no content.
    Doc e;
    ASSERT_EQ(0, e.bit().putValueXML("", ID_ELEMENT));
    EXPECT_EQ("<packet" + XSI + "/>\n", render(*e.message));
}

// The reader's unknown-element fragment: tag 0, type 51 (Part 5.2) is written
// back unchanged, although tag 0 lies in the header attribute range.
TEST(Part51Deliberate, ATagZeroFragmentIsWrittenBackUnchanged) {
    Doc d;
    ASSERT_EQ(0, d.bit().putValueXML("<unknown_thing>z</unknown_thing>", ID_ELEMENT));
    ASSERT_EQ(0, d.it->seek(ID_ELEMENT));
    d.node().setTag(0);
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet" + XSI + "><unknown_thing>z</unknown_thing></packet>\n", render(*d.message));
}

// escape: "Nothing else is escaped: quotes and apostrophes pass unchanged, also
// in attribute values; this is deliberate."
TEST(Part51Deliberate, QuotesAndApostrophesPassUnchangedAlsoInAttributeValues) {
    EXPECT_EQ("a&lt;b&amp;c&gt;d", QKLBinary::escape("a<b&c>d"));
    EXPECT_EQ("\"q\" 'a'", QKLBinary::escape("\"q\" 'a'"));
    EXPECT_EQ("&amp;lt;", QKLBinary::escape("&lt;"));  // no entity is recognised
    EXPECT_EQ("\t\r\n\x01\xC3\xA9", QKLBinary::escape("\t\r\n\x01\xC3\xA9"));
    EXPECT_EQ("", QKLBinary::escape(""));
    EXPECT_EQ("", QKLBinary::escape(nullptr));
    EXPECT_EQ("ab", QKLBinary::escape("ab\0<c"));  // up to the zero byte

    Doc d;
    ASSERT_EQ(0, d.message->setID("a\"b'c", false));
    ASSERT_EQ(0, d.message->saveChanges());
    EXPECT_EQ("<packet" + XSI + " id=\"a\"b'c\"/>\n", render(*d.message));
}

// ---- whole-message rendering ---------------------------------------------------------------------

// Step 1: saveChanges() first, so the cached uid, session and id are in the text.
TEST(Part51WholeMessage, SaveChangesComesFirst) {
    Doc d;
    ASSERT_EQ(0, d.message->setUid("u-1"));
    ASSERT_EQ(0, d.message->setID("id-9", false));
    std::string before;
    EXPECT_NE(0, d.bit().getAttr(before, 109));  // not yet in the document
    const std::string text = render(*d.message);
    EXPECT_NE(std::string::npos, text.find(" uid=\"u-1\"")) << text;
    EXPECT_NE(std::string::npos, text.find(" id=\"id-9\"")) << text;
    std::string after;
    EXPECT_EQ(0, d.bit().getAttr(after, 109));  // written by toText's saveChanges
    EXPECT_EQ("u-1", after);
    // A not-to-save id stays out.
    Doc n;
    ASSERT_EQ(0, n.message->setID("hidden", true));
    EXPECT_EQ(std::string::npos, render(*n.message).find("hidden"));
}

// Without pending header changes, rendering leaves the document's bytes alone.
TEST(Part51WholeMessage, RenderingDoesNotChangeTheDocument) {
    Doc d;
    ASSERT_EQ(0, d.message->setVersion(40500));
    d.child("alerts", "urn:a");
    const std::string before = d.bytes();
    render(*d.message);
    render(*d.message, nullptr, "", 39999);
    render(*d.message, d.it.get(), "base");
    EXPECT_EQ(before, d.bytes());
}

// Step 2: an empty message, and one whose document has no root, print nothing.
TEST(Part51WholeMessage, NothingToPrintGivesNull) {
    QKL::auto_destroy<> none(QKL::QKLMsgFactory::createNew());
    EXPECT_EQ(NO_TEXT, render(*none));
    EXPECT_EQ(NO_TEXT, render(*none, nullptr, "", 39999));
    char* buffer = reinterpret_cast<char*>(&buffer);
    int length = -5;
    EXPECT_EQ(-1, static_cast<QKLBinary&>(*none).toText(40500, buffer, length));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(0, length);

    Doc d;
    ASSERT_EQ(0, d.it->deleteFromChild());  // the root goes
    ASSERT_TRUE(d.internals().format().empty());
    EXPECT_EQ(NO_TEXT, render(*d.message));
}

// Step 2: the start node is the iterator's current node.
TEST(Part51WholeMessage, AnIteratorGivesItsSubtree) {
    Doc d;
    ASSERT_EQ(0, d.message->setOrigin("agentA"));
    ASSERT_EQ(0, d.it->newChild(DATA));
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->putValue(3, VEID));
    ASSERT_EQ(0, d.it->seekUp());

    EXPECT_EQ("<data" + XSI + "><alerts><veid>3</veid>\n</alerts>\n</data>\n", render(*d.message, d.it.get()));
    EXPECT_EQ("<data><alerts><veid>3</veid>\n</alerts>\n</data>\n", render(*d.message, d.it.get(), "", 39999));
    // The iterator's own toTextFromChild is the two-argument form: the same text.
    char* own = d.it->toTextFromChild();
    ASSERT_NE(nullptr, own);
    EXPECT_EQ(render(*d.message, d.it.get()), std::string(own));
    std::free(own);
    // A value element as start node.
    ASSERT_EQ(0, d.it->seek("alerts/veid"));
    EXPECT_EQ("<veid" + XSI + ">3</veid>\n", render(*d.message, d.it.get()));
}

// Step 2: an iterator of another message, a stale iterator and one above the root give null.
TEST(Part51WholeMessage, AnUnusableIteratorGivesNull) {
    Doc d, other;
    d.child("alerts");
    d.child("veid");
    EXPECT_EQ(NO_TEXT, render(*d.message, other.it.get()));

    std::unique_ptr<QKLMessageIterator> second(d.message->newIterator());
    ASSERT_EQ(0, second->seek("veid"));
    ASSERT_EQ(0, d.it->seek("alerts"));
    ASSERT_EQ(0, d.it->deleteFromChild());  // "veid" moves: the second iterator is stale
    EXPECT_EQ(NO_TEXT, render(*d.message, second.get()));

    // Above the root (an empty path): asserted and null.
    Doc e;
    ASSERT_EQ(0, e.it->seekRoot());
    ASSERT_EQ(0, e.it->seekUp());
    ASSERT_TRUE(e.bit().path().empty());
    const unsigned long reports = QKL::assertReports();
    EXPECT_EQ(NO_TEXT, render(*e.message, e.it.get()));
    EXPECT_EQ(reports + 1, QKL::assertReports());
}

// Steps 6-8: the declarations go behind the start element's name, xmlns:xsi
// first, then each prefix-map entry in key order at the same point, so later
// keys stand before earlier ones; header attributes follow the declarations.
TEST(Part51WholeMessage, DeclarationsStandBehindTheNameInReverseKeyOrder) {
    Doc d;
    ASSERT_EQ(0, d.message->setPriority(3));
    // Met in the order c, a, b: prefixes ns1 = c, ns2 = a, ns3 = b.
    d.child("alerts", "urn:c");
    d.child("veid", "urn:a");
    d.child("alert", "urn:b");
    EXPECT_EQ("<packet xmlns:ns1=\"urn:c\" xmlns:ns3=\"urn:b\" xmlns:ns2=\"urn:a\"" + XSI +
                  " priority=\"3\"><ns1:alerts/>\n<ns2:veid/>\n<ns3:alert/>\n</packet>\n",
              render(*d.message));
}

// Steps 6-8 when the start element has a namespace itself.
TEST(Part51WholeMessage, ARootWithANamespaceDeclaresItsOwnPrefix) {
    Doc d;
    ASSERT_EQ(0, d.it->setNamespace(nsName(203)));
    d.child("alerts", nsName(203));
    EXPECT_EQ("<ns1:packet xmlns:ns1=\"" + nsName(203) + "\"" + XSI + "><ns1:alerts/>\n</ns1:packet>\n",
              render(*d.message));
    EXPECT_EQ("<packet><alerts/>\n</packet>\n", render(*d.message, nullptr, "", 39999));
}

// Step 6: the name is looked for inside the first start tag, behind its prefix:
// an element named "s" in namespace "ns1" is not split inside "<ns1:".
TEST(Part51WholeMessage, ANameThatIsPartOfItsPrefixIsFoundBehindThePrefix) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("s"));
    ASSERT_EQ(0, d.it->setNamespace("urn:s"));
    EXPECT_EQ("<ns1:s xmlns:ns1=\"urn:s\"" + XSI + "/>\n", render(*d.message, d.it.get()));
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("ns"));
    ASSERT_EQ(0, d.it->setNamespace("urn:s"));
    EXPECT_EQ("<ns1:ns xmlns:ns1=\"urn:s\"" + XSI + "/>\n", render(*d.message, d.it.get()));
}

// A header attribute as start node has no start tag to go into: nothing to print.
TEST(Part51WholeMessage, AHeaderAttributeAsStartNodePrintsNothing) {
    Doc d;
    ASSERT_EQ(0, d.message->setVersion(40500));
    ASSERT_EQ(0, d.it->seek(VERSION_ATTR));
    EXPECT_EQ(NO_TEXT, render(*d.message, d.it.get()));
    EXPECT_EQ(NO_TEXT, render(*d.message, d.it.get(), "", 39999));
}

// The entries: the two-argument form is version 40500; toText(int, char*&, int&)
// is the whole message for the version, with its length.
TEST(Part51WholeMessage, TheEntriesForwardToTheThreeArgumentForm) {
    Doc d;
    ASSERT_EQ(0, d.message->setVersion(40500));
    d.child("alerts", "urn:a");
    const QKLBinary& b = d.binary();

    char* two = b.toText(nullptr, "");
    ASSERT_NE(nullptr, two);
    EXPECT_EQ(render(*d.message, nullptr, "", 40500), std::string(two));
    std::free(two);

    char* buffer = nullptr;
    int length = -1;
    ASSERT_EQ(0, b.toText(40500, buffer, length));
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(int(std::strlen(buffer)), length);
    EXPECT_EQ(render(*d.message), std::string(buffer, std::size_t(length)));
    std::free(buffer);

    ASSERT_EQ(0, b.toText(39999, buffer, length));
    EXPECT_EQ(render(*d.message, nullptr, "", 39999), std::string(buffer, std::size_t(length)));
    EXPECT_EQ(std::string::npos, std::string(buffer).find("xmlns"));
    std::free(buffer);

    // The message interface's toText is the three-argument form, and toText() of an iterator the whole message.
    const QKLMessage& m = *d.message;
    char* viaBase = m.toText(nullptr, "", 40500);
    ASSERT_NE(nullptr, viaBase);
    EXPECT_EQ(render(*d.message), std::string(viaBase));
    std::free(viaBase);
    ASSERT_EQ(0, d.it->seek("alerts"));
    char* whole = d.it->toText();
    ASSERT_NE(nullptr, whole);
    EXPECT_EQ(render(*d.message), std::string(whole));
    std::free(whole);
}

// A peer below 40000 receives the text (Part 2.4), with its zero byte, as isComplete frames it.
TEST(Part51WholeMessage, APeerBelow40000ReceivesTheLegacyText) {
    Doc d;
    ASSERT_EQ(0, d.message->setVersion(40500));
    ASSERT_EQ(0, d.message->setOrigin("agentA"));
    d.child("alerts", "urn:a");
    char* buf = nullptr;
    int len = 0;
    ASSERT_EQ(0, d.message->serialize(&buf, &len, nullptr, 39999));
    ASSERT_NE(nullptr, buf);
    const std::string expected = "<packet version=\"4.5.0\"><origin>agentA</origin>\n<alerts/>\n</packet>\n";
    EXPECT_EQ(int(expected.size()) + 1, len);
    EXPECT_EQ(expected, std::string(buf, std::size_t(len - 1)));
    EXPECT_EQ('\0', buf[len - 1]);
    EXPECT_EQ(len, QKLBinary::isComplete(buf, len));
    std::free(buf);

    // The subtree at an iterator.
    ASSERT_EQ(0, d.it->seek("alerts"));
    ASSERT_EQ(0, d.message->serialize(&buf, &len, d.it.get(), 30000));
    EXPECT_EQ("<alerts/>\n", std::string(buf));
    std::free(buf);

    // The document's own message version counts too: the smaller of the two.
    ASSERT_EQ(0, d.message->setVersion(39999));
    ASSERT_EQ(0, d.message->serialize(&buf, &len, nullptr, 40500));
    EXPECT_EQ("<packet version=\"3.99.99\"><origin>agentA</origin>\n<alerts/>\n</packet>\n", std::string(buf));
    std::free(buf);
}

// ---- the element writer --------------------------------------------------------------------------

// Step 8: each value type is written as its stored text (Part 3.2).
TEST(Part51Elements, EachValueTypeIsWrittenAsItsStoredText) {
    Doc d;
    const long when = 1700000000;
    const std::string raw("\x01\x02\0\x03", 4);
    ASSERT_EQ(0, d.it->putValue(-42, VEID));
    ASSERT_EQ(0, d.it->putValueLongLong(1LL << 40, ALERT));
    ASSERT_EQ(0, d.it->putValueDouble(2.5, RESOURCE));
    ASSERT_EQ(0, d.it->putValueBase64(raw, LIMIT));
    ASSERT_EQ(0, d.it->putValueTime(when, ORIGIN));
    ASSERT_EQ(0, d.it->putValue("text"s, NAME));
    const std::string text = render(*d.message);
    EXPECT_EQ("<packet" + XSI + "><veid>-42</veid>\n<alert>1099511627776</alert>\n<resource>" + QKL::doubleToStr(2.5) +
                  "</resource>\n<limit>" + QKL::Base64::encode(raw) + "</limit>\n<origin>" + QKL::time2str(when) +
                  "</origin>\n<name>text</name>\n</packet>\n",
              text);
    // The base64 text decodes to the bytes that were put.
    std::string decoded;
    const std::string encoded = QKL::Base64::encode(raw);
    ASSERT_EQ(0, QKL::Base64::decode(encoded.data(), int(encoded.size()), &decoded));
    EXPECT_EQ(raw, decoded);
}

// Steps 1 and 5: names outside the vocabulary are named from the document's map.
TEST(Part51Elements, NamesOutsideTheVocabularyComeFromTheDocumentsMap) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("x_private"));
    ASSERT_EQ(0, d.it->putValue("v"s, "y_private"));
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet" + XSI + "><x_private><y_private>v</y_private>\n</x_private>\n</packet>\n", render(*d.message));
}

// Step 1: "An ID that resolves to no name prints as "INVALID_TAG"" — above 200
// and in the header range alike; the rendering does not fail.
TEST(Part51Elements, AnIdWithoutANamePrintsAsInvalidTag) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild(VEID));
    d.node().setTag(5000);  // beyond the element vocabulary, not in the map
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild(ALERT));
    d.node().setTag(-77);  // a per-document ID the map does not know
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet" + XSI + "><INVALID_TAG/>\n<INVALID_TAG/>\n</packet>\n", render(*d.message));
    EXPECT_EQ("INVALID_TAG", QKL::QKLProtocolIDMap::INVALID_TAG.str());

    // A header-range tag without a name (150) is an attribute named so.
    Doc h;
    ASSERT_EQ(0, h.it->putValue("x"s, VEID));
    ASSERT_EQ(0, h.it->seek(VEID));
    h.node().setTag(150);
    ASSERT_EQ(0, h.it->seekRoot());
    EXPECT_EQ("<packet" + XSI + " INVALID_TAG=\"x\"/>\n", render(*h.message));
}

// Step 4: header attributes of any element go into that element's start tag,
// in document order, not escaped (the implementer's choice: Part 5.2 reads "the
// raw value text", so a raw value is what round-trips); they are no content.
TEST(Part51Elements, HeaderAttributesGoIntoTheirParentsStartTag) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild(DATA));
    ASSERT_EQ(0, d.it->putValue("a<b"s, ID_ATTR));
    ASSERT_EQ(0, d.it->putValue(9, PRIORITY_ATTR));
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->putValue(1, VEID));
    ASSERT_EQ(0, d.it->putValue("late"s, ID_ATTR));  // behind a child: still in the start tag
    ASSERT_EQ(0, d.it->seekRoot());
    ASSERT_EQ(0, d.message->setProgress(1));
    ASSERT_EQ(0, d.message->setTime(1700000000));
    EXPECT_EQ("<packet" + XSI + " progress=\"on\" time=\"" + QKL::time2str(1700000000) +
                  "\"><data id=\"a<b\" priority=\"9\"/>\n<alerts id=\"late\"><veid>1</veid>\n</alerts>\n</packet>\n",
              render(*d.message));
}

// Step 6: xsi:type for a complex type, split at the last ":" of its full name;
// the type namespace is entered in the prefix map like an element namespace.
TEST(Part51Elements, AComplexTypeIsWrittenAsXsiTypeSplitAtItsLastColon) {
    Doc d;
    // A complex type goes on a plain container without namespace (Part 2.2); the namespace comes after.
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->putValue(1, VEID));
    ASSERT_EQ(0, d.it->setComplexType("http://types.example/x:y", "T"));
    ASSERT_EQ(0, d.it->setNamespace("urn:a"));
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("alert"));
    d.child("resource");
    ASSERT_EQ(0, d.it->seek("resource"));
    ASSERT_EQ(0, d.it->deleteFromChild());  // an empty container is left
    ASSERT_EQ(0, d.it->seekRoot());
    ASSERT_EQ(0, d.it->seek("alert"));
    ASSERT_EQ(50, d.node().type());
    ASSERT_EQ(0, d.it->setComplexType("urn:a", "U"));  // the same namespace as an element: one prefix
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet xmlns:ns1=\"urn:a\" xmlns:ns2=\"http://types.example/x:y\"" + XSI +
                  "><ns1:alerts xsi:type=\"ns2:T\"><veid>1</veid>\n</ns1:alerts>\n<alert xsi:type=\"ns1:U\"/>\n"
                  "</packet>\n",
              render(*d.message));
}

// Step 6: a type name without ":" has no prefix; a vocabulary type is named by
// the vocabulary; a type ID without a name prints "INVALID_TAG"; a plain
// container (50) has no xsi:type.
TEST(Part51Elements, TypeNamesWithoutColonVocabularyTypesAndUnnamedTypes) {
    Doc d;
    // Each a plain container first (a child "limit"), as Part 2.2 wants.
    ASSERT_EQ(0, d.it->newChild("alerts"));
    d.child("limit");
    ASSERT_EQ(0, d.it->setComplexType("", "T"));
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("veid"));
    d.child("limit");
    BinaryPath path = pathOf(d);
    ASSERT_EQ(0, d.internals().setComplexType(path, ALERTM_TYPE));
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("alert"));
    d.child("limit");
    path = pathOf(d);
    ASSERT_EQ(-1, d.internals().setComplexType(path, 400));  // beyond the type vocabulary: written all the same
    ASSERT_EQ(400, d.node().type());
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("resource"));
    d.child("limit");  // a plain container (50)
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet" + XSI +
                  "><alerts xsi:type=\"T\"><limit/>\n</alerts>\n<veid xsi:type=\"alertmType\"><limit/>\n</veid>\n"
                  "<alert xsi:type=\"INVALID_TAG\"><limit/>\n</alert>\n<resource><limit/>\n</resource>\n</packet>\n",
              render(*d.message));
    EXPECT_EQ(std::string::npos, render(*d.message, nullptr, "", 39999).find("xsi"));
}

// Step 6: a full type name with an empty namespace part (":T") gets no prefix
// and declares no empty namespace.
TEST(Part51Elements, ATypeNameWithAnEmptyNamespacePartHasNoPrefix) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    d.child("limit");
    ASSERT_EQ(0, d.bit().setComplexType(":T"));
    ASSERT_EQ(0, d.it->seekRoot());
    const std::string text = render(*d.message);
    EXPECT_EQ("<packet" + XSI + "><alerts xsi:type=\"T\"><limit/>\n</alerts>\n</packet>\n", text);
}

// Step 9: "</", prefix and ":", the name, ">" and a line feed; nesting as written.
TEST(Part51Elements, EndTagsCarryThePrefix) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->setNamespace("urn:a"));
    ASSERT_EQ(0, d.it->newChild("alert"));
    ASSERT_EQ(0, d.it->setNamespace("urn:b"));
    ASSERT_EQ(0, d.it->putValue("v"s, VEID));
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet xmlns:ns2=\"urn:b\" xmlns:ns1=\"urn:a\"" + XSI +
                  "><ns1:alerts><ns2:alert><veid>v</veid>\n</ns2:alert>\n</ns1:alerts>\n</packet>\n",
              render(*d.message));
}

// The nesting that the writer follows is MAX_TEXT_DEPTH levels; deeper gives null.
TEST(Part51Elements, NestingDeeperThanMaxTextDepthGivesNull) {
    Doc d;
    for (int level = 1; level < QKLBinary::MAX_TEXT_DEPTH; ++level) ASSERT_EQ(0, d.it->newChild(ALERTS));
    const std::string text = render(*d.message);
    ASSERT_NE(NO_TEXT, text);
    EXPECT_EQ(std::size_t(QKLBinary::MAX_TEXT_DEPTH - 1), count(text, "<alerts"));
    EXPECT_EQ(0u, text.rfind("<packet", 0));
    ASSERT_EQ(0, d.it->newChild(ALERTS));  // one level more
    EXPECT_EQ(NO_TEXT, render(*d.message));
    EXPECT_EQ(NO_TEXT, render(*d.message, nullptr, "", 39999));
    // The subtree below the top element is shallow enough again.
    std::unique_ptr<QKLMessageIterator> below(d.message->newIterator());
    ASSERT_EQ(0, below->seek(ALERTS));
    EXPECT_NE(NO_TEXT, render(*d.message, below.get()));
}

// ---- bad documents -------------------------------------------------------------------------------

// A subtree whose sizes do not tile is refused, without reading outside the buffer.
TEST(Part51BadDocuments, ACorruptSubtreeGivesNull) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->putValue("v"s, VEID));
    const unsigned int alerts = d.bit().path().current().offset;
    QKL::binary::Node node(d.internals().arena(), alerts);
    const unsigned int size = node.dataSize();

    node.setDataSize(0x7FFFFFF0u);  // far beyond the buffer
    EXPECT_EQ(NO_TEXT, render(*d.message, nullptr, "", 40500));
    EXPECT_EQ(NO_TEXT, render(*d.message, nullptr, "", 39999));
    node.setDataSize(size - 8);  // children no longer tile their parent
    EXPECT_EQ(NO_TEXT, render(*d.message));
    node.setDataSize(size);
    EXPECT_NE(NO_TEXT, render(*d.message));

    // A value too short for its type prints no value.
    ASSERT_EQ(0, d.it->seek(VEID));
    QKL::binary::Node veid(d.internals().arena(), d.bit().path().current().offset);
    veid.setType(QKL::binary::TYPE_DOUBLE);  // "v\0" is 2 bytes, a double needs 8
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ("<packet" + XSI + "><alerts><veid/>\n</alerts>\n</packet>\n", render(*d.message));
}

// A malformed map area makes the per-document names "INVALID_TAG"; vocabulary names stay.
TEST(Part51BadDocuments, AMalformedMapAreaPrintsInvalidTagForPerDocumentNames) {
    Doc d;
    d.child("x_private");
    d.child("alerts");
    const std::string bytes = d.bytes();

    QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew());
    ASSERT_EQ(0, received->init(bytes.data(), int(bytes.size())));
    QKLBinaryInternals& doc = *static_cast<QKLBinary&>(*received).internals();
    const QKL::binary::Format format = doc.format();
    ASSERT_GT(format.map().size(), 0u);
    QKL::binary::Node(doc.arena(), format.map().offset()).setType(3);  // kind 3: malformed
    EXPECT_EQ("<packet" + XSI + "><INVALID_TAG/>\n<alerts/>\n</packet>\n", render(*received));
}
