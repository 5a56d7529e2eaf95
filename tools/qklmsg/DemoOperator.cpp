#include "DemoOperator.h"

#include <memory>

namespace qklmsg {

using QKL::QKLMessage;
using QKL::QKLMessageIterator;

const char* const DEMO_OPERATOR = "env_manager";
const char* const DEMO_OPERATION = "GetList";
const char* const REPLY_ORIGIN = "agent";

namespace {

const char* const ERROR_ELEMENT = "error";
const char* const UNKNOWN_REQUEST_TEXT = "env_manager answers GetList with a scope, and nothing else";

// The answer rows: element name and value.
const char* const ANSWER[][2] = {{"server", "web-01"}, {"server", "db-01"}};

// The scope of a GetList request to this operator; empty for any other request.
std::string scopeAsked(const QKLMessage& request) {
    const std::unique_ptr<const QKLMessageIterator> asked(request.newIterator());
    std::string scope;
    if (!asked || asked->seek(std::string(QKLMessage::DATA) + "/" + DEMO_OPERATOR + "/" + DEMO_OPERATION) != 0 ||
        asked->getValue(scope, "scope") != 0)
        return std::string();
    return scope;
}

}  // namespace

bool answerAsDemoOperator(const QKLMessage& request, QKLMessage& reply, std::string& scope) {
    scope = scopeAsked(request);
    const std::unique_ptr<QKLMessageIterator> answer(reply.newIterator());
    if (!answer || answer->seek(QKLMessage::DATA) != 0 || answer->newChild(DEMO_OPERATOR) != 0) return false;
    if (scope.empty()) return answer->putValue(std::string(UNKNOWN_REQUEST_TEXT), ERROR_ELEMENT) == 0;
    // newChild for a list of equal names; a write with the empty name acts on
    // the new element and then ends on its parent, ready for the next.
    for (const auto& row : ANSWER)
        if (answer->newChild(row[0]) != 0 || answer->putValue(std::string(row[1]), std::string()) != 0) return false;
    return true;
}

}  // namespace qklmsg
