// The programming pass on routers that differ only in their number of sub-bundles, and its
// searches: one per sub-bundle, in a text that grows with the number of sub-bundles. With the
// index, twice the sub-bundles take twice the time; searching the text each time would take four
// times as long.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "base/records.h"
#include "base/text.h"
#include "programming/chip_rows.h"
#include "programming/programming_pass.h"
#include "run/state.h"

#include "lab/render/render.h"

namespace {

using tessel::value;

constexpr const char* node = "0/0/CPU0";
constexpr int subs_of_a_bundle = 256;

// The digits of a VLAN domain, none of them 0.
std::string domain_of(int bundle) {
  return fmt::format("1{:x}1", 0x11 + bundle);
}

std::string sem_row(int number, const std::string& key) {
  return fmt::format("  {:6}  0x{}  Payload=0x{:08x}\n", number, key, 0x2000 + number);
}

value one_entry(const char* key, value content) {
  value map = tessel::make_map();
  map.as_map().set(key, std::move(content));
  return map;
}

template <class Record>
std::pair<value, Record*> new_record() {
  auto made = std::make_shared<Record>();
  Record* content = made.get();
  return {std::shared_ptr<tessel::record>(std::move(made)), content};
}

value node_record() {
  value record = tessel::make_map();
  for (const auto& [key, content] :
       {std::pair<const char*, value>{"nodeid", 1}, {"nodeip", "10.0.0.1"}, {"asic", "BCM8868"}}) {
    record.as_map().set(key, content);
  }
  record.as_map().set("asic_supported", 1);
  record.as_map().set("dump", 1);
  return record;
}

// A bundle with one member on NPU 0 and sub-bundles of one tag each.
value bundle_with(const std::string& domain, int number) {
  const auto [member, port] = new_record<tessel::memberInfo>();
  port->set("name", "Hu0/0/0/1");
  port->set("npu_id", "0");
  port->set("vlan_domain", one_entry(node, "0x" + domain));
  const auto [bundle, element] = new_record<tessel::Bundles>();
  element->set("ifh", fmt::format("0x{:x}", 0x3000000 + number));
  element->set("glif", fmt::format("0x{:x}", 0x10000 + number));
  element->set("mac", "00aa.bbcc.d123");
  element->set("rif", "0x21");
  element->set("is_l2", 0);
  element->set("untagged", 1);
  element->set("vlan_domain", one_entry(node, one_entry("0", "0x" + domain)));
  element->set("members", one_entry(node, one_entry("0/0/0/1", member)));
  for (int tag = 1; tag <= subs_of_a_bundle; ++tag) {
    const auto [sub, fields] = new_record<tessel::subBundles>();
    fields->set("ifh", fmt::format("0x{:x}", 0x4000000 + number * subs_of_a_bundle + tag));
    fields->set("glif", fmt::format("0x{:x}", 0x20000 + number * subs_of_a_bundle + tag));
    fields->set("is_l2", 0);
    fields->set("encap", tessel::make_list({std::to_string(tag)}));
    element->get("sub_bundles").as_map().set(fmt::format("BE{}.{}", number, tag), sub);
  }
  return bundle;
}

// A router whose chip holds what its bundles imply.
void set_up_router(int subs) {
  tessel::run_state& run = tessel::new_state();
  run.router = tessel::birch;
  run.nodeinfo.get().as_map().set(node, node_record());
  run.tesselDb.as_map().set("hqos", 0);
  std::string sem;
  int row = 0;
  for (int bundle = 1; bundle <= subs / subs_of_a_bundle; ++bundle) {
    const std::string domain = domain_of(bundle);
    run.tesselDb.as_map().set(fmt::format("BE{}", bundle), bundle_with(domain, bundle));
    sem += sem_row(++row, domain + "fff");
    for (int tag = 1; tag <= subs_of_a_bundle; ++tag) {
      sem += sem_row(++row, fmt::format("{}{:03x}", domain, tag));
    }
  }
  value tables = tessel::make_map();
  tables.as_map().set("SEMA", std::move(sem));
  tables.as_map().set("SEMB", "");
  tables.as_map().set("VSI", "IHP_VSI_LOW_CFG_1.IHP0[33]: <A=0,B=1,MY_MAC=0x123>\n");
  run.BCM.get().as_map().set(node, one_entry("0", tables));
}

// Discards standard output: the pass prints its title there, and the benchmark its results.
class silence {
 public:
  silence() : kept_(::dup(STDOUT_FILENO)) {
    const int nowhere = ::open("/dev/null", O_WRONLY);
    ::dup2(nowhere, STDOUT_FILENO);
    ::close(nowhere);
  }
  ~silence() {
    ::dup2(kept_, STDOUT_FILENO);
    ::close(kept_);
  }
  silence(const silence&) = delete;
  silence& operator=(const silence&) = delete;

 private:
  int kept_;
};

// The time is that of all threads. Each iteration reads the tables anew.
void programming_pass(benchmark::State& state) {
  set_up_router(static_cast<int>(state.range(0)));
  tessel::run_state& run = tessel::st();
  for (auto _ : state) {
    const silence quiet;
    run.indexes.clear();
    benchmark::DoNotOptimize(tessel::check_bundle_programming());
  }
  if (run.programming_error != 0 || run.exception != 0)
    state.SkipWithError("the router has faults");
  state.SetComplexityN(state.range(0));
}

std::string key_of(int row) {
  return fmt::format("111{:04x}", row);
}

tessel::raw_table sem_table(int rows) {
  std::string text;
  for (int row = 0; row < rows; ++row) text += sem_row(row, key_of(row));
  return std::make_shared<const std::string>(std::move(text));
}

void sem_searches_indexed(benchmark::State& state) {
  tessel::new_state();
  const auto rows = static_cast<int>(state.range(0));
  const tessel::raw_table table = sem_table(rows);
  for (auto _ : state) {
    tessel::st().indexes.clear();
    for (int row = 0; row < rows; ++row) {
      benchmark::DoNotOptimize(tessel::sem_table(table).payload_of(key_of(row)));
    }
  }
  state.SetComplexityN(state.range(0));
}

void sem_searches_by_pattern(benchmark::State& state) {
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

BENCHMARK(programming_pass)
    ->RangeMultiplier(2)
    ->Range(512, 8192)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Complexity()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(sem_searches_indexed)->RangeMultiplier(2)->Range(512, 8192)->Complexity();
BENCHMARK(sem_searches_by_pattern)->RangeMultiplier(2)->Range(512, 2048)->Complexity();

}  // namespace
