// The fuzz targets as plain functions, so that libFuzzer (fuzz/fuzz_<name>.cpp)
// and the regression replay (tests/fuzz) run the same bodies. Each takes any
// bytes; a broken invariant ends the process through require(), a bad memory
// access through the sanitizers.
//
//   binary     received bytes: framing, load, a read of everything, write back
//   structure  edits applied to a valid generated document, then as binary
//   xml        XML text into a message and under an iterator
//   soap       SOAP requests through the bridge and back
//   strings    session IDs and the case-insensitive string helpers
#ifndef QKL_FUZZ_TARGETS_FUZZTARGETS_H
#define QKL_FUZZ_TARGETS_FUZZTARGETS_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace QKL {
class QKLMessage;
class QKLMessageIterator;
}

namespace QKLFuzz {

// Prints `what` (and the input being replayed, when one is named) and aborts when !ok.
void require(bool ok, const char* what);
// Named in require's report; the replay test sets it to the file it runs.
extern std::string currentInput;

void binaryTarget(const std::uint8_t* data, std::size_t size);
void structureTarget(const std::uint8_t* data, std::size_t size);
void xmlTarget(const std::uint8_t* data, std::size_t size);
void soapTarget(const std::uint8_t* data, std::size_t size);
void stringsTarget(const std::uint8_t* data, std::size_t size);

// ---- shared by the targets (fuzz/targets/Common.cpp) ----
// Makes every QKL_ASSERT report a finding: no input may break an internal invariant.
void assertionsAreFindings();
// The message's document as serialize(..., 40500) hands it out; "" when it gives -1.
std::string bytesOf(const QKL::QKLMessage& message);
// The whole message's XML text; "" when toText gives null.
std::string textOf(const QKL::QKLMessage& message);
// A document of format version 2 the library holds must load again from the bytes
// it writes, and write back the same bytes.
void requireReloads(const QKL::QKLMessage& message, const char* what);
// The text of the element `at` stands on, with its subtree (toTextFromChild); "" when none.
std::string subtreeText(const QKL::QKLMessageIterator& at);
// Moves `at` to the last child of the root's element "data"; false when there is none.
bool toLastDataChild(const QKL::QKLMessageIterator& at);
// The binary pipeline on received bytes (the binary target's body).
void receive(const char* bytes, std::size_t size);
// Text parsed, written, parsed and written again: the second text is a fixed point.
void requireTextFixedPoint(const std::string& text);

}  // namespace QKLFuzz

#endif
