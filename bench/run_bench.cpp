// Whole runs of routers of several sizes.
#include <benchmark/benchmark.h>

#include "audit.h"
#include "texts.h"

#include "lab/faults/render_faulty.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

// The time of an iteration is the CPU time of the process itself; a counter shows that of the
// tools.
void whole_run(benchmark::State& state) {
  const temporary_folder folder;
  const fs::path capture = folder.path() / "capture";
  const fs::path logs = folder.path() / "logs";
  fs::create_directory(logs);
  lab::write_folder(lab::render(lab::generate(sized(static_cast<unsigned>(state.range(0))))),
                    capture);
  audit_times sum;
  for (auto _ : state) {
    try {
      const audit_times times = audit(capture, logs);
      state.SetIterationTime(times.own);
      sum.tools += times.tools;
      sum.wall += times.wall;
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
      break;
    }
  }
  state.counters["tools_cpu_s"] = benchmark::Counter(sum.tools, benchmark::Counter::kAvgIterations);
  state.counters["wall_s"] = benchmark::Counter(sum.wall, benchmark::Counter::kAvgIterations);
  state.SetComplexityN(state.range(0));
}

BENCHMARK(whole_run)->Arg(25)->Arg(50)->Arg(100)->UseManualTime()->Complexity()->Unit(
    benchmark::kMillisecond);

}  // namespace

}  // namespace bench
