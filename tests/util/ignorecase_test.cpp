// Case-insensitive strings, case conversion and replace-all.
#include "qkl/util/ignorecase.h"

#include <gtest/gtest.h>

#include "support/ChildProcess.h"

using QKL::ignorecase_string;

// The exact bytes: == between two ignorecase_strings would hide case errors.
static std::string exact(const ignorecase_string& s) { return std::string(s.data(), s.size()); }

TEST(IgnoreCase, ComparesAndSearchesByUpperCaseAndConvertsLetters) {
    // The sign at the first difference only; 'a' < '_' because 'A' < '_'.
    const struct { const char *p, *q; size_t n; int sign; } rows[] = {
        {"abc", "ABD", 3, -1}, {"abz", "ABA", 3, 1}, {"HeLLo", "hEllO", 5, 0}, {"abc", "ABD", 2, 0},
        {"a", "_", 1, -1},     {"\xe9", "\xc9", 1, 1}, {"\xff", "a", 1, 1},   {"x", "y", 0, 0}};
    for (const auto& row : rows) EXPECT_EQ(row.sign, QKL::ignorecase_traits::compare(row.p, row.q, row.n)) << row.p;
    const ignorecase_string text = "Content-Type: TEXT/xml; charset=UTF-8";
    EXPECT_EQ(14u, text.find("text/XML"));
    EXPECT_EQ(32u, text.rfind("utf"));
    EXPECT_EQ(ignorecase_string::npos, text.find("text/html"));
    EXPECT_TRUE(text == "CONTENT-type: text/XML; CHARSET=utf-8");
    EXPECT_EQ("content-type: text/xml; charset=utf-8", exact(QKL::toLower(text)));
    EXPECT_EQ("CONTENT-TYPE: TEXT/XML; CHARSET=UTF-8", exact(QKL::toUpper(text)));
    EXPECT_EQ(std::string("a\0\xE9z", 4) + std::string("A\0\xE9Z", 4),  // letters only
              exact(QKL::toLower(ignorecase_string("A\0\xE9z", 4)) + QKL::toUpper(ignorecase_string("a\0\xE9z", 4))));
}

// Every non-overlapping match, left to right; inserted text is never searched
// again, so a replacement that contains the pattern ends too.
TEST(SrchRepl, ReplacesEveryMatchIgnoringCaseOrExactly) {
    const struct { const char *text, *pattern, *replacement, *folded, *plain; } rows[] = {
        {"aaa", "aa", "b", "ba", "ba"}, {"Hello HELLO hello", "hello", "Bye", "Bye Bye Bye", "Hello HELLO Bye"},
        {"aXa", "a", "aa", "aaXaa", "aaXaa"}, {"abcABC", "abc", "xABCx", "xABCxxABCx", "xABCxABC"},
        {"ab-xx-AB", "ab", "[]", "[]-xx-[]", "[]-xx-AB"}, {"-a--b-", "-", "", "ab", "ab"},
        {"abc", "abcd", "x", "abc", "abc"}, {"", "a", "x", "", ""}};
    for (const auto& row : rows) {
        ignorecase_string folded(row.text);
        std::string plain(row.text);
        QKL::srch_repl(folded, row.pattern, row.replacement);
        QKL::srch_repl(plain, row.pattern, row.replacement);
        EXPECT_EQ(row.folded + std::string(" | ") + row.plain, exact(folded) + " | " + plain) << row.text;
    }
}

// Kept on purpose: an empty pattern matches at the current position on every
// step, so the call never returns; callers check the pattern first.
TEST(SrchRepl, EmptyPatternNeverReturns) {
    EXPECT_EQ(QKLTest::ChildEnd::StillRunning, QKLTest::runInChild(QKLTest::noSetup, [] {
                  ignorecase_string text = "abc";
                  QKL::srch_repl(text, "", "");
              }));
}
