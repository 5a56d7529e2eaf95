// QKLBinaryIterator: the iterator of the binary protocol. It
// keeps its position as a BinaryPath of (tag, byte position) pairs from the root
// to the current element, and notices changes made through other iterators by
// the internals' change counter (the stamp rule): a position
// survives a change only if every element on its path still stands at the same
// byte position with the same tag; otherwise every further call returns -1.
//
// Values: one value per element, written by ID (the first child with
// that tag is updated or one is appended) or by name/path, and read back with
// a conversion by stored type (readValue). Writes by ID return 0, or 1 on failure (the
// bool of put()), except the time writes (-1). Reads never move the iterator.
//
// Every node the iterator reads is checked against the document's bytes first,
// so a stale or hostile position gives -1, never a read outside the buffer.
#ifndef QKL_BINARY_QKLBINARYITERATOR_H
#define QKL_BINARY_QKLBINARYITERATOR_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/Limits.h"
#include "qkl/message/QKLMessageIterator.h"

namespace QKL {

class QKLBinary;
class QKLBinaryInternals;

class QKLBinaryIterator : public QKLMessageIterator {
public:
    // Process-wide policy flags, copied into each new iterator.
    static unsigned int Policy;
    // Bit 0: expand embedded documents (tag 0, type 51) before moving down.
    static constexpr unsigned int EXPAND_EMBEDDED = 1;
    // Bit 1: an embedded document that cannot be parsed makes the movement fail.
    static constexpr unsigned int EMBEDDED_MUST_PARSE = 2;
    // The longest path segment seek(const std::string&) accepts; longer gives -1.
    static constexpr std::size_t MAX_SEGMENT_LENGTH = Limits::MAX_PATH_SEGMENT_LENGTH;
    // The cached stamp that forces a re-check of the path before the next access.
    static constexpr std::uint32_t STALE_STAMP = 0xFFFFFFFFu;

    // The path re-walk of the stamp rule.
    struct utility {
        // True when every path element still stands at its recorded position
        // with its tag, each inside the children of the one before.
        static bool validate(const binary::Format& document, const BinaryPath& path);
    };

    // On the root of `message`'s document (an empty path when it has none).
    explicit QKLBinaryIterator(QKLBinary* message);
    explicit QKLBinaryIterator(const QKLBinaryIterator* other);
    QKLBinaryIterator(const QKLBinaryIterator& other);
    QKLBinaryIterator& operator=(const QKLBinaryIterator&) = delete;
    ~QKLBinaryIterator() override;

    // With true, the new iterator runs over copy(false) of the message, which the
    // caller releases through getMessage()->destroy(). Not counted by the message.
    QKLMessageIterator* newIterator(bool withCopy) const override;

    // ---- the stamp rule and movement ----
    int validateStamp() const;
    int validateInternals() const;
    void invalidate() const override;
    int seekRoot() const override;
    // Drops the last path element; on the root it leaves the path empty.
    int seekUp() const override;
    int seek(int id) const override;
    // A name or "/"-path; a failed path leaves the iterator where it was.
    int seek(const std::string& path) const override;
    int firstChild() const override;
    int firstChild(int id) const override;
    int firstChild(const std::string& name) const override;
    int nextSibling() const override;
    int nextSibling(int id) const override;
    int nextSibling(const std::string& name) const override;
    int newChild(int id) override;
    // Expands embedded documents under the current element (policy bits 0 and 1).
    int parseUnknown() const;

    // ---- names, namespaces, complex types, subtrees ----
    int newChild(const std::string& name) override;
    int setNamespace(int nsID) override;
    int setNamespace(const std::string& ns) override;
    int curNamespaceID() const override;
    void saveNamespace(int nsID) override;
    void saveNamespace(const std::string& ns) override;
    int setComplexType(int nsID, int typeID) override;
    int setComplexType(const std::string& fullName);
    int setComplexType(const std::string& ns, const std::string& type) override;
    std::string curName() const override;
    std::string curType() const override;
    int getFullTypeName(int nsID, int typeID, std::string& out) const;
    int serializeFromChild(char** buf, int* len) const override;
    int deserializeToChild(const char* buf, int len) override;
    char* toTextFromChild() const override;
    int fromTextToChild(const char* text) override;
    int copyToChild(const QKLMessageIterator* from) override;
    int deleteFromChild() override;

    // ---- values by name (never move the iterator on a read) ----
    int getValueBase64(std::string& value, const std::string& name) const override;
    int getValue(std::string& value, const std::string& name) const override;
    int getValue(int& value, const std::string& name) const override;
    int getValueLongLong(long long& value, const std::string& name) const override;
    int getValueDouble(double& value, const std::string& name) const override;
    int getValueTime(long& value, const std::string& name) const override;
    int getValueTimeZone(long& value, int& zone, const std::string& name) const override;
    // Writes by name end one element above where seek/newChild went (deliberately).
    int putValueBase64(const std::string& value, const std::string& name) override;
    int putValue(const std::string& value, const std::string& name) override;
    int putValueLongLong(long long value, const std::string& name) override;
    int putValueDouble(double value, const std::string& name) override;
    int putValue(int value, const std::string& name) override;
    int putValueTime(long value, const std::string& name) override;
    int putValueTimeZone(long value, int zone, const std::string& name) override;

    // ---- values by ID ----
    int getValueBase64(std::string& value, int id) const override;
    int getValue(std::string& value, int id) const override;
    int getValue(int& value, int id) const override;
    using QKLMessageIterator::getValue;  // the boolean reads
    int getValueLongLong(long long& value, int id) const override;
    int getValueDouble(double& value, int id) const override;
    int getValueTime(long& value, int id) const override;
    int getValueTimeZone(long& value, int& zone, int id) const override;
    int putValueBase64(const char* data, int len, int id) override;
    int putValue(const char* data, int len, int id) override;
    int putValueBase64(const std::string& value, int id) override;
    int putValue(const std::string& value, int id) override;
    int putValueLongLong(long long value, int id) override;
    int putValueDouble(double value, int id) override;
    int putValue(int value, int id) override;
    int putValueTime(long value, int id) override;
    int putValueTimeZone(long value, int zone, int id) override;

    // ---- slots appended behind invalidate() ----
    virtual int curID() const;
    virtual int getAttr(std::string& value, int id) const;
    virtual int getAttr(int& value, int id) const;
    virtual int getAttrTime(long& value, int id) const;
    virtual int putAttr(const std::string& value, int id);
    virtual int putAttr(int value, int id);
    virtual int putAttrTime(long value, int id);
    virtual int getValueXML(std::string& value, int id) const;
    virtual int putValueXML(const std::string& value, int id);

    // The primitive write: true on failure. A length past INT_MAX is refused, never cut to 32 bits.
    bool put(int id, unsigned short type, const void* data, std::size_t len, bool text);

    QKLBinary* binaryMessage() const;
    const BinaryPath& path() const { return m_path; }
    unsigned int policy() const { return m_policy; }

private:
    QKLBinaryInternals* internals() const;
    // The current node as a range that can be checked and walked; no node when
    // the path is empty or there is no document.
    binary::Format::node_range current() const;
    // The current node's range up to the tree's end, not yet checked.
    binary::Format::node_range currentInTree() const;
    // The first direct child of the current node with this tag (any tag for 0
    // when `anyTag`); no node when there is none or the current node is not a container.
    binary::Format::node_range findChild(int id, bool anyTag) const;
    // The next sibling of the current node with this tag (any tag when `anyTag`).
    binary::Format::node_range findSibling(int id, bool anyTag) const;
    int seekChild(int id, bool anyTag, bool strictExpansion) const;
    int moveToSibling(int id, bool anyTag) const;
    // The element ID of a name (0 when unknown or longer than MAX_SEGMENT_LENGTH).
    int elementID(const char* name, std::size_t length) const;
    // seek(path)'s walk down the segments of `path` from `at`; on a failure the
    // position is cut back to `depth`.
    int descend(const std::string& path, std::string::size_type at, unsigned int depth) const;
    int findOrAssign(const std::string& name, int kind) const;
    // parseUnknown's last step: the tag-0 node at `offset` gives way to `content`'s root.
    int replaceEmbedded(unsigned int offset, const QKLBinary& content) const;

    // The node a read by ID reads, as seek(id) would reach it, without moving:
    // the current node for 0, else its first child with that tag; no node when none.
    binary::Format::node_range valueNode(int id) const;
    // Reads by ID: the reader on valueNode(id); -1 when there is none.
    template <class Reader>
    int readValue(int id, Reader reader) const;
    // Reads by name: seek(name), read by ID 0, restore the kept path.
    template <class Reader>
    int readByName(const std::string& name, Reader reader) const;
    // Writes by name: seek or create, write by ID 0, then drop one path element.
    template <class Writer>
    int writeByName(const std::string& name, Writer writer);

    unsigned int m_policy;
    mutable std::uint32_t m_stamp;
    mutable BinaryPath m_path;
};

}  // namespace QKL

#endif
