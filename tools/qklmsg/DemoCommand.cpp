// qklmsg demo: the round trip of one web-service call on built-in data, every
// stage printed. A SOAP 1.1 request becomes a message (soapToQklmsg); a tiny
// built-in operator "env_manager" answers it in a reply made by genReply; the
// reply becomes the SOAP response (qklmsgToSoap).
#include <cstdio>
#include <memory>

#include "Commands.h"
#include "MessageIO.h"
#include "SoapBridge.h"

namespace qklmsg {

namespace {

using QKL::QKLMessage;
using QKL::QKLMessageIterator;

const char* const WHERE = "demo";
const char* const AGENT = "agent";
const char* const OPERATOR = "env_manager";
const char* const OPERATION = "GetList";  // as the request names it

// No comment inside the Body: the converter would never finish (see QKLSoapConverter.h).
const char REQUEST[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<soap:Envelope xmlns:soap="http://schemas.xmlsoap.org/soap/envelope/">
<soap:Header>
<packet_header xmlns="http://www.qkl.example/webservices/qkl/4.5.0/protocol" id="demo-1"><origin>console</origin></packet_header>
</soap:Header>
<soap:Body>
<GetList xmlns="http://www.qkl.example/webservices/qkl/4.5.0/env_manager"><scope>servers</scope><limit>2</limit></GetList>
</soap:Body>
</soap:Envelope>)";

// The answer rows of the built-in operator: element name and value.
const char* const ANSWER[][2] = {{"server", "web-01"}, {"server", "db-01"}};

void printStage(int number, const char* title, const std::string& text) {
    std::printf("== %d. %s\n%s", number, title, text.c_str());
    if (text.empty() || text.back() != '\n') std::printf("\n");
}

bool printMessage(int number, const char* title, const QKLMessage& message) {
    std::string text;
    if (!renderMessage(message, MessageForm::XmlText, WHERE, text)) return false;
    printStage(number, title, text);
    return true;
}

// The built-in operator: reads the request's scope and writes the answer rows
// under the reply's data/env_manager, where qklmsgToSoap looks for them.
bool answerGetList(const QKLMessage& request, QKLMessage& reply) {
    const std::unique_ptr<const QKLMessageIterator> asked(request.newIterator());
    std::string scope;
    if (!asked || asked->seek(std::string(QKLMessage::DATA) + "/" + OPERATOR + "/" + OPERATION) != 0 ||
        asked->getValue(scope, "scope") != 0)
        return false;
    std::printf("== operator %s: %s of %s\n", OPERATOR, OPERATION, scope.c_str());
    const std::unique_ptr<QKLMessageIterator> answer(reply.newIterator());
    if (!answer || answer->seek(QKLMessage::DATA) != 0 || answer->newChild(OPERATOR) != 0) return false;
    // newChild for a list of equal names; a write with the empty name acts on
    // the new element and then ends on its parent, ready for the next.
    for (const auto& row : ANSWER)
        if (answer->newChild(row[0]) != 0 || answer->putValue(std::string(row[1]), std::string()) != 0) return false;
    return true;
}

int demoFailed(const char* stage) { return refuse(WHERE, std::string(stage) + " failed"); }

}  // namespace

int runDemo(const CommandLine&) {
    printStage(1, "SOAP 1.1 request", REQUEST);
    QKL::QKLSoapConverter converter;
    QKL::auto_destroy<QKLMessage> request(messageFromSoap(REQUEST, WHERE, converter));
    if (!request || !printMessage(2, "the request as a message (soapToQklmsg)", *request)) return EXIT_REFUSED;

    QKL::auto_destroy<QKLMessage> reply(request->genReply(AGENT));
    if (!reply) return demoFailed("genReply");
    if (!answerGetList(*request, *reply)) return demoFailed("the operator's answer");
    if (!printMessage(3, "the reply (genReply(\"agent\"), answered by the operator)", *reply)) return EXIT_REFUSED;

    std::string response;
    if (!soapFromReply(*reply, converter.getSoapVersion(), WHERE, response)) return EXIT_REFUSED;
    printStage(4, "SOAP response (qklmsgToSoap)", response);
    return flushStandardOutput() ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace qklmsg
