// An external operator: a shell command that qklmsg serve runs once per
// request. The request message goes in as XML text on its standard input (and
// nowhere else: no part of a request ever reaches the command line); what it
// writes on standard output is its answer. Its standard error is serve's own.
#ifndef QKLMSG_OPERATORPROCESS_H
#define QKLMSG_OPERATORPROCESS_H

#include <string>

namespace qklmsg {

struct OperatorRun {
    std::string output;   // everything it wrote on standard output
    std::string failure;  // empty when it exited with status 0 in time; else why not, as a fault text
};

// Runs `/bin/sh -c command` in a process group of its own, with signals at
// their defaults, feeds it `input` and reads its output at once (neither side
// can block the other), and reaps it. Past `timeoutSeconds` the whole group is
// killed and reaped: no process and no zombie is left behind. Safe to call on
// several threads at once.
OperatorRun runOperatorProcess(const std::string& command, const std::string& input, int timeoutSeconds);

}  // namespace qklmsg

#endif
