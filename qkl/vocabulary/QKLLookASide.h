// QKLLookASide: the allocator of the ID maps' tree nodes (QKLProtocolIDMap). Single
// nodes come from, and go back to, a process-wide free list (QKLSideList),
// so building and dropping many small documents does not hit the general
// allocator. Up to SIDE_LIST_KEPT free nodes are kept; more are freed.
#ifndef QKL_VOCABULARY_QKLLOOKASIDE_H
#define QKL_VOCABULARY_QKLLOOKASIDE_H

#include <cstddef>
#include <new>
#include <vector>

#include "qkl/common/QKLAssert.h"
#include "qkl/common/QKLLock.h"

namespace QKL {

const std::size_t SIDE_LIST_KEPT = 40960;

// The free list of nodes of one size. Created on first use, never destroyed
// (maps of static documents may release nodes during exit). Its creation is
// not locked: create the first ID map before several threads start.
template <std::size_t NodeSize>
class QKLSideList {
public:
    static QKLSideList& instance() {
        static QKLSideList* list = new QKLSideList;
        return *list;
    }

    // A free node, or null when the list is empty.
    void* get() {
        void* node = nullptr;
        m_lock.lock();
        if (!m_free.empty()) {
            node = m_free.back();
            m_free.pop_back();
        }
        m_lock.unlock();
        return node;
    }

    void put(void* node) {
        QKL_ASSERT(node != nullptr);
        if (node == nullptr) return;
        m_lock.lock();
        const bool full = m_free.size() > SIDE_LIST_KEPT - 1;
        if (!full) m_free.push_back(node);
        m_lock.unlock();
        if (full) ::operator delete(node);
    }

    std::size_t size() {
        m_lock.lock();
        std::size_t n = m_free.size();
        m_lock.unlock();
        return n;
    }

private:
    QKLSideList() { m_free.reserve(SIDE_LIST_KEPT); }

    QKLLock m_lock;
    std::vector<void*> m_free;
};

template <typename T>
class QKLLookASide {
public:
    typedef T value_type;

    QKLLookASide() = default;
    template <typename U>
    QKLLookASide(const QKLLookASide<U>&) {}

    T* allocate(std::size_t n) {
        QKL_ASSERT(n == 1);
        if (n != 1) return static_cast<T*>(::operator new(n * sizeof(T)));
        void* node = QKLSideList<sizeof(T)>::instance().get();
        return static_cast<T*>(node ? node : ::operator new(sizeof(T)));
    }

    void deallocate(T* p, std::size_t n) {
        if (n != 1) {
            ::operator delete(p);
            return;
        }
        QKLSideList<sizeof(T)>::instance().put(p);
    }

    template <typename U>
    bool operator==(const QKLLookASide<U>&) const { return true; }
    template <typename U>
    bool operator!=(const QKLLookASide<U>&) const { return false; }
};

}  // namespace QKL

#endif
