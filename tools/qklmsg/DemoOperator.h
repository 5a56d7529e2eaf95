// The built-in operator "env_manager" of qklmsg demo and qklmsg serve. It
// answers the operation GetList (its "scope" argument is required) with two
// "server" rows, and any other request with an operator error, both under the
// reply's data/env_manager, where qklmsgToSoap looks for the operator's answer.
#ifndef QKLMSG_DEMOOPERATOR_H
#define QKLMSG_DEMOOPERATOR_H

#include <string>

#include "qkl/QKL.h"

namespace qklmsg {

// The operator's and its operation's names, as a request names them.
extern const char* const DEMO_OPERATOR;
extern const char* const DEMO_OPERATION;
// The origin of the replies qklmsg makes (genReply), as an agent's would be.
extern const char* const REPLY_ORIGIN;

// Writes the answer into `reply` (made by request.genReply): the rows of
// GetList, with `scope` set to the scope asked for, or an "error" element,
// with `scope` left empty. False only when the reply cannot be written.
bool answerAsDemoOperator(const QKL::QKLMessage& request, QKL::QKLMessage& reply, std::string& scope);

}  // namespace qklmsg

#endif
