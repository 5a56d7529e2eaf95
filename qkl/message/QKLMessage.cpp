#include "qkl/message/QKLMessage.h"

#include <cstring>
#include <memory>

#include "qkl/common/QKLAssert.h"
#include "qkl/message/QKLMessageIterator.h"

namespace QKL {

const char* const QKLMessage::ORIGIN = "origin";
const char* const QKLMessage::TARGET = "target";
const char* const QKLMessage::SESSION = "session";
const char* const QKLMessage::SOURCE = "src";
const char* const QKLMessage::DESTINATION = "dst";
const char* const QKLMessage::COOKIE = "cookie";
const char* const QKLMessage::DATA = "data";
const char* const QKLMessage::REPLY_ROOT = "packet";

QKLMessage::QKLMessage() : m_count(new Count(1)) {}

QKLMessage::~QKLMessage() {
    QKL_ASSERT(m_count == nullptr || m_count->load() == 0);
    delete m_count;
}

// ---- sharing -------------------------------------------------------------------------------

int QKLMessage::destroy() {
    // With no count the document was released already; nothing is shared through this object.
    if (m_count != nullptr && m_count->fetch_add(-1) != 1) {
        m_count = nullptr;
        releaseInternals();
    }
    delete this;
    return 0;
}

QKLMessage* QKLMessage::copy(bool) const {
    if (m_count == nullptr) return nullptr;
    QKLMessage* shared = newMessage();
    if (shared == nullptr) return nullptr;
    delete shared->m_count;
    shared->m_count = m_count;
    m_count->fetch_add(1);
    shared->assignInternals(this);
    return shared;
}

bool QKLMessage::multiReference() const {
    if (m_count == nullptr) return false;
    QKL_ASSERT(m_count->load() >= 1);
    return m_count->load() != 1;
}

int QKLMessage::hardcopy() const {
    if (m_count == nullptr || m_count->load() == 1) return 0;
    // Keeps the old document alive while this object copies it.
    auto_destroy<QKLMessage> keeper(copy(false));
    if (!keeper) return -1;
    if (copyInternals() != 0) return -1;
    Count* shared = m_count;
    m_count = new Count(1);
    shared->fetch_add(-1);
    return 0;
}

// ---- base bodies of the protocol slots ---------------------------------------------------------

int QKLMessage::serialize(char*, unsigned long*, const QKLMessageIterator*) const { return -1; }

char* QKLMessage::toText(const QKLMessageIterator* from, const std::string&, int flags) const {
    char* buffer = nullptr;
    int length = 0;
    return serialize(&buffer, &length, from, flags) == 0 ? buffer : nullptr;
}

int QKLMessage::fromText(const char* text, QKLMessageIterator* to) {
    if (text == nullptr) return -1;
    return deserialize(text, int(std::strlen(text)), to);
}

int QKLMessage::saveChanges() const { return 0; }

// ---- header elements through a fresh iterator on the root -------------------------------------

namespace {

std::string readRootChild(const QKLMessage& message, const char* name) {
    std::unique_ptr<const QKLMessageIterator> root(message.newIterator());
    std::string value;
    if (!root || root->getValue(value, name) != 0) return std::string();
    return value;
}

int writeRootChild(QKLMessage& message, const std::string& value, const char* name) {
    std::unique_ptr<QKLMessageIterator> root(message.newIterator());
    return root ? root->putValue(value, name) : -1;
}

}  // namespace

std::string QKLMessage::getOrigin() const { return readRootChild(*this, ORIGIN); }

int QKLMessage::setOrigin(const std::string& origin) { return writeRootChild(*this, origin, ORIGIN); }

std::string QKLMessage::getTarget() const { return readRootChild(*this, TARGET); }

int QKLMessage::setTarget(const std::string& target) { return writeRootChild(*this, target, TARGET); }

int QKLMessage::addTarget(const std::string& target) {
    std::unique_ptr<QKLMessageIterator> root(newIterator());
    if (!root) return -1;
    const int created = root->newChild(TARGET);
    if (created != 0) return created;
    return root->putValue(target, 0);
}

int QKLMessage::getSession(std::string& session) const { return getSessionID(session); }

int QKLMessage::setSession(const std::string& session) { return setSessionID(session); }

int QKLMessage::getSessionID(std::string& session) const {
    std::unique_ptr<const QKLMessageIterator> root(newIterator());
    return root ? root->getValue(session, SESSION) : -1;
}

int QKLMessage::setSessionID(const std::string& session) { return writeRootChild(*this, session, SESSION); }

}  // namespace QKL
