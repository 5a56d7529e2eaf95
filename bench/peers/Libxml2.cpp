#include "Libxml2.h"

#include <libxml/parser.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

namespace peers::libxml2 {

namespace {

const xmlChar* xml(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
const xmlChar* xml(const std::string& text) { return xml(text.c_str()); }

// A number's text for xmlNewChild, in the caller's buffer.
template <class Number>
const xmlChar* numberText(Number value, char (&buffer)[32]) {
    *std::to_chars(buffer, buffer + sizeof buffer - 1, value).ptr = '\0';
    return xml(buffer);
}

// The first element child of that name, or null.
xmlNodePtr child(xmlNodePtr parent, const char* name) {
    if (parent == nullptr) return nullptr;
    for (xmlNodePtr node = parent->children; node != nullptr; node = node->next)
        if (node->type == XML_ELEMENT_NODE && xmlStrEqual(node->name, xml(name))) return node;
    return nullptr;
}

// A value's content through xmlNodeGetContent, the copy released after use.
template <class Read>
auto content(xmlNodePtr env, const char* name, Read read) {
    xmlChar* text = xmlNodeGetContent(child(env, name));
    const auto value = read(text != nullptr ? reinterpret_cast<const char*>(text) : "");
    xmlFree(text);
    return value;
}

}  // namespace

xmlDocPtr build(const DataSet& data) {
    const Header& header = data.header;
    char number[32];
    xmlDocPtr doc = xmlNewDoc(xml("1.0"));
    xmlNodePtr packet = xmlNewDocNode(doc, nullptr, xml("packet"), nullptr);
    xmlDocSetRootElement(doc, packet);
    xmlNewProp(packet, xml("version"), xml(header.versionText));
    xmlNewProp(packet, xml("priority"), numberText(header.priority, number));
    xmlNewProp(packet, xml("time"), xml(header.timeText));
    xmlNewProp(packet, xml("type"), numberText(header.type, number));
    xmlNewProp(packet, xml("id"), xml(header.id));
    xmlNewChild(packet, nullptr, xml("origin"), xml(header.origin));
    xmlNewChild(packet, nullptr, xml("target"), xml(header.target));
    xmlNewChild(packet, nullptr, xml("session"), xml(header.session));
    xmlNodePtr envm = xmlNewChild(xmlNewChild(packet, nullptr, xml("data"), nullptr), nullptr, xml("envm"), nullptr);
    for (const Env& env : data.envs) {
        xmlNodePtr item = xmlNewChild(envm, nullptr, xml("env"), nullptr);
        xmlNewChild(item, nullptr, xml("eid"), xml(env.eid));
        xmlNewChild(item, nullptr, xml("status"), xml(env.status));
        xmlNewChild(item, nullptr, xml("cpu"), numberText(env.cpu, number));
        xmlNewChild(item, nullptr, xml("memory"), numberText(env.memory, number));
        xmlNewChild(item, nullptr, xml("load"), numberText(env.load, number));
    }
    return doc;
}

Checksum readAll(xmlDocPtr doc) {
    Checksum sum;
    const xmlNodePtr envm = child(child(xmlDocGetRootElement(doc), "data"), "envm");
    if (envm == nullptr) return sum;
    const auto length = [](const char* text) { return std::strlen(text); };
    const auto toLong = [](const char* text) { return std::strtol(text, nullptr, 10); };
    const auto toLongLong = [](const char* text) { return std::strtoll(text, nullptr, 10); };
    const auto toDouble = [](const char* text) { return std::strtod(text, nullptr); };
    for (xmlNodePtr env = envm->children; env != nullptr; env = env->next) {
        if (env->type != XML_ELEMENT_NODE || !xmlStrEqual(env->name, xml("env"))) continue;
        sum.add(content(env, "eid", length), content(env, "status", length), int(content(env, "cpu", toLong)),
                content(env, "memory", toLongLong), content(env, "load", toDouble));
    }
    return sum;
}

xmlChar* write(xmlDocPtr doc, int& length) {
    xmlChar* text = nullptr;
    xmlDocDumpMemory(doc, &text, &length);
    return text;
}

std::string text(xmlDocPtr doc) {
    int length = 0;
    xmlChar* written = write(doc, length);
    std::string copy(written != nullptr ? reinterpret_cast<const char*>(written) : "", size_t(length));
    xmlFree(written);
    return copy;
}

xmlDocPtr parse(const std::string& text) {
    return xmlReadMemory(text.data(), int(text.size()), nullptr, nullptr, XML_PARSE_NONET);
}

}  // namespace peers::libxml2
