// qklmsg demo: the round trip of one web-service call on built-in data, every
// stage printed. A SOAP 1.1 request becomes a message (soapToQklmsg); the
// built-in operator "env_manager" (DemoOperator.h) answers it in a reply made
// by genReply; the reply becomes the SOAP response (qklmsgToSoap).
#include <cstdio>

#include "Commands.h"
#include "DemoOperator.h"
#include "MessageIO.h"
#include "SoapBridge.h"

namespace qklmsg {

namespace {

using QKL::QKLMessage;

const char* const WHERE = "demo";
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

int demoFailed(const char* stage) { return refuse(WHERE, std::string(stage) + " failed"); }

}  // namespace

int runDemo(const CommandLine&) {
    printStage(1, "SOAP 1.1 request", REQUEST);
    QKL::QKLSoapConverter converter;
    QKL::auto_destroy<QKLMessage> request(messageFromSoap(REQUEST, WHERE, converter));
    if (!request || !printMessage(2, "the request as a message (soapToQklmsg)", *request)) return EXIT_REFUSED;

    QKL::auto_destroy<QKLMessage> reply(request->genReply(REPLY_ORIGIN));
    if (!reply) return demoFailed("genReply");
    std::string scope;
    if (!answerAsDemoOperator(*request, *reply, scope) || scope.empty()) return demoFailed("the operator's answer");
    std::printf("== operator %s: %s of %s\n", DEMO_OPERATOR, DEMO_OPERATION, scope.c_str());
    if (!printMessage(3, "the reply (genReply(\"agent\"), answered by the operator)", *reply)) return EXIT_REFUSED;

    std::string response;
    if (!soapFromReply(*reply, converter.getSoapVersion(), WHERE, response)) return EXIT_REFUSED;
    printStage(4, "SOAP response (qklmsgToSoap)", response);
    return flushStandardOutput() ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace qklmsg
