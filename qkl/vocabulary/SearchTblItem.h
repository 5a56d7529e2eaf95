// SearchTblItem: one node of the character trie behind the compiled-in
// vocabularies. A node owns its subtree.
#ifndef QKL_VOCABULARY_SEARCHTBLITEM_H
#define QKL_VOCABULARY_SEARCHTBLITEM_H

#include <utility>

namespace QKL {
namespace Internal {

class SearchTblItem {
public:
    // Only characters 1 to 127 are stored, so a children array never spans
    // more slots than this.
    static const int MAX_SLOTS = 127;

    SearchTblItem();
    // Deep copy. If copying a child throws, the partly built node is cleaned
    // up and the exception passes on. Copy and destruction use stack space in
    // proportion to the trie's branching, not to the length of its words.
    SearchTblItem(const SearchTblItem& other);
    // Copy-and-swap: the copy is made before this node is touched, so a throw
    // leaves this node unchanged, and self-assignment is harmless.
    SearchTblItem& operator=(const SearchTblItem& other);
    ~SearchTblItem();

    void Swap(SearchTblItem& other);
    void cleanUp();

    // Grow the children array by n slots at the front (head moves down by n)
    // or at the back. n must be positive; a refused call changes nothing.
    void increaseHead(char n);
    void increaseTail(char n);

    // Inserts a word; returns (node reached, inserted). The first insertion
    // of a word wins. A NUL byte or a byte 0x80-0xFF refuses the word, but
    // nodes created before that byte stay.
    std::pair<SearchTblItem*, bool> addItem(int id, const char* s, unsigned long len);
    // The node reached by the word (its id may be 0), or null.
    const SearchTblItem* findItem(const char* s, unsigned long len) const;

    // Read access for tests and diagnostics.
    int id() const { return m_id; }
    char head() const { return m_head; }
    signed char count() const { return m_count; }
    // Slot i, or null when i is outside 0..count-1 or the slot is empty.
    const SearchTblItem* child(int i) const;

private:
    // The child for character ch, created (and the array grown) as needed;
    // null when the array cannot span ch.
    SearchTblItem* childFor(signed char ch);
    // Copies `from` without its children into this childless node, copies all of
    // its children but the last, and leaves an empty node in the last one's slot:
    // returns that child of `from` (null if none) and sets `lastCopy` to its slot's node.
    const SearchTblItem* copyLevel(const SearchTblItem& from, SearchTblItem*& lastCopy);
    // Deletes all children but the last, empties this node and returns that last child.
    SearchTblItem* releaseAllButLast();

    int m_id;
    SearchTblItem** m_children;  // malloc/realloc/free block of m_count slots
    char m_head;
    signed char m_count;
};

}  // namespace Internal
}  // namespace QKL

#endif
