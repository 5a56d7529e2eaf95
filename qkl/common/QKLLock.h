// QKLLock: the companion library's plain (non-recursive) mutex.
#ifndef QKL_COMMON_QKLLOCK_H
#define QKL_COMMON_QKLLOCK_H

#include <mutex>

namespace QKL {

class QKLLock {
public:
    QKLLock() = default;
    ~QKLLock() = default;
    QKLLock(const QKLLock&) = delete;
    QKLLock& operator=(const QKLLock&) = delete;

    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

}  // namespace QKL

#endif
