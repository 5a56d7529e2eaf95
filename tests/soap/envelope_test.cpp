// SOAP envelopes cut out of request text and assembled for replies, the map of
// envelope namespaces to SOAP versions, and the faults. Whole fault envelopes
// of every code the bridge gives are pinned by the golden files of bridge_test.cpp.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "qkl/QKL.h"
#include "support/AssertCounter.h"
#include "support/Files.h"

using namespace QKL;

using QKLTest::readFile;

namespace {

const std::string URI11 = "http://schemas.xmlsoap.org/soap/envelope/";
const std::string URI12 = "http://www.w3.org/2003/05/soap-envelope";
const std::string ROOT = "<soap:Envelope xmlns:soap=\"" + URI11 + "\">";

// A malloc'ed text as a string, released with free as callers must.
std::string take(char* text) {
    const std::string copy = text != nullptr ? text : "(null)";
    std::free(text);
    return copy;
}

// fromText on a heap copy of exactly the text's size, so that the sanitizers see a read past its zero byte.
std::unique_ptr<QKLSoapEnvelope> parse(const std::string& text) {
    const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
    std::memcpy(exact.get(), text.c_str(), text.size() + 1);
    return std::unique_ptr<QKLSoapEnvelope>(QKLSoapEnvelope::fromText(exact.get()));
}

}  // namespace

// tests/data/soap/envelopes/NAME.xml against NAME.expected: the envelope cut
// out of it as assembly() writes it back (the cut Header and Body elements
// inside its own, and a line end), or nothing when the text is refused.
TEST(EnvelopeFromText, EachGoldenTextIsCutIntoNamespaceHeaderAndBodyOrRefused) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(QKL_TEST_DATA_DIR) + "/soap/envelopes")) {
        if (entry.path().extension() != ".xml") continue;
        ++files;
        const std::unique_ptr<QKLSoapEnvelope> envelope = parse(readFile(entry.path().string()));
        std::filesystem::path expected = entry.path();
        EXPECT_EQ(readFile(expected.replace_extension(".expected").string()),
                  envelope != nullptr ? take(envelope->toText()) + "\n" : "") << entry.path().filename();
    }
    EXPECT_GE(files, 16);
    EXPECT_EQ(nullptr, QKLSoapEnvelope::fromText(nullptr));
}

// Cut short, a request is refused until its Body's closing name is complete.
TEST(EnvelopeFromText, RequestCutShortIsRefusedUntilItsBodyCloses) {
    const std::string request = ROOT + "\n<soap:Header><h>1</h></soap:Header>\n<soap:Body><op>2</op></soap:Body>";
    const std::size_t complete = request.rfind("</soap:Body") + std::strlen("</soap:Body");
    for (std::size_t length = 0; length <= request.size(); ++length)
        EXPECT_EQ(length >= complete, parse(request.substr(0, length)) != nullptr) << length;
}

TEST(EnvelopeAssembly, WritesTheFixedPiecesAndTheHeaderOnlyWhenItIsNotEmpty) {
    const std::string head = "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
        "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";
    QKLSoapEnvelope envelope(URI12);
    envelope.setBody("<op/>\n");
    EXPECT_EQ(head + "<soap:Body>\n<op/>\n</soap:Body>\n</soap:Envelope>", take(envelope.assembly()));
    envelope.setHeader("<packet_header id=\"7\"/>\n");
    EXPECT_EQ(head + "<soap:Header>\n<packet_header id=\"7\"/>\n</soap:Header>\n<soap:Body>\n<op/>\n</soap:Body>\n"
              "</soap:Envelope>", take(envelope.toText()));
}

// The empty URI is a real entry, kept on purpose: an envelope declared with
// xmlns:soap="" is SOAP version 0 rather than an unknown namespace.
TEST(SoapVersionMap, HoldsBothEnvelopeNamespacesAndTheEmptyUriForVersionNone) {
    const SoapVersionMap expected = {{URI11, SOAP_1_1}, {URI12, SOAP_1_2}, {"", SOAP_NONE}};
    EXPECT_EQ(expected, soapVersionMap());
    const std::string byVersion[] = {"", URI11, URI12, ""};
    for (int version = 0; version < 4; ++version)
        EXPECT_EQ(byVersion[version], QKLSoapConverter::getSoapURIByVersion(SoapVersion(version))) << version;
    EXPECT_EQ(nullptr, QKLSoapFault::createSoapFault(SOAP_NONE, QKLSoapFault::ClientError, "x"));
    EXPECT_EQ(nullptr, QKLSoapFault::createSoapFault(SoapVersion(3), QKLSoapFault::ClientError, "x"));
}

// Codes 0 to 3 by name, then the unknown code 7, which asserts once. The
// fault string goes in as it is (callers pass plain text), and each toText()
// writes the fault element into the body afresh.
TEST(SoapFault, NamesEveryCodeOfItsVersionAndWritesTheFaultStringAsItIs) {
    const std::pair<SoapVersion, std::string> rows[] = {{SOAP_1_1, "VersionMismatch|MustUnderstand|Client|Server||"},
                                                        {SOAP_1_2, "VersionMismatch|MustUnderstand|Sender|Receiver||"}};
    for (const auto& [version, names] : rows) {
        const std::unique_ptr<QKLSoapFault> fault(
            QKLSoapFault::createSoapFault(version, QKLSoapFault::ClientError, "a<b"));
        ASSERT_NE(nullptr, fault);
        const QKLTest::AssertCounter asserts;
        std::string named;
        for (const int code : {0, 1, 2, 3, 7}) named += fault->faultCodeToString(QKLSoapFault::Code(code)) + "|";
        EXPECT_EQ(names, named);
        EXPECT_EQ(1u, asserts.reports());
        const std::string text = take(fault->toText());
        EXPECT_NE(std::string::npos, text.find(">a<b</")) << text;
        EXPECT_EQ(text, take(fault->toText()));
    }
}
