// build, read all and path look-up: one document of the data set per contender.
// held_bytes (build): heap bytes one built document holds, measured once outside the timing.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <utility>

#include "DataSet.h"
#include "Libbson.h"
#include "Libxml2.h"
#include "Memory.h"
#include "Ours.h"
#include "Pugixml.h"
#include "Scenarios.h"

namespace peers {

namespace {

// ---- build: the whole document made and released per iteration ----

template <ours::Names NAMES>
void buildOurs(benchmark::State& state, const DataSet& data) {
    for (auto _ : state) {
        QKL::auto_destroy<> message(ours::build(data, NAMES));
        benchmark::DoNotOptimize(message.get());
    }
    state.counters["held_bytes"] =
        heldBytes([&] { return ours::build(data, NAMES); }, [](QKL::QKLMessage* message) { message->destroy(); });
}

void buildPugixml(benchmark::State& state, const DataSet& data) {
    for (auto _ : state) {
        pugi::xml_document doc;
        pugixml::build(doc, data);
        benchmark::DoNotOptimize(doc.first_child());
    }
    const auto make = [&] {
        auto doc = std::make_unique<pugi::xml_document>();
        pugixml::build(*doc, data);
        return doc;
    };
    state.counters["held_bytes"] = heldBytes(make, [](auto& doc) { doc.reset(); });
}

void buildLibxml2(benchmark::State& state, const DataSet& data) {
    for (auto _ : state) {
        libxml2::Doc doc(libxml2::build(data));
        benchmark::DoNotOptimize(doc.get());
    }
    state.counters["held_bytes"] = heldBytes([&] { return libxml2::build(data); }, xmlFreeDoc);
}

void buildLibbson(benchmark::State& state, const DataSet& data) {
    for (auto _ : state) {
        libbson::Doc doc(libbson::build(data));
        benchmark::DoNotOptimize(doc.get());
    }
    state.counters["held_bytes"] = heldBytes([&] { return libbson::build(data); }, bson_destroy);
}

// ---- read all: every env's five values from a document built beforehand ----

template <ours::Names NAMES>
void readOurs(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(ours::build(data, NAMES));
    for (auto _ : state) benchmark::DoNotOptimize(ours::readAll(*message, NAMES));
}

void readPugixml(benchmark::State& state, const DataSet& data) {
    pugi::xml_document doc;
    pugixml::build(doc, data);
    for (auto _ : state) benchmark::DoNotOptimize(pugixml::readAll(doc));
}

void readLibxml2(benchmark::State& state, const DataSet& data) {
    const libxml2::Doc doc(libxml2::build(data));
    for (auto _ : state) benchmark::DoNotOptimize(libxml2::readAll(doc.get()));
}

void readLibbson(benchmark::State& state, const DataSet& data) {
    const libbson::Doc doc(libbson::build(data));
    for (auto _ : state) benchmark::DoNotOptimize(libbson::readAll(doc.get()));
}

// ---- path look-up: data/envm/env/eid from the root ----

void pathOurs(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(ours::build(data, ours::Names::ById));
    const std::unique_ptr<const QKL::QKLMessageIterator> root(std::as_const(*message).newIterator());
    std::string eid;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ours::lookUp(*root, eid));
        benchmark::DoNotOptimize(eid.data());
    }
}

void pathPugixml(benchmark::State& state, const DataSet& data) {
    pugi::xml_document doc;
    pugixml::build(doc, data);
    const pugi::xml_node root = doc.document_element();
    for (auto _ : state) benchmark::DoNotOptimize(pugixml::lookUp(root));
}

void pathLibbson(benchmark::State& state, const DataSet& data) {
    const libbson::Doc doc(libbson::build(data));
    for (auto _ : state) benchmark::DoNotOptimize(libbson::lookUp(doc.get()));
}

}  // namespace

void registerTreeScenarios() {
    addForEachSize("build", "ours-id", buildOurs<ours::Names::ById>);
    addForEachSize("build", "ours-name", buildOurs<ours::Names::ByName>);
    addForEachSize("build", "pugixml", buildPugixml);
    addForEachSize("build", "libxml2", buildLibxml2);
    addForEachSize("build", "libbson", buildLibbson);
    addForEachSize("read", "ours-id", readOurs<ours::Names::ById>);
    addForEachSize("read", "ours-name", readOurs<ours::Names::ByName>);
    addForEachSize("read", "pugixml", readPugixml);
    addForEachSize("read", "libxml2", readLibxml2);
    addForEachSize("read", "libbson", readLibbson);
    addForEachSize("path", "ours", pathOurs);
    addForEachSize("path", "pugixml", pathPugixml);
    addForEachSize("path", "libbson", pathLibbson);
}

}  // namespace peers
