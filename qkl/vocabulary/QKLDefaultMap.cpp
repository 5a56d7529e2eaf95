#include "qkl/vocabulary/QKLDefaultMap.h"

#include <cstring>
#include <vector>

#include "qkl/common/QKLAssert.h"

namespace QKL {
namespace Internal {

boost::shared_ptr<SearchTblItem> buildVocabularyIndex(const CharArray* names, int first, int entries) {
    boost::shared_ptr<SearchTblItem> root(new SearchTblItem());
    for (int i = 0; i < entries; ++i) {
        const CharArray& name = names[i];
        // An empty row inserts nothing and passes; a duplicate or a name with
        // a byte outside 1..127 is reported, and the build goes on.
        if (!root->addItem(first + i, name.ptr(), name.length()).second)
            QKL_ASSERT(name.length() == 0);
    }
    return root;
}

namespace {

// One vocabulary: its own empty name, the name table in ID order and the
// trie. Immutable once constructed, so readers need no lock.
class Vocabulary {
public:
    Vocabulary(const char* const* rows, int first, int entries) : m_first(first), m_emptyName("", 0) {
        m_names.reserve(static_cast<size_t>(entries));
        for (int i = 0; i < entries; ++i)
            m_names.emplace_back(rows[i], static_cast<unsigned int>(std::strlen(rows[i])));
        m_index = buildVocabularyIndex(m_names.data(), first, entries);
    }

    const CharArray& name(int id) const {
        // Compared as long long so that no id can overflow the subtraction.
        const long long i = static_cast<long long>(id) - m_first;
        if (i < 0 || i >= static_cast<long long>(m_names.size())) return m_emptyName;
        return m_names[static_cast<size_t>(i)];
    }

    int find(const char* s, unsigned long len) const {
        const SearchTblItem* node = m_index->findItem(s, len);
        return node ? node->id() : 0;
    }

private:
    int m_first;
    CharArray m_emptyName;
    std::vector<CharArray> m_names;
    boost::shared_ptr<SearchTblItem> m_index;
};

// Members are initialised in declaration order: element, namespace, type.
struct Vocabularies {
    Vocabularies()
        : reportsBefore(assertReports()),
          element(elementRows(), ELEM_FIRST_ID, ELEM_COUNT),
          ns(namespaceRows(), NS_FIRST_ID, NS_COUNT),
          type(typeRows(), TYPE_FIRST_ID, TYPE_COUNT),
          buildReports(assertReports() - reportsBefore) {}

    const unsigned long reportsBefore;
    const Vocabulary element;
    const Vocabulary ns;
    const Vocabulary type;
    const unsigned long buildReports;
};

// Built on first use: a static initialiser of another translation unit may
// look a name up before this file's initialisers have run, and the
// function-local static makes that safe (and thread-safe).
const Vocabularies& vocabularies() {
    static const Vocabularies built;
    return built;
}

// ... and otherwise built while the library loads, so that no reader ever pays
// for the build.
[[maybe_unused]] const Vocabularies& g_builtAtLoad = vocabularies();

}  // namespace

unsigned long vocabularyBuildReports() { return vocabularies().buildReports; }

}  // namespace Internal

using Internal::CharArray;
using Internal::vocabularies;

const CharArray& getStringByElemIdDefault(int id) { return vocabularies().element.name(id); }

int getElemIdByStringDefault(const char* name, unsigned long length) {
    return vocabularies().element.find(name, length);
}

const CharArray& getStringByNSIdDefault(int id) { return vocabularies().ns.name(id); }

int getNSIdByStringDefault(const char* name, unsigned long length) { return vocabularies().ns.find(name, length); }

const CharArray& getStringByTypeIdDefault(int id) { return vocabularies().type.name(id); }

int getTypeIdByStringDefault(const char* name, unsigned long length) {
    return vocabularies().type.find(name, length);
}

int QKLDefaultMap::findElem(const CharArray& name) { return getElemIdByStringDefault(name.ptr(), name.length()); }

int QKLDefaultMap::findNS(const CharArray& name) { return getNSIdByStringDefault(name.ptr(), name.length()); }

int QKLDefaultMap::findType(const CharArray& name) { return getTypeIdByStringDefault(name.ptr(), name.length()); }

}  // namespace QKL
