// The XML text form, on a typical agent
// reply: a packet with header fields, origin and target, and a data list of 200
// elements with 5 typed fields each (int, string, long long, double, time).
//  - toText of the message, against pugixml's save of the same tree;
//  - fromText of that text, against pugixml's load_buffer and libxml2's xmlReadMemory.
// Compare the bytes_per_second of the lines of one run: the ratios are the result.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "qkl/QKL.h"

namespace {

const int ITEMS = 200;
const long WHEN = 1700000000;

// Five element names of the vocabulary for the fields, one for the list item.
std::string vocabularyName(int id) { return QKL::getStringByElemIdDefault(id).str(); }

struct Names {
    std::string item = vocabularyName(1001);
    std::string fields[5] = {vocabularyName(1002), vocabularyName(1003), vocabularyName(1004),
                             vocabularyName(1005), vocabularyName(1006)};
};

const Names& names() {
    static const Names all;
    return all;
}

QKL::QKLMessage* typicalReply() {
    QKL::QKLMessage* reply = QKL::QKLMsgFactory::createNew();
    reply->create("packet");
    reply->setVersion(40500);
    reply->setID("4f1c2a9e-reply", false);
    reply->setPriority(3);
    reply->setTime(WHEN);
    reply->setType(2);
    std::unique_ptr<QKL::QKLMessageIterator> at(reply->newIterator());
    at->putValue(std::string("agent.node-a"), "origin");
    at->putValue(std::string("console.node-b"), "target");
    at->newChild("data");
    for (int i = 0; i < ITEMS; ++i) {
        at->newChild(names().item);
        at->putValue(i, names().fields[0]);
        at->putValue(std::string("resource-") + std::to_string(i), names().fields[1]);
        at->putValueLongLong(1099511627776LL + i, names().fields[2]);
        at->putValueDouble(0.25 * i, names().fields[3]);
        at->putValueTime(WHEN + i, names().fields[4]);
        at->seekUp();
    }
    reply->saveChanges();
    return reply;
}

const std::string& replyText() {
    static const std::string text = [] {
        QKL::auto_destroy<QKL::QKLMessage> reply(typicalReply());
        char* rendered = reply->toText(nullptr, "", 40500);
        std::string copy = rendered ? rendered : "";
        std::free(rendered);
        return copy;
    }();
    return text;
}

// The same tree for pugixml: header fields as root attributes, values as text.
void buildPugi(pugi::xml_document& doc) {
    pugi::xml_node packet = doc.append_child("packet");
    packet.append_attribute("version") = "4.5.0";
    packet.append_attribute("id") = "4f1c2a9e-reply";
    packet.append_attribute("priority") = 3;
    packet.append_attribute("time") = QKL::time2str(WHEN).c_str();
    packet.append_attribute("type") = 2;
    packet.append_child("origin").text() = "agent.node-a";
    packet.append_child("target").text() = "console.node-b";
    pugi::xml_node data = packet.append_child("data");
    for (int i = 0; i < ITEMS; ++i) {
        pugi::xml_node item = data.append_child(names().item.c_str());
        item.append_child(names().fields[0].c_str()).text() = i;
        item.append_child(names().fields[1].c_str()).text() = (std::string("resource-") + std::to_string(i)).c_str();
        item.append_child(names().fields[2].c_str()).text() = 1099511627776LL + i;
        item.append_child(names().fields[3].c_str()).text() = 0.25 * i;
        item.append_child(names().fields[4].c_str()).text() = QKL::time2str(WHEN + i).c_str();
    }
}

struct StringWriter : pugi::xml_writer {
    std::string out;
    void write(const void* data, size_t size) override { out.append(static_cast<const char*>(data), size); }
};

void BM_ToText_QKL(benchmark::State& state) {
    QKL::auto_destroy<QKL::QKLMessage> reply(typicalReply());
    size_t bytes = 0;
    for (auto _ : state) {
        char* text = reply->toText(nullptr, "", 40500);
        bytes += text ? std::strlen(text) : 0;
        std::free(text);
    }
    state.SetBytesProcessed(long(bytes));
}
BENCHMARK(BM_ToText_QKL);

void BM_ToText_Pugixml(benchmark::State& state) {
    pugi::xml_document doc;
    buildPugi(doc);
    size_t bytes = 0;
    for (auto _ : state) {
        StringWriter writer;
        doc.save(writer, "", pugi::format_raw);
        bytes += writer.out.size();
    }
    state.SetBytesProcessed(long(bytes));
}
BENCHMARK(BM_ToText_Pugixml);

void BM_FromText_QKL(benchmark::State& state) {
    const std::string& text = replyText();
    QKL::auto_destroy<QKL::QKLMessage> message(QKL::QKLMsgFactory::createNew());
    for (auto _ : state) {
        if (message->fromText(text.c_str(), nullptr) != 0) state.SkipWithError("fromText failed");
    }
    state.SetBytesProcessed(long(state.iterations() * text.size()));
}
BENCHMARK(BM_FromText_QKL);

void BM_FromText_PugixmlLoadBuffer(benchmark::State& state) {
    const std::string& text = replyText();
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_buffer(text.data(), text.size())) state.SkipWithError("load_buffer failed");
    }
    state.SetBytesProcessed(long(state.iterations() * text.size()));
}
BENCHMARK(BM_FromText_PugixmlLoadBuffer);

void BM_FromText_Libxml2ReadMemory(benchmark::State& state) {
    const std::string& text = replyText();
    for (auto _ : state) {
        xmlDocPtr doc = xmlReadMemory(text.data(), int(text.size()), nullptr, nullptr, XML_PARSE_NONET);
        if (doc == nullptr) state.SkipWithError("xmlReadMemory failed");
        xmlFreeDoc(doc);
    }
    state.SetBytesProcessed(long(state.iterations() * text.size()));
}
BENCHMARK(BM_FromText_Libxml2ReadMemory);

}  // namespace

BENCHMARK_MAIN();
