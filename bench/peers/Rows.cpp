#include "Rows.h"

#include <benchmark/benchmark.h>

#include <cstdio>

#include "DataSet.h"
#include "Scenarios.h"

namespace peers {

const char* const COLUMN_TITLES[COLUMNS] = {"pugixml", "libxml2", "libbson", "memcpy"};

const std::vector<Row>& rows() {
    static const std::vector<Row> all = {
        {"build by ID", "build", "ours-id", {"pugixml", "libxml2", "libbson", nullptr}, false,
         {{PUGIXML, 2.0, ">= 2x pugixml"}, {LIBBSON, 0.4, ">= 0.4x libbson"}}},
        {"build by name", "build", "ours-name", {"pugixml", "libxml2", "libbson", nullptr}, false,
         {{PUGIXML, 1.0, ">= 1x pugixml"}}},
        {"binary round trip", "roundtrip", "ours", {nullptr, nullptr, "libbson", "memcpy"}, true,
         {{MEMCPY, 0.125, "<= 8x memcpy"}}},
        {"round trip, validated", "roundtrip", "ours", {nullptr, nullptr, "libbson-validate", nullptr}, true,
         {{LIBBSON, 1.0, ">= 1x libbson+validate"}}},
        {"read all by ID", "read", "ours-id", {"pugixml", "libxml2", "libbson", nullptr}, false,
         {{PUGIXML, 1.5, ">= 1.5x pugixml"}, {LIBBSON, 0.8, ">= 0.8x libbson"}}},
        {"read all by name", "read", "ours-name", {"pugixml", "libxml2", "libbson", nullptr}, false,
         {{PUGIXML, 1.0, ">= 1x pugixml"}}},
        {"path look-up", "path", "ours", {"pugixml", nullptr, "libbson", nullptr}, false,
         {{LIBBSON, 1.0, ">= 1x libbson"}}},
        {"XML out", "xml-out", "ours", {"pugixml", "libxml2", nullptr, nullptr}, true,
         {{PUGIXML, 1.0, ">= 1x pugixml"}}},
        {"XML in", "xml-in", "ours", {"pugixml", "libxml2", nullptr, nullptr}, true,
         {{LIBXML2, 2.0, ">= 2x libxml2"}, {PUGIXML, 0.3, ">= 0.3x pugixml"}}},
    };
    return all;
}

void describeRowsInContext() {
    int index = 0;
    for (const Row& row : rows()) {
        std::string value = std::string(row.label) + ";" + runName(row.scenario, row.ours, TARGET_SIZE);
        for (int column = 0; column < COLUMNS; ++column) {
            char target[16] = "";
            for (const Target& t : row.targets)
                if (t.column == column) std::snprintf(target, sizeof target, "%g", t.atLeast);
            const char* contender = row.contender[column];
            value += ";" + (contender ? runName(row.scenario, contender, TARGET_SIZE) : std::string()) + ";" + target;
        }
        char key[32];
        std::snprintf(key, sizeof key, "%s%02d", ROWS_CONTEXT_KEY, index++);
        benchmark::AddCustomContext(key, value);
    }
}

}  // namespace peers
