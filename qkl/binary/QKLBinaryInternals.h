// QKLBinaryInternals: owns the byte buffer of one binary document
// (binary/Format.h) and performs every edit of it. It grows the buffer, opens and
// closes room for nodes, keeps the data sizes of all ancestors right along the
// edited path, and bumps a change counter whenever offsets held elsewhere may
// have gone stale. It also carries the document's ID map (QKLProtocolIDMap) and the
// document's message version.
//
// Results: 0 on success and -1 on failure unless said otherwise.
#ifndef QKL_BINARY_QKLBINARYINTERNALS_H
#define QKL_BINARY_QKLBINARYINTERNALS_H

#include <cstdint>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/Limits.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

namespace QKL {

class QKLBinaryInternals {
public:
    // The message version of a new document ("4.5.0").
    static constexpr int DEFAULT_MESSAGE_VERSION = 40500;
    // The tag whose content sets the message version (the header attribute "version").
    static constexpr int VERSION_TAG = 101;
    // Growth step for a request at least as large as the buffer.
    static constexpr int GROWTH_STEP = Limits::BUFFER_GROWTH_STEP;
    // Tags above this are checked against the ID map by insert.
    static constexpr int LAST_HEADER_TAG = 200;

    // No buffer: holds no document until turnBlank or copy.
    QKLBinaryInternals();
    // Deep copy of a document; the copy has no buffer when growth fails. The source is
    // only read, so its other users may go on reading it meanwhile.
    explicit QKLBinaryInternals(const QKLBinaryInternals* source);
    ~QKLBinaryInternals();
    QKLBinaryInternals(const QKLBinaryInternals&) = delete;
    QKLBinaryInternals& operator=(const QKLBinaryInternals&) = delete;

    // A new 8-byte document in a 4096-byte zero-filled buffer; -1 when growth fails.
    int turnBlank();
    // Adopts a received document. Returns null (changing nothing) unless its
    // length by header and root (Format::size(40000)) equals `length` exactly and
    // is at most Limits::MAX_RECEIVED_LENGTH.
    char* copy(const char* bytes, int length);
    // Makes room for `bytes` more bytes; the buffer, or null (changing nothing) when
    // allocation fails or the buffer would pass Limits::MAX_DOCUMENT_LENGTH.
    char* expand(int bytes, bool zero);

    // Node and map primitives; ancestors are not adjusted. A node or map entry that
    // does not fit the limits (Limits.h) is refused before anything changes.
    unsigned int alloc(unsigned int dataSize, int type, unsigned int at);
    unsigned int allocInMap(unsigned int dataSize, int kind);
    int realloc(unsigned int dataSize, int type, unsigned int at, int& delta);
    int free(unsigned int at);
    void update(BinaryPath::Elements::const_iterator first, BinaryPath::Elements::const_iterator last,
                int delta);

    // Path-addressed edits (iterators use these).
    unsigned int getInsertOffset(const BinaryPath& path);
    int insert(BinaryPath& path, int tag, int type, const void* data, int length, bool terminate);
    int setContent(BinaryPath& path, int type, const void* data, int length, bool terminate);
    int erase(BinaryPath& path);
    int setNamespace(BinaryPath& path, int nsID);
    int curNamespaceID(const BinaryPath& path) const;
    int setComplexType(BinaryPath& path, int typeID);
    int add2map(unsigned int id, unsigned short kind, const char* name, unsigned int length);

    // Subtree copy between documents, names rewritten (binary::CopyAssistant).
    int copy(char* source, const BinaryPath& from, QKLProtocolIDMap& sourceMap, const BinaryPath& to);

    char* buffer() const { return m_buffer; }
    std::uint32_t changeCounter() const { return m_changes; }
    int capacity() const { return m_capacity; }
    unsigned int used() const { return m_used; }
    QKLProtocolIDMap& idMap() { return m_idMap; }
    const QKLProtocolIDMap& idMap() const { return m_idMap; }
    int messageVersion() const { return m_idMap.messageVersion(); }

    // Views of the document: the whole capacity, writable / read-only.
    binary::Arena arena() const { return binary::Arena(m_buffer, m_buffer, m_buffer ? unsigned(m_capacity) : 0); }
    binary::Format format() const { return binary::Format(arena()); }

    // "4.5.0" -> 40500: every non-digit folds the current number into the value.
    static int foldVersion(const char* text, unsigned int length);

private:
    // Where a new child of the current node goes (0: nowhere), without opening a plain element.
    unsigned int childOffset(const BinaryPath& path) const;
    // Turns the current node into an empty container when it is a plain element without payload.
    void openElement(const BinaryPath& path);
    // Grows the buffer for a node of this type and data size; its size, or 0 on failure.
    unsigned int growForNode(unsigned int dataSize, int type);
    void setVersionFrom(int tag, const void* data, int length);
    void bumpIfTreeMoved(std::uint32_t changesBefore, unsigned int movedFrom, unsigned int treeEnd);

    char* m_buffer;
    std::uint32_t m_changes;
    int m_capacity;
    unsigned int m_used;
    QKLProtocolIDMap m_idMap;
};

}  // namespace QKL

#endif
