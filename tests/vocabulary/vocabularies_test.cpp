// The compiled-in vocabularies travel as IDs inside documents, so every row
// keeps its ID; their trie stores only characters 1 to 127.
#include "qkl/vocabulary/QKLDefaultMap.h"

#include <gtest/gtest.h>

#include <climits>
#include <fstream>
#include <map>
#include <set>

using namespace QKL;

// The form of every name (a namespace's behind the base URI).
static bool isWord(const std::string& s) {
    return !s.empty() && s.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == std::string::npos;
}
static bool isElement(int, const std::string& s) { return s.size() <= 34 && isWord(s); }
static bool isType(int, const std::string& s) {
    return s.size() > 4 && s.substr(s.size() - 4) == "Type" && isWord(s.substr(0, s.size() - 4));
}
static bool isNamespace(int id, const std::string& s) {
    const std::string family = id <= 260 ? "/webservices/qka/3.0.3/" : "/webservices/qkl/4.0.0/";
    return s.compare(0, family.size(), family) == 0 && isWord(s.substr(family.size()));
}

static const struct Vocabulary {
    const char* kind;
    const Internal::CharArray& (*byId)(int);
    int (*byName)(const char*, unsigned long);
    int first, last;
    std::set<int> holes;
    bool (*wellFormed)(int id, const std::string& name);
} kElements{"element", getStringByElemIdDefault, getElemIdByStringDefault, 1001, 2304, {2180, 2181}, isElement},
    kNamespaces{"namespace", getStringByNSIdDefault, getNSIdByStringDefault, 201, 311, {251}, isNamespace},
    kTypes{"type", getStringByTypeIdDefault, getTypeIdByStringDefault, 101, 389, {367, 372, 378}, isType};

// Runs while the test program loads, in no set order with the library's own initialisers.
static const int g_packetAtLoad = getElemIdByStringDefault("packet", 6);

TEST(Vocabularies, EveryRowKeepsItsIdFormAndUniquenessAndTheFixedRowsTheirNames) {
    // "kind ID name": the rows fixed by the wire contract, among them those the library uses by ID.
    std::map<std::string, std::string> fixed;
    std::ifstream file(QKL_TEST_DATA_DIR "/vocabulary/fixed_rows.txt");
    for (std::string kind, id, name; file >> kind >> id >> name;) fixed[kind + " " + id] = name;
    ASSERT_EQ(419u, fixed.size());
    EXPECT_EQ(0u, Internal::vocabularyBuildReports());  // no duplicate or unstorable row
    std::set<std::string> elementsAndTypes;
    for (const Vocabulary* v : {&kElements, &kNamespaces, &kTypes}) {
        for (int id : {INT_MIN, 0, v->first - 1, v->last + 1, INT_MAX}) EXPECT_TRUE(v->byId(id).empty()) << id;
        for (int id = v->first; id <= v->last; ++id) {
            const Internal::CharArray& name = v->byId(id);
            EXPECT_EQ(v->holes.count(id) == 1, name.empty()) << id;  // a reserved ID: no name maps to it
            if (name.empty()) continue;
            const std::string text = name.str().substr(v == &kNamespaces ? sizeof VOCABULARY_BASE_URI - 1 : 0);
            const std::string key = v->kind + (" " + std::to_string(id));
            EXPECT_EQ(fixed.count(key) ? fixed[key] : text, text) << key;
            EXPECT_TRUE(v->wellFormed(id, text)) << key << " " << name.str();
            EXPECT_EQ(id, v->byName(name.ptr(), name.length())) << key << " " << name.str();
            EXPECT_TRUE(v == &kNamespaces || elementsAndTypes.insert(text).second) << key << " " << text;
        }
    }
    EXPECT_EQ(1398, g_packetAtLoad);
}

TEST(SearchTblItem, FirstInsertionWinsAndBytesFrom0x80AreNeitherStoredNorFound) {
    Internal::SearchTblItem root;
    EXPECT_TRUE(root.addItem(2, "b", 1).second && root.addItem(1, "a", 1).second);  // the slots span 'a' to 'z'
    EXPECT_TRUE(root.head() == 'a' && root.count() == 2 && root.addItem(26, "z", 1).second && root.count() == 26);
    EXPECT_TRUE(root.child(0)->id() == 1 && root.child(1)->id() == 2 && !root.child(2) && root.child(25)->id() == 26);
    const auto first = root.addItem(7, "word", 4), again = root.addItem(9, "word", 4);
    EXPECT_TRUE(first.second && !again.second && first.first == again.first && root.findItem("word", 4)->id() == 7);
    EXPECT_EQ(0, root.findItem("wor", 3)->id());  // a node on the way, no word
    EXPECT_TRUE(root.findItem("words", 5) == nullptr && root.findItem("Word", 4) == nullptr);
    ASSERT_TRUE(root.addItem(1, "\x01", 1).second && root.addItem(2, "\x7f", 1).second);
    ASSERT_EQ(127, root.count());  // every slot: a wrapped 8-bit index must still fall outside
    for (int b = 0x80; b <= 0xFF; ++b) {
        const char byte = static_cast<char>(b);
        EXPECT_TRUE(root.findItem(&byte, 1) == nullptr && root.addItem(3, &byte, 1).first == nullptr) << b;
    }
    EXPECT_FALSE(root.addItem(4, "ab\x80" "c", 4).second || root.addItem(4, "xy\0z", 4).second);
    EXPECT_EQ(0, root.findItem("ab", 2)->id());  // the nodes made before the refused byte stay
}
