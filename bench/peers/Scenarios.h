// The scenarios, registered with Google Benchmark under "scenario/contender/N"
// (e.g. "build/ours-id/200"; the SOAP call is "soap/ours"), and the check that every
// contender does the same work, run once before any timing.
#ifndef QKL_BENCH_PEERS_SCENARIOS_H
#define QKL_BENCH_PEERS_SCENARIOS_H

#include <benchmark/benchmark.h>

#include <string>

#include "DataSet.h"

namespace peers {

std::string runName(const std::string& scenario, const std::string& contender, int n);

// Registers body as scenario/contender/N for every N of SIZES.
using Body = void (*)(benchmark::State&, const DataSet&);
void addForEachSize(const char* scenario, const char* contender, Body body);

// build, read all, path look-up.
void registerTreeScenarios();
// binary round trip, XML out, XML in.
void registerByteScenarios();
// A look-up by name past N siblings (put and get), for the growth section.
void registerGrowthScenarios();
// soapToQklmsg + genReply + qklmsgToSoap of a typical call.
void registerSoapScenario();
// One call's response text, empty when a stage fails.
std::string soapResponse();

// Compares what the contenders produce for every scenario and N; on a mismatch,
// says which on standard error and ends the program with status 1.
void checkContendersAgree();

}  // namespace peers

#endif
