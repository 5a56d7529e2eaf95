// Test support: a plain model of a message tree, a seeded generator, the forms tests compare.
#ifndef QKL_TESTS_SUPPORT_TREEMODEL_H
#define QKL_TESTS_SUPPORT_TREEMODEL_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "qkl/QKL.h"

namespace QKLTest {

using Iterator = std::unique_ptr<QKL::QKLMessageIterator>;

inline std::string bytesOf(const QKL::QKLMessage& message) {
    char* buffer = nullptr;
    int length = 0;
    const bool made = message.serialize(&buffer, &length, nullptr, 40500) == 0;
    const std::unique_ptr<char, void (*)(void*)> owned(buffer, &std::free);
    return made ? std::string(buffer, size_t(length)) : "<no document>";
}

inline std::string textOf(const QKL::QKLMessage& message) {
    const std::unique_ptr<char, void (*)(void*)> text(message.toText(nullptr, "", 40500), &std::free);
    return text ? text.get() : "<no text>";
}

inline QKL::QKLMessage* fromXml(const std::string& text) {
    QKL::QKLMessage* message = QKL::QKLMsgFactory::createNew();
    EXPECT_EQ(0, message->fromText(text.c_str(), nullptr)) << text;
    return message;
}

enum class Kind { Empty, Text, Base64, Double, Int, LongLong, Time, TimeZone, Container };

struct TreeNode {  // one element: its names, and a value of its kind or its children
    explicit TreeNode(const std::string& name = "", const std::string& ns = "") : name(name), ns(ns) {}
    std::string name, ns, type;  // the namespace URI and the complex type "URI:Local", "" for none
    Kind kind = Kind::Empty;
    int integer = 0, zone = 0;
    long time = 0;
    long long wide = 0;
    double real = 0;
    std::string text;  // Text, and the bytes of Base64
    std::vector<TreeNode> children;
};

inline std::string dump(const TreeNode& node) {  // name@ns!type=value{children}, on one line
    const Kind kind = node.kind;
    std::string out = node.name + (node.ns.empty() ? "" : "@" + node.ns) + (node.type.empty() ? "" : "!" + node.type);
    if (kind == Kind::Text || kind == Kind::Base64) out += "='" + node.text + "'";
    if (kind == Kind::Double) out += "=" + std::to_string(node.real);
    if (kind == Kind::Int || kind == Kind::LongLong) out += "=" + std::to_string(kind == Kind::Int ? node.integer : node.wide);
    if (kind == Kind::Time || kind == Kind::TimeZone) out += "=" + std::to_string(node.time) + "/" + std::to_string(node.zone);
    if (kind != Kind::Container) return out;
    out += "{";
    for (const TreeNode& child : node.children) out += dump(child) + " ";
    return out + "}";
}

// A tree under "packet": known and unknown names, namespaces, complex types, every value type but XML
// (an XML value reads back as elements).
inline TreeNode generated(std::mt19937& random, int depth = 0) {
    static const char* const names[] = {"alerts", "veid", "alert", "host", "key", "value", "x_unknown", "x_other"};
    static const char* const spaces[] = {"", "", "urn:test:a", "urn:test:b",
                                         "http://www.qkl.example/webservices/qkl/4.0.0/protocol"};
    static const char* const types[] = {"", "urn:test:types:Item", "urn:test:types:List"};
    const auto below = [&random](int n) { return int(random() % unsigned(n)); };
    TreeNode node(depth == 0 ? "packet" : names[below(8)]);  // draws in a fixed order: the same trees on every compiler
    node.kind = depth == 0 || (depth < 4 && below(3) == 0) ? Kind::Container : Kind(below(int(Kind::Container)));
    node.integer = below(2000001) - 1000000, node.time = 1000000000 + below(100000000);
    node.wide = (below(2000001) - 1000000) * (1LL << 22), node.real = (below(4001) - 2000) / 8.0;
    node.zone = node.kind == Kind::TimeZone ? (below(9) - 4) * 60 : 0, node.ns = depth == 0 ? "" : spaces[below(5)];
    node.text = node.kind == Kind::Text ? (below(2) ? "a" : "Z") : "";  // no leading blank: the text form skips it
    for (int n = below(12); node.kind == Kind::Text && n > 0; --n) node.text += "ab yz<>&\"'-.09"[below(14)];
    for (int n = 1 + below(9); node.kind == Kind::Base64 && n > 0; --n) node.text += char(below(256));
    for (int n = 1 + below(depth == 0 ? 6 : 4); node.kind == Kind::Container && n > 0; --n) {
        node.children.push_back(generated(random, depth + 1));
    }
    node.type = node.kind == Kind::Container && depth > 0 ? types[below(3)] : "";
    return node;
}

}  // namespace QKLTest

#endif
