// Part 6.1: SOAP envelope and faults. The envelope is cut out of request text
// by case-insensitive text search (fromText), written back byte for byte
// (assembly/toText), and SOAP 1.1 / 1.2 fault envelopes are built from fixed
// pieces. Expected texts are written out from the spec's pieces, never taken
// from the library.
#include "qkl/QKL.h"

#include "support/AssertCounter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using QKL::QKLSoapConverter;
using QKL::QKLSoapEnvelope;
using QKL::QKLSoapFault;
using QKL::QKLSoapFault11;
using QKL::QKLSoapFault12;
using QKL::SoapVersion;

namespace {

using Envelope = std::unique_ptr<QKLSoapEnvelope>;
using Fault = std::unique_ptr<QKLSoapFault>;

const std::string kUri11 = "http://schemas.xmlsoap.org/soap/envelope/";
const std::string kUri12 = "http://www.w3.org/2003/05/soap-envelope";

// The first line of every assembled envelope, per the spec's assembly pieces.
const std::string kHead11 =
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";
const std::string kHead12 =
    "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";
// No line end after the last tag.
const std::string kTail = "</soap:Body>\n</soap:Envelope>";

// The input in a heap block of exactly its length plus the terminating zero,
// so that AddressSanitizer catches any read outside the text.
std::unique_ptr<char[]> exactCopy(const std::string& text) {
    std::unique_ptr<char[]> buffer(new char[text.size() + 1]);
    std::memcpy(buffer.get(), text.c_str(), text.size() + 1);
    return buffer;
}

Envelope parse(const std::string& text) {
    const std::unique_ptr<char[]> buffer = exactCopy(text);
    return Envelope(QKLSoapEnvelope::fromText(buffer.get()));
}

// The text of a buffer handed out by toText/assembly, which is then released
// with free, as the spec says it must be (ASan reports a mismatched release).
std::string takeText(char* buffer) {
    if (buffer == nullptr) {
        ADD_FAILURE() << "toText/assembly returned null";
        return std::string();
    }
    const std::string text(buffer);
    std::free(buffer);
    return text;
}

// A request the way clients write them: an XML declaration and line ends
// around the elements. An empty header leaves the Header element out.
std::string request(const std::string& prefix, const std::string& uri, const std::string& header,
                    const std::string& body) {
    std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
    text += "<" + prefix + ":Envelope xmlns:" + prefix + "=\"" + uri + "\">\n";
    if (!header.empty()) text += header + "\n";
    text += body + "\n</" + prefix + ":Envelope>\n";
    return text;
}

// The fault envelopes, from the spec's pieces.
std::string detailBlock(const std::string& detail) {
    return detail.empty() ? std::string() : "<detail>\n" + detail + "</detail>\n";
}

std::string expectedFault11(const std::string& code, const std::string& text, const std::string& detail) {
    return kHead11 + "<soap:Body>\n" + "<soap:Fault>\n" + "<faultcode>soap:" + code + "</faultcode>\n" +
           "<faultstring>" + text + "</faultstring>\n" + detailBlock(detail) + "</soap:Fault>\n" + kTail;
}

std::string expectedFault12(const std::string& code, const std::string& text, const std::string& detail) {
    return kHead12 + "<soap:Body>\n" + "<soap:Fault>\n" + "<soap:Code>\n<soap:Value>soap:" + code +
           "</soap:Value>\n</soap:Code>\n" + "<soap:Reason>\n<soap:Text>" + text +
           "</soap:Text>\n</soap:Reason>\n" + detailBlock(detail) + "</soap:Fault>\n" + kTail;
}

QKLSoapFault::Code code(int value) { return static_cast<QKLSoapFault::Code>(value); }

// Parses `text` from an exact-size heap buffer and checks what bad input may
// never break: every piece of a returned envelope is cut out of the input.
// Returns the envelope (or null) for further checks.
Envelope parseCheckingPieces(const std::string& text) {
    Envelope envelope = parse(text);
    if (envelope) {
        EXPECT_NE(std::string::npos, text.find(envelope->getNamespaceURI()));
        EXPECT_NE(std::string::npos, text.find(envelope->getHeader()));
        EXPECT_NE(std::string::npos, text.find(envelope->getBody()));
        EXPECT_FALSE(envelope->getBody().empty());  // a Body is always found
    }
    return envelope;
}

// A SOAP 1.2 request with Header and Body, used by several steps and by the
// bad-input suite.
const std::string kHeader12 =
    "<soap:Header>\n  <packet_header xmlns=\"urn:x/4.5.0/protocol\" id=\"7\"><target>env</target>"
    "</packet_header>\n</soap:Header>";
const std::string kBody12 =
    "<soap:Body>\n  <m:GetList xmlns:m=\"urn:x/4.5.0/env_manager\"><m:all>1</m:all></m:GetList>\n</soap:Body>";
const std::string kRequest12 = request("soap", kUri12, kHeader12, kBody12);

}  // namespace

// ---- Edge cases worth testing -------------------------------------------------

// "An envelope written as `<SOAP-ENV:Envelope xmlns:SOAP-ENV=...` is found
// (case-insensitive), with the prefix `SOAP-ENV`."
// The prefix shows in what is cut out: only "<SOAP-ENV:Header"/"<SOAP-ENV:Body"
// elements are taken, the decoy "soap:" elements are not.
TEST(Part61EdgeCases, SoapEnvEnvelopeIsFoundCaseInsensitivelyWithPrefixSoapEnv) {
    const std::string header = "<SOAP-ENV:Header><h>1</h></SOAP-ENV:Header>";
    const std::string body = "<SOAP-ENV:Body><op>2</op></SOAP-ENV:Body>";
    const Envelope envelope =
        parse(request("SOAP-ENV", kUri11, "<soap:Header>x</soap:Header>\n" + header,
                      "<soap:Body>y</soap:Body>\n" + body));
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(kUri11, envelope->getNamespaceURI());
    EXPECT_EQ(header, envelope->getHeader());
    EXPECT_EQ(body, envelope->getBody());
}

// "An envelope without Header parses, header empty; an assembled envelope with
// an empty header has no Header element."
TEST(Part61EdgeCases, EnvelopeWithoutHeaderParsesHeaderEmptyAndAssemblesWithoutHeaderElement) {
    const Envelope envelope = parse(request("soap", kUri11, "", "<soap:Body><op/></soap:Body>"));
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ("", envelope->getHeader());
    EXPECT_EQ("<soap:Body><op/></soap:Body>", envelope->getBody());

    const std::string text = takeText(envelope->assembly());
    EXPECT_EQ(kHead11 + "<soap:Body>\n<soap:Body><op/></soap:Body>" + kTail, text);
    EXPECT_EQ(std::string::npos, text.find("Header"));
}

// "An envelope whose root tag name is followed by a line end rather than a
// blank is not recognised: the search text ":envelope " includes the blank,
// deliberately."
TEST(Part61EdgeCases, RootTagNameFollowedByLineEndIsNotRecognised) {
    const std::string body = "<soap:Body><op/></soap:Body></soap:Envelope>";
    EXPECT_EQ(nullptr, parse("<soap:Envelope\nxmlns:soap=\"" + kUri11 + "\">" + body));
    EXPECT_EQ(nullptr, parse("<soap:Envelope\r\nxmlns:soap=\"" + kUri11 + "\">" + body));
    // A tab is no blank either.
    EXPECT_EQ(nullptr, parse("<soap:Envelope\txmlns:soap=\"" + kUri11 + "\">" + body));
    // The same text with the blank is recognised: only the separator differs.
    EXPECT_NE(nullptr, parse("<soap:Envelope xmlns:soap=\"" + kUri11 + "\">" + body));
}

// "Every fault is written with the prefix "soap" whatever the request used."
TEST(Part61EdgeCases, EveryFaultIsWrittenWithPrefixSoapWhateverTheRequestUsed) {
    for (const std::string& uri : {kUri11, kUri12}) {
        const Envelope requestEnvelope =
            parse(request("SOAP-ENV", uri, "", "<SOAP-ENV:Body><op/></SOAP-ENV:Body>"));
        ASSERT_NE(nullptr, requestEnvelope);
        const SoapVersion version = QKL::soapVersionMap().at(requestEnvelope->getNamespaceURI());
        for (int value = 0; value <= 3; ++value) {
            const Fault fault(QKLSoapFault::createSoapFault(version, code(value), "failed"));
            ASSERT_NE(nullptr, fault);
            const std::string text = takeText(fault->toText());
            SCOPED_TRACE(text);
            EXPECT_EQ(0u, text.find("<soap:Envelope xmlns:soap=\"" + uri + "\""));
            EXPECT_NE(std::string::npos, text.find("<soap:Body>\n<soap:Fault>\n"));
            EXPECT_EQ(std::string::npos, text.find("SOAP-ENV"));
        }
    }
}

// "`getSoapURIByVersion(0)` gives the empty string; `getSoapURIByVersion(3)`
// gives the empty string too (not found)."
TEST(Part61EdgeCases, GetSoapURIByVersion0And3GiveTheEmptyString) {
    // For 0 the empty string IS the URI found: the map's deliberate third pair
    // maps "" to 0. For 3 no entry maps to it, and the walk returns "" for
    // "none". The two empties have different causes but the same text.
    EXPECT_EQ("", QKLSoapConverter::getSoapURIByVersion(QKL::SOAP_NONE));
    EXPECT_EQ(QKL::SOAP_NONE, QKL::soapVersionMap().at(""));
    EXPECT_EQ("", QKLSoapConverter::getSoapURIByVersion(static_cast<SoapVersion>(3)));
}

// "`createSoapFault(0, ...)` gives null."
TEST(Part61EdgeCases, CreateSoapFault0GivesNull) {
    EXPECT_EQ(nullptr, Fault(QKLSoapFault::createSoapFault(QKL::SOAP_NONE, QKLSoapFault::ServerError, "x")));
    // "any other value yields null": 3 is no SOAP version either.
    EXPECT_EQ(nullptr,
              Fault(QKLSoapFault::createSoapFault(static_cast<SoapVersion>(3), QKLSoapFault::ServerError, "x")));
}

// ---- Data model ---------------------------------------------------------------

TEST(Part61DataModel, SoapVersionValues) {
    EXPECT_EQ(0, QKL::SOAP_NONE);
    EXPECT_EQ(1, QKL::SOAP_1_1);
    EXPECT_EQ(2, QKL::SOAP_1_2);
}

TEST(Part61DataModel, EnvelopeNamespaceAndSchemaConstantsAreTheStandardUris) {
    EXPECT_EQ(kUri11, QKL::Soap11EnvelopeNamespace);
    EXPECT_EQ(kUri12, QKL::Soap12EnvelopeNamespace);
    EXPECT_STREQ("http://www.w3.org/2001/XMLSchema", QKL::XmlSchema);
    EXPECT_STREQ("http://www.w3.org/2001/XMLSchema-instance", QKL::XmlSchemaInstance);
}

// "built once at library start from the fixed array `Map_SoapVersionMap_Array`
// of three pairs, all of which are inserted"
TEST(Part61DataModel, MapArrayHoldsTheThreePairs) {
    ASSERT_EQ(3u, std::extent<decltype(QKL::Map_SoapVersionMap_Array)>::value);
    EXPECT_EQ(kUri11, QKL::Map_SoapVersionMap_Array[0].first);
    EXPECT_EQ(QKL::SOAP_1_1, QKL::Map_SoapVersionMap_Array[0].second);
    EXPECT_EQ(kUri12, QKL::Map_SoapVersionMap_Array[1].first);
    EXPECT_EQ(QKL::SOAP_1_2, QKL::Map_SoapVersionMap_Array[1].second);
    EXPECT_STREQ("", QKL::Map_SoapVersionMap_Array[2].first);
    EXPECT_EQ(QKL::SOAP_NONE, QKL::Map_SoapVersionMap_Array[2].second);
}

// "The third pair is a real entry, deliberately kept: an envelope whose
// namespace declaration is empty maps to version 0 rather than failing the
// lookup."
TEST(Part61DataModel, SoapVersionMapHasExactlyTheThreeEntriesIncludingTheEmptyUri) {
    const QKL::SoapVersionMap expected = {
        {"http://schemas.xmlsoap.org/soap/envelope/", QKL::SOAP_1_1},
        {"http://www.w3.org/2003/05/soap-envelope", QKL::SOAP_1_2},
        {"", QKL::SOAP_NONE},
    };
    EXPECT_EQ(expected, QKL::soapVersionMap());
    // Built once: the same map on every call.
    EXPECT_EQ(&QKL::soapVersionMap(), &QKL::soapVersionMap());
}

// "from envelope namespace URI (plain, case-sensitive string)"
TEST(Part61DataModel, SoapVersionMapKeysAreCaseSensitive) {
    EXPECT_EQ(0u, QKL::soapVersionMap().count("HTTP://SCHEMAS.XMLSOAP.ORG/SOAP/ENVELOPE/"));
    EXPECT_EQ(0u, QKL::soapVersionMap().count("http://www.w3.org/2003/05/SOAP-envelope"));
}

// "code (`QKLSoapFault::Code`, 32-bit)"; "0 VersionMismatch, 1 MustUnderstand,
// 2 client-side error, 3 server-side error."
TEST(Part61DataModel, FaultCodeValuesAndSize) {
    EXPECT_EQ(4u, sizeof(QKLSoapFault::Code));
    EXPECT_EQ(0, QKLSoapFault::VersionMismatch);
    EXPECT_EQ(1, QKLSoapFault::MustUnderstand);
    EXPECT_EQ(2, QKLSoapFault::ClientError);
    EXPECT_EQ(3, QKLSoapFault::ServerError);
}

// "their constructors take (code, text) and pass the SOAP 1.1 resp. SOAP 1.2
// envelope namespace as the envelope's URI"; the detail is "empty unless set".
TEST(Part61DataModel, FaultConstructorsSetUriCodeTextAndEmptyFields) {
    const QKLSoapFault11 fault11(QKLSoapFault::MustUnderstand, "one");
    EXPECT_EQ(kUri11, fault11.getNamespaceURI());
    EXPECT_EQ(QKLSoapFault::MustUnderstand, fault11.getCode());
    EXPECT_EQ("one", fault11.getFaultString());
    EXPECT_EQ("", fault11.getDetail());
    EXPECT_EQ("", fault11.getHeader());

    const QKLSoapFault12 fault12(QKLSoapFault::ServerError, "two");
    EXPECT_EQ(kUri12, fault12.getNamespaceURI());
    EXPECT_EQ(QKLSoapFault::ServerError, fault12.getCode());
    EXPECT_EQ("two", fault12.getFaultString());
    EXPECT_EQ("", fault12.getDetail());
}

// ---- fromText, step by step ---------------------------------------------------

TEST(Part61Steps, RequestWithDeclarationHeaderAndBodyIsCutIntoItsThreePieces) {
    const Envelope envelope = parse(kRequest12);
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(kUri12, envelope->getNamespaceURI());
    EXPECT_EQ(kHeader12, envelope->getHeader());
    EXPECT_EQ(kBody12, envelope->getBody());
}

// Step 2: "The prefix is the text between that "<" and the ":"."
TEST(Part61Steps, PrefixIsTheTextBetweenTheLastLessThanAndTheColon) {
    for (const char* prefix : {"soap", "s", "SOAP-ENV", "env12"}) {
        SCOPED_TRACE(prefix);
        const std::string p = prefix;
        const std::string header = "<" + p + ":Header><h/></" + p + ":Header>";
        const std::string body = "<" + p + ":Body><op/></" + p + ":Body>";
        const Envelope envelope = parse(request(p, kUri11, header, body));
        ASSERT_NE(nullptr, envelope);
        EXPECT_EQ(kUri11, envelope->getNamespaceURI());
        EXPECT_EQ(header, envelope->getHeader());
        EXPECT_EQ(body, envelope->getBody());
    }
}

// Step 2: "Find the last "<" before it": elements before the root do not count.
TEST(Part61Steps, RootIsTheLastLessThanBeforeTheEnvelopeName) {
    const Envelope envelope = parse("<?xml version=\"1.0\"?>\n<!-- a <b> -->\n<s:Envelope xmlns:s=\"" + kUri11 +
                                    "\"><s:Body>b</s:Body></s:Envelope>");
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ("<s:Body>b</s:Body>", envelope->getBody());
}

// "every "find" is case-insensitive": the root, the declaration, the Header
// and the Body, in any letter case; the pieces keep the request's own case.
TEST(Part61Steps, EverySearchIgnoresLetterCase) {
    const std::string text = "<SOAP-ENV:ENVELOPE XMLNS:soap-env=\"" + kUri12 +
                             "\">\n<soap-env:HEADER>H</Soap-Env:header>\n<SOAP-env:bOdY>B</soap-ENV:BODY>\n"
                             "</SOAP-ENV:ENVELOPE>";
    const Envelope envelope = parse(text);
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(kUri12, envelope->getNamespaceURI());
    EXPECT_EQ("<soap-env:HEADER>H</Soap-Env:header>", envelope->getHeader());
    EXPECT_EQ("<SOAP-env:bOdY>B</soap-ENV:BODY>", envelope->getBody());
}

// Step 3: "The URI between the quotes becomes the new envelope's namespace URI"
// - whatever it is: the version check is Part 6.2's.
TEST(Part61Steps, UriBetweenTheQuotesIsTakenAsItIs) {
    for (const char* uri : {"urn:unknown", "", "HTTP://X/Y Z"}) {
        SCOPED_TRACE(uri);
        const Envelope envelope = parse(request("soap", uri, "", "<soap:Body/></soap:Body>"));
        ASSERT_NE(nullptr, envelope);
        EXPECT_EQ(uri, envelope->getNamespaceURI());
    }
}

// Step 3: "Find "xmlns:" + prefix after the "<"": a declaration before the
// root's "<" is not used.
TEST(Part61Steps, DeclarationIsSearchedAfterTheRootsLessThan) {
    const Envelope envelope = parse("<a xmlns:soap=\"urn:before\"/>\n<soap:Envelope xmlns:soap=\"" + kUri11 +
                                    "\"><soap:Body>b</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(kUri11, envelope->getNamespaceURI());
}

// Step 3 is a plain text match: prefix "soap" matches an earlier
// "xmlns:soapenc=" declaration, and the URI is then soapenc's, as written.
TEST(Part61Steps, DeclarationMatchIsPlainTextSoSoapMatchesSoapenc) {
    const Envelope envelope =
        parse("<soap:Envelope xmlns:soapenc=\"http://schemas.xmlsoap.org/soap/encoding/\" xmlns:soap=\"" + kUri11 +
              "\">\n<soap:Body>b</soap:Body>\n</soap:Envelope>");
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ("http://schemas.xmlsoap.org/soap/encoding/", envelope->getNamespaceURI());
}

// Step 3: "the next double quote and the one after it": only double quotes
// count, and the first two after the declaration.
TEST(Part61Steps, UriEndsAtTheNextDoubleQuote) {
    const Envelope envelope = parse("<soap:Envelope xmlns:soap = \"urn:a'b\" x=\"y\"><soap:Body>b</soap:Body>");
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ("urn:a'b", envelope->getNamespaceURI());
}

// Step 4: "the header is the whole element text from the opening "<" through
// the closing ">"", attributes, children and the closing tag's own case kept.
TEST(Part61Steps, HeaderIsTheWholeElementThroughTheClosingTag) {
    const std::string header = "<soap:Header a=\"1\">\n<x>y</x>\n</SOAP:HEADER>";
    const Envelope envelope = parse(request("soap", kUri11, header, "<soap:Body>b</soap:Body>"));
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(header, envelope->getHeader());
}

// Step 4: "Find "<" + prefix + ":Header" after the URI": a Header element
// before the root is not the envelope's.
TEST(Part61Steps, HeaderIsSearchedAfterTheUri) {
    const Envelope envelope = parse("<soap:Header>early</soap:Header>\n<soap:Envelope xmlns:soap=\"" + kUri11 +
                                    "\">\n<soap:Body>b</soap:Body>\n</soap:Envelope>");
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ("", envelope->getHeader());
    EXPECT_EQ("<soap:Body>b</soap:Body>", envelope->getBody());
}

// Step 4: "Otherwise the header stays empty." The closing tag is searched with
// its ">", so "</soap:Header >" does not close it either.
TEST(Part61Steps, HeaderWithoutClosingTagLeavesTheHeaderEmpty) {
    for (const char* header : {"<soap:Header><h/>", "<soap:Header><h/></soap:Header >"}) {
        SCOPED_TRACE(header);
        const Envelope envelope = parse(request("soap", kUri11, header, "<soap:Body>b</soap:Body>"));
        ASSERT_NE(nullptr, envelope);
        EXPECT_EQ("", envelope->getHeader());
        EXPECT_EQ("<soap:Body>b</soap:Body>", envelope->getBody());
    }
}

// Step 5: the Body is searched "after the Header's start, if one was found,
// else after the URI" - found meaning its opening, closed or not. A Body
// before the Header is then skipped.
TEST(Part61Steps, BodySearchStartsAtTheHeadersStartWhenAHeaderOpens) {
    const std::string root = "<soap:Envelope xmlns:soap=\"" + kUri11 + "\">\n<soap:Body>early</soap:Body>\n";
    const std::string late = "<soap:Body>late</soap:Body>";
    for (const char* header : {"<soap:Header>h</soap:Header>", "<soap:Header>h"}) {
        SCOPED_TRACE(header);
        const Envelope envelope = parse(root + header + "\n" + late + "\n</soap:Envelope>");
        ASSERT_NE(nullptr, envelope);
        EXPECT_EQ(late, envelope->getBody());
    }
    // No Header: the search starts after the URI and finds the first Body.
    const Envelope plain = parse(root + late + "\n</soap:Envelope>");
    ASSERT_NE(nullptr, plain);
    EXPECT_EQ("<soap:Body>early</soap:Body>", plain->getBody());
}

// Step 5 searches from the Header's start, not its end, as written: a Body
// element inside the Header is the one found.
TEST(Part61Steps, BodySearchFromHeaderStartFindsABodyInsideTheHeader) {
    const std::string header = "<soap:Header><soap:Body>inner</soap:Body></soap:Header>";
    const Envelope envelope = parse(request("soap", kUri11, header, "<soap:Body>outer</soap:Body>"));
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(header, envelope->getHeader());
    EXPECT_EQ("<soap:Body>inner</soap:Body>", envelope->getBody());
}

// Step 5: "the body is the text from that "<" through the one character that
// follows the closing "</" + prefix + ":Body" (its ">")" - whatever that
// character is.
TEST(Part61Steps, BodyEndsOneCharacterAfterTheClosingName) {
    const std::string root = "<soap:Envelope xmlns:soap=\"" + kUri11 + "\">\n";
    const Envelope exact = parse(root + "<soap:Body a=\"1\">\n<op/>\n</soap:Body>\n</soap:Envelope>");
    ASSERT_NE(nullptr, exact);
    EXPECT_EQ("<soap:Body a=\"1\">\n<op/>\n</soap:Body>", exact->getBody());

    const Envelope blank = parse(root + "<soap:Body><op/></soap:Body >\n</soap:Envelope>");
    ASSERT_NE(nullptr, blank);
    EXPECT_EQ("<soap:Body><op/></soap:Body ", blank->getBody());
}

// Step 5 at the very end of the text: no character follows "</soap:Body",
// and the body stops at the end of the text.
TEST(Part61Steps, BodyClosingNameAtTheEndOfTheTextEndsTheBodyThere) {
    const Envelope envelope = parse("<soap:Envelope xmlns:soap=\"" + kUri11 + "\"><soap:Body><op/></soap:Body");
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ("<soap:Body><op/></soap:Body", envelope->getBody());
}

// ---- fromText failures: "`fromText` reports every defect by returning null" --

TEST(Part61Failures, NullTextGivesNull) { EXPECT_EQ(nullptr, QKLSoapEnvelope::fromText(nullptr)); }

// Step 1: "Find ":envelope " (with its trailing blank); none: null."
TEST(Part61Failures, NoEnvelopeNameGivesNull) {
    EXPECT_EQ(nullptr, parse(""));
    EXPECT_EQ(nullptr, parse("<soap:Body>b</soap:Body>"));
    EXPECT_EQ(nullptr, parse("<soap:Envelope>\n<soap:Body>b</soap:Body>\n</soap:Envelope>"));
    EXPECT_EQ(nullptr, parse("<soap:Envelope"));
    EXPECT_EQ(nullptr, parse("<soap:Env xmlns:soap=\"" + kUri11 + "\"><soap:Body>b</soap:Body>"));
}

// Step 2: "Find the last "<" before it; none: null."
TEST(Part61Failures, NoLessThanBeforeTheEnvelopeNameGivesNull) {
    EXPECT_EQ(nullptr, parse("soap:Envelope xmlns:soap=\"" + kUri11 + "\"><soap:Body>b</soap:Body>"));
    EXPECT_EQ(nullptr, parse(":Envelope "));
}

// Step 3: "Find "xmlns:" + prefix after the "<" ... any missing: null."
TEST(Part61Failures, NoDeclarationOfThePrefixAfterTheLessThanGivesNull) {
    const std::string body = "<soap:Body>b</soap:Body></soap:Envelope>";
    EXPECT_EQ(nullptr, parse("<soap:Envelope xmlns:s=\"" + kUri11 + "\">" + body));
    EXPECT_EQ(nullptr, parse("<soap:Envelope xmlns=\"" + kUri11 + "\">" + body));
    EXPECT_EQ(nullptr, parse("<a xmlns:soap=\"" + kUri11 + "\"/><soap:Envelope a=\"1\">" + body));
}

// Step 3: "then the next double quote ... any missing: null."
TEST(Part61Failures, MissingFirstQuoteGivesNull) {
    EXPECT_EQ(nullptr, parse("<soap:Envelope xmlns:soap=urn:x><soap:Body>b</soap:Body></soap:Envelope>"));
    // Single quotes are no double quotes.
    EXPECT_EQ(nullptr, parse("<soap:Envelope xmlns:soap='urn:x'><soap:Body>b</soap:Body></soap:Envelope>"));
}

// Step 3: "... and the one after it; any missing: null."
TEST(Part61Failures, MissingSecondQuoteGivesNull) {
    EXPECT_EQ(nullptr, parse("<soap:Envelope xmlns:soap=\"urn:x><soap:Body>b</soap:Body></soap:Envelope>"));
}

// Step 5: "Either missing: the envelope is destroyed and null returned."
// (LeakSanitizer checks the "destroyed".)
TEST(Part61Failures, MissingBodyGivesNull) {
    EXPECT_EQ(nullptr, parse(request("soap", kUri11, "<soap:Header>h</soap:Header>", "<s:Body>b</s:Body>")));
    EXPECT_EQ(nullptr, parse(request("soap", kUri11, "", "")));
    // The only Body comes before the Header, where the search does not look.
    EXPECT_EQ(nullptr, parse("<soap:Envelope xmlns:soap=\"" + kUri11 +
                             "\"><soap:Body>b</soap:Body><soap:Header>h</soap:Header></soap:Envelope>"));
}

TEST(Part61Failures, UnclosedBodyGivesNull) {
    EXPECT_EQ(nullptr, parse(request("soap", kUri11, "<soap:Header>h</soap:Header>", "<soap:Body>b")));
    EXPECT_EQ(nullptr, parse(request("soap", kUri11, "", "<soap:Body/>")));
    EXPECT_EQ(nullptr, parse(request("soap", kUri11, "", "<soap:Body>b</s:Body>")));
}

// ---- assembly() and toText() ---------------------------------------------------

// The spec's pieces, one literal string: header present.
TEST(Part61Assembly, EnvelopeWithHeaderIsAssembledByteForByte) {
    QKLSoapEnvelope envelope(kUri12);
    envelope.setHeader("<packet_header id=\"7\"/>\n");
    envelope.setBody("<m:op xmlns:m=\"urn:m\"/>\n");
    EXPECT_EQ("<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
              "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
              "<soap:Header>\n<packet_header id=\"7\"/>\n</soap:Header>\n"
              "<soap:Body>\n<m:op xmlns:m=\"urn:m\"/>\n</soap:Body>\n</soap:Envelope>",
              takeText(envelope.assembly()));
}

// "then, only if the header is not empty, ..." - and an empty body still
// gives the Body element.
TEST(Part61Assembly, EnvelopeWithoutHeaderIsAssembledByteForByte) {
    QKLSoapEnvelope envelope(kUri11);
    EXPECT_EQ("<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
              "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
              "<soap:Body>\n</soap:Body>\n</soap:Envelope>",
              takeText(envelope.assembly()));
    envelope.setBody("b");
    EXPECT_EQ(kHead11 + "<soap:Body>\nb" + kTail, takeText(envelope.assembly()));
}

// The URI goes in as it is, even empty or foreign.
TEST(Part61Assembly, NamespaceUriIsWrittenAsItIs) {
    QKLSoapEnvelope empty("");
    EXPECT_EQ(0u, takeText(empty.assembly()).find("<soap:Envelope xmlns:soap=\"\" xmlns:xsd=\""));
    QKLSoapEnvelope other("urn:other");
    EXPECT_EQ(0u, takeText(other.assembly()).find("<soap:Envelope xmlns:soap=\"urn:other\" xmlns:xsd=\""));
}

// "The result is copied into a fresh `malloc` buffer of length plus one with a
// terminating zero byte"; takeText releases it with free (ASan checks the
// pairing), and each call gives a fresh buffer.
TEST(Part61Assembly, ResultIsAFreshMallocBufferWithATerminatingZero) {
    QKLSoapEnvelope envelope(kUri11);
    envelope.setBody("b");
    const std::string expected = kHead11 + "<soap:Body>\nb" + kTail;
    char* first = envelope.assembly();
    char* second = envelope.assembly();
    ASSERT_NE(nullptr, first);
    ASSERT_NE(nullptr, second);
    EXPECT_NE(first, second);
    EXPECT_EQ(0, std::memcmp(first, expected.c_str(), expected.size() + 1));  // the zero included
    std::free(first);
    std::free(second);
}

// "for the plain envelope it is `assembly()`."
TEST(Part61Assembly, PlainEnvelopeToTextEqualsAssembly) {
    const Envelope envelope = parse(kRequest12);
    ASSERT_NE(nullptr, envelope);
    const std::string assembled = takeText(envelope->assembly());
    EXPECT_EQ(kHead12 + "<soap:Header>\n" + kHeader12 + "</soap:Header>\n<soap:Body>\n" + kBody12 + kTail,
              assembled);
    EXPECT_EQ(assembled, takeText(envelope->toText()));
}

// ---- Faults ---------------------------------------------------------------------

namespace {

struct FaultCase {
    SoapVersion version;
    QKLSoapFault::Code code;
    const char* codeName;  // the spec's code string for this version
    const char* detail;
};

void PrintTo(const FaultCase& c, std::ostream* os) {
    *os << "SOAP " << c.version << " code " << c.code << " detail \"" << c.detail << "\"";
}

class Part61FaultText : public ::testing::TestWithParam<FaultCase> {};

}  // namespace

// The full text of every code's fault for both versions, with and without
// detail, against the spec's pieces.
TEST_P(Part61FaultText, ToTextIsTheSpecsPiecesByteForByte) {
    const FaultCase& c = GetParam();
    const Fault fault(QKLSoapFault::createSoapFault(c.version, c.code, "Something failed"));
    ASSERT_NE(nullptr, fault);
    fault->setDetail(c.detail);
    const std::string expected = c.version == QKL::SOAP_1_1
                                     ? expectedFault11(c.codeName, "Something failed", c.detail)
                                     : expectedFault12(c.codeName, "Something failed", c.detail);
    EXPECT_EQ(expected, takeText(fault->toText()));
}

INSTANTIATE_TEST_SUITE_P(
    Part61Faults, Part61FaultText,
    ::testing::Values(FaultCase{QKL::SOAP_1_1, QKLSoapFault::VersionMismatch, "VersionMismatch", ""},
                      FaultCase{QKL::SOAP_1_1, QKLSoapFault::MustUnderstand, "MustUnderstand", ""},
                      FaultCase{QKL::SOAP_1_1, QKLSoapFault::ClientError, "Client", ""},
                      FaultCase{QKL::SOAP_1_1, QKLSoapFault::ServerError, "Server", ""},
                      FaultCase{QKL::SOAP_1_1, QKLSoapFault::VersionMismatch, "VersionMismatch", "<e>1</e>\n"},
                      FaultCase{QKL::SOAP_1_1, QKLSoapFault::MustUnderstand, "MustUnderstand", "<e>1</e>\n"},
                      FaultCase{QKL::SOAP_1_1, QKLSoapFault::ClientError, "Client", "<e>1</e>\n"},
                      FaultCase{QKL::SOAP_1_1, QKLSoapFault::ServerError, "Server", "<e>1</e>\n"},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::VersionMismatch, "VersionMismatch", ""},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::MustUnderstand, "MustUnderstand", ""},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::ClientError, "Sender", ""},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::ServerError, "Receiver", ""},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::VersionMismatch, "VersionMismatch", "<e>1</e>\n"},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::MustUnderstand, "MustUnderstand", "<e>1</e>\n"},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::ClientError, "Sender", "<e>1</e>\n"},
                      FaultCase{QKL::SOAP_1_2, QKLSoapFault::ServerError, "Receiver", "<e>1</e>\n"}));

// Two cases written out in one piece each, so the helpers above are checked too.
TEST(Part61Faults, Soap11ClientFaultLiteralText) {
    QKLSoapFault11 fault(QKLSoapFault::ClientError, "Version mismatch");
    EXPECT_EQ("<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
              "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
              "<soap:Body>\n<soap:Fault>\n<faultcode>soap:Client</faultcode>\n"
              "<faultstring>Version mismatch</faultstring>\n</soap:Fault>\n</soap:Body>\n</soap:Envelope>",
              takeText(fault.toText()));
}

TEST(Part61Faults, Soap12ReceiverFaultWithDetailLiteralText) {
    QKLSoapFault12 fault(QKLSoapFault::ServerError, "disk full");
    fault.setDetail("<e>28</e>");
    EXPECT_EQ("<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
              "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
              "<soap:Body>\n<soap:Fault>\n<soap:Code>\n<soap:Value>soap:Receiver</soap:Value>\n</soap:Code>\n"
              "<soap:Reason>\n<soap:Text>disk full</soap:Text>\n</soap:Reason>\n"
              "<detail>\n<e>28</e></detail>\n</soap:Fault>\n</soap:Body>\n</soap:Envelope>",
              takeText(fault.toText()));
}

// "The fault string is inserted as it is, without escaping."
TEST(Part61Faults, FaultStringIsInsertedWithoutEscaping) {
    QKLSoapFault11 fault11(QKLSoapFault::ServerError, "a<b&c");
    EXPECT_EQ(expectedFault11("Server", "a<b&c", ""), takeText(fault11.toText()));
    QKLSoapFault12 fault12(QKLSoapFault::ServerError, "a<b&c");
    EXPECT_EQ(expectedFault12("Receiver", "a<b&c", ""), takeText(fault12.toText()));
}

// "Fault `toText()` writes the fault element into the body field": the body is
// rewritten on every call, not appended to, and follows a later detail.
TEST(Part61Faults, ToTextRewritesTheBody) {
    QKLSoapFault12 fault(QKLSoapFault::ClientError, "bad");
    const std::string first = takeText(fault.toText());
    EXPECT_EQ(first, takeText(fault.toText()));
    EXPECT_EQ("<soap:Fault>\n<soap:Code>\n<soap:Value>soap:Sender</soap:Value>\n</soap:Code>\n"
              "<soap:Reason>\n<soap:Text>bad</soap:Text>\n</soap:Reason>\n</soap:Fault>\n",
              fault.getBody());
    fault.setDetail("d");
    EXPECT_EQ(expectedFault12("Sender", "bad", "d"), takeText(fault.toText()));
}

// "the base gives "VersionMismatch" for 0, "MustUnderstand" for 1 ... SOAP 1.1
// then maps 2 to "Client" and 3 to "Server"; SOAP 1.2 maps 2 to "Sender" and
// 3 to "Receiver"". Known codes assert nothing.
TEST(Part61Faults, FaultCodeToStringNamesEveryKnownCode) {
    const QKLSoapFault11 fault11(QKLSoapFault::ServerError, "x");
    const QKLSoapFault12 fault12(QKLSoapFault::ServerError, "x");
    const QKLSoapFault& base11 = fault11;  // called through the base, as callers do
    const QKLSoapFault& base12 = fault12;
    QKLTest::AssertCounter asserts;
    EXPECT_EQ("VersionMismatch", base11.faultCodeToString(QKLSoapFault::VersionMismatch));
    EXPECT_EQ("MustUnderstand", base11.faultCodeToString(QKLSoapFault::MustUnderstand));
    EXPECT_EQ("Client", base11.faultCodeToString(QKLSoapFault::ClientError));
    EXPECT_EQ("Server", base11.faultCodeToString(QKLSoapFault::ServerError));
    EXPECT_EQ("VersionMismatch", base12.faultCodeToString(QKLSoapFault::VersionMismatch));
    EXPECT_EQ("MustUnderstand", base12.faultCodeToString(QKLSoapFault::MustUnderstand));
    EXPECT_EQ("Sender", base12.faultCodeToString(QKLSoapFault::ClientError));
    EXPECT_EQ("Receiver", base12.faultCodeToString(QKLSoapFault::ServerError));
    EXPECT_EQ(0u, asserts.reports());
}

// "an unknown code is an assertion failure" (and the base's "empty otherwise").
TEST(Part61Faults, FaultCodeToStringOfAnUnknownCodeAssertsOnceAndGivesEmpty) {
    const QKLSoapFault11 fault11(QKLSoapFault::ServerError, "x");
    const QKLSoapFault12 fault12(QKLSoapFault::ServerError, "x");
    for (const QKLSoapFault* fault : {static_cast<const QKLSoapFault*>(&fault11),
                                      static_cast<const QKLSoapFault*>(&fault12)}) {
        QKLTest::AssertCounter asserts;
        EXPECT_EQ("", fault->faultCodeToString(code(7)));
        EXPECT_EQ(1u, asserts.reports());
    }
}

// "version 1 makes a `QKLSoapFault11`, 2 a `QKLSoapFault12`"
TEST(Part61Faults, CreateSoapFaultMakesTheVersionsClass) {
    const Fault fault11(QKLSoapFault::createSoapFault(QKL::SOAP_1_1, QKLSoapFault::ClientError, "text 1"));
    ASSERT_NE(nullptr, fault11);
    EXPECT_NE(nullptr, dynamic_cast<QKLSoapFault11*>(fault11.get()));
    EXPECT_EQ(nullptr, dynamic_cast<QKLSoapFault12*>(fault11.get()));
    EXPECT_EQ(kUri11, fault11->getNamespaceURI());
    EXPECT_EQ(QKLSoapFault::ClientError, fault11->getCode());
    EXPECT_EQ("text 1", fault11->getFaultString());

    const Fault fault12(QKLSoapFault::createSoapFault(QKL::SOAP_1_2, QKLSoapFault::MustUnderstand, "text 2"));
    ASSERT_NE(nullptr, fault12);
    EXPECT_NE(nullptr, dynamic_cast<QKLSoapFault12*>(fault12.get()));
    EXPECT_EQ(nullptr, dynamic_cast<QKLSoapFault11*>(fault12.get()));
    EXPECT_EQ(kUri12, fault12->getNamespaceURI());
    EXPECT_EQ(QKLSoapFault::MustUnderstand, fault12->getCode());
    EXPECT_EQ("text 2", fault12->getFaultString());
}

// A fault handed around as an envelope still renders as a fault (toText is
// virtual, slot 2 of the envelope).
TEST(Part61Faults, FaultToTextThroughTheEnvelopeRendersTheFault) {
    const Envelope envelope(QKLSoapFault::createSoapFault(QKL::SOAP_1_1, QKLSoapFault::ServerError, "down"));
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(expectedFault11("Server", "down", ""), takeText(envelope->toText()));
}

// The faults the converter makes are written the same way: a SOAP-ENV
// request without a Body (fromText gives null, Part 6.2 answers "Version
// mismatch" in SOAP 1.1) is answered with the prefix "soap".
TEST(Part61Faults, ConverterFaultForASoapEnvRequestUsesThePrefixSoap) {
    const std::string text = "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"" + kUri11 + "\"></SOAP-ENV:Envelope>";
    QKL::auto_destroy<QKL::QKLMessage> msg(QKL::QKLMsgFactory::createNew());
    ASSERT_TRUE(msg);
    QKLSoapConverter converter;
    const std::unique_ptr<char[]> buffer = exactCopy(text);
    ASSERT_EQ(-1, converter.soapToQklmsg(buffer.get(), *msg));
    ASSERT_NE(nullptr, converter.getFault());
    EXPECT_EQ(expectedFault11("VersionMismatch", "Version mismatch", ""),
              takeText(converter.getFault()->toText()));
}

// ---- getSoapURIByVersion ------------------------------------------------------

// "walks `SoapVersionMap` in key order and returns the first URI mapped to the
// version"
TEST(Part61Converter, GetSoapURIByVersionGivesTheEnvelopeNamespaces) {
    EXPECT_EQ(kUri11, QKLSoapConverter::getSoapURIByVersion(QKL::SOAP_1_1));
    EXPECT_EQ(kUri12, QKLSoapConverter::getSoapURIByVersion(QKL::SOAP_1_2));
}

// ---- Bad input ------------------------------------------------------------------

// The real SOAP 1.2 request cut at every length: null until the Body's closing
// name is complete (step 5), after that the envelope with the body cut short
// only by the end of the text.
TEST(Part61BadInput, TruncatedRequestAtEveryLength) {
    const size_t closing = kRequest12.find("</soap:Body") + std::strlen("</soap:Body");
    for (size_t length = 0; length <= kRequest12.size(); ++length) {
        SCOPED_TRACE(length);
        const Envelope envelope = parseCheckingPieces(kRequest12.substr(0, length));
        if (length < closing) {
            EXPECT_EQ(nullptr, envelope);
            continue;
        }
        ASSERT_NE(nullptr, envelope);
        EXPECT_EQ(kUri12, envelope->getNamespaceURI());
        EXPECT_EQ(kHeader12, envelope->getHeader());
        EXPECT_EQ(length == closing ? kBody12.substr(0, kBody12.size() - 1) : kBody12, envelope->getBody());
    }
}

TEST(Part61BadInput, RandomBytesNeverCrash) {
    std::mt19937 random(61);
    std::uniform_int_distribution<int> byte(1, 255);
    std::uniform_int_distribution<size_t> length(0, 300);
    for (int i = 0; i < 3000; ++i) {
        std::string text(length(random), '\0');
        for (char& c : text) c = static_cast<char>(byte(random));
        parseCheckingPieces(text);
    }
}

// Strings over the tokens the parser looks for, so that the searches meet
// each other in every order; some whole pieces make complete envelopes likely.
TEST(Part61BadInput, RandomTokenStringsNeverCrash) {
    const std::vector<std::string> tokens = {
        "<", ":envelope ", "xmlns:", "\"", "soap", ":Header", ":Body", "</", ">", " ", "x", "\n",
        "<soap:Envelope ", "xmlns:soap=\"", "<soap:Header>", "</soap:Header>", "<soap:Body>", "</soap:Body>"};
    std::mt19937 random(6101);
    std::uniform_int_distribution<size_t> pick(0, tokens.size() - 1);
    std::uniform_int_distribution<int> count(0, 40);
    int envelopes = 0;
    for (int i = 0; i < 5000; ++i) {
        std::string text;
        for (int n = count(random); n > 0; --n) text += tokens[pick(random)];
        if (parseCheckingPieces(text)) ++envelopes;
    }
    // The strings must reach the success path, or the test checks little.
    EXPECT_GT(envelopes, 0);
}

// A huge Header is cut out whole: the header's length is exact.
TEST(Part61BadInput, OneMegabyteHeaderParsesWithExactLength) {
    const std::string header = "<soap:Header>" + std::string(1 << 20, 'h') + "</soap:Header>";
    const Envelope envelope = parse(request("soap", kUri12, header, "<soap:Body>b</soap:Body>"));
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ(header.size(), envelope->getHeader().size());
    EXPECT_EQ(header, envelope->getHeader());
    EXPECT_EQ("<soap:Body>b</soap:Body>", envelope->getBody());
}

// Without the declaration's quotes, step 3 takes "the next double quote and
// the one after it" wherever they are; with no quote left, null.
TEST(Part61BadInput, MissingQuotes) {
    // Every single double quote of the request dropped in turn.
    for (size_t at = kRequest12.find('"'); at != std::string::npos; at = kRequest12.find('"', at + 1)) {
        SCOPED_TRACE(at);
        std::string text = kRequest12;
        text.erase(at, 1);
        parseCheckingPieces(text);
    }
    // Both quotes of the envelope's declaration gone: the URI is the next
    // quoted value (the packet header's namespace), and the Header, which
    // starts before it, is not seen; the Body still is.
    const std::string unquoted = "<soap:Envelope xmlns:soap=" + kUri12 + ">\n" + kHeader12 + "\n" + kBody12;
    const Envelope envelope = parseCheckingPieces(unquoted);
    ASSERT_NE(nullptr, envelope);
    EXPECT_EQ("urn:x/4.5.0/protocol", envelope->getNamespaceURI());
    EXPECT_EQ("", envelope->getHeader());
    EXPECT_EQ(kBody12, envelope->getBody());
    // No double quote anywhere: null.
    std::string none = kRequest12;
    for (char& c : none)
        if (c == '"') c = '\'';
    EXPECT_EQ(nullptr, parseCheckingPieces(none));
}
