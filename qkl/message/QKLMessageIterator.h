// QKLMessageIterator: the abstract cursor through which every caller
// reads and builds the element tree of a message. It stands on one element at
// a time. Most operations exist twice: by element name or "/"-path ("" is the
// current element) and by element ID (0 is the current element).
//
// The base supplies the rules by which the convenience overloads reduce to a
// few primitives, so a protocol only fills the pure slots:
//  - ID rule: an ID-addressed typed read or write with a nonzero ID returns -1
//    here (a protocol that knows element IDs overrides it); ID 0 forwards to
//    the name form with the empty name.
//  - Buffer rule: putValue(std::string, id) / putValueBase64(std::string, id)
//    with a nonzero ID pass the string's bytes and size() (NUL bytes kept).
//  - Boolean rule: false for exactly "0", "" and "false"; deliberately
//    case-sensitive and untrimmed, so "False", "00" and " 0" read as true.
//
// Results: 0 for success and -1 for failure unless a slot says otherwise.
// Iterators belong to the caller (delete them); one must not outlive its message.
#ifndef QKL_MESSAGE_QKLMESSAGEITERATOR_H
#define QKL_MESSAGE_QKLMESSAGEITERATOR_H

#include <string>

namespace QKL {

class QKLMessage;

class QKLMessageIterator {
public:
    // The empty element name: what an ID-addressed call passes to a name-addressed one.
    static const std::string EmptyName;
    // "false": the one text besides "0" and "" that the boolean read takes as false.
    static const std::string FalseText;
    // The flag word of every whole-message text rendering.
    static constexpr int TEXT_FLAGS = 40500;

    explicit QKLMessageIterator(QKLMessage* message) : m_message(message) {}
    QKLMessageIterator(const QKLMessageIterator&) = default;
    QKLMessageIterator& operator=(const QKLMessageIterator&) = default;

    // ---- virtual slots, in slot order: the vtable layout is part of the interface ----
    virtual ~QKLMessageIterator();
    virtual QKLMessage* getMessage() const { return m_message; }
    virtual QKLMessageIterator* newIterator(bool withCopy) const = 0;
    virtual int seekRoot() const;
    virtual int seekUp() const = 0;
    virtual int seek(const std::string& path) const = 0;
    virtual int seekPresence(const std::string& name) const;
    virtual int setNamespace(const std::string& ns) = 0;
    virtual void saveNamespace(const std::string& ns);
    virtual int setComplexType(const std::string& ns, const std::string& type) = 0;
    virtual int newChild(const std::string& name) = 0;
    virtual int putChild(const std::string& name);
    virtual int firstChild(const std::string& name) const = 0;
    virtual int nextSibling() const = 0;
    virtual int nextSibling(const std::string& name) const = 0;
    virtual std::string curName() const = 0;
    virtual std::string curType() const = 0;
    virtual int curNamespaceID() const;
    virtual int firstChild() const = 0;
    virtual int serializeFromChild(char** buf, int* len) const = 0;
    virtual int deserializeToChild(const char* buf, int len) = 0;
    virtual int copyToChild(const QKLMessageIterator* from) = 0;
    virtual char* toTextFromChild() const = 0;
    virtual int fromTextToChild(const char* text) = 0;
    virtual int deleteFromChild() = 0;
    virtual int deleteChild(int id);
    virtual char* toText() const;
    virtual int serialize(char** buf, int* len, int flags) const;
    virtual int getValueBase64(std::string& value, const std::string& name) const = 0;
    virtual int getValue(std::string& value, const std::string& name) const = 0;
    virtual int getValue(int& value, const std::string& name) const = 0;
    virtual int getValue(bool& value, const std::string& name) const;
    virtual int getValueLongLong(long long& value, const std::string& name) const = 0;
    virtual int getValueDouble(double& value, const std::string& name) const = 0;
    virtual int getValueTime(long& value, const std::string& name) const = 0;
    virtual int getValueTimeZone(long& value, int& zone, const std::string& name) const = 0;
    virtual int putValueBase64(const std::string& value, const std::string& name) = 0;
    virtual int putValue(const std::string& value, const std::string& name) = 0;
    virtual int putValueLongLong(long long value, const std::string& name) = 0;
    virtual int putValueDouble(double value, const std::string& name) = 0;
    virtual int putValue(int value, const std::string& name) = 0;
    virtual int putValueTime(long value, const std::string& name) = 0;
    virtual int putValueTimeZone(long value, int zone, const std::string& name) = 0;
    virtual int seek(int id) const;
    virtual int newChild(int id);
    virtual int setNamespace(int nsID) = 0;
    virtual void saveNamespace(int nsID);
    virtual int setComplexType(int nsID, int typeID) = 0;
    virtual int firstChild(int id) const;
    virtual int nextSibling(int id) const;
    virtual int seekPresence(int id) const;
    virtual int putChild(int id);
    virtual int getValueBase64(std::string& value, int id) const;
    virtual int getValue(std::string& value, int id) const;
    virtual int getValue(int& value, int id) const;
    virtual int getValue(bool& value, int id) const;
    virtual int getValueLongLong(long long& value, int id) const;
    virtual int getValueDouble(double& value, int id) const;
    virtual int getValueTime(long& value, int id) const;
    virtual int getValueTimeZone(long& value, int& zone, int id) const;
    virtual int putValueBase64(const char* data, int len, int id);
    virtual int putValue(const char* data, int len, int id);
    virtual int putValueBase64(const std::string& value, int id);
    virtual int putValue(const std::string& value, int id);
    virtual int putValueLongLong(long long value, int id);
    virtual int putValueDouble(double value, int id);
    virtual int putValue(int value, int id);
    virtual int putValueTime(long value, int id);
    virtual int putValueTimeZone(long value, int zone, int id);
    virtual void invalidate() const = 0;

    // ---- non-virtual members ----
    // getMessage()->genReply(origin): a new reply, released with destroy().
    QKLMessage* genReply(const std::string& origin) const;
    // The root's "origin" child, wherever the iterator stands.
    int getOrigin(std::string& out) const;
    // Copy-on-write before a change: makes a shared document private (and then
    // invalidates this iterator). -1 when that fails or there is no message.
    int validateInternals() const;
    // Sets the namespace of every element below the current one (not of the
    // current element), depth first, parent before children.
    int setNamespaceChild(int namespaceID);

protected:
    void setMessage(QKLMessage* message) { m_message = message; }

private:
    QKLMessage* m_message;
};

}  // namespace QKL

#endif
