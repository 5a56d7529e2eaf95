// libFuzzer entry of the strings target (fuzz/targets/FuzzTargets.h).
#include "fuzz/targets/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QKLFuzz::stringsTarget(data, size);
    return 0;
}
