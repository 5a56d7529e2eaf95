// Where bytes move: the binary round trip, XML out and XML in, from a document of the data set
// built beforehand. bytes_per_second counts each contender's own bytes: the binary document for
// ours and memcpy (the same bytes), libbson's document for libbson, each one's own text for XML.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Libbson.h"
#include "Libxml2.h"
#include "Ours.h"
#include "Pugixml.h"
#include "Scenarios.h"

namespace peers {

namespace {

void countBytes(benchmark::State& state, size_t perIteration) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(perIteration));
}

QKL::QKLMessage* oursBuilt(const DataSet& data) { return ours::build(data, ours::Names::ById); }

// ---- binary round trip: written out and received again ----

void roundTripOurs(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(oursBuilt(data));
    for (auto _ : state) {
        QKL::auto_destroy<> received(ours::roundTrip(*message));
        benchmark::DoNotOptimize(received.get());
    }
    countBytes(state, ours::bytes(*message).size());
}

template <bool VALIDATE>
void roundTripLibbson(benchmark::State& state, const DataSet& data) {
    const libbson::Doc doc(libbson::build(data));
    for (auto _ : state) {
        libbson::Doc received(libbson::roundTrip(doc.get(), VALIDATE));
        benchmark::DoNotOptimize(received.get());
    }
    countBytes(state, doc->len);
}

// The floor: one copy of our document's bytes into a buffer of the same size.
void roundTripMemcpy(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(oursBuilt(data));
    const std::string bytes = ours::bytes(*message);
    std::vector<char> copy(bytes.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), bytes.data(), bytes.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
    countBytes(state, bytes.size());
}

// ---- XML out: the same tree to text ----

void xmlOutOurs(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(oursBuilt(data));
    for (auto _ : state) {
        char* text = ours::render(*message);
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    countBytes(state, ours::text(*message).size());
}

void xmlOutPugixml(benchmark::State& state, const DataSet& data) {
    pugi::xml_document doc;
    pugixml::build(doc, data);
    for (auto _ : state) benchmark::DoNotOptimize(pugixml::write(doc));
    countBytes(state, pugixml::write(doc).size());
}

void xmlOutLibxml2(benchmark::State& state, const DataSet& data) {
    const libxml2::Doc doc(libxml2::build(data));
    for (auto _ : state) {
        int length = 0;
        xmlChar* text = libxml2::write(doc.get(), length);
        benchmark::DoNotOptimize(text);
        xmlFree(text);
    }
    countBytes(state, libxml2::text(doc.get()).size());
}

// ---- XML in: each contender's own text of the tree into a new document ----

void xmlInOurs(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(oursBuilt(data));
    const std::string text = ours::text(*message);
    for (auto _ : state) {
        QKL::auto_destroy<> parsed(ours::parse(text));
        benchmark::DoNotOptimize(parsed.get());
    }
    countBytes(state, text.size());
}

void xmlInPugixml(benchmark::State& state, const DataSet& data) {
    pugi::xml_document built;
    pugixml::build(built, data);
    const std::string text = pugixml::write(built);
    for (auto _ : state) {
        pugi::xml_document doc;
        benchmark::DoNotOptimize(pugixml::parse(doc, text));
    }
    countBytes(state, text.size());
}

void xmlInLibxml2(benchmark::State& state, const DataSet& data) {
    const libxml2::Doc built(libxml2::build(data));
    const std::string text = libxml2::text(built.get());
    for (auto _ : state) {
        libxml2::Doc doc(libxml2::parse(text));
        benchmark::DoNotOptimize(doc.get());
    }
    countBytes(state, text.size());
}

}  // namespace

void registerByteScenarios() {
    addForEachSize("roundtrip", "ours", roundTripOurs);
    addForEachSize("roundtrip", "libbson", roundTripLibbson<false>);
    addForEachSize("roundtrip", "libbson-validate", roundTripLibbson<true>);
    addForEachSize("roundtrip", "memcpy", roundTripMemcpy);
    addForEachSize("xml-out", "ours", xmlOutOurs);
    addForEachSize("xml-out", "pugixml", xmlOutPugixml);
    addForEachSize("xml-out", "libxml2", xmlOutLibxml2);
    addForEachSize("xml-in", "ours", xmlInOurs);
    addForEachSize("xml-in", "pugixml", xmlInPugixml);
    addForEachSize("xml-in", "libxml2", xmlInLibxml2);
}

}  // namespace peers
