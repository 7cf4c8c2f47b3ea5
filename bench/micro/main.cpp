// Benchmarks of the parsers, of the programming pass's searches and of the lab. The runs that
// compare recordings need permission to make a mount namespace.
#include <benchmark/benchmark.h>

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 64;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
