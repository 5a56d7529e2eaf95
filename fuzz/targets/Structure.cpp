// Structure-aware received bytes: a valid document is generated through the
// public API from a seed, then a list of edits is applied to its bytes, and the
// result goes through the binary pipeline with its invariants (receive()).
//
// Input: 4 bytes of seed, then edits of 7 bytes each: operation, offset (16
// bits), value (32 bits), little-endian. The node and map-entry edits address
// the document's own nodes (found by walking it as it stands), so that they hit
// fields a plain byte mutation rarely reaches together.
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fuzz/targets/FuzzTargets.h"
#include "qkl/QKL.h"

namespace QKLFuzz {

namespace {

namespace binary = QKL::binary;
using Iterator = std::unique_ptr<QKL::QKLMessageIterator>;

enum Edit { SET_BYTE, SET_WORD, FLIP_BIT, TRUNCATE, EXTEND, DUPLICATE, ERASE, NODE_FIELD, MAP_FIELD, HEADER, FIT_ROOT };
const unsigned int EDIT_COUNT = FIT_ROOT + 1;

// One element with a value of each kind, or a container, under `at`; depth-limited.
void grow(QKL::QKLMessageIterator& at, std::mt19937& random, int depth) {
    static const char* const names[] = {"data", "alerts", "host", "key", "value", "x_unknown", "x_other", "origin"};
    static const char* const spaces[] = {"", "urn:fuzz:a", "http://www.qkl.example/webservices/qkl/4.5.0/protocol"};
    for (unsigned int n = random() % 5; n > 0; --n) {
        if (at.newChild(names[random() % 8]) != 0) continue;
        at.setNamespace(spaces[random() % 3]);
        switch (random() % 9) {
            case 0: at.putValue(std::string("text <&> \"q\"", random() % 14), 0); break;
            case 1: at.putValue(int(random()), 0); break;
            case 2: at.putValueLongLong((long long)random() << 20, 0); break;
            case 3: at.putValueDouble(double(random()) / 7, 0); break;
            case 4: at.putValueTime(long(random() % 2000000000), 0); break;
            case 5: at.putValueTimeZone(long(random() % 2000000000), int(random() % 9) * 60 - 240, 0); break;
            case 6: at.putValueBase64(std::string("\0\1\2\xff", 1 + random() % 4), 0); break;
            case 7: if (depth < 3) grow(at, random, depth + 1); break;
            default: at.setComplexType("urn:fuzz:types", "Item"); break;
        }
        at.seekUp();
    }
}

std::string generated(std::uint32_t seed) {
    std::mt19937 random(seed);
    QKL::auto_destroy<QKL::QKLMessage> message(QKL::QKLMsgFactory::createNew());
    require(message->create("packet") == 0, "a new message takes the root \"packet\"");
    message->setVersion(seed % 4 ? 40500 : 40100);
    message->setID("id-" + std::to_string(seed), false);
    message->setPriority(int(seed % 7));
    message->setSessionID("qkl.40500.1.a.b.c");
    Iterator at(message->newIterator());
    grow(*at, random, 0);
    const std::string bytes = bytesOf(*message);
    require(!bytes.empty(), "a generated document is written");
    return bytes;
}

// The node offsets of the tree, or of the map area, walked as the bytes stand now.
std::vector<unsigned int> nodes(const std::string& document, bool map) {
    std::vector<unsigned int> found;
    if (document.size() < binary::HEADER_SIZE) return found;
    binary::Format format(binary::Arena::readOnlyView(document.data(), unsigned(document.size())));
    if (map) {
        const unsigned int end = format.map().offset() + format.map().size();
        for (unsigned int at = format.map().offset(); at < end && format.map().entryValid(at) && found.size() < 64;
             at += unsigned(binary::Node(format.arena(), at).size()))
            found.push_back(at);
        return found;
    }
    std::vector<binary::Format::node_range> ranges(1, format.root());
    while (!ranges.empty() && found.size() < 256) {
        binary::Format::node_range& range = ranges.back();
        if (!range.valid()) {
            ranges.pop_back();
            continue;
        }
        found.push_back(range.begin);
        const binary::Format::node_range children = range.children();
        range = range.next();
        if (!children.empty()) ranges.push_back(children);
    }
    return found;
}

void putWord(std::string& document, std::size_t at, std::uint32_t value) {
    if (at + 4 <= document.size()) std::memcpy(&document[at], &value, 4);
}

// A node field (0 tag, 1 type and ns, 2 data size) of a node picked by `offset`.
void setNodeField(std::string& document, bool map, unsigned int offset, std::uint32_t value) {
    static const std::uint32_t typeWords[] = {0, 1, 2, 3, 4, 5, 6, 50, 51, 101, 0xFFFF, 3, 50 | (297u << 16), 1u << 16};
    const std::vector<unsigned int> found = nodes(document, map);
    if (found.empty()) return;
    const unsigned int node = found[offset % found.size()];
    const std::uint32_t operand = value >> 2;
    std::uint32_t dataSize = 0;
    if (node + 12 <= document.size()) std::memcpy(&dataSize, &document[node + 8], 4);
    switch (value % 3) {
        case 0: putWord(document, node, operand % 2 ? 1000 + operand % 1400 : -(operand % 8)); break;
        case 1: putWord(document, node + 4, typeWords[operand % 14]); break;
        default: putWord(document, node + 8, dataSize + std::int8_t(operand)); break;
    }
}

// The root's data size made to reach the map area, whatever the bytes around it.
void fitRoot(std::string& document) {
    if (document.size() < binary::HEADER_SIZE + 16) return;
    binary::Format format(binary::Arena::readOnlyView(document.data(), unsigned(document.size())));
    const std::uint64_t map = format.map().size();
    if (document.size() >= binary::HEADER_SIZE + 16 + map)
        putWord(document, binary::HEADER_SIZE + 8, std::uint32_t(document.size() - binary::HEADER_SIZE - 16 - map));
}

void apply(std::string& document, unsigned int edit, unsigned int offset, std::uint32_t value) {
    const std::size_t size = document.size();
    const std::size_t at = size == 0 ? 0 : offset % size;
    switch (edit % EDIT_COUNT) {
        case SET_BYTE: if (size) document[at] = char(value); break;
        case SET_WORD: putWord(document, at & ~3u, value); break;
        case FLIP_BIT: if (size) document[at] = char(document[at] ^ (1 << (value % 8))); break;
        case TRUNCATE: document.resize(offset % (size + 1)); break;
        case EXTEND: document.append(value % 64, char(value >> 8)); break;
        case DUPLICATE: document.insert(value % (size + 1), document.substr(at, (value >> 8) % 64)); break;
        case ERASE: document.erase(at, value % 64); break;
        case NODE_FIELD: setNodeField(document, false, offset, value); break;
        case MAP_FIELD: setNodeField(document, true, offset, value); break;
        case HEADER: if (size > 7) document[4 + value % 4] = char(value >> 8); break;
        default: fitRoot(document); break;
    }
}

}  // namespace

void structureTarget(const std::uint8_t* data, std::size_t size) {
    assertionsAreFindings();
    std::uint32_t seed = 0;
    if (size >= 4) std::memcpy(&seed, data, 4);
    std::string document = generated(seed);
    for (std::size_t at = 4; at + 7 <= size; at += 7) {
        std::uint16_t offset = 0;
        std::uint32_t value = 0;
        std::memcpy(&offset, data + at + 1, 2);
        std::memcpy(&value, data + at + 3, 4);
        apply(document, data[at], offset, value);
    }
    receive(document.data(), document.size());
}

}  // namespace QKLFuzz
