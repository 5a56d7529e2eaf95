// The rows of the comparison table: which runs each row sets side by side, and the
// targets the rows must reach at N = TARGET_SIZE (ratio peer time / our time, at least).
#ifndef QKL_BENCH_PEERS_ROWS_H
#define QKL_BENCH_PEERS_ROWS_H

#include <string>
#include <vector>

namespace peers {

// The peer columns, in table order.
enum Column { PUGIXML, LIBXML2, LIBBSON, MEMCPY, COLUMNS };
extern const char* const COLUMN_TITLES[COLUMNS];

struct Target {
    Column column;
    double atLeast;    // peer time / our time
    const char* text;  // as the table shows it
};

struct Row {
    const char* label;
    const char* scenario;
    const char* ours;                // our contender's name in the run names
    const char* contender[COLUMNS];  // each column's contender, or null
    bool bytesMove;                  // the table adds MB/s
    std::vector<Target> targets;
};

const std::vector<Row>& rows();

// The rows as the JSON output's context carries them for the chart, one entry per row:
// key "peers_row_NN", value "label;ours run;run 1;target 1;...;run 4;target 4"
// (runs at N = TARGET_SIZE, empty fields where a column has none).
void describeRowsInContext();
constexpr char ROWS_CONTEXT_KEY[] = "peers_row_";

}  // namespace peers

#endif
