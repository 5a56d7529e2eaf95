// Where and why a text is refused: tests/data/text/text_errors.txt, one row per refused text, and
// the error's life on a message that reads one text after another.
#include <set>
#include <sstream>

#include "text/TextTestSupport.h"

using namespace QKLTest;
using QKL::TextError;

namespace {

std::vector<std::string> fields(const std::string& row) {
    std::vector<std::string> out;
    for (size_t at = 0, bar; at != std::string::npos; at = bar == std::string::npos ? bar : bar + 3) {
        bar = row.find(" | ", at);
        out.push_back(row.substr(at, bar == std::string::npos ? bar : bar - at));
    }
    return out;
}

// "offset line:column | reason", as the rows give it.
std::string placeOf(const TextError& error) {
    return std::to_string(error.offset) + " " + std::to_string(error.line) + ":" + std::to_string(error.column) +
           " | " + error.text();
}

}  // namespace

TEST(TextErrors, EachRefusedTextNamesItsPlaceAndReason) {
    std::istringstream lines(dataFile("text/text_errors.txt"));
    std::set<std::string> reasons;
    for (std::string row; std::getline(lines, row);) {
        if (row[0] == '#') continue;
        const std::vector<std::string> field = fields(row);
        SCOPED_TRACE(field[0]);
        QKLBinary::Policy = field.size() > 4 ? std::stoul(field[4]) : 0;
        Message m(new QKLBinary);
        EXPECT_EQ(-1, readText(*m, unescape(field[3])));
        EXPECT_EQ(field[1] + " | " + field[2], placeOf(m->lastTextError()));
        if (m->lastTextError()) reasons.insert(m->lastTextError().reason);
    }
    QKLBinary::Policy = 0;
    // Nesting one level too deep: the refusal names the first element below the limit.
    const int max = QKLBinary::MAX_TEXT_DEPTH;
    std::string deep;
    for (int level = 0; level <= max; ++level) deep += "<origin>";
    Message m(new QKLBinary);
    EXPECT_EQ(-1, readText(*m, deep));
    EXPECT_EQ(std::to_string(8 * max) + " 1:" + std::to_string(8 * max + 1) + " | nesting deeper than the limit",
              placeOf(m->lastTextError()));
    reasons.insert(m->lastTextError().reason);
    EXPECT_EQ(14u, reasons.size());  // every reason but the limits of a document's size and IDs
}

// One message reads every row of reader_rules.txt in turn: a refusal leaves an error inside the
// text, an accepted text none, whatever the row before left.
TEST(TextErrors, EveryRefusalIsExplainedAndTheNextSuccessClearsIt) {
    std::istringstream lines(dataFile("text/reader_rules.txt"));
    Message m(new QKLBinary);
    int refused = 0;
    for (std::string row; std::getline(lines, row);) {
        if (row[0] == '#') continue;
        const std::vector<std::string> field = fields(row);
        SCOPED_TRACE(field[0]);
        QKLBinary::Policy = field.size() > 3 ? std::stoul(field[3]) : 0;
        const std::string text = unescape(field[1]);
        const bool accepted = readText(*m, text) == 0;
        EXPECT_EQ(accepted, !m->lastTextError());
        if (accepted) continue;
        ++refused;
        EXPECT_LE(m->lastTextError().offset, text.size());
    }
    QKLBinary::Policy = 0;
    EXPECT_GT(refused, 10);
    // Under an iterator, an unknown element kept as XML cannot be placed.
    ASSERT_EQ(0, readText(*m, "<packet><data/></packet>"));
    Iterator at(m->newIterator());
    ASSERT_EQ(0, at->seek("data"));
    EXPECT_EQ(-1, readText(*m, "<origin><u:/></origin>", at.get()));
    EXPECT_EQ("0 1:1 | unknown element refused by policy", placeOf(m->lastTextError()));
}
