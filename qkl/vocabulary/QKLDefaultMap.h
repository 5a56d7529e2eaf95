// The compiled-in vocabularies: element, namespace and type names
// and their IDs. The IDs travel inside binary documents, so the tables are
// part of the wire contract and change only by appending.
#ifndef QKL_VOCABULARY_QKLDEFAULTMAP_H
#define QKL_VOCABULARY_QKLDEFAULTMAP_H

#include <boost/shared_ptr.hpp>

#include "qkl/util/CharArray.h"
#include "qkl/vocabulary/SearchTblItem.h"

// The vocabulary base URI as a literal, so that the namespace table can be
// built from it by literal concatenation (no dynamic initialisation).
#define QKL_VOCABULARY_BASE_URI_TEXT "http://www.qkl.example"

namespace QKL {

// Base of every namespace URI of the system: BASE + "/webservices/" +
// "qka/3.0.3/" or "qkl/4.0.0/" + module name.
inline constexpr char VOCABULARY_BASE_URI[] = QKL_VOCABULARY_BASE_URI_TEXT;

inline constexpr int ELEM_FIRST_ID = 1001;
inline constexpr int ELEM_LAST_ID = 2304;
inline constexpr int ELEM_COUNT = ELEM_LAST_ID - ELEM_FIRST_ID + 1;  // 1304

inline constexpr int NS_FIRST_ID = 201;
inline constexpr int NS_LAST_ID = 311;
inline constexpr int NS_COUNT = NS_LAST_ID - NS_FIRST_ID + 1;  // 111

inline constexpr int TYPE_FIRST_ID = 101;
inline constexpr int TYPE_LAST_ID = 389;
inline constexpr int TYPE_COUNT = TYPE_LAST_ID - TYPE_FIRST_ID + 1;  // 289

// ID to name: the name, or an empty name (length 0) outside the range or on
// an unnamed row. Name to ID: the ID of the exact name, or 0.
const Internal::CharArray& getStringByElemIdDefault(int id);
int getElemIdByStringDefault(const char* name, unsigned long length);
const Internal::CharArray& getStringByNSIdDefault(int id);
int getNSIdByStringDefault(const char* name, unsigned long length);
const Internal::CharArray& getStringByTypeIdDefault(int id);
int getTypeIdByStringDefault(const char* name, unsigned long length);

// Stateless adapter: these addresses are the default look-ups handed to
// QKLProtocolIDMap as int (*)(const CharArray&).
struct QKLDefaultMap {
    static int findElem(const Internal::CharArray& name);
    static int findNS(const Internal::CharArray& name);
    static int findType(const Internal::CharArray& name);
};

namespace Internal {

// A reserved, unnamed row of a table: its ID maps to the empty name and no
// name maps to it.
inline constexpr const char* EMPTY_ROW = "";

// The raw rows of each table in ID order (row i has ID FIRST + i; EMPTY_ROW marks a
// reserved, unnamed ID). Constant-initialised arrays of string literals, so
// they are usable from any static initialiser.
const char* const* elementRows();    // ELEM_COUNT rows, ElementVocabulary.cpp
const char* const* namespaceRows();  // NS_COUNT rows, NamespaceVocabulary.cpp
const char* const* typeRows();       // TYPE_COUNT rows, TypeVocabulary.cpp

// Builds a trie over names[0..entries-1] with IDs first + i, reporting every
// row that inserts nothing through QKL_ASSERT(length == 0) and going on.
boost::shared_ptr<SearchTblItem> buildVocabularyIndex(const CharArray* names, int first, int entries);

// How many QKL_ASSERT reports the build of the three vocabularies raised
// (0 when every row is well formed and unique).
unsigned long vocabularyBuildReports();

}  // namespace Internal
}  // namespace QKL

#endif
