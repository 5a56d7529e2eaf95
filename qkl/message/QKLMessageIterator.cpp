#include "qkl/message/QKLMessageIterator.h"

#include <memory>

#include "qkl/message/QKLMessage.h"

namespace QKL {

const std::string QKLMessageIterator::EmptyName;
const std::string QKLMessageIterator::FalseText("false");

namespace {

const char* const ROOT_PATH = "/";
const char* const ORIGIN_PATH = "/origin";

// The boolean rule: exactly "0", "" and "false" are false (case-sensitive, untrimmed).
bool textToBool(const std::string& text) {
    return !(text.empty() || text == "0" || text == QKLMessageIterator::FalseText);
}

}  // namespace

QKLMessageIterator::~QKLMessageIterator() {}

int QKLMessageIterator::seekRoot() const { return seek(ROOT_PATH); }

void QKLMessageIterator::saveNamespace(const std::string&) {}

void QKLMessageIterator::saveNamespace(int) {}

int QKLMessageIterator::curNamespaceID() const { return -1; }

// ---- presence, putChild, deleteChild ------------------------------------------------------

int QKLMessageIterator::seekPresence(const std::string& name) const {
    if (seek(name) != 0) return -1;
    if (!name.empty()) seekUp();
    return 0;
}

int QKLMessageIterator::seekPresence(int id) const {
    if (seek(id) != 0) return -1;
    if (id != 0) seekUp();
    return 0;
}

int QKLMessageIterator::putChild(const std::string& name) {
    if (seek(name) != 0 && newChild(name) != 0) return -1;
    seekUp();
    return 0;
}

int QKLMessageIterator::putChild(int id) {
    if (seek(id) != 0 && newChild(id) != 0) return -1;
    seekUp();
    return 0;
}

int QKLMessageIterator::deleteChild(int id) {
    while (firstChild(id) == 0) {
        if (deleteFromChild() != 0) return -1;
    }
    return 0;
}

// ---- whole-message renderings ---------------------------------------------------------------

char* QKLMessageIterator::toText() const {
    return m_message ? m_message->toText(nullptr, EmptyName, TEXT_FLAGS) : nullptr;
}

int QKLMessageIterator::serialize(char** buf, int* len, int flags) const {
    return m_message ? m_message->serialize(buf, len, nullptr, flags) : -1;
}

// ---- the boolean rule -------------------------------------------------------------------------

int QKLMessageIterator::getValue(bool& value, const std::string& name) const {
    std::string text;
    const int result = getValue(text, name);
    if (result != 0) return result;
    value = textToBool(text);
    return 0;
}

int QKLMessageIterator::getValue(bool& value, int id) const {
    if (id == 0) return getValue(value, EmptyName);
    std::string text;
    const int result = getValue(text, id);
    if (result != 0) return result;
    value = textToBool(text);
    return 0;
}

// ---- ID-addressed defaults: the ID rule and the buffer rule -----------------------------------

int QKLMessageIterator::seek(int) const { return -1; }
int QKLMessageIterator::newChild(int) { return -1; }
int QKLMessageIterator::firstChild(int) const { return -1; }
int QKLMessageIterator::nextSibling(int) const { return -1; }

int QKLMessageIterator::getValueBase64(std::string& value, int id) const {
    return id != 0 ? -1 : getValueBase64(value, EmptyName);
}
int QKLMessageIterator::getValue(std::string& value, int id) const {
    return id != 0 ? -1 : getValue(value, EmptyName);
}
int QKLMessageIterator::getValue(int& value, int id) const { return id != 0 ? -1 : getValue(value, EmptyName); }
int QKLMessageIterator::getValueLongLong(long long& value, int id) const {
    return id != 0 ? -1 : getValueLongLong(value, EmptyName);
}
int QKLMessageIterator::getValueDouble(double& value, int id) const {
    return id != 0 ? -1 : getValueDouble(value, EmptyName);
}
int QKLMessageIterator::getValueTime(long& value, int id) const {
    return id != 0 ? -1 : getValueTime(value, EmptyName);
}
int QKLMessageIterator::getValueTimeZone(long& value, int& zone, int id) const {
    return id != 0 ? -1 : getValueTimeZone(value, zone, EmptyName);
}

int QKLMessageIterator::putValueBase64(const char*, int, int) { return -1; }
int QKLMessageIterator::putValue(const char*, int, int) { return -1; }

int QKLMessageIterator::putValueBase64(const std::string& value, int id) {
    if (id != 0) return putValueBase64(value.data(), int(value.size()), id);
    return putValueBase64(value, EmptyName);
}
int QKLMessageIterator::putValue(const std::string& value, int id) {
    if (id != 0) return putValue(value.data(), int(value.size()), id);
    return putValue(value, EmptyName);
}

int QKLMessageIterator::putValueLongLong(long long value, int id) {
    return id != 0 ? -1 : putValueLongLong(value, EmptyName);
}
int QKLMessageIterator::putValueDouble(double value, int id) {
    return id != 0 ? -1 : putValueDouble(value, EmptyName);
}
int QKLMessageIterator::putValue(int value, int id) { return id != 0 ? -1 : putValue(value, EmptyName); }
int QKLMessageIterator::putValueTime(long value, int id) {
    return id != 0 ? -1 : putValueTime(value, EmptyName);
}
int QKLMessageIterator::putValueTimeZone(long value, int zone, int id) {
    return id != 0 ? -1 : putValueTimeZone(value, zone, EmptyName);
}

// ---- non-virtual members ---------------------------------------------------------------------

QKLMessage* QKLMessageIterator::genReply(const std::string& origin) const {
    return m_message ? m_message->genReply(origin) : nullptr;
}

int QKLMessageIterator::getOrigin(std::string& out) const { return getValue(out, ORIGIN_PATH); }

int QKLMessageIterator::validateInternals() const {
    if (m_message == nullptr) return -1;
    if (m_message->multiReference()) {
        if (m_message->hardcopy() != 0) return -1;
        invalidate();
    }
    return 0;
}

int QKLMessageIterator::setNamespaceChild(int namespaceID) {
    // Depth first with one walker instead of recursion: a received document
    // may be nested deeper than the stack would allow.
    std::unique_ptr<QKLMessageIterator> walker(newIterator(false));
    if (!walker) return -1;
    if (walker->firstChild() != 0) return 0;
    unsigned int depth = 1;
    for (;;) {
        walker->setNamespace(namespaceID);
        if (walker->firstChild() == 0) {
            ++depth;
            continue;
        }
        while (walker->nextSibling() != 0) {
            walker->seekUp();
            if (--depth == 0) return 0;
        }
    }
}

}  // namespace QKL
