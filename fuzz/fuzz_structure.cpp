// libFuzzer entry of the structure target (fuzz/targets/FuzzTargets.h).
#include "fuzz/targets/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QKLFuzz::structureTarget(data, size);
    return 0;
}
