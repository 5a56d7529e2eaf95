// XML text from the network, into a fresh message (fromText) and under an
// element of a message that shares its document with another (fromTextToChild).
//
// Invariants:
//  - text that parses has a text form, and toText -> fromText -> toText is a
//    fixed point after one pass (the first pass may drop what the writer does
//    not carry, e.g. the part of a value behind an encoded NUL "&#0;");
//  - the reader's policy only decides what happens to unknown elements: a text
//    that parses when an unknown element fails the parse gives the same message
//    without that policy, and dropping unknown elements succeeds exactly when
//    keeping them does;
//  - a refused text leaves an error (lastTextError) inside the text read, up to
//    its first zero byte; an accepted one leaves none;
//  - a failed fromTextToChild leaves the document's bytes as they were; a
//    successful one puts the tree the text gives alone under the element (the
//    same text from there) in a document that loads again; the other sharer of
//    the document never changes.
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/targets/FuzzTargets.h"
#include "qkl/QKL.h"

namespace QKLFuzz {

namespace {

// The reader's policy bits (QKLBinary::Policy): drop unknown elements; make them fail the parse.
const unsigned int DROP_UNKNOWN = 1;
const unsigned int UNKNOWN_FAILS = 2;

// A message under `policy` with `text` parsed into it; null when the parse fails.
QKL::QKLMessage* parsedUnder(unsigned int policy, const std::string& text) {
    const unsigned int kept = QKL::QKLBinary::Policy;
    QKL::QKLBinary::Policy = policy;  // copied into the message at construction
    QKL::QKLMessage* message = QKL::QKLMsgFactory::createNew();
    QKL::QKLBinary::Policy = kept;
    const bool parsed = message->fromText(text.c_str(), nullptr) == 0;
    const QKL::TextError& error = dynamic_cast<const QKL::QKLBinary&>(*message).lastTextError();
    require(parsed != bool(error), "a refused text, and only a refused one, has an error");
    require(error.offset <= std::strlen(text.c_str()), "the error lies inside the text read");
    if (parsed) return message;
    message->destroy();
    return nullptr;
}

void policiesAgree(const std::string& text) {
    QKL::auto_destroy<QKL::QKLMessage> keeping(parsedUnder(0, text));
    QKL::auto_destroy<QKL::QKLMessage> strict(parsedUnder(UNKNOWN_FAILS, text));
    QKL::auto_destroy<QKL::QKLMessage> dropping(parsedUnder(DROP_UNKNOWN, text));
    require(!strict || keeping, "a text the strict reader takes is taken by the default one");
    if (strict) require(textOf(*strict) == textOf(*keeping), "the strict reader reads what the default one reads");
    require(bool(dropping) == bool(keeping), "dropping unknown elements succeeds exactly when keeping them does");
}

// The element "data" of a small request, whose document is shared with a copy.
const char* const HOST_TEXT =
    "<packet version=\"4.5.0\" id=\"7\"><origin>here</origin>"
    "<data><x_item>1</x_item></data></packet>";

void underAnElement(const std::string& text) {
    QKL::auto_destroy<QKL::QKLMessage> host(QKL::QKLMsgFactory::createNew());
    require(host->fromText(HOST_TEXT, nullptr) == 0, "the host text parses");
    QKL::auto_destroy<QKL::QKLMessage> sharer(host->copy(false));
    const std::string shared = bytesOf(*sharer);
    const std::unique_ptr<QKL::QKLMessageIterator> at(host->newIterator());
    require(at->seek("data") == 0, "the host has its \"data\" element");
    const std::string before = bytesOf(*host);
    if (at->fromTextToChild(text.c_str()) != 0) {
        require(bytesOf(*host) == before, "a failed fromTextToChild leaves the document's bytes as they were");
    } else {
        requireReloads(*host, "a document with text parsed under an element loads again");
        QKL::auto_destroy<QKL::QKLMessage> whole(QKL::QKLMsgFactory::createNew());
        require(whole->fromText(text.c_str(), nullptr) == 0, "a text that parses under an element parses alone");
        const std::unique_ptr<const QKL::QKLMessageIterator> root(whole->newIterator());
        require(toLastDataChild(*at), "the parsed tree stands under \"data\"");
        require(subtreeText(*at) == subtreeText(*root), "a text parsed under an element reads as the text alone");
    }
    require(bytesOf(*sharer) == shared, "a write through one sharer never changes the other");
}

}  // namespace

void xmlTarget(const std::uint8_t* data, std::size_t size) {
    assertionsAreFindings();
    // The reader reads up to the first zero byte, as a text message is framed.
    const std::string text(reinterpret_cast<const char*>(data), size);
    requireTextFixedPoint(text);
    policiesAgree(text);
    underAnElement(text);
}

}  // namespace QKLFuzz
