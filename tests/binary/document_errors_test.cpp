// Refused binary documents: the offset and reason that lastDocumentError gives, and
// Format::diagnose agreeing with the receiving check on every input it is shown.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <random>
#include <set>

#include "binary/DocumentCheck.h"
#include "qkl/QKL.h"
#include "support/AssertCounter.h"

using namespace QKL;
using Message = auto_destroy<QKLBinary>;

namespace {

std::string sample() { return BinaryDoc::fromHex(BinaryDoc::dataFile("message_sample.hex")); }

// "offset: reason", or "-" for no error.
std::string text(const DocumentError& error) {
    return error ? std::to_string(error.offset) + ": " + error.reason : "-";
}

// `bytes` received by `m` from a heap block of their exact size, so that a read past them is caught:
// "-" when adopted, else the error recorded.
std::string receive(QKLBinary& m, const std::string& bytes, QKLMessageIterator* under) {
    std::unique_ptr<char[]> exact(new char[bytes.size() + 1]);
    bytes.copy(exact.get(), bytes.size());
    const int n = int(bytes.size());
    const int result = under ? m.deserialize(exact.get(), n, under) : m.init(exact.get(), n);
    if (result == 0) return m.lastDocumentError() ? "adopted, yet " + text(m.lastDocumentError()) : "-";
    return m.lastDocumentError() ? text(m.lastDocumentError()) : "refused without an error";
}

// init refuses bytes that begin with the magic exactly when Format::diagnose names a fault,
// and records that fault. Returns the fault.
std::string expectAgreement(const std::string& bytes) {
    const QKLTest::AssertCounter quiet;
    Message m(new QKLBinary);
    const std::string received = receive(*m, bytes, nullptr);
    const DocumentError found = binary::Format::diagnose(bytes.data(), unsigned(bytes.size()));
    if (text(found) == "0: " + std::string(DocumentError::NOT_BINARY))  // XML text records no document error
        EXPECT_FALSE(m->lastDocumentError());
    else
        EXPECT_EQ(found ? text(found) : "-", received) << BinaryDoc::hex(bytes.substr(0, 64));
    EXPECT_EQ(0u, quiet.reports());
    return text(found);
}

}  // namespace

// document_errors.txt: each row's bytes to a message holding the sample, which the refusal leaves
// as it was; the next document adopted, or XML text read, clears the error.
TEST(RefusedDocuments, NameTheFirstFaultyFieldNodeOrEntryAndWhy) {
    const std::string good = sample();
    std::istringstream rows(BinaryDoc::dataFile("document_errors.txt"));
    int count = 0;
    for (std::string line; std::getline(rows, line);) {
        std::vector<std::string> field;
        std::istringstream fields(line);
        for (std::string f; std::getline(fields, f, '|');) field.push_back(f.erase(f.find_last_not_of(' ') + 1));
        if (line[0] == '#' || field.size() < 4) continue;
        SCOPED_TRACE(line);
        std::string bytes = good;
        std::istringstream edits(field[0]);
        for (std::string edit; std::getline(edits, edit, ',');)
            if (edit.find(':') != std::string::npos) {
                const std::string patch = BinaryDoc::fromHex(edit.substr(edit.find(':') + 1));
                bytes.replace(std::stoul(edit), patch.size(), patch);
            }
        if (field[1].find_first_not_of(' ') != std::string::npos) bytes.resize(std::stoul(field[1]));
        const bool under = field[2].find("under") != std::string::npos;
        const std::string fault = field[3].substr(field[3].find_first_not_of(' '));
        Message m(new QKLBinary);
        ASSERT_EQ(0, m->init(good.data(), int(good.size())));
        std::unique_ptr<QKLMessageIterator> root(under ? m->newIterator() : nullptr);
        EXPECT_EQ(fault, receive(*m, bytes, root.get()));
        const std::string held = BinaryDoc::held(*m->internals());
        if (!under) {  // under an element, what the copy added before the fault stays, as always
            EXPECT_EQ(BinaryDoc::hex(fault == "-" ? bytes.substr(0, held.size()) : good), BinaryDoc::hex(held));
            EXPECT_EQ(fault, expectAgreement(bytes));
        }
        EXPECT_EQ("-", ++count % 2 ? receive(*m, good, nullptr) : receive(*m, std::string("<packet/>", 10), nullptr));
    }
    EXPECT_EQ(44, count);
}

// Every seed and saved finding of the binary fuzz target, every cut of the sample, and seeded
// random edits of it: diagnose and init agree, and every reason of the receiving check occurs.
TEST(RefusedDocuments, DiagnosisAgreesWithTheReceivingCheck) {
    const std::string data(QKL_TEST_DATA_DIR);
    for (const std::string& folder : {data + "/../../fuzz/seeds/binary", data + "/fuzz-regressions/binary"})
        for (const auto& file : std::filesystem::directory_iterator(folder)) {
            const std::string bytes = QKLTest::readFile(file.path().string());
            for (size_t n = 1; n <= bytes.size(); n += 1 + n / 8) expectAgreement(bytes.substr(0, n));
        }
    const std::string good = sample();
    std::set<std::string> reasons;
    for (size_t n = 1; n <= good.size(); ++n) expectAgreement(good.substr(0, n));
    std::mt19937 rng(19);
    for (int round = 0; round < 3000 && !HasFailure(); ++round) {
        std::string bytes = good;
        for (int edits = 1 + int(rng() % 3); edits > 0; --edits) {
            const size_t at = 4 + rng() % (bytes.size() - 4), width = rng() % 3 ? 1 : 4;
            const std::uint32_t word = rng() % 2 ? rng() % 64 : rng();
            bytes.replace(width == 1 ? at : at & ~size_t(3), width, reinterpret_cast<const char*>(&word), width);
        }
        if (rng() % 8 == 0) bytes.resize(bytes.size() - rng() % 40);
        const std::string fault = expectAgreement(bytes);
        reasons.insert(fault.substr(fault.find(' ') + 1));
    }
    EXPECT_EQ(9u, reasons.size()) << ::testing::PrintToString(reasons);  // all but the framing-only ones and zero size
}
