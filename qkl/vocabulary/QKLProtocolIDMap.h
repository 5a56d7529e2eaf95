// QKLProtocolIDMap: the per-document map between names outside the
// compiled-in vocabularies and their negative, per-document IDs. It mirrors
// the map area of one document, decodes it lazily on the first
// look-up, and appends new names to both itself and the document.
//
// ID spaces: element and namespace IDs share one space, type IDs are another.
// New IDs come from one counter starting at BEGIN_ID (-2) and counting down
// for every new name, whatever its kind: an element takes the counter value
// itself, a namespace or type its low 16 bits read as unsigned (-3 -> 65533).
//
// A malformed map area (an entry of kind 3 or more, a nonzero ns, a data size
// of 0, an entry that runs past the area) makes every look-up answer 0 or the
// empty name; the area is never read outside the document's bytes.
//
// Threads: the const members only read once the map area is decoded, and the
// decoding is done once, under a lock, by whichever look-up comes first; so
// the sharers of one document may look names up on several threads at once.
// The non-const members (and a look-up racing them) need the map to themselves.
#ifndef QKL_VOCABULARY_QKLPROTOCOLIDMAP_H
#define QKL_VOCABULARY_QKLPROTOCOLIDMAP_H

#include <atomic>
#include <map>
#include <string>

#include <boost/shared_ptr.hpp>

#include "qkl/util/CharArray.h"
#include "qkl/vocabulary/QKLLookASide.h"
#include "qkl/vocabulary/SearchTblItem.h"

namespace QKL {

class QKLBinaryInternals;
namespace binary {
class Node;
}

class QKLProtocolIDMap {
public:
    enum IDType { ELEMENT = 0, NAMESPACE = 1, TYPE = 2 };
    typedef int (*DefaultLookup)(const Internal::CharArray&);

    static constexpr int BEGIN_ID = -2;
    // "INVALID_TAG": the name writers print for an ID that has no name.
    static const Internal::CharArray INVALID_TAG;

    // A name that may live inside a document buffer that moves when it grows:
    // with a document set, the text is found again from the buffer's current
    // address by its distance to the end of the document's data.
    class CharArrayEx {
    public:
        CharArrayEx() : m_ptr(nullptr), m_length(0), m_doc(nullptr), m_offset(0) {}
        explicit CharArrayEx(const Internal::CharArray& name)
            : m_ptr(name.ptr()), m_length(name.length()), m_doc(nullptr), m_offset(0) {}
        // A map entry of a foreign area: points at the entry's bytes.
        explicit CharArrayEx(const binary::Node& entry);
        // A map entry of `doc`'s own area: found again by its distance to the end.
        CharArrayEx(const QKLBinaryInternals* doc, const binary::Node& entry);

        // The current text; the empty name when it cannot be resolved inside the document.
        Internal::CharArray get() const;
        void setDoc(const QKLBinaryInternals* doc) { m_doc = doc; }

    private:
        const char* m_ptr;
        unsigned int m_length;
        const QKLBinaryInternals* m_doc;
        int m_offset;
    };

    explicit QKLProtocolIDMap(QKLBinaryInternals* doc = nullptr);
    // Copies share the name index until one of them writes (copy on write);
    // the ID-to-name maps are copied by value. The source is only read (its
    // map area decoded first, if no look-up did so yet).
    QKLProtocolIDMap(const QKLProtocolIDMap& other);
    QKLProtocolIDMap& operator=(const QKLProtocolIDMap& other);

    // ID to name (the empty name when unknown or when the map area is malformed).
    Internal::CharArray findIDC(int id) const;
    Internal::CharArray findTypeIDC(int id) const;
    Internal::CharArray findID(int id) { return findIDC(id); }
    Internal::CharArray findTypeID(int id) { return findTypeIDC(id); }

    // Name to ID without assigning. Deliberately, `defaultLookup` is not called.
    int findStrC(const Internal::CharArray& name, DefaultLookup defaultLookup) const;
    // Name to ID, assigning (and recording in the document) a new ID when the
    // name is unknown. Deliberately, `defaultLookup` is not called: the element
    // and namespace vocabularies are tried whatever the kind, and a name found
    // there is recorded under its vocabulary ID too.
    int findStr(const Internal::CharArray& name, DefaultLookup defaultLookup, IDType kind);
    int doFind(const Internal::CharArray& name) const;
    int findStrInMsg(const Internal::CharArray& name) const;

    int insertID(const CharArrayEx& name, int id, int kind, bool writeToDocument);
    // Reads map entries from `area` (size bytes), or from the document's own
    // area when area is null. 0, or -1 when the area is malformed.
    int decode(const char* area, unsigned long size);
    // 0, or -1 when the document's map area is malformed; decodes the area on the first call.
    int validate() const;
    // Takes a private copy of the name index when another map still shares it.
    void str2IDMapCheckCopyOnWrite() const;
    void setDoc(QKLBinaryInternals* doc);

    // Forgets every name and restarts the counter (the document was blanked).
    void reset();

    int nextID() const { return m_nextID; }
    int messageVersion() const { return m_messageVersion; }
    void setMessageVersion(int version) { m_messageVersion = version; }
    QKLBinaryInternals* document() const { return m_doc; }

private:
    typedef std::pair<const int, CharArrayEx> Entry;
    typedef std::map<int, CharArrayEx, std::less<int>, QKLLookASide<Entry> > IDMap;

    // A name of the received map area that its decoding left out of the index (its ID
    // was taken by an earlier entry): a look-up by that name answers the ID of the
    // name's first entry, and from then on the name counts as indexed under it.
    struct Unindexed {
        explicit Unindexed(int tag) : id(tag), asked(false) {}
        Unindexed(const Unindexed& other) : id(other.id), asked(other.asked.load()) {}
        int id;
        mutable std::atomic<bool> asked;
    };
    typedef std::map<std::string, Unindexed, std::less<> > UnindexedNames;

    // The decoded state is a cache of the document's map area, filled once by
    // the first look-up; hence these are const over mutable members.
    void decodeOnce() const;
    int decodeEntries(const char* area, unsigned long size) const;
    void collectUnindexed() const;
    int record(const CharArrayEx& name, int id, int kind, bool writeToDocument) const;
    void keepCounterBelow(int tag, int kind) const;
    void copyFrom(const QKLProtocolIDMap& other);

    mutable IDMap m_elements;
    mutable IDMap m_types;
    // Shared with copies; written only by a map holding the only reference.
    mutable boost::shared_ptr<Internal::SearchTblItem> m_index;
    mutable UnindexedNames m_unindexed;
    // Set (with release) once the map area is decoded; cleared by reset().
    mutable std::atomic<bool> m_decoded;
    mutable int m_nextID;
    int m_messageVersion;
    QKLBinaryInternals* m_doc;
};

}  // namespace QKL

#endif
