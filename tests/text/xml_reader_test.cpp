// The XML reader's rules (tests/data/text/reader_rules.txt, one row per line) and its nesting.
#include <sstream>

#include "text/TextTestSupport.h"

using namespace QKLTest;

static std::string repeat(const std::string& text, int times) {
    std::string out;
    while (times-- > 0) out += text;
    return out;
}

// Each row: what it shows | the text read | the text written back, or REFUSED [| the message's policy].
TEST(XmlReader, EachRuleReadsItsTextAsItsRowSays) {
    std::istringstream lines(dataFile("text/reader_rules.txt"));
    int rows = 0;
    for (std::string row; std::getline(lines, row);) {
        if (row[0] == '#') continue;
        ++rows;
        const size_t text = row.find(" | "), back = row.find(" | ", text + 3), bits = row.find(" | ", back + 3);
        SCOPED_TRACE(row.substr(0, text));
        const std::string input = unescape(row.substr(text + 3, back - text - 3));
        const std::string expected = unescape(row.substr(back + 3, bits - back - 3));
        QKLBinary::Policy = bits == std::string::npos ? 0 : std::stoul(row.substr(bits + 3));
        EXPECT_EQ(expected, readBack(input));
        if (expected == REFUSED) expectRefused(input);
    }
    QKLBinary::Policy = 0;
    EXPECT_EQ(63, rows);
}

// Reader and writer follow MAX_TEXT_DEPTH levels, not one more; far deeper text exhausts no stack.
TEST(XmlReader, NestingIsFollowedToMaxTextDepthBothWays) {
    const int max = QKLBinary::MAX_TEXT_DEPTH;
    Message m(new QKLBinary);
    ASSERT_EQ(0, readText(*m, repeat("<origin>", max) + repeat("</origin>", max)));
    EXPECT_NE("(null)", render(*m));
    expectRefused(repeat("<origin>", max + 1) + repeat("</origin>", max + 1));
    expectRefused("<packet><u:>" + repeat("<a>", max - 1) + repeat("</a>", max - 1) + "</u:></packet>");
    expectRefused(repeat("<origin>", 100000) + repeat("</origin>", 100000));
    Iterator at(m->newIterator());
    for (int level = 1; level < max; ++level) ASSERT_EQ(0, at->seek("origin"));
    ASSERT_EQ(0, at->newChild("origin"));
    EXPECT_EQ("(null)", render(*m));
}
