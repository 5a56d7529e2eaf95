// A look-up by name in a long flat list: data/envm holds the N env elements, then one more,
// "summary". Reaching "summary" by name passes the N env siblings first: ours by design
// (putValue writes over an existing child of that name, so it looks for one first), and
// pugixml's child() walks its sibling list the same way. Time per look-up grows with N.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "DataSet.h"
#include "Ours.h"
#include "Pugixml.h"
#include "Scenarios.h"

namespace peers {

namespace {

const std::string SUMMARY = "summary", ENVM_PATH = "data/envm";

// An iterator on data/envm, whose last child is "summary"; null when a call fails.
std::unique_ptr<QKL::QKLMessageIterator> onTheList(QKL::QKLMessage& message) {
    std::unique_ptr<QKL::QKLMessageIterator> list(message.newIterator());
    if (list->seek(ENVM_PATH) != 0 || list->putValue(0, SUMMARY) != 0) return nullptr;
    return list;
}

void flatPutOurs(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(ours::build(data, ours::Names::ByName));
    const std::unique_ptr<QKL::QKLMessageIterator> list = onTheList(*message);
    if (!list) state.SkipWithError("the list could not be made");
    int value = 0;
    for (auto _ : state)
        if (list->putValue(++value, SUMMARY) != 0) state.SkipWithError("putValue failed");
}

void flatGetOurs(benchmark::State& state, const DataSet& data) {
    const QKL::auto_destroy<> message(ours::build(data, ours::Names::ByName));
    const std::unique_ptr<QKL::QKLMessageIterator> list = onTheList(*message);
    if (!list) state.SkipWithError("the list could not be made");
    int value = 0;
    for (auto _ : state) {
        if (list->getValue(value, SUMMARY) != 0) state.SkipWithError("getValue failed");
        benchmark::DoNotOptimize(value);
    }
}

void flatGetPugixml(benchmark::State& state, const DataSet& data) {
    pugi::xml_document doc;
    pugixml::build(doc, data);
    pugi::xml_node list = doc.document_element().first_element_by_path(ENVM_PATH.c_str());
    list.append_child(SUMMARY.c_str()).text().set(0);
    for (auto _ : state) benchmark::DoNotOptimize(list.child(SUMMARY.c_str()).text().as_int());
}

}  // namespace

void registerGrowthScenarios() {
    addForEachSize("flat-put", "ours", flatPutOurs);
    addForEachSize("flat-get", "ours", flatGetOurs);
    addForEachSize("flat-get", "pugixml", flatGetPugixml);
}

}  // namespace peers
