// QKLBinaryIterator: typed values. Writes go through put(); reads through
// readValue() with one reader per requested type, converting by stored type.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qkl/binary/NodeValue.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/Base64.h"
#include "qkl/common/NumberText.h"
#include "qkl/common/TimeText.h"

namespace QKL {

using binary::Node;

namespace {

using binary::numberOf;

// The value bytes up to the first NUL (all of them when there is none).
std::string textOf(const Node& node) { return binary::storedText(node).str(); }

// textOf into `value`, reusing its room.
void assignText(const Node& node, std::string& value) {
    const Internal::CharArray text = binary::storedText(node);
    value.assign(text.ptr(), text.length());
}

// A stored 32-bit integer (type 1) widened into `value`; false for any other node.
template <class T>
bool storedInt(const Node& node, T& value) {
    std::int32_t number = 0;
    if (node.type() != binary::TYPE_INT || !numberOf(node, number)) return false;
    value = number;
    return true;
}

bool isText(unsigned short type) { return type == binary::TYPE_ELEMENT || type == binary::TYPE_STRING; }

// sscanf's count minus one, deliberately passed on: 0 read, -1 no number, -2 empty text.
template <class T>
int scanText(const Node& node, const char* format, T& value) {
    return std::sscanf(textOf(node).c_str(), format, &value) - 1;
}

// A container, or an empty plain element that the internals turn into one
// (QKLBinaryInternals::getInsertOffset); an element with a value must be emptied first.
bool canHoldChildren(const binary::Format::node_range& range) {
    if (range.empty()) return false;
    const Node node = range.node();
    return node.isContainer() || (node.type() == binary::TYPE_ELEMENT && node.dataSize() == 0);
}

}  // namespace

// ---- the primitive write -------------------------------------------------------------------------

bool QKLBinaryIterator::put(int id, unsigned short type, const void* data, std::size_t len, bool text) {
    if (validateInternals() != 0 || len > std::size_t(INT_MAX)) return true;
    QKLBinaryInternals* document = internals();
    const unsigned int depth = m_path.depth();
    int result;
    if (seek(id) == 0) {
        result = document->setContent(m_path, type, data, int(len), text);
    } else if (id != 0 && canHoldChildren(current())) {
        result = document->insert(m_path, id, type, data, int(len), text);
    } else {
        return true;  // the current element is unreachable, or holds a value
    }
    // Back to the starting element, also after an insert that failed once placed.
    while (m_path.depth() > depth) m_path.pop();
    return result != 0;
}

// ---- writes by ID --------------------------------------------------------------------------------

int QKLBinaryIterator::putValue(int value, int id) { return put(id, binary::TYPE_INT, &value, sizeof value, false); }

int QKLBinaryIterator::putValue(const char* data, int len, int id) {
    if (len < 0 || (data == nullptr && len > 0)) return 1;
    return put(id, binary::TYPE_STRING, data, std::size_t(len), true);
}

int QKLBinaryIterator::putValue(const std::string& value, int id) {
    return put(id, binary::TYPE_STRING, value.data(), value.size(), true);
}

int QKLBinaryIterator::putValueLongLong(long long value, int id) {
    return put(id, binary::TYPE_LONGLONG, &value, sizeof value, false);
}

int QKLBinaryIterator::putValueDouble(double value, int id) {
    return put(id, binary::TYPE_DOUBLE, &value, sizeof value, false);
}

int QKLBinaryIterator::putValueBase64(const char* data, int len, int id) {
    if (len < 0 || (data == nullptr && len > 0)) return 1;
    return put(id, binary::TYPE_BASE64, data, std::size_t(len), false);
}

int QKLBinaryIterator::putValueBase64(const std::string& value, int id) {
    return put(id, binary::TYPE_BASE64, value.data(), value.size(), false);
}

int QKLBinaryIterator::putValueXML(const std::string& value, int id) {
    return put(id, binary::TYPE_XML, value.c_str(), value.size() + 1, false);
}

namespace {

int putTimeText(QKLBinaryIterator& iterator, const std::string& text, int id) {
    if (text.empty()) return -1;
    return iterator.put(id, binary::TYPE_TIME, text.c_str(), text.size() + 1, false) ? 1 : 0;
}

}  // namespace

int QKLBinaryIterator::putValueTime(long value, int id) { return putTimeText(*this, time2str(value), id); }

int QKLBinaryIterator::putValueTimeZone(long value, int zone, int id) {
    return putTimeText(*this, time2strZone(value, zone), id);
}

// ---- reads by ID --------------------------------------------------------------------------------

template <class Reader>
int QKLBinaryIterator::readValue(int id, Reader reader) const {
    const binary::Format::node_range node = valueNode(id);
    return node.empty() ? -1 : reader(node.node());
}

namespace {

int readString(const Node& node, std::string& value) {
    const unsigned short type = node.type();
    if (type == binary::TYPE_ELEMENT || (type == binary::TYPE_STRING && node.dataSize() != 0)) {
        assignText(node, value);
        return 0;
    }
    std::int32_t number = 0;
    long long wide = 0;
    double real = 0;
    if (type == binary::TYPE_INT && numberOf(node, number)) value = intToStr(number);
    else if (type == binary::TYPE_LONGLONG && numberOf(node, wide)) value = longlongToStr(wide);
    else if (type == binary::TYPE_DOUBLE && numberOf(node, real)) value = doubleToStr(real);
    else return -1;
    return 0;
}

int readTime(const Node& node, long& value, int* zone) {
    const unsigned short type = node.type();
    if (node.dataSize() == 0 || !(isText(type) || type == binary::TYPE_TIME)) return -1;
    const std::string text = textOf(node);
    // The output is written even when the text does not parse (it then holds -1).
    value = zone ? str2time(text.c_str(), *zone) : str2time(text.c_str());
    return value == -1 ? -1 : 0;
}

}  // namespace

int QKLBinaryIterator::getValue(std::string& value, int id) const {
    return readValue(id, [&value](const Node& node) { return readString(node, value); });
}

int QKLBinaryIterator::getAttr(std::string& value, int id) const {
    return readValue(id, [&value](const Node& node) { return readString(node, value); });
}

int QKLBinaryIterator::getValue(int& value, int id) const {
    return readValue(id, [&value](const Node& node) {
        if (node.dataSize() == 0) return -1;
        if (storedInt(node, value)) return 0;
        if (!isText(node.type())) return -1;
        // Kept on purpose: text converts unchecked, so "abc" reads as 0 with result 0.
        value = int(std::strtol(textOf(node).c_str(), nullptr, 10));
        return 0;
    });
}

int QKLBinaryIterator::getValueLongLong(long long& value, int id) const {
    return readValue(id, [&value](const Node& node) {
        if (node.dataSize() == 0) return -1;
        if (storedInt(node, value)) return 0;
        if (node.type() == binary::TYPE_LONGLONG) return numberOf(node, value) ? 0 : -1;
        return isText(node.type()) ? scanText(node, "%lld", value) : -1;
    });
}

int QKLBinaryIterator::getValueDouble(double& value, int id) const {
    return readValue(id, [&value](const Node& node) {
        if (node.dataSize() == 0) return -1;
        if (node.type() == binary::TYPE_DOUBLE) return numberOf(node, value) ? 0 : -1;
        return isText(node.type()) ? scanText(node, "%lf", value) : -1;
    });
}

int QKLBinaryIterator::getValueTime(long& value, int id) const {
    return readValue(id, [&value](const Node& node) { return readTime(node, value, nullptr); });
}

int QKLBinaryIterator::getValueTimeZone(long& value, int& zone, int id) const {
    return readValue(id, [&value, &zone](const Node& node) { return readTime(node, value, &zone); });
}

int QKLBinaryIterator::getValueBase64(std::string& value, int id) const {
    return readValue(id, [&value](const Node& node) {
        const unsigned int size = node.dataSize();
        if (node.type() == binary::TYPE_ELEMENT) {
            if (size == 0) {
                value.clear();
                return 0;
            }
            const std::string text = textOf(node);
            return Base64::decode(text.data(), int(text.size()), &value);
        }
        if (node.type() != binary::TYPE_BASE64 || size == 0 || node.data() == nullptr) return -1;
        // The stored bytes less the terminating byte that the internals keep.
        value.assign(node.data(), size - 1);
        return 0;
    });
}

int QKLBinaryIterator::getValueXML(std::string& value, int id) const {
    return readValue(id, [&value](const Node& node) {
        if (node.type() != binary::TYPE_XML || node.dataSize() == 0) return -1;
        value = textOf(node);
        return 0;
    });
}

// ---- attribute forms ---------------------------------------------------------------------------------

int QKLBinaryIterator::putAttr(const std::string& value, int id) { return putValue(value, id); }
int QKLBinaryIterator::putAttr(int value, int id) { return putValue(value, id); }
int QKLBinaryIterator::putAttrTime(long value, int id) { return putValueTime(value, id); }
int QKLBinaryIterator::getAttr(int& value, int id) const { return getValue(value, id); }
int QKLBinaryIterator::getAttrTime(long& value, int id) const { return getValueTime(value, id); }

// ---- by name -----------------------------------------------------------------------------------------

template <class Reader>
int QKLBinaryIterator::readByName(const std::string& name, Reader reader) const {
    // An absolute path cuts the position first, so it is kept whole.
    if (!name.empty() && name[0] == '/') {
        const BinaryPath kept = m_path;
        if (seek(name) != 0) return -1;
        const int result = reader();
        m_path = kept;
        return result;
    }
    // A relative path only goes down, so cutting back to the depth restores it.
    const unsigned int depth = m_path.depth();
    if (seek(name) != 0) return -1;
    const int result = reader();
    m_path.elements.resize(depth);
    return result;
}

template <class Writer>
int QKLBinaryIterator::writeByName(const std::string& name, Writer writer) {
    if (seek(name) != 0 && newChild(name) != 0) return -1;
    const int result = writer();
    // Deliberately one element, however far seek went down.
    seekUp();
    return result;
}

int QKLBinaryIterator::getValueBase64(std::string& value, const std::string& name) const {
    return readByName(name, [&] { return getValueBase64(value, 0); });
}
int QKLBinaryIterator::getValue(std::string& value, const std::string& name) const {
    return readByName(name, [&] { return getValue(value, 0); });
}
int QKLBinaryIterator::getValue(int& value, const std::string& name) const {
    return readByName(name, [&] { return getValue(value, 0); });
}
int QKLBinaryIterator::getValueLongLong(long long& value, const std::string& name) const {
    return readByName(name, [&] { return getValueLongLong(value, 0); });
}
int QKLBinaryIterator::getValueDouble(double& value, const std::string& name) const {
    return readByName(name, [&] { return getValueDouble(value, 0); });
}
int QKLBinaryIterator::getValueTime(long& value, const std::string& name) const {
    return readByName(name, [&] { return getValueTime(value, 0); });
}
int QKLBinaryIterator::getValueTimeZone(long& value, int& zone, const std::string& name) const {
    return readByName(name, [&] { return getValueTimeZone(value, zone, 0); });
}

int QKLBinaryIterator::putValueBase64(const std::string& value, const std::string& name) {
    return writeByName(name, [&] { return putValueBase64(value, 0); });
}
int QKLBinaryIterator::putValue(const std::string& value, const std::string& name) {
    return writeByName(name, [&] { return putValue(value, 0); });
}
int QKLBinaryIterator::putValueLongLong(long long value, const std::string& name) {
    return writeByName(name, [&] { return putValueLongLong(value, 0); });
}
int QKLBinaryIterator::putValueDouble(double value, const std::string& name) {
    return writeByName(name, [&] { return putValueDouble(value, 0); });
}
int QKLBinaryIterator::putValue(int value, const std::string& name) {
    return writeByName(name, [&] { return putValue(value, 0); });
}
int QKLBinaryIterator::putValueTime(long value, const std::string& name) {
    return writeByName(name, [&] { return putValueTime(value, 0); });
}
int QKLBinaryIterator::putValueTimeZone(long value, int zone, const std::string& name) {
    return writeByName(name, [&] { return putValueTimeZone(value, zone, 0); });
}

}  // namespace QKL
