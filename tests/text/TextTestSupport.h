// Test support for the XML text form. The reader gets each text in a heap block of exactly its
// length + 1, so that a read past the zero byte is a sanitizer finding.
#ifndef QKL_TESTS_TEXT_TEXTTESTSUPPORT_H
#define QKL_TESTS_TEXT_TEXTTESTSUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/message/QKLMessageIterator.h"
#include "support/Files.h"

namespace QKLTest {

using QKL::QKLBinary;
using Message = QKL::auto_destroy<QKLBinary>;
using Iterator = std::unique_ptr<QKL::QKLMessageIterator>;
const std::string XSI_DECLARATION = " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";
const std::string REFUSED = "REFUSED";

inline int readText(QKLBinary& m, const std::string& text, QKL::QKLMessageIterator* at = nullptr) {
    std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    return m.fromText(exact.data(), at);
}

inline std::string render(const QKLBinary& m, int version = 40500, const QKL::QKLMessageIterator* at = nullptr,
                          const std::string& nsBase = "") {
    char* text = m.toText(at, nsBase, version);
    const std::string out = text ? text : "(null)";
    std::free(text);
    return out;
}

// The text read and written back without its xmlns:xsi declaration, or REFUSED.
inline std::string readBack(const std::string& text) {
    Message m(new QKLBinary);
    if (readText(*m, text) != 0) return REFUSED;
    std::string out = render(*m);
    const size_t xsi = out.find(XSI_DECLARATION);
    return xsi == std::string::npos ? out : out.erase(xsi, XSI_DECLARATION.size());
}

inline std::string held(const QKLBinary& m) {
    const QKL::QKLBinaryInternals* d = m.internals();
    return d && d->buffer() ? std::string(d->buffer(), d->used()) : std::string();
}

// Refused as a whole message and under an iterator, both times leaving the message as it was.
inline void expectRefused(const std::string& text) {
    Message m(new QKLBinary);
    ASSERT_EQ(0, readText(*m, "<packet><own_name>theirs</own_name></packet>"));
    const std::string before = held(*m);
    Iterator at(m->newIterator());
    EXPECT_EQ(-1, readText(*m, text));
    EXPECT_EQ(-1, readText(*m, text, at.get()));
    EXPECT_EQ(before, held(*m));
}

// "\n", "\r", "\t" and "\xHH" in the data files of this folder, as the characters.
inline std::string unescape(const std::string& text) {
    std::string out;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text.compare(at, 2, "\\x") == 0) {
            out += char(std::stoi(text.substr(at + 2, 2), nullptr, 16));
            at += 3;
        } else {
            out += text[at] == '\\' ? "\n\r\t"[std::string("nrt").find(text[++at])] : text[at];
        }
    }
    return out;
}

}  // namespace QKLTest

#endif
