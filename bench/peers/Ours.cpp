#include "Ours.h"

#include <cstdlib>
#include <memory>

namespace peers::ours {

namespace {

using QKL::QKLMessage;
using QKL::QKLMessageIterator;

// Names held once, as a program keeps its element names, so no call builds a temporary.
const std::string DATA = "data", ENVM = "envm", ENV = "env", EID = "eid", STATUS = "status", CPU = "cpu",
                  MEMORY = "memory", LOAD = "load", ORIGIN = "origin", TARGET = "target", SESSION = "session",
                  ENVM_PATH = "data/envm", EID_PATH = "data/envm/env/eid";

// The message version the binary document is written for.
constexpr int PEER_VERSION = 40500;

int idOf(const std::string& name) { return QKL::getElemIdByStringDefault(name.data(), name.size()); }

bool setHeader(QKLMessage& message, const Header& header) {
    return message.create("packet") == 0 && message.setVersion(header.version) == 0 &&
           message.setID(header.id, false) == 0 && message.setPriority(header.priority) == 0 &&
           message.setTime(header.time) == 0 && message.setType(header.type) == 0;
}

bool putEnvsById(QKLMessageIterator& at, const DataSet& data) {
    const Ids& id = ids();
    if (at.putValue(data.header.origin, id.origin) != 0 || at.putValue(data.header.target, id.target) != 0 ||
        at.putValue(data.header.session, id.session) != 0 || at.newChild(id.data) != 0 || at.newChild(ENVM) != 0)
        return false;
    for (const Env& env : data.envs) {
        if (at.newChild(ENV) != 0 || at.putValue(env.eid, EID) != 0 || at.putValue(env.status, id.status) != 0 ||
            at.putValue(env.cpu, id.cpu) != 0 || at.putValueLongLong(env.memory, id.memory) != 0 ||
            at.putValueDouble(env.load, LOAD) != 0 || at.seekUp() != 0)
            return false;
    }
    return true;
}

bool putEnvsByName(QKLMessageIterator& at, const DataSet& data) {
    if (at.putValue(data.header.origin, ORIGIN) != 0 || at.putValue(data.header.target, TARGET) != 0 ||
        at.putValue(data.header.session, SESSION) != 0 || at.newChild(DATA) != 0 || at.newChild(ENVM) != 0)
        return false;
    for (const Env& env : data.envs) {
        if (at.newChild(ENV) != 0 || at.putValue(env.eid, EID) != 0 || at.putValue(env.status, STATUS) != 0 ||
            at.putValue(env.cpu, CPU) != 0 || at.putValueLongLong(env.memory, MEMORY) != 0 ||
            at.putValueDouble(env.load, LOAD) != 0 || at.seekUp() != 0)
            return false;
    }
    return true;
}

}  // namespace

const Ids& ids() {
    static const Ids all{idOf(DATA), idOf(STATUS), idOf(CPU), idOf(MEMORY), idOf(ORIGIN), idOf(TARGET), idOf(SESSION)};
    return all;
}

QKLMessage* build(const DataSet& data, Names names) {
    QKL::auto_destroy<> message(QKL::QKLMsgFactory::createNew());
    if (!message || !setHeader(*message, data.header)) return nullptr;
    const std::unique_ptr<QKLMessageIterator> at(message->newIterator());
    const bool built = names == Names::ById ? putEnvsById(*at, data) : putEnvsByName(*at, data);
    return built && message->saveChanges() == 0 ? message.release() : nullptr;
}

Checksum readAll(const QKLMessage& message, Names names) {
    Checksum sum;
    const std::unique_ptr<const QKLMessageIterator> env(message.newIterator());
    const Ids& id = ids();
    if (names == Names::ById ? env->seek(id.data) != 0 || env->seek(ENVM) != 0 : env->seek(ENVM_PATH) != 0)
        return sum;
    std::string eid, status;
    int cpu = 0;
    long long memory = 0;
    double load = 0;
    for (int more = env->firstChild(); more == 0; more = env->nextSibling()) {
        if (names == Names::ById) {
            env->getValue(eid, EID);
            env->getValue(status, id.status);
            env->getValue(cpu, id.cpu);
            env->getValueLongLong(memory, id.memory);
            env->getValueDouble(load, LOAD);
        } else {
            env->getValue(eid, EID);
            env->getValue(status, STATUS);
            env->getValue(cpu, CPU);
            env->getValueLongLong(memory, MEMORY);
            env->getValueDouble(load, LOAD);
        }
        sum.add(eid.size(), status.size(), cpu, memory, load);
    }
    return sum;
}

int lookUp(const QKLMessageIterator& root, std::string& eid) { return root.getValue(eid, EID_PATH); }

std::string bytes(const QKLMessage& message) {
    char* buffer = nullptr;
    int length = 0;
    if (message.serialize(&buffer, &length, nullptr, PEER_VERSION) != 0) return std::string();
    std::string copy(buffer, size_t(length));
    std::free(buffer);
    return copy;
}

QKLMessage* roundTrip(const QKLMessage& message) {
    char* buffer = nullptr;
    int length = 0;
    if (message.serialize(&buffer, &length, nullptr, PEER_VERSION) != 0) return nullptr;
    QKLMessage* received = QKL::QKLMsgFactory::createNew(buffer, length);
    std::free(buffer);
    return received;
}

char* render(const QKLMessage& message) {
    return message.toText(nullptr, QKLMessageIterator::EmptyName, QKLMessageIterator::TEXT_FLAGS);
}

std::string text(const QKLMessage& message) {
    char* rendered = render(message);
    std::string copy = rendered ? rendered : "";
    std::free(rendered);
    return copy;
}

QKLMessage* parse(const std::string& text) {
    QKL::auto_destroy<> message(QKL::QKLMsgFactory::createNew());
    return message && message->fromText(text.c_str(), nullptr) == 0 ? message.release() : nullptr;
}

}  // namespace peers::ours
