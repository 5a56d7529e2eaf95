// The protocol factory registry. A factory makes empty messages of
// its protocol and messages from received bytes, and recognises its byte
// streams. Factories register themselves by protocol name in one process-wide
// registry; one of them is the default through which QKLMessage makes messages.
//
// Factories are reference-counted (QKLRefCounter) and, once registered, live
// until the process ends: registration adds one reference more, deliberately.
// The registry and the default factory are set up on one thread at start-up.
#ifndef QKL_MESSAGE_QKLMSGFACTORY_H
#define QKL_MESSAGE_QKLMSGFACTORY_H

#include <atomic>
#include <map>
#include <string>
#include <typeinfo>

#include <boost/intrusive_ptr.hpp>
#include <boost/noncopyable.hpp>

namespace QKL {

class QKLMessage;

// A shared object counted through boost::intrusive_ptr. The count starts at 0;
// the release that takes it from 1 deletes the object.
class QKLRefCounter : private boost::noncopyable {
public:
    QKLRefCounter() : m_references(0) {}
    virtual ~QKLRefCounter();
    void addRef() { m_references.fetch_add(1); }
    void release() {
        if (m_references.fetch_add(-1) == 1) delete this;
    }
    int referenceCount() const { return m_references.load(); }

private:
    std::atomic<int> m_references;
};

inline void intrusive_ptr_add_ref(QKLRefCounter* counted) { counted->addRef(); }
inline void intrusive_ptr_release(QKLRefCounter* counted) { counted->release(); }

class QKLMsgFactory : public QKLRefCounter {
public:
    // The answer of kindOf for bytes that no registered factory claims.
    static const char* const UnknownKind;

    virtual ~QKLMsgFactory();
    // newMessage() then init(buf, len); null (the half-made message destroyed) when init fails.
    virtual QKLMessage* newMessage(const char* buf, int len);
    virtual int isMessageComplete(const char* buf, int len) = 0;
    virtual QKLMessage* newMessage() = 0;
    virtual bool isOfTheKind(const char* buf) = 0;
    virtual std::string messageType() = 0;
    virtual const std::type_info& messageTypeid() = 0;

    static QKLMessage* createNew();
    static QKLMessage* createNew(const char* buf, int len);
    // -1 (the default unchanged) for a name or type that no factory registered.
    static int setDefaultProtocol(const std::string& name);
    static int setDefaultProtocol(const std::type_info& type);
    // The registry name of the first factory (in name order) that claims the bytes.
    static std::string kindOf(const char* buf);
};

typedef std::map<std::string, boost::intrusive_ptr<QKLMsgFactory> > QKLMsgVocabulary;

// The registry, created on first use and, like the factories it pins, never destroyed.
QKLMsgVocabulary& getMsgVocabulary();

// The factory of protocol class P (QKLBinary): P supplies MessageType,
// isComplete(buf, len) and isOfTheKind(buf).
template <class P>
class QKLMessageFactory : public QKLMsgFactory {
public:
    // Registers this factory under its name, replacing any before it, and pins it
    // with one reference more (deliberately: a factory in static storage, or one
    // replaced in the registry, is never deleted through its count).
    QKLMessageFactory() {
        getMsgVocabulary()[messageType()] = this;
        addRef();
    }
    int isMessageComplete(const char* buf, int len) override { return P::isComplete(buf, len); }
    QKLMessage* newMessage() override { return new P(); }
    using QKLMsgFactory::newMessage;
    bool isOfTheKind(const char* buf) override { return P::isOfTheKind(buf) != 0; }
    std::string messageType() override { return P::MessageType; }
    const std::type_info& messageTypeid() override { return typeid(P); }
};

}  // namespace QKL

#endif
