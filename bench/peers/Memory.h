// Bytes a built document holds on the heap, the same way for every contender:
// glibc's count of bytes in use (malloc, and operator new, which calls it) taken
// before the document is made and while it lives. Chunk headers and the slack of
// a grown buffer count too: they are what the document holds.
#ifndef QKL_BENCH_PEERS_MEMORY_H
#define QKL_BENCH_PEERS_MEMORY_H

#include <malloc.h>

namespace peers {

inline double heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return double(info.uordblks + info.hblkhd);
}

// Heap bytes held by what make() returns, until release(it).
template <class Make, class Release>
double heldBytes(Make make, Release release) {
    const double before = heapInUse();
    auto made = make();
    const double held = heapInUse() - before;
    release(made);
    return held;
}

}  // namespace peers

#endif
