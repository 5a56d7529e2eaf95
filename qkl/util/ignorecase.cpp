#include "qkl/util/ignorecase.h"

namespace QKL {

namespace {

ignorecase_string toCase(const ignorecase_string& s, int (*function)(int)) {
    ignorecase_string copy(s);
    // The <cctype> functions are undefined for negative char values.
    for (char& c : copy) c = static_cast<char>(function(static_cast<unsigned char>(c)));
    return copy;
}

// One algorithm for both string types: only the traits decide whether
// matching ignores case.
template <class String>
void replaceAll(String& text, const String& pattern, const String& replacement) {
    // An empty pattern makes this loop endless on purpose (see srch_repl). A loop
    // whose steps have no observable effect may be assumed by the compiler to
    // end ([intro.progress]), so each step touches a volatile: the endless
    // loop then really runs, instead of being undefined behaviour.
    volatile typename String::size_type steps = 0;
    typename String::size_type pos = 0;
    while ((pos = text.find(pattern, pos)) != String::npos) {
        text.replace(pos, pattern.size(), replacement);
        pos += replacement.size();
        steps = steps + 1;
    }
}

}  // namespace

// Lambdas rather than &std::tolower: standard functions are not guaranteed
// addressable, and the name is overloaded by <locale>.
ignorecase_string toLower(const ignorecase_string& s) {
    return toCase(s, [](int c) { return std::tolower(c); });
}

ignorecase_string toUpper(const ignorecase_string& s) {
    return toCase(s, [](int c) { return std::toupper(c); });
}

void srch_repl(ignorecase_string& text, const ignorecase_string& pattern,
               const ignorecase_string& replacement) {
    replaceAll(text, pattern, replacement);
}

void srch_repl(std::string& text, const std::string& pattern, const std::string& replacement) {
    replaceAll(text, pattern, replacement);
}

}  // namespace QKL
