#include "Report.h"

#include <cstdio>
#include <cstring>
#include <sstream>

#include "DataSet.h"
#include "Rows.h"
#include "Scenarios.h"

namespace peers {

namespace {

constexpr int LABEL = 24, SIZE = 6, CELL = 17;
constexpr int MEMORY_SIZE = 5000;

double nanosecondsPer(benchmark::TimeUnit unit) {
    switch (unit) {
        case benchmark::kSecond: return 1e9;
        case benchmark::kMillisecond: return 1e6;
        case benchmark::kMicrosecond: return 1e3;
        default: return 1;
    }
}

std::string format(const char* pattern, double value, const char* unit) {
    char text[48];
    std::snprintf(text, sizeof text, pattern, value, unit);
    return text;
}

// Three significant digits, in the largest unit (steps of 1000) that keeps the value at least 1.
std::string scaled(double value, const char* const (&units)[4]) {
    int unit = 0;
    for (; unit < 3 && value >= 999.5; ++unit) value /= 1000;
    return format(value >= 99.95 ? "%.0f %s" : value >= 9.995 ? "%.1f %s" : "%.2f %s", value, units[unit]);
}

const char* const TIME_UNITS[] = {"ns", "us", "ms", "s"};
const char* const BYTE_UNITS[] = {"B", "KB", "MB", "GB"};

std::string duration(double nanoseconds) { return scaled(nanoseconds, TIME_UNITS); }
std::string bytes(double count) { return scaled(count, BYTE_UNITS); }

std::string ratio(double value) {
    return format(value >= 99.5 ? "%.0f%s" : value >= 9.95 ? "%.1f%s" : "%.2f%s", value, "x");
}

std::string pad(const std::string& text, int width, bool left = false) {
    const std::string fill(text.size() < size_t(width) ? size_t(width) - text.size() : 0, ' ');
    return left ? text + fill : fill + text;
}

}  // namespace

bool TableReporter::ReportContext(const Context& context) {
    std::ostream& errors = GetErrorStream();
    std::ostringstream captured;
    SetErrorStream(&captured);
    const bool run = ConsoleReporter::ReportContext(context);
    SetErrorStream(&errors);
    std::istringstream lines(captured.str());
    for (std::string line; std::getline(lines, line);)
        if (line.compare(0, std::strlen(ROWS_CONTEXT_KEY), ROWS_CONTEXT_KEY) != 0) errors << line << "\n";
    return run;
}

void TableReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        // With repetitions, the median stands for the run (aggregates come after the runs).
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.error_occurred || (run.run_type != Run::RT_Iteration && !median)) continue;
        Result result;
        result.nanoseconds = run.GetAdjustedCPUTime() * nanosecondsPer(run.time_unit);
        const auto bytesPerSecond = run.counters.find("bytes_per_second");
        if (bytesPerSecond != run.counters.end()) result.bytesPerSecond = bytesPerSecond->second.value;
        const auto held = run.counters.find("held_bytes");
        if (held != run.counters.end()) result.heldBytes = held->second.value;
        m_results[run.run_name.function_name] = result;
    }
}

const Result* TableReporter::find(const std::string& name) const {
    const auto found = m_results.find(name);
    return found == m_results.end() ? nullptr : &found->second;
}

void TableReporter::printTable(std::ostream& out) const {
    printComparison(out);
    printMemory(out);
    if (const Result* soap = find(runName("soap", "ours", 0)))
        out << "\nSOAP call (soapToQklmsg + genReply + answer + qklmsgToSoap + response text): "
            << duration(soap->nanoseconds) << " per call, " << format("%.0f%s", 1e9 / soap->nanoseconds, "")
            << " calls/s\n";
    printGrowth(out);
}

void TableReporter::printComparison(std::ostream& out) const {
    out << "\nPeer comparison: CPU time per operation, beside each peer the ratio peer/ours (above 1: ours leads);\n"
        << "where bytes move, the line below gives each one's own bytes per second (1 MB = 10^6 bytes)\n"
        << pad("scenario", LABEL, true) << pad("N", SIZE) << pad("ours", CELL - 6);
    for (const char* title : COLUMN_TITLES) out << pad(title, CELL);
    out << "   targets at N = " << TARGET_SIZE << "\n";
    int targets = 0, passed = 0;
    for (const Row& row : rows()) {
        bool first = true;
        for (int n : SIZES) {
            const Result* ours = find(runName(row.scenario, row.ours, n));
            if (ours == nullptr) continue;  // left out by --benchmark_filter
            std::string line = pad(first ? row.label : "", LABEL, true) + pad(std::to_string(n), SIZE) +
                               pad(duration(ours->nanoseconds), CELL - 6);
            std::string rates = pad("", LABEL + SIZE) + pad(bytes(ours->bytesPerSecond) + "/s", CELL - 6);
            first = false;
            for (int column = 0; column < COLUMNS; ++column) {
                const Result* peer = row.contender[column] ? find(runName(row.scenario, row.contender[column], n)) : nullptr;
                const double lead = peer ? peer->nanoseconds / ours->nanoseconds : 0;
                line += pad(peer ? duration(peer->nanoseconds) + pad(ratio(lead), 7) : "", CELL);
                rates += pad(peer ? bytes(peer->bytesPerSecond) + "/s" + pad("", 7) : "", CELL);
            }
            for (const Target& target : row.targets) {
                if (n != TARGET_SIZE) break;
                const Result* peer = find(runName(row.scenario, row.contender[target.column], n));
                const bool pass = peer && peer->nanoseconds / ours->nanoseconds >= target.atLeast;
                line += std::string("   ") + target.text + (pass ? " PASS" : " MISS");
                ++targets;
                passed += pass;
            }
            out << line << "\n";
            if (row.bytesMove) out << rates << "\n";
        }
    }
    out << "targets at N = " << TARGET_SIZE << ": " << passed << " of " << targets << " PASS\n";
}

void TableReporter::printMemory(std::ostream& out) const {
    const Result* ours = find(runName("build", "ours-id", MEMORY_SIZE));
    if (ours == nullptr) return;
    out << "\nHeap bytes one built document holds at N = " << MEMORY_SIZE
        << " (ratio peer/ours above 1: ours holds less)\n  ours " << bytes(ours->heldBytes);
    for (const char* peer : {"pugixml", "libxml2", "libbson"})
        if (const Result* held = find(runName("build", peer, MEMORY_SIZE)))
            out << "   " << peer << " " << bytes(held->heldBytes) << " " << ratio(held->heldBytes / ours->heldBytes);
    out << "\n";
}

// Our time per env at each N, once per distinct run of ours (per look-up for the path look-up).
void TableReporter::printGrowth(std::ostream& out) const {
    out << "\nGrowth: our time per env at N =";
    for (int n : SIZES) out << pad(std::to_string(n), 10);
    out << "\n";
    std::string last;
    for (const Row& row : rows()) {
        const std::string name = std::string(row.scenario) + "/" + row.ours;
        if (name == last) continue;
        last = name;
        const bool perLookUp = std::string(row.scenario) == "path";
        out << "  " << pad(perLookUp ? std::string(row.label) + " (per look-up)" : row.label, 29, true);
        for (int n : SIZES) {
            const Result* result = find(runName(row.scenario, row.ours, n));
            out << pad(result ? duration(result->nanoseconds / (perLookUp ? 1 : n)) : "-", 10);
        }
        out << "\n";
    }
    const char* const flat[][3] = {{"flat-put", "ours", "ours putValue"},
                                   {"flat-get", "ours", "ours getValue"},
                                   {"flat-get", "pugixml", "pugixml child()"}};
    out << "  by name past N siblings, per look-up:\n";
    for (const auto& run : flat) {
        out << "    " << pad(run[2], 27, true);
        for (int n : SIZES) {
            const Result* result = find(runName(run[0], run[1], n));
            out << pad(result ? duration(result->nanoseconds) : "-", 10);
        }
        out << "\n";
    }
}

}  // namespace peers
