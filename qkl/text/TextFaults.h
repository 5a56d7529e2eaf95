// The XML reader's refusals, private to qkl/text: each records where and why a
// text was refused (TextError) and returns -1, the reader's failure. They run
// only once a parse has failed, and only the first fault of a parse is kept.
#ifndef QKL_TEXT_TEXTFAULTS_H
#define QKL_TEXT_TEXTFAULTS_H

#include "qkl/text/TextError.h"

namespace QKL {

class TextFaults {
public:
    // `text`: the whole text read, which the offsets count from.
    TextFaults(const char* text, TextError& error) : m_text(text), m_error(error) {}

    // `reason` at `at`.
    int fail(const char* at, const char* reason);
    // No element at `at`: markup without its ">" (`markup`), the end, other text, "<" without a name.
    int noElement(const char* at, bool markup);
    // "</" at `at` (null: none up to the end) does not close the open element `open`
    // (`length` bytes; none for an end tag before any element).
    int endTag(const char* at, const char* open, unsigned int length);
    // An element's text [begin, end) could not be stored: an entity, or (end null)
    // text beside header attributes.
    int text(const char* begin, const char* end);

    // Sets the error's line and column from its offset into `text`.
    static void place(const char* text, TextError& error);

private:
    const char* const m_text;
    TextError& m_error;
};

}  // namespace QKL

#endif
