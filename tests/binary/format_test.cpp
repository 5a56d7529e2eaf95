// The binary document format: the two node size rules, and the framing of received streams.
#include <gtest/gtest.h>

#include <memory>

#include "binary/DocumentCheck.h"
#include "qkl/binary/QKLBinary.h"

using namespace QKL::binary;

namespace {

// Version 2 pads a node to 8 bytes behind 12 header bytes, or 16 for an 8-byte value or a container; any other
// keeps the legacy rule, which always leaves a byte behind the payload: it decides where a sibling is read.
TEST(DocumentFormat, NodeSizeRulesOverDataSizes) {
    const struct { unsigned short type; unsigned int dataSize; std::uint64_t v2, legacy; } rows[] = {
        {TYPE_ELEMENT, 0, 16, 16}, {TYPE_INT, 4, 16, 24},     {TYPE_STRING, 3, 16, 16},   {TYPE_STRING, 5, 24, 24},
        {TYPE_STRING, 8, 24, 24},  {TYPE_LONGLONG, 8, 24, 24}, {TYPE_STRING, 9, 24, 24},  {TYPE_STRING, 11, 24, 24},
        {TYPE_STRING, 12, 24, 32}, {TYPE_STRING, 13, 32, 32},  {TYPE_STRING, 20, 32, 40}, {TYPE_XML, 16, 32, 32},
        {TYPE_CONTAINER, 0, 16, 16}, {TYPE_CONTAINER, 40, 56, 56}, {389, 24, 40, 40},
        {TYPE_STRING, 0xFFFFFFFFu, 0x100000010u, 0x100000010u}, {TYPE_CONTAINER, 0xFFFFFFE8u, 0xFFFFFFF8u, 0xFFFFFFF8u}};
    for (const auto& row : rows)
        for (unsigned char version : {2, 0, 1, 3})
            EXPECT_EQ(version == 2 ? row.v2 : row.legacy, nodeSize(version, row.type, row.dataSize))
                << "type " << row.type << ", data size " << row.dataSize << ", version " << int(version);
}

// framing.txt: Format::probe | QKLBinary::isComplete | bytes | what; each in a heap block of its exact size.
TEST(DocumentFormat, FramingOfReceivedStreams) {
    std::istringstream rows(BinaryDoc::dataFile("framing.txt"));
    for (std::string line, probe, complete, bytes; std::getline(rows, line);) {
        std::istringstream fields(line);
        if (line[0] == '#' || !std::getline(std::getline(std::getline(fields, probe, '|'), complete, '|'), bytes, '|')) continue;
        bytes = BinaryDoc::fromHex(bytes);
        std::unique_ptr<char[]> exact(new char[bytes.size()]);
        bytes.copy(exact.get(), bytes.size());
        const unsigned int expected = probe.find("none") != std::string::npos ? NOT_BINARY : unsigned(std::stoul(probe));
        EXPECT_EQ(expected, Format::probe(bytes.empty() ? nullptr : exact.get(), unsigned(bytes.size()))) << line;
        EXPECT_EQ(std::stoi(complete), QKL::QKLBinary::isComplete(exact.get(), int(bytes.size()))) << line;
    }
}

}  // namespace
