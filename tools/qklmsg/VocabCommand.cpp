// qklmsg vocab NAME|ID: the compiled-in element, namespace and type
// vocabularies, looked up both ways. A decimal word is an ID (its names are
// printed), anything else a name (its IDs are printed).
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Commands.h"
#include "ToolIO.h"

namespace qklmsg {

namespace {

using QKL::Internal::CharArray;

const char* const KINDS[] = {"element", "namespace", "type"};

void printName(const char* kind, const CharArray& name) {
    if (!name.empty()) std::printf("%s: %.*s\n", kind, int(name.length()), name.ptr());
}

int namesOf(const char* word, int id) {
    const CharArray names[] = {QKL::getStringByElemIdDefault(id), QKL::getStringByNSIdDefault(id),
                               QKL::getStringByTypeIdDefault(id)};
    bool found = false;
    for (int i = 0; i < 3; ++i) {
        printName(KINDS[i], names[i]);
        found = found || !names[i].empty();
    }
    if (!found) return refuse(word, "names nothing in any vocabulary");
    return flushStandardOutput() ? EXIT_DONE : EXIT_REFUSED;
}

int idsOf(const char* word) {
    const unsigned long length = std::strlen(word);
    const int ids[] = {QKL::getElemIdByStringDefault(word, length), QKL::getNSIdByStringDefault(word, length),
                       QKL::getTypeIdByStringDefault(word, length)};
    bool found = false;
    for (int i = 0; i < 3; ++i) {
        if (ids[i] == 0) continue;
        std::printf("%s: %d\n", KINDS[i], ids[i]);
        found = true;
    }
    if (!found) return refuse(word, "in no vocabulary");
    return flushStandardOutput() ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace

int runVocab(const CommandLine& line) {
    const char* word = line.operands[0].c_str();
    char* end = nullptr;
    const long id = std::strtol(word, &end, 10);
    if (*word != '\0' && *end == '\0') return namesOf(word, int(id));
    return idsOf(word);
}

}  // namespace qklmsg
