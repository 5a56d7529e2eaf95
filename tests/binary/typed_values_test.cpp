// Typed values of the binary iterator: every stored type against every read, the table in
// tests/data/binary/iterator/values.txt. The writes that are refused are calls in moves.txt.
#include "binary/PacketDoc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "qkl/QKL.h"

using namespace QKL;
using namespace std::string_literals;

namespace {

const int VALUE = 1008;

// A table field without its surrounding blanks, each \xNN turned into its byte.
std::string field(const std::string& raw) {
    std::string out;
    const std::size_t last = raw.find_last_not_of(' ');
    for (std::size_t i = raw.find_first_not_of(' '); last != std::string::npos && i <= last; ++i) {
        out += raw[i] == '\\' ? char(std::stoi(raw.substr(i + 2, 2), nullptr, 16)) : raw[i];
        i += raw[i] == '\\' ? 3 : 0;
    }
    return out;
}

// Writes the child "value" as the store column says, at `at` (ID or name); forms without a name use `id`.
template <class At>
int store(QKLBinaryIterator& it, const std::string& kind, const std::string& arg, At at, int id) {
    const long n = std::atol(arg.c_str());
    const std::string rest = arg.find(' ') == std::string::npos ? "" : arg.substr(arg.find(' ') + 1);
    BinaryPath root = it.path();
    if (kind == "raw") return it.binaryMessage()->internals()->insert(root, VALUE, int(n), rest.data(), int(rest.size()), false);
    if (kind == "int") return it.putValue(int(n), at);
    if (kind == "string") return it.putValue(arg, at);
    if (kind == "longlong") return it.putValueLongLong(std::atoll(arg.c_str()), at);
    if (kind == "double") return it.putValueDouble(std::atof(arg.c_str()), at);
    if (kind == "base64") return it.putValueBase64(arg, at);
    if (kind == "time") return it.putValueTime(n, at);
    if (kind == "timezone") return it.putValueTimeZone(n, std::atoi(rest.c_str()), at);
    if (kind == "xml") return it.putValueXML(arg, id);
    if (kind == "attr") return it.putAttr(arg, id);
    return kind == "attrint" ? it.putAttr(int(n), id) : it.putAttrTime(n, id);
}

// Every read of the table's columns at `at` (or `id`): "=" and the value on success, else the result.
template <class At>
std::vector<std::string> readAll(QKLBinaryIterator& it, At at, int id) {
    int i = 0, z = 0;
    long t = 0;
    long long ll = 0;
    double d = 0;
    std::string s;
    std::vector<std::string> out;
    auto cell = [&out](int result, auto text) { out.push_back(result == 0 ? "=" + text() : std::to_string(result)); };
    auto real = [&d] { char text[32]; return std::string(text, std::snprintf(text, sizeof text, "%g", d)); };
    cell(it.getValue(s, at), [&] { return s; });
    cell(it.getValue(i, at), [&] { return std::to_string(i); });
    cell(it.getValueLongLong(ll, at), [&] { return std::to_string(ll); });
    cell(it.getValueDouble(d, at), real);
    cell(it.getValueTime(t, at), [&] { return std::to_string(t); });
    cell(it.getValueTimeZone(t, z, at), [&] { return std::to_string(t) + " " + std::to_string(z); });
    cell(it.getValueBase64(s, at), [&] { return s; });
    cell(it.getValueXML(s, id), [&] { return s; });
    cell(it.getAttr(s, id), [&] { return s; });
    cell(it.getAttr(i, id), [&] { return std::to_string(i); });
    cell(it.getAttrTime(t, id), [&] { return std::to_string(t); });
    return out;
}

using Doc = QKLTest::PacketDoc;
using QKLTest::where;

// The value is read by ID from the root and by absolute path from the node itself; neither
// moves the iterator nor changes a byte.
TEST(TypedValues, EveryReadOfEveryStoredTypeFollowsTheTable) {
    std::ifstream table(QKL_TEST_DATA_DIR "/binary/iterator/values.txt");
    ASSERT_TRUE(table.is_open());
    for (std::string line, column; std::getline(table, line);) {
        std::vector<std::string> cells;
        for (std::istringstream in(line); line[0] != '#' && std::getline(in, column, '|');) cells.push_back(field(column));
        if (cells.size() < 3) continue;
        SCOPED_TRACE(line);
        Doc d;
        const std::string root = where(*d.it), kind = cells[0].substr(0, cells[0].find(' '));
        const std::string arg = cells[0].substr(std::min(cells[0].size(), kind.size() + 1));
        EXPECT_EQ(0, kind.back() == '@' ? store(*d.it, kind.substr(0, kind.size() - 1), arg, "value"s, VALUE)
                                        : store(*d.it, kind, arg, VALUE, VALUE));
        EXPECT_EQ(root, where(*d.it));
        ASSERT_EQ(0, d.it->seek(VALUE));
        const std::string node = where(*d.it), before = d.bytes();
        const binary::Node stored(d.msg->internals()->arena(), d.it->path().current().offset);
        EXPECT_EQ(cells[1] + " " + cells[2], std::to_string(stored.type()) + " " + std::string(stored.data(), stored.dataSize()));
        const std::vector<std::string> reads(cells.begin() + 3, cells.end());
        EXPECT_EQ(reads, readAll(*d.it, "/value"s, 0));
        EXPECT_EQ(node, where(*d.it));
        d.it->seekUp();
        EXPECT_EQ(reads, readAll(*d.it, VALUE, VALUE));
        EXPECT_EQ(root, where(*d.it));
        EXPECT_EQ(before, d.bytes());
    }
}

}  // namespace
