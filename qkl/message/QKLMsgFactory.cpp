// The registry and the static operations of QKLMessage that rest on it.
#include "qkl/message/QKLMsgFactory.h"

#include "qkl/binary/QKLBinary.h"
#include "qkl/message/QKLMessage.h"

namespace QKL {

const char* const QKLMsgFactory::UnknownKind = "QKLMessage";

QKLRefCounter::~QKLRefCounter() {}

QKLMsgFactory::~QKLMsgFactory() {}

QKLMsgVocabulary& getMsgVocabulary() {
    // Registered factories live until the process ends (they are pinned), so the
    // registry that holds them is never destroyed either: it stays usable from
    // static destructors, and the pinned factories stay reachable, not leaked.
    static QKLMsgVocabulary* const registry = new QKLMsgVocabulary;
    return *registry;
}

QKLMessage* QKLMsgFactory::newMessage(const char* buf, int len) {
    QKLMessage* message = newMessage();
    if (message != nullptr && message->init(buf, len) != 0) {
        message->destroy();
        return nullptr;
    }
    return message;
}

QKLMessage* QKLMsgFactory::createNew() { return QKLMessage::getFactory()->newMessage(); }

QKLMessage* QKLMsgFactory::createNew(const char* buf, int len) {
    return QKLMessage::getFactory()->newMessage(buf, len);
}

int QKLMsgFactory::setDefaultProtocol(const std::string& name) {
    const QKLMsgVocabulary& registry = getMsgVocabulary();
    const QKLMsgVocabulary::const_iterator found = registry.find(name);
    if (found == registry.end()) return -1;
    QKLMessage::setFactory(found->second);
    return 0;
}

int QKLMsgFactory::setDefaultProtocol(const std::type_info& type) {
    for (const QKLMsgVocabulary::value_type& entry : getMsgVocabulary()) {
        if (entry.second->messageTypeid() == type) return setDefaultProtocol(entry.second->messageType());
    }
    return -1;
}

std::string QKLMsgFactory::kindOf(const char* buf) {
    for (const QKLMsgVocabulary::value_type& entry : getMsgVocabulary()) {
        if (entry.second->isOfTheKind(buf)) return entry.first;
    }
    return UnknownKind;
}

// ---- QKLMessage's process-wide factory ------------------------------------------------------------

namespace {

boost::intrusive_ptr<QKLMsgFactory>& defaultFactory() {
    static boost::intrusive_ptr<QKLMsgFactory> factory;
    return factory;
}

}  // namespace

boost::intrusive_ptr<QKLMsgFactory> QKLMessage::getFactory() {
    boost::intrusive_ptr<QKLMsgFactory>& factory = defaultFactory();
    if (!factory) factory = new QKLMessageFactory<QKLBinary>();
    return factory;
}

void QKLMessage::setFactory(boost::intrusive_ptr<QKLMsgFactory> factory) { defaultFactory().swap(factory); }

bool QKLMessage::initialize() { return QKLMsgFactory::setDefaultProtocol(typeid(QKLBinary)) == 0; }

int QKLMessage::isComplete(const char* buf, int len) { return getFactory()->isMessageComplete(buf, len); }

}  // namespace QKL
