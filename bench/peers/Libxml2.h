// libxml2's tree API: xmlNewChild to build, the children lists with xmlNodeGetContent
// and strtol/strtod to read, xmlDocDumpMemory and xmlReadMemory for the text.
#ifndef QKL_BENCH_PEERS_LIBXML2_H
#define QKL_BENCH_PEERS_LIBXML2_H

#include <libxml/tree.h>

#include <memory>
#include <string>

#include "DataSet.h"

namespace peers::libxml2 {

struct FreeDoc {
    void operator()(xmlDocPtr doc) const { xmlFreeDoc(doc); }
};
using Doc = std::unique_ptr<xmlDoc, FreeDoc>;

// A new document (release with xmlFreeDoc); the header fields are attributes of the root.
xmlDocPtr build(const DataSet& data);
Checksum readAll(xmlDocPtr doc);
// The text, allocated by libxml2 (release with xmlFree), and its length.
xmlChar* write(xmlDocPtr doc, int& length);
std::string text(xmlDocPtr doc);
// A new document from the text (release with xmlFreeDoc), or null.
xmlDocPtr parse(const std::string& text);

}  // namespace peers::libxml2

#endif
