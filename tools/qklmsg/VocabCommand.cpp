// qklmsg vocab NAME|ID: the compiled-in element, namespace and type
// vocabularies, looked up both ways. A decimal word is an ID (its names are
// printed), anything else a name (its IDs are printed).
// qklmsg vocab --list [elements|namespaces|types]: "ID name" per line in ID
// order, reserved unnamed IDs left out; with no kind all three, each after a
// header line "elements:", "namespaces:" or "types:".
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

// One vocabulary as the list shows it: its word, ID range and look-up.
struct Vocabulary {
    const char* plural;
    int first;
    int last;
    const CharArray& (*nameOf)(int);
};

const Vocabulary VOCABULARIES[] = {
    {"elements", QKL::ELEM_FIRST_ID, QKL::ELEM_LAST_ID, QKL::getStringByElemIdDefault},
    {"namespaces", QKL::NS_FIRST_ID, QKL::NS_LAST_ID, QKL::getStringByNSIdDefault},
    {"types", QKL::TYPE_FIRST_ID, QKL::TYPE_LAST_ID, QKL::getStringByTypeIdDefault},
};

void listVocabulary(const Vocabulary& vocabulary) {
    for (int id = vocabulary.first; id <= vocabulary.last; ++id) {
        const CharArray& name = vocabulary.nameOf(id);
        if (!name.empty()) std::printf("%d %.*s\n", id, int(name.length()), name.ptr());
    }
}

int list(const CommandLine& line) {
    const bool all = line.operands.empty();
    bool known = all;
    for (const Vocabulary& vocabulary : VOCABULARIES) {
        if (!all && line.operands[0] != vocabulary.plural) continue;
        if (all) std::printf("%s:\n", vocabulary.plural);
        listVocabulary(vocabulary);
        known = true;
    }
    if (!known) return usageError("unknown vocabulary \"" + line.operands[0] + "\" (elements, namespaces or types)");
    return flushStandardOutput() ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace

int runVocab(const CommandLine& line) {
    if (line.list) return list(line);
    const char* word = line.operands[0].c_str();
    char* end = nullptr;
    const long id = std::strtol(word, &end, 10);
    if (*word != '\0' && *end == '\0') return namesOf(word, int(id));
    return idsOf(word);
}

}  // namespace qklmsg
