#include "Libbson.h"

namespace peers::libbson {

namespace {

int length(const std::string& text) { return int(text.size()); }

}  // namespace

bson_t* build(const DataSet& data) {
    const Header& header = data.header;
    bson_t* doc = bson_new();
    bson_append_utf8(doc, "version", 7, header.versionText.data(), length(header.versionText));
    bson_append_utf8(doc, "id", 2, header.id.data(), length(header.id));
    bson_append_int32(doc, "priority", 8, header.priority);
    bson_append_date_time(doc, "time", 4, header.time * 1000LL);
    bson_append_int32(doc, "type", 4, header.type);
    bson_append_utf8(doc, "origin", 6, header.origin.data(), length(header.origin));
    bson_append_utf8(doc, "target", 6, header.target.data(), length(header.target));
    bson_append_utf8(doc, "session", 7, header.session.data(), length(header.session));
    bson_t dataDoc, envm, list, item;
    bson_append_document_begin(doc, "data", 4, &dataDoc);
    bson_append_document_begin(&dataDoc, "envm", 4, &envm);
    bson_append_array_begin(&envm, "env", 3, &list);
    char index[16];
    uint32_t i = 0;
    for (const Env& env : data.envs) {
        const char* key = nullptr;
        const size_t keyLength = bson_uint32_to_string(i++, &key, index, sizeof index);
        bson_append_document_begin(&list, key, int(keyLength), &item);
        bson_append_utf8(&item, "eid", 3, env.eid.data(), length(env.eid));
        bson_append_utf8(&item, "status", 6, env.status.data(), length(env.status));
        bson_append_int32(&item, "cpu", 3, env.cpu);
        bson_append_int64(&item, "memory", 6, env.memory);
        bson_append_double(&item, "load", 4, env.load);
        bson_append_document_end(&list, &item);
    }
    bson_append_array_end(&envm, &list);
    bson_append_document_end(&dataDoc, &envm);
    bson_append_document_end(doc, &dataDoc);
    return doc;
}

Checksum readAll(const bson_t* doc) {
    Checksum sum;
    bson_iter_t root, list, env;
    if (!bson_iter_init(&root, doc) || !bson_iter_find_descendant(&root, "data.envm.env", &list) ||
        !BSON_ITER_HOLDS_ARRAY(&list) || !bson_iter_recurse(&list, &list))
        return sum;
    while (bson_iter_next(&list)) {
        // The fields in their stored order: each bson_iter_find continues from the last.
        uint32_t eid = 0, status = 0;
        if (!bson_iter_recurse(&list, &env) || !bson_iter_find(&env, "eid")) continue;
        bson_iter_utf8(&env, &eid);
        if (!bson_iter_find(&env, "status")) continue;
        bson_iter_utf8(&env, &status);
        if (!bson_iter_find(&env, "cpu")) continue;
        const int cpu = bson_iter_int32(&env);
        if (!bson_iter_find(&env, "memory")) continue;
        const long long memory = bson_iter_int64(&env);
        if (!bson_iter_find(&env, "load")) continue;
        sum.add(eid, status, cpu, memory, bson_iter_double(&env));
    }
    return sum;
}

const char* lookUp(const bson_t* doc) {
    bson_iter_t root, eid;
    if (!bson_iter_init(&root, doc) || !bson_iter_find_descendant(&root, "data.envm.env.0.eid", &eid)) return nullptr;
    return bson_iter_utf8(&eid, nullptr);
}

bson_t* roundTrip(const bson_t* doc, bool validate) {
    bson_t* received = bson_new_from_data(bson_get_data(doc), doc->len);
    if (received != nullptr && validate && !bson_validate(received, BSON_VALIDATE_NONE, nullptr)) {
        bson_destroy(received);
        return nullptr;
    }
    return received;
}

}  // namespace peers::libbson
