// libbson: nested documents and an array built with the append_*_begin/end calls,
// read with bson_iter; the wire form is the document's own bytes (bson_get_data).
#ifndef QKL_BENCH_PEERS_LIBBSON_H
#define QKL_BENCH_PEERS_LIBBSON_H

#include <bson/bson.h>

#include "DataSet.h"

namespace peers::libbson {

// The owner of one document (std::unique_ptr would drop bson_t's alignment attribute).
class Doc {
public:
    explicit Doc(bson_t* doc) : m_doc(doc) {}
    ~Doc() { bson_destroy(m_doc); }
    Doc(const Doc&) = delete;
    Doc& operator=(const Doc&) = delete;
    bson_t* get() const { return m_doc; }
    bson_t* operator->() const { return m_doc; }

private:
    bson_t* m_doc;
};

// A new document (release with bson_destroy): the header fields as typed fields
// (time as a UTC datetime), then data.envm.env, an array of N documents.
bson_t* build(const DataSet& data);
Checksum readAll(const bson_t* doc);
// The first env's eid by data.envm.env.0.eid; null when absent.
const char* lookUp(const bson_t* doc);
// What a receiver holds: a new document from the bytes, optionally validated
// (release with bson_destroy); null when refused.
bson_t* roundTrip(const bson_t* doc, bool validate);

}  // namespace peers::libbson

#endif
