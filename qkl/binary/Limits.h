// The limits a program embedding the library can rely on, in one place. Each is
// checked where the library takes what it bounds, before anything is changed: just
// outside a limit the operation fails (-1, 1 or null, as the operation's own
// contract says) and the message and its document stay as they were.
#ifndef QKL_BINARY_LIMITS_H
#define QKL_BINARY_LIMITS_H

#include <climits>
#include <cstddef>

namespace QKL {
namespace Limits {

// A document buffer grows in whole steps of this many bytes (or by doubling).
inline constexpr int BUFFER_GROWTH_STEP = 4096;

// The largest document buffer, in bytes: the most whole growth steps that a signed
// 32-bit capacity holds (2^31 - 4096). Growth that would pass it fails. A request
// smaller than the buffer doubles it, and a doubling past this limit fails too: a new
// document that grows by small edits stops at a buffer of 2^30 bytes, while one large
// request (a big value, a received document) can take a buffer up to the limit.
inline constexpr unsigned int MAX_DOCUMENT_LENGTH = INT_MAX / BUFFER_GROWTH_STEP * BUFFER_GROWTH_STEP;

// The largest received binary document a new message adopts (createNew, init,
// deserialize). QKLBinary::isComplete still frames a longer one, so that a stream
// stays in step past it; adopting it fails. A stream that holds this many bytes and
// is still incomplete can only hold a longer document.
inline constexpr unsigned int MAX_RECEIVED_LENGTH = MAX_DOCUMENT_LENGTH;

// The largest map area of names outside the vocabularies, in bytes: its length field
// in the document header counts 8-byte units in 21 bits. A name whose entry would
// pass it gets no ID: the look-up answers 0 and the call that needed it fails.
inline constexpr unsigned int MAX_MAP_LENGTH = ((1u << 21) - 1) * 8;

// The deepest element nesting that the XML writer and reader follow; deeper text is
// refused (-1) and a deeper document is not written (null).
inline constexpr int MAX_TEXT_DEPTH = 1000;

// The longest element name, in bytes, that the XML reader takes; longer is refused.
inline constexpr unsigned int MAX_ELEMENT_NAME_LENGTH = 250;

// The longest segment of a "/"-separated path, in bytes, that the iterator's
// seek(const std::string&) takes; a longer one fails (-1).
inline constexpr std::size_t MAX_PATH_SEGMENT_LENGTH = 255;

}  // namespace Limits
}  // namespace QKL

#endif
