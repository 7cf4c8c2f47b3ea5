// The searches of the programming pass: one for each sub-bundle in a text that grows with them.
// With the index, doubling the sub-bundles doubles the pass; searching the text each time would
// make it four times as long.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>
#include <string>

#include "base/text.h"
#include "programming/chip_rows.h"
#include "run/state.h"

namespace {

std::string key_of(int row) {
  return fmt::format("111{:04x}", row);
}

tessel::raw_table sem_table(int rows) {
  std::string text;
  for (int row = 0; row < rows; ++row) {
    fmt::format_to(std::back_inserter(text), "  {:6}  0x{}  Payload=0x{:08x}\n", row, key_of(row),
                   0x2000 + row);
  }
  return std::make_shared<const std::string>(std::move(text));
}

void programming_pass_indexed(benchmark::State& state) {
  tessel::new_state();
  const auto rows = static_cast<int>(state.range(0));
  const tessel::raw_table table = sem_table(rows);
  for (auto _ : state) {
    tessel::st().indexes.clear();
    for (int row = 0; row < rows; ++row) {
      benchmark::DoNotOptimize(tessel::sem_payload_of(table, key_of(row)));
    }
  }
  state.SetComplexityN(state.range(0));
}

void programming_pass_by_pattern(benchmark::State& state) {
  const auto rows = static_cast<int>(state.range(0));
  const tessel::raw_table table = sem_table(rows);
  for (auto _ : state) {
    for (int row = 0; row < rows; ++row) {
      const tessel::pattern key(tessel::fill(tessel::sem_definition, {key_of(row)}));
      benchmark::DoNotOptimize(tessel::findall(key, *table));
    }
  }
  state.SetComplexityN(state.range(0));
}

BENCHMARK(programming_pass_indexed)->RangeMultiplier(2)->Range(512, 8192)->Complexity();
BENCHMARK(programming_pass_by_pattern)->RangeMultiplier(2)->Range(512, 2048)->Complexity();

}  // namespace
