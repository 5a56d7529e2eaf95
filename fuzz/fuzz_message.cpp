// Received bytes through the message layer: framing (isComplete),
// QKLMsgFactory::createNew(bytes, length), a walk of the whole tree with an
// iterator reading every value type, names, namespaces and types at each
// node, the header getters, genReply, the insertion of the bytes under an
// element of another message, and serialize. Any read outside the bytes is an
// ASan finding; any crash or hang is a finding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "qkl/QKL.h"

namespace {

void silence(const char*, const char*, int) {}

// Every typed value read and every name read at the current element.
void readEverything(const QKL::QKLBinaryIterator& at) {
    std::string text;
    int number = 0;
    long long wide = 0;
    double real = 0;
    long time = 0;
    int zone = 0;
    bool flag = false;
    at.getValue(text, 0);
    at.getValue(number, 0);
    at.getValue(flag, 0);
    at.getValueLongLong(wide, 0);
    at.getValueDouble(real, 0);
    at.getValueTime(time, 0);
    at.getValueTimeZone(time, zone, 0);
    at.getValueBase64(text, 0);
    at.getValueXML(text, 0);
    at.curName();
    at.curType();
    at.curNamespaceID();
}

// Depth first over the whole tree, bounded so that a hostile document cannot make it slow.
void walk(const QKL::QKLBinaryIterator& at) {
    const unsigned int maxSteps = 4096;
    unsigned int depth = 0;
    for (unsigned int step = 0; step < maxSteps; ++step) {
        readEverything(at);
        if (at.firstChild() == 0) {
            ++depth;
            continue;
        }
        while (at.nextSibling() != 0) {
            if (depth == 0) return;
            at.seekUp();
            --depth;
        }
    }
}

void readHeader(const QKL::QKLMessage& message) {
    int number = 0;
    long time = 0;
    std::string text;
    message.getVersion(number);
    message.getTime(time);
    message.getProgress(number);
    message.getLog(number);
    message.getType(number);
    message.getID(text);
    message.getPriority(number);
    message.getUid(text);
    message.getTimeout(number);
    message.getTimeoutLimit(number);
    message.getSession(text);
    message.getOrigin();
    message.getTarget();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QKL::setAssertHandler(&silence);
    const char* bytes = reinterpret_cast<const char*>(data);
    const int length = size > 0xFFFFFFu ? 0xFFFFFF : int(size);
    QKL::QKLMessage::isComplete(bytes, length);
    QKL::auto_destroy<QKL::QKLMessage> received(QKL::QKLMsgFactory::createNew(bytes, length));
    if (!received) return 0;
    {
        std::unique_ptr<QKL::QKLBinaryIterator> at(static_cast<QKL::QKLBinaryIterator*>(received->newIterator()));
        walk(*at);
    }
    readHeader(*received);
    QKL::auto_destroy<QKL::QKLMessage> reply(received->genReply("fuzz"));

    QKL::auto_destroy<QKL::QKLMessage> host(QKL::QKLMsgFactory::createNew());
    if (host->create("packet") != 0) return 0;
    std::unique_ptr<QKL::QKLBinaryIterator> at(static_cast<QKL::QKLBinaryIterator*>(host->newIterator()));
    if (at->newChild("data") == 0 && at->deserializeToChild(bytes, length) == 0) walk(*at);
    char* out = nullptr;
    int outLength = 0;
    if (host->serialize(&out, &outLength, at.get(), 40500) == 0) std::free(out);
    return 0;
}
