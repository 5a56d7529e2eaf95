// Every committed seed and every saved finding of each fuzz target, replayed through the
// target's own body (fuzz/targets), so that its invariants hold on real inputs in every test
// run. A broken invariant aborts the test program and names the input.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "fuzz/targets/FuzzTargets.h"
#include "support/Files.h"

namespace {

typedef void (*Target)(const std::uint8_t* data, std::size_t size);

// Runs the files of fuzz/seeds/<kind> and tests/data/fuzz-regressions/<kind>; how many ran.
int replay(const std::string& kind, Target target) {
    int count = 0;
    for (const std::string& folder : {std::string(QKL_FUZZ_SEEDS_DIR) + "/" + kind,
                                      std::string(QKL_TEST_DATA_DIR) + "/fuzz-regressions/" + kind}) {
        if (!std::filesystem::is_directory(folder)) continue;
        for (const std::filesystem::directory_entry& file : std::filesystem::directory_iterator(folder)) {
            const std::string bytes = QKLTest::readFile(file.path().string());
            QKLFuzz::currentInput = file.path().string();
            target(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    QKLFuzz::currentInput.clear();
    return count;
}

}  // namespace

// At least the committed seeds (5 or more per target) ran.
TEST(FuzzReplay, ReceivedBytesWriteBackAsReceived) { EXPECT_GE(replay("binary", &QKLFuzz::binaryTarget), 5); }
TEST(FuzzReplay, EditedDocumentsAreRefusedOrWriteBackAsReceived) {
    EXPECT_GE(replay("structure", &QKLFuzz::structureTarget), 5);
}
TEST(FuzzReplay, TextReachesAFixedPointAndFailedInsertsChangeNothing) {
    EXPECT_GE(replay("xml", &QKLFuzz::xmlTarget), 5);
}
TEST(FuzzReplay, SoapRequestsFailWithAFaultOrAnswerWithAnEnvelope) {
    EXPECT_GE(replay("soap", &QKLFuzz::soapTarget), 5);
}
TEST(FuzzReplay, StringHelpersAgreeWithPlainLoops) { EXPECT_GE(replay("strings", &QKLFuzz::stringsTarget), 5); }
