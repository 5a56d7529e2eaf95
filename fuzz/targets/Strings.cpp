// Session IDs and the case-insensitive string helpers, each checked against a
// plain loop over bytes written here.
//
// Input: a length byte and that many bytes (a), a length byte and that many
// bytes (b), and the rest (c), each a string that may hold any byte, NUL included.
//  - compareNoCase(a, b), ignorecase_traits::compare / find, and == and
//    find / rfind of ignorecase_string;
//  - toLower / toUpper of c;
//  - srch_repl(c, b, a) on both string types, unless b is empty (an empty
//    pattern never returns, on purpose);
//  - c read as a session ID, its fields printed with create() and read again:
//    the same fields.
// Letter case: compareNoCase folds ASCII letters only; the traits and
// toLower / toUpper follow the C library's tables of the current locale, which
// in a process that never calls setlocale (this one) is the "C" locale: ASCII
// letters only, every other byte (NUL and bytes from 0x80 up) unchanged.
#include <climits>
#include <string>

#include "fuzz/targets/FuzzTargets.h"
#include "qkl/QKL.h"

namespace QKLFuzz {

namespace {

using QKL::ignorecase_string;
typedef std::string::size_type Pos;
const Pos npos = std::string::npos;

unsigned char upper(char c) { return (c >= 'a' && c <= 'z') ? (unsigned char)(c - 32) : (unsigned char)c; }
unsigned char lower(char c) { return (c >= 'A' && c <= 'Z') ? (unsigned char)(c + 32) : (unsigned char)c; }
bool same(char a, char b, bool ignoreCase) { return ignoreCase ? upper(a) == upper(b) : a == b; }
int sign(int n) { return n < 0 ? -1 : n > 0 ? 1 : 0; }

int compareReference(const std::string& a, const std::string& b, Pos n) {
    for (Pos i = 0; i < n; ++i)
        if (upper(a[i]) != upper(b[i])) return upper(a[i]) < upper(b[i]) ? -1 : 1;
    return 0;
}

bool matchesAt(const std::string& text, Pos at, const std::string& pattern, bool ignoreCase) {
    if (at > text.size() || pattern.size() > text.size() - at) return false;
    for (Pos j = 0; j < pattern.size(); ++j)
        if (!same(text[at + j], pattern[j], ignoreCase)) return false;
    return true;
}

Pos findReference(const std::string& text, const std::string& pattern, Pos from, bool ignoreCase) {
    for (Pos at = from; at <= text.size(); ++at)
        if (matchesAt(text, at, pattern, ignoreCase)) return at;
    return npos;
}

Pos rfindReference(const std::string& text, const std::string& pattern) {
    for (Pos at = text.size() + 1; at-- > 0;)
        if (matchesAt(text, at, pattern, true)) return at;
    return npos;
}

std::string replaceReference(std::string text, const std::string& pattern, const std::string& by, bool ignoreCase) {
    for (Pos at = findReference(text, pattern, 0, ignoreCase); at != npos;
         at = findReference(text, pattern, at + by.size(), ignoreCase))
        text = text.substr(0, at) + by + text.substr(at + pattern.size());
    return text;
}

void compareAndFind(const std::string& a, const std::string& b) {
    const Pos shorter = a.size() < b.size() ? a.size() : b.size();
    int expected = 0;
    for (Pos i = 0; i < shorter && expected == 0; ++i)
        if (lower(a[i]) != lower(b[i])) expected = lower(a[i]) < lower(b[i]) ? -1 : 1;
    if (expected == 0 && a.size() != b.size()) expected = a.size() < b.size() ? -1 : 1;
    require(sign(QKL::compareNoCase(a, b)) == expected, "compareNoCase");
    require(QKL::ignorecase_traits::compare(a.data(), b.data(), shorter) == compareReference(a, b, shorter),
            "ignorecase_traits::compare");
    const ignorecase_string ia = QKL::toIgnoreCase(a), ib = QKL::toIgnoreCase(b);
    require((ia == ib) == (a.size() == b.size() && compareReference(a, b, shorter) == 0), "ignorecase_string ==");
    require(ia.find(ib) == findReference(a, b, 0, true), "ignorecase_string::find");
    require(ia.rfind(ib) == rfindReference(a, b), "ignorecase_string::rfind");
    if (b.empty()) return;
    const char* found = QKL::ignorecase_traits::find(a.data(), a.size(), b[0]);
    const Pos at = findReference(a, b.substr(0, 1), 0, true);
    require(found == (at == npos ? nullptr : a.data() + at), "ignorecase_traits::find");
}

void caseAndReplace(const std::string& text, const std::string& pattern, const std::string& by) {
    std::string lowered = text, uppered = text;
    for (char& c : lowered) c = char(lower(c));
    for (char& c : uppered) c = char(upper(c));
    require(QKL::toStdString(QKL::toLower(QKL::toIgnoreCase(text))) == lowered, "toLower");
    require(QKL::toStdString(QKL::toUpper(QKL::toIgnoreCase(text))) == uppered, "toUpper");
    if (pattern.empty()) return;
    std::string exact = text;
    QKL::srch_repl(exact, pattern, by);
    require(exact == replaceReference(text, pattern, by, false), "srch_repl on std::string");
    ignorecase_string folded = QKL::toIgnoreCase(text);
    QKL::srch_repl(folded, QKL::toIgnoreCase(pattern), QKL::toIgnoreCase(by));
    require(QKL::toStdString(folded) == replaceReference(text, pattern, by, true), "srch_repl on ignorecase_string");
}

// The field between the (n-1)-th and the n-th "." from the front; false when either is missing.
bool fieldFromFront(const std::string& text, int n, std::string& out) {
    Pos before = npos;
    for (int dot = 1; dot < n; ++dot)
        if ((before = text.find('.', before == npos ? 0 : before + 1)) == npos) return false;
    const Pos after = text.find('.', before + 1);
    if (after == npos) return false;
    out = text.substr(before + 1, after - before - 1);
    return true;
}

// atoi as glibc has it, (int)strtol(text, 0, 10): blanks, a sign, digits up to
// the first other byte (a NUL ends the text), saturated to the range of long.
int number(const std::string& field) {
    Pos i = 0;
    while (i < field.size() && (field[i] == ' ' || (field[i] >= '\t' && field[i] <= '\r'))) ++i;
    const bool negative = i < field.size() && field[i] == '-';
    if (i < field.size() && (field[i] == '-' || field[i] == '+')) ++i;
    unsigned long long value = 0, limit = negative ? 1ULL + LONG_MAX : LONG_MAX;
    for (; i < field.size() && field[i] >= '0' && field[i] <= '9'; ++i)
        value = value > (limit - (field[i] - '0')) / 10 ? limit : value * 10 + (field[i] - '0');
    return int(negative ? (long)(0ULL - value) : (long)value);
}

// What a field read leaves in place when a "." is missing; no field holds a ".".
const char* const KEPT = "(kept.)";

struct SessionFields {
    int version = 0, type = 0;
    std::string eid = KEPT, target = KEPT;
};

SessionFields read(const QKL::QKLSessionID& id) {
    SessionFields fields;
    fields.version = id.getVersion();
    fields.type = id.getType();
    id.getEID(fields.eid);
    id.getTargetEID(fields.target);
    return fields;
}

void sessionID(const std::string& text) {
    SessionFields expected;
    std::string field;
    expected.version = fieldFromFront(text, 2, field) ? number(field) : 0;
    expected.type = fieldFromFront(text, 3, field) ? number(field) : 0;
    fieldFromFront(text, 4, expected.eid);
    const Pos last = text.rfind('.');
    const Pos before = last == npos || last == 0 ? npos : text.rfind('.', last - 1);
    if (before != npos) expected.target = text.substr(before + 1, last - before - 1);
    const SessionFields got = read(QKL::QKLSessionID(text));
    require(got.version == expected.version && got.type == expected.type, "session ID version and type");
    require(got.eid == expected.eid && got.target == expected.target, "session ID EID and target EID");

    QKL::QKLSessionID printed;
    printed.create(got.version, got.type, got.eid == KEPT ? "" : got.eid, got.target == KEPT ? "" : got.target);
    const SessionFields again = read(printed);
    require(again.version == got.version && again.type == got.type, "session ID printed and read: numbers");
    require(again.eid == (got.eid == KEPT ? "" : got.eid), "session ID printed and read: EID");
    require(again.target == (got.target == KEPT ? "" : got.target), "session ID printed and read: target EID");
    const std::string head = "qkl." + std::to_string(got.version) + "." + std::to_string(got.type) + "." +
                             again.eid + "." + again.target + ".";
    require(printed.compare(0, head.size(), head) == 0 && printed.size() > head.size() &&
                printed.find('.', head.size()) == npos,
            "create writes qkl.version.type.EID.target.ID, the generated ID without a \".\"");
}

}  // namespace

void stringsTarget(const std::uint8_t* data, std::size_t size) {
    assertionsAreFindings();
    const std::string input(reinterpret_cast<const char*>(data), size);
    Pos at = 0;
    const auto take = [&input, &at]() {
        const Pos length = at < input.size() ? Pos((unsigned char)input[at++]) : 0;
        const std::string part = input.substr(at, length);
        at += part.size();
        return part;
    };
    const std::string a = take(), b = take(), c = input.substr(at);
    compareAndFind(a, b);
    caseAndReplace(c, b, a);
    sessionID(c);
    require((QKL::QKLSessionID(a) == QKL::QKLSessionID(b)) == (QKL::compareNoCase(a, b) == 0), "session ID ==");
}

}  // namespace QKLFuzz
