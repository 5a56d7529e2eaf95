// The console output: Google Benchmark's lines as they come, then, once every run is
// done, the one comparison table: time per operation of ours and of each peer, the
// ratio peer/ours (above 1: we lead), MB/s where bytes move, PASS/MISS against the
// targets at N = 200, the memory each document holds at N = 5000, the SOAP call rate,
// and how our times grow with N.
#ifndef QKL_BENCH_PEERS_REPORT_H
#define QKL_BENCH_PEERS_REPORT_H

#include <benchmark/benchmark.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace peers {

struct Result {
    double nanoseconds = 0;  // CPU time per operation
    double bytesPerSecond = 0;
    double heldBytes = 0;
};

class TableReporter : public benchmark::ConsoleReporter {
public:
    explicit TableReporter(OutputOptions options) : ConsoleReporter(options) {}
    // The console's context lines, less the table rows it carries for the JSON output.
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void printTable(std::ostream& out) const;

private:
    const Result* find(const std::string& name) const;
    void printComparison(std::ostream& out) const;
    void printMemory(std::ostream& out) const;
    void printGrowth(std::ostream& out) const;
    std::map<std::string, Result> m_results;
};

}  // namespace peers

#endif
