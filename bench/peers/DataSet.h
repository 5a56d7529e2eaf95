// The one data set every contender builds and reads: a typical agent reply, a "packet"
// with header fields, origin, target and session, then data/envm holding N "env" records
// of five values. Values are chosen so that every contender's text form reads back
// exactly (load is a multiple of 1/8), which lets the checks compare sums bit for bit.
#ifndef QKL_BENCH_PEERS_DATASET_H
#define QKL_BENCH_PEERS_DATASET_H

#include <string>
#include <vector>

namespace peers {

// The sizes every scenario runs at, and the one the targets are set for.
constexpr int SIZES[] = {10, 200, 5000};
constexpr int TARGET_SIZE = 200;

struct Header {
    int version = 40500;
    std::string versionText = "4.5.0";
    std::string id = "reply-4f1c2a9e";
    int priority = 3;
    long time = 1700000000;
    std::string timeText;  // time as the XML text form writes it (UTC, seconds)
    int type = 2;
    std::string origin = "agent.node-a";
    std::string target = "console.node-b";
    std::string session = "session-0042";
};

struct Env {
    std::string eid;
    std::string status;
    int cpu;
    long long memory;
    double load;
};

struct DataSet {
    Header header;
    std::vector<Env> envs;
};

// The data set of n records, made once per n.
const DataSet& dataSet(int n);

// What reading every record gives: the sums each contender's read-all must reproduce.
struct Checksum {
    long long numbers = 0;    // cpu + memory
    long long textBytes = 0;  // lengths of eid and status
    double load = 0;

    void add(size_t eidLength, size_t statusLength, int cpu, long long memory, double envLoad) {
        numbers += cpu + memory;
        textBytes += static_cast<long long>(eidLength + statusLength);
        load += envLoad;
    }
    bool operator==(const Checksum& other) const {
        return numbers == other.numbers && textBytes == other.textBytes && load == other.load;
    }
};

Checksum expectedChecksum(const DataSet& data);

}  // namespace peers

#endif
