// Benchmarks of the parsers, of the programming pass's searches, of whole runs and of the lab.
// Whole runs need permission to make a mount namespace; the lab then starts this program again as
// their host.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "audit.h"

int main(int argc, char** argv) {
  if (std::getenv(bench::host_variable) != nullptr) return bench::run_as_host(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 64;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
