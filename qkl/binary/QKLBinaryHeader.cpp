// The packet header of QKLBinary: attributes 101-110 of the root,
// the session ID in element 1748, and the caches of uid, session and id.
#include <cstdio>
#include <memory>

#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"

namespace QKL {

const char* const QKLBinary::On = "on";
const char* const QKLBinary::Off = "off";

namespace {

// Attribute IDs 101-110 in order.
const char* const HEADER_NAMES[] = {"version", "id",      "priority", "time", "type",
                                    "progress", "timeout", "timeout_limit", "uid", "log"};
const int HEADER_COUNT = int(sizeof HEADER_NAMES / sizeof HEADER_NAMES[0]);
static_assert(HEADER_COUNT == QKLBinary::LAST_HEADER_ATTRIBUTE - QKLBinary::FIRST_HEADER_ATTRIBUTE + 1,
              "one name per header attribute");

// "%d.%d.%d" of a packed version: at most 3 x 11 characters, 2 dots and the NUL.
const int VERSION_TEXT_SIZE = 40;

}  // namespace

const char* QKLBinary::headerAttributeName(int id) {
    if (id < FIRST_HEADER_ATTRIBUTE || id > LAST_HEADER_ATTRIBUTE) return nullptr;
    return HEADER_NAMES[id - FIRST_HEADER_ATTRIBUTE];
}

int QKLBinary::headerAttributeID(const std::string& name) {
    for (int i = 0; i < HEADER_COUNT; ++i) {
        if (name == HEADER_NAMES[i]) return FIRST_HEADER_ATTRIBUTE + i;
    }
    return 0;
}

// ---- attributes through a counted iterator on the root ------------------------------------------

namespace {

// Counted (newIterator), so that other iterators of the message re-check their
// paths after a header write (the stamp rule, QKLBinaryIterator.h). Null when the message
// holds no document with a root: header access then fails without assertions.
std::unique_ptr<QKLBinaryIterator> rootIterator(const QKLBinary& message) {
    const QKLBinaryInternals* document = message.internals();
    if (document == nullptr || document->buffer() == nullptr || document->format().empty()) return nullptr;
    return std::unique_ptr<QKLBinaryIterator>(
        static_cast<QKLBinaryIterator*>(const_cast<QKLBinary&>(message).newIterator()));
}

// f(root iterator), or -1 without a root; a write's 1 becomes -1.
template <class Access>
int onRoot(const QKLBinary& message, Access access) {
    const std::unique_ptr<QKLBinaryIterator> root = rootIterator(message);
    return root && access(*root) == 0 ? 0 : -1;
}

}  // namespace

int QKLBinary::readAttribute(std::string& text, int id) const {
    return onRoot(*this, [&](const QKLBinaryIterator& root) { return root.getAttr(text, id); });
}

int QKLBinary::readAttribute(int& value, int id) const {
    return onRoot(*this, [&](const QKLBinaryIterator& root) { return root.getAttr(value, id); });
}

int QKLBinary::writeAttribute(const std::string& text, int id) {
    return onRoot(*this, [&](QKLBinaryIterator& root) { return root.putAttr(text, id); });
}

int QKLBinary::writeAttribute(int value, int id) {
    return onRoot(*this, [&](QKLBinaryIterator& root) { return root.putAttr(value, id); });
}

int QKLBinary::readOnOff(int& value, int id) const {
    std::string text;
    if (readAttribute(text, id) != 0) return -1;
    if (text == On) {
        value = 1;
    } else if (text == Off) {
        value = 0;
    } else {
        return -1;
    }
    return 0;
}

int QKLBinary::getVersion(int& version) const {
    std::string text;
    if (readAttribute(text, VERSION_ATTRIBUTE) != 0) return -1;
    version = QKLBinaryInternals::foldVersion(text.data(), unsigned(text.size()));
    return 0;
}

int QKLBinary::setVersion(int version) {
    char text[VERSION_TEXT_SIZE];
    std::snprintf(text, sizeof text, "%d.%d.%d", version / 10000, (version / 100) % 100, version % 100);
    if (writeAttribute(text, VERSION_ATTRIBUTE) != 0) return -1;
    m_internals->idMap().setMessageVersion(version);
    return 0;
}

int QKLBinary::getTime(long& time) const {
    return onRoot(*this, [&](const QKLBinaryIterator& root) { return root.getAttrTime(time, TIME_ATTRIBUTE); });
}

int QKLBinary::setTime(long time) {
    return onRoot(*this, [&](QKLBinaryIterator& root) { return root.putAttrTime(time, TIME_ATTRIBUTE); });
}

int QKLBinary::getProgress(int& progress) const { return readOnOff(progress, PROGRESS_ATTRIBUTE); }

int QKLBinary::setProgress(int progress) { return writeAttribute(progress ? On : Off, PROGRESS_ATTRIBUTE); }

int QKLBinary::getLog(int& log) const { return readOnOff(log, LOG_ATTRIBUTE); }

int QKLBinary::setLog(int log) { return writeAttribute(log ? On : Off, LOG_ATTRIBUTE); }

int QKLBinary::getType(int& type) const { return readAttribute(type, TYPE_ATTRIBUTE); }

int QKLBinary::setType(int type) { return writeAttribute(type, TYPE_ATTRIBUTE); }

int QKLBinary::getPriority(int& priority) const { return readAttribute(priority, PRIORITY_ATTRIBUTE); }

int QKLBinary::setPriority(int priority) { return writeAttribute(priority, PRIORITY_ATTRIBUTE); }

int QKLBinary::getTimeout(int& timeout) const { return readAttribute(timeout, TIMEOUT_ATTRIBUTE); }

int QKLBinary::setTimeout(int timeout) { return writeAttribute(timeout, TIMEOUT_ATTRIBUTE); }

int QKLBinary::getTimeoutLimit(int& limit) const { return readAttribute(limit, TIMEOUT_LIMIT_ATTRIBUTE); }

int QKLBinary::setTimeoutLimit(int limit) { return writeAttribute(limit, TIMEOUT_LIMIT_ATTRIBUTE); }

int QKLBinary::getSessionID(std::string& session) const { return readAttribute(session, SESSION_ID_ELEMENT); }

int QKLBinary::setSessionID(const std::string& session) { return writeAttribute(session, SESSION_ID_ELEMENT); }

// ---- the cached fields -------------------------------------------------------------------------

namespace {

// The cached value while its changed flag is set, else the attribute.
template <class Read>
int cachedOr(const QKLBinary::Attribute<std::string>& cache, std::string& out, Read read) {
    if (!cache.changed) return read(out);
    if (!cache.value) return -1;
    out = *cache.value;
    return 0;
}

}  // namespace

int QKLBinary::getID(std::string& id) const {
    return cachedOr(m_id, id, [this](std::string& out) { return readAttribute(out, ID_ATTRIBUTE); });
}

int QKLBinary::getUid(std::string& uid) const {
    return cachedOr(m_uid, uid, [this](std::string& out) { return readAttribute(out, UID_ATTRIBUTE); });
}

int QKLBinary::getSession(std::string& session) const {
    // A dropped session cache reads as the empty session, not as a failure.
    if (m_session.changed && !m_session.value) {
        session.clear();
        return 0;
    }
    return cachedOr(m_session, session, [this](std::string& out) { return getSessionID(out); });
}

int QKLBinary::setID(const std::string& id, bool noSave) {
    m_id = id;
    m_idNotToSave = noSave;
    return 0;
}

int QKLBinary::setUid(const std::string& uid) {
    m_uid = uid;
    return 0;
}

int QKLBinary::setSession(const std::string& session) {
    m_session = session;
    return 0;
}

int QKLBinary::saveChanges() const {
    if (!m_id.changed && !m_session.changed && !m_uid.changed) return 0;
    const std::unique_ptr<QKLBinaryIterator> root = rootIterator(*this);
    if (!root) return -1;
    // A dropped cache has nothing to write; an id marked not-to-save stays cached.
    const auto write = [&root](Attribute<std::string>& cache, int id) {
        if (!cache.changed) return 0;
        if (cache.value && root->putAttr(*cache.value, id) != 0) return -1;
        cache.changed = false;
        return 0;
    };
    if (!m_idNotToSave && write(m_id, ID_ATTRIBUTE) != 0) return -1;
    if (write(m_session, SESSION_ID_ELEMENT) != 0) return -1;
    return write(m_uid, UID_ATTRIBUTE);
}

void QKLBinary::resetHeaderData() {
    m_session.drop();
    m_uid.drop();
    m_id.drop();
    m_idNotToSave = false;
}

void QKLBinary::copyHeaderData(const QKLBinary& other) {
    m_session = other.m_session;
    m_uid = other.m_uid;
    m_id = other.m_id;
    m_idNotToSave = other.m_idNotToSave;
}

}  // namespace QKL
