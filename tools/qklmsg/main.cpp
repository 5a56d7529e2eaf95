// qklmsg: the command-line tool (see CONVENTIONS.md). Exit status: 0 done,
// 1 input refused, 2 usage.
//
//   qklmsg demo          builds a small message document and prints its bytes and nodes
//   qklmsg vocab NAME|ID element, namespace and type vocabulary look-up, both ways
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qkl/QKL.h"

namespace {

using QKL::Internal::CharArray;

int usage() {
    std::fprintf(stderr, "usage: qklmsg demo\n       qklmsg vocab NAME|ID\n");
    return 2;
}

void printHex(const char* bytes, unsigned int length) {
    for (unsigned int row = 0; row < length; row += 16) {
        std::printf("  %04x ", row);
        for (unsigned int i = row; i < row + 16 && i < length; ++i)
            std::printf(" %02x", static_cast<unsigned char>(bytes[i]));
        std::printf("\n");
    }
}

// One line a node, in document order, indented by depth.
void printTree(const QKL::QKLBinaryInternals& doc) {
    const QKL::binary::Format format = doc.format();
    QKL::binary::Format::node_range ranges[64];
    int depth = 0;
    ranges[0] = format.root();
    while (depth >= 0) {
        QKL::binary::Format::node_range& range = ranges[depth];
        if (!range.valid()) {
            --depth;
            continue;
        }
        const QKL::binary::Node node = range.node();
        const CharArray name = doc.idMap().findIDC(node.tag());
        std::printf("  @%-4u %*s<%.*s> tag %d type %u ns %u data size %u size %u\n", node.offset(), depth * 2, "",
                    int(name.length()), name.ptr(), node.tag(), node.type(), node.ns(), node.dataSize(),
                    unsigned(node.size()));
        const QKL::binary::Format::node_range children = range.children();
        range = range.next();
        if (!children.empty() && depth + 1 < 64) ranges[++depth] = children;
    }
}

int elementID(QKL::QKLBinaryInternals& doc, const char* name) {
    return doc.idMap().findStr(CharArray(name), &QKL::QKLDefaultMap::findElem, QKL::QKLProtocolIDMap::ELEMENT);
}

int demo() {
    QKL::QKLBinaryInternals doc;
    if (doc.turnBlank() != 0) return 1;
    QKL::BinaryPath path;
    const std::string origin = "node-a", version = "4.5.0";
    const int cpuCount = 8;
    doc.insert(path, QKL::getElemIdByStringDefault("packet", 6), QKL::binary::TYPE_CONTAINER, nullptr, 0, false);
    doc.insert(path, QKL::QKLBinaryInternals::VERSION_TAG, QKL::binary::TYPE_STRING, version.data(),
               int(version.size()), true);
    path.pop();
    doc.insert(path, elementID(doc, "origin"), QKL::binary::TYPE_STRING, origin.data(), int(origin.size()), true);
    path.pop();
    // A name outside the vocabulary gets a per-document ID, recorded in the map area.
    doc.insert(path, elementID(doc, "demo_cpu_count"), QKL::binary::TYPE_INT, &cpuCount, sizeof cpuCount, false);
    path.pop();

    std::printf("A message document built in one buffer (%u bytes, message version %d):\n", doc.used(),
                doc.messageVersion());
    printHex(doc.buffer(), doc.used());
    std::printf("Its nodes:\n");
    printTree(doc);
    std::printf("Its map area: %u bytes at offset %u\n", doc.format().map().size(), doc.format().map().offset());
    const unsigned int framed = QKL::binary::Format::probe(doc.buffer(), doc.used());
    std::printf("Framing (probe) of the %u bytes: a whole document of %u bytes\n", doc.used(), framed);
    return framed == doc.used() ? 0 : 1;
}

void printName(const char* kind, const CharArray& name) {
    if (!name.empty()) std::printf("%s: %.*s\n", kind, int(name.length()), name.ptr());
}

int vocab(const char* word) {
    char* end = nullptr;
    const long id = std::strtol(word, &end, 10);
    if (*word != 0 && *end == 0) {
        const int n = int(id);
        printName("element", QKL::getStringByElemIdDefault(n));
        printName("namespace", QKL::getStringByNSIdDefault(n));
        printName("type", QKL::getStringByTypeIdDefault(n));
        return 0;
    }
    const unsigned long length = std::strlen(word);
    const int ids[] = {QKL::getElemIdByStringDefault(word, length), QKL::getNSIdByStringDefault(word, length),
                       QKL::getTypeIdByStringDefault(word, length)};
    const char* kinds[] = {"element", "namespace", "type"};
    bool found = false;
    for (int i = 0; i < 3; ++i) {
        if (ids[i] == 0) continue;
        std::printf("%s: %d\n", kinds[i], ids[i]);
        found = true;
    }
    if (!found) std::fprintf(stderr, "qklmsg: \"%s\" is in no vocabulary\n", word);
    return found ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "demo") == 0) return demo();
    if (argc == 3 && std::strcmp(argv[1], "vocab") == 0) return vocab(argv[2]);
    return usage();
}
