// libQKLMessage as a user drives it through its public interface (QKLMessage,
// QKLMessageIterator, QKLMsgFactory): the contender "ours" of every scenario.
#ifndef QKL_BENCH_PEERS_OURS_H
#define QKL_BENCH_PEERS_OURS_H

#include <string>

#include "DataSet.h"
#include "qkl/QKL.h"

namespace peers::ours {

// How elements are addressed. By ID uses the vocabulary's element IDs where the vocabulary
// has the name ("data", "status", "cpu", "memory", "origin", "target", "session"); "envm",
// "env", "eid" and "load" are no vocabulary names, so both forms address them by name.
enum class Names { ById, ByName };

// The vocabulary IDs of the names above, 0 for a name the vocabulary lacks.
struct Ids {
    int data, status, cpu, memory, origin, target, session;
};
const Ids& ids();

// A new message holding the data set (release with destroy()); null on a failed call.
QKL::QKLMessage* build(const DataSet& data, Names names);

// Visits every env of data/envm and reads its five values.
Checksum readAll(const QKL::QKLMessage& message, Names names);

// The first env's eid, by the path data/envm/env/eid from an iterator on the root.
int lookUp(const QKL::QKLMessageIterator& root, std::string& eid);

// The binary document (wire form); empty when serialize fails.
std::string bytes(const QKL::QKLMessage& message);

// What a receiver holds after the message crossed the wire: serialize, then
// createNew of the bytes (every check of a received document). Null on failure.
QKL::QKLMessage* roundTrip(const QKL::QKLMessage& message);

// The XML text form: malloc'ed (release with free()) or null; and as a string.
char* render(const QKL::QKLMessage& message);
std::string text(const QKL::QKLMessage& message);
// A new message parsed from XML text (release with destroy()); null on failure.
QKL::QKLMessage* parse(const std::string& text);

}  // namespace peers::ours

#endif
