#include "qkl/vocabulary/QKLProtocolIDMap.h"

#include <climits>
#include <mutex>
#include <string>
#include <string_view>

#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {

using Internal::CharArray;
using Internal::nullCharArray;

const CharArray QKLProtocolIDMap::INVALID_TAG("INVALID_TAG", 11);

namespace {

// IDs up to this one (compared unsigned) name neither elements nor namespaces.
const unsigned int LAST_NON_NAME_ID = 200;
// The counter's value once every negative ID is spent (it counts down from -2, so never 0 otherwise).
const int EXHAUSTED = 0;
// Namespace and type IDs live in 16-bit node fields.
const int SHORT_ID_SIGN = 32768;

CharArray vocabularyName(int id) {
    const CharArray& element = getStringByElemIdDefault(id);
    return element.empty() ? getStringByNSIdDefault(id) : element;
}

// One lock for the first decoding of every map: that happens once per received
// document, too rarely to be worth a lock in each map.
std::mutex& decodeLock() {
    static std::mutex lock;
    return lock;
}

// What the name index can hold: a nonempty name of characters 1 to 127 (SearchTblItem).
bool indexable(const CharArray& name) {
    if (name.length() == 0) return false;
    for (unsigned int i = 0; i < name.length(); ++i)
        if (static_cast<signed char>(name.ptr()[i]) <= 0) return false;
    return true;
}

std::string_view viewOf(const CharArray& name) { return std::string_view(name.ptr(), name.length()); }

int vocabularyID(const CharArray& name) {
    int id = getElemIdByStringDefault(name.ptr(), name.length());
    return id != 0 ? id : getNSIdByStringDefault(name.ptr(), name.length());
}

// A run of map entries [begin, end) in `arena`, walked entry by entry. An
// entry that is malformed or leaves the run makes the walk invalid; it never
// reads outside the arena.
class MapWalk {
public:
    MapWalk(const binary::Arena& arena, unsigned int begin, unsigned int end, unsigned char version)
        : m_arena(arena), m_at(begin), m_end(end), m_version(version),
          m_valid(binary::mapEntryValid(arena, begin, begin, end, version) || begin == end) {}

    bool done() const { return !m_valid || m_at == m_end; }
    bool valid() const { return m_valid; }
    binary::Node entry() const { return binary::Node(m_arena, m_at); }
    CharArray name() const {
        binary::Node node = entry();
        return CharArray(node.data(), node.dataSize() - 1);
    }
    void next() {
        binary::Node node = entry();
        m_at += unsigned(binary::nodeSize(m_version, node.type(), node.dataSize()));
        m_valid = m_at == m_end || binary::mapEntryValid(m_arena, m_at, m_at, m_end, m_version);
    }

private:
    binary::Arena m_arena;
    unsigned int m_at;
    unsigned int m_end;
    unsigned char m_version;
    bool m_valid;
};

// The document's own map area, bounded by the bytes the document occupies.
MapWalk ownMap(const QKLBinaryInternals& doc) {
    binary::Arena arena = doc.arena();
    arena.narrow(doc.used());
    binary::Format format(arena);
    const binary::Format::map_type& map = format.map();
    const unsigned long long end = (unsigned long long)map.offset() + map.size();
    // An area that claims to run past the document is walked as far as the
    // document goes, and so fails on its first entry that would leave it.
    return MapWalk(arena, map.offset(), end > doc.used() ? doc.used() + 1 : unsigned(end), format.version());
}

}  // namespace

// ---- CharArrayEx ---------------------------------------------------------------------------

QKLProtocolIDMap::CharArrayEx::CharArrayEx(const binary::Node& entry)
    : m_ptr(entry.data()), m_length(entry.dataSize() - 1), m_doc(nullptr), m_offset(0) {}

QKLProtocolIDMap::CharArrayEx::CharArrayEx(const QKLBinaryInternals* doc, const binary::Node& entry)
    : m_ptr(nullptr), m_length(entry.dataSize() - 1), m_doc(doc),
      m_offset(int(doc->used() - (entry.offset() + entry.overhead()))) {}

CharArray QKLProtocolIDMap::CharArrayEx::get() const {
    if (m_doc == nullptr || m_doc->buffer() == nullptr)
        return m_ptr ? CharArray(m_ptr, m_length) : nullCharArray;
    const unsigned int used = m_doc->used();
    if (m_offset < 0 || unsigned(m_offset) > used || m_length > unsigned(m_offset)) return nullCharArray;
    return CharArray(m_doc->buffer() + (used - unsigned(m_offset)), m_length);
}

// ---- construction ---------------------------------------------------------------------------

QKLProtocolIDMap::QKLProtocolIDMap(QKLBinaryInternals* doc)
    : m_index(new Internal::SearchTblItem), m_decoded(false), m_nextID(BEGIN_ID),
      m_messageVersion(QKLBinaryInternals::DEFAULT_MESSAGE_VERSION), m_doc(doc) {}

// The source is left as it is: other threads may be looking names up through
// it. Whichever map writes first while the index is shared takes a private copy.
QKLProtocolIDMap::QKLProtocolIDMap(const QKLProtocolIDMap& other) : m_decoded(false) { copyFrom(other); }

QKLProtocolIDMap& QKLProtocolIDMap::operator=(const QKLProtocolIDMap& other) {
    if (this != &other) copyFrom(other);
    return *this;
}

void QKLProtocolIDMap::copyFrom(const QKLProtocolIDMap& other) {
    // Decoded first, so that no other thread's first look-up fills it while it is copied.
    other.decodeOnce();
    m_elements = other.m_elements;
    m_types = other.m_types;
    m_index = other.m_index;
    m_unindexed = other.m_unindexed;
    m_nextID = other.m_nextID;
    m_messageVersion = other.m_messageVersion;
    m_doc = other.m_doc;
    m_decoded.store(true, std::memory_order_relaxed);
}

void QKLProtocolIDMap::reset() {
    m_elements.clear();
    m_types.clear();
    m_index.reset(new Internal::SearchTblItem);
    m_unindexed.clear();
    m_decoded.store(false, std::memory_order_relaxed);
    m_nextID = BEGIN_ID;
    m_messageVersion = QKLBinaryInternals::DEFAULT_MESSAGE_VERSION;
}

void QKLProtocolIDMap::setDoc(QKLBinaryInternals* doc) {
    m_doc = doc;
    for (IDMap::value_type& entry : m_elements) entry.second.setDoc(doc);
    for (IDMap::value_type& entry : m_types) entry.second.setDoc(doc);
}

void QKLProtocolIDMap::str2IDMapCheckCopyOnWrite() const {
    // An acquire load: the other holders' reads of the index are over once they have let it go.
    if (m_index.use_count() == 1) return;
    m_index.reset(new Internal::SearchTblItem(*m_index));
}

// ---- decoding ---------------------------------------------------------------------------------

// The first call decodes the map area (unless names were recorded before, or there
// is none). Later calls with no name decoded (an area of types only, or a malformed
// one) check the area again: only a walk, the entries are recorded already.
int QKLProtocolIDMap::validate() const {
    decodeOnce();
    if (!m_elements.empty()) return 0;
    if (m_doc == nullptr || m_doc->buffer() == nullptr) return 0;
    if (m_doc->used() < binary::HEADER_SIZE || m_doc->format().map().size() == 0) return 0;
    MapWalk check = ownMap(*m_doc);
    while (!check.done()) check.next();
    return check.valid() ? 0 : -1;
}

void QKLProtocolIDMap::decodeOnce() const {
    if (m_decoded.load(std::memory_order_acquire)) return;
    std::lock_guard<std::mutex> lock(decodeLock());
    if (m_decoded.load(std::memory_order_relaxed)) return;
    if (m_elements.empty() && m_doc != nullptr && m_doc->buffer() != nullptr &&
        m_doc->used() >= binary::HEADER_SIZE && m_doc->format().map().size() != 0)
        decodeEntries(nullptr, 0);
    m_decoded.store(true, std::memory_order_release);
}

int QKLProtocolIDMap::decode(const char* area, unsigned long size) { return decodeEntries(area, size); }

int QKLProtocolIDMap::decodeEntries(const char* area, unsigned long size) const {
    const bool own = area == nullptr;
    if (own) {
        QKL_ASSERT(size == 0);
        QKL_ASSERT(m_doc != nullptr && m_doc->buffer() != nullptr);
        if (m_doc == nullptr || m_doc->buffer() == nullptr) return -1;
    } else if (size > 0xFFFFFFFFul) {
        return -1;
    }
    const bool fresh = m_elements.empty();
    const MapWalk start = own ? ownMap(*m_doc)
                              : MapWalk(binary::Arena::readOnlyView(area, unsigned(size)), 0, unsigned(size),
                                        binary::FORMAT_VERSION);
    // "One malformed entry makes the whole map area invalid": check the whole
    // area before recording anything, or the entries in front of the bad one
    // would stay decoded and the next validate() would take the map as good.
    MapWalk check = start;
    while (!check.done()) check.next();
    if (!check.valid()) return -1;
    // The document's own entries are in the document already: writing them
    // back would duplicate them, and would move the buffer under the walk.
    const bool write = !fresh && !own;
    bool skipped = false;
    for (MapWalk walk = start; !walk.done(); walk.next()) {
        const binary::Node entry = walk.entry();
        const int kind = entry.type();
        CharArrayEx name = own ? CharArrayEx(m_doc, entry) : CharArrayEx(entry);
        skipped |= (kind == TYPE ? m_types : m_elements).count(entry.tag()) != 0;
        record(name, entry.tag(), kind, write);
        if (fresh) keepCounterBelow(entry.tag(), kind);
    }
    if (own && skipped) collectUnindexed();
    return 0;
}

// A name whose every entry lost its ID to an earlier entry is in no map and not in
// the index. Its first entry (in area order) answers a look-up by name, as long as
// the name is one the index can hold and the entry's ID is not 0.
void QKLProtocolIDMap::collectUnindexed() const {
    for (MapWalk walk = ownMap(*m_doc); !walk.done(); walk.next()) {
        const CharArray name = walk.name();
        if (!indexable(name)) continue;
        const Internal::SearchTblItem* item = m_index->findItem(name.ptr(), name.length());
        if (item == nullptr || item->id() == 0) m_unindexed.emplace(name.str(), Unindexed(walk.entry().tag()));
    }
}

void QKLProtocolIDMap::keepCounterBelow(int tag, int kind) const {
    if (kind != ELEMENT) {
        if (tag < SHORT_ID_SIGN) return;
        tag = int(static_cast<short>(tag & 0xFFFF));  // sign-extend the 16-bit ID
    } else if (tag >= 0) {
        return;
    }
    if (m_nextID >= tag) m_nextID = tag == INT_MIN ? EXHAUSTED : tag - 1;
}

// ---- recording ---------------------------------------------------------------------------------

int QKLProtocolIDMap::insertID(const CharArrayEx& name, int id, int kind, bool writeToDocument) {
    return record(name, id, kind, writeToDocument);
}

int QKLProtocolIDMap::record(const CharArrayEx& name, int id, int kind, bool writeToDocument) const {
    IDMap& map = kind == TYPE ? m_types : m_elements;
    if (map.count(id) != 0) return 0;
    CharArrayEx stored = name;
    if (m_doc != nullptr && writeToDocument) {
        // The text may lie in the document's own buffer, which add2map can move.
        const std::string text = name.get().str();
        if (m_doc->add2map(unsigned(id), static_cast<unsigned short>(kind), text.data(), unsigned(text.size())) != 0)
            return 0;
        binary::Format format = m_doc->format();
        stored = CharArrayEx(m_doc, binary::Node(format.arena(), format.map().offset()));
    }
    str2IDMapCheckCopyOnWrite();
    map.insert(IDMap::value_type(id, stored));
    const CharArray text = stored.get();
    m_index->addItem(id, text.ptr(), text.length());
    return id;
}

// ---- look-ups -------------------------------------------------------------------------------------

CharArray QKLProtocolIDMap::findIDC(int id) const {
    if (unsigned(id) <= LAST_NON_NAME_ID) return nullCharArray;
    const CharArray name = vocabularyName(id);
    if (!name.empty()) return name;
    if (validate() != 0) return nullCharArray;
    IDMap::const_iterator found = m_elements.find(id);
    return found == m_elements.end() ? nullCharArray : found->second.get();
}

CharArray QKLProtocolIDMap::findTypeIDC(int id) const {
    const CharArray& name = getStringByTypeIdDefault(id);
    if (!name.empty()) return name;
    if (validate() != 0) return nullCharArray;
    IDMap::const_iterator found = m_types.find(id);
    return found == m_types.end() ? nullCharArray : found->second.get();
}

int QKLProtocolIDMap::doFind(const CharArray& name) const {
    // An unindexed name once looked up stands before any later index entry of that name.
    if (!m_unindexed.empty() && name.ptr() != nullptr) {
        UnindexedNames::const_iterator found = m_unindexed.find(viewOf(name));
        if (found != m_unindexed.end() && found->second.asked.load(std::memory_order_relaxed))
            return found->second.id;
    }
    const Internal::SearchTblItem* item = m_index ? m_index->findItem(name.ptr(), name.length()) : nullptr;
    return item ? item->id() : 0;
}

// Reached only for a name the index does not hold, so only the names the decoding
// left out can be found in the area.
int QKLProtocolIDMap::findStrInMsg(const CharArray& name) const {
    if (m_unindexed.empty() || name.ptr() == nullptr) return 0;
    UnindexedNames::const_iterator found = m_unindexed.find(viewOf(name));
    if (found == m_unindexed.end() || found->second.id == 0) return 0;
    found->second.asked.store(true, std::memory_order_relaxed);
    return found->second.id;
}

int QKLProtocolIDMap::findStrC(const CharArray& name, DefaultLookup) const {
    if (validate() != 0) return 0;
    int id = doFind(name);
    if (id == 0) id = findStrInMsg(name);
    if (id == 0) id = vocabularyID(name);
    return id;
}

int QKLProtocolIDMap::findStr(const CharArray& name, DefaultLookup, IDType kind) {
    if (validate() != 0) return 0;
    int id = doFind(name);
    if (id != 0) return id;  // known to this map already: nothing to record
    id = vocabularyID(name);
    if (id != 0) {
        // Deliberate: a vocabulary name is recorded too, under its vocabulary ID.
        record(CharArrayEx(name), id, kind, true);
        return id;
    }
    // A received map area may have used the lowest ID already: then no new name gets one.
    if (m_nextID == EXHAUSTED) return 0;
    const int fresh = kind == ELEMENT ? m_nextID : int(static_cast<unsigned short>(m_nextID & 0xFFFF));
    m_nextID = m_nextID == INT_MIN ? EXHAUSTED : m_nextID - 1;
    return record(CharArrayEx(name), fresh, kind, true);
}

}  // namespace QKL
