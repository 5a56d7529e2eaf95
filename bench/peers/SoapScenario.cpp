// One web-service call through the SOAP bridge, as the agent serves it: the request
// becomes a message (soapToQklmsg), the reply made by genReply is answered under
// data/env_manager, and becomes the response envelope (qklmsgToSoap) and its text.
// No peer does this; items_per_second is calls per second.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "Scenarios.h"
#include "qkl/QKL.h"

namespace peers {

namespace {

const char REQUEST[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<soap:Envelope xmlns:soap="http://schemas.xmlsoap.org/soap/envelope/">
<soap:Header>
<packet_header xmlns="http://www.qkl.example/webservices/qkl/4.5.0/protocol" id="4f1c2a9e"><origin>console.node-b</origin></packet_header>
</soap:Header>
<soap:Body>
<GetList xmlns="http://www.qkl.example/webservices/qkl/4.5.0/env_manager"><scope>servers</scope><limit>20</limit><status>running</status></GetList>
</soap:Body>
</soap:Envelope>)";

const std::string OPERATOR = "env_manager", ROW = "server", DATA = QKL::QKLMessage::DATA;
constexpr int ANSWER_ROWS = 20;

// The operator's answer: one "server" row per server, as the request's limit asks.
bool answer(QKL::QKLMessage& reply) {
    const std::unique_ptr<QKL::QKLMessageIterator> at(reply.newIterator());
    if (at->seek(DATA) != 0 || at->newChild(OPERATOR) != 0) return false;
    for (int i = 0; i < ANSWER_ROWS; ++i)
        if (at->newChild(ROW) != 0 || at->putValue("web-" + std::to_string(i), QKL::QKLMessageIterator::EmptyName) != 0)
            return false;
    return true;
}

// The response text (malloc'ed, release with free()), or null when a stage fails.
char* call(QKL::QKLSoapConverter& converter) {
    QKL::auto_destroy<> request(QKL::QKLMsgFactory::createNew());
    if (converter.soapToQklmsg(REQUEST, *request) != 0) return nullptr;
    QKL::auto_destroy<> reply(request->genReply("agent"));
    if (!reply || !answer(*reply)) return nullptr;
    QKL::QKLSoapEnvelope* response = nullptr;
    if (converter.qklmsgToSoap(*reply, converter.getSoapVersion(), response) != 0) return nullptr;
    char* text = response->toText();
    delete response;
    return text;
}

void soapCall(benchmark::State& state) {
    QKL::QKLSoapConverter converter;
    for (auto _ : state) {
        char* text = call(converter);
        if (text == nullptr) state.SkipWithError("the call failed");
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

std::string soapResponse() {
    QKL::QKLSoapConverter converter;
    char* text = call(converter);
    std::string copy = text != nullptr ? text : "";
    std::free(text);
    return copy;
}

void registerSoapScenario() { benchmark::RegisterBenchmark(runName("soap", "ours", 0).c_str(), soapCall); }

}  // namespace peers
