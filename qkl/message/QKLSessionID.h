// QKLSessionID: a session identifier kept as plain text, six fields joined by '.':
//   qkl . version . type . EID . target EID . generated unique ID
// e.g. "qkl.40500.1.node-a.node-b.1b4e28ba-2fa1-41d2-883f-0016d3cca427".
#ifndef QKL_MESSAGE_QKLSESSIONID_H
#define QKL_MESSAGE_QKLSESSIONID_H

#include <string>

namespace QKL {

// The class IS the text (it adds no fields), so it travels wherever a
// std::string does, e.g. in the message header.
class QKLSessionID : public std::string {
public:
    QKLSessionID() {}
    // Explicit: an implicit conversion would make `id == someString` ambiguous
    // between the case-insensitive operator== below and std::string's.
    explicit QKLSessionID(const std::string& text) : std::string(text) {}
    explicit QKLSessionID(const char* text) : std::string(text) {}

    // Replaces the text by a new identifier ending in a fresh generateID().
    void create(int version, int type, const std::string& eid, const std::string& targetEid);

    // Fields 2 and 3 by atoi; 0 when a '.' around the field is missing.
    int getVersion() const;
    int getType() const;

    // Fields 2-4 are found from the front, so an EID containing '.' yields only
    // its part up to its first '.'. The target EID is found from the back and
    // stays right as long as the generated ID has no '.'. When a '.' is
    // missing the out-parameter is left as it was and the by-value form is "".
    void getEID(std::string& out) const;
    std::string getEID() const;
    void getTargetEID(std::string& out) const;
    std::string getTargetEID() const;

    // Equal when the whole texts differ at most in letter case (compareNoCase).
    // Compare two QKLSessionIDs: against a plain std::string, std::string's
    // case-sensitive operators apply.
    bool operator==(const QKLSessionID& other) const;
    bool operator!=(const QKLSessionID& other) const { return !(*this == other); }
};

}  // namespace QKL

#endif
