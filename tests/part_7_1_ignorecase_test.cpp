// Part 7.1: case-insensitive strings, case conversion and srch_repl.
#include "qkl/util/ignorecase.h"

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <string>

using QKL::ignorecase_string;
using QKL::ignorecase_traits;
using QKLTest::ChildEnd;
using QKLTest::noSetup;
using QKLTest::runInChild;

namespace {

// Exact, case-sensitive text of an ignorecase_string: comparing two
// ignorecase_strings with == would hide the very case errors under test.
std::string exact(const ignorecase_string& s) { return std::string(s.data(), s.size()); }

// RLIMIT_AS cannot be combined with AddressSanitizer, which reserves terabytes
// of address space for its shadow memory.
#if defined(__SANITIZE_ADDRESS__)
const bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
const bool kAddressSanitizer = true;
#else
const bool kAddressSanitizer = false;
#endif
#else
const bool kAddressSanitizer = false;
#endif

void limitAddressSpace() {
    const rlim_t limit = rlim_t(256) * 1024 * 1024;
    rlimit rl{limit, limit};
    setrlimit(RLIMIT_AS, &rl);
}

}  // namespace

// ---- Edge cases worth testing -------------------------------------------------

// "`eq('a','A')` is true; `compare("abc","ABD",3)` is -1."
TEST(Part71EdgeCases, EqLowerAUpperAIsTrueAndCompareAbcABDIsMinusOne) {
    EXPECT_TRUE(ignorecase_traits::eq('a', 'A'));
    EXPECT_EQ(-1, ignorecase_traits::compare("abc", "ABD", 3));
}

// "`srch_repl` with a replacement that contains the pattern terminates."
TEST(Part71EdgeCases, SrchReplWithReplacementContainingPatternTerminates) {
    std::string plain = "aXa";
    QKL::srch_repl(plain, std::string("a"), std::string("aa"));
    EXPECT_EQ("aaXaa", plain);

    ignorecase_string folded = "abcABC";
    QKL::srch_repl(folded, ignorecase_string("abc"), ignorecase_string("xABCx"));
    EXPECT_EQ("xABCxxABCx", exact(folded));
}

// "An empty pattern never terminates (each step matches at the current
// position); callers never pass one, and this is deliberate behaviour, not to
// be silently changed into a different result."
// With an empty replacement the loop spins in place, so the child must still
// be running when the parent stops waiting.
TEST(Part71EdgeCases, EmptyPatternNeverTerminates) {
    const ChildEnd end = runInChild(noSetup, [] {
        ignorecase_string text = "abc";
        QKL::srch_repl(text, ignorecase_string(), ignorecase_string());
    });
    EXPECT_EQ(ChildEnd::StillRunning, end);
}

// Same bullet, std::string overload.
TEST(Part71EdgeCases, EmptyPatternNeverTerminatesForStdString) {
    const ChildEnd end = runInChild(noSetup, [] {
        std::string text = "abc";
        QKL::srch_repl(text, std::string(), std::string());
    });
    EXPECT_EQ(ChildEnd::StillRunning, end);
}

// Same bullet with a non-empty replacement: the text grows on every step, so
// the child's address space is capped; running out of memory ends it by an
// exception or a signal, never by srch_repl returning.
TEST(Part71EdgeCases, EmptyPatternWithNonEmptyReplacementNeverTerminates) {
    if (kAddressSanitizer) GTEST_SKIP() << "RLIMIT_AS is incompatible with AddressSanitizer";
    const ChildEnd end = runInChild(limitAddressSpace, [] {
        ignorecase_string text = "abc";
        QKL::srch_repl(text, ignorecase_string(), ignorecase_string("x"));
    });
    EXPECT_TRUE(end == ChildEnd::StillRunning || end == ChildEnd::Threw || end == ChildEnd::Signalled)
        << "child " << end;
}

// ---- Algorithm ------------------------------------------------------------------

// "text inserted by a replacement is never searched again ("aa" in "aaa"
// replaced by "b" gives "ba")."
TEST(Part71SrchRepl, AaInAaaReplacedByBGivesBa) {
    ignorecase_string folded = "aaa";
    QKL::srch_repl(folded, ignorecase_string("aa"), ignorecase_string("b"));
    EXPECT_EQ("ba", exact(folded));

    std::string plain = "aaa";
    QKL::srch_repl(plain, std::string("aa"), std::string("b"));
    EXPECT_EQ("ba", plain);
}

// "one on the case-insensitive string (matching ignores case)"
TEST(Part71SrchRepl, IgnorecaseOverloadMatchesAnyCase) {
    ignorecase_string text = "Hello HELLO hello hElLo";
    QKL::srch_repl(text, ignorecase_string("hello"), ignorecase_string("Bye"));
    EXPECT_EQ("Bye Bye Bye Bye", exact(text));
}

// "and one on the standard string": matching there is exact.
TEST(Part71SrchRepl, StdStringOverloadIsCaseSensitive) {
    std::string text = "Hello HELLO hello";
    QKL::srch_repl(text, std::string("hello"), std::string("Bye"));
    EXPECT_EQ("Hello HELLO Bye", text);
}

TEST(Part71SrchRepl, EmptyReplacementDeletesEveryMatch) {
    std::string text = "-a--b-";
    QKL::srch_repl(text, std::string("-"), std::string());
    EXPECT_EQ("ab", text);
}

TEST(Part71SrchRepl, NoMatchLeavesTextUnchanged) {
    ignorecase_string text = "abc";
    QKL::srch_repl(text, ignorecase_string("abcd"), ignorecase_string("x"));
    EXPECT_EQ("abc", exact(text));

    ignorecase_string empty;
    QKL::srch_repl(empty, ignorecase_string("a"), ignorecase_string("x"));
    EXPECT_EQ("", exact(empty));
}

TEST(Part71SrchRepl, MatchesAtBothEnds) {
    ignorecase_string text = "ab-xx-AB";
    QKL::srch_repl(text, ignorecase_string("ab"), ignorecase_string("[]"));
    EXPECT_EQ("[]-xx-[]", exact(text));
}

// ---- Traits ---------------------------------------------------------------------

TEST(Part71Traits, EqIgnoresCaseOnly) {
    EXPECT_TRUE(ignorecase_traits::eq('Z', 'z'));
    EXPECT_TRUE(ignorecase_traits::eq('1', '1'));
    EXPECT_FALSE(ignorecase_traits::eq('a', 'b'));
}

TEST(Part71Traits, LtComparesUpperCaseForms) {
    EXPECT_TRUE(ignorecase_traits::lt('a', 'B'));
    EXPECT_TRUE(ignorecase_traits::lt('A', 'b'));
    EXPECT_FALSE(ignorecase_traits::lt('b', 'A'));
    EXPECT_FALSE(ignorecase_traits::lt('a', 'A'));
    // '_' (0x5F) sorts after 'Z' (0x5A) and before 'a' (0x61): upper case decides.
    EXPECT_TRUE(ignorecase_traits::lt('a', '_'));
}

// "at the first i where eq fails returns 1 if not lt(p[i], q[i]) and -1
// otherwise; 0 when all n are equal."
TEST(Part71Traits, CompareGivesSignOfFirstDifferenceOnly) {
    EXPECT_EQ(1, ignorecase_traits::compare("abz", "ABA", 3));
    EXPECT_EQ(-1, ignorecase_traits::compare("Aa", "az", 2));
    EXPECT_EQ(0, ignorecase_traits::compare("HeLLo", "hEllO", 5));
    EXPECT_EQ(0, ignorecase_traits::compare("abc", "ABD", 2));  // n stops before the difference
    EXPECT_EQ(0, ignorecase_traits::compare("x", "y", 0));
}

// "pointer to the first of the n characters that is eq to c, or null."
TEST(Part71Traits, FindReturnsFirstEqualCharacterWithinN) {
    const char* text = "xaAa";
    EXPECT_EQ(text + 1, ignorecase_traits::find(text, 4, 'A'));
    EXPECT_EQ(text + 1, ignorecase_traits::find(text, 4, 'a'));
    EXPECT_EQ(nullptr, ignorecase_traits::find(text, 1, 'a'));
    EXPECT_EQ(nullptr, ignorecase_traits::find(text, 4, 'b'));
    EXPECT_EQ(nullptr, ignorecase_traits::find(text, 0, 'x'));
}

// Bytes >= 0x80 are negative chars: the traits must not hand them to toupper
// as negative ints (the sanitizer run would see it).
TEST(Part71Traits, HighBytesAreSafeAndCompareByByte) {
    EXPECT_TRUE(ignorecase_traits::eq('\xE9', '\xE9'));
    EXPECT_FALSE(ignorecase_traits::eq('\xE9', '\xC9'));
    EXPECT_EQ(1, ignorecase_traits::compare("\xFF", "a", 1));
}

// ---- The string type ------------------------------------------------------------

// "`find`, `rfind`, `compare` and equality then ignore case."
TEST(Part71String, FindRfindCompareAndEqualityIgnoreCase) {
    const ignorecase_string text = "Content-Type: TEXT/xml; charset=UTF-8";
    EXPECT_EQ(0u, text.find("content-type"));
    EXPECT_EQ(14u, text.find("text/XML"));
    EXPECT_EQ(32u, text.rfind("utf"));
    EXPECT_EQ(6u, text.find('T', 4));
    EXPECT_EQ(ignorecase_string::npos, text.find("text/html"));
    EXPECT_TRUE(ignorecase_string("SOAP-ENV") == ignorecase_string("soap-env"));
    EXPECT_FALSE(ignorecase_string("SOAP-ENV") == ignorecase_string("soap-env2"));
    EXPECT_EQ(0, ignorecase_string("Body").compare("BODY"));
    EXPECT_TRUE(ignorecase_string("abc") < ignorecase_string("ABD"));
}

TEST(Part71String, KeepsTheTextAsWritten) {
    const ignorecase_string text = "MixedCase";
    EXPECT_EQ("MixedCase", exact(text));
}

// "`toLower(s)` / `toUpper(s)`: return a copy of the case-insensitive string s
// with every character passed through `tolower` / `toupper`"
TEST(Part71String, ToLowerAndToUpperConvertACopy) {
    const ignorecase_string text = "Soap-Env 1.2:Body";
    EXPECT_EQ("soap-env 1.2:body", exact(QKL::toLower(text)));
    EXPECT_EQ("SOAP-ENV 1.2:BODY", exact(QKL::toUpper(text)));
    EXPECT_EQ("Soap-Env 1.2:Body", exact(text));
}

TEST(Part71String, ToLowerAndToUpperKeepHighBytesAndEmbeddedNul) {
    const ignorecase_string text("A\0\xE9z", 4);
    EXPECT_EQ(std::string("a\0\xE9z", 4), exact(QKL::toLower(text)));
    EXPECT_EQ(std::string("A\0\xE9Z", 4), exact(QKL::toUpper(text)));
    EXPECT_EQ("", exact(QKL::toUpper(ignorecase_string())));
}
