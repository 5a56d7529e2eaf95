# The chart's data from bench_peers' JSON output: one line per table row and peer at N = 200,
#   row index, column (0 pugixml, 1 libxml2, 2 libbson, 3 memcpy), peer time / our time,
#   the target (NaN when none), "row label".
# The rows come from the context entries peers_row_NN; with repetitions, the median stands.
(.benchmarks
 | map(select(.run_type == "iteration" or .aggregate_name == "median"))
 | map({key: .run_name, value: (.cpu_time * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[.time_unit])})
 | from_entries) as $time
| [.context | to_entries[] | select(.key | startswith("peers_row_"))] | sort_by(.key) | to_entries[]
| .key as $row
| (.value.value | split(";")) as $field
| range(0; 4) as $column
| $field[2 + 2 * $column] as $peer
| select($peer != "" and $time[$peer] != null and $time[$field[1]] != null)
| "\($row) \($column) \($time[$peer] / $time[$field[1]]) \(if $field[3 + 2 * $column] == "" then "NaN" else $field[3 + 2 * $column] end) \"\($field[0])\""
