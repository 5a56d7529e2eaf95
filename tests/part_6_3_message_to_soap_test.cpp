// Part 6.3: Message to SOAP. QKLSoapConverter::qklmsgToSoap turns the agent's
// reply into a SOAP response ("<operation>Response" in the client's namespace,
// the reply header as the SOAP Header's packet_header) or a Server/Receiver
// fault carrying the reply's "error" elements.
//
// Replies are built either with the message API (a "packet" with a cookie
// 1400 holding 1322 "request" = operation name and 1026 "name" = operation
// namespace, and "data"/<operator>/...) or, in the round trips, by converting a
// SOAP request with soapToQklmsg (Part 6.2) and calling genReply (Part 1.1).
//
// Expected texts are built from the spec's own pieces: Part 6.1's assembly()
// and fault layouts, Part 5.1's element form, and Part 6.3's header rewrite.
//
// HAZARD (Part 6.2): soapToQklmsg never returns when the Body's first "<" is
// followed by "!"; no request in this file starts its Body with a comment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "qkl/QKL.h"
#include "support/AssertCounter.h"

using QKL::auto_destroy;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;
using QKL::QKLMsgFactory;
using QKL::QKLSoapConverter;
using QKL::QKLSoapEnvelope;
using QKL::QKLSoapFault;
using QKL::QKLSoapFault11;
using QKL::QKLSoapFault12;
using QKL::SoapVersion;

namespace {

// The namespace base documented in QKLSoapConverter.h (the spec leaves its value open).
const std::string BASE = "http://www.qkl.example/webservices/qkl/";
const std::string SOAP11_URI = "http://schemas.xmlsoap.org/soap/envelope/";
const std::string SOAP12_URI = "http://www.w3.org/2003/05/soap-envelope";
const std::string XSD_URI = "http://www.w3.org/2001/XMLSchema";
const std::string XSI_URI = "http://www.w3.org/2001/XMLSchema-instance";

// Element IDs of the default vocabulary the bridge addresses (Part 6.2).
const int COOKIE = 1400, REQUEST = 1322, NAME = 1026;

// The client's operation as Part 6.2 leaves it in the cookie.
const std::string OPERATION = "getlist";
const std::string OPERATION_NS = BASE + "4.5.0/env_manager";

const SoapVersion BOTH_VERSIONS[] = {QKL::SOAP_1_1, QKL::SOAP_1_2};

// A malloc'ed text (toText) as a string, freed; null becomes a marker no test expects.
std::string take(char* text) {
    if (text == nullptr) return "(null)";
    std::string out(text);
    std::free(text);
    return out;
}

void replaceAll(std::string& text, const std::string& pattern, const std::string& replacement) {
    for (std::string::size_type at = text.find(pattern); at != std::string::npos;
         at = text.find(pattern, at + replacement.size()))
        text.replace(at, pattern.size(), replacement);
}

std::string soapURI(SoapVersion version) { return version == QKL::SOAP_1_2 ? SOAP12_URI : SOAP11_URI; }

// Part 6.1 assembly(): the envelope text exactly, Header only when not empty.
std::string assembled(const std::string& uri, const std::string& header, const std::string& body) {
    std::string text = "<soap:Envelope xmlns:soap=\"" + uri + "\" xmlns:xsd=\"" + XSD_URI + "\" xmlns:xsi=\"" +
                       XSI_URI + "\">\n";
    if (!header.empty()) text += "<soap:Header>\n" + header + "</soap:Header>\n";
    return text + "<soap:Body>\n" + body + "</soap:Body>\n</soap:Envelope>";
}

// Part 6.1: the Fault element of "QKAgent responded with error" (code 3) with a detail.
std::string serverFaultBody(SoapVersion version, const std::string& detail) {
    const std::string detailBlock = "<detail>\n" + detail + "</detail>\n";
    if (version == QKL::SOAP_1_2)
        return "<soap:Fault>\n<soap:Code>\n<soap:Value>soap:Receiver</soap:Value>\n</soap:Code>\n"
               "<soap:Reason>\n<soap:Text>QKAgent responded with error</soap:Text>\n</soap:Reason>\n" +
               detailBlock + "</soap:Fault>\n";
    return "<soap:Fault>\n<faultcode>soap:Server</faultcode>\n"
           "<faultstring>QKAgent responded with error</faultstring>\n" +
           detailBlock + "</soap:Fault>\n";
}

// "<getlistResponse xmlns="N">\n" + content + "</getlistResponse>\n" (Part 6.3 step 7).
std::string response(const std::string& content, const std::string& op = OPERATION,
                     const std::string& ns = OPERATION_NS) {
    return "<" + op + "Response xmlns=\"" + ns + "\">\n" + content + "</" + op + "Response>\n";
}

// Part 6.3 step 8 applied to the reply as it stands after the call (its "data"
// already deleted): every "<packet" and "/packet>" rewritten.
std::string packetHeader(const QKLMessage& reply, const std::string& versionSegment) {
    std::string text = take(reply.toText(nullptr, BASE + versionSegment, QKLMessageIterator::TEXT_FLAGS));
    replaceAll(text, "<packet", "<packet_header xmlns=\"" + BASE + versionSegment + "protocol\"");
    replaceAll(text, "/packet>", "/packet_header>");
    return text;
}

// A reply under construction: a new binary message with a "packet" root and an
// iterator that walks down with down(), back with up().
class Reply {
public:
    Reply() : m_msg(QKLMsgFactory::createNew()) {
        EXPECT_TRUE(m_msg);
        EXPECT_EQ(0, m_msg->create("packet"));
        m_it.reset(m_msg->newIterator());
    }
    QKLMessage& msg() { return *m_msg; }
    QKLMessageIterator& it() { return *m_it; }

    Reply& root() {
        m_it->seekRoot();
        return *this;
    }
    // A new child named `name`; the iterator goes into it.
    Reply& down(const std::string& name) {
        EXPECT_EQ(0, m_it->newChild(name)) << name;
        return *this;
    }
    Reply& up() {
        EXPECT_EQ(0, m_it->seekUp());
        return *this;
    }
    // A text value on the current element. By ID 0, because a write by the empty
    // name would move the iterator to the parent (Part 3.2).
    Reply& value(const std::string& text) {
        const int current = 0;
        EXPECT_EQ(0, m_it->putValue(text, current));
        return *this;
    }
    // A new child with a text value (never merged with an existing one of that name).
    Reply& leaf(const std::string& name, const std::string& text) { return down(name).value(text).up(); }
    // A chain of `depth` nested elements below the current one, deeper than the
    // XML writer follows (QKLBinary::MAX_TEXT_DEPTH), so it cannot be rendered.
    Reply& deepChain(int depth = QKL::QKLBinary::MAX_TEXT_DEPTH + 10) {
        for (int i = 0; i < depth; ++i) down("level");
        value("bottom");
        for (int i = 0; i < depth; ++i) up();
        return *this;
    }
    // The cookie 1400 at the root; a missing optional leaves its child out.
    Reply& cookie(const std::optional<std::string>& op = OPERATION,
                  const std::optional<std::string>& ns = OPERATION_NS) {
        root();
        EXPECT_EQ(0, m_it->newChild(COOKIE));
        if (op) {
            EXPECT_EQ(0, m_it->putValue(*op, REQUEST));
        }
        if (ns) {
            EXPECT_EQ(0, m_it->putValue(*ns, NAME));
        }
        return root();
    }
    // The existing element at `path` from the root, the iterator on it.
    Reply& at(const std::string& path) {
        root();
        EXPECT_EQ(0, m_it->seek(path)) << path;
        return *this;
    }
    // A new "data" at the root, the iterator on it.
    Reply& data() {
        root();
        return down("data");
    }

private:
    auto_destroy<> m_msg;
    std::unique_ptr<QKLMessageIterator> m_it;
};

// The common answer: packet (version 4.5.0) {cookie, data{env_manager{item, other}}}.
std::unique_ptr<Reply> listReply() {
    auto reply = std::make_unique<Reply>();
    EXPECT_EQ(0, reply->msg().setVersion(40500));
    reply->cookie().data().down("env_manager").leaf("item", "v1").leaf("other", "v2").root();
    return reply;
}

// The elements below `path` of a message (only those named `name`, if given), each
// rendered as Part 6.3 renders them (toText at an iterator, with a namespace base), concatenated.
std::string renderChildren(const QKLMessage& msg, const std::string& path, const std::string& name = "") {
    std::unique_ptr<const QKLMessageIterator> it(msg.newIterator());
    std::string out;
    if (it->seek(path) != 0) return out;
    for (int found = name.empty() ? it->firstChild() : it->firstChild(name); found == 0;
         found = name.empty() ? it->nextSibling() : it->nextSibling(name))
        out += take(msg.toText(it.get(), BASE + "4.5.0/", QKLMessageIterator::TEXT_FLAGS));
    return out;
}

// The element at `path`, rendered as Part 6.3 renders it.
std::string renderAt(const QKLMessage& msg, const std::string& path) {
    std::unique_ptr<const QKLMessageIterator> it(msg.newIterator());
    if (it->seek(path) != 0) return "(missing " + path + ")";
    return take(msg.toText(it.get(), BASE + "4.5.0/", QKLMessageIterator::TEXT_FLAGS));
}

// A shallow copy taken before the call keeps the reply's "data": the call's
// deletion makes the reply's document private (copy-on-write, Part 1.1).
struct Snapshot {
    explicit Snapshot(const QKLMessage& msg) : copy(msg.copy(true)) { EXPECT_TRUE(copy); }
    auto_destroy<> copy;
};

// One call of qklmsgToSoap. `result` starts on a sentinel so that a path that
// forgets step 1 ("set result to null") shows.
struct Outcome {
    int rc = 0;
    std::unique_ptr<QKLSoapEnvelope> result;
    QKLSoapFault* contextFault = nullptr;  // owned by the converter
};

Outcome toSoap(QKLSoapConverter& converter, QKLMessage& reply, SoapVersion version) {
    QKLSoapEnvelope sentinel("sentinel");
    QKLSoapEnvelope* result = &sentinel;
    Outcome outcome;
    outcome.rc = converter.qklmsgToSoap(reply, version, result);
    if (result == &sentinel) {
        ADD_FAILURE() << "result was left as it was";
        result = nullptr;
    }
    outcome.result.reset(result);
    outcome.contextFault = converter.getFault();
    return outcome;
}

// A failure of Part 6.3's table: -1, result null, a code-2 fault of `faultVersion`
// in the context with `text`.
void expectFailure(const Outcome& outcome, SoapVersion faultVersion, const std::string& text) {
    EXPECT_EQ(-1, outcome.rc);
    EXPECT_EQ(nullptr, outcome.result.get());
    ASSERT_NE(nullptr, outcome.contextFault);
    EXPECT_EQ(2, int(outcome.contextFault->getCode()));
    EXPECT_EQ(text, outcome.contextFault->getFaultString());
    EXPECT_EQ(soapURI(faultVersion), outcome.contextFault->getNamespaceURI());
    if (faultVersion == QKL::SOAP_1_2)
        EXPECT_NE(nullptr, dynamic_cast<QKLSoapFault12*>(outcome.contextFault));
    else
        EXPECT_NE(nullptr, dynamic_cast<QKLSoapFault11*>(outcome.contextFault));
}

}  // namespace

// ---- Part 6.3 "Edge cases worth testing", one TEST per bullet ----------------------------------

TEST(Part63Constants, NamespaceBaseIsTheDocumentedChoice) {
    // QKLSoapConverter.h documents the base; Part 6.3 requires only that it ends in "/".
    EXPECT_EQ(BASE, std::string(QKLSoapConverter::NamespaceBase));
}

// "A reply with session ID version field 40100 answers in namespace base + "4.1.0/"; with no
// session ID and header version 0, base + "4.5.0/"."
TEST(Part63EdgeCases, SessionVersion40100AnswersIn410AndNoSessionWithVersion0In450) {
    {
        auto reply = listReply();  // header version 40500: the session ID's field wins (step 2)
        ASSERT_EQ(0, reply->msg().setSessionID("qkl.40100.1.node-a.node-b.f00d"));
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_1);
        ASSERT_EQ(0, outcome.rc);
        ASSERT_NE(nullptr, outcome.result);
        EXPECT_EQ(0u, outcome.result->getHeader().rfind("<packet_header xmlns=\"" + BASE + "4.1.0/protocol\"", 0))
            << outcome.result->getHeader();
    }
    {
        auto reply = listReply();
        ASSERT_EQ(0, reply->msg().setVersion(0));
        std::string session;
        ASSERT_NE(0, reply->msg().getSessionID(session));
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_1);
        ASSERT_EQ(0, outcome.rc);
        ASSERT_NE(nullptr, outcome.result);
        EXPECT_EQ(0u, outcome.result->getHeader().rfind("<packet_header xmlns=\"" + BASE + "4.5.0/protocol\"", 0))
            << outcome.result->getHeader();
    }
}

// "An operation "getlist" in namespace N answers `<getlistResponse xmlns="N">` followed by each
// child of the operator element and `</getlistResponse>`."
TEST(Part63EdgeCases, GetlistInNamespaceNAnswersGetlistResponseWithEachOperatorChild) {
    auto reply = listReply();
    const Snapshot before(reply->msg());
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_1);
    ASSERT_EQ(0, outcome.rc);
    ASSERT_NE(nullptr, outcome.result);
    const std::string children = renderChildren(*before.copy, "data/env_manager");
    EXPECT_EQ(response(children), outcome.result->getBody());
    // The same with Part 5.1's element form written out.
    EXPECT_EQ("<getlistResponse xmlns=\"" + OPERATION_NS + "\">\n"
              "<item>v1</item>\n<other>v2</other>\n"
              "</getlistResponse>\n",
              outcome.result->getBody());
}

// "The operator "system" whose element holds "configuration" answers with the whole "system"
// element inside the Response element."
TEST(Part63EdgeCases, SystemOperatorWithConfigurationAnswersTheWholeSystemElement) {
    Reply reply;
    reply.cookie().data().down("system").down("configuration").leaf("param", "1").up().leaf("status", "ok");
    const Snapshot before(reply.msg());
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply.msg(), QKL::SOAP_1_2);
    ASSERT_EQ(0, outcome.rc);
    ASSERT_NE(nullptr, outcome.result);
    EXPECT_EQ(response(renderAt(*before.copy, "data/system")), outcome.result->getBody());
    EXPECT_EQ(response("<system><configuration><param>1</param>\n</configuration>\n<status>ok</status>\n</system>\n"),
              outcome.result->getBody());
}

// "A reply carrying two "error" elements under "data" yields a Receiver (SOAP 1.2) or Server
// (SOAP 1.1) fault whose detail holds both, one after the other, and the function returns 0."
TEST(Part63EdgeCases, TwoDataErrorsYieldReceiverOrServerFaultWithBothInDetailAndReturn0) {
    for (SoapVersion version : BOTH_VERSIONS) {
        SCOPED_TRACE(version);
        Reply reply;
        reply.cookie().data().leaf("error", "disk full").leaf("error", "no route");
        reply.down("env_manager").leaf("item", "v1");
        const Snapshot before(reply.msg());
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply.msg(), version);
        ASSERT_EQ(0, outcome.rc);
        EXPECT_EQ(nullptr, outcome.contextFault);  // an agent error is a successful conversion
        auto* fault = dynamic_cast<QKLSoapFault*>(outcome.result.get());
        ASSERT_NE(nullptr, fault);
        if (version == QKL::SOAP_1_2)
            EXPECT_NE(nullptr, dynamic_cast<QKLSoapFault12*>(fault));
        else
            EXPECT_NE(nullptr, dynamic_cast<QKLSoapFault11*>(fault));
        EXPECT_EQ(3, int(fault->getCode()));
        EXPECT_EQ("QKAgent responded with error", fault->getFaultString());
        const std::string errors = renderChildren(*before.copy, "data", "error");
        EXPECT_EQ("<error>disk full</error>\n<error>no route</error>\n", errors);
        EXPECT_EQ(errors, fault->getDetail());
        const std::string header = packetHeader(reply.msg(), "4.5.0/");
        EXPECT_EQ(header, fault->getHeader());
        EXPECT_EQ(assembled(soapURI(version), header, serverFaultBody(version, errors)), take(fault->toText()));
    }
}

// "Version 3 yields -1 with no fault object."
TEST(Part63EdgeCases, Version3YieldsMinus1WithNoFaultObject) {
    auto reply = listReply();
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply->msg(), SoapVersion(3));
    EXPECT_EQ(-1, outcome.rc);
    EXPECT_EQ(nullptr, outcome.result);
    EXPECT_EQ(nullptr, outcome.contextFault);
    EXPECT_EQ(nullptr, converter.getFault());
}

// ---- Part 6.3 "Failure handling": every text of the table ------------------------------------

namespace {

// Builds a fresh reply with `build` for each SOAP version and expects the failure `text`,
// as a fault of that version (the fault is "made for the SOAP version of the request").
void expectFailureInBothVersions(const std::function<void(Reply&)>& build, const std::string& text) {
    for (SoapVersion version : BOTH_VERSIONS) {
        SCOPED_TRACE(version);
        Reply reply;
        build(reply);
        QKLSoapConverter converter;
        expectFailure(toSoap(converter, reply.msg(), version), version, text);
    }
}

// The element at `path` really is beyond the XML writer (precondition of the rendering failures).
void expectUnrenderable(Reply& reply, const std::string& path) {
    std::unique_ptr<const QKLMessageIterator> it(reply.msg().newIterator());
    ASSERT_EQ(0, it->seek(path));
    EXPECT_EQ(nullptr, reply.msg().toText(it.get(), BASE + "4.5.0/", QKLMessageIterator::TEXT_FLAGS));
}

}  // namespace

TEST(Part63Failures, NoCookieGivesCannotGetCookie) {
    expectFailureInBothVersions([](Reply& r) { r.data().down("env_manager").leaf("item", "v1"); },
                                "Cannot get cookie!");
}

TEST(Part63Failures, CookieIsRequiredForAnErrorReplyToo) {
    // Step 5 runs before step 9: errors alone do not make a fault without the cookie.
    expectFailureInBothVersions([](Reply& r) { r.data().leaf("error", "disk full"); }, "Cannot get cookie!");
}

TEST(Part63Failures, CookieWithoutOperationNameGivesCannotGetOriginalOperationName) {
    const std::string text = "Cannot get original operation name from QKAgent message";
    expectFailureInBothVersions([](Reply& r) { r.cookie(std::nullopt).data().down("env_manager").leaf("item", "v1"); },
                                text);
    expectFailureInBothVersions([](Reply& r) { r.cookie(std::string()).data().down("env_manager").leaf("item", "v1"); },
                                text);
}

TEST(Part63Failures, CookieWithoutNamespaceGivesCannotGetOriginalOperationNamespace) {
    const std::string text = "Cannot get original operation namespace from QKAgent message";
    expectFailureInBothVersions(
        [](Reply& r) { r.cookie(OPERATION, std::nullopt).data().down("env_manager").leaf("item", "v1"); }, text);
    expectFailureInBothVersions(
        [](Reply& r) { r.cookie(OPERATION, std::string()).data().down("env_manager").leaf("item", "v1"); }, text);
}

TEST(Part63Failures, UnrenderableSystemErrorGivesCannotGetSystemError) {
    expectFailureInBothVersions(
        [](Reply& r) {
            r.cookie().data().down("error").deepChain().up().leaf("error", "second");
            expectUnrenderable(r, "data/error/level");
        },
        "Cannot get system error from QKAgent message");
}

TEST(Part63Failures, SystemErrorsAreCollectedBeforeTheCookieIsRead) {
    // Step 3 comes before step 5: with no cookie at all, the rendering failure is reported.
    expectFailureInBothVersions([](Reply& r) { r.data().down("error").deepChain(); },
                                "Cannot get system error from QKAgent message");
}

TEST(Part63Failures, UnrenderableOperatorErrorGivesCannotGetOperatorError) {
    expectFailureInBothVersions(
        [](Reply& r) {
            r.cookie().data().down("env_manager").leaf("item", "v1").down("error").deepChain();
            expectUnrenderable(r, "data/env_manager/error/level");
        },
        "Cannot get operator error from QKAgent message");
}

TEST(Part63Failures, UnrenderableResponseElementGivesCannotGetResponse) {
    expectFailureInBothVersions(
        [](Reply& r) {
            r.cookie().data().down("env_manager").leaf("item", "v1").down("deep").deepChain();
            expectUnrenderable(r, "data/env_manager/deep");
        },
        "Cannot get response from QKAgent message");
}

TEST(Part63Failures, UnrenderableHeaderGivesCannotParseQKAgentMessage) {
    // The chain stands beside "data", so only step 8's whole-message rendering meets it.
    expectFailureInBothVersions(
        [](Reply& r) {
            r.cookie().root().down("trace").deepChain();
            r.data().down("env_manager").leaf("item", "v1");
            EXPECT_EQ(nullptr, r.msg().toText(nullptr, BASE + "4.5.0/", QKLMessageIterator::TEXT_FLAGS));
        },
        "Cannot parse QKAgent message");
}

// "if that yields nothing (a version other than 1 or 2), a SOAP 1.1 fault with code 2 and
// "Unsupported soap version" is made instead. [...] This fallback is used on every path except
// the last one of step 9, deliberately."
TEST(Part63Failures, VersionWithoutFaultsOnAFailurePathGivesSoap11UnsupportedSoapVersion) {
    for (SoapVersion version : {QKL::SOAP_NONE, SoapVersion(3)}) {
        SCOPED_TRACE(version);
        {
            Reply reply;  // no cookie
            reply.data().down("env_manager").leaf("item", "v1");
            QKLSoapConverter converter;
            expectFailure(toSoap(converter, reply.msg(), version), QKL::SOAP_1_1, "Unsupported soap version");
        }
        {
            Reply reply;  // header rendering fails
            reply.cookie().root().down("trace").deepChain();
            reply.data().down("env_manager").leaf("item", "v1");
            QKLSoapConverter converter;
            expectFailure(toSoap(converter, reply.msg(), version), QKL::SOAP_1_1, "Unsupported soap version");
        }
        {
            // Step 9, failed reply: "If the fault cannot be made, SOAP 1.1 code 2 "Unsupported soap
            // version" goes to the context and the function returns -1."
            Reply reply;
            reply.cookie().data().leaf("error", "disk full");
            QKLSoapConverter converter;
            expectFailure(toSoap(converter, reply.msg(), version), QKL::SOAP_1_1, "Unsupported soap version");
        }
    }
}

// "if it is empty, createSoapFault(version, 2, "Unsupported soap version") is stored as it is
// (which is no fault at all for such a version) and -1 returned."
TEST(Part63Failures, VersionWithoutFaultsAtTheLastStepStoresNoFault) {
    for (SoapVersion version : {QKL::SOAP_NONE, SoapVersion(3)}) {
        SCOPED_TRACE(version);
        auto reply = listReply();
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply->msg(), version);
        EXPECT_EQ(-1, outcome.rc);
        EXPECT_EQ(nullptr, outcome.result);
        EXPECT_EQ(nullptr, outcome.contextFault);
    }
}

TEST(Part63Failures, EachCallStartsWithoutTheEarlierFault) {
    // Step 1: init() the context, so a success after a failure leaves no fault behind.
    QKLSoapConverter converter;
    Reply broken;
    broken.data().down("env_manager").leaf("item", "v1");
    expectFailure(toSoap(converter, broken.msg(), QKL::SOAP_1_2), QKL::SOAP_1_2, "Cannot get cookie!");
    auto reply = listReply();
    const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_2);
    EXPECT_EQ(0, outcome.rc);
    EXPECT_NE(nullptr, outcome.result);
    EXPECT_EQ(nullptr, outcome.contextFault);
}

// ---- Part 6.3 "Algorithms", step by step -----------------------------------------------------

namespace {

// A reply expected to answer with the fault "QKAgent responded with error" whose detail is `detail`.
void expectServerFault(const Outcome& outcome, const std::string& detail) {
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(nullptr, outcome.contextFault);
    auto* fault = dynamic_cast<QKLSoapFault*>(outcome.result.get());
    ASSERT_NE(nullptr, fault);
    EXPECT_EQ(3, int(fault->getCode()));
    EXPECT_EQ("QKAgent responded with error", fault->getFaultString());
    EXPECT_EQ(detail, fault->getDetail());
}

// The header's packet_header namespace for a reply, from its start tag.
std::string headerStart(const std::string& versionSegment) {
    return "<packet_header xmlns=\"" + BASE + versionSegment + "protocol\"";
}

// The body of a successful answer of `reply` in SOAP 1.1.
std::string bodyOf(Reply& reply) {
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply.msg(), QKL::SOAP_1_1);
    EXPECT_EQ(0, outcome.rc);
    return outcome.result ? outcome.result->getBody() : "(no result)";
}

}  // namespace

TEST(Part63Steps, OperatorErrorsGiveTheFaultWithBothErrors) {
    Reply reply;
    reply.cookie().data().down("env_manager").leaf("item", "v1").leaf("error", "bad veid").leaf("error", "locked");
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply.msg(), QKL::SOAP_1_2);
    expectServerFault(outcome, "<error>bad veid</error>\n<error>locked</error>\n");
    ASSERT_NE(nullptr, outcome.result);
    EXPECT_EQ(packetHeader(reply.msg(), "4.5.0/"), outcome.result->getHeader());
}

TEST(Part63Steps, SystemErrorsTakePrecedenceOverOperatorErrors) {
    // Step 4 runs "only if not yet failed". The operator element comes first under "data",
    // the system error after it.
    Reply reply;
    reply.cookie().data().down("env_manager").leaf("error", "bad veid").up().leaf("error", "agent down");
    QKLSoapConverter converter;
    expectServerFault(toSoap(converter, reply.msg(), QKL::SOAP_1_1), "<error>agent down</error>\n");
}

TEST(Part63Steps, ErrorSiblingsAreFoundPastOtherElements) {
    // nextSibling("error") steps over the elements of other names in between.
    Reply reply;
    reply.cookie().data().leaf("error", "one").down("env_manager").leaf("item", "v1").up().leaf("error", "two");
    QKLSoapConverter converter;
    expectServerFault(toSoap(converter, reply.msg(), QKL::SOAP_1_1), "<error>one</error>\n<error>two</error>\n");
}

// "The reply message is changed: its "data" element is gone after step 8, so a caller that
// needs the data must copy the message first."
TEST(Part63Steps, ReplyLosesItsDataElementAndKeepsTheRest) {
    for (bool withError : {false, true}) {
        SCOPED_TRACE(withError);
        auto reply = listReply();
        if (withError) reply->at("data").leaf("error", "boom");
        const Snapshot before(reply->msg());
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_1);
        ASSERT_EQ(0, outcome.rc);
        std::unique_ptr<const QKLMessageIterator> it(reply->msg().newIterator());
        EXPECT_NE(0, it->seek("data"));
        it->seekRoot();
        std::string operation;
        EXPECT_EQ(0, it->getValue(operation, "cookie/request"));
        EXPECT_EQ(OPERATION, operation);
        // The copy made before the call still holds the data.
        std::unique_ptr<const QKLMessageIterator> kept(before.copy->newIterator());
        EXPECT_EQ(0, kept->seek("data/env_manager/item"));
    }
}

TEST(Part63Steps, HeaderIsTheRemainingReplyRewrittenAsPacketHeader) {
    auto reply = listReply();
    reply->msg().setID("req-9", false);
    ASSERT_EQ(0, reply->msg().setOrigin("agent"));
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_1);
    ASSERT_EQ(0, outcome.rc);
    ASSERT_NE(nullptr, outcome.result);
    const std::string& header = outcome.result->getHeader();
    EXPECT_EQ(packetHeader(reply->msg(), "4.5.0/"), header);
    EXPECT_EQ(0u, header.rfind(headerStart("4.5.0/"), 0)) << header;
    const std::string end = "</packet_header>\n";
    ASSERT_GE(header.size(), end.size());
    EXPECT_EQ(end, header.substr(header.size() - end.size()));
    EXPECT_NE(std::string::npos, header.find(" id=\"req-9\""));
    EXPECT_NE(std::string::npos, header.find(">agent</"));
    EXPECT_NE(std::string::npos, header.find("<request>getlist</request>"));
    EXPECT_EQ(std::string::npos, header.find("data"));
    EXPECT_EQ(std::string::npos, header.find("<packet>"));
    EXPECT_EQ(std::string::npos, header.find("<packet "));
    EXPECT_EQ(std::string::npos, header.find("/packet>"));
}

TEST(Part63Steps, EveryPacketPrefixOfTheHeaderTextIsRewritten) {
    // Step 8 is a plain text replacement of every "<packet", so a root child whose name
    // begins with "packet" is rewritten too, and its end tag "/packets>" is not.
    auto reply = listReply();
    reply->root().leaf("packets", "3");
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_1);
    ASSERT_NE(nullptr, outcome.result);
    EXPECT_NE(std::string::npos, outcome.result->getHeader().find(headerStart("4.5.0/") + "s>3</packets>\n"))
        << outcome.result->getHeader();
}

TEST(Part63Steps, VersionSegmentFollowsTheHeaderVersionWithoutSession) {
    const std::pair<int, std::string> cases[] = {{40100, "4.1.0/"}, {123456, "12.34.56/"}, {40000, "4.0.0/"}};
    for (const auto& [number, segment] : cases) {
        SCOPED_TRACE(number);
        auto reply = listReply();
        ASSERT_EQ(0, reply->msg().setVersion(number));
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_2);
        ASSERT_NE(nullptr, outcome.result);
        EXPECT_EQ(0u, outcome.result->getHeader().rfind(headerStart(segment), 0)) << outcome.result->getHeader();
    }
}

TEST(Part63Steps, SessionIDWithVersionField0AnswersIn450WhateverTheHeaderVersion) {
    // Step 2: once getSessionID succeeds its version field is the number; 0 gives "4.5.0/".
    auto reply = listReply();
    ASSERT_EQ(0, reply->msg().setVersion(40100));
    ASSERT_EQ(0, reply->msg().setSessionID("qkl.none.1.node-a.node-b.f00d"));
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, reply->msg(), QKL::SOAP_1_1);
    ASSERT_NE(nullptr, outcome.result);
    EXPECT_EQ(0u, outcome.result->getHeader().rfind(headerStart("4.5.0/"), 0)) << outcome.result->getHeader();
}

TEST(Part63Steps, ResponseEnvelopeUsesTheSoapNamespaceOfTheVersionAndRendersWhole) {
    for (SoapVersion version : BOTH_VERSIONS) {
        SCOPED_TRACE(version);
        auto reply = listReply();
        const Snapshot before(reply->msg());
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply->msg(), version);
        ASSERT_EQ(0, outcome.rc);
        ASSERT_NE(nullptr, outcome.result);
        EXPECT_EQ(nullptr, outcome.contextFault);
        EXPECT_EQ(nullptr, dynamic_cast<QKLSoapFault*>(outcome.result.get()));
        EXPECT_EQ(soapURI(version), outcome.result->getNamespaceURI());
        EXPECT_EQ(QKLSoapConverter::getSoapURIByVersion(version), outcome.result->getNamespaceURI());
        const std::string header = packetHeader(reply->msg(), "4.5.0/");
        EXPECT_EQ(assembled(soapURI(version), header, response(renderChildren(*before.copy, "data/env_manager"))),
                  take(outcome.result->toText()));
    }
}

TEST(Part63Steps, ResponseTakesTheOperationNameAndNamespaceFromTheCookieAsTheyAre) {
    Reply reply;
    reply.cookie("status", "urn:example:other/1.0.0/x").data().down("x").leaf("state", "up");
    EXPECT_EQ(response("<state>up</state>\n", "status", "urn:example:other/1.0.0/x"), bodyOf(reply));
}

TEST(Part63Steps, OnlyTheFirstElementUnderDataIsTheOperator) {
    Reply reply;
    reply.cookie().data().down("env_manager").leaf("item", "v1").up().down("audit").leaf("entry", "e1");
    EXPECT_EQ(response("<item>v1</item>\n"), bodyOf(reply));
}

TEST(Part63Steps, ConfigurationChildMakesTheWholeElementOnlyForSystem) {
    // "unless it is "system" and the element has a "configuration" child, go to its first child"
    Reply notSystem;
    notSystem.cookie().data().down("env_manager").down("configuration").leaf("param", "1");
    EXPECT_EQ(response("<configuration><param>1</param>\n</configuration>\n"), bodyOf(notSystem));
    Reply systemWithout;
    systemWithout.cookie().data().down("system").leaf("status", "ok").leaf("uptime", "7");
    EXPECT_EQ(response("<status>ok</status>\n<uptime>7</uptime>\n"), bodyOf(systemWithout));
}

// QKLSoapConverter.h (the spec leaves this open): "A reply with no element under "data" (or no
// operator child) answers an empty Response element."
TEST(Part63Steps, NoOperatorOrNoOperatorChildAnswersAnEmptyResponseElement) {
    Reply emptyData;
    emptyData.cookie().data();
    EXPECT_EQ(response(""), bodyOf(emptyData));
    Reply noData;
    noData.cookie();
    EXPECT_EQ(response(""), bodyOf(noData));
    Reply emptyOperator;
    emptyOperator.cookie().data().down("env_manager");
    EXPECT_EQ(response(""), bodyOf(emptyOperator));
}

// Step 7: "if it is empty, the start tag is left open; keep this as it is". An element
// without a name under "data": an unknown element that the XML reader keeps as an XML
// fragment (a prefixed name with an empty local part, Part 5.2).
TEST(Part63Steps, NamelessOperatorElementLeavesTheResponseStartTagOpen) {
    auto_destroy<> reply(QKLMsgFactory::createNew());
    ASSERT_EQ(0, reply->fromText(("<packet><cookie><request>getlist</request><name>" + OPERATION_NS +
                                  "</name></cookie><data><p:>x</p:><other>y</other></data></packet>").c_str(),
                                 nullptr));
    std::unique_ptr<const QKLMessageIterator> it(reply->newIterator());
    ASSERT_EQ(0, it->seek("data"));
    ASSERT_EQ(0, it->firstChild());
    ASSERT_EQ("", it->curName());
    QKLSoapConverter converter;
    const Outcome outcome = toSoap(converter, *reply, QKL::SOAP_1_1);
    ASSERT_EQ(0, outcome.rc);
    ASSERT_NE(nullptr, outcome.result);
    const std::string& body = outcome.result->getBody();
    const std::string start = "<getlistResponse";
    ASSERT_EQ(0u, body.rfind(start, 0)) << body;
    // Neither the namespace declaration nor the ">" and line end that would close the start tag.
    EXPECT_EQ(std::string::npos, body.find("xmlns")) << body;
    EXPECT_NE('>', body.at(start.size())) << body;
    const std::string end = "</getlistResponse>\n";
    ASSERT_GE(body.size(), end.size());
    EXPECT_EQ(end, body.substr(body.size() - end.size()));
}

// ---- Full round trips: SOAP request -> message -> reply -> SOAP response ---------------------

namespace {

// A client's request as a web-service front end sends it (no comment first in the Body).
std::string requestText(SoapVersion version) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<soap:Envelope xmlns:soap=\"" + soapURI(version) + "\" xmlns:xsd=\"" + XSD_URI +
           "\" xmlns:xsi=\"" + XSI_URI + "\">\n"
           "<soap:Header>\n"
           "<packet_header xmlns=\"" + BASE + "4.5.0/protocol\" id=\"req-17\">"
           "<target>env_manager</target><origin>webclient</origin></packet_header>\n"
           "</soap:Header>\n"
           "<soap:Body>\n"
           "<GetList xmlns=\"" + OPERATION_NS + "\">"
           "<veid>101</veid><filter>running</filter><limit>2</limit></GetList>\n"
           "</soap:Body>\n"
           "</soap:Envelope>";
}

// The agent's operator of the round trips: reads the GetList arguments from the
// request and answers under data/env_manager of the reply, or reports two errors.
void envManager(const QKLMessage& request, QKLMessage& reply, bool fails) {
    std::unique_ptr<const QKLMessageIterator> in(request.newIterator());
    std::string veid, filter;
    int limit = 0;
    EXPECT_EQ(0, in->getValue(veid, "data/env_manager/GetList/veid"));
    EXPECT_EQ(0, in->getValue(filter, "data/env_manager/GetList/filter"));
    EXPECT_EQ(0, in->getValue(limit, "data/env_manager/GetList/limit"));

    std::unique_ptr<QKLMessageIterator> out(reply.newIterator());
    ASSERT_EQ(0, out->seek("data"));
    ASSERT_EQ(0, out->newChild("env_manager"));
    const int current = 0;
    if (fails) {
        for (const std::string& text : {"veid " + veid + " unknown", "limit " + std::to_string(limit) + " too small"}) {
            ASSERT_EQ(0, out->newChild("error"));
            ASSERT_EQ(0, out->putValue(text, current));
            ASSERT_EQ(0, out->seekUp());
        }
        return;
    }
    ASSERT_EQ(0, out->newChild("env"));
    ASSERT_EQ(0, out->putValue(veid, "veid"));    // a write by one name ends where it started
    ASSERT_EQ(0, out->putValue(filter, "status"));
    ASSERT_EQ(0, out->seekUp());
    ASSERT_EQ(0, out->putValue(std::to_string(limit - 1), "count"));
}

std::string roundTripName(const ::testing::TestParamInfo<SoapVersion>& info) {
    return info.param == QKL::SOAP_1_2 ? "Soap12" : "Soap11";
}

}  // namespace

class Part63RoundTrip : public ::testing::TestWithParam<SoapVersion> {
protected:
    // The request converted (Part 6.2), the reply generated from it (Part 1.1), the
    // operator run, and the reply converted back with the request's SOAP version.
    void answer(bool fails) {
        ASSERT_TRUE(request);
        ASSERT_EQ(0, converter.soapToQklmsg(requestText(GetParam()).c_str(), *request));
        ASSERT_EQ(GetParam(), converter.getSoapVersion());
        reply.reset(request->genReply("agent"));
        ASSERT_TRUE(reply);
        envManager(*request, *reply, fails);
        QKLSoapEnvelope* envelope = nullptr;
        ASSERT_EQ(0, converter.qklmsgToSoap(*reply, converter.getSoapVersion(), envelope));
        result.reset(envelope);
        ASSERT_NE(nullptr, result);
        text = take(result->toText());
        parsed.reset(QKLSoapEnvelope::fromText(text.c_str()));
        ASSERT_NE(nullptr, parsed);
    }

    // The SOAP Header's packet_header, checked piece by piece.
    void expectPacketHeader(const std::string& header) {
        EXPECT_EQ(0u, header.rfind(headerStart("4.5.0/"), 0)) << header;
        EXPECT_NE(std::string::npos, header.find(" id=\"req-17\""));
        EXPECT_NE(std::string::npos, header.find(" version=\"4.5.0\""));
        EXPECT_NE(std::string::npos, header.find(">agent</"));      // the reply's origin
        EXPECT_NE(std::string::npos, header.find(">webclient</"));  // the request's origin, now the target
        EXPECT_NE(std::string::npos, header.find("<request>getlist</request>"));
        EXPECT_NE(std::string::npos, header.find("<name>" + OPERATION_NS + "</name>"));
        EXPECT_EQ(std::string::npos, header.find("data"));
        const std::string end = "</packet_header>\n";
        ASSERT_GE(header.size(), end.size());
        EXPECT_EQ(end, header.substr(header.size() - end.size()));
        EXPECT_EQ(packetHeader(*reply, "4.5.0/"), header);
    }

    QKLSoapConverter converter;
    auto_destroy<> request{QKLMsgFactory::createNew()};
    auto_destroy<> reply;
    std::unique_ptr<QKLSoapEnvelope> result;
    std::string text;
    std::unique_ptr<QKLSoapEnvelope> parsed;
};

INSTANTIATE_TEST_SUITE_P(Soap, Part63RoundTrip, ::testing::Values(QKL::SOAP_1_1, QKL::SOAP_1_2), roundTripName);

TEST_P(Part63RoundTrip, GetListAnswersGetlistResponseInTheClientsNamespace) {
    answer(false);
    if (HasFatalFailure()) return;
    EXPECT_EQ(nullptr, converter.getFault());
    EXPECT_EQ(nullptr, dynamic_cast<QKLSoapFault*>(result.get()));

    const std::string envelopeStart = "<soap:Envelope xmlns:soap=\"" + soapURI(GetParam()) + "\"";
    EXPECT_EQ(0u, text.rfind(envelopeStart, 0)) << text;
    const std::string::size_type headerAt = text.find("<soap:Header>\n");
    const std::string::size_type headerEnd = text.find("</soap:Header>\n");
    ASSERT_NE(std::string::npos, headerAt);
    ASSERT_NE(std::string::npos, headerEnd);
    const std::string header = text.substr(headerAt + 14, headerEnd - headerAt - 14);
    expectPacketHeader(header);

    // The operator's answer, in the client's operation name and namespace.
    const std::string expectedResponse = "<getlistResponse xmlns=\"" + OPERATION_NS + "\">\n"
                                         "<env><veid>101</veid>\n<status>running</status>\n</env>\n"
                                         "<count>1</count>\n"
                                         "</getlistResponse>\n";
    const std::string tail = "<soap:Body>\n" + expectedResponse + "</soap:Body>\n</soap:Envelope>";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(tail, text.substr(text.size() - tail.size()));
    EXPECT_EQ(assembled(soapURI(GetParam()), header, expectedResponse), text);

    // The client's side: the envelope cuts apart again (Part 6.1).
    EXPECT_EQ(soapURI(GetParam()), parsed->getNamespaceURI());
    EXPECT_EQ("<soap:Header>\n" + header + "</soap:Header>", parsed->getHeader());
    EXPECT_EQ("<soap:Body>\n" + expectedResponse + "</soap:Body>", parsed->getBody());
}

TEST_P(Part63RoundTrip, OperatorErrorsAnswerAServerOrReceiverFaultWithBoth) {
    answer(true);
    if (HasFatalFailure()) return;
    EXPECT_EQ(nullptr, converter.getFault());
    auto* fault = dynamic_cast<QKLSoapFault*>(result.get());
    ASSERT_NE(nullptr, fault);
    EXPECT_EQ(3, int(fault->getCode()));
    const std::string errors = "<error>veid 101 unknown</error>\n<error>limit 2 too small</error>\n";
    EXPECT_EQ(errors, fault->getDetail());
    expectPacketHeader(fault->getHeader());

    const std::string faultBody = serverFaultBody(GetParam(), errors);
    EXPECT_NE(std::string::npos,
              text.find(GetParam() == QKL::SOAP_1_2 ? "<soap:Value>soap:Receiver</soap:Value>"
                                                    : "<faultcode>soap:Server</faultcode>"));
    EXPECT_EQ(assembled(soapURI(GetParam()), fault->getHeader(), faultBody), text);

    EXPECT_EQ(soapURI(GetParam()), parsed->getNamespaceURI());
    EXPECT_EQ("<soap:Header>\n" + fault->getHeader() + "</soap:Header>", parsed->getHeader());
    EXPECT_EQ("<soap:Body>\n" + faultBody + "</soap:Body>", parsed->getBody());
}

// ---- Bad input: replies of every odd shape ----------------------------------------------------

namespace {

// The names random replies draw from: the bridge's own, look-alikes and unknown ones.
const char* const NAMES[] = {"error", "data", "system", "configuration", "cookie", "packet", "request", "name",
                             "target", "env_manager", "item", "packet_header", "Error", "DATA", "a.b", "n-1",
                             "_x", "status", "packets", "some_rather_long_element_name_that_nobody_knows"};
const char* const VALUES[] = {"", "v", "a<b&c>d", "\"quoted\"", "qkl.40100.1.a.b.c", "</packet>", "<packet"};

template <class T, std::size_t N>
const T& pick(std::mt19937& rng, const T (&from)[N]) {
    return from[rng() % N];
}

// A random subtree below the iterator's element; failures of odd names are part of the game.
void randomSubtree(QKLMessageIterator& it, std::mt19937& rng, int depth) {
    const int children = int(rng() % 4);
    for (int i = 0; i < children; ++i) {
        if (it.newChild(pick(rng, NAMES)) != 0) continue;
        const int current = 0;
        if (depth == 0 || rng() % 2 == 0)
            it.putValue(std::string(pick(rng, VALUES)), current);
        else
            randomSubtree(it, rng, depth - 1);
        it.seekUp();
    }
}

// How many "data" elements the root holds (random replies may have several).
int dataCount(const QKLMessage& msg) {
    std::unique_ptr<const QKLMessageIterator> it(msg.newIterator());
    int count = 0;
    for (int found = it->firstChild("data"); found == 0; found = it->nextSibling("data")) ++count;
    return count;
}

// One random reply: cookie of some shape, data of some shape, header oddities.
void randomReply(Reply& reply, std::mt19937& rng) {
    QKLMessageIterator& it = reply.it();
    switch (rng() % 6) {
        case 0: break;  // no cookie
        case 1: reply.cookie(); break;
        case 2: reply.cookie(OPERATION, std::nullopt); break;
        case 3: reply.cookie(std::nullopt, OPERATION_NS); break;
        case 4: reply.cookie(std::string(pick(rng, VALUES)), std::string(pick(rng, VALUES))); break;
        default: it.putValue(std::string("plain"), "cookie"); break;  // a cookie without children
    }
    reply.root();
    switch (rng() % 5) {
        case 0: break;  // no data
        case 1: reply.data(); break;
        case 2: reply.data().leaf("error", pick(rng, VALUES)).leaf("error", pick(rng, VALUES)); break;
        case 3: reply.data().down(pick(rng, NAMES)); randomSubtree(it, rng, 3); break;
        default: reply.data(); randomSubtree(it, rng, 4); break;
    }
    reply.root();
    randomSubtree(it, rng, 2);
    if (rng() % 16 == 0) {
        // Deeper than the writer follows, under data or beside it.
        if (rng() % 2 == 0 || it.seek("data") != 0) reply.root();
        reply.down("deep").deepChain().root();
    }
    if (rng() % 3 == 0) reply.msg().setSessionID(pick(rng, VALUES));
    if (rng() % 3 == 0) reply.msg().setVersion(int(rng() % 200000) - 1000);
}

}  // namespace

// Part 6.3 "Interfaces": "0 with result set to a new envelope (or fault envelope) [...]; -1
// with result null and a fault in the converter's context" - the only fault-less -1 is the
// last step of a version without SOAP namespace.
TEST(Part63BadInput, RandomRepliesGiveAnEnvelopeOrAFaultNeverBoth) {
    QKLTest::AssertCounter quiet;  // odd names may trip the library's assertions; they must return
    std::mt19937 rng(6303);
    const SoapVersion versions[] = {QKL::SOAP_NONE, QKL::SOAP_1_1, QKL::SOAP_1_2, SoapVersion(3)};
    int successes = 0, failures = 0;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        Reply reply;
        randomReply(reply, rng);
        const SoapVersion version = pick(rng, versions);
        const int dataBefore = dataCount(reply.msg());
        QKLSoapConverter converter;
        const Outcome outcome = toSoap(converter, reply.msg(), version);
        if (outcome.rc == 0) {
            ++successes;
            ASSERT_NE(nullptr, outcome.result);
            EXPECT_EQ(nullptr, outcome.contextFault);
            EXPECT_NE("(null)", take(outcome.result->toText()));
            EXPECT_EQ(dataBefore > 0 ? dataBefore - 1 : 0, dataCount(reply.msg()));  // step 8 ran
            if (auto* fault = dynamic_cast<QKLSoapFault*>(outcome.result.get())) {
                EXPECT_EQ(3, int(fault->getCode()));
            }
            continue;
        }
        ++failures;
        ASSERT_EQ(-1, outcome.rc);
        EXPECT_EQ(nullptr, outcome.result);
        if (version == QKL::SOAP_1_1 || version == QKL::SOAP_1_2) {
            ASSERT_NE(nullptr, outcome.contextFault);
            EXPECT_EQ(soapURI(version), outcome.contextFault->getNamespaceURI());
        } else if (outcome.contextFault != nullptr) {
            EXPECT_EQ("Unsupported soap version", outcome.contextFault->getFaultString());
        }
        if (outcome.contextFault != nullptr) {
            EXPECT_EQ(2, int(outcome.contextFault->getCode()));
            EXPECT_NE("(null)", take(outcome.contextFault->toText()));
        }
    }
    // The seed exercises both outcomes.
    EXPECT_GT(successes, 20);
    EXPECT_GT(failures, 20);
}

TEST(Part63BadInput, CookieWithAPlainValueHasNoOperationName) {
    Reply reply;
    ASSERT_EQ(0, reply.it().putValue(std::string("getlist"), "cookie"));
    reply.data().down("env_manager").leaf("item", "v1");
    QKLSoapConverter converter;
    expectFailure(toSoap(converter, reply.msg(), QKL::SOAP_1_1), QKL::SOAP_1_1,
                  "Cannot get original operation name from QKAgent message");
}

TEST(Part63BadInput, CookieBelowTheRootIsNoCookie) {
    // Step 5 seeks element 1400 from the root only.
    Reply reply;
    reply.data().down("env_manager").leaf("item", "v1");
    ASSERT_EQ(0, reply.it().newChild(COOKIE));
    ASSERT_EQ(0, reply.it().putValue(OPERATION, REQUEST));
    ASSERT_EQ(0, reply.it().putValue(OPERATION_NS, NAME));
    QKLSoapConverter converter;
    expectFailure(toSoap(converter, reply.msg(), QKL::SOAP_1_2), QKL::SOAP_1_2, "Cannot get cookie!");
}

TEST(Part63BadInput, EmptyPacketWithoutAnythingFailsCleanly) {
    Reply reply;
    QKLSoapConverter converter;
    expectFailure(toSoap(converter, reply.msg(), QKL::SOAP_1_1), QKL::SOAP_1_1, "Cannot get cookie!");
}
