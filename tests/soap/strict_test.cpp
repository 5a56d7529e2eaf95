// The converter's strict mode beside its default: the request forms of real
// SOAP clients and text that is not namespaced XML (tests/data/soap/strict/NAME.xml)
// against what each mode makes of them (NAME.default, NAME.strict: the message
// text followed by the answer to its genReply, or the fault envelope), and
// reply_NAME.xml answered in SOAP 1.2.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "qkl/QKL.h"
#include "support/Files.h"

using namespace QKL;
using Message = auto_destroy<QKLMessage>;
using QKLTest::readFile;

namespace {

const std::string DATA = std::string(QKL_TEST_DATA_DIR) + "/soap/";

std::string printed(char* text) {
    const std::string out = text != nullptr ? std::string(text) + "\n" : std::string();
    std::free(text);
    return out;
}

// The reply answered in `version`: the response or fault envelope.
std::string answered(QKLSoapConverter& converter, QKLMessage& reply, SoapVersion version) {
    QKLSoapEnvelope* made = nullptr;
    converter.qklmsgToSoap(reply, version, made);
    const std::unique_ptr<QKLSoapEnvelope> envelope(made);
    return printed(envelope ? envelope->toText() : converter.getFault() ? converter.getFault()->toText() : nullptr);
}

// The request's message text and (withAnswer) the answer to its genReply, or its fault.
std::string converted(const std::string& text, bool strict, bool withAnswer = true) {
    QKLSoapConverter converter;
    converter.setStrict(strict);
    Message msg(QKLMsgFactory::createNew());
    if (converter.soapToQklmsg(text.c_str(), *msg) != 0)
        return printed(converter.getFault() ? converter.getFault()->toText() : nullptr);
    Message reply(withAnswer ? msg->genReply("agent") : nullptr);
    return printed(msg->toText(nullptr, "", QKLMessageIterator::TEXT_FLAGS)) +
           (reply ? answered(converter, *reply, converter.getSoapVersion()) : "");
}

std::string lowered(const std::string& text) { return toStdString(toLower(toIgnoreCase(text))); }

}  // namespace

TEST(SoapStrictMode, EachClientFormGivesItsMessageOrFaultInBothModes) {
    int walked = 0;
    for (const auto& entry : std::filesystem::directory_iterator(DATA + "strict")) {
        if (entry.path().extension() != ".xml") continue;
        const std::string name = entry.path().stem().string(), text = readFile(entry.path().string());
        ++walked;
        for (const bool strict : {false, true}) {
            QKLSoapConverter converter;
            converter.setStrict(strict);
            Message reply(name.rfind("reply_", 0) == 0 ? QKLMsgFactory::createNew(text.c_str(), int(text.size()) + 1)
                                                       : nullptr);
            const bool never = !strict && QKLSoapConverter::neverCompletes(text.c_str());
            const std::string output = reply   ? answered(converter, *reply, SOAP_1_2)
                                       : never ? "(never completes)\n"
                                               : converted(text, strict);
            EXPECT_EQ(readFile(DATA + "strict/" + name + (strict ? ".strict" : ".default")), output)
                << name << (strict ? " strict" : " default");
        }
    }
    EXPECT_EQ(18, walked);
}

// A prefixed packet header carries what the same header unprefixed carries;
// every request the default mode converts, strict mode converts alike, the
// operation's own case kept. Not alike, on purpose: a prefixed packet header
// (read in strict mode) and a tag closed in another letter case (not XML).
TEST(SoapStrictMode, ReadsWhatTheDefaultReadsWhateverThePrefixes) {
    const std::string unprefixed = readFile(DATA + "requests/soap12_with_packet_header.xml");
    EXPECT_EQ(converted(unprefixed, true), converted(readFile(DATA + "strict/suds_prefixed_packet_header.xml"), true));
    const std::set<std::string> unlike = {"soap12_prefixed_packet_header_ignored", "soap11_packet_header_rewritten"};
    int compared = 0;
    for (const auto& entry : std::filesystem::directory_iterator(DATA + "requests")) {
        const std::string name = entry.path().stem().string(), text = readFile(entry.path().string());
        if (entry.path().extension() != ".xml" || name.rfind("kept_", 0) == 0 || unlike.count(name)) continue;
        const std::string byDefault = converted(text, false, false), strict = converted(text, true, false);
        if (byDefault.rfind("<packet", 0) != 0) continue;
        EXPECT_NE(byDefault, strict) << name;
        EXPECT_EQ(lowered(byDefault), lowered(strict)) << name;
        ++compared;
    }
    EXPECT_EQ(10, compared);
}
