#include "qkl/message/QKLSessionID.h"

#include <cstdlib>

#include "qkl/common/GenerateID.h"
#include "qkl/common/NumberText.h"
#include "qkl/common/StringCompare.h"

namespace QKL {

namespace {

typedef std::string::size_type Pos;
const Pos npos = std::string::npos;

const char* const kSessionWord = "qkl";
const char kSeparator = '.';
const Pos kReservedLength = 256;

// Field numbers, counted from the front ("qkl" is field 1).
const int kVersionField = 2;
const int kTypeField = 3;
const int kEIDField = 4;

// The separators around one field; npos marks a missing one.
struct Bounds {
    Pos before;
    Pos after;
};

// Field n (n >= 2) from the front: between the (n-1)-th and the n-th '.'.
Bounds fieldFromFront(const std::string& text, int n) {
    Pos before = npos;
    Pos from = 0;
    for (int dot = 1; dot < n; ++dot) {
        before = text.find(kSeparator, from);
        if (before == npos) return Bounds{npos, npos};
        from = before + 1;
    }
    return Bounds{before, text.find(kSeparator, from)};
}

// The field before the last '.': between the second-to-last and the last '.'.
Bounds fieldBeforeLast(const std::string& text) {
    const Pos after = text.rfind(kSeparator);
    // rfind(c, after - 1) with after == 0 would search the whole text again.
    if (after == npos || after == 0) return Bounds{npos, npos};
    return Bounds{text.rfind(kSeparator, after - 1), after};
}

// The one place that turns bounds into a field; out stays as it was when a
// separator is missing.
bool readField(const std::string& text, Bounds bounds, std::string& out) {
    if (bounds.before == npos || bounds.after == npos) return false;
    out.assign(text, bounds.before + 1, bounds.after - bounds.before - 1);
    return true;
}

// atoi, written as glibc defines it: (int)strtol. Unlike
// std::atoi this is defined for out-of-range text, which a received session
// ID may hold.
int numberField(const std::string& text, Bounds bounds) {
    std::string field;
    if (!readField(text, bounds, field)) return 0;
    return static_cast<int>(std::strtol(field.c_str(), nullptr, 10));
}

}  // namespace

void QKLSessionID::create(int version, int type, const std::string& eid, const std::string& targetEid) {
    const std::string id = generateID();
    // Built aside and swapped in: eid or targetEid may be this very object.
    std::string text;
    text.reserve(kReservedLength);
    text.append(kSessionWord).append(1, kSeparator);
    text.append(intToStr(version)).append(1, kSeparator);
    text.append(intToStr(type)).append(1, kSeparator);
    text.append(eid).append(1, kSeparator);
    text.append(targetEid).append(1, kSeparator);
    text.append(id);
    swap(text);
}

int QKLSessionID::getVersion() const { return numberField(*this, fieldFromFront(*this, kVersionField)); }

int QKLSessionID::getType() const { return numberField(*this, fieldFromFront(*this, kTypeField)); }

void QKLSessionID::getEID(std::string& out) const { readField(*this, fieldFromFront(*this, kEIDField), out); }

std::string QKLSessionID::getEID() const {
    std::string out;
    getEID(out);
    return out;
}

void QKLSessionID::getTargetEID(std::string& out) const { readField(*this, fieldBeforeLast(*this), out); }

std::string QKLSessionID::getTargetEID() const {
    std::string out;
    getTargetEID(out);
    return out;
}

bool QKLSessionID::operator==(const QKLSessionID& other) const { return compareNoCase(*this, other) == 0; }

}  // namespace QKL
