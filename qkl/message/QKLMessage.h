// QKLMessage: the abstract message, a tree of elements under one
// root plus a small header of fixed fields. The base supplies what is the same
// for every protocol: copy-on-write sharing of one document between several
// message objects through one atomic count, the origin/target/session
// accessors as elements of the tree, reply generation, and message text files.
//
// Ownership: a message is released only through destroy(), never by delete
// from outside; auto_destroy is the single-owner holder. Shallow copies share
// one document and one count until a write (the iterator's validateInternals) makes
// the writer's copy private through hardcopy().
//
// Threads: the sharers of one document may be used on different threads at
// once. Every const member (look-ups by name or ID, getValue, iterator walks,
// serialize, toText, copy, hardcopy) and destroy only read the shared document;
// a write through a sharer first makes that sharer's document private and
// leaves the others untouched. Separate messages may be used on separate
// threads, and the factory may make messages on several threads once
// initialize() has returned. Not allowed: one message object or one iterator
// used by two threads at once (a sharer is handed over, not shared), and
// initialize(), setFactory() or a protocol registration once other threads
// use the library.
//
// Results: 0 success, -1 failure, except toTextFile (the stream's error
// indicator) and fromTextFile (a short read count is passed on).
#ifndef QKL_MESSAGE_QKLMESSAGE_H
#define QKL_MESSAGE_QKLMESSAGE_H

#include <atomic>
#include <string>

#include <boost/intrusive_ptr.hpp>

namespace QKL {

class QKLMessageIterator;
class QKLMsgFactory;

class QKLMessage {
public:
    // Element names of the header and of replies.
    static const char* const ORIGIN;
    static const char* const TARGET;
    static const char* const SESSION;
    static const char* const SOURCE;       // "src"
    static const char* const DESTINATION;  // "dst"
    static const char* const COOKIE;
    static const char* const DATA;
    static const char* const REPLY_ROOT;   // "packet"
    // genReply: the protocol namespace of the namespace vocabulary, and the
    // element "host" dropped from the copied "src" list.
    static constexpr int PROTOCOL_NAMESPACE_ID = 297;
    static constexpr int HOST_ELEMENT_ID = 1068;

    QKLMessage();
    QKLMessage(const QKLMessage&) = delete;
    QKLMessage& operator=(const QKLMessage&) = delete;

    // ---- virtual slots, in slot order: the vtable layout is part of the interface ----
    virtual int init(const char* buf, int len) = 0;
    virtual int create(const char* rootName) = 0;
    // Releases this object; the document too when it was its last sharer.
    // The result carries no meaning (always 0).
    virtual int destroy();
    // Null `from`: the whole message. *buf is released with free().
    virtual int serialize(char** buf, int* len, const QKLMessageIterator* from, int flags) const = 0;
    virtual int serialize(char* buf, unsigned long* len, const QKLMessageIterator* from) const;
    virtual int deserialize(const char* buf, int len, QKLMessageIterator* to) = 0;
    virtual int deserialize(const QKLMessageIterator* from, QKLMessageIterator* to) = 0;
    virtual char* toText(const QKLMessageIterator* from, const std::string& unused, int flags) const;
    virtual int toTextFile(const std::string& path) const;
    virtual int fromText(const char* text, QKLMessageIterator* to);
    virtual int fromTextFile(const std::string& path);
    virtual QKLMessage* newMessage() const = 0;
    virtual QKLMessageIterator* newIterator() = 0;
    virtual const QKLMessageIterator* newIterator() const = 0;
    // Shallow, whatever the flag (deliberately): shares the document and the count.
    virtual QKLMessage* copy(bool deep) const;
    virtual int getVersion(int& version) const = 0;
    virtual int setVersion(int version) = 0;
    virtual int getTime(long& time) const = 0;
    virtual int setTime(long time) = 0;
    virtual int getProgress(int& progress) const = 0;
    virtual int setProgress(int progress) = 0;
    virtual int getLog(int& log) const = 0;
    virtual int setLog(int log) = 0;
    virtual int getType(int& type) const = 0;
    virtual int setType(int type) = 0;
    virtual int getID(std::string& id) const = 0;
    virtual int setID(const std::string& id, bool noSave) = 0;
    virtual int getPriority(int& priority) const = 0;
    virtual int setPriority(int priority) = 0;
    virtual int getUid(std::string& uid) const = 0;
    virtual int setUid(const std::string& uid) = 0;
    virtual int getTimeout(int& timeout) const = 0;
    virtual int setTimeout(int timeout) = 0;
    virtual int getTimeoutLimit(int& limit) const = 0;
    virtual int setTimeoutLimit(int limit) = 0;
    virtual std::string getOrigin() const;
    virtual int setOrigin(const std::string& origin);
    virtual std::string getTarget() const;
    virtual int setTarget(const std::string& target);
    virtual int addTarget(const std::string& target);
    virtual int getSession(std::string& session) const;
    virtual int setSession(const std::string& session);
    virtual int getSessionID(std::string& session) const;
    virtual int setSessionID(const std::string& session);
    virtual const char* messageType() const = 0;
    virtual ~QKLMessage();
    virtual int saveChanges() const;
    virtual bool multiReference() const;
    virtual int assignInternals(const QKLMessage* other) = 0;
    virtual int copyInternals() const = 0;
    virtual int releaseInternals() = 0;
    // Makes a shared document private; 0 (allocating nothing) when unshared.
    virtual int hardcopy() const;

    // ---- non-virtual members ----
    // A new reply to this request, owned by the caller (release with destroy()).
    QKLMessage* genReply(const std::string& origin) const;

    // The process-wide factory; the first call creates QKLMessageFactory<QKLBinary>.
    static boost::intrusive_ptr<QKLMsgFactory> getFactory();
    // Exchanges the process-wide factory with the argument.
    static void setFactory(boost::intrusive_ptr<QKLMsgFactory> factory);
    // Makes QKLBinary the default protocol; true when that succeeds.
    static bool initialize();
    // The default factory's isMessageComplete(buf, len).
    static int isComplete(const char* buf, int len);

    // The sharers' count (for diagnostics and tests); 0 once released.
    int shareCount() const { return m_count ? m_count->load() : 0; }

private:
    typedef std::atomic<int> Count;
    // Null once this object's document has been released; shared by every copy.
    mutable Count* m_count;
};

// The single-owner holder of a message: destroy() when it goes out of scope.
template <class T = QKLMessage>
class auto_destroy {
public:
    explicit auto_destroy(T* message = nullptr) : m_message(message) {}
    ~auto_destroy() { reset(); }
    auto_destroy(const auto_destroy&) = delete;
    auto_destroy& operator=(const auto_destroy&) = delete;

    T* get() const { return m_message; }
    T* operator->() const { return m_message; }
    T& operator*() const { return *m_message; }
    explicit operator bool() const { return m_message != nullptr; }
    // Gives up ownership without destroying.
    T* release() {
        T* message = m_message;
        m_message = nullptr;
        return message;
    }
    void reset(T* message = nullptr) {
        if (m_message != nullptr && m_message != message) m_message->destroy();
        m_message = message;
    }

private:
    T* m_message;
};

}  // namespace QKL

#endif
