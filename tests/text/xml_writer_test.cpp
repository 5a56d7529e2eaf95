// The XML writer beyond the golden texts: subtrees, cached header fields, lying document bytes.
#include "qkl/binary/Format.h"
#include "text/TextTestSupport.h"

using namespace QKLTest;

// A subtree declares its own prefixes; with a namespace base (the SOAP bridge's form) the schema
// instance namespace is left to the envelope, even under xsi:type. The document is not changed.
TEST(XmlWriter, ASubtreeDeclaresItsOwnNamespaces) {
    Message m(new QKLBinary);
    ASSERT_EQ(0, readText(*m, dataFile("text/golden/namespaces.xml")));
    const std::string before = held(*m), base = "urn:base/";
    const std::string ns1 = " xmlns:ns1=\"urn:a\"", ns2 = " xmlns:ns2=\"http://example.test/types\"";
    const struct { const char* path; std::string nsBase; int version; std::string expected; } rows[] = {
        {"data", "", 40500, "<ns1:data" + ns1 + XSI_DECLARATION + "><ns1:origin>x</ns1:origin>\n</ns1:data>\n"},
        {"data/origin", base, 39999, "<origin>x</origin>\n"},
        {"cookie", base, 40500,
         "<ns1:cookie" + ns1 + ns2 + " xsi:type=\"ns2:CookieType\"><name>n</name>\n</ns1:cookie>\n"},
    };
    for (const auto& row : rows) {
        Iterator at(m->newIterator());
        ASSERT_EQ(0, at->seek(row.path)) << row.path;
        EXPECT_EQ(row.expected, render(*m, row.version, at.get(), row.nsBase)) << row.path << " " << row.nsBase;
    }
    EXPECT_EQ(before, held(*m));
}

// The text shows the document as it stands, cached header fields written first; a document whose
// sizes lie (the root's first child, at offset 24, holds 16 bytes) is not walked; none, no text.
TEST(XmlWriter, WritesTheDocumentAsItStandsOrNotAtAll) {
    Message m(new QKLBinary);
    EXPECT_EQ("(null)", render(*m));
    ASSERT_EQ(0, readText(*m, "<packet><data><origin>v</origin></data></packet>"));
    QKL::binary::Node data(m->internals()->arena(), 24);
    for (unsigned int lie : {0x7FFFFFF0u, 8u, 24u}) {
        data.setDataSize(lie);
        EXPECT_EQ("(null)", render(*m)) << lie;
    }
    data.setDataSize(16);
    ASSERT_EQ(0, m->setUid("u-1"));
    EXPECT_EQ("<packet uid=\"u-1\"><data><origin>v</origin>\n</data>\n</packet>\n", render(*m, 39999));
}
