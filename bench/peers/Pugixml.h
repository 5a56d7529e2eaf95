// pugixml's DOM, as its documentation shows it: append_child and text().set to
// build, child() and text().as_* to read, first_element_by_path, save and load_buffer.
#ifndef QKL_BENCH_PEERS_PUGIXML_H
#define QKL_BENCH_PEERS_PUGIXML_H

#include <pugixml.hpp>
#include <string>

#include "DataSet.h"

namespace peers::pugixml {

// The header fields are attributes of the root, as in our XML text form.
void build(pugi::xml_document& doc, const DataSet& data);
Checksum readAll(const pugi::xml_document& doc);
// The first env's eid by the path data/envm/env/eid from the root element; null when absent.
const char* lookUp(pugi::xml_node root);
// The text without indentation (format_raw), into a string.
std::string write(const pugi::xml_document& doc);
bool parse(pugi::xml_document& doc, const std::string& text);

}  // namespace peers::pugixml

#endif
