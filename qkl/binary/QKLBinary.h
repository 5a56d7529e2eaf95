// QKLBinary: the binary message protocol. Its element tree is one binary
// document (binary/Format.h) held by a QKLBinaryInternals. It frames
// and reads byte streams, writes documents out, and keeps the packet header
// fields as attributes of the root element (element tags 101-110; the session
// ID in element 1748).
//
// Received bytes: deserialize/init check the whole document (every node inside
// its parent, the map area well-formed) before adopting it, so a truncated,
// oversized or lying document is refused with -1 and the message is unchanged;
// lastDocumentError() then says where and why.
//
// uid, session and id set through setUid/setSession/setID stay in caches
// until saveChanges() writes them into the root.
#ifndef QKL_BINARY_QKLBINARY_H
#define QKL_BINARY_QKLBINARY_H

#include <map>
#include <optional>
#include <string>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/DocumentError.h"
#include "qkl/binary/Limits.h"
#include "qkl/message/QKLMessage.h"
#include "qkl/text/TextError.h"
#include "qkl/util/CharArray.h"

namespace QKL {

class QKLBinaryInternals;
class QKLBinaryIterator;

class QKLBinary : public QKLMessage {
public:
    // A header value not yet written into the document.
    template <class T>
    struct Attribute {
        std::optional<T> value;
        bool changed = false;

        Attribute& operator=(const T& newValue) {
            value = newValue;
            changed = true;
            return *this;
        }
        // A cache that held a value is marked changed before it is dropped.
        void drop() {
            if (value) changed = true;
            value.reset();
        }
    };

    // The packet header attributes (element tags of the root's children).
    enum HeaderAttribute {
        VERSION_ATTRIBUTE = 101,
        ID_ATTRIBUTE = 102,
        PRIORITY_ATTRIBUTE = 103,
        TIME_ATTRIBUTE = 104,
        TYPE_ATTRIBUTE = 105,
        PROGRESS_ATTRIBUTE = 106,
        TIMEOUT_ATTRIBUTE = 107,
        TIMEOUT_LIMIT_ATTRIBUTE = 108,
        UID_ATTRIBUTE = 109,
        LOG_ATTRIBUTE = 110
    };
    static constexpr int FIRST_HEADER_ATTRIBUTE = VERSION_ATTRIBUTE;
    static constexpr int LAST_HEADER_ATTRIBUTE = LOG_ATTRIBUTE;
    // The element that holds the session ID.
    static constexpr int SESSION_ID_ELEMENT = 1748;
    // Stored forms of the on/off attributes "progress" and "log".
    static const char* const On;
    static const char* const Off;
    // The name of an attribute 101-110 ("version" ... "log"), or null.
    static const char* headerAttributeName(int id);
    // The ID 101-110 of a header attribute name, or 0.
    static int headerAttributeID(const std::string& name);

    // The text form: the deepest element nesting that the writer
    // and the reader follow (both recurse once per level); deeper gives null / -1.
    static constexpr int MAX_TEXT_DEPTH = Limits::MAX_TEXT_DEPTH;
    // Replaces "<", ">" and "&" (only those, deliberately) by their entities.
    static std::string escape(const char* text);

    // The protocol's registry name, "QKLBinary".
    static constexpr char MessageType[] = "QKLBinary";
    // Class-wide policy flags, copied into each new message (the XML reader reads them).
    static unsigned int Policy;

    // Framing of a received stream: 0 when more bytes are needed, else
    // the length of the binary document, or of the text up to and with its first
    // zero byte. Reads nothing outside [bytes, bytes + length).
    static int isComplete(const char* bytes, int length);
    // Nonzero exactly when the first 4 bytes are the document magic. Reads 4 bytes
    // without a length check (callers pass at least 4); 0 for a null pointer.
    static int isOfTheKind(const char* bytes);

    QKLBinary();
    ~QKLBinary() override;

    // ---- QKLMessage slots ----
    int init(const char* buf, int len) override;
    int create(const char* rootName) override;
    int serialize(char** buf, int* len, const QKLMessageIterator* from, int peerVersion) const override;
    // Into the caller's buffer of *len bytes (message version 40000, map area
    // included): -2 with the needed length for a null buffer, -1 when too small.
    int serialize(char* buf, unsigned long* len, const QKLMessageIterator* from) const override;
    int deserialize(const char* buf, int len, QKLMessageIterator* to) override;
    int deserialize(const QKLMessageIterator* from, QKLMessageIterator* to) override;
    // Where and why the last deserialize or init refused a binary document: the
    // offset into the bytes given and one of DocumentError's reasons. Clear after
    // one that succeeded, that read XML text, or that failed for a cause outside
    // the bytes (no memory, an iterator of another message). Belongs to the
    // message, like its other non-const members: one thread at a time.
    const DocumentError& lastDocumentError() const { return m_documentError; }
    // The XML text form of the whole message, or of the subtree at `at`:
    // a malloc'ed, zero-ended buffer released with free(); null on failure.
    char* toText(const QKLMessageIterator* at, const std::string& nsBase, int version) const override;
    // Parses XML text into the whole message, or under `at`; on a
    // failure under an iterator the message is left as it was.
    int fromText(const char* text, QKLMessageIterator* at) override;
    // Where and why the last fromText (or deserialize of XML text) refused the
    // text: the offset into it, line, column and one of TextError's reasons.
    // Clear after one that succeeded or failed for a cause outside the text (a
    // null text, an iterator of another message). One thread at a time, as above.
    const TextError& lastTextError() const { return m_textError; }
    QKLMessage* newMessage() const override;
    QKLMessageIterator* newIterator() override;
    const QKLMessageIterator* newIterator() const override;
    int getVersion(int& version) const override;
    int setVersion(int version) override;
    int getTime(long& time) const override;
    int setTime(long time) override;
    int getProgress(int& progress) const override;
    int setProgress(int progress) override;
    int getLog(int& log) const override;
    int setLog(int log) override;
    int getType(int& type) const override;
    int setType(int type) override;
    int getID(std::string& id) const override;
    int setID(const std::string& id, bool noSave) override;
    int getPriority(int& priority) const override;
    int setPriority(int priority) override;
    int getUid(std::string& uid) const override;
    int setUid(const std::string& uid) override;
    int getTimeout(int& timeout) const override;
    int setTimeout(int timeout) override;
    int getTimeoutLimit(int& limit) const override;
    int setTimeoutLimit(int limit) override;
    int getSession(std::string& session) const override;
    int setSession(const std::string& session) override;
    int getSessionID(std::string& session) const override;
    int setSessionID(const std::string& session) override;
    const char* messageType() const override;
    int saveChanges() const override;
    int assignInternals(const QKLMessage* other) override;
    int copyInternals() const override;
    int releaseInternals() override;
    // ---- QKLBinary's own slots ----
    virtual int create(int rootID);
    virtual char* toText(const QKLMessageIterator* at, const std::string& nsBase) const;
    // The whole message's text for `version`, with its length (without the zero byte).
    int toText(int version, char*& buffer, int& length) const;

    void resetHeaderData();
    void copyHeaderData(const QKLBinary& other);

    // The document (null once released); iterators edit it.
    QKLBinaryInternals* internals() const { return m_internals; }
    unsigned int policy() const { return m_policy; }
    // How many iterators newIterator() has handed out (only grows).
    unsigned int iteratorCount() const { return m_iteratorCount; }

private:
    // The iterator `at` as one of this message's, or null.
    const QKLBinaryIterator* ownIterator(const QKLMessageIterator* at) const;
    int readAttribute(std::string& text, int id) const;
    int readAttribute(int& value, int id) const;
    int writeAttribute(const std::string& text, int id);
    int writeAttribute(int value, int id);
    int readOnOff(int& value, int id) const;
    int adopt(const char* bytes, int length);
    // fromText without the error's line and column.
    int readText(const char* text, QKLMessageIterator* at);
    int adoptUnder(const char* bytes, int length, QKLBinaryIterator& at);
    // Records why the received bytes were refused and returns -1.
    int refuseDocument(const char* bytes, int length);

    // ---- the XML text form: how values are written and read ----
    // Writer (qkl/text/XmlWriter.cpp): a value is written as its stored text, escaped:
    // types 0, 2, 6 the text up to its NUL; 1, 3, 4 intToStr / longlongToStr /
    // doubleToStr; 5 (raw bytes) Base64::encode of the bytes less the terminating
    // byte the internals keep, so that getValueBase64 of the text read back gives
    // the same bytes; 51 as it stands. Header attribute values are written raw,
    // since the reader stores a header attribute's text as it stands, unescaped.
    // Reader (qkl/text/XmlReader.cpp): elements are inserted as type 0 without a
    // value; text content is stored as type 0 (setContent(path, 0, ...)). An
    // element whose xsi:type resolves takes it as the iterator's setComplexType
    // gives it (an element without a value becomes a container of that type), so
    // complex types survive a round trip; an element of a simple schema type whose
    // content is text keeps only the text. An unprefixed "type" attribute is the
    // header attribute 105 on every element; only a prefixed "...:type" is a
    // candidate xsi:type. Ordinary attributes (e.g. soap:encodingStyle, an
    // unprefixed xmlns) are accepted and dropped: the document keeps no
    // attributes but 101-110.
    // Header attributes read from text are stored as strings (type 2), as the
    // header setters store them. Both recurse once per level: deeper than
    // MAX_TEXT_DEPTH fails cleanly. The reader never reads past the text's zero
    // byte, and a failed parse under an iterator leaves the message unchanged.

    unsigned int m_policy;
    mutable Attribute<std::string> m_session;
    mutable Attribute<std::string> m_uid;
    mutable Attribute<std::string> m_id;
    bool m_idNotToSave;
    mutable QKLBinaryInternals* m_internals;
    mutable unsigned int m_iteratorCount;
    DocumentError m_documentError;
    TextError m_textError;
};

}  // namespace QKL

#endif
