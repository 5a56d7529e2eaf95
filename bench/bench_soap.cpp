// The SOAP bridge on a typical request:
// a SOAP 1.1 envelope with a packet_header and a GetList operation of 12 fields.
//  - BM_Soap_RoundTrip: soapToQklmsg of the request, then qklmsgToSoap of the
//    message (its own cookie answers it) and the response envelope's toText:
//    one web-service call through the bridge; items_per_second is requests/s.
//  - BM_Soap_ToMessage: soapToQklmsg alone.
//  - BM_FromText_OperationAlone: fromText of the operation element's text alone
//    into a fresh "packet" message, what any bridge must at least do.
//  - BM_Pugixml_EnvelopeParse: pugixml's load_buffer of the whole request, a
//    peer's cost of merely parsing the envelope.
// The ratio of round trip to fromText of the operation is the bridge's overhead.
#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <memory>
#include <string>

#include "qkl/QKL.h"

namespace {

const std::string NAMESPACE = "http://www.qkl.example/webservices/qkl/4.5.0/env_manager";

std::string operationText() {
    std::string text = "<GetList xmlns=\"" + NAMESPACE + "\">\n";
    for (int i = 0; i < 12; ++i)
        text += "  <field" + std::to_string(i) + ">value of field " + std::to_string(i) + "</field" +
                std::to_string(i) + ">\n";
    return text + "</GetList>\n";
}

const std::string& request() {
    static const std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
        "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
        "<soap:Header>\n"
        "<packet_header xmlns=\"http://www.qkl.example/webservices/qkl/4.5.0/protocol\" id=\"4f1c2a9e\">"
        "<origin>console.node-b</origin></packet_header>\n"
        "</soap:Header>\n<soap:Body>\n" +
        operationText() + "</soap:Body>\n</soap:Envelope>";
    return text;
}

int roundTrip(QKL::QKLSoapConverter& converter) {
    QKL::auto_destroy<QKL::QKLMessage> message(QKL::QKLMsgFactory::createNew());
    if (converter.soapToQklmsg(request().c_str(), *message) != 0) return -1;
    QKL::QKLSoapEnvelope* response = nullptr;
    if (converter.qklmsgToSoap(*message, converter.getSoapVersion(), response) != 0) return -1;
    char* text = response->toText();
    const int result = text != nullptr ? 0 : -1;
    std::free(text);
    delete response;
    return result;
}

void BM_Soap_RoundTrip(benchmark::State& state) {
    QKL::QKLSoapConverter converter;
    for (auto _ : state)
        if (roundTrip(converter) != 0) state.SkipWithError("round trip failed");
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(long(state.iterations() * request().size()));
}
BENCHMARK(BM_Soap_RoundTrip);

void BM_Soap_ToMessage(benchmark::State& state) {
    QKL::QKLSoapConverter converter;
    for (auto _ : state) {
        QKL::auto_destroy<QKL::QKLMessage> message(QKL::QKLMsgFactory::createNew());
        if (converter.soapToQklmsg(request().c_str(), *message) != 0) state.SkipWithError("soapToQklmsg failed");
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(long(state.iterations() * request().size()));
}
BENCHMARK(BM_Soap_ToMessage);

void BM_FromText_OperationAlone(benchmark::State& state) {
    const std::string operation = operationText();
    for (auto _ : state) {
        QKL::auto_destroy<QKL::QKLMessage> message(QKL::QKLMsgFactory::createNew());
        message->create("packet");
        std::unique_ptr<QKL::QKLMessageIterator> at(message->newIterator());
        if (at->fromTextToChild(operation.c_str()) != 0) state.SkipWithError("fromTextToChild failed");
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(long(state.iterations() * operation.size()));
}
BENCHMARK(BM_FromText_OperationAlone);

void BM_Pugixml_EnvelopeParse(benchmark::State& state) {
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_buffer(request().data(), request().size())) state.SkipWithError("load_buffer failed");
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(long(state.iterations() * request().size()));
}
BENCHMARK(BM_Pugixml_EnvelopeParse);

}  // namespace

BENCHMARK_MAIN();
