// bench_peers: libQKLMessage against pugixml, libxml2, libbson and memcpy on one data set,
// every scenario at N = 10, 200, 5000, in one run. Checks first that every contender does
// the same work, then times them, then prints the comparison table. Defaults added to the
// command line unless given: --benchmark_min_time=0.1 and the JSON output
// --benchmark_out=<build dir>/bench_peers.json (the folder above this program's).
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "Report.h"
#include "Rows.h"
#include "Scenarios.h"

namespace {

bool given(int argc, char** argv, const char* flag) {
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], flag, std::strlen(flag)) == 0) return true;
    return false;
}

std::string defaultJsonPath(const char* program) {
    const std::filesystem::path self = std::filesystem::weakly_canonical(std::filesystem::absolute(program));
    return (self.parent_path().parent_path() / "bench_peers.json").string();
}

std::string jsonPath(const std::vector<std::string>& args) {
    const std::string flag = "--benchmark_out=";
    for (const std::string& arg : args)
        if (arg.compare(0, flag.size(), flag) == 0) return arg.substr(flag.size());
    return std::string();
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv, argv + argc);
    if (!given(argc, argv, "--benchmark_min_time")) args.push_back("--benchmark_min_time=0.1");
    if (!given(argc, argv, "--benchmark_out=")) args.push_back("--benchmark_out=" + defaultJsonPath(argv[0]));
    if (!given(argc, argv, "--benchmark_out_format")) args.push_back("--benchmark_out_format=json");
    std::vector<char*> pointers;
    for (std::string& arg : args) pointers.push_back(arg.data());
    int count = int(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 2;

    xmlInitParser();
    peers::checkContendersAgree();
    peers::registerTreeScenarios();
    peers::registerByteScenarios();
    peers::registerGrowthScenarios();
    peers::registerSoapScenario();
    peers::describeRowsInContext();

    const bool colour = isatty(STDOUT_FILENO);
    peers::TableReporter reporter(colour ? benchmark::ConsoleReporter::OO_ColorTabular
                                         : benchmark::ConsoleReporter::OO_Tabular);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    reporter.printTable(std::cout);
    std::cout << "\nJSON: " << jsonPath(args) << std::endl;
    xmlCleanupParser();
    return 0;
}
