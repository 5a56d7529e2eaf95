#include "Pugixml.h"

#include <cstring>

namespace peers::pugixml {

namespace {

struct StringWriter : pugi::xml_writer {
    std::string out;
    void write(const void* data, size_t size) override { out.append(static_cast<const char*>(data), size); }
};

}  // namespace

void build(pugi::xml_document& doc, const DataSet& data) {
    const Header& header = data.header;
    pugi::xml_node packet = doc.append_child("packet");
    packet.append_attribute("version").set_value(header.versionText.c_str());
    packet.append_attribute("priority").set_value(header.priority);
    packet.append_attribute("time").set_value(header.timeText.c_str());
    packet.append_attribute("type").set_value(header.type);
    packet.append_attribute("id").set_value(header.id.c_str());
    packet.append_child("origin").text().set(header.origin.c_str());
    packet.append_child("target").text().set(header.target.c_str());
    packet.append_child("session").text().set(header.session.c_str());
    pugi::xml_node envm = packet.append_child("data").append_child("envm");
    for (const Env& env : data.envs) {
        pugi::xml_node item = envm.append_child("env");
        item.append_child("eid").text().set(env.eid.c_str());
        item.append_child("status").text().set(env.status.c_str());
        item.append_child("cpu").text().set(env.cpu);
        item.append_child("memory").text().set(env.memory);
        item.append_child("load").text().set(env.load);
    }
}

Checksum readAll(const pugi::xml_document& doc) {
    Checksum sum;
    const pugi::xml_node envm = doc.child("packet").child("data").child("envm");
    for (pugi::xml_node env : envm.children("env")) {
        sum.add(std::strlen(env.child("eid").text().get()), std::strlen(env.child("status").text().get()),
                env.child("cpu").text().as_int(), env.child("memory").text().as_llong(),
                env.child("load").text().as_double());
    }
    return sum;
}

const char* lookUp(pugi::xml_node root) {
    const pugi::xml_node eid = root.first_element_by_path("data/envm/env/eid");
    return eid ? eid.text().get() : nullptr;
}

std::string write(const pugi::xml_document& doc) {
    StringWriter writer;
    doc.save(writer, "", pugi::format_raw);
    return std::move(writer.out);
}

bool parse(pugi::xml_document& doc, const std::string& text) {
    return bool(doc.load_buffer(text.data(), text.size()));
}

}  // namespace peers::pugixml
