#include "DataSet.h"

#include <ctime>
#include <map>

namespace peers {

namespace {

std::string utcText(long seconds) {
    const std::time_t when = seconds;
    std::tm parts{};
    gmtime_r(&when, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    return text;
}

DataSet makeDataSet(int n) {
    DataSet data;
    data.header.timeText = utcText(data.header.time);
    data.envs.reserve(size_t(n));
    for (int i = 0; i < n; ++i) {
        const char* status = i % 5 == 0 ? "stopped" : i % 3 == 0 ? "degraded" : "running";
        data.envs.push_back(Env{"agent-" + std::to_string(i), status, (i * 37) % 101,
                                1000000007LL * (i + 1), (i % 64) / 8.0});
    }
    return data;
}

}  // namespace

const DataSet& dataSet(int n) {
    static std::map<int, DataSet> made;
    auto found = made.find(n);
    if (found == made.end()) found = made.emplace(n, makeDataSet(n)).first;
    return found->second;
}

Checksum expectedChecksum(const DataSet& data) {
    Checksum sum;
    for (const Env& env : data.envs) sum.add(env.eid.size(), env.status.size(), env.cpu, env.memory, env.load);
    return sum;
}

}  // namespace peers
