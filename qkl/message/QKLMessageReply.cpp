// QKLMessage::genReply: the reply to a request. The failure of a single step
// is ignored on purpose: a reply is always returned once its "packet" could be made.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLMsgFactory.h"

namespace QKL {

namespace {

// Each header field independently, when the request has it.
void copyHeader(const QKLMessage& request, QKLMessage& reply) {
    std::string text;
    int number = 0;
    if (request.getID(text) == 0) reply.setID(text, false);
    if (request.getVersion(number) == 0) reply.setVersion(number);
    if (request.getPriority(number) == 0) reply.setPriority(number);
    // Deliberately this pair: the request's session becomes the reply's session ID.
    if (request.getSession(text) == 0) reply.setSessionID(text);
}

// The request's "src" list comes back as the reply's "dst", without "host".
void copySourceList(const QKLMessageIterator& request, QKLMessageIterator& reply) {
    if (request.firstChild(QKLMessage::SOURCE) != 0) return;
    reply.newChild(QKLMessage::DESTINATION);
    if (request.firstChild() == 0) {
        do {
            reply.copyToChild(&request);
        } while (request.nextSibling() == 0);
        request.seekUp();
    }
    reply.deleteChild(QKLMessage::HOST_ELEMENT_ID);
    reply.seekUp();
    request.seekUp();
}

// A plain cookie value (cut at its first NUL), else the whole cookie subtree.
void copyCookie(const QKLMessageIterator& request, QKLMessageIterator& reply) {
    std::string value;
    if (request.getValue(value, QKLMessage::COOKIE) == 0) {
        reply.putValue(std::string(value.c_str()), QKLMessage::COOKIE);
        return;
    }
    char* buffer = nullptr;
    int length = 0;
    if (request.seek(QKLMessage::COOKIE) == 0 && request.serializeFromChild(&buffer, &length) == 0) {
        reply.deserializeToChild(buffer, length);
    }
    std::free(buffer);
}

}  // namespace

QKLMessage* QKLMessage::genReply(const std::string& origin) const {
    auto_destroy<QKLMessage> reply(QKLMsgFactory::createNew());
    if (!reply || reply->create(REPLY_ROOT) != 0) return nullptr;
    std::unique_ptr<QKLMessageIterator> replyIterator(reply->newIterator());
    std::unique_ptr<const QKLMessageIterator> requestIterator(newIterator());
    if (!replyIterator || !requestIterator) return nullptr;

    replyIterator->saveNamespace(PROTOCOL_NAMESPACE_ID);
    replyIterator->putValue(origin, ORIGIN);
    copyHeader(*this, *reply);
    std::string requestOrigin;
    if (requestIterator->getValue(requestOrigin, ORIGIN) == 0) replyIterator->putValue(requestOrigin, TARGET);
    copySourceList(*requestIterator, *replyIterator);
    copyCookie(*requestIterator, *replyIterator);
    replyIterator->newChild(DATA);
    return reply.release();
}

}  // namespace QKL
