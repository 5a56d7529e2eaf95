// What every target shares: the one place that turns a broken invariant into a
// finding, and the checks that hold for every document the library writes.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "fuzz/targets/FuzzTargets.h"
#include "qkl/QKL.h"

namespace QKLFuzz {

std::string currentInput;

void require(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "fuzz invariant broken: %s%s%s\n", what, currentInput.empty() ? "" : " -- input ",
                 currentInput.c_str());
    std::abort();
}

namespace {

void assertionIsAFinding(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "QKL_ASSERT(%s) at %s:%d\n", condition, file, line);
    require(false, "an internal assertion was reported");
}

typedef std::unique_ptr<char, void (*)(void*)> Malloced;

// The document in the binary form that always carries the map area; "" when there is none.
std::string documentOf(const QKL::QKLMessage& message) {
    unsigned long length = 0;
    if (message.serialize(nullptr, &length, nullptr) != -2) return "";
    std::string bytes(length, '\0');
    require(message.serialize(&bytes[0], &length, nullptr) == 0 && length == bytes.size(),
            "serialize into a buffer of the queried length fills it");
    return bytes;
}

QKL::QKLMessage* parsed(const std::string& text) {
    QKL::QKLMessage* message = QKL::QKLMsgFactory::createNew();
    if (message->fromText(text.c_str(), nullptr) == 0) return message;
    message->destroy();
    return nullptr;
}

}  // namespace

void assertionsAreFindings() { QKL::setAssertHandler(&assertionIsAFinding); }

std::string bytesOf(const QKL::QKLMessage& message) {
    char* buffer = nullptr;
    int length = 0;
    if (message.serialize(&buffer, &length, nullptr, 40500) != 0) return "";
    const Malloced owned(buffer, &std::free);
    require(buffer != nullptr && length > 0, "serialize hands out a buffer on success");
    return std::string(buffer, size_t(length));
}

std::string textOf(const QKL::QKLMessage& message) {
    const Malloced text(message.toText(nullptr, "", 40500), &std::free);
    return text ? std::string(text.get()) : std::string();
}

// serialize writes a fresh header of format version 2 in front of the nodes as
// they stand, as for every document sent; a received legacy document (format
// version 0) keeps its legacy node sizes behind that header, so only documents
// of format version 2 are promised to load again.
void requireReloads(const QKL::QKLMessage& message, const char* what) {
    const QKL::QKLBinary* binary = dynamic_cast<const QKL::QKLBinary*>(&message);
    if (binary == nullptr || binary->internals() == nullptr || binary->internals()->buffer() == nullptr ||
        binary->internals()->format().version() != QKL::binary::FORMAT_VERSION)
        return;
    const std::string bytes = documentOf(message);
    if (bytes.empty()) return;
    require(QKL::QKLMessage::isComplete(bytes.data(), int(bytes.size())) == int(bytes.size()), what);
    QKL::auto_destroy<QKL::QKLMessage> again(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
    require(again.get() != nullptr, what);
    require(documentOf(*again) == bytes, what);
}

std::string subtreeText(const QKL::QKLMessageIterator& at) {
    const Malloced text(at.toTextFromChild(), &std::free);
    return text ? std::string(text.get()) : std::string();
}

bool toLastDataChild(const QKL::QKLMessageIterator& at) {
    if (at.seekRoot() != 0 || at.seek("data") != 0 || at.firstChild() != 0) return false;
    while (at.nextSibling() == 0) {
    }
    return true;
}

void requireTextFixedPoint(const std::string& text) {
    QKL::auto_destroy<QKL::QKLMessage> first(parsed(text));
    if (!first) return;
    requireReloads(*first, "a document parsed from text loads again as it was");
    const std::string text1 = textOf(*first);
    require(!text1.empty(), "a parsed document has a text form");
    QKL::auto_destroy<QKL::QKLMessage> second(parsed(text1));
    require(second.get() != nullptr, "the text the writer gives parses");
    const std::string text2 = textOf(*second);
    QKL::auto_destroy<QKL::QKLMessage> third(parsed(text2));
    require(third.get() != nullptr, "the text the writer gives parses");
    require(textOf(*third) == text2, "text -> message -> text is a fixed point after one pass");
}

}  // namespace QKLFuzz
