// Before any timing: every contender must do the same work on the same data. For each N,
// the read-all sums equal the data set's, the path look-up finds the first eid, each XML
// text parses back to the same values (ours also through pugixml: the trees agree), and a
// round trip gives back the very bytes. A mismatch ends the program before it times anything.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "DataSet.h"
#include "Libbson.h"
#include "Libxml2.h"
#include "Ours.h"
#include "Pugixml.h"
#include "Scenarios.h"

namespace peers {

namespace {

using ours::Names;

int checkedSize = 0;

void require(bool agreed, const char* what) {
    if (agreed) return;
    if (checkedSize > 0)
        std::fprintf(stderr, "bench_peers: %s (N = %d): the contenders do not do the same work\n", what, checkedSize);
    else
        std::fprintf(stderr, "bench_peers: %s: failed\n", what);
    std::exit(1);
}

std::string bytesOf(const bson_t* doc) {
    return doc ? std::string(reinterpret_cast<const char*>(bson_get_data(doc)), doc->len) : std::string();
}

void checkOurs(const DataSet& data, const Checksum& want) {
    const QKL::auto_destroy<> byId(ours::build(data, Names::ById)), byName(ours::build(data, Names::ByName));
    require(byId && byName, "ours: build");
    // The same tree; the map areas differ, since a name written by name is recorded there.
    const std::string text = ours::text(*byId);
    require(!text.empty() && text == ours::text(*byName), "ours: by ID and by name build the same tree");
    require(ours::readAll(*byId, Names::ById) == want, "ours: read all by ID");
    require(ours::readAll(*byName, Names::ByName) == want, "ours: read all by name");

    const std::unique_ptr<const QKL::QKLMessageIterator> root(std::as_const(*byId).newIterator());
    std::string first, again;
    require(ours::lookUp(*root, first) == 0 && first == data.envs.front().eid &&
                ours::lookUp(*root, again) == 0 && again == first,
            "ours: path look-up, twice from the same iterator");

    const std::string bytes = ours::bytes(*byId);
    const QKL::auto_destroy<> received(ours::roundTrip(*byId));
    require(!bytes.empty() && received && ours::bytes(*received) == bytes, "ours: binary round trip");

    const QKL::auto_destroy<> parsed(ours::parse(text));
    require(parsed && ours::readAll(*parsed, Names::ByName) == want, "ours: XML out, then in");
    pugi::xml_document asPeerReadsIt;
    require(pugixml::parse(asPeerReadsIt, text) && pugixml::readAll(asPeerReadsIt) == want,
            "ours: our XML text read by pugixml");
}

void checkPugixml(const DataSet& data, const Checksum& want) {
    pugi::xml_document doc, parsed;
    pugixml::build(doc, data);
    require(pugixml::readAll(doc) == want, "pugixml: read all");
    const char* eid = pugixml::lookUp(doc.document_element());
    require(eid != nullptr && eid == data.envs.front().eid, "pugixml: path look-up");
    require(pugixml::parse(parsed, pugixml::write(doc)) && pugixml::readAll(parsed) == want,
            "pugixml: XML out, then in");
}

void checkLibxml2(const DataSet& data, const Checksum& want) {
    const libxml2::Doc doc(libxml2::build(data));
    require(libxml2::readAll(doc.get()) == want, "libxml2: read all");
    const libxml2::Doc parsed(libxml2::parse(libxml2::text(doc.get())));
    require(parsed && libxml2::readAll(parsed.get()) == want, "libxml2: XML out, then in");
}

void checkLibbson(const DataSet& data, const Checksum& want) {
    const libbson::Doc doc(libbson::build(data));
    require(libbson::readAll(doc.get()) == want, "libbson: read all");
    const char* eid = libbson::lookUp(doc.get());
    require(eid != nullptr && eid == data.envs.front().eid, "libbson: path look-up");
    const libbson::Doc received(libbson::roundTrip(doc.get(), false)), validated(libbson::roundTrip(doc.get(), true));
    require(bytesOf(received.get()) == bytesOf(doc.get()) && bytesOf(validated.get()) == bytesOf(doc.get()),
            "libbson: round trip");
}

}  // namespace

void checkContendersAgree() {
    const ours::Ids& id = ours::ids();
    require(id.data && id.status && id.cpu && id.memory && id.origin && id.target && id.session,
            "ours: the vocabulary's element IDs");
    for (int n : SIZES) {
        checkedSize = n;
        const DataSet& data = dataSet(n);
        const Checksum want = expectedChecksum(data);
        checkOurs(data, want);
        checkPugixml(data, want);
        checkLibxml2(data, want);
        checkLibbson(data, want);
    }
    checkedSize = 0;
    const std::string response = soapResponse();
    require(response.find("Response xmlns=") != std::string::npos && response.find(">web-19<") != std::string::npos,
            "SOAP call: the response carries the answer");
}

}  // namespace peers
