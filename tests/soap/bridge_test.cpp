// The SOAP bridge on whole texts: requests (tests/data/soap/requests/NAME.xml)
// against the message text or fault envelope they become (NAME.expected, empty
// when their SOAP version has no fault envelope), replies (replies/NAME.xml)
// against their SOAP answers (NAME.soap11, NAME.soap12); each text ends in a line end, as qklmsg prints it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

#include "qkl/QKL.h"
#include "support/ChildProcess.h"
#include "support/Files.h"

using namespace QKL;

using QKLTest::readFile;

namespace {

const std::string DATA = std::string(QKL_TEST_DATA_DIR) + "/soap/";
constexpr std::size_t npos = std::string::npos;

// The names of a folder's ".xml" files, without the extension, in order.
std::set<std::string> inputsOf(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(DATA + folder))
        if (entry.path().extension() == ".xml") names.insert(entry.path().stem().string());
    return names;
}

// A rendering from the library as the golden files hold it; "" for none.
std::string printed(const Buffer& text) { return text ? std::string(text.view()) + "\n" : std::string(); }

std::string faultOf(const QKLSoapConverter& c) { return c.getFault() ? printed(toText(*c.getFault())) : std::string(); }

// The request NAME converted: the result, and the message text or (when refused) the fault envelope.
std::pair<int, std::string> converted(QKLSoapConverter& converter, const std::string& name) {
    const std::string text = readFile(DATA + "requests/" + name + ".xml");
    if (QKLSoapConverter::neverCompletes(text.c_str())) return {1, "(never completes)"};
    const MessagePtr msg = makeMessage();
    const int result = converter.soapToQklmsg(text.c_str(), *msg);
    return {result, result ? faultOf(converter) : printed(toText(*msg))};
}

MessagePtr replyFrom(const std::string& name) {
    const std::string text = readFile(DATA + "replies/" + name + ".xml");
    return parse(text.c_str(), text.size() + 1);
}

}  // namespace

// One converter for all: each conversion starts afresh. The SOAP version is
// the one the name gives; a request refused before its version is known is answered in SOAP 1.1.
TEST(SoapRequests, EachGoldenRequestBecomesItsMessageTextOrFault) {
    QKLSoapConverter converter;
    const std::set<std::string> names = inputsOf("requests");
    ASSERT_GE(names.size(), 25u);
    for (const std::string& name : names) {
        const std::string expected = readFile(DATA + "requests/" + name + ".expected");
        const auto [result, output] = converted(converter, name);
        EXPECT_EQ(expected, output) << name;
        EXPECT_EQ(expected.empty() || expected.rfind("<soap:Envelope", 0) == 0 ? -1 : 0, result) << name;
        const bool none = name.find("empty_envelope_namespace") != npos, soap12 = name.find("soap12") != npos;
        EXPECT_EQ(none ? SOAP_NONE : soap12 ? SOAP_1_2 : SOAP_1_1, converter.getSoapVersion()) << name;
    }
}

// Rules kept as built, each shown by a golden request and a piece of its
// output (after "!": a piece that must not appear).
TEST(SoapRequests, RulesKeptOnPurpose) {
    const std::pair<const char*, std::string> rules[] = {
        // A prefix is looked up by plain text in the whole request: "ns" takes a "ns1" declared first.
        {"kept_prefix_ns_takes_ns1", "<target>first_op</target>"},
        // The operator "system" is never given a target child.
        {"kept_system_gets_no_target", "!<target>"},
        // The xsi declaration goes in before the first ">", so behind the "/" of a self-closing operation.
        {"kept_self_closing_operation_refused", "Soap message body cannot be converted to QKAgent message"},
        // Only the operation's own text is read: a type prefix declared outside it is unknown there.
        {"kept_xsi_type_prefix_outside_operation_refused", "Soap message body cannot be converted to QKAgent message"},
        // An empty envelope namespace is SOAP version 0, which has no fault envelope.
        {"kept_empty_envelope_namespace_no_fault", "!<"}};
    for (const auto& [request, piece] : rules) {
        QKLSoapConverter converter;
        const std::string output = converted(converter, request).second;
        EXPECT_EQ(piece[0] == '!', output.find(piece.substr(piece[0] == '!')) == npos) << request << "\n" << output;
    }
}

// A Body whose first element is a comment or declaration is never answered:
// the search for the operation finds the same "<" again and again. Callers
// facing untrusted clients refuse such requests first, with neverCompletes().
TEST(SoapRequests, CommentFirstBodyIsNeverAnsweredAndNeverCompletesTellsItApart) {
    const std::string root = "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\"><soap:Body>";
    const std::string operation = "<GetList xmlns=\"http://www.qkl.example/webservices/qkl/4.5.0/env\"></GetList>";
    const std::pair<std::string, bool> rows[] = {
        {root + "<!-- note -->" + operation + "</soap:Body>", true},
        {root + "<!DOCTYPE x>" + operation + "</soap:Body>", true},
        {root + operation + "<!-- note --></soap:Body>", false},
        // Refused before the Body is read.
        {"<soap:Envelope xmlns:soap=\"urn:x\"><soap:Body><!-- note --></soap:Body>", false}};
    for (const auto& [text, never] : rows) EXPECT_EQ(never, QKLSoapConverter::neverCompletes(text.c_str())) << text;
    EXPECT_EQ(QKLTest::ChildEnd::StillRunning, QKLTest::runInChild(QKLTest::noSetup, [&rows] {
                  QKLSoapConverter converter;
                  const MessagePtr msg = makeMessage();
                  converter.soapToQklmsg(rows[0].first.c_str(), *msg);
              }));
}

// Only the converter's own refusals carry the Client / Sender code; an agent
// error is answered with a Server / Receiver fault as a successful result.
TEST(SoapReplies, EachGoldenReplyBecomesItsSoap11AndSoap12ResponseOrFault) {
    QKLSoapConverter converter;
    const std::set<std::string> names = inputsOf("replies");
    ASSERT_GE(names.size(), 15u);
    for (const std::string& name : names) {
        for (const SoapVersion version : {SOAP_1_1, SOAP_1_2}) {
            const std::string golden = name + (version == SOAP_1_1 ? ".soap11" : ".soap12");
            const std::string expected = readFile(DATA + "replies/" + golden);
            const MessagePtr reply = replyFrom(name);
            ASSERT_TRUE(reply) << name;
            const SoapEnvelopePtr envelope = toSoap(converter, *reply, version);
            const bool refused = expected.find(version == SOAP_1_1 ? "soap:Client<" : "soap:Sender<") != npos;
            ASSERT_EQ(refused, envelope == nullptr) << golden;
            EXPECT_EQ(expected, refused ? faultOf(converter) : printed(toText(*envelope))) << golden;
        }
    }
}

// Refusals no golden text can hold: an element nested deeper than the writer
// follows, and SOAP versions without a fault envelope of their own, whose
// refusals fall back to SOAP 1.1, except the last step's: it stores the version's fault as it is, none.
TEST(SoapReplies, UnrenderableElementsAndUnknownVersionsAreRefused) {
    const std::tuple<const char*, std::string, int, std::string> rows[] = {
        {"getlist", "data/error", 2, "Cannot get system error from QKAgent message"},
        {"operator_errors", "data/env_manager/error", 1, "Cannot get operator error from QKAgent message"},
        {"getlist", "data/env_manager/deep", 2, "Cannot get response from QKAgent message"},
        {"getlist", "trace", 1, "Cannot parse QKAgent message"},
        {"no_cookie", "", 3, "Unsupported soap version"},
        {"data_errors", "", 0, "Unsupported soap version"},
        {"getlist", "", 0, ""},
        {"getlist", "", 3, ""}};
    for (const auto& [name, chainAt, version, text] : rows) {
        SCOPED_TRACE(name + (" " + chainAt) + " " + std::to_string(version));
        const MessagePtr reply = replyFrom(name);
        const std::unique_ptr<QKLMessageIterator> it(reply->newIterator());
        const std::size_t slash = chainAt.rfind('/');
        ASSERT_EQ(0, it->seek(slash == npos ? "" : chainAt.substr(0, slash)));
        for (int level = 0; !chainAt.empty() && level <= QKLBinary::MAX_TEXT_DEPTH; ++level)
            ASSERT_EQ(0, it->newChild(level == 0 ? chainAt.substr(slash + 1) : "level"));
        QKLSoapConverter converter;
        QKLSoapEnvelope unchanged("");
        QKLSoapEnvelope* made = &unchanged;
        EXPECT_EQ(-1, converter.qklmsgToSoap(*reply, SoapVersion(version), made));
        EXPECT_EQ(nullptr, made);
        const QKLSoapFault* fault = converter.getFault();
        ASSERT_EQ(!text.empty(), fault != nullptr);
        if (fault == nullptr) continue;
        EXPECT_EQ(text, fault->getFaultString());
        EXPECT_EQ(QKLSoapFault::ClientError, fault->getCode());
        EXPECT_EQ(QKLSoapConverter::getSoapURIByVersion(version == 2 ? SOAP_1_2 : SOAP_1_1), fault->getNamespaceURI());
    }
}
