#include "Scenarios.h"

namespace peers {

std::string runName(const std::string& scenario, const std::string& contender, int n) {
    return scenario + "/" + contender + (n > 0 ? "/" + std::to_string(n) : std::string());
}

void addForEachSize(const char* scenario, const char* contender, Body body) {
    for (int n : SIZES)
        benchmark::RegisterBenchmark(runName(scenario, contender, n).c_str(),
                                     [n, body](benchmark::State& state) { body(state, dataSet(n)); });
}

}  // namespace peers
