// Why a received binary document was refused, and where: the byte offset (from
// the start of the bytes received) of the header field, node or map entry that
// failed, and one reason from the fixed list below. QKLBinary keeps the error of
// its last refused document (lastDocumentError); Format::diagnose finds it.
//
// The results of a refusal (-1, null) say nothing more; the reason exists for
// people and logs. Programs compare reasons by text, never by address.
#ifndef QKL_BINARY_DOCUMENTERROR_H
#define QKL_BINARY_DOCUMENTERROR_H

namespace QKL {

struct DocumentError {
    // ---- Framing: the header and the length of the bytes ----
    // Fewer than the 8 header bytes, of which those present begin the magic.
    static constexpr char SHORTER_THAN_HEADER[] = "document shorter than its header";
    // Exactly the 8 bytes of an empty document: taken as incomplete, as a
    // transport that waits for the rest of a stream must take them.
    static constexpr char LONE_HEADER[] = "a lone header is taken as incomplete";
    // The first 4 bytes are not the magic (only Format::diagnose says so: a
    // message reads such bytes as XML text).
    static constexpr char NOT_BINARY[] = "not a binary document";
    // The header's version byte is neither 2 nor the legacy 0, and the sizes
    // read under the legacy rule do not fit: named instead of the node or
    // entry where they first fail, since those sizes follow some other rule.
    static constexpr char UNKNOWN_FORMAT_VERSION[] = "unknown format version";
    // The map length field (offset 4) puts the map area's end past the bytes.
    static constexpr char MAP_LENGTH_PAST_END[] = "map length past the document";
    // The document is longer than Limits::MAX_RECEIVED_LENGTH (offset 0).
    static constexpr char LONGER_THAN_LIMIT[] = "document longer than the receiving limit";

    // ---- The tree ----
    // The node at offset 8 (the root, or in an empty document the first map
    // entry) does not fit in the bytes received.
    static constexpr char NODE_PAST_END[] = "node past the end of the document";
    // A node's header or its bytes reach past the container that holds it.
    static constexpr char CHILD_PAST_PARENT[] = "child runs past its parent";
    // A container's data size is no sum of node sizes (not a multiple of 8).
    static constexpr char SIZES_DO_NOT_ADD_UP[] = "container sizes that do not add up";

    // ---- The map area ----
    static constexpr char MAP_ENTRY_PAST_AREA[] = "map entry runs past the map area";
    static constexpr char MAP_ENTRY_ZERO_SIZE[] = "map entry of zero size";
    static constexpr char MAP_ENTRY_NONZERO_NS[] = "map entry with nonzero ns";
    static constexpr char MAP_ENTRY_UNKNOWN_KIND[] = "map entry of unknown kind";

    // ---- Placing a received document under an element (deserialize with an iterator) ----
    // The empty bit (offset 4) is set: there is no root to place.
    static constexpr char NO_ROOT_TO_PLACE[] = "document without a root placed under an element";
    // The node's tag, ns or complex type is an ID that neither a vocabulary nor
    // the document's map area names, so it cannot be carried into another document.
    static constexpr char UNNAMED_ID[] = "ID without a name in the vocabularies or the map area";

    unsigned int offset = 0;
    const char* reason = nullptr;  // one of the texts above; null when there is no error

    // True when there is an error.
    explicit operator bool() const { return reason != nullptr; }
};

}  // namespace QKL

#endif
