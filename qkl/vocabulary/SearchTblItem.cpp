#include "qkl/vocabulary/SearchTblItem.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "qkl/common/QKLAssert.h"

namespace QKL {
namespace Internal {
namespace {

// realloc keeps the old block on failure, so throwing leaves the node intact
// (and its invariant children == null <=> count == 0 holds).
SearchTblItem** resizedSlots(SearchTblItem** slots, int count) {
    void* grown = std::realloc(slots, static_cast<size_t>(count) * sizeof(SearchTblItem*));
    if (!grown) throw std::bad_alloc();
    return static_cast<SearchTblItem**>(grown);
}

void clearSlots(SearchTblItem** slots, int count) {
    for (int i = 0; i < count; ++i) slots[i] = nullptr;
}

// (ch - head) wrapped to a signed 8-bit value, spelled out so that it is
// defined for every byte: a byte 0x80-0xFF then lands at a negative index
// or beyond the last slot (head + count - 1 <= 127), never on a stored child.
int slotIndex8(char ch, char head) {
    const int wrapped = static_cast<unsigned char>(ch - head);
    return wrapped < 128 ? wrapped : wrapped - 256;
}

}  // namespace

SearchTblItem::SearchTblItem() : m_id(0), m_children(nullptr), m_head(0), m_count(0) {}

// A long name is a chain of nodes with one child each, and a received document
// may name anything: the copy follows the last child of every node in a loop and
// recurses only into the others, so the stack grows with branching, not length.
SearchTblItem::SearchTblItem(const SearchTblItem& other) : SearchTblItem() {
    try {
        SearchTblItem* to = this;
        for (const SearchTblItem* from = &other; from != nullptr;) from = to->copyLevel(*from, to);
    } catch (...) {
        cleanUp();
        throw;
    }
}

const SearchTblItem* SearchTblItem::copyLevel(const SearchTblItem& from, SearchTblItem*& lastCopy) {
    m_id = from.m_id;
    m_head = from.m_head;
    if (from.m_count <= 0) return nullptr;
    m_children = resizedSlots(nullptr, from.m_count);
    m_count = from.m_count;
    // All slots null first, so cleanUp can run at any point of the copy.
    clearSlots(m_children, m_count);
    int last = m_count - 1;
    while (last >= 0 && !from.m_children[last]) --last;
    for (int i = 0; i < last; ++i)
        if (from.m_children[i]) m_children[i] = new SearchTblItem(*from.m_children[i]);
    if (last < 0) return nullptr;
    lastCopy = m_children[last] = new SearchTblItem();
    return from.m_children[last];
}

SearchTblItem& SearchTblItem::operator=(const SearchTblItem& other) {
    SearchTblItem copy(other);
    Swap(copy);
    return *this;
}

SearchTblItem::~SearchTblItem() { cleanUp(); }

void SearchTblItem::Swap(SearchTblItem& other) {
    if (this == &other) return;
    std::swap(m_id, other.m_id);
    std::swap(m_children, other.m_children);
    std::swap(m_head, other.m_head);
    std::swap(m_count, other.m_count);
}

// In a loop along the last child, as the copy: see there.
void SearchTblItem::cleanUp() {
    for (SearchTblItem* next = releaseAllButLast(); next != nullptr;) {
        SearchTblItem* const node = next;
        next = node->releaseAllButLast();
        delete node;  // childless now
    }
}

SearchTblItem* SearchTblItem::releaseAllButLast() {
    SearchTblItem* last = nullptr;
    for (int i = 0; i < m_count; ++i) {
        if (!m_children[i]) continue;
        delete last;
        last = m_children[i];
    }
    std::free(m_children);
    m_id = 0;
    m_children = nullptr;
    m_head = 0;
    m_count = 0;
    return last;
}

void SearchTblItem::increaseHead(char n) {
    const int grow = n;
    QKL_ASSERT(grow > 0);
    QKL_ASSERT(m_count + grow >= 1);
    // count is a signed char: a wider span would overflow it. Reported like the
    // others, and refused.
    QKL_ASSERT(m_count + grow <= MAX_SLOTS);
    if (grow <= 0 || m_count + grow > MAX_SLOTS) return;
    m_children = resizedSlots(m_children, m_count + grow);
    // memmove copies as if through a buffer, i.e. highest slot first.
    std::memmove(m_children + grow, m_children, static_cast<size_t>(m_count) * sizeof(SearchTblItem*));
    clearSlots(m_children, grow);
    m_count = static_cast<signed char>(m_count + grow);
    m_head = static_cast<char>(m_head - grow);
}

void SearchTblItem::increaseTail(char n) {
    const int grow = n;
    QKL_ASSERT(grow >= 1);
    QKL_ASSERT(m_count + grow >= 1);
    QKL_ASSERT(m_count + grow <= MAX_SLOTS);  // as in increaseHead
    if (grow < 1 || m_count + grow > MAX_SLOTS) return;
    m_children = resizedSlots(m_children, m_count + grow);
    clearSlots(m_children + m_count, grow);
    m_count = static_cast<signed char>(m_count + grow);
}

SearchTblItem* SearchTblItem::childFor(signed char ch) {
    int i = 0;
    if (m_count == 0) {
        m_head = ch;
        increaseTail(1);
    } else {
        i = ch - m_head;
        // The span checks only fail on a node whose head was moved by hand
        // (increaseHead on an empty node); addItem alone keeps head in 1..127.
        if (i < 0) {
            if (m_count - i > MAX_SLOTS) return nullptr;
            increaseHead(static_cast<char>(-i));
            i = 0;
        } else if (i >= m_count) {
            if (i + 1 > MAX_SLOTS) return nullptr;
            increaseTail(static_cast<char>(i - m_count + 1));
        }
    }
    if (!m_children[i]) m_children[i] = new SearchTblItem();
    return m_children[i];
}

std::pair<SearchTblItem*, bool> SearchTblItem::addItem(int id, const char* s, unsigned long len) {
    if (id == 0 || !s || len == 0) return std::make_pair(nullptr, false);
    SearchTblItem* node = this;
    for (unsigned long k = 0; k < len; ++k) {
        const signed char ch = static_cast<signed char>(s[k]);
        if (ch <= 0) return std::make_pair(nullptr, false);
        node = node->childFor(ch);
        if (!node) return std::make_pair(nullptr, false);
    }
    if (node->m_id != 0) return std::make_pair(node, false);
    node->m_id = id;
    return std::make_pair(node, true);
}

const SearchTblItem* SearchTblItem::findItem(const char* s, unsigned long len) const {
    if (!s || len == 0) return nullptr;
    const SearchTblItem* node = this;
    for (unsigned long k = 0; k < len; ++k) {
        const int i = slotIndex8(s[k], node->m_head);
        if (i < 0 || i >= node->m_count) return nullptr;
        node = node->m_children[i];
        if (!node) return nullptr;
    }
    return node;
}

const SearchTblItem* SearchTblItem::child(int i) const {
    return (i >= 0 && i < m_count) ? m_children[i] : nullptr;
}

}  // namespace Internal
}  // namespace QKL
