// Document buffer and ID map:
//  - name -> ID through the vocabulary trie, against libxml2's dictionary and a
//    std::unordered_map over the same names; `allocs` counts operator new calls per look-up;
//  - appending a child at the end of the tree, against pugixml's append_child and
//    libbson's append, for documents of growing size: the QKL append moves only the
//    map area behind the tree, so its cost per child must not grow with the tree;
//  - a typical agent reply (200 "env" elements of five values) serialized and received,
//    and received then read value by value by name.
#include <benchmark/benchmark.h>
#include <bson/bson.h>
#include <libxml/xmlstring.h>
#include <libxml/dict.h>
#include <pugixml.hpp>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qkl/QKL.h"

namespace {

std::atomic<long> g_allocations{0};

}  // namespace

void* operator new(std::size_t size) {
    ++g_allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

std::vector<std::string> elementNames() {
    std::vector<std::string> names;
    for (int id = QKL::ELEM_FIRST_ID; id <= QKL::ELEM_LAST_ID; ++id) {
        const QKL::Internal::CharArray& name = QKL::getStringByElemIdDefault(id);
        if (!name.empty()) names.push_back(name.str());
    }
    return names;
}

const std::vector<std::string>& names() {
    static const std::vector<std::string> all = elementNames();
    return all;
}

// Runs lookUp over every element name per iteration; reports look-ups per second
// and operator new calls per iteration (0 expected).
template <typename LookUp>
void lookUpAllNames(benchmark::State& state, LookUp lookUp) {
    const std::vector<std::string>& all = names();
    const long before = g_allocations;
    for (auto _ : state)
        for (const std::string& n : all) benchmark::DoNotOptimize(lookUp(n));
    state.SetItemsProcessed(state.iterations() * long(all.size()));
    state.counters["allocs"] =
        benchmark::Counter(double(g_allocations - before), benchmark::Counter::kAvgIterations);
}

void BM_LookupQKLTrie(benchmark::State& state) {
    lookUpAllNames(state, [](const std::string& n) { return QKL::getElemIdByStringDefault(n.data(), n.size()); });
}
BENCHMARK(BM_LookupQKLTrie);

void BM_LookupQKLIDMapFindStrC(benchmark::State& state) {
    QKL::QKLBinaryInternals doc;
    doc.turnBlank();
    lookUpAllNames(state, [&doc](const std::string& n) {
        return doc.idMap().findStrC(QKL::Internal::CharArray(n.data(), unsigned(n.size())),
                                    &QKL::QKLDefaultMap::findElem);
    });
}
BENCHMARK(BM_LookupQKLIDMapFindStrC);

void BM_LookupStdUnorderedMap(benchmark::State& state) {
    const std::vector<std::string>& all = names();
    std::unordered_map<std::string_view, int> map;
    for (size_t i = 0; i < all.size(); ++i) map.emplace(all[i], int(i));
    lookUpAllNames(state, [&map](const std::string& n) { return map.find(n) != map.end(); });
}
BENCHMARK(BM_LookupStdUnorderedMap);

void BM_LookupLibxml2Dict(benchmark::State& state) {
    const std::vector<std::string>& all = names();
    xmlDictPtr dict = xmlDictCreate();
    for (const std::string& n : all) xmlDictLookup(dict, reinterpret_cast<const xmlChar*>(n.data()), int(n.size()));
    lookUpAllNames(state, [dict](const std::string& n) {
        return xmlDictExists(dict, reinterpret_cast<const xmlChar*>(n.data()), int(n.size()));
    });
    xmlDictFree(dict);
}
BENCHMARK(BM_LookupLibxml2Dict);

// Appends state.range(0) int children under the root of a new document.
void BM_AppendQKLBinaryInternals(benchmark::State& state) {
    const int children = int(state.range(0));
    for (auto _ : state) {
        QKL::QKLBinaryInternals doc;
        doc.turnBlank();
        QKL::BinaryPath path;
        doc.insert(path, 1398, QKL::binary::TYPE_CONTAINER, nullptr, 0, false);
        doc.add2map(unsigned(-2), 0, "custom_name", 11);  // a map area behind the tree, as in real documents
        for (int i = 0; i < children; ++i) {
            doc.insert(path, 1010, QKL::binary::TYPE_INT, &i, sizeof i, false);
            path.pop();
        }
        benchmark::DoNotOptimize(doc.buffer());
    }
    state.SetItemsProcessed(state.iterations() * children);
}
BENCHMARK(BM_AppendQKLBinaryInternals)->Arg(16)->Arg(256)->Arg(4096);

void BM_AppendPugixml(benchmark::State& state) {
    const int children = int(state.range(0));
    for (auto _ : state) {
        pugi::xml_document doc;
        pugi::xml_node root = doc.append_child("packet");
        for (int i = 0; i < children; ++i) root.append_child("id").text().set(i);
        benchmark::DoNotOptimize(root);
    }
    state.SetItemsProcessed(state.iterations() * children);
}
BENCHMARK(BM_AppendPugixml)->Arg(16)->Arg(256)->Arg(4096);

void BM_AppendLibbson(benchmark::State& state) {
    const int children = int(state.range(0));
    for (auto _ : state) {
        bson_t* doc = bson_new();
        for (int i = 0; i < children; ++i) bson_append_int32(doc, "id", 2, i);
        benchmark::DoNotOptimize(bson_get_data(doc));
        bson_destroy(doc);
    }
    state.SetItemsProcessed(state.iterations() * children);
}
BENCHMARK(BM_AppendLibbson)->Arg(16)->Arg(256)->Arg(4096);

// packet/data/envm with 200 "env" elements of five values; "env", "eid" and "load" are
// no vocabulary names, so the document carries a map area.
QKL::QKLMessage* agentReply() {
    QKL::QKLMessage* reply = QKL::QKLMsgFactory::createNew();
    reply->create("packet");
    std::unique_ptr<QKL::QKLMessageIterator> at(reply->newIterator());
    at->newChild("data");
    at->newChild("envm");
    for (int i = 0; i < 200; ++i) {
        at->newChild("env");
        at->putValue("agent-" + std::to_string(i), "eid");
        at->putValue(std::string(i % 7 ? "running" : "stopped"), "status");
        at->putValue(i % 100, "cpu");
        at->putValueLongLong(1000000007LL * i, "memory");
        at->putValueDouble(i / 8.0, "load");
        at->seekUp();
    }
    return reply;
}

std::string agentReplyBytes() {
    QKL::auto_destroy<> reply(agentReply());
    char* bytes = nullptr;
    int length = 0;
    reply->serialize(&bytes, &length, nullptr, 40500);
    std::string copy(bytes, size_t(length));
    std::free(bytes);
    return copy;
}

void BM_AgentReplySerializeAndReceive(benchmark::State& state) {
    QKL::auto_destroy<> reply(agentReply());
    const long before = g_allocations;
    for (auto _ : state) {
        char* bytes = nullptr;
        int length = 0;
        reply->serialize(&bytes, &length, nullptr, 40500);
        QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(bytes, length));
        benchmark::DoNotOptimize(received.get());
        std::free(bytes);
    }
    state.counters["allocs"] = benchmark::Counter(double(g_allocations - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_AgentReplySerializeAndReceive);

// The same through the owning handles; `allocs` (operator new per iteration) must match the raw row's.
void BM_AgentReplySerializeAndReceiveHandles(benchmark::State& state) {
    const QKL::MessagePtr reply(agentReply());
    const long before = g_allocations;
    for (auto _ : state) {
        const QKL::Buffer bytes = QKL::serialize(*reply);
        const QKL::MessagePtr received = QKL::parse(bytes.view());
        benchmark::DoNotOptimize(received.get());
    }
    state.counters["allocs"] = benchmark::Counter(double(g_allocations - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_AgentReplySerializeAndReceiveHandles);

// Receives the reply and reads all 1000 values by name; reports values per second.
void BM_AgentReplyReceiveAndReadByName(benchmark::State& state) {
    const std::string bytes = agentReplyBytes();
    const long before = g_allocations;
    std::string text;
    int cpu = 0;
    long long memory = 0;
    double load = 0;
    for (auto _ : state) {
        QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
        std::unique_ptr<QKL::QKLMessageIterator> env(received->newIterator());
        env->seek("data/envm");
        for (int more = env->firstChild(); more == 0; more = env->nextSibling()) {
            env->getValue(text, "eid");
            env->getValue(text, "status");
            env->getValue(cpu, "cpu");
            env->getValueLongLong(memory, "memory");
            env->getValueDouble(load, "load");
            benchmark::DoNotOptimize(load);
        }
    }
    state.SetItemsProcessed(state.iterations() * 1000);
    state.counters["allocs"] = benchmark::Counter(double(g_allocations - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_AgentReplyReceiveAndReadByName);

// The same reading loop through QKL::children and QKL::get.
void BM_AgentReplyReceiveAndReadByNameHandles(benchmark::State& state) {
    const std::string bytes = agentReplyBytes();
    const long before = g_allocations;
    for (auto _ : state) {
        const QKL::MessagePtr received = QKL::parse(bytes);
        const QKL::IteratorPtr envm = QKL::iterate(*received);
        envm->seek("data/envm");
        for (QKL::QKLMessageIterator& env : QKL::children(*envm)) {
            const std::optional<std::string> eid = QKL::get<std::string>(env, "eid");
            const std::optional<std::string> status = QKL::get<std::string>(env, "status");
            const std::optional<int> cpu = QKL::get<int>(env, "cpu");
            const std::optional<long long> memory = QKL::get<long long>(env, "memory");
            const std::optional<double> load = QKL::get<double>(env, "load");
            // The raw row's reads store through references; the strings, as there, are not kept.
            benchmark::DoNotOptimize(cpu);
            benchmark::DoNotOptimize(memory);
            benchmark::DoNotOptimize(load);
        }
    }
    state.SetItemsProcessed(state.iterations() * 1000);
    state.counters["allocs"] = benchmark::Counter(double(g_allocations - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_AgentReplyReceiveAndReadByNameHandles);

}  // namespace

BENCHMARK_MAIN();
